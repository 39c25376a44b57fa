// Deadlines are exact and never wrap, waits survive signals, and the deliberate results hold.
#include "platform/multi_platform_pthread.hpp"
#include "sanitizers.hpp"
#include "support/test.hpp"

namespace {

constexpr unsigned long huge = TQ4_ALL_ONES - 1; // the longest time-out that is not without limit

TEST(PlatformDeadline, AddsMillisecondsAndCarriesOneSecond) {
    const struct {
        timeval now;
        unsigned long ms;
        timespec sum;
    } cases[] = {
        {{100, 999000}, 1, {101, 0}},
        {{100, 998999}, 1, {100, 999999000}},
        {{100, 999999}, 2999, {103, 998999000}},
        {{1700000000, 999999}, huge, {1700000000 + 18446744073709551 + 1, 613999000}},
    };
    for (const auto &[now, ms, sum] : cases) {
        const timespec deadline = MP_AddToTimeSpec(now, ms);
        EXPECT_TRUE(deadline.tv_sec == sum.tv_sec && deadline.tv_nsec == sum.tv_nsec) << now.tv_usec << " + " << ms;
    }
}

// What else mutexes, semaphores and events do is tested through the objects made of them.
TEST(PlatformSemaphore, WaitsThroughSignals) {
    MP_THREAD_Semaphore semaphore;
    ASSERT_EQ(MP_THREAD_Semaphore_init(&semaphore, 0, 0, nullptr), 1);
    EXPECT_EQ(MP_THREAD_Semaphore_post(&semaphore, -1), 0);
    for (unsigned long ms : {600000ul, huge, TQ4_ALL_ONES}) {
        Parallel waiter([&] { return MP_THREAD_Semaphore_wait(&semaphore, ms); });
        waiter.interrupt();
        EXPECT_FALSE(waiter.done()) << ms;
        EXPECT_EQ(MP_THREAD_Semaphore_post(&semaphore, 1), 1);
        EXPECT_EQ(waiter.result(), 0) << ms;
    }
}

// A wall clock that is set back would stretch a wait by as much. A test cannot set it, but the kernel knows who waits
// for it.
TEST(PlatformWaits, AreTimedByTheClockThatOnlyGoesForward) {
    MP_THREAD_event event;
    MP_THREAD_mutex free_mutex, held;
    MP_THREAD_Semaphore semaphore;
    MP_THREAD_event_init(&event, &free_mutex);
    MP_THREAD_mutex_init(&held, 0, nullptr);
    MP_THREAD_Semaphore_init(&semaphore, 0, 0, nullptr);
    constexpr unsigned long long_enough = 600000;
    const auto for_event = [&] {
        MP_THREAD_mutex_lock(&free_mutex);
        const int result = MP_THREAD_event_wait(&event, long_enough, &free_mutex);
        return MP_THREAD_mutex_unlock(&free_mutex) ? result : -1;
    };
    const auto for_mutex = [&] { return MP_THREAD_mutex_trylock(&held, long_enough); };
    const auto for_semaphore = [&] { return MP_THREAD_Semaphore_wait(&semaphore, long_enough); };
    const std::pair<std::function<int()>, std::function<void()>> waits[] = {
        {for_event, [&] { MP_THREAD_event_signal(&event); }},
        {for_mutex, [&] { MP_THREAD_mutex_unlock(&held); }},
        {for_semaphore, [&] { MP_THREAD_Semaphore_post(&semaphore, 1); }},
    };
    MP_THREAD_mutex_lock(&held);
    for (const auto &[wait, release] : waits) {
        std::atomic<pid_t> id = 0;
        Parallel waiter([&, &wait = wait] { return id = gettid(), wait(); });
#ifdef TQ4_THREAD_SANITIZER
        const bool follows_only_the_wall_clock = &wait != &waits[0].first; // that sanitizer
#else
        const bool follows_only_the_wall_clock = false;
#endif
        constexpr unsigned long by_the_wall_clock = 256;
        EXPECT_EQ((await_timed_sleep(id) & by_the_wall_clock) != 0, follows_only_the_wall_clock);
        release();
        EXPECT_EQ(waiter.result(), 0);
    }
}

// A cancellation is a signal, which may arrive after the thread has said that it holds it off. Blocking it keeps it on
// its way; the C library's own call for that leaves this signal alone. The mask is on no stack: the address sanitizer
// keeps marks of what lay in a frame that a kill takes away.
void block_cancelling_signal(int how) {
    static const unsigned long cancelling_signal = 1ul << (32 - 1);
    syscall(SYS_rt_sigprocmask, how, &cancelling_signal, nullptr, sizeof cancelling_signal);
}

TEST(PlatformThreads, AKillThatIsOnItsWayWaitsWhileItIsHeldOff) {
    static std::atomic<pid_t> kernel_id;
    static std::atomic<bool> killed;
    static std::atomic<int> survived;
    const auto entry = +[](void *) -> void * {
        MP_THREAD_SetCancel();
        block_cancelling_signal(SIG_BLOCK);
        kernel_id = MP_THREAD_GetLWP();
        while (!killed) std::this_thread::yield();
        const int before = MP_THREAD_HoldCancel();
        block_cancelling_signal(SIG_UNBLOCK);
        survived = 1;
        MP_THREAD_ReleaseCancel(before);
        survived = 2;
        return nullptr;
    };
    MP_THREAD_handle thread{};
    ASSERT_EQ(MP_THREAD_Create(entry, nullptr, 1, &thread, nullptr), 1);
    while (kernel_id == 0) std::this_thread::yield();
    EXPECT_EQ(MP_THREAD_KillThread(thread, 0), 1);
    killed = true;
    while (thread_state(kernel_id) != 'X') std::this_thread::yield();
    EXPECT_EQ(survived, 1);
}

TEST(PlatformThreads, AForkedChildHasAKernelIdOfItsOwn) {
    EXPECT_EQ(MP_THREAD_GetLWP(), gettid());
    EXPECT_EXIT(_exit(MP_THREAD_GetLWP() == gettid()), testing::ExitedWithCode(1), "");
}

} // namespace
