/* timer.h: Tq4_timer, one-shot, counted and endless timers with a tick of 10 ms.
 *
 *     static void on_timer(Tq4_timer t, Tq4_timer_callback *firing) { ... firing->userdata ... }
 *
 *     Tq4_timer t = Tq4_timer_oitf->Create(NULL);
 *     Tq4_id id;
 *     (*t)->Start(t, "sessions");
 *     (*t)->SetTimer(t, 5000, on_timer, &id, strdup("hello"), free);
 *     (*t)->ResetTimer(t, &id, 10000);
 *     Tq4_timer_oitf->Delete(t);
 *
 * A timer object has two threads between Start and Stop: one counts ticks, the other, the handler, has the timers and
 * calls back. Every callback, delta function and free function runs on the handler's thread, one at a time, except for
 * the free functions that Stop calls. They may call every operation, for any timer, their own included. A callback that
 * takes long delays the others; the ticks that are lost meanwhile are made up for afterwards.
 *
 * A timer fires within one tick of its time: never at the call that sets it, and at any number of timers. Ticks follow
 * a clock that only goes forward, whoever sets the wall clock. Setting, resetting and clearing take constant time.
 *
 * User data with a free function belongs to the timer once the set has succeeded. It is freed once: after the last
 * firing, after a delta function has ended the timer, when the timer is cleared, or by Stop. In a callback of its own
 * timer it stays good until the callback returns, even when the callback clears the timer. Of a set that gives 0 the
 * data stays the caller's.
 *
 * Life. Before the first Start, sets, ResetTimer and StopWatch wait for it. After a Stop they give 0 at once until the
 * next Start, which begins without timers.
 * Object-level: Create takes null. Delete stops first; called in a callback or a free function, it takes effect when
 * that returns, and Start gives 0 from then on. Reset is Stop. Copy does nothing, a timer object equals only itself,
 * Dup gives a fresh one.
 *
 * Kills. When a callback keeps Stop or Delete waiting for more than 2000 ms, its thread is killed, inside the callback
 * and nowhere else; the timer object stays usable.
 *
 * Null handles give 0. Threads: Start, Stop and Reset from one thread at a time, a callback's included; Delete once;
 * everything else from any thread. On the handler's own thread an operation takes effect at once. */
#ifndef TQ4_TIMER_H
#define TQ4_TIMER_H

#include "tq4/object.h"
#include "tq4/value_table.h"

TQ4_BEGIN_DECLS

typedef struct Tq4_timer_ Tq4_timer_;
typedef const Tq4_timer_ **Tq4_timer; /* handle */

/* One firing; valid during the callback. */
typedef struct Tq4_timer_callback {
    Tq4_id *timerid;      /* the timer's id; not to be changed */
    unsigned long repeat; /* the number of this firing since the timer was set or reset, from 1 */
    uint64_t elapse;      /* milliseconds of schedule so far: the first interval and each later one */
    short closed; /* 1: the last firing; the timer ends when the callback returns, even when it was reset there */
    void *userdata;
} Tq4_timer_callback;

typedef void (*Tq4_timer_OnTimer)(Tq4_timer timer, Tq4_timer_callback *firing);
/* Called after each firing but the last: gives the next interval in milliseconds, or all ones to end the timer. times:
 * how often it has fired; ms: the interval as set. */
typedef unsigned long (*Tq4_timer_delta)(const Tq4_id *id, unsigned long times, unsigned long ms, void *userdata);
typedef void (*Tq4_timer_free)(void *userdata);

struct Tq4_timer_ {
    /* Starts the two threads, the one that ticks under the name "Tq4_TimerTickThread(NAME)"; null counts as "". 1, also
     * when they run already; 0 when the system gave no thread. */
    int (*Start)(Tq4_timer t, const char *name);
    /* Ends both threads and all timers, calling the free functions on the calling thread. Returns when no callback runs
     * any more; in a callback it does not wait for itself. 1, also when nothing was started. */
    int (*Stop)(Tq4_timer t);
    /* Fires once, ms milliseconds from now; less than 10 count as 10. The id of the new timer is written to *id unless
     * that is null, before it can fire. userdata is handed to the callback; free_userdata (or null) frees it, also when
     * it is null. 1; 0 when callback is null or there are 16777216 timers. */
    int (*SetTimer)(Tq4_timer t, unsigned long ms, Tq4_timer_OnTimer callback, Tq4_id *id, void *userdata,
                    Tq4_timer_free free_userdata);
    /* The same for count firings, every ms milliseconds; a count of 0 is without end. */
    int (*SetRepeatTimer)(Tq4_timer t, unsigned long count, unsigned long ms, Tq4_timer_OnTimer callback, Tq4_id *id,
                          void *userdata, Tq4_timer_free free_userdata);
    /* The same with a function that gives each interval after the first. It may give less than 10 ms; the timer then
     * fires on one of the next two ticks. Null: every ms milliseconds. */
    int (*SetRepeatTimerDelta)(Tq4_timer t, unsigned long count, unsigned long ms, Tq4_timer_OnTimer callback,
                               Tq4_timer_delta delta, Tq4_id *id, void *userdata, Tq4_timer_free free_userdata);
    /* Ends a timer. On the handler's thread it does so at once. From another thread it is asynchronous: a callback that
     * is running finishes, and the timer may fire once more before the request is met. Always 1 (0 for a null handle);
     * a timer that does not exist, or no longer, is logged. */
    int (*ClearTimer)(Tq4_timer t, const Tq4_id *id);
    /* Starts a timer anew. It fires ms milliseconds from now, at the next tick when that is less than 10, and repeats
     * every ms milliseconds. It counts its firings and its schedule from the beginning. 1; 0, and logged, when there is
     * no such timer. */
    int (*ResetTimer)(Tq4_timer t, const Tq4_id *id, unsigned long ms);
    /* The milliseconds since the timer was placed last, in whole ticks. It is placed when it is set, reset and
     * repeated, and when the rest of a long interval (10 s, 3 h, 124 days) begins. With a non-zero clear the timer is
     * ended too. 0, and logged, when there is no such timer. */
    uint64_t (*StopWatch)(Tq4_timer t, const Tq4_id *id, int clear);
    /* SetTimer with fewer arguments: without id, user data and free function; without the last two; with all. */
    int (*SetTimer0)(Tq4_timer t, unsigned long ms, Tq4_timer_OnTimer callback);
    int (*SetTimer1)(Tq4_timer t, unsigned long ms, Tq4_timer_OnTimer callback, Tq4_id *id);
    int (*SetTimer2)(Tq4_timer t, unsigned long ms, Tq4_timer_OnTimer callback, Tq4_id *id, void *userdata,
                     Tq4_timer_free free_userdata);
    /* SetRepeatTimer, likewise. */
    int (*SetRepeatTimer0)(Tq4_timer t, unsigned long count, unsigned long ms, Tq4_timer_OnTimer callback);
    int (*SetRepeatTimer1)(Tq4_timer t, unsigned long count, unsigned long ms, Tq4_timer_OnTimer callback, Tq4_id *id);
    int (*SetRepeatTimer2)(Tq4_timer t, unsigned long count, unsigned long ms, Tq4_timer_OnTimer callback, Tq4_id *id,
                           void *userdata, Tq4_timer_free free_userdata);
    /* SetRepeatTimerDelta, likewise. */
    int (*SetRepeatTimerDelta0)(Tq4_timer t, unsigned long count, unsigned long ms, Tq4_timer_OnTimer callback,
                                Tq4_timer_delta delta);
    int (*SetRepeatTimerDelta1)(Tq4_timer t, unsigned long count, unsigned long ms, Tq4_timer_OnTimer callback,
                                Tq4_timer_delta delta, Tq4_id *id);
    int (*SetRepeatTimerDelta2)(Tq4_timer t, unsigned long count, unsigned long ms, Tq4_timer_OnTimer callback,
                                Tq4_timer_delta delta, Tq4_id *id, void *userdata, Tq4_timer_free free_userdata);
};

extern TQ4_API const Tq4_object_itf *const Tq4_timer_oitf;

/* User data for timers that need an id, an owner and a table of values. */
typedef struct Tq4_timer_callback_data {
    Tq4_id id;
    void *owner;       /* borrowed */
    Tq4_value_table t; /* owned; null at first */
} Tq4_timer_callback_data;

/* A record of zeros; the caller frees it with Delete, or lets a timer do so. */
TQ4_API Tq4_timer_callback_data *Create_Tq4_timer_callback_data(void);
/* Frees the record and deletes its table; null is ignored. A Tq4_timer_free for such records. */
TQ4_API void Delete_Tq4_timer_callback_data(void *data);

TQ4_END_DECLS

#endif
