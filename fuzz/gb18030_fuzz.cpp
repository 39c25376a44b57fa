// The four conversions of GB18030 over any bytes: every kernel gives what the portable one gives, a small room gives a
// beginning of that, what was converted converts back, and nothing is touched outside input and room.
#include <cstdlib>
#include <memory>
#include <string>

#include "base/charset/gb18030_kernels.hpp"

namespace {

void require(bool holds) {
    if (!holds) abort();
}

struct Result {
    std::size_t consumed;
    std::string produced;
    bool operator==(const Result &) const = default;
};

// Input and room are blocks of exactly their sizes, for the address sanitizer.
Result convert(Gb18030_conversion *conversion, const std::string &in, std::size_t room) {
    const std::unique_ptr<uint8_t[]> from(new uint8_t[in.size()]), to(new uint8_t[room]);
    in.copy(reinterpret_cast<char *>(from.get()), in.size());
    const Tq4_converted done = conversion({from.get(), in.size()}, {to.get(), room});
    require(done.consumed <= in.size() && done.produced <= room);
    return {done.consumed, std::string(reinterpret_cast<char *>(to.get()), done.produced)};
}

constexpr struct {
    Gb18030_conversion *Gb18030_kernel::*there, *Gb18030_kernel::*back;
} directions[] = {
    {&Gb18030_kernel::utf8_to_gb18030, &Gb18030_kernel::gb18030_to_utf8},
    {&Gb18030_kernel::gb18030_to_utf8, &Gb18030_kernel::utf8_to_gb18030},
    {&Gb18030_kernel::units_to_gb18030, &Gb18030_kernel::gb18030_to_units},
    {&Gb18030_kernel::gb18030_to_units, &Gb18030_kernel::units_to_gb18030},
};

} // namespace

// The first byte is the small room, the others are the text.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    if (size == 0) return 0;
    const std::string text(reinterpret_cast<const char *>(data) + 1, size - 1);
    const std::size_t small_room = data[0], full_room = text.size() * 2;
    for (const auto &direction : directions) {
        const Result whole = convert(gb18030_portable.*direction.there, text, full_room);
        const Result part = convert(gb18030_portable.*direction.there, text, small_room);
        require(part.consumed <= whole.consumed && whole.produced.starts_with(part.produced));
        const Result back = convert(gb18030_portable.*direction.back, whole.produced, text.size() * 2);
        require(back.consumed == whole.produced.size());
        // Only UTF-8 has longer forms of the same character, which come back shorter.
        const bool shortened = back.produced.size() < whole.consumed;
        require(shortened ? direction.there == &Gb18030_kernel::utf8_to_gb18030
                          : back.produced == text.substr(0, whole.consumed));
        for (const Gb18030_kernel *kernel : gb18030_kernels()) {
            if (!kernel->is_supported()) continue;
            require(convert(kernel->*direction.there, text, full_room) == whole);
            require(convert(kernel->*direction.there, text, small_room) == part);
        }
    }
    return 0;
}
