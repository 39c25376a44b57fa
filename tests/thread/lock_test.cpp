// What locks, mutexes and semaphores promise: who may pass, for how long others wait, and their odd answers.
#include "tq4/lock.h"
#include "tq4/mutex.h"
#include "tq4/semaphore.h"

#include <cerrno>
#include <climits>

#include <gtest/gtest.h>

#include "own.hpp"
#include "parallel.hpp"
#include "tq4/event.h"
#include "tq4/thread.h"

namespace {

constexpr unsigned long long_times[] = {TQ4_ALL_ONES, TQ4_ALL_ONES - 1, TQ4_ALL_ONES / 2, 3600000};

// What is sent beside the test has to wait until release is called, and then to succeed.
template <class Wait, class Release> void expect_waits_for(Release release, Wait wait) {
    std::atomic<bool> passed = false;
    {
        Parallel other([&] { passed = wait(); });
        other.AwaitAsleep();
        EXPECT_FALSE(passed);
        release();
    }
    EXPECT_TRUE(passed);
}

struct Locks : testing::Test {
    Tq4_own<Tq4_lock> lock = Tq4_make<Tq4_lock>(Tq4_lock_oitf);
    Tq4_own<Tq4_mutex> mutex = Tq4_make<Tq4_mutex>(Tq4_mutex_oitf);

    void enter() { (*lock)->Lock(lock.get()); }
    void leave() { (*lock)->Unlock(lock.get()); }
    int take(unsigned long ms) { return (*mutex)->Lock(mutex.get(), ms); }
    int give() { return (*mutex)->Unlock(mutex.get()); }
    int is_free() { return (*mutex)->IsLocked(mutex.get()); }
};

// Two threads count without any other protection: a lost step or a race report means two holders at once.
TEST_F(Locks, HaveOneHolderAtATime) {
    long by_lock = 0, by_mutex = 0;
    auto count = [&] {
        for (int i = 0; i < 20000; ++i) {
            enter();
            ++by_lock;
            leave();
            take(TQ4_ALL_ONES);
            ++by_mutex;
            give();
        }
    };
    {
        Parallel other(count);
        count();
    }
    EXPECT_EQ(by_lock + by_mutex, 80000);
}

TEST_F(Locks, AreFreeAfterAsManyUnlocksAsLocks) {
    enter();
    enter();
    leave();
    expect_waits_for([this] { leave(); }, [this] { return enter(), leave(), true; });
}

TEST_F(Locks, MutexesWaitAsLongAsTheyAreTold) {
    EXPECT_EQ(take(0), 1) << "free: a single try is enough";
    EXPECT_EQ(take(0) + take(5), 0) << "it is not recursive";
    for (unsigned long ms : long_times) {
        expect_waits_for([this] { give(); }, [=, this] { return take(ms) && give(); });
        take(0);
    }
    EXPECT_EQ(is_free(), 0);
    EXPECT_EQ(give(), 1);
    EXPECT_EQ(is_free() + is_free(), 2) << "asking leaves it free";
    Tq4_mutex_CreateParams given{.bInitialOwner = 1, .mutexName = "ignored"};
    mutex = Tq4_make<Tq4_mutex>(Tq4_mutex_oitf, &given);
    EXPECT_EQ(is_free(), 1);
}

struct Semaphore : testing::Test {
    Tq4_own<Tq4_semaphore> s = Tq4_make<Tq4_semaphore>(Tq4_semaphore_oitf);

    void make(unsigned initial) {
        Tq4_semaphore_CreateParams given{.initsps = initial, .maxsps = 1, .spName = "ignored"};
        s = Tq4_make<Tq4_semaphore>(Tq4_semaphore_oitf, &given);
    }
    int wait(unsigned long ms) { return (*s)->Wait(s.get(), ms); }
    int post() { return (*s)->Post(s.get()); }
    int post(unsigned long n) { return (*s)->PostN(s.get(), n); }
    // How often it can be taken without waiting.
    int drain() {
        int count = 0;
        while (wait(0) == 0) ++count;
        return count;
    }
};

TEST_F(Semaphore, PostsOnceWhateverTheNumber) {
    EXPECT_EQ(drain(), 100) << "the default";
    make(3);
    EXPECT_EQ(drain(), 3) << "the maximum is ignored";
    for (int posts : {0, 5}) {
        for (int i = 0; i < posts; ++i) post();
        Tq4_semaphore_oitf->Reset(s.get());
        EXPECT_EQ(drain(), 3);
    }
    s.reset(static_cast<Tq4_semaphore>(Tq4_semaphore_oitf->Dup(s.get())));
    EXPECT_EQ(drain(), 3) << "as the source began";
    EXPECT_EQ(post(), 1);
    EXPECT_EQ(drain(), 1);
    for (unsigned long n : {1ul, 5ul, 1ul << 40}) {
        EXPECT_EQ(post(n), 1);
        EXPECT_EQ(drain(), 1) << n;
    }
    EXPECT_EQ(post(0), 0);
    EXPECT_EQ(drain(), 0);
}

TEST_F(Semaphore, WaitsAndFailsAsTheSystemDoes) {
    make(0);
    EXPECT_EQ(wait(0), -1);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_EQ(wait(5), -1);
    EXPECT_EQ(errno, ETIMEDOUT);
    for (unsigned long ms : long_times) expect_waits_for([this] { post(); }, [=, this] { return wait(ms) == 0; });
    make(INT_MAX);
    EXPECT_EQ(post() + post(2), 0) << "it is full";
    make(UINT_MAX);
    EXPECT_EQ(wait(TQ4_ALL_ONES), -1) << "not valid: more than the system can count";
    EXPECT_EQ(post() + post(1), 0);
}

TEST_F(Locks, AnswerForNullHandles) {
    (*lock)->Lock(nullptr);
    (*lock)->Unlock(nullptr);
    EXPECT_EQ((*mutex)->Lock(nullptr, 0) + (*mutex)->Unlock(nullptr) + (*mutex)->IsLocked(nullptr), 0);
    auto semaphore = Tq4_make<Tq4_semaphore>(Tq4_semaphore_oitf);
    EXPECT_EQ((*semaphore)->Wait(nullptr, 0), 0);
    EXPECT_EQ((*semaphore)->Post(nullptr), -1);
    EXPECT_EQ((*semaphore)->PostN(nullptr, 0), -1);
}

TEST_F(Locks, AndTheLikeAreEqualOnlyToThemselves) {
    for (auto *oitf : {Tq4_lock_oitf, Tq4_mutex_oitf, Tq4_event_oitf, Tq4_semaphore_oitf, Tq4_thread_oitf}) {
        void *one = oitf->Create(nullptr), *other = oitf->Dup(one);
        oitf->Copy(one, other);
        oitf->Reset(one);
        EXPECT_EQ(oitf->Equal(one, one), 1);
        EXPECT_EQ(oitf->Equal(one, other), 0);
        oitf->Delete(one);
        oitf->Delete(other);
    }
}

} // namespace
