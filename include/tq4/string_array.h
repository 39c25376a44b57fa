/* string_array.h: Tq4_string_array, an ordered list of strings that it owns. */
#ifndef TQ4_STRING_ARRAY_H
#define TQ4_STRING_ARRAY_H

#include "tq4/string.h"

TQ4_BEGIN_DECLS

typedef struct Tq4_string_array_ Tq4_string_array_;
typedef const Tq4_string_array_ **Tq4_string_array; /* handle */

typedef int (*Tq4_string_visitor)(Tq4_string string, void *context);

struct Tq4_string_array_ {
    unsigned long (*Size)(Tq4_string_array a);
    Tq4_string (*At)(Tq4_string_array a, unsigned long index);
    Tq4_string (*Head)(Tq4_string_array a);
    Tq4_string (*Tail)(Tq4_string_array a);
    Tq4_string (*Set)(Tq4_string_array a, unsigned long index, const char *text, unsigned long len);
    void (*Insert)(Tq4_string_array a, unsigned long index, const char *text, unsigned long len);
    void (*InsertArray)(Tq4_string_array a, unsigned long index, Tq4_string_array other);
    Tq4_string (*Add)(Tq4_string_array a, const char *text, unsigned long len);
    Tq4_string (*AddString)(Tq4_string_array a, Tq4_string string);
    unsigned long (*Append)(Tq4_string_array a, Tq4_string_array other);
    void (*Remove)(Tq4_string_array a, unsigned long index, unsigned long count);
    void (*RemoveTail)(Tq4_string_array a);
    void (*RemoveAll)(Tq4_string_array a);
    unsigned long (*Split)(Tq4_string_array a, const char *text, char separator, int collapse);
    unsigned long (*SplitString)(Tq4_string_array a, Tq4_string string, char separator, int collapse);
    void (*each)(Tq4_string_array a, Tq4_string_visitor visitor, void *context);
};

extern TQ4_API const Tq4_object_itf *const Tq4_string_array_oitf;

TQ4_END_DECLS

#endif
