// multi_platform_pthread: a thin layer over POSIX threads; see the header for the conventions of results.
//
// All timed waits take an absolute deadline, computed once, so a wait that a signal interrupts is simply entered again.
// It is on the clock that only goes forward: a wall clock that is set would stretch or cut them. Conditions name that
// clock in each wait and keep the system's default, since an event gives its condition away. Seconds and milliseconds
// are added as separate fields: the largest time-out is 1.8e16 seconds, which added to today still is a fraction of
// what a 64-bit second holds.
#include "platform/multi_platform_pthread.hpp"

#include <cerrno>
#include <csignal>
#include <cxxabi.h>
#include <linux/futex.h>
#include <linux/membarrier.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "computed_once.hpp"
#include "platform/restarted.hpp"
#include "platform/spin.hpp"
#include "sanitizers.hpp"
#include "thread_record.hpp"

extern "C" [[gnu::visibility("hidden")]] void *__dso_handle; // names the library to the C++ runtime

static_assert(sizeof(time_t) == 8, "a deadline of any time-out fits");

namespace {

timespec sum_of(timespec time, unsigned long ms) {
    time.tv_sec += static_cast<time_t>(ms / 1000);
    time.tv_nsec += static_cast<long>(ms % 1000) * 1000000;
    if (time.tv_nsec > 999999999) {
        time.tv_sec += 1;
        time.tv_nsec -= 1000000000;
    }
    return time;
}

timespec deadline_after(unsigned long ms, clockid_t clock = CLOCK_MONOTONIC) {
    timespec now;
    clock_gettime(clock, &now);
    return sum_of(now, ms);
}

// The thread sanitizer follows conditions on either clock, but mutexes and semaphores only on the wall clock: on the
// other one it would miss which thread holds the mutex or posted. So its builds, and they alone, wait there.
#ifdef TQ4_THREAD_SANITIZER
int lock_within(MP_THREAD_mutex *mutex, unsigned long ms) {
    const timespec deadline = deadline_after(ms, CLOCK_REALTIME);
    return pthread_mutex_timedlock(mutex, &deadline);
}
int take_within(MP_THREAD_Semaphore *semaphore, unsigned long ms) {
    const timespec deadline = deadline_after(ms, CLOCK_REALTIME);
    return MP_Restarted([&] { return sem_timedwait(semaphore, &deadline); });
}
#else
int lock_within(MP_THREAD_mutex *mutex, unsigned long ms) {
    const timespec deadline = deadline_after(ms);
    return pthread_mutex_clocklock(mutex, CLOCK_MONOTONIC, &deadline);
}
int take_within(MP_THREAD_Semaphore *semaphore, unsigned long ms) {
    const timespec deadline = deadline_after(ms);
    return MP_Restarted([&] { return sem_clockwait(semaphore, CLOCK_MONOTONIC, &deadline); });
}
#endif

} // namespace

timespec MP_AddToTimeSpec(timeval now, unsigned long ms) { return sum_of({now.tv_sec, now.tv_usec * 1000}, ms); }

void MP_BuildTimeSpec(timespec *deadline, unsigned long ms) {
    timeval now;
    gettimeofday(&now, nullptr);
    *deadline = MP_AddToTimeSpec(now, ms);
}

uint64_t MP_THREAD_GetTickCount() {
    timeval now;
    gettimeofday(&now, nullptr);
    return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_usec) / 1000;
}

uint64_t MP_THREAD_GetMonotonicMs() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1000000;
}

void MP_THREAD_Pause() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__aarch64__)
    asm volatile("yield");
#endif
}

bool MP_THREAD_IsAlone() {
    return Tq4_computed_once([] { return sysconf(_SC_NPROCESSORS_ONLN) < 2; });
}

bool MP_THREAD_CanFenceOthers() {
    return Tq4_computed_once(
        [] { return syscall(SYS_membarrier, MEMBARRIER_CMD_REGISTER_PRIVATE_EXPEDITED, 0, 0) == 0; });
}

void MP_THREAD_FenceOthers() { syscall(SYS_membarrier, MEMBARRIER_CMD_PRIVATE_EXPEDITED, 0, 0); }

void MP_THREAD_SleepOn(const std::atomic<int> *word, int value, unsigned long ms) {
    const timespec limit{.tv_sec = static_cast<time_t>(ms / 1000), .tv_nsec = static_cast<long>(ms % 1000 * 1000000)};
    syscall(SYS_futex, word, FUTEX_WAIT_PRIVATE, value, ms == TQ4_ALL_ONES ? nullptr : &limit, nullptr, 0);
}

void MP_THREAD_WakeSleeper(const std::atomic<int> *word) {
    syscall(SYS_futex, word, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
}

int MP_THREAD_mutex_init(MP_THREAD_mutex *mutex, int, const char *) { return !pthread_mutex_init(mutex, nullptr); }
void MP_THREAD_mutex_destroy(MP_THREAD_mutex *mutex) { pthread_mutex_destroy(mutex); }
int MP_THREAD_mutex_lock(MP_THREAD_mutex *mutex) { return pthread_mutex_lock(mutex); }

int MP_THREAD_mutex_trylock(MP_THREAD_mutex *mutex, unsigned long ms) {
    return ms == TQ4_ALL_ONES ? pthread_mutex_lock(mutex) : lock_within(mutex, ms);
}

int MP_THREAD_mutex_take(MP_THREAD_mutex *mutex) { return !pthread_mutex_trylock(mutex); }

int MP_THREAD_mutex_unlock(MP_THREAD_mutex *mutex) { return !pthread_mutex_unlock(mutex); }

int MP_THREAD_mutex_islock(MP_THREAD_mutex *mutex) {
    if (pthread_mutex_trylock(mutex) != 0) return 0;
    pthread_mutex_unlock(mutex);
    return 1; // deliberate: 1 means it was free; the mutex object's IsLocked hands this on
}

int MP_THREAD_CriticalSection_init(MP_THREAD_CriticalSection *section) {
    pthread_mutexattr_t attributes;
    if (pthread_mutexattr_init(&attributes) != 0) return 0;
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    const int error = pthread_mutex_init(section, &attributes);
    pthread_mutexattr_destroy(&attributes);
    return !error;
}

int MP_THREAD_CriticalSection_destroy(MP_THREAD_CriticalSection *section) { return pthread_mutex_destroy(section); }

// A section that is taken is looked at again before we sleep for it. Sleeping and being woken costs more than most
// sections last; looking all the time slows down the thread inside, so the pauses between looks are long.
int MP_THREAD_CriticalSection_lock(MP_THREAD_CriticalSection *section) {
    using namespace std::chrono_literals;
    const auto taken = [section] { return pthread_mutex_trylock(section) == 0; };
    return taken() || MP_THREAD_Spin(4us, 64, taken) ? 0 : pthread_mutex_lock(section);
}

int MP_THREAD_CriticalSection_unlock(MP_THREAD_CriticalSection *section) { return pthread_mutex_unlock(section); }

int MP_THREAD_Semaphore_init(MP_THREAD_Semaphore *semaphore, unsigned initial, unsigned, const char *) {
    return !sem_init(semaphore, 0, initial);
}

void MP_THREAD_Semaphore_destroy(MP_THREAD_Semaphore *semaphore) { sem_destroy(semaphore); }

int MP_THREAD_Semaphore_post(MP_THREAD_Semaphore *semaphore, long count) {
    return count > 0 &&
           !sem_post(semaphore); // deliberate: once, whatever the count; the semaphore's PostN relies on it
}

int MP_THREAD_Semaphore_wait(MP_THREAD_Semaphore *semaphore, unsigned long ms) {
    if (ms == 0) return MP_THREAD_Semaphore_trywait(semaphore);
    if (ms == TQ4_ALL_ONES) return MP_Restarted([=] { return sem_wait(semaphore); });
    return take_within(semaphore, ms);
}

int MP_THREAD_Semaphore_trywait(MP_THREAD_Semaphore *semaphore) {
    return MP_Restarted([=] { return sem_trywait(semaphore); });
}

int MP_THREAD_Semaphore_count(MP_THREAD_Semaphore *semaphore) {
    int count = 0;
    sem_getvalue(semaphore, &count);
    return count;
}

int MP_THREAD_event_init(MP_THREAD_event *event, MP_THREAD_mutex *mutex) {
    if (!MP_THREAD_mutex_init(mutex, 0, nullptr)) return 0;
    if (pthread_cond_init(event, nullptr) == 0) return 1;
    MP_THREAD_mutex_destroy(mutex);
    return 0;
}

void MP_THREAD_event_destroy(MP_THREAD_event *event, MP_THREAD_mutex *mutex) {
    pthread_cond_destroy(event);
    MP_THREAD_mutex_destroy(mutex);
}

int MP_THREAD_event_signal(MP_THREAD_event *event) { return pthread_cond_signal(event); }
int MP_THREAD_event_signal_all(MP_THREAD_event *event) { return pthread_cond_broadcast(event); }
int MP_THREAD_event_reset(MP_THREAD_event *) { return 0; }

int MP_THREAD_event_wait(MP_THREAD_event *event, unsigned long ms, MP_THREAD_mutex *mutex) {
    if (ms == TQ4_ALL_ONES) return pthread_cond_wait(event, mutex);
    const timespec deadline = deadline_after(ms);
    return pthread_cond_clockwait(event, mutex, CLOCK_MONOTONIC, &deadline);
}

int MP_THREAD_Create(void *(*entry)(void *), void *argument, int mode, MP_THREAD_handle *thread, unsigned long *id) {
    pthread_attr_t attributes;
    if (mode != 1 || pthread_attr_init(&attributes) != 0) return 0;
    // Detached from birth: detaching afterwards would touch a thread that may have ended and detached itself.
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    pthread_t handle;
    const int error = pthread_create(&handle, &attributes, entry, argument);
    pthread_attr_destroy(&attributes);
    if (error) return 0;
    if (thread) *thread = handle;
    if (id) *id = handle;
    return 1;
}

unsigned long MP_THREAD_GetCurrentId() { return pthread_self(); }

int MP_THREAD_GetPriority(MP_THREAD_handle thread) {
    int policy;
    sched_param parameters;
    return pthread_getschedparam(thread, &policy, &parameters) == 0 ? parameters.sched_priority : -1;
}

int MP_THREAD_SetPriority(MP_THREAD_handle thread, int priority) {
    sched_param parameters{};
    parameters.sched_priority = priority;
    return !pthread_setschedparam(thread, SCHED_FIFO, &parameters);
}

int MP_THREAD_KillThread(MP_THREAD_handle thread, unsigned long) { return !pthread_cancel(thread); }

int MP_THREAD_SuspendThread(MP_THREAD_handle thread) {
    pthread_kill(thread, SIGSTOP);
    return 0;
}

int MP_THREAD_ResumeThread(MP_THREAD_handle thread) {
    pthread_kill(thread, SIGCONT);
    return 0;
}

int MP_THREAD_SetCancel() {
    pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);
    pthread_setcanceltype(PTHREAD_CANCEL_ASYNCHRONOUS, nullptr);
    return 0;
}

void MP_THREAD_ClearCancel() { MP_THREAD_HoldCancel(); }

int MP_THREAD_DeferCancel() {
    int before;
    pthread_setcanceltype(PTHREAD_CANCEL_DEFERRED, &before);
    return before;
}

void MP_THREAD_RestoreCancel(int before) { pthread_setcanceltype(before, nullptr); }

void MP_THREAD_AtEnd(void (*function)(void *), void *argument) {
    abi::__cxa_thread_atexit(function, argument, &__dso_handle);
}

// The type changes first and comes back last. A cancellation that is on its way as a signal asks for the type alone: it
// would strike a thread that has only disabled it.
int MP_THREAD_HoldCancel() {
    int state = PTHREAD_CANCEL_ENABLE, type = PTHREAD_CANCEL_DEFERRED;
    pthread_setcanceltype(PTHREAD_CANCEL_DEFERRED, &type);
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &state);
    return state + 2 * type;
}

void MP_THREAD_ReleaseCancel(int before) {
    pthread_setcancelstate(before % 2, nullptr);
    pthread_setcanceltype(before / 2, nullptr);
}

void MP_THREAD_OnSIGQUIT(int) { pthread_exit(nullptr); }

void MP_THREAD_Sigmask(int how, int signal) {
    sigset_t one;
    sigemptyset(&one);
    sigaddset(&one, signal);
    pthread_sigmask(how, &one, nullptr);
}

void MP_THREAD_Signal(int signal, void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    sigaction(signal, &action, nullptr);
}

int MP_THREAD_AtFork(void (*before)(), void (*in_parent)(), void (*in_child)()) {
    return !pthread_atfork(before, in_parent, in_child);
}

int MP_THREAD_SignalIsDefault(int signal) {
    struct sigaction action;
    return sigaction(signal, nullptr, &action) == 0 && !(action.sa_flags & SA_SIGINFO) && action.sa_handler == SIG_DFL;
}

// A child is a thread of its own. Registered when the library is loaded, before there are threads that could fork.
[[maybe_unused]] static const int forgets_at_fork = pthread_atfork(nullptr, nullptr, [] {
    if (Tq4_this_thread->kernel_id) Tq4_this_thread->kernel_id = 0;
});

pid_t MP_THREAD_GetLWP() {
    if (Tq4_this_thread->kernel_id) return Tq4_this_thread->kernel_id;
    const pid_t id = gettid();
    if (Tq4_thread_record *own = Tq4_own_thread_record()) own->kernel_id = id;
    return id;
}
