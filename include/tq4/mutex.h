/* mutex.h: Tq4_mutex, a mutex with a timed lock. It is not recursive.
 *
 * A mutex whose system part could not be made answers every operation with 0.
 * Object-level: Create takes a Tq4_mutex_CreateParams or null; Reset and Copy do nothing; a mutex equals only itself;
 * Dup gives a new free mutex. A mutex is deleted by a thread that knows that nobody holds it or waits for it.
 *
 * Threads: every operation may be called from any thread; Unlock only by the holder.
 */
#ifndef TQ4_MUTEX_H
#define TQ4_MUTEX_H

#include "tq4/object.h"

TQ4_BEGIN_DECLS

typedef struct Tq4_mutex_ Tq4_mutex_;
typedef const Tq4_mutex_ **Tq4_mutex; /* handle */

/* Given to Create; null means 0 and no name. Both are accepted and ignored: a mutex starts free and without a name. */
typedef struct Tq4_mutex_CreateParams {
    int bInitialOwner;
    const char *mutexName; /* borrowed for the call */
} Tq4_mutex_CreateParams;

struct Tq4_mutex_ {
    /* 1 when the calling thread now holds the mutex, 0 on time-out or failure. The time-out is in milliseconds,
     * whoever sets the wall clock meanwhile: all ones waits without limit, 0 tries once without waiting. The holder
     * does not get it again: its second Lock ends with the time-out, or never when it waits without limit. A null
     * handle: 0. */
    int (*Lock)(Tq4_mutex mutex, unsigned long milliseconds);
    /* Gives the mutex back; only the holder may. 1 on success, 0 on failure or for a null handle. */
    int (*Unlock)(Tq4_mutex mutex);
    /* 1 when the mutex was FREE at the moment of the call, 0 when somebody held it or for a null handle. The sense is
     * deliberate, whatever the name says. The answer may be old when it arrives. */
    int (*IsLocked)(Tq4_mutex mutex);
};

extern TQ4_API const Tq4_object_itf *const Tq4_mutex_oitf;

TQ4_END_DECLS

#endif
