/* config.h: Tq4_config, settings in a text file: a tree of sections with keys and values, read, changed and written
 * back with its comments.
 *
 * The file. A line is at most 2048 bytes; a longer one is skipped, and told in the log. Blanks, tabs and line ends
 * around a line do not count, and a UTF-8 byte-order mark in front of the file is skipped.
 *
 *     // a comment; also ; and # at the start of a line, and over several lines between slash-star and star-slash
 *     key = value                 // a comment behind it, which is everything from the first two slashes on
 *     quoted = "a // b"  text behind the last quote is a comment too
 *     [server]                    a section of the root, whatever section is open
 *     <tls>                       a section inside the one that is open, up to </tls>
 *     </tls>                      leaves the section that is open, whatever its name
 *
 * Sections of one name under the same parent are told apart by an index, counted from 0. The first of two lines with
 * the same key in a section counts. Whatever is not understood, and a second line of a key, is kept as a comment;
 * syntax errors never fail. Comments belong to the section header or the key that follows them and are written before
 * it; those at the end of the file are written last.
 *
 * A configuration has a current section, the root to begin with. Keys are looked up and written in it. A path names a
 * section from the root: names joined by dots, each with an index in brackets where it is not 0 ("server.tls",
 * "server[1].tls"). A name that holds a dot is reached by ToChildSection.
 *
 * Create ignores its parameter. Reset returns to an empty tree without a file. Copy takes over the source's tree and
 * file name, with the root as current section; a null source resets. Equal is 1 when Dump would write the same.
 *
 * Null handles: operations that return a text give null, all others 0. Null names and keys are found nowhere. Texts
 * given are borrowed for the call. Texts returned are NUL-terminated and borrowed: a value until it is written or
 * removed, a name until its section is removed, a path until the next operation that moves; none outlives the next
 * Read, Copy, Reset or Delete.
 *
 * Threads: a configuration belongs to one thread at a time.
 */
#ifndef TQ4_CONFIG_H
#define TQ4_CONFIG_H

#include <stdarg.h>

#include "tq4/object.h"

TQ4_BEGIN_DECLS

typedef struct Tq4_config_ Tq4_config_;
typedef const Tq4_config_ **Tq4_config; /* handle */

struct Tq4_config_ {
    /* Replaces the whole tree by that of the file; the root is the current section. Returns 1; -1 when the file cannot
     * be opened or read, and then the tree and the file name stay, and the root is the current section. */
    int (*Read)(Tq4_config s, const char *file);
    /* Writes the tree: for each section its comments, its header, its keys in their order and the sections in it, those
     * of one name together. The file is made or replaced in one step: a failure leaves everything as it was, and what
     * is read at any moment is either the old or the new file. A regular file keeps its mode and, where the system
     * allows that, its owner and group; a new one is made with mode 0660, with the missing directories. A link stays,
     * and where it leads is written.
     * - A file whose directory lets none be made or replaced (it belongs to somebody else, or the file is mounted there
     *   alone) is written in place. Who reads meanwhile may see a part; a failure leaves the old content, unless the
     *   device refuses to take that back too.
     * - Other hard links of a file that was replaced keep the old content: settings are shared by symbolic links.
     * - A device or a pipe gets the text as it comes.
     * What is written, read and written again is the same to the byte. Returns 1, 0 when the file cannot be made or
     * written. */
    int (*Dump)(Tq4_config s, const char *file);
    /* The file last read; "" before the first. */
    const char *(*FileName)(Tq4_config s);

    /* --- Sections --- */

    /* Moves to the section of a path, formatted as by Tq4_string's Sprintf, from the root. Returns the path; null when
     * a part of it is missing, and then the current section is the last one reached. Null and "" are the root. */
    const char *(*SetSection)(Tq4_config s, const char *format, ...);
    const char *(*VSetSection)(Tq4_config s, const char *format, va_list args);
    /* The path of the current section, as it was given where it was; "" for the root. */
    const char *(*GetSection)(Tq4_config s);
    /* How many sections of that name are in the current one. */
    int (*GetChildSectionCount)(Tq4_config s, const char *name);
    /* The names of the sections in the current one, each once, by index from 0; null past the last. */
    const char *(*GetChildSectionName)(Tq4_config s, unsigned long index);
    /* How many keys are in the current section. */
    int (*GetKVCount)(Tq4_config s);
    /* The keys of the current section in their order: the first, and the one after that returned last; null when there
     * is none. The place is a position: it stays when the current section changes, and a key removed at or before it
     * moves it, so that no other is passed over. */
    const char *(*GetFirstKey)(Tq4_config s);
    const char *(*GetNextKey)(Tq4_config s);
    /* Deletes the current section with everything in it and moves to its parent. Nothing happens at the root. */
    void (*RemoveSection)(Tq4_config s);
    /* Deletes the section of that name and index in the current one with everything in it; ignored when missing. Those
     * of the name behind it move up. */
    void (*RemoveChildSection)(Tq4_config s, const char *name, unsigned long index);
    /* Moves to the section of that name and index in the current one. Returns the path, which grows by the name, with
     * "[index]" when that is not 0; null when it is missing, and then nothing moves. */
    const char *(*ToChildSection)(Tq4_config s, const char *name, unsigned long index);
    /* Moves to the parent; at the root nothing happens. */
    void (*ToParentSection)(Tq4_config s);
    /* Moves to the root. */
    void (*ToTopSection)(Tq4_config s);
    /* Deletes a key with its value and comments; ignored when missing. */
    void (*RemoveKey)(Tq4_config s, const char *key);
    /* Adds an empty section to the current one, behind those of its name, and does not move. A name that a file cannot
     * hold is refused with a message: one with a line end or blanks around it, or longer than a line; in the root one
     * with both ']' and '>'; elsewhere one with '>' or a '/' in front. */
    void (*AddSection)(Tq4_config s, const char *name);

    /* --- Values. Reads return 1, 0 when the key is missing, and then *value is left alone --- */

    /* One character. "0x1f" is its code; any other text that begins with 0 is the character 0. "\n", "\r", "\t", "\0"
     * and "\\" are what they are in C, and a backslash before anything else is a blank ("\space"). Of any other text it
     * is the first byte, NUL for an empty one. */
    int (*ReadChar)(Tq4_config s, const char *key, char *value);
    /* Whole numbers: a text that begins with 0 is hexadecimal, with or without an x, so "010" is 16; any other is
     * decimal up to the first character that is no digit. What does not fit into 64 bits is the largest or smallest
     * number; of what fits there the low bits are taken. */
    int (*ReadShort)(Tq4_config s, const char *key, short *value);
    int (*ReadInt)(Tq4_config s, const char *key, int *value);
    int (*ReadLong)(Tq4_config s, const char *key, long *value);
    /* Decimal numbers, as the C library reads them. */
    int (*ReadFloat)(Tq4_config s, const char *key, float *value);
    int (*ReadDouble)(Tq4_config s, const char *key, double *value);
    /* Copies the text, at most size bytes, and writes a NUL over the last byte copied, deliberately: a text of five
     * bytes arrives as four. With size 0 or an empty text nothing is written. */
    int (*ReadBytes)(Tq4_config s, const char *key, void *buffer, unsigned long size);
    int (*ReadUChar)(Tq4_config s, const char *key, unsigned char *value);
    int (*ReadUShort)(Tq4_config s, const char *key, unsigned short *value);
    int (*ReadUInt)(Tq4_config s, const char *key, unsigned *value);
    int (*ReadULong)(Tq4_config s, const char *key, unsigned long *value);
    /* The text, or missing (which may be null) when there is no such key. */
    const char *(*ReadString)(Tq4_config s, const char *key, const char *missing);

    /* Writes replace the text of a key, made when it is missing, and keep its comments and quotes. They return 1; 0
     * for a key that a file cannot hold (empty, with '=', a line end, blanks around it, or the start of a comment or a
     * header). hex non-zero writes "0x" and hexadecimal digits. */

    /* As ReadChar reads it: a printable character as itself, others by name or code. */
    int (*WriteChar)(Tq4_config s, const char *key, char value);
    int (*WriteShort)(Tq4_config s, const char *key, short value, int hex);
    int (*WriteInt)(Tq4_config s, const char *key, int value, int hex);
    int (*WriteLong)(Tq4_config s, const char *key, long value, int hex);
    /* With six decimals. */
    int (*WriteFloat)(Tq4_config s, const char *key, float value);
    int (*WriteDouble)(Tq4_config s, const char *key, double value);
    /* The text as it is; null is "". It is put into quotes where it would not be read back without. Also 0 for a text
     * that holds a line feed or that does not fit into a line with its key: a file could not hold it. */
    int (*WriteString)(Tq4_config s, const char *key, const char *value);
    int (*WriteUChar)(Tq4_config s, const char *key, unsigned char value, int hex);
    int (*WriteUShort)(Tq4_config s, const char *key, unsigned short value, int hex);
    int (*WriteUInt)(Tq4_config s, const char *key, unsigned value, int hex);
    /* With hex, only the low 32 bits are written, deliberately. */
    int (*WriteULong)(Tq4_config s, const char *key, unsigned long value, int hex);
};

extern TQ4_API const Tq4_object_itf *const Tq4_config_oitf;

TQ4_END_DECLS

#endif
