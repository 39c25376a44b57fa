/* strmap2.h: Tq4_strmap2, the light string map: the key text lies in a field of 32 bytes beside an integer. */
#ifndef TQ4_STRMAP2_H
#define TQ4_STRMAP2_H

#include "tq4/strmap.h"

TQ4_BEGIN_DECLS

typedef struct Tq4_strmap2_ Tq4_strmap2_;
typedef const Tq4_strmap2_ **Tq4_strmap2; /* handle */

struct Tq4_strmap2_ {
    unsigned long (*HashTableSize)(Tq4_strmap2 m);
    void (*Init)(Tq4_strmap2 m, unsigned long count);
    int (*Count)(Tq4_strmap2 m);
    int (*IsEmpty)(Tq4_strmap2 m);
    void (*CaseFlag)(Tq4_strmap2 m, int flag);
    void *(*LookupI)(Tq4_strmap2 m, unsigned long number);
    void *(*LookupS)(Tq4_strmap2 m, const char *text);
    void *(*LookupSI)(Tq4_strmap2 m, const char *text, unsigned long number);
    void (*SetAtI)(Tq4_strmap2 m, void *value, unsigned long number);
    void (*SetAtS)(Tq4_strmap2 m, void *value, const char *text);
    void (*SetAtSI)(Tq4_strmap2 m, void *value, const char *text, unsigned long number);
    void *(*RemoveI)(Tq4_strmap2 m, unsigned long number);
    void *(*RemoveS)(Tq4_strmap2 m, const char *text);
    void *(*RemoveSI)(Tq4_strmap2 m, const char *text, unsigned long number);
    void (*RemoveAll)(Tq4_strmap2 m);
    void *(*NextSI)(Tq4_strmap2 m, const char **text, unsigned long *number, void **position);
    void (*each)(Tq4_strmap2 m, Tq4_strmap_visitor visitor, void *param);
};

extern TQ4_API const Tq4_object_itf *const Tq4_strmap2_oitf;

TQ4_END_DECLS

#endif
