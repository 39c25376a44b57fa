/* string_array.h: Tq4_string_array, an ordered list of strings that it owns.
 *
 * The strings are made and deleted through the hooks of cxx_support.h. A string that an operation returns is borrowed:
 * it lives until it is removed. Indexes start at 0 and are not clamped; they cost what positions cost in a queue
 * (queue.h), so a loop over all is linear. A length of TQ4_ALL_ONES means up to the NUL.
 *
 * Create ignores its parameter and gives an empty array. Copy replaces the content by copies; a null source empties.
 * Equal is inverted, deliberately: two arrays of the same size are equal when no pair of strings at the same index is
 * equal, so two empty arrays are, two with the same content are not, and an array equals itself.
 *
 * Null handles give null or 0. Threads: an array belongs to one thread at a time.
 */
#ifndef TQ4_STRING_ARRAY_H
#define TQ4_STRING_ARRAY_H

#include "tq4/string.h"

TQ4_BEGIN_DECLS

typedef struct Tq4_string_array_ Tq4_string_array_;
typedef const Tq4_string_array_ **Tq4_string_array; /* handle */

/* Returns non-zero to stop. */
typedef int (*Tq4_string_visitor)(Tq4_string string, void *context);

struct Tq4_string_array_ {
    /* The number of strings. */
    unsigned long (*Size)(Tq4_string_array a);
    /* The string at index; null at or past the size. */
    Tq4_string (*At)(Tq4_string_array a, unsigned long index);
    /* The first string; null when there is none. */
    Tq4_string (*Head)(Tq4_string_array a);
    /* The last string; null when there is none. */
    Tq4_string (*Tail)(Tq4_string_array a);
    /* Replaces the text of the string at index by len bytes of text and returns it; null when index is out of range. */
    Tq4_string (*Set)(Tq4_string_array a, unsigned long index, const char *text, unsigned long len);
    /* Inserts a new string with the text before index; at or past the size, at the end. */
    void (*Insert)(Tq4_string_array a, unsigned long index, const char *text, unsigned long len);
    /* Inserts copies of all strings of other, which may be a itself, before index; at or past the size, at the end. */
    void (*InsertArray)(Tq4_string_array a, unsigned long index, Tq4_string_array other);
    /* Appends a new string with the text and returns it. */
    Tq4_string (*Add)(Tq4_string_array a, const char *text, unsigned long len);
    /* Appends a copy of string and returns it; null for null. */
    Tq4_string (*AddString)(Tq4_string_array a, Tq4_string string);
    /* Appends copies of all strings of other, which may be a itself. Returns the new size. */
    unsigned long (*Append)(Tq4_string_array a, Tq4_string_array other);
    /* Deletes count strings from index on, fewer at the end. */
    void (*Remove)(Tq4_string_array a, unsigned long index, unsigned long count);
    /* Deletes the last string. */
    void (*RemoveTail)(Tq4_string_array a);
    /* Deletes all strings. */
    void (*RemoveAll)(Tq4_string_array a);
    /* Replaces the content by the fields of a NUL-terminated text. With collapse non-zero, a run of separators is one
     * break; a separator at the very start always gives an empty first field. The last field is added only when it is
     * not empty. Null is an empty text. Returns the new size. */
    unsigned long (*Split)(Tq4_string_array a, const char *text, char separator, int collapse);
    /* The same over all bytes of string, except that the last field is always added, deliberately: an empty string
     * gives one empty field. A null string empties the array. */
    unsigned long (*SplitString)(Tq4_string_array a, Tq4_string string, char separator, int collapse);
    /* Calls visitor(string, context) for each string in order, on the calling thread, until it returns non-zero. */
    void (*each)(Tq4_string_array a, Tq4_string_visitor visitor, void *context);
};

extern TQ4_API const Tq4_object_itf *const Tq4_string_array_oitf;

TQ4_END_DECLS

#endif
