/* thread.h: Tq4_thread, a worker thread that is made suspended, started on demand and stopped cooperatively.
 *
 * Life: Create, Init (the system thread exists and waits), Resume (the function runs), and Delete, which asks the
 * function to end, waits for it and kills it at last. The function runs once and is expected to loop while IsRunning:
 *
 *     static unsigned long work(void *param) {
 *         struct worker *w = param;
 *         while ((*w->thread)->IsRunning(w->thread)) ...
 *         return 0;
 *     }
 *     w->thread = Tq4_thread_oitf->Create("worker");
 *     (*w->thread)->Init(w->thread, work, w);
 *     (*w->thread)->Resume(w->thread);
 *     ...
 *     Tq4_thread_oitf->Delete(w->thread);
 *
 * A request to quit is never lost, even one that comes before the function has begun: then it is not called at all.
 *
 * There is no join. WaitFor with TQ4_ALL_ONES asks the function to quit and returns when the thread has ended, without
 * ever killing it. To learn that a function has ended by itself, let it set a Tq4_event as its last step, wait for it,
 * and then call WaitFor or Delete.
 *
 * A thread that calls its function prints "thead[ID:KERNEL-ID   NAME] begin" before and "... end" after it, both ids as
 * numbers, the first one hexadecimal. The lines go to the debug interface's Printf, so to standard output unless the
 * program has set a print sink. A function that is killed prints no end.
 *
 * A kill is the last resort. It takes the function at whatever instruction it is, also where it calls nothing. Locks
 * that the function holds stay locked, and memory that it owns stays allocated. A library that it was inside of, the
 * allocator included, stays as it was. This library's events and thread objects stay usable. A function that cannot
 * bear this makes cancellation deferred (pthread_setcanceltype) before it disables it (pthread_setcancelstate).
 *
 * Delete, from another thread: stops with a wait of 2000 ms (WaitFor) and frees the object. When even the kill has not
 * ended the thread, the object is freed by the thread itself as soon as it ends. Delete from inside the function only
 * asks it to quit: the object stays usable for the function and is freed after it has returned.
 * Object-level: Create takes the name, a text that is copied (127 bytes at most), or null for "anonymous". Reset and
 * Copy do nothing; a thread equals only itself; Dup gives an idle thread of the same name.
 *
 * The first Init of a process gives the quit signal (SIGQUIT), unless the program handles or ignores it already, a
 * handler that ends the thread of this kind on which it arrives; on any other thread it acts as before.
 *
 * Threads: every operation may be called from any thread, the thread itself included; Delete once, by one thread.
 */
#ifndef TQ4_THREAD_H
#define TQ4_THREAD_H

#include <stdint.h>

#include "tq4/object.h"

TQ4_BEGIN_DECLS

typedef struct Tq4_thread_ Tq4_thread_;
typedef const Tq4_thread_ **Tq4_thread; /* handle */

typedef enum Tq4_thread_State {
    Tq4_thread_invalid = -1,      /* ended, killed or never made */
    Tq4_thread_Stop_State = 0,    /* made, not started */
    Tq4_thread_Running_State = 1, /* started; also after the function returned, until it is stopped */
    Tq4_thread_Suspend_State = 2
} Tq4_thread_State;

/* What a thread runs, once, on itself; its result becomes the exit code. */
typedef unsigned long (*Tq4_thread_func)(void *param);

struct Tq4_thread_ {
    /* Makes the system thread, which waits for Resume to run func(param). func is not null; param is borrowed and
     * handed on as it is. Results:
     * - 1; the thread waits for Resume;
     * - the address of the function that was set before: nothing else happens;
     * - 0 when func is null, or when the system gave no thread: then Init may be tried again. */
    unsigned long (*Init)(Tq4_thread thread, Tq4_thread_func func, void *param);
    /* Accepted and ignored. */
    void (*InitWithStack)(Tq4_thread thread, Tq4_thread_func func, void *param, void *stack, unsigned long size);
    /* The calling thread's id (any handle of a thread will do). */
    unsigned long (*GetCurrentId)(Tq4_thread thread);
    /* The system's id and handle of the thread (a pthread_t both), 0 before Init. Once the thread has ended they name
     * nothing, or another thread. */
    unsigned long (*GetId)(Tq4_thread thread);
    unsigned long (*GetHandle)(Tq4_thread thread);
    /* Sends a running thread the stop signal. 1 when it was sent, 0 when the thread is not running or has ended. The
     * system stops the WHOLE PROCESS with it, the caller included, until somebody outside sends the continue signal. */
    unsigned long (*Suspend)(Tq4_thread thread);
    /* Starts a thread that was made; continues a suspended one (sends the continue signal). 1 when it did either, else
     * 0. */
    unsigned long (*Resume)(Tq4_thread thread);
    /* Stops the thread: asks it to quit, starts or continues it if need be, and waits for its end. When the end has not
     * come after that many milliseconds (0: at once; all ones: never), it kills the thread with the exit code 0, and
     * gives the kill up to 200 ms to take effect. A thread that was not started yet ends without running its function.
     * From inside the function it only asks. Always 0. */
    int (*WaitFor)(Tq4_thread thread, unsigned long milliseconds);
    /* Ends the thread at once, with this exit code, and does not wait for it. From inside the function it does not
     * return, unless the function has disabled cancellation. 1; 0 for a null handle. */
    short (*Kill)(Tq4_thread thread, unsigned long code);
    /* Non-zero from the start of the function until somebody asks it to quit. A function that returned by itself
     * leaves it set. */
    short (*IsRunning)(Tq4_thread thread);
    /* The system's scheduling priority; -1 when the thread has ended or was never made. */
    int (*GetPriority)(Tq4_thread thread);
    /* Puts the thread under the first-in-first-out real-time policy with this priority; the process needs the right to.
     * 1 on success, else 0. */
    int (*SetPriority)(Tq4_thread thread, int priority);
    /* Once the thread was stopped (WaitFor) or killed, writes the function's result (its low 32 bits) or the code of
     * the kill, and gives 1. Before that, and when exit_code is null, gives 0. A function that returned by itself is to
     * be stopped all the same. Without a system thread, as before Init, it writes 0 and gives 1. */
    int (*GetExitCode)(Tq4_thread thread, uint32_t *exit_code);
    /* The name; "" for a null handle. Valid while the object lives. */
    const char *(*Name)(Tq4_thread thread);
    /* When the thread was created or, later, when its function began: seconds since 1970. */
    unsigned long (*LastActiveTime)(Tq4_thread thread);
    /* Asks the function to quit: from now on IsRunning is 0. Never waits. */
    void (*NotifyQuit)(Tq4_thread thread);
};

extern TQ4_API const Tq4_object_itf *const Tq4_thread_oitf;

TQ4_END_DECLS

#endif
