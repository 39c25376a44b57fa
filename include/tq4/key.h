/* key.h: Tq4_key, the key of a value table: a number, a string, or both, and how it hashes.
 *
 * A key has a kind, a numeric part of 64 bits, an optional string and a case flag. The kind says which of them identify
 * the key; keys of different kinds are never equal. The string is bytes and may hold NULs. Keys of kinds 1 to 3 may
 * carry a string too: a mere label, which travels with the key but is neither compared nor hashed.
 *
 * The numeric part is one word that can be read whole (GetL) or in halves: h is the half at the lower address, l the
 * other one, so that on a little-endian host the word is l * 2^32 + h. Kinds 1 and 5 keep their number in l.
 *
 * Create ignores its parameter and gives an empty key; so does Reset. Copy takes over everything; a null source
 * empties. Equal is 1 when the kinds are the same and so is what identifies a key of that kind: nothing (0), l (1), the
 * word (2), both halves (3), the string (4), the string and l (5), the word (6) or both halves (7). Strings compare by
 * length and bytes, without regard to the case of ASCII letters when either key has its case flag set; a key without a
 * string equals only one without.
 *
 * Texts are borrowed for the call and may be the key's own. Null handles give null or 0.
 *
 * Threads: a key belongs to one thread at a time.
 */
#ifndef TQ4_KEY_H
#define TQ4_KEY_H

#include "tq4/string.h"

TQ4_BEGIN_DECLS

/* The kinds; the numbers travel in the binary encoding. Keys of a kind from 8 to 15 come only from a peer: they hash to
 * 0 and are identified by the word. */
typedef enum Tq4_key_type TQ4_INT {
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
    /* Appends the key's binary encoding to out and returns its length in bytes. 0, and nothing
     * is appended, when the string has more than 65535 bytes or out is null. docs/wire-formats.md describes the
     * encoding. */
    long (*Dump)(Tq4_key k, Tq4_string out);
    /* Makes the key what the first bytes of buf encode and returns how many they are. When the encoding runs past len,
     * the result is len, and the key has what came before; a len of 0 or less, which is also the result, leaves it
     * empty, and so does a null buf, with 0. */
    int (*Import)(Tq4_key k, const char *buf, int len);
    /* The hash that maps use, in wrapping 64-bit arithmetic from the hash s of the string (see Tq4_key_HashString; over
     * all its bytes, ignoring case when nocase or the key's flag is non-zero, 0 without a string). By kind: 0; l; the
     * word; h * 16 + l, deliberately not by the 33 of the others; s; s * 33 + l; s * 33 + word; (s * 33 + h) * 33 + l.
     */
    unsigned long (*Hash)(Tq4_key k, int nocase);
    /* Sets the case flag: non-zero, the string compares and hashes without regard to case. */
    void (*SetNoCase)(Tq4_key k, int flag);
    /* Make the key anew: kind, number, string, and the case flag, 0 for kinds 1 to 3. A null text or label leaves the
     * key without a string, which is not the same as an empty one. SetS takes exactly len bytes (-1: up to the NUL),
     * the others take the text up to its NUL. */
    void (*SetS)(Tq4_key k, const char *text, int len, int nocase);
    void (*SetI)(Tq4_key k, unsigned i, const char *label);
    void (*SetL)(Tq4_key k, unsigned long l, const char *label);
    void (*SetII)(Tq4_key k, unsigned h, unsigned l, const char *label);
    void (*SetIS)(Tq4_key k, unsigned i, const char *text, int nocase);
    void (*SetLS)(Tq4_key k, unsigned long l, const char *text, int nocase);
    void (*SetIIS)(Tq4_key k, unsigned h, unsigned l, const char *text, int nocase);
    /* The kind. */
    Tq4_key_type (*GetType)(Tq4_key k);
    /* The numeric part, whatever the kind: its halves h and l, and the word. */
    unsigned (*GetIH)(Tq4_key k);
    unsigned (*GetIL)(Tq4_key k);
    unsigned long (*GetL)(Tq4_key k);
    /* The string, or label, NUL-terminated, until the key is next changed or deleted; null when there is none. */
    const char *(*GetS)(Tq4_key k);
    /* 1 when the key is of kind 1, 2, 3, 4 or 6 and has this number and text, else 0. The text ends at its NUL; it is
     * compared without regard to case when nocase or the key's flag is non-zero. A null text equals only a key without
     * a string. */
    int (*EqualI)(Tq4_key k, unsigned i);
    int (*EqualL)(Tq4_key k, unsigned long l);
    int (*EqualII)(Tq4_key k, unsigned h, unsigned l);
    int (*EqualS)(Tq4_key k, const char *text, int nocase);
    int (*EqualLS)(Tq4_key k, unsigned long l, const char *text, int nocase);
    /* Scramble and unscramble data with the key as in Tq4_string's enc and dec, which say what comes out. The cipher
     * key is the number in network order, l in four bytes for kinds 1 and 5 and the word in eight for all others, and
     * then for kinds 4 to 7 the string. Append to out and return its whole length; 0, and nothing happens, when data or
     * out is null or len is 0. */
    long (*enc)(Tq4_key k, const char *data, unsigned long len, Tq4_string out);
    long (*dec)(Tq4_key k, const char *data, unsigned long len, Tq4_string out);
};

extern TQ4_API const Tq4_object_itf *const Tq4_key_oitf;

/* The hash of a text up to its NUL: h = h * 33 + c over its bytes, from 0, in wrapping 64-bit arithmetic. The bytes
 * count as signed, deliberately: 0xE4 as -28. With nocase non-zero each byte is lower-cased first, by the C library's
 * locale. Peers compute the same. Null gives 0. */
TQ4_API unsigned long Tq4_key_HashString(const char *text, int nocase);
/* The number itself. */
TQ4_API unsigned long Tq4_key_HashLong(unsigned long l);
/* The text's hash * 33 + l: what a key of kind 6 hashes to. */
TQ4_API unsigned long Tq4_key_HashLS(unsigned long l, const char *text, int nocase);

TQ4_END_DECLS

#endif
