// What the printf engine promises: the C library's bytes within its grammar, its own rules at the grammar's edges,
// display columns for texts. The fuzz target prints any format, also into a buffer that cannot grow.
#include "base/print.hpp"

#include <gtest/gtest.h>

#include <bit>
#include <cerrno>
#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <random>
#include <string>

#pragma GCC diagnostic ignored "-Wformat-security"
#pragma GCC diagnostic ignored "-Wformat-nonliteral"

namespace {

std::string printed(const char *format, ...) {
    Tq4_wbuf b;
    Tq4_wbuf_Init(&b, 16);
    b.fflush = Tq4_wbuf_flush_nothing;
    va_list args;
    va_start(args, format);
    const auto written = static_cast<unsigned long>(Tq4_wbuf_print(&b, format, args));
    va_end(args);
    const std::string text(reinterpret_cast<const char *>(b.m_data), Tq4_wbuf_size(&b));
    EXPECT_EQ(written, text.size()) << format;
    Tq4_wbuf_Release(&b);
    return text;
}

template <class... A> std::string c_library(const std::string &format, A... args) {
    std::string text(4096, '\0');
    text.resize(static_cast<size_t>(snprintf(text.data(), text.size(), format.c_str(), args...)));
    return text;
}

TEST(Print, TheEdgesOfTheGrammar) {
    struct {
        const char *format, *expected; // every conversion finds 42 and 7
    } cases[] = {
        {"%d%%%d 100%", "42%7 100"},
        {"%-+05.3l", ""},
        {"%+-5d|", "5d|"},                                     // '-' comes first, so it is a letter here
        {"%0+d|", "d|"},                                       // and '+' comes before '0'
        {"%i|% d|%#x|%hd|%zu|%n|%E|%5%|%d", "|d|x|d|u||||42"}, // other letters take no argument
        {"%lld %I64d%I32d", "42 732d"},
        {"%lcx%llc", "*x\a"},
        {"%.*d|%d", "42|7"}, // a '*' in the precision takes no argument
        {"%.*4d|%.2*d", "0042|07"},
        {"%.d|%.0d", "42|7"},
        {"a%99999999999db", "a"}, // room that cannot exist
        {"a%.2147483648db", "a"},
    };
    for (auto &c : cases) EXPECT_EQ(printed(c.format, 42l, 7l), c.expected) << c.format;
    EXPECT_EQ(printed("%.400f", DBL_MAX), c_library("%.400f", DBL_MAX));
    EXPECT_EQ(printed("x%*dy", INT_MIN, 1), "x");
    EXPECT_EQ(printed("%c%3c", 0, 0), std::string("\0  \0", 4));
    EXPECT_EQ(printed("%lf %llg", 1.5, 2.5), "1.500000 2.5");
    EXPECT_EQ(printed("<%s|%9s>", nullptr, nullptr), "<|>");
    errno = ENOENT;
    EXPECT_EQ(printed("%.3m|%m", 0), "No |" + std::string(strerror(ENOENT)));
}

TEST(Print, TheWidthOfATextCountsDisplayColumns) {
    struct {
        const char *format, *text, *expected;
    } cases[] = {
        {"%5s|%-5s|", "中a", "  中a|中a  |"},
        {"%5s|", "\xC3\xA9", "   \xC3\xA9|"}, // two bytes, two columns
        {"%6s|", "\xF0\x9F\x98\x80", "    \xF0\x9F\x98\x80|"},
        {"%3s|", "中文字", "中文字|"},
        {"%5.3s|", "中文字", "   中|"},    // the precision counts bytes, the width the columns that remain
        {"%5.4s|", "中文字", "  中\xE6|"}, // a byte that starts no character counts one
        {"%05s|%.0s", "ab", "   ab|"},
    };
    for (auto &c : cases) EXPECT_EQ(printed(c.format, c.text, c.text), c.expected) << c.format << " of " << c.text;
}

// Random conversions within the common grammar.
struct PrintMatrix : testing::Test {
    std::mt19937_64 random{7};

    uint64_t below(uint64_t n) { return random() % n; }
    long integer() { return static_cast<long>(random() >> below(64)) * (below(2) ? 1 : -1); }
    double real() {
        static const double odd[] = {0.0, -0.0, 0.5, 1.5, 0.125, 9.9999995, 5e-324, 1e300, INFINITY, -NAN};
        double decimal = static_cast<double>(integer()) / std::pow(10, below(20));
        double binary = static_cast<double>(integer()) / static_cast<double>(1ul << below(20));
        double choice[] = {odd[below(std::size(odd))], decimal, binary, std::bit_cast<double>(random())};
        return choice[below(4)];
    }
    std::string number(uint64_t low, uint64_t high) { return std::to_string(below(below(4) ? low : high)); }
    std::string specification(bool star) {
        std::string s = "<%";
        for (char flag : {'-', '+', '0'})
            if (below(3) == 0) s += flag;
        s += star ? "*" : below(2) ? number(20, 300) : "";
        if (below(2)) s += "." + (below(6) ? number(25, 400) : "");
        return s;
    }
    // The engine and the C library, which may spell lengths differently.
    template <class Value>
    void compare(const std::string &length, char letter, const std::string &c_length, Value value) {
        bool star = below(4) == 0;
        int width = static_cast<int>(below(90)) - 45;
        std::string s = specification(star), ours = s + length + letter + ">", theirs = s + c_length + letter + ">";
        ASSERT_EQ(star ? printed(ours.c_str(), width, value) : printed(ours.c_str(), value),
                  star ? c_library(theirs, width, value) : c_library(theirs, value))
            << ours << " width " << width;
    }
};

TEST_F(PrintMatrix, WritesTheBytesOfTheCLibrary) {
    for (int i = 0; i < 40000 && !HasFatalFailure(); ++i) {
        char letter = "duoxX"[below(5)];
        compare("", letter, "", static_cast<int>(integer()));
        compare(below(2) ? "ll" : "I64", letter, "ll", static_cast<long long>(integer()));
        compare("l", letter, "l", integer());
        compare(below(2) ? "" : "l", "efg"[below(3)], "", real());
        compare("", 'c', "", static_cast<int>(1 + below(255)));
        compare("", 'p', "", reinterpret_cast<void *>(below(4) ? integer() : 0));
        compare("", 's', "", std::string(below(40), 'x').c_str());
    }
}

} // namespace
