// Numbers: what a text is worth as an integer, a floating-point number and a character.
#include "string_fixture.hpp"

namespace {

struct StringNumber : StringFixture {};

TEST_F(StringNumber, ToIntReadsDecimalInEveryBaseButSixteen) {
    using Cases = std::vector<std::pair<const char *, long>>;
    const Cases decimal = {{"+7", 7}, {"0x1F", 0}, {" \t-42abc\r\n", -42}, {"9223372036854775808", LONG_MAX}};
    for (auto &[text, value] : decimal)
        for (int base : {0, 2, 10}) EXPECT_EQ((*s)->ToInt((*s)->Strcpy(s, text), base), value) << text;
    const Cases hexadecimal = {{"0x1F", 31},
                               {"-0X1f", -31},
                               {" fFg1 ", 255},
                               {"12x", 0},
                               {"+1", 0},
                               {"ffffffffffffffffffffffx10", 16},
                               {"-8000000000000001", LONG_MIN}};
    for (auto &[text, value] : hexadecimal) EXPECT_EQ((*s)->ToInt((*s)->Strcpy(s, text), 16), value) << text;
    (*s)->ToInt((*s)->Strcpy(s, "  12 \n"), 10);
    EXPECT_EQ(text(), "12") << "the string itself is trimmed";
}

TEST_F(StringNumber, ToFloatReadsTheFrontOfTheText) {
    const std::pair<const char *, double> cases[] = {{"-2.5e3x", -2500}, {" .25", .25}, {"x", 0}, {"1e999", HUGE_VAL}};
    for (auto &[text, value] : cases) EXPECT_EQ((*s)->ToFloat((*s)->Strcpy(s, text)), value) << text;
}

// In a locale of the test's own: of those with a comma a machine may have none.
TEST_F(StringNumber, APointIsAPointInEveryLocale) {
    const Temp_dir dir;
    std::ofstream(dir / "charmap")
        << "<code_set_name> PLAIN\n<escape_char> /\nCHARMAP\n<U0000>..<U007F> /x00\nEND CHARMAP\n";
    std::ofstream(dir / "numeric")
        << "LC_NUMERIC\ndecimal_point \",\"\nthousands_sep \"\"\ngrouping -1\nEND LC_NUMERIC\n";
    const std::string make = "cd " + dir.path() + " && localedef -c -f ./charmap -i ./numeric ./comma >/dev/null 2>&1";
    ASSERT_NE(std::system(make.c_str()), -1); // it warns about what the locale lacks
    setenv("LOCPATH", dir.path().c_str(), 1);
    ASSERT_TRUE(setlocale(LC_NUMERIC, "comma"));
    EXPECT_EQ(std::strtod("2,5", nullptr), 2.5) << "the program's locale";
    EXPECT_EQ((*s)->ToFloat((*s)->Strcpy(s, "2.5")), 2.5);
    setlocale(LC_NUMERIC, "C");
    unsetenv("LOCPATH");
}

TEST_F(StringNumber, ToCharReadsEscapesAndNumbers) {
    const std::vector<std::pair<const char *, int>> cases = {{"0XfF", 0xff}, {"0x12345678901234567841", 'A'},
                                                             {"0x", 0},      {"\\n", 10},
                                                             {"\\r", 13},    {"\\t", 9},
                                                             {"\\0", 0},     {"\\\\", '\\'},
                                                             {"\\x", ' '},   {"\\", ' '},
                                                             {"065", '0'},   {"-1", 0xff},
                                                             {"a", 0},       {"321", 'A'}};
    for (auto &[text, value] : cases) EXPECT_EQ((*s)->ToChar((*s)->Strcpy(s, text)), static_cast<char>(value)) << text;
}

} // namespace
