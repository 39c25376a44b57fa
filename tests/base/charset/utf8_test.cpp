// UTF-8: every form up to six bytes, and that every kernel this processor runs converts as the C library does. The fuzz
// target has a model of what malformed forms answer, and compares the kernels with it over any bytes and rooms.
#include <iconv.h>

#include "base/charset/utf8.hpp"
#include "base/charset/utf8_kernels.hpp"
#include "support/test.hpp"

namespace {

Tq4_bytes view(const std::string &bytes) { return {reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size()}; }

int decode(const std::string &text, uint32_t *code_point) { return utf8_decode(view(text), code_point); }

std::string encode(uint32_t code_point) {
    uint8_t form[6];
    return std::string(reinterpret_cast<char *>(form), utf8_encode(code_point, form));
}

std::string unit(uint32_t value) { return {static_cast<char>(value), static_cast<char>(value >> 8)}; }

} // namespace

TEST(Utf8, EveryKernelAgreesWithTheCLibraryOverTheWholePlane) {
    std::string units, text(3 * 0x10000, '\0');
    for (uint32_t value = 0; value < 0x10000; ++value)
        if (value < 0xD800 || value > 0xDFFF) units += unit(value);
    iconv_t converter = iconv_open("UTF-8", "UTF-16LE");
    char *from = units.data(), *to = text.data();
    std::size_t from_left = units.size(), to_left = text.size();
    ASSERT_EQ(iconv(converter, &from, &from_left, &to, &to_left), 0u);
    iconv_close(converter);
    text.resize(text.size() - to_left);

    for (const Utf8_kernel *kernel : utf8_kernels()) {
        if (!kernel->is_supported()) continue;
        const auto expect = [&](decltype(utf8_to_units_by) *convert, const std::string &in, const std::string &out) {
            std::string room(out.size(), '\0');
            const auto [consumed, produced] =
                convert(*kernel, view(in), {reinterpret_cast<uint8_t *>(room.data()), room.size()});
            EXPECT_TRUE(consumed == in.size() && produced == out.size() && room == out) << kernel->name;
        };
        EXPECT_EQ(utf8_columns_by(*kernel, view(text)), 0x80 + 2 * (0x10000 - 0x800 - 0x80u));
        expect(utf8_to_units_by, text, units);
        expect(units_to_utf8_by, units, text);
    }
}

TEST(Utf8, EncodesWhatItDecodesAtEveryBoundary) {
    const uint32_t firsts[] = {0, 0x80, 0x800, 0x10000, 0x200000, 0x4000000, 0x80000000};
    for (std::size_t length = 1; length <= 6; ++length)
        for (uint32_t code_point : {firsts[length - 1], firsts[length] - 1}) {
            uint32_t back = ~code_point;
            EXPECT_EQ(utf8_encoded_size(code_point), length);
            EXPECT_EQ(decode(encode(code_point), &back), static_cast<int>(length));
            EXPECT_EQ(back, code_point);
        }
}
