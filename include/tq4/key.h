/* key.h: Tq4_key, the key of a value table: numbers, a string, or both. */
#ifndef TQ4_KEY_H
#define TQ4_KEY_H

#include "tq4/string.h"

TQ4_BEGIN_DECLS

typedef enum Tq4_key_type {
    Tq4_key_type_Unvalid = 0, /* empty key */
    Tq4_key_type_I = 1,       /* one unsigned 32-bit integer */
    Tq4_key_type_L = 2,       /* one unsigned 64-bit integer */
    Tq4_key_type_II = 3,      /* two unsigned 32-bit integers */
    Tq4_key_type_String = 4,  /* a byte string */
    Tq4_key_type_IS = 5,      /* a 32-bit integer and a string */
    Tq4_key_type_LS = 6,      /* a 64-bit integer and a string */
    Tq4_key_type_IIS = 7      /* two 32-bit integers and a string */
} Tq4_key_type;

typedef struct Tq4_key_ Tq4_key_;
typedef const Tq4_key_ **Tq4_key; /* handle */

struct Tq4_key_ {
    long (*Dump)(Tq4_key k, Tq4_string out);
    int (*Import)(Tq4_key k, const char *buf, int len);
    unsigned long (*Hash)(Tq4_key k, int nocase);
    void (*SetNoCase)(Tq4_key k, int flag);
    void (*SetS)(Tq4_key k, const char *text, int len, int nocase);
    void (*SetI)(Tq4_key k, unsigned i, const char *label);
    void (*SetL)(Tq4_key k, unsigned long l, const char *label);
    void (*SetII)(Tq4_key k, unsigned h, unsigned l, const char *label);
    void (*SetIS)(Tq4_key k, unsigned i, const char *text, int nocase);
    void (*SetLS)(Tq4_key k, unsigned long l, const char *text, int nocase);
    void (*SetIIS)(Tq4_key k, unsigned h, unsigned l, const char *text, int nocase);
    Tq4_key_type (*GetType)(Tq4_key k);
    unsigned (*GetIH)(Tq4_key k);
    unsigned (*GetIL)(Tq4_key k);
    unsigned long (*GetL)(Tq4_key k);
    const char *(*GetS)(Tq4_key k);
    int (*EqualI)(Tq4_key k, unsigned i);
    int (*EqualL)(Tq4_key k, unsigned long l);
    int (*EqualII)(Tq4_key k, unsigned h, unsigned l);
    int (*EqualS)(Tq4_key k, const char *text, int nocase);
    int (*EqualLS)(Tq4_key k, unsigned long l, const char *text, int nocase);
    long (*enc)(Tq4_key k, const char *data, unsigned long len, Tq4_string out);
    long (*dec)(Tq4_key k, const char *data, unsigned long len, Tq4_string out);
};

extern TQ4_API const Tq4_object_itf *const Tq4_key_oitf;

TQ4_API unsigned long Tq4_key_HashString(const char *text, int nocase);
TQ4_API unsigned long Tq4_key_HashLong(unsigned long l);
TQ4_API unsigned long Tq4_key_HashLS(unsigned long l, const char *text, int nocase);

TQ4_END_DECLS

#endif
