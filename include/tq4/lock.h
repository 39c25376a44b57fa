/* lock.h: Tq4_lock, a critical section that its owner may enter again.
 *
 * The thread that holds the lock may lock it again and unlocks it as often as it locked it. A thread that is killed
 * while it holds the lock leaves it locked for ever.
 * Object-level: Create ignores its parameter; Reset and Copy do nothing; a lock equals only itself; Dup gives a new
 * free lock. A lock is deleted by a thread that knows that nobody holds it or waits for it.
 *
 * Threads: Lock and Unlock may be called from any thread.
 */
#ifndef TQ4_LOCK_H
#define TQ4_LOCK_H

#include "tq4/object.h"

TQ4_BEGIN_DECLS

typedef struct Tq4_lock_ Tq4_lock_;
typedef const Tq4_lock_ **Tq4_lock; /* handle */

struct Tq4_lock_ {
    /* Waits without limit until the calling thread holds the lock. A null handle: nothing. */
    void (*Lock)(Tq4_lock lock);
    /* Gives one hold back; only the holder may. A null handle: nothing. */
    void (*Unlock)(Tq4_lock lock);
};

extern TQ4_API const Tq4_object_itf *const Tq4_lock_oitf;

TQ4_END_DECLS

#endif
