/* pool.h: Tq4_pool, objects that are handed out under checkable ids and used again.
 *
 * A pool lends payloads: whatever its Create function makes. Each stands in a slot of its own and is lent under a
 * Tq4_id: h names the slot, scrambled, and l is the serial number of this lending. An id that comes from a stranger or
 * is kept too long does no harm. Once its payload was given back, it finds nothing, even when the payload is lent
 * again. Looking up, lending and giving back take constant time; where a payload was given back before, nothing is
 * allocated.
 *
 * Payloads belong to the pool from their Create to their Delete; a borrower has one from Alloc to Recycle. A payload
 * that was given back stays made: Reset prepares it for the next borrower, and the one that waits longest comes first.
 *
 * Ids: every look-up takes only those bits of h that name slots, and ignores the others. An id is found when its l is
 * the one under which the payload is lent. An id with an l of 0, and a null id, are never found.
 *
 * Object-level: Create takes Tq4_pool_CreateParams and gives null without them or without a Create function. Reset is
 * RecycleAll. Copy does nothing and Equal is identity; Dup gives a fresh pool with the same parameters. Delete deletes
 * every payload, also those that are lent.
 *
 * Null handles give null or 0. Threads: a pool belongs to one thread at a time; all functions given to it run on the
 * calling thread. They may use the pool, but not delete it; while it is deleted it makes no payloads. */
#ifndef TQ4_POOL_H
#define TQ4_POOL_H

#include "tq4/object.h"

TQ4_BEGIN_DECLS

typedef struct Tq4_pool_ Tq4_pool_;
typedef const Tq4_pool_ **Tq4_pool; /* handle */

#define TQ4_POOL_MOST 16777216u /* slots of a pool, at most */

/* Makes a payload; param is that of Alloc. Null when it cannot: then Alloc gives null, and no slot is used. */
typedef void *(*Tq4_pool_Create)(void *param);
typedef void (*Tq4_pool_Delete)(void *payload);
/* The payload is lent no longer: its id finds nothing, and the slot is not free yet. */
typedef void (*Tq4_pool_Reset)(void *payload, unsigned long slot);
/* Returns non-zero to stop. */
typedef int (*Tq4_pool_visitor)(void *payload, void *param);

/* Given to Create. Without Delete or Reset, payloads must be handles: the Reset of the payload's own module takes their
 * place. So the pool does not delete such payloads: deliberate, for those that others own. */
typedef struct Tq4_pool_CreateParams {
    uint32_t max_res;       /* how many slots; TQ4_POOL_MOST at most; with 0 the pool never lends */
    Tq4_pool_Create Create; /* required */
    Tq4_pool_Delete Delete; /* or null */
    Tq4_pool_Reset Reset;   /* or null */
    uint64_t mask;          /* scrambles the slot numbers in ids; any number */
} Tq4_pool_CreateParams;

struct Tq4_pool_ {
    /* Lends a payload, one that was given back or a new one in the lowest slot that never had one. param is handed to
     * Create. The id is written to *id unless that is null. Null when all slots are used, or Create made nothing. */
    void *(*Alloc)(Tq4_pool p, void *param, Tq4_id *id);
    /* The same for a slot of the caller's choice. Null also when it is in use, or no slot of the pool. */
    void *(*AllocAt)(Tq4_pool p, unsigned slot, void *param, Tq4_id *id);
    /* The same for the slot that an id names, lent under that very id; spends a serial number all the same. Null also
     * when id is null or its l is 0. */
    void *(*AllocBy)(Tq4_pool p, void *param, const Tq4_id *id);
    /* The payload that is lent under the id; null for none. */
    void *(*Peek)(Tq4_pool p, const Tq4_id *id);
    /* The payload that is lent in the slot; null for none. */
    void *(*PeekAt)(Tq4_pool p, unsigned slot);
    /* The slot that the id names, whether it is lent or not, and even when the pool has no such slot. 0 for null. */
    unsigned (*ToIndex)(Tq4_pool p, const Tq4_id *id);
    /* How many payloads are lent. */
    unsigned long (*Counts)(Tq4_pool p);
    /* Gives back: calls Reset and keeps the payload. 1; 0 when nothing is lent under the id, which is so inside that
     * Reset already. */
    int (*Recycle)(Tq4_pool p, const Tq4_id *id);
    /* Gives back all that is lent, in the order in which it was lent. */
    void (*RecycleAll)(Tq4_pool p);
    /* Calls visitor(payload, param) for all that is lent, in that order, until it returns non-zero. It may give back
     * what it is shown. When it gives back others too, the walk may end early. */
    void (*each)(Tq4_pool p, Tq4_pool_visitor visitor, void *param);
};

extern TQ4_API const Tq4_object_itf *const Tq4_pool_oitf;

TQ4_END_DECLS

#endif
