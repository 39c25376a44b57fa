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

TEST(PlatformMutex, IslockTellsThatItIsFreeAndTimedLocksGiveUp) {
    MP_THREAD_mutex mutex;
    ASSERT_EQ(MP_THREAD_mutex_init(&mutex, 1, "ignored"), 1);
    EXPECT_EQ(MP_THREAD_mutex_islock(&mutex), 1) << "the initial owner is ignored";
    EXPECT_EQ(MP_THREAD_mutex_trylock(&mutex, 0), 0);
    EXPECT_EQ(MP_THREAD_mutex_islock(&mutex), 0);
    EXPECT_EQ(MP_THREAD_mutex_trylock(&mutex, 0), ETIMEDOUT) << "not recursive";
    EXPECT_EQ(MP_THREAD_mutex_trylock(&mutex, 5), ETIMEDOUT);
    for (unsigned long ms : {huge, TQ4_ALL_ONES}) {
        Waiting_call waiter([&] {
            const int result = MP_THREAD_mutex_trylock(&mutex, ms);
            return result == 0 ? MP_THREAD_mutex_unlock(&mutex) : -result;
        });
        waiter.await_sleep();
        EXPECT_FALSE(waiter.done()) << ms;
        EXPECT_EQ(MP_THREAD_mutex_unlock(&mutex), 1);
        EXPECT_EQ(waiter.result(), 1) << ms;
        MP_THREAD_mutex_lock(&mutex);
    }
    MP_THREAD_mutex_unlock(&mutex);
}

TEST(PlatformCriticalSection, MayBeEnteredAgainByItsThreadOnly) {
    MP_THREAD_CriticalSection section;
    ASSERT_EQ(MP_THREAD_CriticalSection_init(&section), 1);
    EXPECT_EQ(MP_THREAD_CriticalSection_lock(&section), 0);
    EXPECT_EQ(MP_THREAD_CriticalSection_lock(&section), 0);
    EXPECT_EQ(MP_THREAD_CriticalSection_unlock(&section), 0);
    EXPECT_EQ(Waiting_call([&] { return MP_THREAD_mutex_islock(&section); }).result(), 0);
    EXPECT_EQ(MP_THREAD_CriticalSection_unlock(&section), 0);
    EXPECT_EQ(MP_THREAD_CriticalSection_destroy(&section), 0);
}

TEST(PlatformSemaphore, PostsOnceAndWaitsThroughSignals) {
    MP_THREAD_Semaphore semaphore;
    EXPECT_EQ(MP_THREAD_Semaphore_init(&semaphore, ~0u, 0, nullptr), 0) << "above the system's limit";
    ASSERT_EQ(MP_THREAD_Semaphore_init(&semaphore, 1, 0, "ignored"), 1);
    auto take = [&](unsigned long ms) { return MP_THREAD_Semaphore_wait(&semaphore, ms) == 0 ? 0 : errno; };
    EXPECT_EQ(MP_THREAD_Semaphore_post(&semaphore, 5), 1);
    EXPECT_EQ(take(0), 0);
    EXPECT_EQ(take(TQ4_ALL_ONES), 0);
    EXPECT_EQ(MP_THREAD_Semaphore_post(&semaphore, 0), 0);
    EXPECT_EQ(MP_THREAD_Semaphore_post(&semaphore, -1), 0);
    EXPECT_EQ(take(0), EAGAIN);
    EXPECT_EQ(take(5), ETIMEDOUT);
    for (unsigned long ms : {600000ul, huge, TQ4_ALL_ONES}) {
        Waiting_call waiter([&] { return take(ms); });
        waiter.interrupt();
        EXPECT_FALSE(waiter.done()) << ms;
        EXPECT_EQ(MP_THREAD_Semaphore_post(&semaphore, 1), 1);
        EXPECT_EQ(waiter.result(), 0) << ms;
    }
}

TEST(PlatformEvent, DoesNotLatch) {
    MP_THREAD_event event;
    MP_THREAD_mutex mutex;
    ASSERT_EQ(MP_THREAD_event_init(&event, &mutex), 1);
    MP_THREAD_mutex_lock(&mutex);
    EXPECT_EQ(MP_THREAD_event_signal(&event), 0);
    EXPECT_EQ(MP_THREAD_event_signal_all(&event), 0);
    EXPECT_EQ(MP_THREAD_event_reset(&event), 0);
    for (unsigned long ms : {0, 5}) EXPECT_EQ(MP_THREAD_event_wait(&event, ms, &mutex), ETIMEDOUT);
    Waiting_call signal([&] {
        MP_THREAD_mutex_lock(&mutex); // free only once the wait below has begun
        MP_THREAD_mutex_unlock(&mutex);
        return MP_THREAD_event_signal(&event);
    });
    EXPECT_EQ(MP_THREAD_event_wait(&event, huge, &mutex), 0);
    MP_THREAD_mutex_unlock(&mutex);
    signal.result();
    MP_THREAD_event_destroy(&event, &mutex);
}

// A thread of the platform: detached, so its end shows in the kernel alone.
struct PlatformThread : testing::Test {
    static inline std::atomic<pid_t> kernel_id;
    static inline std::atomic<int> survived;
    static inline MP_THREAD_mutex held;

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

TEST_F(PlatformThread, CanBeKilledAtAnyPointOnceItAllowsIt) {
    MP_THREAD_mutex_init(&held, 0, nullptr);
    MP_THREAD_mutex_lock(&held);
    const MP_THREAD_handle thread = start([](void *) -> void * {
        kernel_id = MP_THREAD_GetLWP();
        MP_THREAD_SetCancel();
        MP_THREAD_mutex_lock(&held); // where only an asynchronous cancellation can strike
        survived = 1;
        return nullptr;
    });
    EXPECT_EQ(MP_THREAD_KillThread(thread, 7), 1);
    await_end();
    EXPECT_EQ(survived, 0);
    MP_THREAD_mutex_unlock(&held);
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

TEST_F(PlatformThread, SuspendStopsTheProcessAndResumeContinuesIt) {
    const pid_t child = fork();
    if (child == 0) {
        static volatile sig_atomic_t continued;
        MP_THREAD_Signal(SIGCONT, [](int) { continued = continued + 1; });
        MP_THREAD_Sigmask(SIG_BLOCK, SIGCONT);
        MP_THREAD_ResumeThread(pthread_self());
        const bool blocked = continued == 0;
        MP_THREAD_Sigmask(SIG_UNBLOCK, SIGCONT);
        const bool delivered = continued == 1;
        MP_THREAD_SuspendThread(pthread_self());
        _exit(blocked && delivered && continued == 2 ? 42 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, WUNTRACED), child);
    EXPECT_TRUE(WIFSTOPPED(status));
    kill(child, SIGCONT);
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(WEXITSTATUS(status), 42);
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
