// Deadlines are exact and never wrap; waits survive signals; the deliberate results of locks and semaphores hold.
#include "platform/multi_platform_pthread.hpp"
#include "support/threads.hpp"

#include <cerrno>
#include <chrono>
#include <climits>
#include <gtest/gtest.h>
#include <sys/wait.h>

namespace {

constexpr unsigned long huge = TQ4_ALL_ONES - 1; // the longest time-out that is not without limit

TEST(Deadline, AddsMillisecondsAndCarriesOneSecond) {
    struct {
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
}

TEST(Deadline, StartsFromTheWallClock) {
    using namespace std::chrono;
    auto wall_clock = [] { return floor<milliseconds>(system_clock::now().time_since_epoch()).count(); };
    const long before = wall_clock();
    timespec deadline;
    MP_BuildTimeSpec(&deadline, 5000);
    const auto ticks = static_cast<long>(MP_THREAD_GetTickCount());
    const long after = wall_clock();
    const long ms = deadline.tv_sec * 1000 + deadline.tv_nsec / 1000000;
    EXPECT_TRUE(before + 5000 <= ms && ms <= after + 5000) << ms;
    EXPECT_TRUE(before <= ticks && ticks <= after) << ticks;
}

struct Mutex : testing::Test {
    MP_THREAD_mutex mutex;
    Mutex() { EXPECT_EQ(MP_THREAD_mutex_init(&mutex, 1, "ignored"), 1); }
    ~Mutex() override { MP_THREAD_mutex_destroy(&mutex); }
};

TEST_F(Mutex, IslockTellsThatItIsFree) {
    EXPECT_EQ(MP_THREAD_mutex_islock(&mutex), 1) << "the initial owner is ignored";
    MP_THREAD_mutex_lock(&mutex);
    EXPECT_EQ(MP_THREAD_mutex_islock(&mutex), 0);
    EXPECT_EQ(MP_THREAD_mutex_unlock(&mutex), 1);
    EXPECT_EQ(MP_THREAD_mutex_islock(&mutex), 1) << "asking must not keep it";
}

TEST_F(Mutex, ATimedLockGivesUpAtItsDeadlineAndIsNotRecursive) {
    EXPECT_EQ(MP_THREAD_mutex_trylock(&mutex, 0), 0);
    EXPECT_EQ(MP_THREAD_mutex_trylock(&mutex, 0), ETIMEDOUT);
    const uint64_t start = MP_THREAD_GetTickCount();
    EXPECT_EQ(MP_THREAD_mutex_trylock(&mutex, 20), ETIMEDOUT);
    EXPECT_GE(MP_THREAD_GetTickCount(), start + 20);
    MP_THREAD_mutex_unlock(&mutex);
}

TEST_F(Mutex, LongTimeOutsWaitForTheOwner) {
    for (unsigned long ms : {huge, TQ4_ALL_ONES}) {
        MP_THREAD_mutex_lock(&mutex);
        Waiting_call waiter([&] {
            const int result = MP_THREAD_mutex_trylock(&mutex, ms);
            if (result == 0) MP_THREAD_mutex_unlock(&mutex);
            return result;
        });
        waiter.await_sleep();
        EXPECT_FALSE(waiter.done()) << ms;
        MP_THREAD_mutex_unlock(&mutex);
        EXPECT_EQ(waiter.result(), 0) << ms;
    }
}

TEST(CriticalSection, MayBeEnteredAgainByItsThreadOnly) {
    MP_THREAD_CriticalSection section;
    ASSERT_EQ(MP_THREAD_CriticalSection_init(&section), 1);
    EXPECT_EQ(MP_THREAD_CriticalSection_lock(&section), 0);
    EXPECT_EQ(MP_THREAD_CriticalSection_lock(&section), 0);
    EXPECT_EQ(MP_THREAD_CriticalSection_unlock(&section), 0);
    EXPECT_EQ(Waiting_call([&] { return MP_THREAD_mutex_islock(&section); }).result(), 0);
    EXPECT_EQ(MP_THREAD_CriticalSection_unlock(&section), 0);
    EXPECT_EQ(MP_THREAD_CriticalSection_destroy(&section), 0);
}

struct Semaphore : testing::Test {
    MP_THREAD_Semaphore semaphore;
    Semaphore() { EXPECT_EQ(MP_THREAD_Semaphore_init(&semaphore, 2, 1, "ignored"), 1); }
    ~Semaphore() override { MP_THREAD_Semaphore_destroy(&semaphore); }

    int take(unsigned long ms) { return MP_THREAD_Semaphore_wait(&semaphore, ms); }
    int drain() {
        int taken = 0;
        while (take(0) == 0) ++taken;
        return taken;
    }
};

TEST_F(Semaphore, CountsFromItsInitialCount) {
    EXPECT_EQ(MP_THREAD_Semaphore_trywait(&semaphore), 0);
    EXPECT_EQ(take(TQ4_ALL_ONES), 0);
    errno = 0;
    EXPECT_EQ(take(0), -1);
    EXPECT_EQ(errno, EAGAIN);
    errno = 0;
    EXPECT_EQ(take(10), -1);
    EXPECT_EQ(errno, ETIMEDOUT);
}

TEST_F(Semaphore, APostAddsOneWhateverTheCount) {
    drain();
    EXPECT_EQ(MP_THREAD_Semaphore_post(&semaphore, 5), 1);
    EXPECT_EQ(drain(), 1);
    EXPECT_EQ(MP_THREAD_Semaphore_post(&semaphore, 0), 0);
    EXPECT_EQ(MP_THREAD_Semaphore_post(&semaphore, -1), 0);
    EXPECT_EQ(drain(), 0);
}

TEST_F(Semaphore, AWaitGoesOnAfterASignal) {
    drain();
    for (unsigned long ms : {600000ul, huge, TQ4_ALL_ONES}) {
        Waiting_call waiter([&] { return take(ms); });
        waiter.interrupt();
        EXPECT_FALSE(waiter.done()) << ms;
        MP_THREAD_Semaphore_post(&semaphore, 1);
        EXPECT_EQ(waiter.result(), 0) << ms;
    }
}

TEST(SemaphoreInit, ACountAboveTheSystemsLimitFails) {
    MP_THREAD_Semaphore semaphore;
    EXPECT_EQ(MP_THREAD_Semaphore_init(&semaphore, UINT_MAX, 0, nullptr), 0);
}

struct Event : testing::Test {
    MP_THREAD_event event;
    MP_THREAD_mutex mutex;
    int waiting = 0, let_go = 0; // under mutex

    Event() { EXPECT_EQ(MP_THREAD_event_init(&event, &mutex), 1); }
    ~Event() override { MP_THREAD_event_destroy(&event, &mutex); }

    template <class Action> void locked(Action action) {
        MP_THREAD_mutex_lock(&mutex);
        action();
        MP_THREAD_mutex_unlock(&mutex);
    }
    int wait(unsigned long ms) {
        int result = 0;
        locked([&] {
            ++waiting;
            while (let_go == 0 && result == 0) result = MP_THREAD_event_wait(&event, ms, &mutex);
            if (result == 0) --let_go;
        });
        return result;
    }
    void await_waiters(int count) {
        for (int now = 0; now < count; std::this_thread::yield()) locked([&] { now = waiting; });
    }
};

TEST_F(Event, ASignalNobodyWaitsForIsLost) {
    EXPECT_EQ(MP_THREAD_event_signal_all(&event), 0);
    EXPECT_EQ(MP_THREAD_event_reset(&event), 0);
    EXPECT_EQ(wait(0), ETIMEDOUT);
    EXPECT_EQ(wait(10), ETIMEDOUT);
}

TEST_F(Event, SignalsWakeOneWaiterOrAll) {
    Waiting_call first([&] { return wait(TQ4_ALL_ONES); });
    Waiting_call second([&] { return wait(huge); });
    Waiting_call third([&] { return wait(TQ4_ALL_ONES); });
    await_waiters(3);
    locked([&] { let_go = 1; });
    EXPECT_EQ(MP_THREAD_event_signal(&event), 0);
    for (int left = 1; left > 0; std::this_thread::yield()) locked([&] { left = let_go; });
    locked([&] { let_go = 2; });
    EXPECT_EQ(MP_THREAD_event_signal_all(&event), 0);
    EXPECT_EQ(first.result() + second.result() + third.result(), 0);
}

struct Thread : testing::Test {
    static inline std::atomic<int> kernel_id, ended;
    static inline std::atomic<void *> argument;

    void SetUp() override { kernel_id = ended = 0; }
    // Runs entry on a new thread and gives it time to reach the point where it has told its kernel id.
    static MP_THREAD_handle start(void *(*entry)(void *)) {
        MP_THREAD_handle thread{};
        unsigned long id = 0;
        EXPECT_EQ(MP_THREAD_Create(entry, &argument, 1, &thread, &id), 1);
        EXPECT_EQ(id, thread);
        while (!kernel_id) std::this_thread::yield();
        return thread;
    }
    static void await_end() {
        char path[64];
        std::snprintf(path, sizeof path, "/proc/self/task/%d", kernel_id.load());
        while (access(path, F_OK) == 0) std::this_thread::yield();
    }
};

TEST_F(Thread, RunsItsEntryDetached) {
    static std::atomic<bool> detached;
    detached = false;
    start([](void *given) -> void * {
        argument = given;
        pthread_attr_t attributes;
        int state = -1;
        pthread_getattr_np(pthread_self(), &attributes);
        pthread_attr_getdetachstate(&attributes, &state);
        pthread_attr_destroy(&attributes);
        detached = state == PTHREAD_CREATE_DETACHED;
        kernel_id = MP_THREAD_GetLWP();
        return nullptr;
    });
    await_end();
    EXPECT_EQ(argument, &argument);
    EXPECT_TRUE(detached);
    EXPECT_NE(kernel_id, MP_THREAD_GetLWP());
    EXPECT_EQ(MP_THREAD_GetLWP(), getpid()) << "the main thread's is the process's";
}

TEST_F(Thread, OnlyModeOneExists) {
    auto entry = [](void *) -> void * { return nullptr; };
    for (int mode : {0, 2, -1}) EXPECT_EQ(MP_THREAD_Create(entry, nullptr, mode, nullptr, nullptr), 0);
}

TEST_F(Thread, CanBeKilledAtAnyPointOnceItAllowsIt) {
    static MP_THREAD_mutex held;
    MP_THREAD_mutex_init(&held, 0, nullptr);
    MP_THREAD_mutex_lock(&held);
    MP_THREAD_handle thread = start([](void *) -> void * {
        kernel_id = MP_THREAD_GetLWP();
        MP_THREAD_SetCancel();
        MP_THREAD_mutex_lock(&held); // where only an asynchronous cancellation can strike
        ended = 1;
        return nullptr;
    });
    EXPECT_EQ(MP_THREAD_KillThread(thread, 7), 1);
    await_end();
    EXPECT_EQ(ended, 0);
    MP_THREAD_mutex_unlock(&held);
    MP_THREAD_mutex_destroy(&held);
}

TEST_F(Thread, TheQuitHandlerEndsTheThreadItRunsOn) {
    start([](void *) -> void * {
        kernel_id = MP_THREAD_GetLWP();
        MP_THREAD_OnSIGQUIT(SIGQUIT);
        ended = 1;
    });
    await_end();
    EXPECT_EQ(ended, 0);
}

TEST_F(Thread, PriorityIsThatOfTheFifoPolicy) {
    EXPECT_EQ(MP_THREAD_GetPriority(pthread_self()), 0);
    EXPECT_EQ(MP_THREAD_SetPriority(pthread_self(), 1000), 0);
    constexpr int no_right = -2;
    const int priority = Waiting_call([] {
                             if (!MP_THREAD_SetPriority(pthread_self(), 3)) return no_right;
                             sched_param parameters;
                             int policy = -1;
                             pthread_getschedparam(pthread_self(), &policy, &parameters);
                             EXPECT_EQ(policy, SCHED_FIFO);
                             return MP_THREAD_GetPriority(pthread_self());
                         }).result();
    if (priority == no_right) GTEST_SKIP() << "this process may not use real-time priorities";
    EXPECT_EQ(priority, 3);
}

TEST_F(Thread, SuspendStopsTheProcessAndResumeContinuesIt) {
    const pid_t child = fork();
    if (child == 0) {
        MP_THREAD_SuspendThread(pthread_self());
        _exit(42);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, WUNTRACED), child);
    EXPECT_TRUE(WIFSTOPPED(status));
    kill(child, SIGCONT);
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(WEXITSTATUS(status), 42);

    static std::atomic<int> continued;
    continued = 0;
    MP_THREAD_Signal(SIGCONT, [](int) { ++continued; });
    EXPECT_EQ(MP_THREAD_ResumeThread(pthread_self()), 0);
    MP_THREAD_Signal(SIGCONT, SIG_DFL);
    EXPECT_EQ(continued, 1);
}

TEST_F(Thread, ABlockedSignalWaitsUntilItIsUnblocked) {
    static std::atomic<int> handled;
    handled = 0;
    MP_THREAD_Signal(SIGUSR2, [](int) { ++handled; });
    MP_THREAD_Sigmask(SIG_BLOCK, SIGUSR2);
    pthread_kill(pthread_self(), SIGUSR2);
    EXPECT_EQ(handled, 0);
    MP_THREAD_Sigmask(SIG_UNBLOCK, SIGUSR2);
    EXPECT_EQ(handled, 1);
    MP_THREAD_Signal(SIGUSR2, SIG_DFL);
}

} // namespace
