/* value.h: Tq4_value, one dynamically typed cell.
 *
 * A value is a tag and what the tag says: nothing (0), a number or pointer in one 64-bit word (1 to 10), a number in a
 * cell of its own (12 to 16), bytes in a Tq4_string (18 to 29; from 21 on they are packed array elements, in host order
 * and without gaps), a Tq4_string_array (31), or a Tq4_value_table (32). The tags 11, 17, 30 and 33 mark
 * ranges; values get them only by Init or from a peer.
 *
 * Ownership: a value owns its string, array or table, which are made and deleted through the hooks of cxx_support.h;
 * the pointer of a PTR and the value of a Ref are borrowed, and never looked at. What an operation is given is borrowed
 * for the call, and copied. What a getter returns is borrowed until the value is next set, initialised, reset or
 * deleted.
 *
 * What is given may lie in the value itself (its own text, a table inside it), but for the string given to Dump,
 * Json_encode and ToJson.
 *
 * No operation tells of an error. A setter changes the type as it says; a getter that does not fit the type gives 0 or
 * null; an append that does not fit stores nothing. Text is never converted to a number or a number to text.
 *
 * Create ignores its parameter and gives an empty value; so does Reset. Copy gives an equal value with objects of its
 * own, deep down; PTR and Ref point where they did; a null source does nothing, and the source may lie inside. Equal is
 * 1 when the tags are the same and the content is: words by their bits, floating numbers as numbers (NaN is never
 * equal), strings, arrays and tables as their modules say, string arrays thus in their inverted sense. Values of the
 * tags 0, 11, 17 and 33 are never equal, deliberately, two empty values neither.
 *
 * Lengths and counts given are int; a length of -1 means up to the NUL. Null handles give null or 0.
 *
 * Threads: a value, with all inside it, belongs to one thread at a time.
 */
#ifndef TQ4_VALUE_H
#define TQ4_VALUE_H

#include "tq4/key.h"
#include "tq4/string_array.h"

TQ4_BEGIN_DECLS

/* The tags; the numbers travel in the binary encoding. */
typedef enum Tq4_value_type TQ4_INT {
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

/* A printf-like output function, with formats of Tq4_string's Sprintf and the context given with it. Called on the
 * calling thread; it must not change what is being written. */
typedef void (*Tq4_echo)(void *context, const char *format, ...);

struct Tq4_value_ {
    /* Appends the value's binary encoding to out and returns its length in bytes. 0, and nothing is appended, when out
     * is null or a table in the value has a key whose string is longer than 65535 bytes. String arrays of 65536
     * elements or more, and their elements of as many bytes, are cut to that number modulo 65536; texts and packed
     * arrays likewise to 32 bits. docs/wire-formats.md describes the encoding. */
    long (*Dump)(Tq4_value v, Tq4_string out);
    /* Makes the value what the first bytes of buf encode and returns how many they are; 0, and an empty value, when buf
     * is null or len is not positive.
     *
     * Bytes from a stranger go through Check first. Import itself takes any bytes. A tag above 33 leaves the value
     * empty and a number that is cut off leaves it 0; both consume everything. An array or string that is longer than
     * the input is reported through Printf and log of the debug interface, at level 0, up to ten times in one call. A
     * string then stays empty and everything is consumed; of a packed array the elements that are there are read, those
     * missing are 0, and the result is the position reached; a string array keeps the elements before. Tables inside
     * more than 512 others are left empty and everything is consumed.
     *
     * One call holds at most 64 times its input and a megabyte. Zeros that the input does not hold are at most 256
     * kilobytes in all; what else would take more ends the decoding, and everything is consumed. A table of more than
     * 16,384 entries may take more when its entries have 3 bytes or fewer; Check gives 0 for it.
     *
     * Stops the process on the assertion "len > 0" when an entry of a table ends with its key.
     * PTR and Ref arrive as the bare numbers that the peer sent: not to be followed. */
    int (*Import)(Tq4_value v, const char *buf, int len);
    /* The tag. */
    Tq4_value_type (*Type)(Tq4_value v);
    /* Empties the value and gives it a type: the number 0, a null pointer, or a new empty string, array or table.
     * A type above 33 is 0. */
    void (*Init)(Tq4_value v, Tq4_value_type type);
    /* Makes the value text of exactly len bytes, NULs included (-1: up to the NUL); null is an empty text. The tag
     * becomes PCHAR, deliberately not STRING. */
    void (*SetString)(Tq4_value v, const char *text, int len);
    /* Make the value a number of the type in the name, extended to 64 bits: signed types by their sign, others by
     * zeros. SetInt64 keeps the tag of a value that is UINT64, deliberately, and makes all others INT64. */
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
    /* Make the value a packed array of the type in the name: PSHORT to PDOUBLE, with copies of count elements. Null
     * elements, or a count that is not positive, give an empty array. */
    void (*SetShortArray)(Tq4_value v, const short *elements, int count);
    void (*SetIntArray)(Tq4_value v, const int *elements, int count);
    void (*SetLongArray)(Tq4_value v, const long *elements, int count);
    void (*SetFloatArray)(Tq4_value v, const float *elements, int count);
    void (*SetDoubleArray)(Tq4_value v, const double *elements, int count);
    void (*SetUShortArray)(Tq4_value v, const unsigned short *elements, int count);
    void (*SetUIntArray)(Tq4_value v, const unsigned *elements, int count);
    void (*SetULongArray)(Tq4_value v, const unsigned long *elements, int count);
    /* Make the value a string array or table, equal to the one given. A null one makes it an empty one, and changes
     * nothing when the value already has that type. */
    void (*SetStringArray)(Tq4_value v, Tq4_string_array array);
    void (*SetTable)(Tq4_value v, Tq4_value_table table);
    /* Make the value a pointer or a reference to another value, both borrowed for as long as they are in it. */
    void (*SetPtr)(Tq4_value v, const void *pointer);
    void (*SetRef)(Tq4_value v, Tq4_value target);
    /* Appends the text of string. To a string array it is added as a new element. To text (STRING, PCHAR or PUCHAR) its
     * bytes are appended. In every case but the string array the tag becomes STRING, deliberately: a packed array's
     * bytes are text from then on, and any other value is released and has no text. Null is ignored. */
    void (*AppendString)(Tq4_value v, Tq4_string string);
    /* Appends copies of all elements, which may be its own, when the value is a string array. */
    void (*AppendStringArray)(Tq4_value v, Tq4_string_array array);
    /* Append an element to a packed array of its width, signed or unsigned. The tag becomes that of the name in every
     * case, deliberately: a value that is no such array stores nothing, and is only retagged (its text or array is kept
     * and read with the new width, anything else is released and leaves no elements). Start an array with a Set..Array
     * operation.
     * AppendFloat and AppendDouble append when the value is PFLOAT or PDOUBLE, and do nothing at all otherwise. */
    void (*AppendShort)(Tq4_value v, short element);
    void (*AppendLong)(Tq4_value v, long element);
    void (*AppendInt)(Tq4_value v, int element);
    void (*AppendUShort)(Tq4_value v, unsigned short element);
    void (*AppendULong)(Tq4_value v, unsigned long element);
    void (*AppendUInt)(Tq4_value v, unsigned element);
    void (*AppendFloat)(Tq4_value v, float element);
    void (*AppendDouble)(Tq4_value v, double element);
    /* Appends len bytes (-1: up to the NUL) to text, whose tag becomes PUCHAR, or as a new element of a string array.
     * Other values, and null bytes, stay as they are. */
    void (*AppendBytes)(Tq4_value v, const char *bytes, int len);
    /* The number of the tags 1 to 8, 12 and 13, narrowed to the type in the name; 0 for all other types. */
    char (*GetChar)(Tq4_value v);
    short (*GetShort)(Tq4_value v);
    int (*GetInt)(Tq4_value v);
    long (*GetLong)(Tq4_value v);
    /* The number of a FLOAT or DOUBLE, narrowed or widened; 0 for all other types, integers and LDOUBLE too. */
    float (*GetFloat)(Tq4_value v);
    double (*GetDouble)(Tq4_value v);
    /* The number of an INT64 or UINT64; 0 for all other types, integers in a word too. */
    long (*GetInt64)(Tq4_value v);
    /* The integer getters again. */
    unsigned char (*GetUChar)(Tq4_value v);
    unsigned short (*GetUShort)(Tq4_value v);
    unsigned (*GetUInt)(Tq4_value v);
    unsigned long (*GetULong)(Tq4_value v);
    /* The pointer of a PTR, else null. */
    void *(*GetPtr)(Tq4_value v);
    /* The bytes of a text (STRING, PCHAR or PUCHAR), with a NUL behind them, and their number in *len; else null and 0.
     * len may be null. */
    char *(*GetBytes)(Tq4_value v, unsigned long *len);
    /* The first element of a packed array of the width in the name, signed or unsigned, and the number of elements in
     * *count; else null and 0. count may be null. */
    const short *(*GetShortArray)(Tq4_value v, unsigned long *count);
    const int *(*GetIntArray)(Tq4_value v, unsigned long *count);
    const long *(*GetLongArray)(Tq4_value v, unsigned long *count);
    const float *(*GetFloatArray)(Tq4_value v, unsigned long *count);
    const double *(*GetDoubleArray)(Tq4_value v, unsigned long *count);
    const unsigned short *(*GetUShortArray)(Tq4_value v, unsigned long *count);
    const unsigned *(*GetUIntArray)(Tq4_value v, unsigned long *count);
    const unsigned long *(*GetULongArray)(Tq4_value v, unsigned long *count);
    /* The string of a text (STRING, PCHAR or PUCHAR), the string array, the table, and the value that a Ref refers to;
     * null for other types. */
    Tq4_string (*GetString)(Tq4_value v);
    Tq4_string_array (*GetStringArray)(Tq4_value v);
    Tq4_value_table (*GetValueTable)(Tq4_value v);
    Tq4_value (*GetRef)(Tq4_value v);
    /* Writes the value as JSON-shaped text through echo, piece by piece. compact non-zero: without line feeds and tabs.
     *
     * Integers print in decimal, INT64 as unsigned, deliberately; CHAR and UCHAR as the byte itself; PTR and Ref in
     * hexadecimal; floating numbers with six decimals; text between quotation marks, up to its NUL and not escaped,
     * deliberately, so that text with quotation marks or control characters does not read back; packed arrays and
     * string arrays as lists; PULONG elements in 32 bits and with a letter l behind, PLDOUBLE as twice as many doubles,
     * deliberately both; tables as value_table.h says, one level further in, nested to any depth. Empty values, LDOUBLE
     * and range markers write nothing.
     *
     * A piece is a format of the debug interface and its arguments, at most a text and a number or two texts. */
    void (*Echo)(Tq4_value v, Tq4_echo echo, void *context, int compact);
    /* Echo to Printf of the debug interface at level 0, not compact. */
    void (*Print)(Tq4_value v);
    /* Appends what Echo writes compactly to out and returns the whole text of out. With null for out it is Print, and
     * returns an empty text. */
    const char *(*Json_encode)(Tq4_value v, Tq4_string out);
    /* Json_encode and Json_decode do not give back what they were given; ToJson and FromJson do:
     *
     *                        Json_encode                        Json_decode
     *   quotes in a text     written as they are, so that the   read
     *                        text ends there
     *   control characters   written as they are                refused, as JSON has it, unless escaped
     *   NUL in a text        the text ends there                read; a key ends there
     *   an empty array       {} when it is a table, else []     leaves the value as it is: empty, when it is new
     *   a mixed array        from a table of entries without    keeps the elements from the last change of kind on,
     *                        keys                               all as integers, floats or texts
     *   doubles              six decimals; inf and nan          FLOAT, with 24 bits of precision
     *   integers             INT64 as unsigned, PULONG in 32    INT; what does not fit 32 bits is the nearest that does
     *                        bits with a letter l
     *   true and false       1 and 0                            1 and 0
     *   null                 an empty value is written as       makes no member and no element
     *                        nothing, which is no JSON
     *   a member twice       both                               containers are merged, of others the last counts
     *
     * Builds the value from len bytes of JSON text (RFC 8259; -1: up to the NUL). 1 on success; 0 when the text is
     * malformed, ends early, nests deeper than 512, takes more memory than 64 times its length and a megabyte, or is
     * null: what was built by then stays. So some texts of 15 kilobytes and more are refused: arrays of one short
     * string each, objects of one number each, or empty strings. FromJson takes those.
     *
     * An object makes a table with keys of kind 4, or adds to the table that is there; a member sets the value under
     * its key, the last one of that name counts, and null makes none. An array of numbers or truth values makes PINT or
     * PFLOAT, of strings a string array, of objects and arrays a table of entries without keys. It starts again with
     * every change of kind, deliberately: of a mixed array the elements from the last change on remain. An array
     * without elements leaves the value as it is: empty, when it is new; as an element of another array it is an empty
     * table. Like objects, arrays are appended to what a value of their type already holds: Reset the value first to
     * start from nothing. Integers become INT, true and false 1 and 0, what does not fit 32 bits the nearest that does;
     * other numbers FLOAT, strings PCHAR. */
    int (*Json_decode)(Tq4_value v, const char *text, int len);
    /* From here on: the operations of the value's table, which value_table.h describes under the same names. Those that
     * set or insert first make an empty table of a value that is none, and release what it held; all others do nothing
     * with such a value, do not touch what *key and *len hold, and give null or 0. */
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
    /* The length in bytes of the encoding at the start of buf when it is whole and well-formed; else 0, also when buf
     * is null, or when it is longer than Import can be given. Import of these bytes takes them in as they were written,
     * reports nothing and does not stop the process. Reads no further than len bytes. Builds and prints nothing, takes
     * a time linear in the bytes, and neither looks at the value nor changes it. */
    long (*Check)(Tq4_value v, const char *buf, long len);
    /* Appends the value to out as JSON text (RFC 8259) and returns 1. Returns 0, and appends nothing, when out is null
     * or a PTR or Ref is anywhere in the value. pretty non-zero: each member on a line of its own, indented by two
     * spaces a level.
     *
     * Integers of all types, CHAR too, are written as numbers of their 64 bits, and what FromJson read as true or false
     * as that. Floating numbers have the shortest digits that read back to the same FLOAT or DOUBLE, with a point or an
     * exponent; LDOUBLE is rounded to a double; infinities and NaN are null. Texts are escaped where JSON asks for it;
     * each sequence of bytes that is no UTF-8 becomes U+FFFD. Packed arrays and string arrays are arrays, and so are
     * tables whose first entry has no key. All other tables are objects with the members in order, of which a caller
     * may have made several with one name. Keys are named as by Echo; but kind 6 has all 64 bits of its number, and
     * kind 7 is "text_h_l". Empty values and markers are null. Tables may be nested to any depth. */
    int (*ToJson)(Tq4_value v, Tq4_string out, int pretty);
    /* Makes the value what len bytes of JSON text say (RFC 8259; -1: up to the NUL), so that ToJson writes an equal
     * document, and returns 1. Returns 0, and the value stays as it is, when the text is malformed, has a byte that is
     * no UTF-8 or half of a surrogate pair, nests deeper than 512, has a number beyond the range of a double, or is
     * null. *error_at, which may be null, is then the offset of the byte where it goes wrong, len when the text ends
     * early; 0 on success.
     *
     * An object makes a table with keys of kind 4 in the order of the text; of members with one name the last counts,
     * in the place of the first. Integers become INT, LONG or ULONG, the first that holds them, and DOUBLE when none
     * does; other numbers DOUBLE, strings PCHAR. true and false become INT 1 and 0, which ToJson and Copy know apart
     * from numbers until they are set; Dump does not. null is an empty value.
     *
     * An array of integers makes PINT, PLONG or PULONG, one of other numbers PDOUBLE, one of strings a string array:
     * the first that holds all elements. An array without elements is an empty PINT. Every other array, and one of
     * strings too many or too long for the encoding, makes a table of entries without keys. */
    int (*FromJson)(Tq4_value v, const char *text, long len, long *error_at);
};

extern TQ4_API const Tq4_object_itf *const Tq4_value_oitf;

TQ4_END_DECLS

#endif
