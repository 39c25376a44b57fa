/* file.h: Tq4_file, an open file: a position, a size, and the text, lines, bytes and numbers of a stream.
 *
 * Create ignores its parameter and gives a file that is not open. The file owns its descriptor (close-on-exec) and
 * reads and writes through a stream of its own: each operation that bears the name of one of Tq4_stream's is that
 * operation of this stream. On a file that is not open reading meets the end, and all else fails.
 *
 * Delete and Reset close. Copy takes over the byte order alone, Equal is identity, Dup gives a file that is not open.
 *
 * Null handles: operations that return a text or an object give null, all others 0.
 *
 * Threads: a file belongs to one thread at a time.
 */
#ifndef TQ4_FILE_H
#define TQ4_FILE_H

#include "tq4/stream.h"

TQ4_BEGIN_DECLS

typedef struct Tq4_file_ Tq4_file_;
typedef const Tq4_file_ **Tq4_file; /* handle */

/* How to open; combined with |. */
typedef enum Tq4_file_mode {
    Tq4_file_read = 1,
    Tq4_file_write = 2,
    Tq4_file_create = 4,    /* make the file (permission bits 0660) and, as Tq4_file_api's Open, missing directories */
    Tq4_file_truncate = 8,  /* empty an existing file */
    Tq4_file_append = 16,   /* every write goes to the end */
    Tq4_file_exclusive = 32 /* with create: fail when the file exists */
} Tq4_file_mode;

/* Where a Seek counts from. */
typedef enum Tq4_file_whence { Tq4_file_begin = 0, Tq4_file_current = 1, Tq4_file_end = 2 } Tq4_file_whence;

struct Tq4_file_ {
    /* Closes, then opens the file at a path. mode combines Tq4_file_mode; with neither read nor write it reads. Returns
     * 1; 0 when it cannot be opened, and then the file is not open. */
    int (*Open)(Tq4_file f, const char *path, int mode);
    /* Writes out what is buffered and closes. Returns 1; 0 when it was not open or bytes were lost. */
    int (*Close)(Tq4_file f);
    /* 1 while open, else 0. */
    int (*IsOpen)(Tq4_file f);
    /* The path last given to Open, borrowed until the next Open; "" before the first. */
    const char *(*Name)(Tq4_file f);
    /* The file's stream, borrowed: it lives as long as the file. Do not attach it elsewhere. */
    Tq4_stream (*Stream)(Tq4_file f);

    /* Moves the position to offset bytes from whence. Returns the new position; -1 when that is before the beginning or
     * what is buffered cannot be written. */
    long (*Seek)(Tq4_file f, long offset, Tq4_file_whence whence);
    /* The position of the next read or write; -1 when not open. */
    long (*Tell)(Tq4_file f);
    /* Bytes in the file, those still buffered included; -1 when not open. */
    long (*Size)(Tq4_file f);
    /* Cuts the file, or lengthens it with zeros; the position stays. 1/0. */
    int (*Truncate)(Tq4_file f, unsigned long size);
    /* Returns 1 when everything written is on the medium, else 0. */
    int (*Sync)(Tq4_file f);

    /* --- As Tq4_stream has them --- */

    int (*Handle)(Tq4_file f);
    int (*SetByteOrder)(Tq4_file f, Tq4_ByteOrder order);
    long (*Printf)(Tq4_file f, const char *format, ...);
    long (*vPrintf)(Tq4_file f, const char *format, va_list args);
    long (*WriteChar)(Tq4_file f, char c, unsigned long count);
    long (*Write)(Tq4_file f, const void *bytes, unsigned long n);
    int (*Flush)(Tq4_file f);
    const char *(*ReadLine)(Tq4_file f, int mode, unsigned long maximum);
    unsigned long (*LineLength)(Tq4_file f);
    unsigned long (*Read)(Tq4_file f, void *room, unsigned long n);
    int (*ReadChar)(Tq4_file f);
    Tq4_stream_state (*State)(Tq4_file f);
#define TQ4_FILE_WRITE(name, type) int (*Write_##name)(Tq4_file f, type value);
    TQ4_STREAM_NUMBERS(TQ4_FILE_WRITE)
#undef TQ4_FILE_WRITE
#define TQ4_FILE_READ(name, type) int (*Read_##name)(Tq4_file f, type * value);
    TQ4_STREAM_NUMBERS(TQ4_FILE_READ)
#undef TQ4_FILE_READ
};

extern TQ4_API const Tq4_object_itf *const Tq4_file_oitf;

TQ4_END_DECLS

#endif
