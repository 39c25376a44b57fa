// What a semaphore promises: its count, and its odd answers.
#include "tq4/semaphore.h"

#include <cerrno>
#include <climits>

#include <gtest/gtest.h>

#include "parallel.hpp"

namespace {

struct Semaphore : testing::Test {
    Tq4_semaphore s = nullptr;
    ~Semaphore() override { Tq4_semaphore_oitf->Delete(s); }

    void make(unsigned initial) {
        Tq4_semaphore_CreateParams given{.initsps = initial, .maxsps = 1, .spName = "ignored"};
        s = static_cast<Tq4_semaphore>(Tq4_semaphore_oitf->Create(&given));
    }
    int wait(unsigned long ms) { return (*s)->Wait(s, ms); }
    int post() { return (*s)->Post(s); }
    int post(unsigned long n) { return (*s)->PostN(s, n); }
    // How often it can be taken without waiting.
    int drain() {
        int count = 0;
        while (wait(0) == 0) ++count;
        return count;
    }
};

TEST_F(Semaphore, StartsWithAHundredUnlessToldOtherwise) {
    s = static_cast<Tq4_semaphore>(Tq4_semaphore_oitf->Create(nullptr));
    EXPECT_EQ(drain(), 100);
    auto other = static_cast<Tq4_semaphore>(Tq4_semaphore_oitf->Dup(s));
    EXPECT_EQ((*other)->Wait(other, 0), 0) << "a duplicate has a count of its own";
    Tq4_semaphore_oitf->Delete(other);
}

TEST_F(Semaphore, PostsOnceWhateverTheNumber) {
    make(3);
    EXPECT_EQ(drain(), 3) << "the maximum is ignored";
    EXPECT_EQ(post(), 1);
    EXPECT_EQ(drain(), 1);
    EXPECT_EQ(post(5), 1);
    EXPECT_EQ(drain(), 1);
    EXPECT_EQ(post(1ul << 40), 1);
    EXPECT_EQ(drain(), 1);
    EXPECT_EQ(post(0), 0);
    EXPECT_EQ(drain(), 0);
}

TEST_F(Semaphore, AnswersWaitWithTheSystemsResult) {
    make(0);
    EXPECT_EQ(wait(0), -1);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_EQ(wait(5), -1);
    EXPECT_EQ(errno, ETIMEDOUT);
    for (unsigned long ms : {TQ4_ALL_ONES, TQ4_ALL_ONES - 1}) {
        std::atomic<int> result = 1;
        {
            Parallel waiter([&] { result = wait(ms); });
            waiter.AwaitAsleep();
            EXPECT_EQ(result, 1) << ms;
            post();
        }
        EXPECT_EQ(result, 0);
    }
}

TEST_F(Semaphore, RefusesToPostAtTheSystemsLimit) {
    make(INT_MAX);
    EXPECT_EQ(post(), 0);
    EXPECT_EQ(post(2), 0);
}

TEST_F(Semaphore, IsNotValidWithACountAboveTheSystemsLimit) {
    make(UINT_MAX);
    EXPECT_EQ(wait(0), -1);
    EXPECT_EQ(wait(TQ4_ALL_ONES), -1);
    EXPECT_EQ(post(), 0);
    EXPECT_EQ(post(1), 0);
}

TEST_F(Semaphore, NullHandles) {
    make(1);
    EXPECT_EQ((*s)->Wait(nullptr, TQ4_ALL_ONES), 0);
    EXPECT_EQ((*s)->Post(nullptr), -1);
    EXPECT_EQ((*s)->PostN(nullptr, 0), -1);
}

} // namespace
