// wbuf.hpp: the growable write buffer.
//
// A cursor runs through one allocation: data written so far is m_data .. m_ptr, and
// m_ptr - m_data + m_cnt == m_len always holds. The storage is NUL-terminated when made and on Reset; ordinary writes
// append no NUL. Numbers are written in network order unless m_order_flag is 0.
//
// The capacity m_len grows by small fixed steps that callers may observe; the allocation behind it (m_room) grows
// geometrically, so that appending moves each byte about once.
//
// A buffer belongs to one thread at a time. Buffers are not null unless an operation says what null does. The library
// itself keeps its buffers in records and on stacks. Create, Delete, Dup and Write, which it does not call, are there
// because the operations of a buffer are one set.
#pragma once

#include <cstdint>
#include <cstring>

#include "assert.hpp"
#include "base/byte_order.hpp"

struct Tq4_wbuf {
    uint8_t *m_data = nullptr;
    uint64_t m_len = 0;                     // capacity in bytes
    uint64_t m_cnt = 0;                     // free bytes after the cursor
    uint8_t *m_ptr = nullptr;               // write cursor
    uint8_t m_order = 0;                    // 1 on a big-endian host
    uint8_t m_order_flag = 0;               // 1: numbers in network order; 0: in host order
    int (*put_ready)(Tq4_wbuf *) = nullptr; // a byte must be written and m_cnt is 0; < 1 stops the write
    int (*fflush)(Tq4_wbuf *) = nullptr;    // room is asked for while data is present; < 1: none can be made

    uint64_t m_room = 0;        // bytes really allocated, >= m_len
    uint8_t *m_fixed = nullptr; // borrowed first storage (in a record or on the stack) or null; never freed
};

// Checks what always holds of a buffer; called after each operation that is more than a few instructions.
inline void Tq4_wbuf_check([[maybe_unused]] const Tq4_wbuf *buffer) {
    TQ4_CHECK(buffer->m_data <= buffer->m_ptr);
    TQ4_CHECK(static_cast<uint64_t>(buffer->m_ptr - buffer->m_data) + buffer->m_cnt == buffer->m_len);
    TQ4_CHECK(buffer->m_len <= buffer->m_room && (buffer->m_data || buffer->m_room == 0));
}

// No buffer grows beyond this many bytes: more than a process can address.
inline constexpr uint64_t Tq4_wbuf_ceiling = uint64_t{1} << 47;

// A new buffer of the given capacity (see Init), to be given to Delete.
Tq4_wbuf *Tq4_wbuf_Create(uint64_t size);

// Prepares a zeroed or used buffer for a capacity of at least size bytes, which is raised to 8. A capacity that is
// already enough changes nothing at all. Else the buffer gets exactly that capacity, is emptied, and is set to network
// order and the default put_ready; fflush stays. When the room cannot be had the buffer stays as it was.
void Tq4_wbuf_Init(Tq4_wbuf *buffer, uint64_t size);

// Sets up a zeroed or released buffer over borrowed storage of size bytes, otherwise as Init does. The storage must
// outlive the buffer's use of it: growing copies out of it, Release lets go of it.
void Tq4_wbuf_InitFixed(Tq4_wbuf *buffer, void *storage, uint64_t size);

// Frees what the buffer owns and zeroes it; for buffers that live in a record or on the stack. Null is ignored.
void Tq4_wbuf_Release(Tq4_wbuf *buffer);

// Frees storage and structure of a buffer made by Create or Dup. Null is ignored.
void Tq4_wbuf_Delete(Tq4_wbuf *buffer);

// A new buffer with the same capacity, storage, cursor, order and put_ready, but no fflush. Null for null.
Tq4_wbuf *Tq4_wbuf_Dup(const Tq4_wbuf *buffer);

// Makes the destination's storage, cursor, order and put_ready those of the source; fflush stays. A smaller capacity
// is raised to the source's, a larger one stays. Nothing happens when either is null or the room cannot be had.
void Tq4_wbuf_Copy(Tq4_wbuf *destination, const Tq4_wbuf *source);

// Empties the buffer; the capacity stays.
void Tq4_wbuf_Reset(Tq4_wbuf *buffer);

// Bytes written so far.
inline uint64_t Tq4_wbuf_size(const Tq4_wbuf *buffer) { return buffer->m_len - buffer->m_cnt; }

// Grows the capacity by n rounded up to a multiple of 128, or of 4096 once the capacity is 4096 or more. The content
// and the cursor's offset stay. Null when the room cannot exist or be had; the buffer is then as it was.
Tq4_wbuf *Tq4_wbuf_extend(Tq4_wbuf *buffer, uint64_t n);

// An fflush that flushes nothing: it returns the bytes written, so that every request for room grows the buffer.
int Tq4_wbuf_flush_nothing(Tq4_wbuf *buffer);

// Tq4_wbuf_space when it has to ask the hook or to grow.
uint64_t Tq4_wbuf_make_space(Tq4_wbuf *buffer, uint64_t n);

// Asks for n free bytes after the cursor and returns how many there are, which may be fewer. A buffer that holds data
// is flushed first, even when there is room enough: fflush has no default and its owner sets it. A null one counts as
// one that can make no room.
inline uint64_t Tq4_wbuf_space(Tq4_wbuf *buffer, uint64_t n) {
    if (n <= buffer->m_cnt && buffer->fflush == Tq4_wbuf_flush_nothing) return buffer->m_cnt;
    return Tq4_wbuf_make_space(buffer, n);
}

// Commits up to n bytes already placed at the cursor, at most the free ones; with n all ones those up to the first NUL
// or the end of the room. Returns how many.
uint64_t Tq4_wbuf_skip(Tq4_wbuf *buffer, uint64_t n);

// putch in a buffer without room: asks put_ready. A hook that stops the write makes the result its own minus one. A
// null hook, and one that promises room but makes none, count as 0.
int Tq4_wbuf_put(Tq4_wbuf *buffer, int byte);

// Writes the low eight bits of byte and returns them as 0 .. 255; negative when put_ready stops the write.
inline int Tq4_wbuf_putch(Tq4_wbuf *buffer, int byte) {
    if (buffer->m_cnt == 0) return Tq4_wbuf_put(buffer, byte);
    --buffer->m_cnt;
    return *buffer->m_ptr++ = static_cast<uint8_t>(byte);
}

// Tq4_wbuf_memcat when it has to ask the hook or to grow.
void Tq4_wbuf_make_memcat(Tq4_wbuf *buffer, const void *bytes, uint64_t n);

// Appends all n bytes, or nothing when Tq4_wbuf_space cannot make room for them. Null is ignored. The bytes may be the
// buffer's own.
inline void Tq4_wbuf_memcat(Tq4_wbuf *buffer, const void *bytes, uint64_t n) {
    if (n > buffer->m_cnt || !bytes || buffer->fflush != Tq4_wbuf_flush_nothing)
        return Tq4_wbuf_make_memcat(buffer, bytes, n);
    std::memmove(buffer->m_ptr, bytes, n);
    buffer->m_ptr += n;
    buffer->m_cnt -= n;
}

// Writes n bytes (all ones: up to the NUL, which is not written), as far as put_ready makes room. Returns n; the
// result of a put_ready that stopped the write, what fitted being written; -100 for null bytes. The bytes may be the
// buffer's own.
long Tq4_wbuf_Write(Tq4_wbuf *buffer, const void *bytes, uint64_t n);

// Writes a number of width bytes, stored at address in host order, in the buffer's order. Returns width; -1 when the
// room ran out, what fitted being written.
int Tq4_wbuf_put_value(Tq4_wbuf *buffer, const void *address, int width);

// One byte. Returns 1, or the negative result of putch.
inline int Tq4_wbuf_Write_uchar(Tq4_wbuf *buffer, unsigned char byte) {
    int written = Tq4_wbuf_putch(buffer, byte);
    return written < 0 ? written : 1;
}
inline int Tq4_wbuf_Write_char(Tq4_wbuf *buffer, char byte) {
    return Tq4_wbuf_Write_uchar(buffer, static_cast<unsigned char>(byte));
}

template <class Number> int Tq4_wbuf_write_number(Tq4_wbuf *buffer, Number value) {
    uint8_t raw[sizeof(Number)];
    Tq4_number_storage(value, raw);
    if (buffer->m_cnt < sizeof raw) return Tq4_wbuf_put_value(buffer, raw, sizeof raw);
    if (buffer->m_order_flag && !buffer->m_order)
        Tq4_reverse_copy(buffer->m_ptr, raw, sizeof raw);
    else
        std::memcpy(buffer->m_ptr, raw, sizeof raw);
    buffer->m_ptr += sizeof raw;
    buffer->m_cnt -= sizeof raw;
    return sizeof raw;
}

// Tq4_wbuf_Write_short .. Tq4_wbuf_Write_ldouble(buffer, value): put_value of the number. Return the width, 2, 4, 8 or
// 16 (the extended-precision value's whole storage), or -1.
#define TQ4_WBUF_WRITE(name, type)                                                                                     \
    inline int Tq4_wbuf_Write_##name(Tq4_wbuf *buffer, type value) { return Tq4_wbuf_write_number(buffer, value); }
TQ4_NUMBER_TYPES(TQ4_WBUF_WRITE)
#undef TQ4_WBUF_WRITE
