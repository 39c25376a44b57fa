// rbuf.hpp: the ring-shaped read buffer.
//
// Unread data is a first segment m_read .. m_cache1 followed by a wrapped second segment m_data .. m_cache2; the
// second one is used only while the first reaches the end of storage. Numbers are read as network order unless
// m_order_flag is 0.
//
// A producer asks Tq4_rbuf_buffer where to write, writes, and commits with Tq4_rbuf_fill; a consumer reads, and the
// hook get_ready is its call for more. A buffer belongs to one thread at a time. Buffers are not null unless an
// operation says what null does. The library itself keeps its buffers in records and does not unread. Create, Delete,
// dup, UnRead and Read_char are there because the operations of a buffer are one set.
#pragma once

#include <cstdint>

#include "base/byte_order.hpp"

struct Tq4_rbuf {
    uint8_t *m_data = nullptr;
    int32_t m_len = 0;                      // capacity in bytes
    uint8_t *m_read = nullptr;              // read cursor inside the first segment
    uint8_t *m_cache1 = nullptr;            // end of the first segment
    uint8_t *m_cache2 = nullptr;            // end of the second segment, which starts at m_data
    int32_t m_order = 0;                    // 1 on a big-endian host
    int32_t m_order_flag = 0;               // 1: numbers are network order; 0: host order
    int (*get_ready)(Tq4_rbuf *) = nullptr; // no unread byte remains: > 0 data was added, 0 end of data, < 0 error
};

// A new buffer of the given capacity (see Init), to be given to Delete.
Tq4_rbuf *Tq4_rbuf_Create(long size);

// Prepares a zeroed or used buffer for a capacity of at least size bytes, which is raised to 256. A capacity that is
// already enough changes nothing at all. Else the buffer gets exactly that capacity, is emptied, and is set to network
// order and the default get_ready, which returns -1. When the room cannot be had (a capacity is below 2^31) the buffer
// stays as it was.
void Tq4_rbuf_Init(Tq4_rbuf *buffer, long size);

// Frees the storage and zeroes the buffer; for buffers that live in a record. Null is ignored.
void Tq4_rbuf_Release(Tq4_rbuf *buffer);

// Frees storage and structure of a buffer made by Create or dup. Null is ignored.
void Tq4_rbuf_Delete(Tq4_rbuf *buffer);

// A new buffer with the same capacity, content, cursor offsets and get_ready. Its m_order_flag is deliberately the
// source's m_order: on a little-endian host a duplicate reads numbers in host order. Null for null.
Tq4_rbuf *Tq4_rbuf_dup(const Tq4_rbuf *buffer);

// Makes the destination's unread data, get_ready and both order fields those of the source. A smaller capacity is
// raised to the source's, a larger one stays. Nothing happens when either is null or the room cannot be had.
void Tq4_rbuf_Clone(Tq4_rbuf *destination, const Tq4_rbuf *source);

// Empties the buffer, all cursors to the start; the capacity stays.
void Tq4_rbuf_Reset(Tq4_rbuf *buffer);

// Unread bytes, of both segments.
inline long Tq4_rbuf_data_size(const Tq4_rbuf *buffer) {
    return (buffer->m_cache1 - buffer->m_read) + (buffer->m_cache2 - buffer->m_data);
}

// getch when the first segment is empty: goes on with the second, or asks get_ready, whose result r < 1 makes it r - 1.
// A null hook counts as -1, one that promises data but adds none as 0.
int Tq4_rbuf_get(Tq4_rbuf *buffer);

// The next byte, 0 .. 255; negative at the end of data.
inline int Tq4_rbuf_getch(Tq4_rbuf *buffer) {
    return buffer->m_read < buffer->m_cache1 ? *buffer->m_read++ : Tq4_rbuf_get(buffer);
}

// Steps the read cursor back over the byte read last and returns the byte now under it; the argument counts only at
// the start of storage, where an empty buffer takes it as its one byte. 0 when the cursor cannot step back: at the
// start of storage with data unread, or when what lies before it has been overwritten by newer data.
int Tq4_rbuf_ungetch(Tq4_rbuf *buffer, int byte);
int Tq4_rbuf_UnRead(Tq4_rbuf *buffer, int byte);

// Copies the next n bytes to out, asking get_ready whenever none is left. Returns how many were copied: fewer than n
// when the hook gives 0 or an error, and the error itself when nothing was copied.
long Tq4_rbuf_Read_data(Tq4_rbuf *buffer, void *out, unsigned long n);

// Reads a number of width bytes (at most 16) in the buffer's order and stores it at out in host order. Returns width;
// -1 when the data ended before: out is then untouched, the bytes that were there are consumed.
int Tq4_rbuf_get_value(Tq4_rbuf *buffer, void *out, int width);

// Discards up to n unread bytes, or all of them when n is negative, and returns how many. The hook is not asked.
long Tq4_rbuf_skip(Tq4_rbuf *buffer, long n);

// Makes room for n more bytes in all, growing the storage if need be, and returns the free bytes; 0 when the storage
// cannot grow, the buffer being as it was.
long Tq4_rbuf_space(Tq4_rbuf *buffer, long n);

// Where a producer may write next and, in *size, how many contiguous bytes; growing when the buffer is full. Null and
// 0 when there is no room. The pointer is good until the next operation on the buffer.
uint8_t *Tq4_rbuf_buffer(Tq4_rbuf *buffer, long *size);

// Commits n bytes written at the pointer from Tq4_rbuf_buffer. Returns the unread bytes; -1 when n is negative or more
// than that room, nothing being committed.
long Tq4_rbuf_fill(Tq4_rbuf *buffer, long n);

// One byte. Returns 1; at the end of data what get_ready gave, 0 or negative, with out untouched.
int Tq4_rbuf_Read_uchar(Tq4_rbuf *buffer, unsigned char *out);
int Tq4_rbuf_Read_char(Tq4_rbuf *buffer, char *out);

// Tq4_rbuf_Read_short .. Tq4_rbuf_Read_ldouble(buffer, out): get_value of the number. Return the width, 2, 4, 8 or 16,
// or -1 with out untouched.
#define TQ4_RBUF_READ(name, type)                                                                                      \
    inline int Tq4_rbuf_Read_##name(Tq4_rbuf *buffer, type *out) {                                                     \
        return Tq4_rbuf_get_value(buffer, out, static_cast<int>(sizeof(type)));                                        \
    }
TQ4_NUMBER_TYPES(TQ4_RBUF_READ)
#undef TQ4_RBUF_READ
