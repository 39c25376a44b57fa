// What pacing promises: however long sleeps take, ticks keep up with the clock, and no error gathers.
#include "support/test.hpp"

#include "base/timer/tick_pacer.hpp"

namespace {

struct Pacer : testing::Test {
    static inline uint64_t clock;
    long ticks = 0;
    Tq4_tick_pacer pacer = (clock = 123456, Tq4_tick_pacer([] { return clock; }));

    long sleep(uint64_t ms) {
        clock += ms;
        const long missed = pacer.Missed();
        ticks += 1 + missed;
        return missed;
    }
    long behind() const { return static_cast<long>(clock) - 123456 - ticks * 10; }
};

TEST_F(Pacer, KeepsUpWithTheClockForDays) {
    std::mt19937 random(1);
    for (int turn = 0; turn < 20000000; ++turn) {
        sleep(10 + (random() % 4 == 0) + (random() % 1000 == 0 ? random() % 300 : 0) +
              (random() % 1000000 == 0 ? 3600000 : 0));
        const bool looked = (turn + 1) % Tq4_tick_pacer::ticks_a_look == 0;
        ASSERT_TRUE(!looked || (behind() <= 5 && behind() > -10)) << turn;
    }
}

TEST_F(Pacer, WaitsForTheClockAfterSleepsThatWereTooShort) {
    for (int turn = 0; turn < 80; ++turn) EXPECT_EQ(sleep(9), 0);
    for (int turn = 0; turn < 80; ++turn) EXPECT_EQ(sleep(11), 0);
    EXPECT_EQ(behind(), 0);
}

} // namespace
