// byte_writer.hpp: appends numbers in network order and bytes to a write buffer.
//
// Room is taken from the buffer ahead of need and what was written is committed at the end, so that a number is a check
// and a store. While a writer is at work nobody else writes to the buffer. What finds no room is left out.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>

#include "base/byte_order.hpp"
#include "base/charset/conversion.hpp"
#include "base/wbuf.hpp"

class Tq4_byte_writer {
    Tq4_wbuf *const m_to; // borrowed
    uint8_t *m_at;
    uint8_t *m_end;
    const uint64_t m_before;
    bool m_refused = false;

    void Refresh() {
        m_at = m_to->m_ptr;
        m_end = m_at + m_to->m_cnt;
    }
    void Commit() {
        m_to->m_cnt -= static_cast<uint64_t>(m_at - m_to->m_ptr);
        m_to->m_ptr = m_at;
    }

public:
    explicit Tq4_byte_writer(Tq4_wbuf *to) : m_to(to), m_before(Tq4_wbuf_size(to)) { Refresh(); }
    ~Tq4_byte_writer() { Commit(); }
    Tq4_byte_writer(const Tq4_byte_writer &) = delete;
    Tq4_byte_writer &operator=(const Tq4_byte_writer &) = delete;

    // Something cannot be written as it is: in the end nothing has been.
    void Refuse() { m_refused = true; }

    // The end: the bytes appended; when something was refused, 0, and they are gone.
    long Finish() {
        Commit();
        const uint64_t written = Tq4_wbuf_size(m_to) - m_before;
        if (!m_refused) return static_cast<long>(written);
        m_to->m_ptr -= written;
        m_to->m_cnt += written;
        Refresh();
        return 0;
    }

    // Whether these bytes lie in the buffer, where they move when it grows.
    bool Holds(const void *bytes) const {
        return reinterpret_cast<uintptr_t>(bytes) - reinterpret_cast<uintptr_t>(m_to->m_data) < m_to->m_len;
    }

    // Whether n more bytes fit.
    bool Reserve(uint64_t n) {
        if (n <= static_cast<uint64_t>(m_end - m_at)) return true;
        Commit();
        const bool fits = Tq4_wbuf_space(m_to, n) >= n;
        Refresh();
        return fits;
    }

    // Room for n more bytes, and everything before them in the buffer: for callers that then look at a text there.
    void Settle(uint64_t n) {
        Reserve(n);
        Commit();
    }

    template <class Number> void Put(Number number) {
        if (Reserve(sizeof number)) m_at = Store(m_at, number);
    }
    // A number in network order at a place of the caller's. Returns its end.
    template <class Number> static uint8_t *Store(uint8_t *at, Number number) {
        if constexpr (std::endian::native == std::endian::little)
            Tq4_reverse_copy(at, &number, sizeof number);
        else
            std::memcpy(at, &number, sizeof number);
        return at + sizeof number;
    }

    // The bytes may be the buffer's own.
    void PutBytes(Tq4_bytes bytes) {
        if (bytes.size > static_cast<uint64_t>(m_end - m_at)) {
            WithBuffer([=](Tq4_wbuf *buffer) { Tq4_wbuf_memcat(buffer, bytes.data, bytes.size); });
        } else if (bytes.data) {
            std::memmove(m_at, bytes.data, bytes.size);
            m_at += bytes.size;
        }
    }

    // Hands the buffer to what writes to it in other ways.
    template <class Use> void WithBuffer(Use use) {
        Commit();
        use(m_to);
        Refresh();
    }

    // Fills room that was reserved: fill(room, the end of all room) returns the end of what it wrote there. Many small
    // pieces are best written so: each of the other operations waits for the place that the one before it stored.
    template <class FillRoom> void Fill(FillRoom fill) { m_at = fill(m_at, m_end); }

    // The place of n bytes that the caller fills at once; null when they find no room.
    uint8_t *Extend(uint64_t n) {
        if (!Reserve(n)) return nullptr;
        uint8_t *room = m_at;
        m_at += n;
        return room;
    }
};
