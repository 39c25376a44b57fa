/* value.h: Tq4_value, one dynamically typed cell: a tag and a word, or what the word owns. */
#ifndef TQ4_VALUE_H
#define TQ4_VALUE_H

#include "tq4/key.h"
#include "tq4/string_array.h"

TQ4_BEGIN_DECLS

/* The tags; the numbers travel in the binary encoding. */
typedef enum Tq4_value_type {
    Tq4_value_Unknown = 0, /* empty */
    Tq4_value_CHAR = 1,
    Tq4_value_UCHAR = 2,
    Tq4_value_SHORT = 3,
    Tq4_value_USHORT = 4,
    Tq4_value_INT = 5,
    Tq4_value_UINT = 6,
    Tq4_value_LONG = 7,
    Tq4_value_ULONG = 8,
    Tq4_value_PTR = 9,         /* raw pointer, not owned */
    Tq4_value_Ref = 10,        /* handle of another value, not owned */
    Tq4_value_FloatStart = 11, /* range marker, an 8-byte cell */
    Tq4_value_INT64 = 12,
    Tq4_value_UINT64 = 13,
    Tq4_value_FLOAT = 14,
    Tq4_value_DOUBLE = 15,
    Tq4_value_LDOUBLE = 16,    /* 80-bit extended in a 16-byte cell */
    Tq4_value_ArrayStart = 17, /* range marker */
    Tq4_value_STRING = 18,     /* text */
    Tq4_value_PCHAR = 19,      /* text or bytes, what SetString makes */
    Tq4_value_PUCHAR = 20,     /* bytes, what AppendBytes makes */
    Tq4_value_PSHORT = 21,     /* packed elements from here on */
    Tq4_value_PUSHORT = 22,
    Tq4_value_PINT = 23,
    Tq4_value_PUINT = 24,
    Tq4_value_PLONG = 25,
    Tq4_value_PULONG = 26,
    Tq4_value_PFLOAT = 27,
    Tq4_value_PDOUBLE = 28,
    Tq4_value_PLDOUBLE = 29,
    Tq4_value_ArrayOtherObject = 30, /* marker */
    Tq4_value_STRINGARRAY = 31,      /* a Tq4_string_array */
    Tq4_value_Table = 32,            /* a Tq4_value_table */
    Tq4_value_End = 33               /* upper bound */
} Tq4_value_type;

typedef struct Tq4_value_ Tq4_value_;
typedef const Tq4_value_ **Tq4_value; /* handle */
typedef struct Tq4_value_table_ Tq4_value_table_;
typedef const Tq4_value_table_ **Tq4_value_table; /* handle */

/* A printf-like output function; called on the calling thread. */
typedef void (*Tq4_echo)(void *context, const char *format, ...);

struct Tq4_value_ {
    long (*Dump)(Tq4_value v, Tq4_string out);
    int (*Import)(Tq4_value v, const char *buf, int len);
    Tq4_value_type (*Type)(Tq4_value v);
    void (*Init)(Tq4_value v, Tq4_value_type type);
    void (*SetString)(Tq4_value v, const char *text, int len);
    void (*SetChar)(Tq4_value v, signed char value);
    void (*SetShort)(Tq4_value v, short value);
    void (*SetLong)(Tq4_value v, long value);
    void (*SetInt)(Tq4_value v, int value);
    void (*SetFloat)(Tq4_value v, float value);
    void (*SetDouble)(Tq4_value v, double value);
    void (*SetInt64)(Tq4_value v, long long value);
    void (*SetUChar)(Tq4_value v, unsigned char value);
    void (*SetUShort)(Tq4_value v, unsigned short value);
    void (*SetULong)(Tq4_value v, unsigned long value);
    void (*SetUInt)(Tq4_value v, unsigned value);
    void (*SetShortArray)(Tq4_value v, const short *elements, int count);
    void (*SetIntArray)(Tq4_value v, const int *elements, int count);
    void (*SetLongArray)(Tq4_value v, const long *elements, int count);
    void (*SetFloatArray)(Tq4_value v, const float *elements, int count);
    void (*SetDoubleArray)(Tq4_value v, const double *elements, int count);
    void (*SetUShortArray)(Tq4_value v, const unsigned short *elements, int count);
    void (*SetUIntArray)(Tq4_value v, const unsigned *elements, int count);
    void (*SetULongArray)(Tq4_value v, const unsigned long *elements, int count);
    void (*SetStringArray)(Tq4_value v, Tq4_string_array array);
    void (*SetTable)(Tq4_value v, Tq4_value_table table);
    void (*SetPtr)(Tq4_value v, const void *pointer);
    void (*SetRef)(Tq4_value v, Tq4_value target);
    void (*AppendString)(Tq4_value v, Tq4_string string);
    void (*AppendStringArray)(Tq4_value v, Tq4_string_array array);
    void (*AppendShort)(Tq4_value v, short element);
    void (*AppendLong)(Tq4_value v, long element);
    void (*AppendInt)(Tq4_value v, int element);
    void (*AppendUShort)(Tq4_value v, unsigned short element);
    void (*AppendULong)(Tq4_value v, unsigned long element);
    void (*AppendUInt)(Tq4_value v, unsigned element);
    void (*AppendFloat)(Tq4_value v, float element);
    void (*AppendDouble)(Tq4_value v, double element);
    void (*AppendBytes)(Tq4_value v, const char *bytes, int len);
    /* 39-42, 46-49: one function, which returns the whole 64-bit word; callers narrow it. */
    long (*GetChar)(Tq4_value v);
    long (*GetShort)(Tq4_value v);
    long (*GetInt)(Tq4_value v);
    long (*GetLong)(Tq4_value v);
    float (*GetFloat)(Tq4_value v);
    double (*GetDouble)(Tq4_value v);
    long (*GetInt64)(Tq4_value v);
    long (*GetUChar)(Tq4_value v);
    long (*GetUShort)(Tq4_value v);
    long (*GetUInt)(Tq4_value v);
    long (*GetULong)(Tq4_value v);
    void *(*GetPtr)(Tq4_value v);
    char *(*GetBytes)(Tq4_value v, unsigned long *len);
    /* The unsigned getters are the signed ones of the same width. */
    short *(*GetShortArray)(Tq4_value v, unsigned long *count);
    int *(*GetIntArray)(Tq4_value v, unsigned long *count);
    long *(*GetLongArray)(Tq4_value v, unsigned long *count);
    float *(*GetFloatArray)(Tq4_value v, unsigned long *count);
    double *(*GetDoubleArray)(Tq4_value v, unsigned long *count);
    short *(*GetUShortArray)(Tq4_value v, unsigned long *count);
    int *(*GetUIntArray)(Tq4_value v, unsigned long *count);
    long *(*GetULongArray)(Tq4_value v, unsigned long *count);
    Tq4_string (*GetString)(Tq4_value v);
    Tq4_string_array (*GetStringArray)(Tq4_value v);
    Tq4_value_table (*GetValueTable)(Tq4_value v);
    Tq4_value (*GetRef)(Tq4_value v);
    void (*Echo)(Tq4_value v, Tq4_echo echo, void *context, int compact);
    void (*Print)(Tq4_value v);
    const char *(*Json_encode)(Tq4_value v, Tq4_string out);
    int (*Json_decode)(Tq4_value v, const char *text, int len);
    Tq4_value (*SetSS)(Tq4_value v, const char *key, const char *text);
    Tq4_value (*SetIS)(Tq4_value v, unsigned long key, const char *text);
    Tq4_value (*SetSI)(Tq4_value v, const char *key, long n);
    Tq4_value (*SetII)(Tq4_value v, unsigned long key, long n);
    Tq4_value (*SetPtrS)(Tq4_value v, const char *key, void *pointer);
    Tq4_value (*SetPtrI)(Tq4_value v, unsigned long key, void *pointer);
    Tq4_value (*InsertS)(Tq4_value v, const char *key);
    Tq4_value (*InsertI)(Tq4_value v, unsigned long key);
    Tq4_value (*InsertK)(Tq4_value v, Tq4_key key);
    Tq4_value (*InsertAt)(Tq4_value v, int index);
    void (*RemoveAt)(Tq4_value v, int index);
    void (*ModifyKeyK)(Tq4_value v, int index, Tq4_key key);
    void (*ModifyKeyS)(Tq4_value v, int index, const char *text);
    void (*ModifyKeyI)(Tq4_value v, int index, unsigned long n);
    Tq4_value (*ValueK)(Tq4_value v, Tq4_key key);
    Tq4_value (*ValueS)(Tq4_value v, const char *key);
    Tq4_value (*ValueI)(Tq4_value v, unsigned long key);
    void *(*PtrK)(Tq4_value v, Tq4_key key);
    void *(*PtrS)(Tq4_value v, const char *key);
    void *(*PtrI)(Tq4_value v, unsigned long key);
    char *(*BytesK)(Tq4_value v, Tq4_key key, unsigned long *len);
    char *(*BytesS)(Tq4_value v, const char *key, unsigned long *len);
    char *(*BytesI)(Tq4_value v, unsigned long key, unsigned long *len);
    unsigned long (*BaseK)(Tq4_value v, Tq4_key key);
    unsigned long (*BaseS)(Tq4_value v, const char *key);
    unsigned long (*BaseI)(Tq4_value v, unsigned long key);
    long (*Int64K)(Tq4_value v, Tq4_key key);
    long (*Int64S)(Tq4_value v, const char *key);
    long (*Int64I)(Tq4_value v, unsigned long key);
    Tq4_value (*First)(Tq4_value v, Tq4_key *key);
    Tq4_value (*Next)(Tq4_value v, Tq4_key *key);
    Tq4_value (*At)(Tq4_value v, int index, Tq4_key *key);
    void (*RemoveK)(Tq4_value v, Tq4_key key);
    void (*RemoveS)(Tq4_value v, const char *key);
    void (*RemoveI)(Tq4_value v, unsigned long key);
    void (*RemoveAll)(Tq4_value v);
    unsigned long (*Count)(Tq4_value v);
};

extern TQ4_API const Tq4_object_itf *const Tq4_value_oitf;

TQ4_END_DECLS

#endif
