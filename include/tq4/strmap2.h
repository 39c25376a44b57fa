/* strmap2.h: Tq4_strmap2, the light string map: a key is a text in a field of 32 bytes beside a number.
 *
 * It knows three forms of key, which are distinct: I, a number; S, a text; SI, a text with a number. Buckets, order,
 * case flag, values, iteration and what Create, Reset, Copy and Equal do are those of strmap.h. A null text is empty.
 *
 * Texts must be shorter than 32 bytes. Of a longer one the first 32 bytes are stored, and such an entry is equal to no
 * text, deliberately: it is counted and iterated over, but never found or replaced, so that every further insertion of
 * the text adds another one. Only RemoveAll removes it.
 *
 * Null handles give null or 0. Visitors run on the calling thread. Threads: as at strmap.h.
 */
#ifndef TQ4_STRMAP2_H
#define TQ4_STRMAP2_H

#include "tq4/strmap.h"

TQ4_BEGIN_DECLS

typedef struct Tq4_strmap2_ Tq4_strmap2_;
typedef const Tq4_strmap2_ **Tq4_strmap2; /* handle */

struct Tq4_strmap2_ {
    /* These five are those of Tq4_strmap. */
    unsigned long (*HashTableSize)(Tq4_strmap2 m);
    void (*Init)(Tq4_strmap2 m, unsigned long count);
    int (*Count)(Tq4_strmap2 m);
    int (*IsEmpty)(Tq4_strmap2 m);
    void (*CaseFlag)(Tq4_strmap2 m, int flag);
    /* The value under a key; null when there is none. */
    void *(*LookupI)(Tq4_strmap2 m, unsigned long number);
    void *(*LookupS)(Tq4_strmap2 m, const char *text);
    void *(*LookupSI)(Tq4_strmap2 m, const char *text, unsigned long number);
    /* Replace the value under a key, or add an entry at the front of its chain. */
    void (*SetAtI)(Tq4_strmap2 m, void *value, unsigned long number);
    void (*SetAtS)(Tq4_strmap2 m, void *value, const char *text);
    void (*SetAtSI)(Tq4_strmap2 m, void *value, const char *text, unsigned long number);
    /* Remove the entry under a key and return its value; null when there is none. */
    void *(*RemoveI)(Tq4_strmap2 m, unsigned long number);
    void *(*RemoveS)(Tq4_strmap2 m, const char *text);
    void *(*RemoveSI)(Tq4_strmap2 m, const char *text, unsigned long number);
    /* Removes all entries. Buckets and case flag stay. */
    void (*RemoveAll)(Tq4_strmap2 m);
    /* Iterates as Tq4_strmap's NextSI. The text is never null: of a number it is empty; the number of a text is 0. At
     * the end the text is null. */
    void *(*NextSI)(Tq4_strmap2 m, const char **text, unsigned long *number, void **position);
    /* Calls visitor for each entry in that order until it returns non-zero. It may remove the entry that it is shown.
     */
    void (*each)(Tq4_strmap2 m, Tq4_strmap_visitor visitor, void *param);
};

extern TQ4_API const Tq4_object_itf *const Tq4_strmap2_oitf;

TQ4_END_DECLS

#endif
