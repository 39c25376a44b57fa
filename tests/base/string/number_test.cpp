// Numbers: what a text is worth as an integer, a floating-point number and a character.
#include <climits>
#include <cmath>

#include "string_fixture.hpp"

namespace {

struct StringNumber : StringFixture {};

TEST_F(StringNumber, ToIntReadsDecimalInEveryBaseButSixteen) {
    struct {
        const char *text;
        int base;
        long value;
    } const cases[] = {{"101", 2, 101},
                       {" \t-42abc\r\n", 10, -42},
                       {"+7", 0, 7},
                       {"0x1F", 10, 0},
                       {"9223372036854775808", 10, LONG_MAX},
                       {"-99999999999999999999", 10, LONG_MIN},
                       {"0x1F", 16, 31},
                       {"-0X1f", 16, -31},
                       {" fFg1 ", 16, 255},
                       {"12x", 16, 0},
                       {"+1", 16, 0},
                       {"8000000000000000", 16, LONG_MAX},
                       {"ffffffffffffffffffffffx10", 16, 16},
                       {"-8000000000000001", 16, LONG_MIN}};
    for (auto &c : cases) EXPECT_EQ((*s)->ToInt((*s)->Strcpy(s, c.text), c.base), c.value) << c.text << c.base;
    set("  12 \n");
    (*s)->ToInt(s, 10);
    EXPECT_EQ(text(), "12") << "the string itself is trimmed";
}

TEST_F(StringNumber, ToFloatReadsTheFrontOfTheText) {
    const std::pair<const char *, double> cases[] = {{"-2.5e3x", -2500}, {" .25", .25}, {"x", 0}, {"1e999", HUGE_VAL}};
    for (auto &[text, value] : cases) EXPECT_EQ((*s)->ToFloat((*s)->Strcpy(s, text)), value) << text;
}

TEST_F(StringNumber, ToCharReadsEscapesAndNumbers) {
    const std::pair<const char *, int> cases[] = {{"0x41", 'A'}, {"0XfF", 0xff}, {"0x12345678901234567841", 'A'},
                                                  {"0x", 0},     {"\\n", 10},    {"\\r", 13},
                                                  {"\\t", 9},    {"\\0", 0},     {"\\\\", '\\'},
                                                  {"\\x", ' '},  {"\\", ' '},    {"0", '0'},
                                                  {"065", '0'},  {"65", 'A'},    {"-1", 0xff},
                                                  {"a", 0},      {"321", 'A'}};
    for (auto &[text, value] : cases) EXPECT_EQ((*s)->ToChar((*s)->Strcpy(s, text)), static_cast<char>(value)) << text;
}

} // namespace
