/* strmap.h: Tq4_strmap, a chained hash map from keys of any kind to pointers.
 *
 * Operations come in four forms, which name four distinct keys: K, a key object of any kind; I, a number, the same as a
 * key of kind 2; S, a text, of kind 4; SI, a text with a number, of kind 6. A null text is a key without a string.
 *
 * An entry stands in the bucket (hash of its key) modulo (bucket count), in a chain with the newest first; the bucket
 * count is 17 and changes only by Init. That order is what iterations show and what look-ups go by. It is not what they
 * cost: look-up, insertion and removal cost the same at any size, whatever the keys, the flags and their history.
 *
 * The case flag decides how look-ups hash and compare, and what is stored in a new entry's key. Entries keep the bucket
 * of the flag under which they were added, deliberately: after a change, an entry is found only where its old bucket
 * happens to be the one asked for.
 *
 * Values are borrowed and may be null; keys are copied, through the hooks of cxx_support.h. A null value found cannot
 * be told from an absent key.
 *
 * Create ignores its parameter. Reset gives what Create gives: no entries, 17 buckets, no case flag. Copy gives the
 * same buckets, flag, keys and values, in the same order; a null source resets. Equal is 1 when the maps have the same
 * keys with the same values in the same order, and both or neither ignore case.
 *
 * Null handles give null or 0. Visitors run on the calling thread. Threads: a map belongs to one thread at a time, or
 * to any number of readers while nobody changes it. Reading is: LookupK to LookupSI, Count, IsEmpty, HashTableSize,
 * Equal, each and eachKV, NextK and NextSI with positions of the reader's own, and being copied. Keys shown are not
 * changed by anybody.
 */
#ifndef TQ4_STRMAP_H
#define TQ4_STRMAP_H

#include "tq4/key.h"

TQ4_BEGIN_DECLS

typedef struct Tq4_strmap_ Tq4_strmap_;
typedef const Tq4_strmap_ **Tq4_strmap; /* handle */

/* Return non-zero to stop. The key, and the text, are borrowed from the entry. */
typedef int (*Tq4_strmap_key_visitor)(Tq4_key key, void *value, void *param);
typedef int (*Tq4_strmap_visitor)(const char *text, unsigned long number, void *value, void *param);

struct Tq4_strmap_ {
    /* The number of buckets. */
    unsigned long (*HashTableSize)(Tq4_strmap m);
    /* Sets the number of buckets while the map is empty; nothing happens when it is not, or for 0, a count of more than
     * 32 bits or more than memory can hold. */
    void (*Init)(Tq4_strmap m, unsigned long count);
    /* The number of entries. */
    int (*Count)(Tq4_strmap m);
    /* 1 when there are none, else 0. */
    int (*IsEmpty)(Tq4_strmap m);
    /* Non-zero: texts hash and compare without regard to case from now on. */
    void (*CaseFlag)(Tq4_strmap m, int flag);
    /* The value under a key; null when there is none. LookupK hashes with the key's own case flag or the map's, and
     * compares as the keys' Equal. A null key finds nothing. */
    void *(*LookupK)(Tq4_strmap m, Tq4_key key);
    void *(*LookupI)(Tq4_strmap m, unsigned long number);
    void *(*LookupS)(Tq4_strmap m, const char *text);
    void *(*LookupSI)(Tq4_strmap m, const char *text, unsigned long number);
    /* Replace the value under a key, or add an entry at the front of its chain. SetAtK stores a copy of the key that
     * has the map's case flag instead of its own, deliberately; a null key is ignored. */
    void (*SetAtK)(Tq4_strmap m, void *value, Tq4_key key);
    void (*SetAtI)(Tq4_strmap m, void *value, unsigned long number);
    void (*SetAtS)(Tq4_strmap m, void *value, const char *text);
    void (*SetAtSI)(Tq4_strmap m, void *value, const char *text, unsigned long number);
    /* Remove the entry under a key and return its value; null when there is none. */
    void *(*RemoveK)(Tq4_strmap m, Tq4_key key);
    void *(*RemoveI)(Tq4_strmap m, unsigned long number);
    void *(*RemoveS)(Tq4_strmap m, const char *text);
    void *(*RemoveSI)(Tq4_strmap m, const char *text, unsigned long number);
    /* Removes all entries. Buckets and case flag stay. */
    void (*RemoveAll)(Tq4_strmap m);
    /* Iterate: *position is null to start with. Each call returns the value of an entry, stores its key, or its text
     * (null without one) and the word of its number, where the pointers are not null, and moves *position on, to null
     * after the last entry; in an empty map it gives null. By ascending bucket, in each the newest first. Between the
     * calls the entry shown last may be removed, and no other. The key is borrowed and for reading only: after a change
     * through its handle the entry is found neither by the old key nor by the new one. A null position gives null. */
    void *(*NextK)(Tq4_strmap m, Tq4_key *key, void **position);
    void *(*NextSI)(Tq4_strmap m, const char **text, unsigned long *number, void **position);
    /* Call visitor for each entry in that order until it returns non-zero. It may remove the entry that it is shown. */
    void (*eachKV)(Tq4_strmap m, Tq4_strmap_key_visitor visitor, void *param);
    void (*each)(Tq4_strmap m, Tq4_strmap_visitor visitor, void *param);
};

extern TQ4_API const Tq4_object_itf *const Tq4_strmap_oitf;

TQ4_END_DECLS

#endif
