// What an alarm promises: no ring is lost, whether the waiter looks, sleeps or is about to; and what a habit learns.
#include "platform/multi_platform_pthread.hpp"
#include "support/test.hpp"
#include "thread/alarm.hpp"

namespace {

constexpr int64_t soon = 1000, late = 1000000; // nanoseconds asleep

void ring(Tq4_alarm &alarm, Tq4_spin_habit &habit) {
    if (alarm.Ring(habit)) MP_THREAD_WakeSleeper(alarm.word());
}

TEST(SpinHabit, LooksAgainAfterAWaitThatLookingWouldHaveSaved) {
    Tq4_spin_habit habit;
    EXPECT_TRUE(habit.pays());
    habit.Slept(true, late);
    EXPECT_FALSE(habit.pays()) << "nothing came for long";
    habit.Slept(false, late);
    EXPECT_FALSE(habit.pays());
    habit.Slept(false, soon);
    EXPECT_TRUE(habit.pays());
}

TEST(SpinHabit, BelievesLessAndLessWhereLookingKeepsTheRingerAway) {
    Tq4_spin_habit habit;
    const auto misses_until_it_pays = [&] {
        habit.Slept(true, soon);
        int misses = 0;
        for (; !habit.pays(); ++misses) habit.Slept(false, soon);
        return misses;
    };
    for (int disbelief = 1; disbelief <= 4096; disbelief *= 2) EXPECT_EQ(misses_until_it_pays(), disbelief + 1);
    EXPECT_EQ(misses_until_it_pays(), 4097) << "and no further";
    habit.Caught();
    EXPECT_EQ(misses_until_it_pays(), 2) << "once it has paid it is believed again";
}

TEST(Alarm, LosesNoRingBetweenThreadsThatLookAndSleepInTurn) {
    struct Side {
        Tq4_alarm alarm;
        Tq4_spin_habit habit;
    } there, back;
    constexpr int rounds = 4000;
    std::thread other([&] {
        for (int i = 0; i < rounds; ++i) {
            EXPECT_TRUE(there.alarm.Await(i % 3 == 0, TQ4_ALL_ONES));
            there.alarm.Arm();
            ring(back.alarm, back.habit);
        }
    });
    for (int i = 0; i < rounds; ++i) {
        ring(there.alarm, there.habit);
        EXPECT_TRUE(back.alarm.Await(i % 4 == 0, i % 2 ? 100000 : TQ4_ALL_ONES));
        back.alarm.Arm();
    }
    other.join();
}

TEST(Alarm, TimesOutAndCanBeRungLater) {
    Tq4_alarm alarm;
    Tq4_spin_habit habit;
    EXPECT_FALSE(alarm.Await(true, 0));
    EXPECT_FALSE(alarm.Await(false, 5));
    EXPECT_FALSE(alarm.Ring(habit)) << "nobody sleeps";
    EXPECT_FALSE(alarm.Ring(habit)) << "rung already";
    EXPECT_TRUE(alarm.Await(false, TQ4_ALL_ONES));
    EXPECT_TRUE(alarm.rung()) << "until it is armed";
    alarm.Arm();
    EXPECT_FALSE(alarm.rung());
}

} // namespace
