// multi_platform_pthread: deadlines, mutexes, semaphores, events, threads and signals.
//
// Everybody else in the library calls these instead of the system. Init, post and unlock functions give 1 for success
// and 0 for failure. Waits give the system's own result: 0 when obtained, otherwise the error number; for semaphores -1
// with the system error set. Nothing here logs or keeps state. Pointers are borrowed and must not be null. Times are
// milliseconds; TQ4_ALL_ONES waits without limit, and no other time-out wraps, however large. Neither a signal nor
// setting the wall clock ends a wait or makes it longer.
#pragma once

#include <atomic>
#include <cstdint>
#include <pthread.h>
#include <semaphore.h>
#include <sys/time.h>
#include <sys/types.h>
#include <time.h>

#include "tq4/api.h"

using MP_THREAD_mutex = pthread_mutex_t;
using MP_THREAD_CriticalSection = pthread_mutex_t;
using MP_THREAD_Semaphore = sem_t;
using MP_THREAD_event = pthread_cond_t;
using MP_THREAD_handle = pthread_t;

// --- Time ---

// now + ms; the arithmetic of MP_BuildTimeSpec without its clock. now.tv_usec is below 1000000.
timespec MP_AddToTimeSpec(timeval now, unsigned long ms);
// Sets *deadline to the current wall-clock time + ms, to the microsecond: for the timed calls of pthread that know no
// other clock. The library's own waits are by a clock that only goes forward.
void MP_BuildTimeSpec(timespec *deadline, unsigned long ms);
// Wall-clock milliseconds since 1970.
uint64_t MP_THREAD_GetTickCount();
// Milliseconds on a clock that only goes forward, at the pace of time, whoever sets the wall clock. Its zero is of no
// meaning.
uint64_t MP_THREAD_GetMonotonicMs();

// --- The processor ---

// A moment for the other thread of the core, in a loop that looks at memory another thread will change.
void MP_THREAD_Pause();
// Asks for a line of the cache that is about to be written, where it is still another core's.
inline void MP_PrefetchToWrite(const void *at) {
#if defined(__x86_64__)
    asm volatile("prefetchw %0" ::"m"(*static_cast<const char *>(at)));
#else
    __builtin_prefetch(at, 1);
#endif
}
// Whether there is only one processor, where such a loop waits in vain. Asked of the system once.
bool MP_THREAD_IsAlone();

// Whether one thread can make all others of the process pass a full fence, which then need none of their own to be
// ordered with that one. Asked of the system once; false where it has no such call, or forbids it.
bool MP_THREAD_CanFenceOthers();
// Makes them, and passes one itself. Costs microseconds.
void MP_THREAD_FenceOthers();

// --- Words that one thread sleeps on ---

// Sleeps while the word has the value, at most ms; may return earlier without cause. Not a point of cancellation.
void MP_THREAD_SleepOn(const std::atomic<int> *word, int value, unsigned long ms);
// Wakes the thread that sleeps on the word. Only the address is used: the word may be gone.
void MP_THREAD_WakeSleeper(const std::atomic<int> *word);

// --- Mutexes ---

// Makes a non-recursive mutex. The initial owner and the name are ignored. 1/0.
int MP_THREAD_mutex_init(MP_THREAD_mutex *mutex, int initial_owner, const char *name);
// The mutex must be free.
void MP_THREAD_mutex_destroy(MP_THREAD_mutex *mutex);
// Waits without limit. 0 or the error number.
int MP_THREAD_mutex_lock(MP_THREAD_mutex *mutex);
// Waits at most ms; 0 is a single try. 0, ETIMEDOUT or another error number.
int MP_THREAD_mutex_trylock(MP_THREAD_mutex *mutex, unsigned long ms);
// Takes it if it is free, without waiting. 1/0.
int MP_THREAD_mutex_take(MP_THREAD_mutex *mutex);
// By the thread that holds it. 1/0.
int MP_THREAD_mutex_unlock(MP_THREAD_mutex *mutex);
// 1 when the mutex was FREE (it was taken and released again), 0 when somebody holds it. The sense is deliberate.
int MP_THREAD_mutex_islock(MP_THREAD_mutex *mutex);

// --- Critical sections: mutexes that the thread holding one may lock again, and unlocks as often ---

// 1/0.
int MP_THREAD_CriticalSection_init(MP_THREAD_CriticalSection *section);
// These give 0 or the error number.
int MP_THREAD_CriticalSection_destroy(MP_THREAD_CriticalSection *section);
int MP_THREAD_CriticalSection_lock(MP_THREAD_CriticalSection *section);
int MP_THREAD_CriticalSection_unlock(MP_THREAD_CriticalSection *section);

// --- Semaphores ---

// A counting semaphore of this process with the given count. The maximum and the name are ignored. 1/0.
int MP_THREAD_Semaphore_init(MP_THREAD_Semaphore *semaphore, unsigned initial, unsigned maximum, const char *name);
// Nobody may be waiting.
void MP_THREAD_Semaphore_destroy(MP_THREAD_Semaphore *semaphore);
// Adds one to the count, and only when count > 0: a larger count still posts once, deliberately. 1/0.
int MP_THREAD_Semaphore_post(MP_THREAD_Semaphore *semaphore, long count);
// Takes one, waiting at most ms; 0 only tries. 0, or -1 with the system error EAGAIN (a try) or ETIMEDOUT.
int MP_THREAD_Semaphore_wait(MP_THREAD_Semaphore *semaphore, unsigned long ms);
// Takes one if there is one. 0, or -1 with the system error EAGAIN.
int MP_THREAD_Semaphore_trywait(MP_THREAD_Semaphore *semaphore);
// The count at the moment of the call.
int MP_THREAD_Semaphore_count(MP_THREAD_Semaphore *semaphore);

// --- Events: a condition and its mutex. They do not latch: a signal that nobody waits for is lost ---

// Makes both, the mutex first and non-recursive. 0 when either fails, and then neither exists; else 1.
int MP_THREAD_event_init(MP_THREAD_event *event, MP_THREAD_mutex *mutex);
void MP_THREAD_event_destroy(MP_THREAD_event *event, MP_THREAD_mutex *mutex);
// Wakes one waiter. 0 or the error number.
int MP_THREAD_event_signal(MP_THREAD_event *event);
// Wakes all waiters. 0 or the error number.
int MP_THREAD_event_signal_all(MP_THREAD_event *event);
// No effect, there being nothing latched. 0.
int MP_THREAD_event_reset(MP_THREAD_event *event);
// The caller holds the mutex, which is free during the wait and held again afterwards, whatever the result. 0 when
// woken (perhaps without cause: check the condition again), ETIMEDOUT, or another error number.
int MP_THREAD_event_wait(MP_THREAD_event *event, unsigned long ms, MP_THREAD_mutex *mutex);

// --- Threads ---

// Starts a detached thread that runs entry(argument). Only mode 1 exists; any other gives 0. *thread receives the
// handle, *id the same as a number (either may be null). The handle is valid until the thread ends. 1/0.
int MP_THREAD_Create(void *(*entry)(void *), void *argument, int mode, MP_THREAD_handle *thread, unsigned long *id);
// The calling thread's id: the number that MP_THREAD_Create gave out for it.
unsigned long MP_THREAD_GetCurrentId();
// The thread's scheduling priority, -1 on failure.
int MP_THREAD_GetPriority(MP_THREAD_handle thread);
// Puts the thread under the first-in-first-out real-time policy with that priority (the process needs the right to).
// 1/0.
int MP_THREAD_SetPriority(MP_THREAD_handle thread, int priority);
// Cancels the thread; the code is ignored. 1/0.
int MP_THREAD_KillThread(MP_THREAD_handle thread, unsigned long code);
// Sends the thread the stop signal, with which the system stops the whole process. 0.
int MP_THREAD_SuspendThread(MP_THREAD_handle thread);
// Sends the thread the continue signal. 0.
int MP_THREAD_ResumeThread(MP_THREAD_handle thread);
// From here on the calling thread can be cancelled at any instruction: it must not hold a lock or allocate. 0.
int MP_THREAD_SetCancel();
// From here on the calling thread is not cancelled; a cancellation waits for the next MP_THREAD_SetCancel.
void MP_THREAD_ClearCancel();
// From here on a cancellation takes the calling thread only where it waits in the system. Gives what was before, for
// MP_THREAD_RestoreCancel; there a cancellation that came meanwhile may take effect.
int MP_THREAD_DeferCancel();
void MP_THREAD_RestoreCancel(int before);

// Calls function(argument) at the end of the calling thread, in line with the destructors of its thread-local objects;
// this library stays loaded until then.
void MP_THREAD_AtEnd(void (*function)(void *), void *argument);

// Keeps the calling thread from being cancelled at all, until the matching call gives back the result of this one. What
// happens between them may wait in the system with locks held.
int MP_THREAD_HoldCancel();
void MP_THREAD_ReleaseCancel(int before);

// --- Processes ---

// From now on each fork calls these on the thread that forks: one before it, one after it in the parent, one after it
// in the child. Later calls are nested around earlier ones. 1/0.
int MP_THREAD_AtFork(void (*before)(), void (*in_parent)(), void (*in_child)());

// --- Signals ---

// A signal handler that ends the thread it runs on.
[[noreturn]] void MP_THREAD_OnSIGQUIT(int signal);
// Blocks (how SIG_BLOCK) or unblocks (SIG_UNBLOCK) one signal for the calling thread.
void MP_THREAD_Sigmask(int how, int signal);
// Installs the process's handler of a signal (or SIG_IGN, SIG_DFL). System calls that it interrupts are restarted.
void MP_THREAD_Signal(int signal, void (*handler)(int));
// 1 when the process neither handles nor ignores the signal, else 0.
int MP_THREAD_SignalIsDefault(int signal);
// The kernel's id of the calling thread, remembered by the thread and asked again after a fork.
pid_t MP_THREAD_GetLWP();
