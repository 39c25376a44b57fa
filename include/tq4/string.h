/* string.h: Tq4_string, a growable byte string.
 *
 * The text is bytes, normally UTF-8, and may hold NULs; lengths never count a terminating NUL. Texts and bytes given
 * to an operation are borrowed for the call, and may lie inside the string itself: the operation works as if they had
 * been copied first. Texts and pointers that an operation returns lie in the string and are valid until it is next
 * changed or deleted.
 *
 * With the text a pair of quote characters is remembered, for example the quotes that surrounded it when it was
 * parsed. Operations that replace the whole text clear it, all others keep it.
 *
 * When the room for a longer text cannot exist or be had, text and quote stay as they are. Positions and indexes
 * count bytes from 0. A length of TQ4_ALL_ONES means up to the NUL, which must then be there. Case and blanks are
 * ASCII, whatever the locale.
 *
 * Create takes a NUL-terminated text (const char *, copied) or null for an empty string. Reset empties the text and
 * clears the quote. Copy takes over the source's text and clears the destination's quote; a null source empties.
 * Equal is 1 when quote, length and bytes are equal. Dup takes over the text and the quote.
 *
 * Null handles: operations that return the string, a text or a pointer give null, all others 0, except where noted.
 * Operations described without a result return the string, for chaining, unless they are declared void.
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

/* How formats differ from C's printf. They are the same for every operation of the library that takes one.
 *
 *     format                  writes                          its argument
 *     %.*s %.*d               as without a precision          the '*' takes NONE: the number that C expects there is
 *                                                             taken for the text, and the process is likely to crash
 *     %.4*d                   as %.4d                         the '*' takes none
 *     %i %n %E %F %G %a %A    nothing                         not taken: the next conversion gets it; %n stores nothing
 *     %zu %hd %hhu %jd %Lf    what follows z, h, j, t or L,   likewise
 *                             as text: "u", "d", "hu"
 *     % d %#x %'d %1$d        what follows the blank, #, '    likewise
 *                             or $, as text: "d", "x"
 *     %+-5d %0-5d             what follows the second flag,   likewise (the order is '-', '+', '0')
 *                             as text: "5d"
 *     %5%                     nothing; "%%" is one %          none
 *     %s of null              nothing, not even the width     taken
 *     %8s                     padded to 8 display columns; a  taken; the precision counts bytes
 *                             character of more than one
 *                             byte counts as two
 *     %ls %lc                 as %s; as %c                    a char *, no wchar_t *; 64 bits, 8 of them written
 *     %I64d                   as %lld                         64 bits
 *     %e %f %g                with '.', whatever the locale   a double, also behind l and ll
 *     %m                      as the GNU C library writes it  none: the system error number at the call
 *
 * So a size_t is written by %lu, an int by %d, and a text of known length by Strncat. Compilers that check formats as
 * C's would not see these differences. */
struct Tq4_string_ {
    /* As Equal, with letters compared without regard to case; the quotes are compared as they are. Two nulls are
     * equal, a null and a string are not. */
    int (*EqualCase)(Tq4_string s, Tq4_string other);
    /* 1 when the text has the string's length and bytes, with ignore_case non-zero without regard to case, else 0. The
     * quote does not matter. A null string equals only a null text, and a null text only a null string. */
    int (*EqualStr)(Tq4_string s, const char *text, int ignore_case);
    /* Keeps the first n bytes; nothing happens when there are no more than n. */
    Tq4_string (*truncate)(Tq4_string s, unsigned long n);
    /* Removes the last n bytes. When there are no more than n, the text is emptied and the quote cleared. */
    Tq4_string (*truncate_tail)(Tq4_string s, unsigned long n);
    /* Replaces the text by exactly len bytes, NULs included (TQ4_ALL_ONES: up to the NUL). A null text or a length of 0
     * leaves it empty. */
    Tq4_string (*Strncpy)(Tq4_string s, const char *text, unsigned long len);
    /* Replaces the text by a NUL-terminated one; null leaves it empty. */
    Tq4_string (*Strcpy)(Tq4_string s, const char *text);
    /* Appends exactly len bytes, NULs included (TQ4_ALL_ONES: up to the NUL). A null text is ignored. */
    Tq4_string (*Strncat)(Tq4_string s, const char *text, unsigned long len);
    /* Appends a NUL-terminated text; null is ignored. */
    Tq4_string (*Strcat)(Tq4_string s, const char *text);
    /* Replace the text by a formatted one, or append one. A conversion is %[-][+][0][width or *][.digits][I64|ll|l]
     * and one of d u o x X c e f g p s m; the table in front of this structure tells how that differs from C. Return
     * the bytes written by this call, 0 when there was no room for them. A null format writes nothing. */
    long (*Sprintf)(Tq4_string s, const char *format, ...);
    long (*Sprintf_append)(Tq4_string s, const char *format, ...);
    long (*vSprintf)(Tq4_string s, const char *format, va_list args);
    long (*vsprintf_append)(Tq4_string s, const char *format, va_list args);
    /* As Strncpy and Strncat. */
    Tq4_string (*Memcpy)(Tq4_string s, const void *bytes, unsigned long len);
    Tq4_string (*Memcat)(Tq4_string s, const void *bytes, unsigned long len);
    /* Insert a formatted text before the byte at position, at the end when position is at or past it. */
    Tq4_string (*insert)(Tq4_string s, unsigned long position, const char *format, ...);
    Tq4_string (*vinsert)(Tq4_string s, unsigned long position, const char *format, va_list args);
    /* Inserts count copies of c before the byte at position, at the end when position is at or past it. */
    Tq4_string (*insert_char)(Tq4_string s, unsigned long position, char c, unsigned long count);
    /* Inserts len bytes before the byte at position, at the end when position is at or past it. Null is ignored. */
    Tq4_string (*insert_str)(Tq4_string s, unsigned long position, const void *bytes, unsigned long len);
    /* Removes count bytes from position on, fewer when the text ends before. Nothing happens when position is at or
     * past the end. */
    Tq4_string (*del)(Tq4_string s, unsigned long position, unsigned long count);
    /* Replaces every byte equal to from by to. */
    Tq4_string (*Replace)(Tq4_string s, char from, char to);
    /* Appends one byte. */
    Tq4_string (*addch)(Tq4_string s, char c);
    /* Appends count copies of c. */
    Tq4_string (*addnch)(Tq4_string s, char c, unsigned long count);
    /* Makes the text length bytes long: cuts it, or appends bytes of the low eight bits of fill. With a negative fill
     * the appended bytes are unset, for the caller to write. */
    void (*resize)(Tq4_string s, unsigned long length, int fill);
    /* Appends n unset bytes and returns where they start, for the caller to write. Null when there is no room. */
    char *(*Extend)(Tq4_string s, unsigned long n);
    /* The text, NUL-terminated; the length stays. Making room for the NUL may move the text, and pointers into it from
     * before are then invalid. When there can be no room, the NUL takes the place of the last byte. */
    const char *(*c_str)(Tq4_string s);
    /* The length in bytes. */
    long (*length)(Tq4_string s);
    /* Remove blanks and tabs at the front; blanks, tabs, line feeds and carriage returns at the end; both. Line ends at
     * the front stay. */
    void (*TrimLeft)(Tq4_string s);
    void (*TrimRight)(Tq4_string s);
    void (*Trim)(Tq4_string s);
    /* The index of the last byte equal to c; TQ4_ALL_ONES when there is none. */
    unsigned long (*FindLastChar)(Tq4_string s, char c);
    /* Looks for the pattern of len bytes from *position on (null: from 0). Returns where it starts in the text and
     * stores that index in *position; null, with *position unchanged, when it is not found, and for a null or empty
     * pattern. A byte that does not match is not tried again as the start of the pattern: "ab" is not found in "aab".
     */
    const char *(*Find)(Tq4_string s, unsigned long *position, const char *pattern, unsigned long len);
    /* The same backwards from the last byte, with the pattern compared from its last byte; what *position holds before
     * does not matter. */
    const char *(*FindLast)(Tq4_string s, unsigned long *position, const char *pattern, unsigned long len);
    /* Looks for a bracketed piece of text. The first open at or after start and the first close at or after that are
     * found; for each further open between the two, one more close is stepped to. Returns where the first open starts,
     * with its index in *open_position and that of the last close in *close_position (either may be null); null when
     * an open or a close is missing. Closes are found as Find finds them; opens behind the first close do not count,
     * so that "(a(b)(c)d)" ends at index 7. */
    const char *(*MatchBrack)(Tq4_string s, unsigned long start, const char *open, const char *close,
                              unsigned long *open_position, unsigned long *close_position);
    /* Change the case of the letters in place. */
    Tq4_string (*Upper)(Tq4_string s);
    Tq4_string (*Lower)(Tq4_string s);
    /* The byte at index, 0 .. 255; -1 at or past the end. */
    short (*GetAt)(Tq4_string s, unsigned long index);
    /* Sets the byte at index; ignored at or past the end. */
    void (*SetAt)(Tq4_string s, unsigned long index, char c);
    /* Reverses the order of the bytes. */
    void (*Reverse)(Tq4_string s);
    /* The quote pair, both zero when there is none. SetQuote remembers one; it does not change the text. */
    Tq4_quote (*GetQuote)(Tq4_string s);
    void (*SetQuote)(Tq4_string s, Tq4_quote quote);
    /* Appends a number of len bytes, given in host order, in network order: reversed on a little-endian host. Null is
     * ignored. */
    void (*host2net)(Tq4_string s, const void *bytes, unsigned long len);
    /* Makes the text width bytes long. Mode 'L': padded with pad, or cut, on the right. 'R': padded, or cut, on the
     * left. 'M': padded on both sides, the larger half on the right, or cut on the right. Any other mode changes
     * nothing. */
    Tq4_string (*Align)(Tq4_string s, char mode, char pad, unsigned long width);
    /* Replace the text by a date, or append one.
     *
     * A time (seconds) of 0 .. 86399 is a time of day, with day 0, month 1 and the year 1900; every other one counts
     * from the epoch and is shown in local time. In the pattern, YYYY is the year in four digits; YY the year of the
     * century, MM the month, MI the minute, DD the day of the month, HH the hour, KK the quarter of the hour counted
     * from 01, and SS the second, in two digits. Each is all in upper or all in lower case. The letters D, H, K, M, S
     * and Y that form none of these write nothing, in either case; every other character is copied. Nothing is written
     * for a null pattern or a time whose year has no calendar. */
    Tq4_string (*FormatDate)(Tq4_string s, long time, const char *pattern);
    Tq4_string (*Append_FormatDate)(Tq4_string s, long time, const char *pattern);
    /* The text read as a date, in seconds since the epoch, local time, with daylight saving as the system knows it; -1
     * when the system cannot tell. The pattern is as for FormatDate: each of its units takes its digits from the text
     * (KK sets the minute to the start of the quarter, YY means 20YY), letters that write nothing take nothing, every
     * other character skips one byte of the text. A unit with fewer digits there than it needs takes those and stays
     * unset. What is not set is 0: the year 1900, the month January, but the day 0, the last of the month before. */
    long (*ToTime)(Tq4_string s, const char *pattern);
    /* The text as a whole number; first trims the string in place. Base 16: an optional '-' and hexadecimal digits, up
     * to the first other character; an 'x' or 'X' restarts the value, so that "0x1F" is 31. Every other base, 2 too:
     * the decimal number at the front of the text, up to the first character that is no digit; 0 when there is none.
     * What does not fit is the largest or smallest long. */
    long (*ToInt)(Tq4_string s, int base);
    /* The decimal number at the front of the text, as the C library reads it but with a point in every
     * locale; 0 when there is none. */
    double (*ToFloat)(Tq4_string s);
    /* The text as one character. "0x..": the low eight bits of the hexadecimal value. A backslash and n, r, t, 0 or a
     * backslash: that escape; with anything else a blank. Any other text that starts with '0': '0'. Else the low eight
     * bits of the text's decimal value. */
    char (*ToChar)(Tq4_string s);
    /* The period, in seconds, after which a name dated with the pattern changes: that of the pattern's last unit. MM
     * 2592000, DD 86400, HH 3600, KK 900, MI 60, SS 1, YY 31536000; YYYY keeps the period of the unit before it. A
     * pattern without units, or null, gives 31536000. Takes no string. */
    long (*GetTimePeriod)(const char *pattern);
    /* Appends the Base64 encoding of len bytes (TQ4_ALL_ONES: up to the NUL), with a line feed after every 80
     * characters that encode whole groups of three bytes: after every 60 bytes, also at the end of the text when it
     * falls there. A padded group ends the text without one. Returns the whole text. Null bytes append nothing. */
    const char *(*Base64Encode)(Tq4_string s, const void *bytes, unsigned long len);
    /* Appends the bytes that the Base64 text encodes. Carriage returns and line feeds are skipped, the first other
     * character outside the alphabet ends the decoding, an incomplete last group of four is dropped. Returns the whole
     * text. */
    const char *(*Base64Decode)(Tq4_string s, const char *text, unsigned long len);
    /* Decodes one UTF-8 character of 1 to 6 bytes and appends it as one 16-bit unit in host order. Returns the bytes
     * consumed. Errors append nothing: 0 for an empty input, -1 when no character starts with the first byte, minus the
     * length of the form when its bytes are malformed or cut short, or when the character has no 16-bit unit, -7 for a
     * first byte of FE or FF. With a null string it only measures, characters without a 16-bit unit too. */
    int (*utf8_2_unicode_onece)(Tq4_string s, const char *bytes, unsigned long len);
    /* Conversions between UTF-8, GB18030 (edition of 2022) and 16-bit units in host order. All append; they stop at the
     * first malformed or cut character, and at the first without a counterpart, and keep what they have. Lengths are in
     * bytes, of units too, whose odd last byte is ignored; TQ4_ALL_ONES means up to the NUL, for units up to a zero
     * unit. Results are the bytes appended; of utf8_2_unicode the units. A null text appends nothing.
     *
     * UTF-8 and GB18030 convert whole code points into each other. 16-bit units hold the code points below 10000 (hex):
     * a larger one ends the conversion to them, and surrogates are not paired. */
    long (*utf8_2_unicode)(Tq4_string s, const char *text, unsigned long len);
    long (*unicode_2_utf8)(Tq4_string s, const uint16_t *units, unsigned long bytes);
    long (*utf8_2_gb18030)(Tq4_string s, const char *text, unsigned long len);
    long (*gb18030_2_utf8)(Tq4_string s, const char *text, unsigned long len);
    long (*unicode_2_gb18030)(Tq4_string s, const uint16_t *units, unsigned long bytes);
    long (*gb18030_2_unicode)(Tq4_string s, const char *text, unsigned long len);
    /* Scramble and unscramble with a key, a NUL-terminated text; what comes out is appended. This hides text from a
     * casual reader and is no encryption. The scrambled form of n bytes is n rounded up to a multiple of 8, and one
     * byte more when that was not n. Return the length of the whole text; 0, and nothing happens, when bytes or key are
     * null or len is 0. */
    long (*enc)(Tq4_string s, const void *bytes, unsigned long len, const char *key);
    long (*dec)(Tq4_string s, const void *bytes, unsigned long len, const char *key);
};

extern TQ4_API const Tq4_object_itf *const Tq4_string_oitf;

TQ4_END_DECLS

#endif
