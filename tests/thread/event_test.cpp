// What an event promises: nobody passes before it is set, exactly those pass who may, and no Set is lost.
#include "support/test.hpp"

namespace {

using Clock = std::chrono::steady_clock;

struct Event : testing::Test {
    Tq4_own<Tq4_event> e = Tq4_make<Tq4_event>(Tq4_event_oitf);

    void make(int manual, int initial = 0) {
        Tq4_event_CreateParams given{manual, initial};
        e = Tq4_make<Tq4_event>(Tq4_event_oitf, &given);
    }
    void set() { (*e)->Set(e.get()); }
    int wait(unsigned long ms) { return (*e)->Wait(e.get(), ms); }
    int is_set() { return wait(0); }
    void wake_without_setting() { pthread_cond_broadcast(static_cast<pthread_cond_t *>((*e)->GetHandle(e.get()))); }
};

TEST_F(Event, StartsAsToldAndStaysSetOrNot) {
    const struct {
        int manual, initial, looks[2], after_two_sets[2];
    } cases[] = {{1, 0, {0, 0}, {1, 1}}, {1, 1, {1, 1}, {1, 1}}, {0, 0, {0, 0}, {1, 0}}, {0, 1, {1, 0}, {1, 0}}};
    for (auto &[manual, initial, looks, after_two_sets] : cases) {
        make(manual, initial);
        for (int look : looks) EXPECT_EQ(is_set(), look) << manual << initial;
        set();
        set();
        for (int look : after_two_sets) EXPECT_EQ(wait(5), look) << manual << initial;
        initial ? (*e)->Reset(e.get()) : set();
        const Tq4_own<Tq4_event> made_alike(static_cast<Tq4_event>(Tq4_event_oitf->Dup(e.get())));
        Tq4_event_oitf->Reset(e.get());
        for (int look : looks) EXPECT_EQ(is_set() + 2 * (*made_alike)->Wait(made_alike.get(), 0), 3 * look) << "as new";
    }
    e = Tq4_make<Tq4_event>(Tq4_event_oitf);
    EXPECT_EQ(is_set(), 0);
    set();
    EXPECT_EQ(is_set() + is_set(), 2) << "the default is manual reset";
}

// However long they are ready to wait, in numbers that must not wrap, and whatever else wakes them.
TEST_F(Event, LetsAllWaitersPassOrOneForEachSet) {
    for (int manual : {1, 0}) {
        make(manual);
        std::atomic<int> passed = 0;
        const auto waits = [&](unsigned long ms) { return [&, ms] { passed += wait(ms); }; };
        Parallel a(waits(TQ4_ALL_ONES)), b(waits(TQ4_ALL_ONES - 1)), c(waits(1ul << 53));
        for (int look = 0; look < 2; ++look) {
            for (auto *waiter : {&a, &b, &c}) waiter->await_timed_sleep();
            wake_without_setting();
        }
        EXPECT_EQ(passed, 0);
        for (int expected = manual ? 3 : 1; expected <= 3; ++expected) {
            set();
            if (manual) (*e)->Reset(e.get()); // too late for those that were waiting
            while (passed < expected) std::this_thread::yield();
            EXPECT_EQ(passed, expected);
        }
    }
}

TEST_F(Event, TimesOutNeitherEarlyNorNeverUnderWakeUpsWithoutCause) {
    constexpr auto time = std::chrono::milliseconds(40);
    std::atomic<bool> over = false;
    Parallel noise([&] {
        while (!over) wake_without_setting();
    });
    const auto start = Clock::now();
    EXPECT_EQ(wait(time.count()), 0);
    EXPECT_GE(Clock::now() - start, time);
    over = true;
}

// Every Set is answered before the next: one that got lost beside a time-out would never be.
TEST_F(Event, LosesNoSetThatComesWithTheTimeout) {
    make(0);
    constexpr int rounds = 300;
    std::atomic<int> taken = 0;
    Parallel waiter([&] {
        while (taken < rounds) taken += wait(1);
    });
    for (int i = 0; i < rounds; ++i) {
        const auto moment = Clock::now() + std::chrono::microseconds(990 + i % 100);
        while (Clock::now() < moment) std::this_thread::yield();
        set();
        while (taken == i) std::this_thread::yield();
    }
}

// What is handed over without a lock, by a Set that mostly finds the event set, is there for whoever clears it.
TEST_F(Event, LosesNothingMadeKnownBeforeASetThatFindsItSet) {
    for (int manual : {1, 0}) {
        make(manual);
        constexpr int rounds = 20000;
        std::atomic<int> made = 0, taken = 0;
        Parallel taker([&] {
            while (taken < rounds) {
                const bool woken = wait(60000);
                if (manual) (*e)->Reset(e.get());
                taken = woken ? made.load(std::memory_order_acquire) : 2 * rounds;
            }
        });
        for (int i = 1; i <= rounds; ++i) {
            made.store(i, std::memory_order_release);
            set();
            while (i % 8 == 0 && taken < i) std::this_thread::yield();
        }
        EXPECT_EQ(taken, rounds) << "manual " << manual;
    }
}

// The setter must be done with the event when its waiter is let through: the sanitizers see it if not.
TEST_F(Event, MayBeDeletedByTheWaiterItLetThrough) {
    for (int i = 0; i < 500; ++i) {
        make(1);
        Parallel setter([event = e.get()] { (*event)->Set(event); });
        wait(TQ4_ALL_ONES);
        e.reset();
    }
}

} // namespace
