// What the printf engine promises: the C library's bytes within its grammar, its own rules at the grammar's edges,
// display columns for texts, and never a byte committed that was not written.
#include "base/print.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <random>
#include <string>

namespace {

long print_to(Tq4_wbuf *buffer, const char *format, ...) {
    va_list args;
    va_start(args, format);
    long written = Tq4_wbuf_print(buffer, format, args);
    va_end(args);
    return written;
}

template <class... A> std::string printed(const char *format, A... args) {
    Tq4_wbuf b;
    Tq4_wbuf_Init(&b, 16);
    b.fflush = Tq4_wbuf_flush_nothing;
    long written = print_to(&b, format, args...);
    std::string text(reinterpret_cast<const char *>(b.m_data), Tq4_wbuf_size(&b));
    EXPECT_EQ(written, static_cast<long>(text.size())) << format;
    Tq4_wbuf_Release(&b);
    return text;
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
template <class... A> std::string c_library(const char *format, A... args) {
    std::string text(4096, '\0');
    text.resize(static_cast<size_t>(snprintf(text.data(), text.size(), format, args...)));
    return text;
}
#pragma GCC diagnostic pop

TEST(Print, TheEdgesOfTheGrammar) {
    struct {
        const char *format, *expected; // every conversion finds the ints 42 and 7
    } cases[] = {
        {"plain", "plain"},
        {"%d%%%d", "42%7"},
        {"100%", "100"},
        {"%", ""},
        {"%-+05.3l", ""},
        {"%+-5d|", "5d|"}, // '-' comes first, so it is a letter here
        {"%0+d|", "d|"},   // and '+' comes before '0'
        {"%i%d", "42"},    // other letters take no argument
        {"% d%d", "d42"},  // the blank flag is a letter,
        {"%#x%hd%zu%n%E%d", "xdu42"},
        {"%5%|", "|"},
        {"%lld %I64d", "42 7"},
        {"%lcx%llc", "*x\a"},
        {"%I32d", "32d"},
        {"%.*d|%d", "42|7"}, // a '*' in the precision takes no argument,
        {"%.*.d|", "d|"},
        {"%.*4d|%.2*d|", "0042|07|"}, // digits on either side of it count
        {"%.d|%.0d", "42|7"},
        {"%*d|", "                                         7|"},
        {"%99999999999d", ""}, // room that cannot exist
        {"a%.2147483648db", "a"},
    };
    for (auto &c : cases) EXPECT_EQ(printed(c.format, 42, 7), c.expected) << c.format;
    EXPECT_EQ(printed("%*d|%*d|", -5, 42, 3, 7), "42   |  7|");
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
        {"%5s|", "中a", "  中a|"},
        {"%-5s|", "中a", "中a  |"},
        {"%5s|", "\xC3\xA9", "   \xC3\xA9|"}, // two bytes, two columns
        {"%6s|", "\xF0\x9F\x98\x80", "    \xF0\x9F\x98\x80|"},
        {"%3s|", "中文字", "中文字|"},
        {"%5.3s|", "中文字", "   中|"},    // the precision counts bytes, the width the columns that remain
        {"%5.4s|", "中文字", "  中\xE6|"}, // a byte that starts no character counts one
        {"%05s|", "ab", "   ab|"},
        {"%s%%%.0s|", "ab", "ab%|"},
    };
    for (auto &c : cases) EXPECT_EQ(printed(c.format, c.text, c.text), c.expected) << c.format << " of " << c.text;
    char unterminated[] = {'a', 'b', 'c'};
    EXPECT_EQ(printed("%4.3s", unterminated), " abc");
}

// Random conversions within the common grammar, every argument of an awkward kind.
struct PrintMatrix : testing::Test {
    std::mt19937_64 random{7};

    uint64_t below(uint64_t n) { return random() % n; }
    long integer() {
        auto bits = static_cast<long>(random() >> below(64));
        return below(2) ? bits : -bits;
    }
    double real() {
        static const double special[] = {0.0,       -0.0, 0.5,    1.5,   2.5,      0.125,
                                         9.9999995, 1e15, 5e-324, 1e300, INFINITY, -NAN};
        switch (below(4)) {
        case 0:
            return special[below(std::size(special))];
        case 1:
            return static_cast<double>(integer()) / static_cast<double>(1ul << below(20));
        case 2:
            return static_cast<double>(integer()) / std::pow(10, below(12));
        default:
            return std::bit_cast<double>(random());
        }
    }
    std::string number(std::initializer_list<uint64_t> ceilings) {
        return std::to_string(below(ceilings.begin()[below(ceilings.size())]));
    }
    std::string specification(bool star) {
        std::string s = "<%";
        if (below(3) == 0) s += '-';
        if (below(3) == 0) s += '+';
        if (below(3) == 0) s += '0';
        if (star)
            s += '*';
        else if (below(2))
            s += number({5, 30, 300});
        if (below(2)) s += "." + (below(6) ? number({5, 25, 60, 400}) : "");
        return s;
    }
    // The engine under `ours` and the C library under `theirs`, lengths being spelled differently.
    template <class Value>
    void compare(const std::string &length, char letter, const std::string &c_length, Value value) {
        bool star = below(4) == 0;
        std::string s = specification(star), ours = s + length + letter + ">", theirs = s + c_length + letter + ">";
        int width = static_cast<int>(below(90)) - 45;
        std::string expected = star ? c_library(theirs.c_str(), width, value) : c_library(theirs.c_str(), value);
        std::string actual = star ? printed(ours.c_str(), width, value) : printed(ours.c_str(), value);
        ASSERT_EQ(actual, expected) << ours << " width " << width;
    }
};

TEST_F(PrintMatrix, WritesTheBytesOfTheCLibrary) {
    for (int i = 0; i < 60000 && !HasFatalFailure(); ++i) {
        char letter = "duoxX"[below(5)];
        compare("", letter, "", static_cast<int>(integer()));
        compare(below(2) ? "ll" : "I64", letter, "ll", static_cast<long long>(integer()));
        compare("l", letter, "l", integer());
        compare(below(2) ? "" : "l", "efg"[below(3)], "", real());
        compare("", 'c', "", static_cast<int>(1 + below(255)));
        compare("", 'p', "", reinterpret_cast<void *>(below(4) ? integer() : 0));
        std::string text(below(40), 'x');
        compare("", 's', "", text.c_str());
    }
}

TEST(Print, WhatNeedsMoreThanTheRequestedRoomGrows) {
    EXPECT_EQ(printed("%f %.400f", 1e300, DBL_MAX), c_library("%f %.400f", 1e300, DBL_MAX));
    EXPECT_EQ(printed("%-+500.70g|", 1e-300), c_library("%-+500.70g|", 1e-300));
    std::string text(5000, 'y');
    EXPECT_EQ(printed("%2s%s", text.c_str(), text.c_str()), text + text);
}

TEST(Print, ABufferThatCannotGrowKeepsWhatFitsAndNothingElse) {
    const char *format = "one %d two %12s three %f %e %p %c four%%five %-9d %s";
    auto print = [&](Tq4_wbuf *b) {
        return print_to(b, format, 123456, "中文", 1e300, 2.5, reinterpret_cast<void *>(16), 'c', 9, "the end");
    };
    Tq4_wbuf whole;
    Tq4_wbuf_Init(&whole, 4096);
    print(&whole);
    for (uint64_t size = 1; size < 700; ++size) {
        std::string storage(size + 1, '#');
        Tq4_wbuf b;
        Tq4_wbuf_InitFixed(&b, storage.data(), size);
        b.put_ready = b.fflush = [](Tq4_wbuf *) { return 0; };
        Tq4_wbuf_putch(&b, '>'); // with data present the hook is asked, and refuses
        long written = print(&b);
        EXPECT_EQ(storage[size], '#') << size;
        ASSERT_EQ(written + 1, static_cast<long>(Tq4_wbuf_size(&b)));
        EXPECT_EQ(memcmp(storage.data() + 1, whole.m_data, static_cast<size_t>(written)), 0) << size;
        Tq4_wbuf_Release(&b);
    }
    Tq4_wbuf_Release(&whole);
}

std::string drained;

int drain(Tq4_wbuf *b) {
    drained.append(reinterpret_cast<const char *>(b->m_data), Tq4_wbuf_size(b));
    Tq4_wbuf_Reset(b);
    return 1;
}

TEST(Print, HooksThatDrainTheBufferSeeEveryByteOnce) {
    Tq4_wbuf b;
    Tq4_wbuf_Init(&b, 16);
    b.put_ready = b.fflush = drain;
    long written = print_to(&b, "a long literal text, then %d, %s and %.3f", 42, "a text that is longer", 0.0625);
    drain(&b);
    EXPECT_EQ(drained, "a long literal text, then 42, a text that is longer and 0.062");
    EXPECT_EQ(written, static_cast<long>(drained.size()));
    Tq4_wbuf_Release(&b);
}

} // namespace
