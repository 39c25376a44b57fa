/* value_table.h: Tq4_value_table, an insertion-ordered table of typed values with a hash index over its keys. */
#ifndef TQ4_VALUE_TABLE_H
#define TQ4_VALUE_TABLE_H

#include "tq4/value.h"

TQ4_BEGIN_DECLS

typedef int (*Tq4_value_table_visitor)(Tq4_key key, Tq4_value value, void *param);

struct Tq4_value_table_ {
    long (*Dump)(Tq4_value_table t, Tq4_string out);
    int (*Import)(Tq4_value_table t, const char *buf, int len);
    Tq4_value (*SetSS)(Tq4_value_table t, const char *key, const char *text);
    Tq4_value (*SetIS)(Tq4_value_table t, unsigned long key, const char *text);
    Tq4_value (*SetSI)(Tq4_value_table t, const char *key, long n);
    Tq4_value (*SetII)(Tq4_value_table t, unsigned long key, long n);
    Tq4_value (*SetSInt64)(Tq4_value_table t, const char *key, long long n);
    Tq4_value (*SetIInt64)(Tq4_value_table t, unsigned long key, long long n);
    Tq4_value (*SetPtrS)(Tq4_value_table t, const char *key, void *pointer);
    Tq4_value (*SetPtrI)(Tq4_value_table t, unsigned long key, void *pointer);
    Tq4_value (*InsertS)(Tq4_value_table t, const char *key);
    Tq4_value (*InsertI)(Tq4_value_table t, unsigned long key);
    Tq4_value (*InsertK)(Tq4_value_table t, Tq4_key key);
    Tq4_value (*InsertAt)(Tq4_value_table t, int index);
    void (*RemoveAt)(Tq4_value_table t, int index);
    void (*ModifyKeyK)(Tq4_value_table t, int index, Tq4_key key);
    void (*ModifyKeyS)(Tq4_value_table t, int index, const char *text);
    void (*ModifyKeyI)(Tq4_value_table t, int index, unsigned long n);
    Tq4_value_table (*InsertTableI)(Tq4_value_table t, unsigned long key);
    Tq4_value_table (*InsertTableS)(Tq4_value_table t, const char *key);
    Tq4_value_table (*InsertTableK)(Tq4_value_table t, Tq4_key key);
    Tq4_value (*ValueK)(Tq4_value_table t, Tq4_key key);
    Tq4_value (*ValueS)(Tq4_value_table t, const char *key);
    Tq4_value (*ValueI)(Tq4_value_table t, unsigned long key);
    Tq4_value_table (*TableK)(Tq4_value_table t, Tq4_key key);
    Tq4_value_table (*TableS)(Tq4_value_table t, const char *key);
    Tq4_value_table (*TableI)(Tq4_value_table t, unsigned long key);
    void *(*PtrK)(Tq4_value_table t, Tq4_key key);
    void *(*PtrS)(Tq4_value_table t, const char *key);
    void *(*PtrI)(Tq4_value_table t, unsigned long key);
    char *(*BytesK)(Tq4_value_table t, Tq4_key key, unsigned long *len);
    char *(*BytesS)(Tq4_value_table t, const char *key, unsigned long *len);
    char *(*BytesI)(Tq4_value_table t, unsigned long key, unsigned long *len);
    unsigned long (*BaseK)(Tq4_value_table t, Tq4_key key);
    unsigned long (*BaseS)(Tq4_value_table t, const char *key);
    unsigned long (*BaseI)(Tq4_value_table t, unsigned long key);
    long (*Int64K)(Tq4_value_table t, Tq4_key key);
    long (*Int64S)(Tq4_value_table t, const char *key);
    long (*Int64I)(Tq4_value_table t, unsigned long key);
    Tq4_value (*First)(Tq4_value_table t, Tq4_key *key);
    Tq4_value (*Next)(Tq4_value_table t, Tq4_key *key);
    Tq4_value (*At)(Tq4_value_table t, int index, Tq4_key *key);
    void (*RemoveK)(Tq4_value_table t, Tq4_key key);
    void (*RemoveS)(Tq4_value_table t, const char *key);
    void (*RemoveI)(Tq4_value_table t, unsigned long key);
    void (*RemoveAll)(Tq4_value_table t);
    unsigned long (*Count)(Tq4_value_table t);
    Tq4_value_table (*Append)(Tq4_value_table t, Tq4_value_table source);
    void (*CaseFlag)(Tq4_value_table t, int flag);
    void (*each)(Tq4_value_table t, Tq4_value_table_visitor visitor, void *param);
    void (*Print)(Tq4_value_table t);
    void (*Echo)(Tq4_value_table t, Tq4_echo echo, void *context, int compact);
};

extern TQ4_API const Tq4_object_itf *const Tq4_value_table_oitf;

TQ4_END_DECLS

#endif
