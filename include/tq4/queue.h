/* queue.h: Tq4_queue, a list of items each carrying a payload, and Tq4_queue_item, such an item.
 *
 * A queue is a sequence with cheap ends. It may own a lock, which makes every operation on it and on its items atomic,
 * and an event, which insertions set and for which readers may wait. Positions count from the head, 0 first. The ends
 * cost the same at any size. Other positions are walked to from the nearest end or from the position used last. So a
 * loop over all positions is linear in all, also when it removes items or inserts others beside them.
 *
 * Ownership: a linked item belongs to its queue and is deleted with it; an item that a Remove operation returns belongs
 * to the caller. An item owns its payload when it was attached with a deleter: deleting the item then calls the deleter
 * once, outside the queue's lock.
 *
 * wait is a time-out in milliseconds: 0 does not wait, all ones waits without limit. Without an event nobody waits. A
 * reader in a queue with an event looks first. When it finds nothing it waits for the event, once, and looks again. So
 * null means that the time-out passed, that somebody called Set, or that another reader was faster; a consumer that
 * goes on after null reads in a loop. With a lock and a single thread that takes items out, null before the time-out
 * means Set.
 *
 * The event resets by itself: each time it is set it lets one waiter through, a reader or a Wait, and setting it again
 * before that adds nothing. A reader passes it on while items remain, so no item waits beside a waiting reader. A
 * thread that calls Wait takes the event too: it should then read without waiting, or the item may stay beside readers
 * that wait. Other readers may have been faster, and then its Wait ended for nothing.
 *
 * To end a consumer that waits without limit, ask it to quit and then Set:
 *     (*thread)->NotifyQuit(thread);
 *     (*q)->Set(q);
 * Several consumers of one queue are ended when each of them calls Set as it leaves: one Set lets one of them through.
 *
 * Copy does nothing and Equal is identity, for queues and for items. Dup gives an empty queue, which has neither lock
 * nor event whatever its source has (ThreadSafe and EventSync make them), or an unlinked item without a payload. Reset
 * of a queue is RemoveAll; of an item, it leaves its queue and destroys its payload.
 *
 * Threads: with the lock, any; else one at a time. An item that moves from one queue to another is that of one thread
 * meanwhile: either queue's lock guards it only inside that queue. Visitors, comparators and on_swap run on the calling
 * thread with the lock held; comparators and on_swap must not call back into the queue. With a null visitor or
 * comparator nothing happens.
 */
#ifndef TQ4_QUEUE_H
#define TQ4_QUEUE_H

#include "tq4/object.h"

TQ4_BEGIN_DECLS

typedef struct Tq4_queue_ Tq4_queue_;
typedef const Tq4_queue_ **Tq4_queue; /* handle */
typedef struct Tq4_queue_item_ Tq4_queue_item_;
typedef const Tq4_queue_item_ **Tq4_queue_item; /* handle */

/* Given to Create; null means both 0. */
typedef struct Tq4_queue_CreateParams {
    short thread_safe_flag; /* non-zero: make a lock */
    short event_sync_flag;  /* non-zero: make an event */
} Tq4_queue_CreateParams;

typedef int (*Tq4_queue_obj_compare)(void *a, void *b, void *param);
typedef int (*Tq4_queue_visitor)(void *payload, void *param);
typedef void (*Tq4_queue_on_swap)(void *a, void *b);
typedef void (*Tq4_queue_deleter)(void *payload);

struct Tq4_queue_ {
    /* Makes (non-zero) or deletes (0) the lock; while no other thread uses the queue. */
    void (*ThreadSafe)(Tq4_queue q, int on);
    /* Makes or deletes the event; a new one is unset, whatever the queue holds. While no other thread uses the queue.
     */
    void (*EventSync)(Tq4_queue q, int on);
    /* Sorts the payloads ascending by compare, which gives a negative number, 0 or a positive one. Payloads move with
     * their deleters, items keep their places. Equal payloads may change places. A comparator that does not give
     * exactly opposite answers for the first and the last payload leaves the queue as it is. n log n comparisons at
     * most. While it runs it takes 16 bytes an item, with an on_swap 24. */
    void (*QSort)(Tq4_queue q, Tq4_queue_obj_compare compare, void *param);
    /* The number of linked items. */
    unsigned long (*Count)(Tq4_queue q);
    /* Takes all items out in one step, resets the event, and deletes them from the head on, outside the lock. What a
     * deleter inserts stays. */
    void (*RemoveAll)(Tq4_queue q);
    /* Waits for the event: 1 when it was or became set, 0 on time-out or without an event. The event is unset then. It
     * may have been set for an item that somebody took meanwhile. */
    int (*Wait)(Tq4_queue q, unsigned long wait);
    /* Sets the event, if there is one: one reader that waits, now or next, ends its wait whatever the queue holds. */
    void (*Set)(Tq4_queue q);
    /* Takes the item out of the queue it is in and links it before the position index, counted without it; at or past
     * the count, at the end. Sets the event. Returns item, also when q is null; null items are ignored. */
    Tq4_queue_item (*InsertAt)(Tq4_queue q, Tq4_queue_item item, unsigned long index);
    /* InsertAt position 0. */
    Tq4_queue_item (*PutHead)(Tq4_queue q, Tq4_queue_item item);
    /* InsertAt the end. */
    Tq4_queue_item (*PutTail)(Tq4_queue q, Tq4_queue_item item);
    /* The payload of At. */
    void *(*PeekObj)(Tq4_queue q, unsigned long index, unsigned long wait);
    /* The item at index, past the end the last one; null when the queue is empty. It stays linked. */
    Tq4_queue_item (*At)(Tq4_queue q, unsigned long index, unsigned long wait);
    /* The first item. */
    Tq4_queue_item (*Head)(Tq4_queue q, unsigned long wait);
    /* The last item. */
    Tq4_queue_item (*Tail)(Tq4_queue q, unsigned long wait);
    /* Unlinks the item of At and gives it to the caller. While more items remain the event is set again, so that it
     * serves all readers that wait for it. */
    Tq4_queue_item (*RemoveAt)(Tq4_queue q, unsigned long index, unsigned long wait);
    /* RemoveAt the first. */
    Tq4_queue_item (*RemoveHead)(Tq4_queue q, unsigned long wait);
    /* RemoveAt the last. */
    Tq4_queue_item (*RemoveTail)(Tq4_queue q, unsigned long wait);
    /* Calls visitor(payload, param) for all payloads from the head on until it returns non-zero. It may remove the item
     * that it is shown. */
    void (*each)(Tq4_queue q, Tq4_queue_visitor visitor, void *param);
    /* The same for at most n payloads from index on; none when index is at or past the count or n is not positive. */
    void (*Range)(Tq4_queue q, unsigned long index, int n, Tq4_queue_visitor visitor, void *param);
    /* Sets a function that the sort calls after every swap with the two payloads in their new places; null for none. */
    void (*SetOnSwap)(Tq4_queue q, Tq4_queue_on_swap on_swap);
};

struct Tq4_queue_item_ {
    /* The queue that the item is in, null for none. */
    Tq4_queue (*Queue)(Tq4_queue_item i);
    /* Unlinks the item, which then belongs to the caller; an unlinked one stays as it is. */
    void (*Remove)(Tq4_queue_item i);
    /* Moves the item to the front of its queue, without setting the event. */
    void (*ToHead)(Tq4_queue_item i);
    /* Moves it to the back. */
    void (*ToTail)(Tq4_queue_item i);
    /* Replaces the payload (borrowed when deleter is null) and its deleter, and returns the previous payload, which is
     * not destroyed and now belongs to the caller. */
    void *(*Attach)(Tq4_queue_item i, void *payload, Tq4_queue_deleter deleter);
    /* The payload, null for none. */
    void *(*GetAttach)(Tq4_queue_item i);
    /* The following item, null at the end and for an unlinked item. */
    Tq4_queue_item (*Next)(Tq4_queue_item i);
    /* The preceding item, null at the front. */
    Tq4_queue_item (*Pre)(Tq4_queue_item i);
    /* Takes other out of its queue and links it before i, without setting the event. Returns other; next to itself, or
     * to an unlinked item, it stays where it is. */
    Tq4_queue_item (*AddBefore)(Tq4_queue_item i, Tq4_queue_item other);
    /* The same, after i. */
    Tq4_queue_item (*AddAfter)(Tq4_queue_item i, Tq4_queue_item other);
};

extern TQ4_API const Tq4_object_itf *const Tq4_queue_oitf;
extern TQ4_API const Tq4_object_itf *const Tq4_queue_item_oitf;

/* A static record of the module; opaque. */
extern TQ4_API const void *const Tq4_queue_00;

TQ4_END_DECLS

#endif
