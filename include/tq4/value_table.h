/* value_table.h: Tq4_value_table, an ordered table of typed values with a hash index over its keys.
 *
 * A table is a list of entries, each a key and a value, in the order in which they were added, and an index from keys
 * to entries. Operations by key come in three forms: S, a text, the same as a key of kind 4; I, a number, of kind 2; K,
 * a key object of any kind. Positions count entries from 0; one at or past the end, or negative, is the last entry's.
 *
 * An entry with an empty key (kind 0) is in the list only: InsertAt makes such entries, and the elements of an array
 * are kept so. Append and Import add entries without asking for their keys: of several entries with one key the index
 * leads to the one added last, and when that goes, to none of them; the others stay in the list.
 *
 * Two case flags, deliberately apart: the table's own, which CaseFlag sets, goes into the keys that the table makes;
 * the index has another one, by which look-ups hash and compare, and which only Copy, Append and Import set (to the
 * table's flag) and Reset clears. So CaseFlag alone does not make look-ups ignore case.
 *
 * Ownership: the table owns its keys and values, which are made and deleted through the hooks of cxx_support.h. Keys
 * and values returned are borrowed until their entry is removed or the table is reset, imported, copied to or deleted;
 * a key must not be changed by the caller but through ModifyKey. Texts, keys and bytes given are copied and may be the
 * table's own; strings given to Dump must not lie in it.
 *
 * Look-up, insertion and removal by key cost the same at any size; a position costs the way from the nearest of the
 * ends and the position asked for last, so that a walk by At in order is linear in all.
 *
 * Create ignores its parameter and gives an empty table. Reset empties it and clears both flags. Copy replaces the
 * content by deep copies and takes over the source's flag for both; the source may lie inside the table; a null source
 * resets. Equal is 1 when both tables have equal keys with equal values in the same order; flags do not matter. A table
 * that holds an empty value is thus equal to none, not even to its copy.
 *
 * Null handles give null or 0. Visitors and output functions run on the calling thread.
 *
 * Threads: a table, with all inside it, belongs to one thread at a time, or to any number of readers while nobody
 * changes it. Reading is: the look-ups by key (Value, Table, Ptr, Bytes, Base and Int64 in their three forms), Count,
 * Dump, Echo, Print, Json_encode, Equal, being the source of Copy, Dup and Append, and reading through the values
 * found, but for GetString, which makes a string. Positions and iteration (At, First, Next, each) remember where they
 * stand and are the owner's alone, as is everything else.
 */
#ifndef TQ4_VALUE_TABLE_H
#define TQ4_VALUE_TABLE_H

#include "tq4/value.h"

TQ4_BEGIN_DECLS

/* Returns non-zero to stop. */
typedef int (*Tq4_value_table_visitor)(Tq4_key key, Tq4_value value, void *param);

struct Tq4_value_table_ {
    /* Appends the table's binary encoding to out and returns its length in bytes; 0 for an empty table, deliberately,
     * although its five bytes are written: callers take 0 for an empty table. 0, and nothing is appended, when out is
     * null or a key, also one in a table inside, has a string longer than 65535 bytes. */
    long (*Dump)(Tq4_value_table t, Tq4_string out);
    /* Makes the table what the first bytes of buf encode and returns how many they are. 0, and the table stays as it
     * is, when buf is null or len is less than 5, negative too. Entries that the input ends before are missing. What
     * else malformed bytes do stands at Tq4_value's Import. */
    int (*Import)(Tq4_value_table t, const char *buf, int len);
    /* Find the value under a key, or add an entry with an empty value at the end, and set it: to a text up to its NUL
     * (null is an empty text; tag PCHAR), a LONG, an INT64 (or UINT64 when it was one) or a pointer. Return the value;
     * null for a null key. */
    Tq4_value (*SetSS)(Tq4_value_table t, const char *key, const char *text);
    Tq4_value (*SetIS)(Tq4_value_table t, unsigned long key, const char *text);
    Tq4_value (*SetSI)(Tq4_value_table t, const char *key, long n);
    Tq4_value (*SetII)(Tq4_value_table t, unsigned long key, long n);
    Tq4_value (*SetSInt64)(Tq4_value_table t, const char *key, long long n);
    Tq4_value (*SetIInt64)(Tq4_value_table t, unsigned long key, long long n);
    Tq4_value (*SetPtrS)(Tq4_value_table t, const char *key, void *pointer);
    Tq4_value (*SetPtrI)(Tq4_value_table t, unsigned long key, void *pointer);
    /* Find the value under a key, or add an entry with an empty value at the end. The new entry's key has the table's
     * case flag; InsertK's is a copy of the caller's, flag included, and one of kind 0 always makes a new entry. Null
     * for a null key. */
    Tq4_value (*InsertS)(Tq4_value_table t, const char *key);
    Tq4_value (*InsertI)(Tq4_value_table t, unsigned long key);
    Tq4_value (*InsertK)(Tq4_value_table t, Tq4_key key);
    /* Adds an entry without a key before the position index, at the end when that is at or past the count or negative,
     * and returns its empty value. */
    Tq4_value (*InsertAt)(Tq4_value_table t, int index);
    /* Removes the entry at a position; the index forgets its key, even when it led to a newer entry of the same key. */
    void (*RemoveAt)(Tq4_value_table t, int index);
    /* Give the entry at a position another key, in the index too; null makes the key empty. ModifyKeyK copies the key
     * and gives the copy the table's case flag. ModifyKeyS and ModifyKeyI make keys of kind 6, of the text with 0 and
     * of the number without a text, deliberately: ValueK finds them, look-ups by text or number do not. */
    void (*ModifyKeyK)(Tq4_value_table t, int index, Tq4_key key);
    void (*ModifyKeyS)(Tq4_value_table t, int index, const char *text);
    void (*ModifyKeyI)(Tq4_value_table t, int index, unsigned long n);
    /* Find the value under a key, or add an entry; make the value an empty table unless it is a table, and return that.
     * Null for a null key. */
    Tq4_value_table (*InsertTableI)(Tq4_value_table t, unsigned long key);
    Tq4_value_table (*InsertTableS)(Tq4_value_table t, const char *key);
    Tq4_value_table (*InsertTableK)(Tq4_value_table t, Tq4_key key);
    /* The value under a key; null when there is none. */
    Tq4_value (*ValueK)(Tq4_value_table t, Tq4_key key);
    Tq4_value (*ValueS)(Tq4_value_table t, const char *key);
    Tq4_value (*ValueI)(Tq4_value_table t, unsigned long key);
    /* The table that the value under a key holds; null when there is none. */
    Tq4_value_table (*TableK)(Tq4_value_table t, Tq4_key key);
    Tq4_value_table (*TableS)(Tq4_value_table t, const char *key);
    Tq4_value_table (*TableI)(Tq4_value_table t, unsigned long key);
    /* The GetPtr, GetBytes, integer and GetInt64 of the value under a key; null or 0, with *len 0, when there is none.
     */
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
    /* Iterate in order: First gives the first entry, Next the one after the entry given last. Return its value and
     * store its key in *key, which may be null; at the end both are null. When the entry given last is removed, Next
     * gives the one that followed it. Next gives null before First and after the end. */
    Tq4_value (*First)(Tq4_value_table t, Tq4_key *key);
    Tq4_value (*Next)(Tq4_value_table t, Tq4_key *key);
    /* The value at a position and its key, likewise; null when the table is empty. Iteration is not disturbed. */
    Tq4_value (*At)(Tq4_value_table t, int index, Tq4_key *key);
    /* Remove the entry that the index has under a key. Nothing happens when there is none. */
    void (*RemoveK)(Tq4_value_table t, Tq4_key key);
    void (*RemoveS)(Tq4_value_table t, const char *key);
    void (*RemoveI)(Tq4_value_table t, unsigned long key);
    /* Removes all entries. The flags stay. */
    void (*RemoveAll)(Tq4_value_table t);
    /* The number of entries. */
    unsigned long (*Count)(Tq4_value_table t);
    /* Adds deep copies of all entries of source, in order, and takes over its case flag for both flags, even when it is
     * empty. A source that is the table itself adds each of its entries once. Returns t. A null source is ignored. */
    Tq4_value_table (*Append)(Tq4_value_table t, Tq4_value_table source);
    /* Sets the flag that keys made from now on get: non-zero, they ignore case. */
    void (*CaseFlag)(Tq4_value_table t, int flag);
    /* Calls visitor(key, value, param) for each entry in order until it returns non-zero. The visitor may remove
     * entries, and may add entries, which may or may not be visited. */
    void (*each)(Tq4_value_table t, Tq4_value_table_visitor visitor, void *param);
    /* Echo to Printf of the debug interface at level 0, not compact. */
    void (*Print)(Tq4_value_table t);
    /* Writes the table as JSON-shaped text through echo, piece by piece. compact non-zero: without line feeds and tabs.
     *
     * A table whose first entry has no key prints as an array, [..] without keys, every other one as an object. Keys
     * print between quotation marks: the text of kinds 0 and 4; the number of kinds 1 and 2; "h_l" of kind 3; "text_l"
     * of kinds 5 and 7 and "text_number" in 32 bits of kind 6. Kind 7 has a second colon behind it, deliberately.
     * Values print as at Tq4_value's Echo. */
    void (*Echo)(Tq4_value_table t, Tq4_echo echo, void *context, int compact);
    /* Tq4_value's Check, of what a table's Dump writes. Bytes from a stranger go through it before Import. */
    long (*Check)(Tq4_value_table t, const char *buf, long len);
};

extern TQ4_API const Tq4_object_itf *const Tq4_value_table_oitf;

TQ4_END_DECLS

#endif
