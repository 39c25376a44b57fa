// wbuf.hpp: the growable write buffer.
//
// A cursor runs through one allocation: data written so far is m_data .. m_ptr, and
// m_ptr - m_data + m_cnt == m_len always holds. The storage is NUL-terminated when made and on Reset; ordinary writes
// append no NUL. Numbers are written in network order unless m_order_flag is 0.
//
// The capacity m_len grows by small fixed steps that callers may observe; the allocation behind it (m_room) grows
// geometrically, so that appending moves each byte about once.
#pragma once

#include <cstdarg>
#include <cstdint>

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
