/* reorder.h: Tq4_reorder, a window of packets by sequence number, for either end of a connection.
 *
 * A ring of slots for sequence numbers in a row. The receiving end caches packets as they come (CacheItem) and releases
 * them in order (GetItemWait). The sending end keeps what it sent (SafeWait) until it is acknowledged (Ack). The head
 * is the oldest sequence number not yet released or acknowledged; what follows it without a gap is ready.
 *
 * Sequence numbers are 32 bits and wrap: of two numbers the one up to 2^31 - 1 further on is the later one.
 *
 * Data is any pointer. What a buffer holds is its own, and freed by its delete function when it is dropped; a result of
 * 0 or less leaves the data with the caller. Null data is possible and never freed.
 *
 * Object-level: Create takes null and gives a buffer without slots, which holds nothing and has room for nothing until
 * Init. Delete frees what is held. Reset does too and makes it as new. Copy does nothing; a buffer equals only itself;
 * Dup gives an empty buffer of the same size, delete function and hold-back.
 * Out parameters may be null. Null handles give 0 or null.
 *
 * Threads: none; a buffer belongs to one thread at a time. Callbacks and the delete function run on the caller's, and
 * may look at the buffer but not change it.
 */
#ifndef TQ4_REORDER_H
#define TQ4_REORDER_H

#include "tq4/object.h"

TQ4_BEGIN_DECLS

typedef struct Tq4_reorder_ Tq4_reorder_;
typedef const Tq4_reorder_ **Tq4_reorder; /* handle */

/* Frees data, which is not null. */
typedef void (*Tq4_reorder_delete)(void *data);
/* Shown a slot. What the result means is the operation's. */
typedef int (*Tq4_reorder_visitor)(unsigned seq, void *data, void *context);

struct Tq4_reorder_ {
    /* Frees what is held with the delete function of before. Then begins anew with size slots, at sequence number 0, no
     * first number seen. size is 1 to 65536; any other counts as the nearest of these. A null delete_data is free.
     * max_wait is that of SetMaxwait. */
    void (*Init)(Tq4_reorder b, int size, Tq4_reorder_delete delete_data, int max_wait);
    /* Sets the head's sequence number; CacheItem takes none of its own then. */
    void (*SetFirstSeq)(Tq4_reorder b, unsigned seq);
    /* Sets the highest hold-back that late packets may bring about: 0 (none) to the size less 2; others are taken as
     * the nearest. */
    void (*SetMaxwait)(Tq4_reorder b, int max_wait);
    /* Receiving end: stores a packet. The first number ever stored becomes the head's. Results:
     *   n     it closed the first gap: n packets are ready now; n is the size when the window is full (logged)
     *   1     stored behind a gap, or it brought the data of a slot that was appended without
     *   0     an old packet. Each raises the hold-back by one, up to the highest
     *   -1    beyond the window (logged; mode 0 prints it too)
     *   -100  a duplicate
     * A negative mode makes room for a packet beyond the window. Packets are dropped from the head (each logged) until
     * it fits or none is ready. If it still does not fit, the head jumps to it and everything else that is held is
     * dropped.
     * Null data appends a held slot without data behind those that are ready, whatever seq and mode are. Then the
     * result is 1, or 0 when the window is full (logged). */
    int (*CacheItem)(Tq4_reorder b, unsigned seq, void *data, int mode);
    /* Receiving end: takes the head's data; the caller owns it. *seq gets the head's number. A wait above 0 is the
     * number of packets that must be ready first; when late packets have raised the hold-back above it, the hold-back
     * counts instead. *empty is 1 when nothing was taken, else 0: a slot without data gives null and 0. */
    void *(*GetItemWait)(Tq4_reorder b, unsigned *seq, int wait, int *empty);
    /* CacheItem in mode 1, answering 1 for stored and 0 for anything else. */
    int (*SafeCache)(Tq4_reorder b, unsigned seq, void *data);
    /* GetItemWait without a hold-back. */
    void *(*SafeGet)(Tq4_reorder b, unsigned *seq);
    /* The head's sequence number: the first one that is not confirmed. */
    unsigned (*GetNok)(Tq4_reorder b);
    /* Sending end: stores data behind those that are ready, under the next sequence number, which *seq gets. 1, or 0
     * when the window is full. */
    int (*SafeWait)(Tq4_reorder b, unsigned *seq, void *data);
    /* The same as GetSendSeq. */
    unsigned (*GetNck)(Tq4_reorder b);
    /* Sending end: confirms everything up to and including seq. The callback, when not null, is shown each slot; by a
     * result other than 0 it keeps the data, which is freed otherwise. Gives the number of slots that were confirmed.
     * Other results:
     *   0   none is ready
     *   -3  seq is before the head
     *   -4  seq is beyond the window (logged)
     *   -5  seq is beyond what is ready (logged) */
    int (*Ack)(Tq4_reorder b, unsigned seq, Tq4_reorder_visitor callback, void *context);
    /* The sequence number that SafeWait gives next. */
    unsigned (*GetSendSeq)(Tq4_reorder b);
    /* 1 when nothing is ready, even while packets behind a gap are held. */
    int (*IsEmpty)(Tq4_reorder b);
    /* 1 when every slot is ready. */
    int (*IsFull)(Tq4_reorder b);
    /* The data held for a sequence number; it stays the buffer's. Null when there is none, and when nothing is ready.
     */
    void *(*PeekData)(Tq4_reorder b, unsigned seq);
    /* Shows every held slot from the head on, those behind gaps too, until the callback gives another result than 0. */
    void (*each)(Tq4_reorder b, Tq4_reorder_visitor callback, void *context);
    /* The same for those that are ready. */
    void (*each_nok)(Tq4_reorder b, Tq4_reorder_visitor callback, void *context);
};

extern TQ4_API const Tq4_object_itf *const Tq4_reorder_oitf;

TQ4_END_DECLS

#endif
