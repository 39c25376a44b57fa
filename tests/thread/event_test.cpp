// What an event promises: nobody passes before it is set, exactly those pass who may, and no Set is lost.
#include "tq4/event.h"

#include <chrono>
#include <pthread.h>

#include <gtest/gtest.h>

#include "parallel.hpp"

namespace {

using Clock = std::chrono::steady_clock;
constexpr Tq4_event_CreateParams automatic{.bManualReset = 0, .bInitialState = 0};

struct Event : testing::Test {
    Tq4_event e = nullptr;
    explicit Event(const Tq4_event_CreateParams *given = nullptr) { make(given); }
    ~Event() override { Tq4_event_oitf->Delete(e); }

    void make(const Tq4_event_CreateParams *given) {
        Tq4_event_oitf->Delete(e);
        e = static_cast<Tq4_event>(Tq4_event_oitf->Create(given));
    }
    void set() { (*e)->Set(e); }
    void reset() { (*e)->Reset(e); }
    int wait(unsigned long ms) { return (*e)->Wait(e, ms); }
    int is_set() { return wait(0); }
    void wake_without_setting() { pthread_cond_broadcast(static_cast<pthread_cond_t *>((*e)->GetHandle(e))); }
};

struct AutomaticEvent : Event {
    AutomaticEvent() : Event(&automatic) {}
};

TEST_F(Event, StartsAsItsParametersSay) {
    const struct {
        int manual, initial, first, second;
    } cases[] = {{1, 0, 0, 0}, {1, 1, 1, 1}, {0, 0, 0, 0}, {0, 1, 1, 0}, {7, -1, 1, 1}};
    for (auto [manual, initial, first, second] : cases) {
        Tq4_event_CreateParams given{manual, initial};
        make(&given);
        EXPECT_EQ(is_set(), first) << manual << initial;
        EXPECT_EQ(is_set(), second) << manual << initial;
    }
    make(nullptr);
    EXPECT_EQ(is_set(), 0);
    set();
    EXPECT_EQ(is_set() + is_set(), 2) << "the default is manual reset";
}

TEST_F(Event, StaysSetUntilReset) {
    set();
    set();
    EXPECT_EQ(wait(TQ4_ALL_ONES), 1);
    EXPECT_EQ(wait(5), 1);
    reset();
    EXPECT_EQ(is_set(), 0);
}

TEST_F(AutomaticEvent, LetsOnePassForTwoSets) {
    set();
    set();
    EXPECT_EQ(wait(5), 1);
    EXPECT_EQ(wait(5), 0);
}

TEST_F(Event, LetsEveryWaiterPass) {
    std::atomic<int> passed = 0;
    {
        auto work = [&] { passed += wait(TQ4_ALL_ONES); };
        Parallel a(work), b(work), c(work);
        for (auto *waiter : {&a, &b, &c}) waiter->AwaitAsleep();
        set();
    }
    EXPECT_EQ(passed, 3);
}

TEST_F(AutomaticEvent, LetsOneWaiterPassForEachSet) {
    std::atomic<int> passed = 0;
    {
        auto work = [&] { passed += wait(TQ4_ALL_ONES); };
        Parallel a(work), b(work), c(work);
        for (int i = 1; i <= 3; ++i) {
            set();
            while (passed != i) std::this_thread::yield();
        }
    }
    EXPECT_EQ(is_set(), 0);
}

TEST_F(Event, TimesOutNeitherEarlyNorNeverUnderWakeUpsWithoutCause) {
    constexpr auto time = std::chrono::milliseconds(40);
    std::atomic<bool> over = false;
    Parallel noise([&] {
        while (!over) wake_without_setting();
    });
    const auto start = Clock::now();
    const int result = wait(time.count());
    const auto gone = Clock::now() - start;
    over = true;
    EXPECT_EQ(result, 0);
    EXPECT_GE(gone, time - std::chrono::milliseconds(1)) << "a millisecond is the grain";
}

TEST_F(Event, HugeTimeoutsDoNotWrap) {
    for (unsigned long ms : {TQ4_ALL_ONES, TQ4_ALL_ONES - 1, TQ4_ALL_ONES / 2, 1ul << 53, 3600000ul}) {
        std::atomic<int> result = -1;
        {
            Parallel waiter([&] { result = wait(ms); });
            waiter.AwaitAsleep();
            wake_without_setting();
            waiter.AwaitAsleep();
            EXPECT_EQ(result, -1) << ms;
            set();
        }
        EXPECT_EQ(result, 1);
        reset();
    }
}

// Every Set is answered before the next: one that got lost beside a time-out would never be.
TEST_F(AutomaticEvent, LosesNoSetThatComesWithTheTimeout) {
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

TEST_F(AutomaticEvent, HandsWorkToAndFroWithoutLosingAny) {
    auto answer = static_cast<Tq4_event>(Tq4_event_oitf->Create(&automatic));
    constexpr int rounds = 3000;
    int ball = 0; // no lock: the events order every access
    {
        Parallel other([&] {
            for (int i = 0; i < rounds; ++i) {
                wait(TQ4_ALL_ONES);
                ++ball;
                (*answer)->Set(answer);
            }
        });
        for (int i = 0; i < rounds; ++i) {
            ++ball;
            set();
            (*answer)->Wait(answer, TQ4_ALL_ONES);
        }
    }
    EXPECT_EQ(ball, 2 * rounds);
    Tq4_event_oitf->Delete(answer);
}

// The setter must be done with the event when its waiter is let through. (The sanitizers see it if not.)
TEST_F(Event, MayBeDeletedByTheWaiterItLetThrough) {
    for (int i = 0; i < 500; ++i) {
        make(nullptr);
        Parallel setter([event = e] { (*event)->Set(event); });
        wait(TQ4_ALL_ONES);
        make(nullptr);
    }
}

TEST_F(AutomaticEvent, StaysUsableWhenAWaiterIsCancelled) {
    static AutomaticEvent *subject;
    static std::atomic<pid_t> id;
    subject = this;
    id = 0;
    pthread_t victim;
    auto wait_to_be_cancelled = [](void *) -> void * {
        id = gettid();
        subject->wait(TQ4_ALL_ONES);
        return nullptr;
    };
    pthread_create(&victim, nullptr, wait_to_be_cancelled, nullptr);
    await_asleep(id);
    pthread_cancel(victim);
    void *result = nullptr;
    pthread_join(victim, &result);
    EXPECT_EQ(result, PTHREAD_CANCELED);
    set();
    EXPECT_EQ(wait(TQ4_ALL_ONES), 1);
}

TEST_F(Event, NullAndIdentity) {
    EXPECT_EQ((*e)->Wait(nullptr, TQ4_ALL_ONES), 0);
    EXPECT_EQ((*e)->GetHandle(nullptr), nullptr);
    (*e)->Set(nullptr);
    (*e)->Reset(nullptr);
    set();
    Tq4_event_oitf->Copy(e, nullptr);
    EXPECT_EQ(is_set(), 1) << "there is nothing to copy";
    Tq4_event_oitf->Reset(e);
    EXPECT_EQ(is_set(), 0);
    EXPECT_EQ(Tq4_event_oitf->Equal(e, e), 1);
}

TEST_F(AutomaticEvent, ADuplicateIsClearedAndAutomaticToo) {
    set();
    auto other = static_cast<Tq4_event>(Tq4_event_oitf->Dup(e));
    EXPECT_EQ((*other)->Wait(other, 0), 0);
    (*other)->Set(other);
    EXPECT_EQ((*other)->Wait(other, 0), 1);
    EXPECT_EQ((*other)->Wait(other, 0), 0);
    EXPECT_EQ(Tq4_event_oitf->Equal(e, other), 0);
    Tq4_event_oitf->Delete(other);
}

} // namespace
