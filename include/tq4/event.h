/* event.h: Tq4_event, a flag that threads wait for.
 *
 * A manual-reset event stays set, and lets every waiter through, until Reset; those that wait when it becomes set pass
 * also when Reset follows at once. An automatic one lets exactly one waiter through for each time it became set, and is
 * cleared by it; a Reset before that withdraws it. A Set of an event that is set already adds nothing.
 * What a thread did before a Set, also one that adds nothing, is seen by whoever clears the flag next.
 * A thread may be killed while it waits: the event stays usable, and no Set is lost with it.
 * Object-level: Create takes a Tq4_event_CreateParams or null. Reset makes the flag what it was in the new event. Copy
 * does nothing; an event equals only itself; Dup gives a new event made with the same parameters. An event may be
 * deleted by the thread that its Wait let through, if no other thread waits or will still call it.
 *
 * Threads: every operation may be called from any thread.
 */
#ifndef TQ4_EVENT_H
#define TQ4_EVENT_H

#include "tq4/object.h"

TQ4_BEGIN_DECLS

typedef struct Tq4_event_ Tq4_event_;
typedef const Tq4_event_ **Tq4_event; /* handle */

/* Given to Create; null means a manual-reset event that starts cleared. */
typedef struct Tq4_event_CreateParams {
    int bManualReset;  /* non-zero: manual reset; 0: automatic */
    int bInitialState; /* non-zero: starts set */
} Tq4_event_CreateParams;

struct Tq4_event_ {
    /* Sets the flag and wakes all waiters (manual reset) or one (automatic). A null handle: nothing. */
    void (*Set)(Tq4_event event);
    /* Clears the flag. A null handle: nothing. */
    void (*Reset)(Tq4_event event);
    /* Waits until the flag is set and returns 1, having cleared it when the event is automatic; 0 when the time-out
     * came first. The time-out is in milliseconds, whoever sets the wall clock meanwhile: 0 looks without waiting, all
     * ones waits without limit. A Set that comes together with the time-out counts. A null handle: 0 at once. */
    int (*Wait)(Tq4_event event, unsigned long milliseconds);
    /* The address of the system's condition (a pthread_cond_t), borrowed; null for a null handle. */
    void *(*GetHandle)(Tq4_event event);
};

extern TQ4_API const Tq4_object_itf *const Tq4_event_oitf;

TQ4_END_DECLS

#endif
