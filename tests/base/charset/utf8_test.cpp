// UTF-8: what decodes, what each malformed form answers, and that every kernel this processor runs converts as the C
// library does. The fuzz target compares the kernels over any bytes and rooms with a model.
#include "base/charset/utf8.hpp"

#include <gtest/gtest.h>
#include <iconv.h>

#include <string>
#include <vector>

#include "base/charset/utf8_kernels.hpp"

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

    EXPECT_EQ(Convert(utf8_to_units_by, text, units.size()), (Converted{text.size(), units}));
    EXPECT_EQ(Convert(units_to_utf8_by, units, text.size()), (Converted{units.size(), text}));
}

TEST_P(Utf8_kernels, StopWhereAFormIsCutOrTheRoomEnds) {
    const std::string ascii(130, 'a');
    for (std::size_t at = 0; at < ascii.size(); ++at) {
        const std::string cut = ascii.substr(0, at) + "\xE4\xB8" + ascii;
        EXPECT_EQ(Convert(utf8_to_units_by, cut, 600).consumed, at);
        EXPECT_EQ(Convert(utf8_to_units_by, ascii, 2 * at + 1).consumed, at);
        EXPECT_EQ(Convert(units_to_utf8_by, std::string(260, '\1'), 2 * at + 1).consumed, 2 * at);
        EXPECT_EQ(utf8_columns_by(*GetParam(), view(cut + "\xC3\xA9\xF0\x9F\x98\x80")), at + 2 + 130 + 4);
    }
}

TEST(Utf8, DecodesFormsOfUpToSixBytesAndAnswersEachError) {
    struct {
        std::string text;
        int result;
        uint32_t code_point;
    } const cases[] = {
        {"", 0, 0},
        {std::string(1, '\0'), 1, 0},
        {"\x80", -1, 0},
        {"\xC0\x80", -1, 0},
        {"\xC1\xBF", -1, 0},
        {"\xC2", -2, 0},
        {"\xC2\x41", -2, 0},
        {"\xE0\x9F\xBF", -3, 0},
        {"\xED\xA0\x80", 3, 0xD800}, // surrogates decode
        {"\xE4\xB8\x41", -3, 0},
        {"\xE4\x41\xAD", -3, 0},
        {"\xF0\x8F\xBF\xBF", -4, 0},
        {"\xF8\x80\x80\x80\x80", 5, 0}, // long overlong forms decode by their value
        {"\xFB\xBF\xBF\xBF\x7F", -5, 0},
        {"\xFD", -6, 0},
        {"\xFE\x80\x80\x80\x80\x80\x80", -7, 0},
        {"\xFF", -7, 0},
    };
    for (const auto &[text, result, expected] : cases) {
        uint32_t code_point = 0;
        EXPECT_TRUE(decode(text, &code_point) == result && code_point == expected) << testing::PrintToString(text);
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
