// UTF-8: what decodes, what each malformed form answers, and agreement with the C library over the 16-bit characters.
#include "base/charset/utf8.hpp"

#include <gtest/gtest.h>
#include <iconv.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

Tq4_bytes bytes_of(const std::string &text) { return {reinterpret_cast<const uint8_t *>(text.data()), text.size()}; }

// The text as 16-bit units in a room of exactly the given number of units.
std::u16string to_units(const std::string &text, std::size_t room_units, std::size_t *consumed = nullptr) {
    std::vector<uint16_t> room(room_units);
    const Tq4_converted done =
        utf8_to_units(bytes_of(text), {reinterpret_cast<uint8_t *>(room.data()), room_units * 2});
    if (consumed) *consumed = done.consumed;
    return std::u16string(room.begin(), room.begin() + static_cast<long>(done.produced / 2));
}

std::string to_utf8(const std::u16string &units, std::size_t room_bytes) {
    std::string room(room_bytes, '\0');
    const Tq4_converted done = units_to_utf8({reinterpret_cast<const uint8_t *>(units.data()), units.size() * 2},
                                             {reinterpret_cast<uint8_t *>(room.data()), room.size()});
    return room.substr(0, done.produced);
}

std::string c_library_utf8(const std::u16string &units) {
    std::string out(units.size() * 3, '\0');
    iconv_t converter = iconv_open("UTF-8", "UTF-16LE");
    auto *from = const_cast<char *>(reinterpret_cast<const char *>(units.data()));
    char *to = out.data();
    std::size_t from_left = units.size() * 2, to_left = out.size();
    EXPECT_EQ(iconv(converter, &from, &from_left, &to, &to_left), 0u);
    iconv_close(converter);
    out.resize(out.size() - to_left);
    return out;
}

std::u16string every_character_of_the_plane() {
    std::u16string units;
    for (uint32_t unit = 0; unit < 0x10000; ++unit)
        if (unit < 0xD800 || unit > 0xDFFF) units.push_back(static_cast<char16_t>(unit));
    return units;
}

} // namespace

TEST(Utf8, AgreesWithTheCLibraryOverTheWholePlane) {
    const std::u16string units = every_character_of_the_plane();
    const std::string text = c_library_utf8(units);
    EXPECT_EQ(to_utf8(units, text.size()), text);
    EXPECT_EQ(to_units(text, units.size()), units);
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
        {"\xBF\x80", -1, 0},
        {"\xC0\x80", -1, 0},
        {"\xC1\xBF", -1, 0},
        {"\xC2\x80", 2, 0x80},
        {"\xDF\xBF", 2, 0x7FF},
        {"\xC2", -2, 0},
        {"\xC2\x41", -2, 0},
        {"\xC2\xC2", -2, 0},
        {"\xE0\xA0\x80", 3, 0x800},
        {"\xE0\x9F\xBF", -3, 0},
        {"\xED\xA0\x80", 3, 0xD800},
        {"\xED\xBF\xBF", 3, 0xDFFF},
        {"\xEF\xBF\xBF", 3, 0xFFFF},
        {"\xE4\xB8", -3, 0},
        {"\xE4\xB8\x41", -3, 0},
        {"\xE4\x41\xAD", -3, 0},
        {"\xF0\x90\x80\x80", 4, 0x10000},
        {"\xF0\x8F\xBF\xBF", -4, 0},
        {"\xF4\x8F\xBF\xBF", 4, 0x10FFFF},
        {"\xF7\xBF\xBF\xBF", 4, 0x1FFFFF},
        {"\xF0\x9F\x98", -4, 0},
        {"\xF0\x9F\x98\xC0", -4, 0},
        {"\xF8\x88\x80\x80\x80", 5, 0x200000},
        {"\xF8\x80\x80\x80\x80", 5, 0}, // long overlong forms decode by their value
        {"\xFB\xBF\xBF\xBF\xBF", 5, 0x3FFFFFF},
        {"\xFB\xBF\xBF\xBF\x7F", -5, 0},
        {"\xFC\x84\x80\x80\x80\x80", 6, 0x4000000},
        {"\xFD\xBF\xBF\xBF\xBF\xBF", 6, 0x7FFFFFFF},
        {"\xFD\xBF\xBF\xBF\xBF\x3F", -6, 0},
        {"\xFD", -6, 0},
        {"\xFE\x80\x80\x80\x80\x80\x80", -7, 0},
        {"\xFF", -7, 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.text));
        const std::vector<uint8_t> exact(c.text.begin(), c.text.end());
        uint32_t code_point = 0;
        EXPECT_EQ(utf8_decode({exact.data(), exact.size()}, &code_point), c.result);
        EXPECT_EQ(code_point, c.code_point);
        EXPECT_EQ(utf8_decode({exact.data(), exact.size()}, nullptr), c.result);
    }
}

TEST(Utf8, EncodesWhatItDecodesAtEveryBoundary) {
    const uint32_t firsts[] = {0, 0x80, 0x800, 0x10000, 0x200000, 0x4000000, 0x80000000};
    for (std::size_t length = 1; length <= 6; ++length)
        for (uint32_t code_point : {firsts[length - 1], firsts[length] - 1}) {
            uint8_t form[6];
            ASSERT_EQ(utf8_encode(code_point, form), length);
            uint32_t back = ~code_point;
            EXPECT_EQ(utf8_decode({form, length}, &back), static_cast<int>(length));
            EXPECT_EQ(back, code_point);
        }
}

TEST(Utf8, ConversionToUnitsEndsBeforeWhatHasNoUnit) {
    const std::string good = "abc\xE4\xB8\xAD";
    for (const char *end : {"\xF0\x90\x80\x80", "\xC0\x80", "\xE4\xB8", "\xFF", "\xE4\xB8\x41"}) {
        std::size_t consumed = 0;
        EXPECT_EQ(to_units(good + end + "tail", 100, &consumed), u"abc\u4E2D");
        EXPECT_EQ(consumed, good.size());
    }
}

TEST(Utf8, ConversionsNeverSplitACharacterAtTheEndOfTheRoom) {
    const std::u16string units = u"a\u00E9\u4E2D\xD800";
    const std::string text = to_utf8(units, 9);
    ASSERT_EQ(text, "a\xC3\xA9\xE4\xB8\xAD\xED\xA0\x80");
    const std::size_t whole[] = {0, 1, 1, 3, 3, 3, 6, 6, 6, 9};
    for (std::size_t room = 0; room < 10; ++room) EXPECT_EQ(to_utf8(units, room), text.substr(0, whole[room]));
    for (std::size_t room = 0; room < 5; ++room) EXPECT_EQ(to_units(text, room), units.substr(0, room));
}

TEST(Utf8, CountsTwoColumnsForEveryCharacterOfMoreThanOneByte) {
    EXPECT_EQ(utf8_columns(bytes_of("")), 0u);
    EXPECT_EQ(utf8_columns(bytes_of("abc")), 3u);
    EXPECT_EQ(utf8_columns(bytes_of("a\xC3\xA9\xE4\xB8\xAD\xF0\x9F\x98\x80")), 7u);
    EXPECT_EQ(utf8_columns(bytes_of("\x80\xFF\xE4\xB8")), 4u);
}
