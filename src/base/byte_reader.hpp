// byte_reader.hpp: the bounds-checked reader of bytes that come from outside.
//
// Numbers are big-endian. A read that would run past the end fails and moves nothing.
#pragma once

#include <bit>
#include <concepts>
#include <cstdint>
#include <cstring>

#include "base/byte_order.hpp"
#include "base/charset/conversion.hpp"

class Tq4_byte_reader {
    const uint8_t *m_at;
    std::size_t m_left;

public:
    explicit Tq4_byte_reader(Tq4_bytes bytes) : m_at(bytes.data), m_left(bytes.size) {}
    Tq4_byte_reader(const void *bytes, long size)
        : m_at(static_cast<const uint8_t *>(bytes)), m_left(bytes && size > 0 ? static_cast<std::size_t>(size) : 0) {}

    const uint8_t *at() const { return m_at; }
    std::size_t left() const { return m_left; }

    // The next n bytes, borrowed; null data when there are fewer.
    Tq4_bytes Take(std::size_t n) {
        if (n > m_left) return {nullptr, 0};
        const Tq4_bytes taken{m_at, n};
        m_at += n;
        m_left -= n;
        return taken;
    }

    // A number in network order; false when it does not fit.
    template <class Number> bool Read(Number &number) {
        const Tq4_bytes raw = Take(sizeof number);
        if (!raw.data) return false;
        if constexpr (std::endian::native == std::endian::little)
            Tq4_reverse_copy(reinterpret_cast<uint8_t *>(&number), raw.data, sizeof number);
        else
            std::memcpy(&number, raw.data, sizeof number);
        return true;
    }
};
