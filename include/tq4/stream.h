/* stream.h: Tq4_stream, buffered input and output over a descriptor: text, lines, bytes and numbers.
 *
 * A stream does not own its descriptor: whoever opened it closes it, after Detach or Delete. Input and output have a
 * buffer each. On a descriptor with a position (a regular file) the two share it as a caller expects: before writing,
 * what was read ahead is given back, and before reading, output is flushed. On pipes, sockets and terminals reading
 * flushes output too, so that a prompt is seen before its answer is awaited. A descriptor in non-blocking mode is
 * waited for: to the caller every stream blocks. A signal does not end an operation.
 *
 * Create ignores its parameter and gives a stream without a descriptor, on which reading meets the end and writing
 * fails. Delete and Detach flush; what cannot be written then is lost. Reset detaches and restores the byte order.
 * Copy takes over the byte order alone, Equal is identity, Dup gives a stream without a descriptor.
 *
 * Null handles: operations that return a text give null, all others 0.
 *
 * Threads: a stream belongs to one thread at a time.
 */
#ifndef TQ4_STREAM_H
#define TQ4_STREAM_H

#include <stdarg.h>

#include "tq4/byte_order.h"
#include "tq4/object.h"

TQ4_BEGIN_DECLS

typedef struct Tq4_stream_ Tq4_stream_;
typedef const Tq4_stream_ **Tq4_stream; /* handle */

/* What the last reading operation met. */
typedef enum Tq4_stream_state {
    Tq4_stream_ok = 0,       /* all that was asked for */
    Tq4_stream_end = 1,      /* the end of the data, or no descriptor */
    Tq4_stream_too_long = 2, /* a line longer than the maximum */
    Tq4_stream_error = 3     /* the system refused; its error number tells why */
} Tq4_stream_state;

/* The numbers that can be read and written, as X(name, type): the storage of the type, in the stream's byte order. */
#define TQ4_STREAM_NUMBERS(X)                                                                                          \
    X(short, short)                                                                                                    \
    X(ushort, unsigned short)                                                                                          \
    X(int, int)                                                                                                        \
    X(uint, unsigned)                                                                                                  \
    X(long, long)                                                                                                      \
    X(ulong, unsigned long)                                                                                            \
    X(float, float)                                                                                                    \
    X(double, double)

struct Tq4_stream_ {
    /* The descriptor; -1 when there is none. */
    int (*Handle)(Tq4_stream s);
    /* Detaches, then goes on with the given descriptor (borrowed) at its present position. A negative one leaves the
     * stream without a descriptor. Returns 1 when it has one, else 0. */
    int (*Attach)(Tq4_stream s, int descriptor);
    /* Flushes, gives back what was read ahead where the descriptor has a position, forgets the rest and lets go of
     * the descriptor. Returns it, -1 when there was none. */
    int (*Detach)(Tq4_stream s);

    /* The order in which numbers are read and written; ByteOrder_BigEndians until set. Returns 1; 0 for the middle
     * order, an unknown one, and the little order on a big-endian host, which leave it as it was. */
    int (*SetByteOrder)(Tq4_stream s, Tq4_ByteOrder order);

    /* --- Output. It reaches the descriptor when the buffer is full and by Flush --- */

    /* Writes formatted text (see Tq4_string's Sprintf for the conversions). A null format is an empty one. Returns
     * the bytes taken, which is fewer than the text has when the descriptor refuses. */
    long (*Printf)(Tq4_stream s, const char *format, ...);
    long (*vPrintf)(Tq4_stream s, const char *format, va_list args);
    /* Writes c count times. Returns the bytes taken. */
    long (*WriteChar)(Tq4_stream s, char c, unsigned long count);
    /* Writes n bytes (all ones: up to the NUL, which is not written). Null writes nothing. Returns the bytes taken:
     * fewer than n when the descriptor refuses. */
    long (*Write)(Tq4_stream s, const void *bytes, unsigned long n);
    /* The last byte taken since Attach, 0 to 255; -1 when there is none. */
    int (*last_char)(Tq4_stream s);
    /* Hands everything taken to the system. Returns 1; 0 when the system refused: the part it did not take is kept
     * and tried again by the next Flush. */
    int (*Flush)(Tq4_stream s);

    /* --- Input --- */

    /* The next line, up to and including its line feed, NUL-terminated; with mode non-zero trimmed on the right as
     * Tq4_string's TrimRight does. The last line needs no line feed. Borrowed: valid until the next ReadLine, Detach
     * or Delete. Null at the end of the data, on an error, and for a line of more than maximum bytes before its line
     * feed (0 or all ones: no maximum); State tells which. A line that is too long is skipped up to and including
     * its line feed, so the next call reads the line after it; no more than maximum bytes of it are ever kept. */
    const char *(*ReadLine)(Tq4_stream s, int mode, unsigned long maximum);
    /* The length of the line last returned by ReadLine, which may hold NULs; 0 when that was null. */
    unsigned long (*LineLength)(Tq4_stream s);
    /* Reads n bytes into room, waiting for all of them. Returns how many came: fewer at the end of the data or on an
     * error (State tells which). */
    unsigned long (*Read)(Tq4_stream s, void *room, unsigned long n);
    /* The next byte, 0 to 255; -1 at the end of the data or on an error. */
    int (*ReadChar)(Tq4_stream s);
    /* Bytes that can be read without asking the system. */
    unsigned long (*Buffered)(Tq4_stream s);
    /* What the last ReadLine, Read, ReadChar or number met. */
    Tq4_stream_state (*State)(Tq4_stream s);

    /* --- Numbers: Write_short .. Write_double, then Read_short .. Read_double --- */

    /* Writes the number. Returns its width in bytes, or -1 when the descriptor refuses; a number is taken whole or not
     * at all. */
#define TQ4_STREAM_WRITE(name, type) int (*Write_##name)(Tq4_stream s, type value);
    TQ4_STREAM_NUMBERS(TQ4_STREAM_WRITE)
#undef TQ4_STREAM_WRITE
    /* Reads a number into *value. Returns its width in bytes; -1 when value is null or the data ends before the
     * number does, and then nothing is read. */
#define TQ4_STREAM_READ(name, type) int (*Read_##name)(Tq4_stream s, type * value);
    TQ4_STREAM_NUMBERS(TQ4_STREAM_READ)
#undef TQ4_STREAM_READ
};

extern TQ4_API const Tq4_object_itf *const Tq4_stream_oitf;

TQ4_END_DECLS

#endif
