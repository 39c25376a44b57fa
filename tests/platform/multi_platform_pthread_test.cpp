// Deadlines are exact and never wrap, waits survive signals, and the deliberate results hold.
#include "platform/multi_platform_pthread.hpp"

#include <cerrno>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <gtest/gtest.h>

#include "support/threads.hpp"

namespace {

constexpr unsigned long huge = TQ4_ALL_ONES - 1; // the longest time-out that is not without limit

TEST(PlatformDeadline, AddsMillisecondsAndCarriesOneSecond) {
    const struct {
        timeval now;
        unsigned long ms;
        timespec sum;
    } cases[] = {
        {{100, 0}, 0, {100, 0}},
        {{100, 999500}, 1, {101, 500000}},
        {{100, 999000}, 1, {101, 0}},
        {{100, 998999}, 1, {100, 999999000}},
        {{100, 999999}, 2999, {103, 998999000}},
        {{1700000000, 999999}, huge, {1700000000 + 18446744073709551 + 1, 613999000}},
    };
    for (const auto &[now, ms, sum] : cases) {
        const timespec deadline = MP_AddToTimeSpec(now, ms);
        EXPECT_EQ(deadline.tv_sec, sum.tv_sec) << now.tv_usec << " us + " << ms << " ms";
        EXPECT_EQ(deadline.tv_nsec, sum.tv_nsec) << now.tv_usec << " us + " << ms << " ms";
    }
    timespec deadline;
    const uint64_t before = MP_THREAD_GetTickCount();
    MP_BuildTimeSpec(&deadline, 5000);
    const uint64_t due = static_cast<uint64_t>(deadline.tv_sec * 1000 + deadline.tv_nsec / 1000000);
    EXPECT_TRUE(before + 5000 <= due && due <= MP_THREAD_GetTickCount() + 5000) << due;
}

// What else mutexes, semaphores and events do is tested through the objects made of them.
TEST(PlatformSemaphore, WaitsThroughSignals) {
    MP_THREAD_Semaphore semaphore;
    ASSERT_EQ(MP_THREAD_Semaphore_init(&semaphore, 0, 0, nullptr), 1);
    EXPECT_EQ(MP_THREAD_Semaphore_post(&semaphore, -1), 0);
    for (unsigned long ms : {600000ul, huge, TQ4_ALL_ONES}) {
        Waiting_call waiter([&] { return MP_THREAD_Semaphore_wait(&semaphore, ms); });
        waiter.interrupt();
        EXPECT_FALSE(waiter.done()) << ms;
        EXPECT_EQ(MP_THREAD_Semaphore_post(&semaphore, 1), 1);
        EXPECT_EQ(waiter.result(), 0) << ms;
    }
}

// A thread of the platform: detached, so its end shows in the kernel alone.
struct PlatformThread : testing::Test {
    static inline std::atomic<pid_t> kernel_id;
    static inline std::atomic<int> survived;

    PlatformThread() { kernel_id = survived = 0; }
    static MP_THREAD_handle start(void *(*entry)(void *)) {
        MP_THREAD_handle thread{};
        unsigned long id = 0;
        EXPECT_EQ(MP_THREAD_Create(entry, &survived, 1, &thread, &id), 1);
        EXPECT_EQ(id, thread);
        while (kernel_id == 0) std::this_thread::yield();
        return thread;
    }
    static void await_end() {
        while (thread_state(kernel_id) != 'X') std::this_thread::yield();
    }
};

TEST_F(PlatformThread, RunsItsEntryAndEndsByItsQuitHandler) {
    EXPECT_EQ(MP_THREAD_Create([](void *) -> void * { return nullptr; }, nullptr, 0, nullptr, nullptr), 0);
    start([](void *argument) -> void * {
        EXPECT_EQ(argument, &survived);
        EXPECT_EQ(pthread_detach(pthread_self()), EINVAL) << "detached already";
        EXPECT_EQ(MP_THREAD_GetPriority(pthread_self()), 0);
        EXPECT_EQ(MP_THREAD_SetPriority(pthread_self(), 1000), 0);
        kernel_id = MP_THREAD_GetLWP();
        MP_THREAD_OnSIGQUIT(SIGQUIT);
        survived = 1;
    });
    await_end();
    EXPECT_EQ(survived, 0);
    EXPECT_NE(kernel_id, MP_THREAD_GetLWP());
}

// What a cancellation sends may arrive after the thread has said that it holds it off. The first one in a process sets
// up the signal's handler.
TEST_F(PlatformThread, AKillThatIsOnItsWayWaitsWhileItIsHeldOff) {
    const MP_THREAD_handle first = start([](void *) -> void * {
        for (kernel_id = MP_THREAD_GetLWP();;) pause();
    });
    MP_THREAD_KillThread(first, 0);
    await_end();
    kernel_id = 0;
    start([](void *) -> void * {
        MP_THREAD_SetCancel();
        const int before = MP_THREAD_HoldCancel();
        kernel_id = MP_THREAD_GetLWP();
        constexpr int cancelling_signal = 32;
        syscall(SYS_tgkill, getpid(), gettid(), cancelling_signal);
        survived = 1;
        MP_THREAD_ReleaseCancel(before);
        survived = 2;
        return nullptr;
    });
    await_end();
    EXPECT_EQ(survived, 1);
}

TEST(PlatformSignals, AreHeldBackWhileTheyAreBlocked) {
    static volatile sig_atomic_t delivered = 0;
    MP_THREAD_Signal(SIGUSR1, [](int) { delivered = 1; });
    MP_THREAD_Sigmask(SIG_BLOCK, SIGUSR1);
    raise(SIGUSR1);
    EXPECT_EQ(delivered, 0);
    MP_THREAD_Sigmask(SIG_UNBLOCK, SIGUSR1);
    EXPECT_EQ(delivered, 1);
    MP_THREAD_Signal(SIGUSR1, SIG_DFL);
}

TEST(PlatformThreads, AForkedChildHasAKernelIdOfItsOwn) {
    EXPECT_EQ(MP_THREAD_GetLWP(), gettid());
    const pid_t child = fork();
    if (child == 0) _exit(MP_THREAD_GetLWP() == gettid() ? 0 : 1);
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
}

} // namespace
