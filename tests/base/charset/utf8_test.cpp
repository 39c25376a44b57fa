// UTF-8: what decodes, what each malformed form answers, and that every kernel this processor runs converts as the C
// library does and, with malformed and cut texts and short rooms, as character by character.
#include "base/charset/utf8.hpp"

#include <gtest/gtest.h>
#include <iconv.h>

#include <random>
#include <string>
#include <vector>

#include "base/charset/utf8_kernels.hpp"

namespace {

Tq4_bytes view(const std::string &bytes) { return {reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size()}; }

int decode(const std::string &text, std::size_t at, uint32_t *code_point) {
    const std::string exact = text.substr(at);
    return utf8_decode(view(exact), code_point);
}

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

// Character by character up to one that has no unit or no room.
Converted model_to_units(const std::string &text, std::size_t room) {
    Converted done = {0, ""};
    for (uint32_t code_point; done.out.size() + 2 <= room;) {
        const int length = decode(text, done.consumed, &code_point);
        if (length <= 0 || code_point > 0xFFFF) break;
        done.consumed += static_cast<std::size_t>(length);
        done.out += unit(code_point);
    }
    return done;
}

Converted model_from_units(const std::string &units, std::size_t room) {
    Converted done = {0, ""};
    for (; done.consumed + 2 <= units.size(); done.consumed += 2) {
        const auto byte = [&](std::size_t i) { return static_cast<uint8_t>(units[done.consumed + i]); };
        const std::string form = encode(byte(0) | byte(1) << 8);
        if (done.out.size() + form.size() > room) break;
        done.out += form;
    }
    return done;
}

std::size_t model_columns(const std::string &text) {
    std::size_t columns = 0;
    for (std::size_t at = 0; at < text.size();) {
        const int length = decode(text, at, nullptr);
        columns += length > 1 ? 2 : 1;
        at += length > 1 ? static_cast<std::size_t>(length) : 1;
    }
    return columns;
}

class Utf8_kernels : public testing::TestWithParam<const Utf8_kernel *> {
protected:
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
    uint32_t Below(std::size_t limit) { return static_cast<uint32_t>(random() % limit); }

    // Runs of characters of one length each; with faults also what ends a conversion.
    std::string RandomText(std::size_t at_least, bool with_faults) {
        const uint32_t limits[] = {0x80, 0x800, 0x10000};
        const std::string faults[] = {"\x80",         "\xC1\xBF",         "\xC3", "\xE4\xB8",
                                      "\xE0\x9F\xBF", "\xF0\x90\x80\x80", "\xFF"};
        std::string text;
        while (text.size() < at_least) {
            const uint32_t limit = limits[Below(3)];
            for (std::size_t run = Below(100); run-- > 0;) text += encode(Below(limit));
            if (with_faults && Below(3) == 0) text += faults[Below(std::size(faults))];
        }
        return text;
    }

private:
    std::mt19937 random{42};
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

TEST_P(Utf8_kernels, ConvertAsCharacterByCharacter) {
    for (std::size_t i = 0; i < 4000; ++i) {
        const std::string text = RandomText(i % 200, i % 2 == 0);
        std::size_t room = i % 3 ? text.size() * 2 : Below(text.size() * 2 + 1);
        const Converted in_units = model_to_units(text, room);
        ASSERT_EQ(Convert(utf8_to_units_by, text, room), in_units);
        ASSERT_EQ(utf8_columns_by(*GetParam(), view(text)), model_columns(text));

        const std::string units = in_units.out + (i % 5 ? "" : "A"); // half a unit is left alone
        room = i % 3 ? text.size() : Below(text.size() + 1);
        ASSERT_EQ(Convert(units_to_utf8_by, units, room), model_from_units(units, room));
    }
}

TEST_P(Utf8_kernels, StopBeforeACutFormWhereverItStands) {
    const std::string ascii(130, 'a');
    for (std::size_t at = 0; at < ascii.size(); ++at)
        EXPECT_EQ(Convert(utf8_to_units_by, ascii.substr(0, at) + "\xE4\xB8" + ascii, 600).consumed, at);
}

TEST(Utf8, DecodesFormsOfUpToSixBytesAndAnswersEachError) {
    struct {
        std::string text;
        int result;
        uint32_t code_point;
    } const cases[] = {
        {"", 0, 0},
        {std::string(1, '\0'), 1, 0},
        {"\x7F", 1, 0x7F},
        {"\x80", -1, 0},
        {"\xC0\x80", -1, 0},
        {"\xC1\xBF", -1, 0},
        {"\xC2\x80", 2, 0x80},
        {"\xDF\xBF", 2, 0x7FF},
        {"\xC2", -2, 0},
        {"\xC2\x41", -2, 0},
        {"\xC2\xC2", -2, 0},
        {"\xE0\xA0\x80", 3, 0x800},
        {"\xE0\x9F\xBF", -3, 0},
        {"\xED\xA0\x80", 3, 0xD800}, // surrogates decode
        {"\xEF\xBF\xBF", 3, 0xFFFF},
        {"\xE4\xB8", -3, 0},
        {"\xE4\xB8\x41", -3, 0},
        {"\xE4\x41\xAD", -3, 0},
        {"\xF0\x90\x80\x80", 4, 0x10000},
        {"\xF0\x8F\xBF\xBF", -4, 0},
        {"\xF7\xBF\xBF\xBF", 4, 0x1FFFFF},
        {"\xF0\x9F\x98", -4, 0},
        {"\xF8\x88\x80\x80\x80", 5, 0x200000},
        {"\xF8\x80\x80\x80\x80", 5, 0}, // long overlong forms decode by their value
        {"\xFB\xBF\xBF\xBF\x7F", -5, 0},
        {"\xFC\x84\x80\x80\x80\x80", 6, 0x4000000},
        {"\xFD\xBF\xBF\xBF\xBF\xBF", 6, 0x7FFFFFFF},
        {"\xFD", -6, 0},
        {"\xFE\x80\x80\x80\x80\x80\x80", -7, 0},
        {"\xFF", -7, 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.text));
        uint32_t code_point = 0;
        EXPECT_EQ(decode(c.text, 0, &code_point), c.result);
        EXPECT_EQ(code_point, c.code_point);
    }
}

TEST(Utf8, EncodesWhatItDecodesAtEveryBoundary) {
    const uint32_t firsts[] = {0, 0x80, 0x800, 0x10000, 0x200000, 0x4000000, 0x80000000};
    for (std::size_t length = 1; length <= 6; ++length)
        for (uint32_t code_point : {firsts[length - 1], firsts[length] - 1}) {
            uint32_t back = ~code_point;
            EXPECT_EQ(utf8_encoded_size(code_point), length);
            EXPECT_EQ(decode(encode(code_point), 0, &back), static_cast<int>(length));
            EXPECT_EQ(back, code_point);
        }
}

TEST(Utf8, CountsTwoColumnsForEveryCharacterOfMoreThanOneByte) {
    EXPECT_EQ(utf8_columns(view("abc")), 3u);
    EXPECT_EQ(utf8_columns(view("a\xC3\xA9\xE4\xB8\xAD\xF0\x9F\x98\x80")), 7u);
    EXPECT_EQ(utf8_columns(view("\x80\xFF\xE4\xB8")), 4u); // what starts no character counts one a byte
}
