// What the printf engine promises at the edges of its grammar, and display columns for texts. Within the grammar the
// fuzz target compares it with the C library; it prints any format, also into a buffer that cannot grow.
#include <cfloat>

#include "base/print.hpp"
#include "support/test.hpp"

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
        {"%hhd|%jd|%Lf|%G|%1$d|%'d|%0-5d|%d", "hd|d|f||d|d|5d|42"},
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
    EXPECT_EQ(printed("%p %09p|%-6p|", nullptr, &errno, reinterpret_cast<void *>(0x1f)),
              c_library("%p %09p|%-6p|", nullptr, &errno, reinterpret_cast<void *>(0x1f)));
    EXPECT_EQ(printed("%+.9d|%011.3f", 42, -1.5), c_library("%+.9d|%011.3f", 42, -1.5));
    EXPECT_EQ(printed("<%s|%9s>", nullptr, nullptr), "<|>");
    EXPECT_EQ(printed("%.*s|%ls", "ab", "cd"), "ab|cd");
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

} // namespace
