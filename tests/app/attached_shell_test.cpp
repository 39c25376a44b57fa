// When a daemon gives a shell up that does not read.
#include "app/attached_shell.hpp"

#include <gtest/gtest.h>

namespace {

constexpr bool at_the_end = true;

// The time at which the shell is cut off, when it is looked at every 100 ms and found as the letters say: f(ollows),
// b(ehind), F(ull). 0: never.
uint64_t cut_off(const std::string &findings, bool ending = false) {
    Tq4_shell_patience patience;
    uint64_t now = 5000;
    for (const char found : findings) {
        const auto backlog = found == 'F' ? MP_Output_is_full : found == 'b' ? MP_Output_is_behind : MP_Output_follows;
        if (patience.Over(now, backlog, ending)) return now - 5000;
        now += 100;
    }
    return 0;
}

TEST(ShellPatience, LastsASecondFromTheMomentThatSomebodyWaits) {
    EXPECT_EQ(cut_off("FFFFFFFFFFFFFFF"), 1000u);
    EXPECT_EQ(cut_off("fffFbbbbFbbbFFbbb"), 1300u) << "some room is not enough for one who waits";
    EXPECT_EQ(cut_off("FFFFFFFFFfFFFFFFFFFf"), 0u) << "a shell that is slow is not stuck";
}

TEST(ShellPatience, HasNoEndWhereNobodyWaits) {
    EXPECT_EQ(cut_off(std::string(100, 'b')), 0u) << "what is unread may lie there";
    EXPECT_EQ(cut_off(std::string(100, 'f')), 0u);
}

TEST(ShellPatience, IsShorterOnceTheEndWasAskedFor) { EXPECT_EQ(cut_off("fFbbbbb", at_the_end), 400u); }

} // namespace
