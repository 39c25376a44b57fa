/* string.h: Tq4_string, a growable byte string.
 *
 * The text is bytes, normally UTF-8, and may hold NULs; lengths never count a terminating NUL. A text or bytes
 * argument may lie inside the string itself: the operation works as if it had been copied first. With the text a pair
 * of quote characters is remembered (for example the quotes that surrounded it when it was parsed); every operation
 * that replaces the whole text clears it. When the room for a longer text cannot exist, the text stays as it is.
 *
 * Create takes a NUL-terminated text (const char *, copied) or null for an empty string. Reset empties the text and
 * clears the quote. Copy takes over the source's text and clears the destination's quote; a null source empties.
 * Equal compares quote, length and bytes. Dup takes over the text and the quote.
 *
 * Null handles: operations that return the string, a text or a pointer give null, all others 0, except where noted.
 * A length of TQ4_ALL_ONES means up to the NUL.
 *
 * Threads: a string belongs to one thread at a time.
 */
#ifndef TQ4_STRING_H
#define TQ4_STRING_H

#include <stdarg.h>
#include <stdint.h>

#include "tq4/object.h"

TQ4_BEGIN_DECLS

typedef struct Tq4_string_ Tq4_string_;
typedef const Tq4_string_ **Tq4_string; /* handle */

/* A pair of quote characters; both zero for none. */
typedef struct Tq4_quote {
    char open;
    char close;
} Tq4_quote;

struct Tq4_string_ {
    int (*EqualCase)(Tq4_string s, Tq4_string other);
    int (*EqualStr)(Tq4_string s, const char *text, int ignore_case);
    Tq4_string (*truncate)(Tq4_string s, unsigned long n);
    Tq4_string (*truncate_tail)(Tq4_string s, unsigned long n);
    Tq4_string (*Strncpy)(Tq4_string s, const char *text, unsigned long len);
    Tq4_string (*Strcpy)(Tq4_string s, const char *text);
    Tq4_string (*Strncat)(Tq4_string s, const char *text, unsigned long len);
    Tq4_string (*Strcat)(Tq4_string s, const char *text);
    long (*Sprintf)(Tq4_string s, const char *format, ...);
    long (*Sprintf_append)(Tq4_string s, const char *format, ...);
    long (*vSprintf)(Tq4_string s, const char *format, va_list args);
    long (*vsprintf_append)(Tq4_string s, const char *format, va_list args);
    Tq4_string (*Memcpy)(Tq4_string s, const void *bytes, unsigned long len);
    Tq4_string (*Memcat)(Tq4_string s, const void *bytes, unsigned long len);
    Tq4_string (*insert)(Tq4_string s, unsigned long position, const char *format, ...);
    Tq4_string (*vinsert)(Tq4_string s, unsigned long position, const char *format, va_list args);
    Tq4_string (*insert_char)(Tq4_string s, unsigned long position, char c, unsigned long count);
    Tq4_string (*insert_str)(Tq4_string s, unsigned long position, const void *bytes, unsigned long len);
    Tq4_string (*del)(Tq4_string s, unsigned long position, unsigned long count);
    Tq4_string (*Replace)(Tq4_string s, char from, char to);
    Tq4_string (*addch)(Tq4_string s, char c);
    Tq4_string (*addnch)(Tq4_string s, char c, unsigned long count);
    void (*resize)(Tq4_string s, unsigned long length, int fill);
    char *(*Extend)(Tq4_string s, unsigned long n);
    const char *(*c_str)(Tq4_string s);
    long (*length)(Tq4_string s);
    void (*TrimLeft)(Tq4_string s);
    void (*TrimRight)(Tq4_string s);
    void (*Trim)(Tq4_string s);
    unsigned long (*FindLastChar)(Tq4_string s, char c);
    const char *(*Find)(Tq4_string s, unsigned long *position, const char *pattern, unsigned long len);
    const char *(*FindLast)(Tq4_string s, unsigned long *position, const char *pattern, unsigned long len);
    const char *(*MatchBrack)(Tq4_string s, unsigned long start, const char *open, const char *close,
                              unsigned long *open_position, unsigned long *close_position);
    Tq4_string (*Upper)(Tq4_string s);
    Tq4_string (*Lower)(Tq4_string s);
    short (*GetAt)(Tq4_string s, unsigned long index);
    void (*SetAt)(Tq4_string s, unsigned long index, char c);
    void (*Reverse)(Tq4_string s);
    Tq4_quote (*GetQuote)(Tq4_string s);
    void (*SetQuote)(Tq4_string s, Tq4_quote quote);
    void (*host2net)(Tq4_string s, const void *bytes, unsigned long len);
    Tq4_string (*Align)(Tq4_string s, char mode, char pad, unsigned long width);
    Tq4_string (*FormatDate)(Tq4_string s, long time, const char *pattern);
    Tq4_string (*Append_FormatDate)(Tq4_string s, long time, const char *pattern);
    long (*ToTime)(Tq4_string s, const char *pattern);
    long (*ToInt)(Tq4_string s, int base);
    double (*ToFloat)(Tq4_string s);
    char (*ToChar)(Tq4_string s);
    long (*GetTimePeriod)(const char *pattern);
    const char *(*Base64Encode)(Tq4_string s, const void *bytes, unsigned long len);
    const char *(*Base64Decode)(Tq4_string s, const char *text, unsigned long len);
    int (*utf8_2_unicode_onece)(Tq4_string s, const char *bytes, unsigned long len);
    long (*utf8_2_unicode)(Tq4_string s, const char *text, unsigned long len);
    long (*unicode_2_utf8)(Tq4_string s, const uint16_t *units, unsigned long bytes);
    long (*utf8_2_gb18030)(Tq4_string s, const char *text, unsigned long len);
    long (*gb18030_2_utf8)(Tq4_string s, const char *text, unsigned long len);
    long (*unicode_2_gb18030)(Tq4_string s, const uint16_t *units, unsigned long bytes);
    long (*gb18030_2_unicode)(Tq4_string s, const char *text, unsigned long len);
    long (*enc)(Tq4_string s, const void *bytes, unsigned long len, const char *key);
    long (*dec)(Tq4_string s, const void *bytes, unsigned long len, const char *key);
};

extern TQ4_API const Tq4_object_itf *const Tq4_string_oitf;

TQ4_END_DECLS

#endif
