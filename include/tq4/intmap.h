/* intmap.h: Tq4_intmap, a chained hash map from one, two or three 64-bit integers to pointers that it does not own. */
#ifndef TQ4_INTMAP_H
#define TQ4_INTMAP_H

#include "tq4/object.h"

TQ4_BEGIN_DECLS

typedef struct Tq4_intmap_ Tq4_intmap_;
typedef const Tq4_intmap_ **Tq4_intmap; /* handle */

typedef int (*Tq4_intmap_visitor)(unsigned long k1, unsigned long k2, unsigned long k3, void *value, void *param);

struct Tq4_intmap_ {
    unsigned long (*HashTableSize)(Tq4_intmap m);
    void (*Init)(Tq4_intmap m, unsigned long count);
    int (*Count)(Tq4_intmap m);
    int (*IsEmpty)(Tq4_intmap m);
    void *(*Lookup1)(Tq4_intmap m, unsigned long k1);
    void *(*Lookup2)(Tq4_intmap m, unsigned long k1, unsigned long k2);
    void *(*Lookup3)(Tq4_intmap m, unsigned long k1, unsigned long k2, unsigned long k3);
    void (*SetAt1)(Tq4_intmap m, void *value, unsigned long k1);
    void (*SetAt2)(Tq4_intmap m, void *value, unsigned long k1, unsigned long k2);
    void (*SetAt3)(Tq4_intmap m, void *value, unsigned long k1, unsigned long k2, unsigned long k3);
    void *(*Remove1)(Tq4_intmap m, unsigned long k1);
    void *(*Remove2)(Tq4_intmap m, unsigned long k1, unsigned long k2);
    void *(*Remove3)(Tq4_intmap m, unsigned long k1, unsigned long k2, unsigned long k3);
    void (*RemoveAll)(Tq4_intmap m);
    void *(*Next)(Tq4_intmap m, unsigned long *k1, unsigned long *k2, unsigned long *k3, void **position);
    void (*each)(Tq4_intmap m, Tq4_intmap_visitor visitor, void *param);
};

extern TQ4_API const Tq4_object_itf *const Tq4_intmap_oitf;

TQ4_END_DECLS

#endif
