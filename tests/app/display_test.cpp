// A daemon's output in GB18030: wherever the pieces end, what is shown is the same.
#include "app/display.hpp"

#include <gtest/gtest.h>

namespace {

TEST(Display, CharactersAreConvertedWhereverPiecesEnd) {
    const std::string text = "中a\xff文\xe4\xb8z😀\xf0\x9f!\xc0\x80\xff\xbc";
    const std::string shown = "\xd6\xd0"
                              "a\xff\xce\xc4\xe4\xb8z\x94\x39\xfc\x36\xf0\x9f!\xc0\x80\xff\xbc";
    for (std::size_t first = 0; first <= text.size(); ++first)
        for (std::size_t second = first; second <= text.size(); ++second) {
            Tq4_app_display display;
            std::string all;
            for (const auto &[from, to] : {std::pair{0ul, first}, {first, second}, {second, text.size()}})
                all += display.Next(std::string_view(text).substr(from, to - from), true);
            EXPECT_EQ(all, shown) << first << " " << second;
        }
}

TEST(Display, AChangeOfTheCharsetLosesNothing) {
    Tq4_app_display display;
    EXPECT_EQ(display.Next("a\xe4\xb8", true), "a");
    EXPECT_EQ(display.Next("\xad", false), "中");
    EXPECT_EQ(display.Next("\xe4", false), "\xe4");
}

} // namespace
