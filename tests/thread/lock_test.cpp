// What locks, mutexes and semaphores promise: who may pass, for how long others wait, and their odd answers.
#include "support/test.hpp"

namespace {

// What is sent beside the test has to wait until release is called, and then to succeed.
template <class Wait, class Release> void expect_waits_for(Release release, Wait wait) {
    Parallel other(wait);
    other.await_sleep();
    EXPECT_FALSE(other.done());
    release();
    EXPECT_TRUE(other.result());
}

TEST(Locks, AreFreeAfterAsManyUnlocksAsLocks) {
    const auto owner = Tq4_make<Tq4_lock>(Tq4_lock_oitf);
    const Tq4_lock lock = owner.get();
    for (const auto change : {(*lock)->Lock, (*lock)->Lock, (*lock)->Unlock}) change(lock);
    expect_waits_for([=] { (*lock)->Unlock(lock); }, [=] { return (*lock)->Lock(lock), (*lock)->Unlock(lock), true; });
}

TEST(Mutexes, WaitAsLongAsTheyAreTold) {
    const auto mutex = Tq4_make<Tq4_mutex>(Tq4_mutex_oitf);
    const auto take = [&](unsigned long ms) { return (*mutex)->Lock(mutex.get(), ms); };
    const auto give = [&] { return (*mutex)->Unlock(mutex.get()); };
    const auto is_free = [&] { return (*mutex)->IsLocked(mutex.get()); };
    EXPECT_EQ(take(0), 1) << "free: a single try is enough";
    EXPECT_EQ(take(0) + take(5), 0) << "it is not recursive";
    for (unsigned long ms : {TQ4_ALL_ONES, TQ4_ALL_ONES - 1, 3600000ul}) {
        expect_waits_for(give, [=] { return take(ms) && give(); });
        take(0);
    }
    EXPECT_EQ(is_free(), 0);
    EXPECT_EQ(give(), 1);
    EXPECT_EQ(is_free() + is_free(), 2) << "asking leaves it free";
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
    for (unsigned long n : {0ul, 1ul, 5ul, 1ul << 40}) {
        EXPECT_EQ(post(n), n != 0);
        EXPECT_EQ(drain(), n != 0) << n;
    }
}

TEST_F(Semaphore, WaitsAndFailsAsTheSystemDoes) {
    make(0);
    for (auto [ms, error] : {std::pair{0ul, EAGAIN}, {5ul, ETIMEDOUT}}) {
        EXPECT_EQ(wait(ms), -1);
        EXPECT_EQ(errno, error);
    }
    expect_waits_for([this] { post(); }, [this] { return wait(TQ4_ALL_ONES) == 0; });
    make(INT_MAX);
    EXPECT_EQ(post() + post(2), 0) << "it is full";
    make(UINT_MAX); // more than the system can count: not valid
    EXPECT_EQ(wait(TQ4_ALL_ONES) + post(), -1);
    EXPECT_EQ((*s)->Post(nullptr) + (*s)->PostN(nullptr, 0), -2);
}

} // namespace
