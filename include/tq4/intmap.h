/* intmap.h: Tq4_intmap, a chained hash map from one, two or three 64-bit integers to pointers.
 *
 * An entry has three keys; those not given are 0. It stands in the bucket (k1 + k2 + k3, wrapping) modulo (bucket
 * count), in a chain with the newest first; the bucket count is 17 and changes only by Init. Operations cost the
 * same at any size, whatever the keys.
 *
 * Operations compare as many keys as they are given, deliberately. So (a), (a, 0) and (a, 0, 0) are one entry; and an
 * operation with one key also meets an entry of more keys that begins with it, when that lies in the same bucket: of
 * those that match, the newest one in the chain. With 17 buckets Lookup1(5) does not find (5, 12), but finds (5, 17).
 *
 * Values are borrowed and may be null. Create ignores its parameter. Reset gives what Create gives: no entries and 17
 * buckets. Copy gives the same buckets and entries in the same order; a null source resets. Equal is 1 when the maps
 * have the same keys with the same values in the same order.
 *
 * Null handles give null or 0. Visitors run on the calling thread. Threads: a map belongs to one thread at a time, or
 * to any number of readers while nobody changes it. Reading is: Lookup1 to Lookup3, Count, IsEmpty,
 * HashTableSize, Equal, each, Next with positions of the reader's own, and being copied.
 */
#ifndef TQ4_INTMAP_H
#define TQ4_INTMAP_H

#include "tq4/object.h"

TQ4_BEGIN_DECLS

typedef struct Tq4_intmap_ Tq4_intmap_;
typedef const Tq4_intmap_ **Tq4_intmap; /* handle */

/* Returns non-zero to stop. */
typedef int (*Tq4_intmap_visitor)(unsigned long k1, unsigned long k2, unsigned long k3, void *value, void *param);

struct Tq4_intmap_ {
    /* The number of buckets. */
    unsigned long (*HashTableSize)(Tq4_intmap m);
    /* Sets the number of buckets while the map is empty; nothing happens when it is not, or for 0, a count of more than
     * 32 bits or more than memory can hold. */
    void (*Init)(Tq4_intmap m, unsigned long count);
    /* The number of entries. */
    int (*Count)(Tq4_intmap m);
    /* 1 when there are none, else 0. */
    int (*IsEmpty)(Tq4_intmap m);
    /* The value under the keys given; null when there is none. */
    void *(*Lookup1)(Tq4_intmap m, unsigned long k1);
    void *(*Lookup2)(Tq4_intmap m, unsigned long k1, unsigned long k2);
    void *(*Lookup3)(Tq4_intmap m, unsigned long k1, unsigned long k2, unsigned long k3);
    /* Replace the value of the entry that Lookup finds, or add an entry at the front of its chain. */
    void (*SetAt1)(Tq4_intmap m, void *value, unsigned long k1);
    void (*SetAt2)(Tq4_intmap m, void *value, unsigned long k1, unsigned long k2);
    void (*SetAt3)(Tq4_intmap m, void *value, unsigned long k1, unsigned long k2, unsigned long k3);
    /* Remove the entry that Lookup finds and return its value; null when there is none. */
    void *(*Remove1)(Tq4_intmap m, unsigned long k1);
    void *(*Remove2)(Tq4_intmap m, unsigned long k1, unsigned long k2);
    void *(*Remove3)(Tq4_intmap m, unsigned long k1, unsigned long k2, unsigned long k3);
    /* Removes all entries. The buckets stay. */
    void (*RemoveAll)(Tq4_intmap m);
    /* Iterates: *position is null to start with. Each call returns the value of an entry, stores its keys where the
     * pointers are not null, and moves *position on, to null after the last entry; in an empty map it gives null and
     * keys of 0. By ascending bucket, in each the newest first. Between the calls the entry shown last may be removed,
     * and no other. A null position gives null. */
    void *(*Next)(Tq4_intmap m, unsigned long *k1, unsigned long *k2, unsigned long *k3, void **position);
    /* Calls visitor for each entry in that order until it returns non-zero. It may remove the entry that it is shown.
     */
    void (*each)(Tq4_intmap m, Tq4_intmap_visitor visitor, void *param);
};

extern TQ4_API const Tq4_object_itf *const Tq4_intmap_oitf;

TQ4_END_DECLS

#endif
