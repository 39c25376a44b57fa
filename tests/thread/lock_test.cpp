// What a lock and a mutex promise: one holder at a time, and who may enter again.
#include "tq4/lock.h"
#include "tq4/mutex.h"

#include <gtest/gtest.h>

#include "parallel.hpp"

namespace {

template <class Handle> struct Held : testing::Test {
    Handle m;
    explicit Held(const Tq4_object_itf *oitf) : m(static_cast<Handle>(oitf->Create(nullptr))), m_oitf(oitf) {}
    ~Held() override { m_oitf->Delete(m); }

    // Two threads count without any other protection: a lost step or a race report means two holders at once.
    template <class Enter> void expect_one_holder_at_a_time(Enter enter) {
        constexpr int rounds = 20000;
        long count = 0;
        auto work = [&] {
            for (int i = 0; i < rounds; ++i) {
                enter();
                ++count;
                (*m)->Unlock(m);
            }
        };
        {
            Parallel other(work);
            work();
        }
        EXPECT_EQ(count, 2 * rounds);
    }

private:
    const Tq4_object_itf *m_oitf;
};

struct Lock : Held<Tq4_lock> {
    Lock() : Held(Tq4_lock_oitf) {}
    void enter() { (*m)->Lock(m); }
    void leave() { (*m)->Unlock(m); }
};

TEST_F(Lock, HasOneHolderAtATime) {
    expect_one_holder_at_a_time([this] { enter(); });
}

TEST_F(Lock, IsFreeOnlyAfterAsManyUnlocksAsLocks) {
    enter();
    enter();
    std::atomic<bool> inside = false;
    {
        Parallel other([&] {
            enter();
            inside = true;
            leave();
        });
        other.AwaitAsleep();
        leave();
        other.AwaitAsleep();
        EXPECT_FALSE(inside);
        leave();
    }
    EXPECT_TRUE(inside);
}

TEST_F(Lock, NullHandlesAreNoLock) {
    (*m)->Lock(nullptr);
    (*m)->Unlock(nullptr);
}

struct Mutex : Held<Tq4_mutex> {
    Mutex() : Held(Tq4_mutex_oitf) {}
    int enter(unsigned long ms = TQ4_ALL_ONES) { return (*m)->Lock(m, ms); }
    int leave() { return (*m)->Unlock(m); }
    int is_free() { return (*m)->IsLocked(m); }
    int enter_elsewhere(unsigned long ms) {
        int result = -1;
        Parallel([&] {
            result = enter(ms);
            if (result) leave();
        });
        return result;
    }
};

TEST_F(Mutex, HasOneHolderAtATime) {
    expect_one_holder_at_a_time([this] { enter(); });
}

TEST_F(Mutex, IsGivenWithinTheTimeOrNot) {
    EXPECT_EQ(enter(0), 1) << "free: a single try is enough";
    EXPECT_EQ(enter(0), 0) << "it is not recursive";
    EXPECT_EQ(enter_elsewhere(0), 0);
    EXPECT_EQ(enter_elsewhere(5), 0);
    EXPECT_EQ(leave(), 1);
    EXPECT_EQ(enter_elsewhere(0), 1);
}

TEST_F(Mutex, WaitsWithoutLimitOrForALongTime) {
    for (unsigned long ms : {TQ4_ALL_ONES, TQ4_ALL_ONES - 1, TQ4_ALL_ONES / 2, 3600000ul}) {
        std::atomic<int> result = -1;
        enter();
        {
            Parallel other([&] {
                result = enter(ms);
                leave();
            });
            other.AwaitAsleep();
            EXPECT_EQ(result, -1) << ms << " ms must not wrap to a short time";
            leave();
        }
        EXPECT_EQ(result, 1);
    }
}

TEST_F(Mutex, AnswersIsLockedWithOneWhenItIsFree) {
    EXPECT_EQ(is_free(), 1);
    enter();
    EXPECT_EQ(is_free(), 0);
    leave();
    EXPECT_EQ(is_free(), 1) << "asking leaves it free";
}

TEST_F(Mutex, StartsFreeWhateverItsParametersSay) {
    Tq4_mutex_CreateParams given{.bInitialOwner = 1, .mutexName = "ignored"};
    auto owned = static_cast<Tq4_mutex>(Tq4_mutex_oitf->Create(&given));
    EXPECT_EQ((*owned)->IsLocked(owned), 1);
    Tq4_mutex_oitf->Delete(owned);
}

TEST_F(Mutex, NullAndIdentity) {
    EXPECT_EQ((*m)->Lock(nullptr, TQ4_ALL_ONES), 0);
    EXPECT_EQ((*m)->Unlock(nullptr), 0);
    EXPECT_EQ((*m)->IsLocked(nullptr), 0);
    enter();
    auto other = static_cast<Tq4_mutex>(Tq4_mutex_oitf->Dup(m));
    EXPECT_EQ((*other)->IsLocked(other), 1) << "a duplicate is a mutex of its own, and free";
    EXPECT_EQ(Tq4_mutex_oitf->Equal(m, m), 1);
    EXPECT_EQ(Tq4_mutex_oitf->Equal(m, other), 0);
    Tq4_mutex_oitf->Delete(other);
    leave();
}

} // namespace
