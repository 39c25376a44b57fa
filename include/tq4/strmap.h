/* strmap.h: Tq4_strmap, a chained hash map from keys of any kind to pointers that it does not own. */
#ifndef TQ4_STRMAP_H
#define TQ4_STRMAP_H

#include "tq4/key.h"

TQ4_BEGIN_DECLS

typedef struct Tq4_strmap_ Tq4_strmap_;
typedef const Tq4_strmap_ **Tq4_strmap; /* handle */

typedef int (*Tq4_strmap_key_visitor)(Tq4_key key, void *value, void *param);
typedef int (*Tq4_strmap_visitor)(const char *text, unsigned long number, void *value, void *param);

struct Tq4_strmap_ {
    unsigned long (*HashTableSize)(Tq4_strmap m);
    void (*Init)(Tq4_strmap m, unsigned long count);
    int (*Count)(Tq4_strmap m);
    int (*IsEmpty)(Tq4_strmap m);
    void (*CaseFlag)(Tq4_strmap m, int flag);
    void *(*LookupK)(Tq4_strmap m, Tq4_key key);
    void *(*LookupI)(Tq4_strmap m, unsigned long number);
    void *(*LookupS)(Tq4_strmap m, const char *text);
    void *(*LookupSI)(Tq4_strmap m, const char *text, unsigned long number);
    void (*SetAtK)(Tq4_strmap m, void *value, Tq4_key key);
    void (*SetAtI)(Tq4_strmap m, void *value, unsigned long number);
    void (*SetAtS)(Tq4_strmap m, void *value, const char *text);
    void (*SetAtSI)(Tq4_strmap m, void *value, const char *text, unsigned long number);
    void *(*RemoveK)(Tq4_strmap m, Tq4_key key);
    void *(*RemoveI)(Tq4_strmap m, unsigned long number);
    void *(*RemoveS)(Tq4_strmap m, const char *text);
    void *(*RemoveSI)(Tq4_strmap m, const char *text, unsigned long number);
    void (*RemoveAll)(Tq4_strmap m);
    void *(*NextK)(Tq4_strmap m, Tq4_key *key, void **position);
    void *(*NextSI)(Tq4_strmap m, const char **text, unsigned long *number, void **position);
    void (*eachKV)(Tq4_strmap m, Tq4_strmap_key_visitor visitor, void *param);
    void (*each)(Tq4_strmap m, Tq4_strmap_visitor visitor, void *param);
};

extern TQ4_API const Tq4_object_itf *const Tq4_strmap_oitf;

TQ4_END_DECLS

#endif
