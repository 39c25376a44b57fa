/* semaphore.h: Tq4_semaphore, a counting semaphore of one process.
 *
 * A semaphore whose system part could not be made (an initial count above the system's limit) is not valid: Wait
 * gives -1, Post and PostN give 0.
 * Object-level: Create takes a Tq4_semaphore_CreateParams or null; Reset brings the initial count back; Copy does
 * nothing; a semaphore equals only itself; Dup gives a new semaphore with the same initial count. Delete posts once
 * first, which frees one waiter; a thread that is still in Wait when the memory goes is the caller's mistake.
 *
 * Threads: every operation may be called from any thread.
 */
#ifndef TQ4_SEMAPHORE_H
#define TQ4_SEMAPHORE_H

#include "tq4/object.h"

TQ4_BEGIN_DECLS

typedef struct Tq4_semaphore_ Tq4_semaphore_;
typedef const Tq4_semaphore_ **Tq4_semaphore; /* handle */

/* Given to Create; null means a count of 100. */
typedef struct Tq4_semaphore_CreateParams {
    unsigned initsps;   /* the initial count */
    unsigned maxsps;    /* accepted and ignored: there is no ceiling but the system's */
    const char *spName; /* accepted and ignored */
} Tq4_semaphore_CreateParams;

struct Tq4_semaphore_ {
    /* Takes one from the count, waiting for it. 0 when it was taken; otherwise the system's result, -1 with the reason
     * in errno: EAGAIN (nothing there, time-out 0) or ETIMEDOUT. The time-out is in milliseconds, whoever sets
     * the wall clock meanwhile: 0 tries without waiting, all ones waits without limit. Not valid: -1. A null handle:
     * 0. */
    int (*Wait)(Tq4_semaphore semaphore, unsigned long milliseconds);
    /* Adds one. 1 on success, 0 when the count is at the system's limit or the semaphore is not valid. A null handle:
     * -1. */
    int (*Post)(Tq4_semaphore semaphore);
    /* Adds ONE when n is not 0, whatever n is; the single step is deliberate. 1 on success; 0 when n is 0, the count is
     * at the system's limit or the semaphore is not valid. A null handle: -1. */
    int (*PostN)(Tq4_semaphore semaphore, unsigned long n);
};

extern TQ4_API const Tq4_object_itf *const Tq4_semaphore_oitf;

TQ4_END_DECLS

#endif
