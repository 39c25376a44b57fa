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

struct Converted {
    std::size_t consumed;
    std::string out;
    bool operator==(const Converted &) const = default;
};

struct Utf8_kernels : testing::TestWithParam<const Utf8_kernel *> {
    void SetUp() override {
        if (!GetParam()->is_supported()) GTEST_SKIP() << "not on this processor";
    }
    // Between blocks of exactly their size, so that the sanitizer sees an access beyond.
    Converted Convert(decltype(utf8_to_units_by) *conversion, const std::string &in, std::size_t room) const {
        const std::vector<uint8_t> exact(in.begin(), in.end());
        std::vector<uint8_t> out(room);
        const Tq4_converted done = conversion(*GetParam(), {exact.data(), exact.size()}, {out.data(), room});
        return {done.consumed, std::string(out.begin(), out.begin() + static_cast<long>(done.produced))};
    }
};

} // namespace

INSTANTIATE_TEST_SUITE_P(All, Utf8_kernels, testing::ValuesIn(utf8_kernels().begin(), utf8_kernels().end()),
                         [](const auto &test) { return std::string(test.param->name); });

TEST_P(Utf8_kernels, AgreeWithTheCLibraryOverTheWholePlane) {
    std::string units, text(3 * 0x10000, '\0');
    for (uint32_t value = 0; value < 0x10000; ++value)
        if (value < 0xD800 || value > 0xDFFF) units += unit(value);
    iconv_t converter = iconv_open("UTF-8", "UTF-16LE");
    char *from = units.data(), *to = text.data();
    std::size_t from_left = units.size(), to_left = text.size();
    ASSERT_EQ(iconv(converter, &from, &from_left, &to, &to_left), 0u);
    iconv_close(converter);
    text.resize(text.size() - to_left);

    EXPECT_EQ(utf8_columns_by(*GetParam(), view(text)), 0x80 + 2 * (0x10000 - 0x800 - 0x80u));
    EXPECT_EQ(Convert(utf8_to_units_by, text, units.size()), (Converted{text.size(), units}));
    EXPECT_EQ(Convert(units_to_utf8_by, units, text.size()), (Converted{units.size(), text}));
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
