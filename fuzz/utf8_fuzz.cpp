// UTF-8 decoding, conversion and measuring of any bytes, by every kernel against one simple model. Rooms are exact, so
// that the sanitizer sees a write beyond. The first byte chooses how much room the conversions get.
#include <cstdlib>
#include <cstring>
#include <vector>

#include "base/charset/utf8_kernels.hpp"

namespace {

using Bytes = std::vector<uint8_t>;

void require(bool condition) {
    if (!condition) std::abort();
}

struct Model {
    int result;
    uint32_t code_point;
};

Model model_decode(const uint8_t *in, std::size_t size) {
    if (size == 0) return {0, 0};
    if (in[0] < 0x80) return {1, in[0]};
    if (in[0] < 0xC2) return {-1, 0};
    if (in[0] >= 0xFE) return {-7, 0};
    const int length = in[0] < 0xE0 ? 2 : in[0] < 0xF0 ? 3 : in[0] < 0xF8 ? 4 : in[0] < 0xFC ? 5 : 6;
    uint32_t code_point = in[0] % (1u << (7 - length));
    for (int i = 1; i < length; ++i) {
        if (static_cast<std::size_t>(i) >= size || in[i] / 0x40 != 2) return {-length, 0};
        code_point = code_point * 0x40 + in[i] % 0x40;
    }
    if (in[0] == 0xE0 && in[1] < 0xA0) return {-3, 0};
    if (in[0] == 0xF0 && in[1] < 0x90) return {-4, 0};
    return {length, code_point};
}

void check_to_units(const Utf8_kernel &kernel, const Bytes &in, std::size_t room) {
    Bytes out(room);
    const Tq4_converted done = utf8_to_units_by(kernel, {in.data(), in.size()}, {out.data(), room});
    std::size_t at = 0, produced = 0;
    for (; room - produced >= 2; produced += 2) {
        const Model model = model_decode(in.data() + at, in.size() - at);
        if (model.result <= 0 || model.code_point > 0xFFFF) break;
        uint16_t unit;
        require(produced + 2 <= done.produced);
        std::memcpy(&unit, &out[produced], 2);
        require(unit == model.code_point);
        at += static_cast<std::size_t>(model.result);
    }
    require(done.consumed == at && done.produced == produced);
}

void check_from_units(const Utf8_kernel &kernel, const Bytes &in, std::size_t room) {
    Bytes out(room);
    const Tq4_converted done = units_to_utf8_by(kernel, {in.data(), in.size()}, {out.data(), room});
    std::size_t produced = 0;
    for (std::size_t at = 0; at < done.consumed; at += 2) {
        uint16_t unit;
        std::memcpy(&unit, &in[at], 2);
        require(produced < done.produced);
        const Model model = model_decode(&out[produced], done.produced - produced);
        require(model.result > 0 && model.code_point == unit);
        produced += static_cast<std::size_t>(model.result);
    }
    require(done.consumed % 2 == 0 && done.produced == produced);
    require(in.size() - done.consumed < 2 || room - produced < 3); // it stopped at the end or for lack of room
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    if (size == 0) return 0;
    const Bytes in(data + 1, data + size);
    std::size_t columns = 0;
    for (std::size_t at = 0; at < in.size();) {
        uint32_t code_point = 0;
        const Bytes rest(in.begin() + static_cast<std::ptrdiff_t>(at), in.end());
        const Model model = model_decode(rest.data(), rest.size());
        require(utf8_decode({rest.data(), rest.size()}, &code_point) == model.result && code_point == model.code_point);
        columns += model.result > 1 ? 2 : 1;
        at += model.result > 1 ? static_cast<std::size_t>(model.result) : 1;
    }
    for (const Utf8_kernel *kernel : utf8_kernels()) {
        if (!kernel->is_supported()) continue;
        require(utf8_columns_by(*kernel, {in.data(), in.size()}) == columns);
        check_to_units(*kernel, in, in.size() * 2 * data[0] / 255);
        check_from_units(*kernel, in, in.size() * 2 * data[0] / 255);
    }
    return 0;
}
