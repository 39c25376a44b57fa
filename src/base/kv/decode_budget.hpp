// decode_budget.hpp: how much memory decoding may take for its input.
//
// A few bytes can name an entry, a table or a text, each of which takes much more memory than they. One call of Import
// or Json_decode holds at most 256 times its input and a megabyte. What is charged for a part is what its memory comes
// to at most, with the allocator's share; so Check, which builds nothing, comes to the same sum.
#pragma once

#include <algorithm>

#include "base/kv/limits.hpp"
#include "base/kv/table.hpp"

class Tq4_decode_budget {
    static constexpr uint64_t allocator = 16; // bytes in front of a block
    // What an honest document of many tiny tables or arrays needs for each of its bytes is up to 230.
    static constexpr uint64_t each_input_byte = 256, base = 1 << 20;
    static constexpr uint64_t rounding = 1 << 16; // of the largest blocks, to pages

    uint64_t m_allowed, m_taken = 0;
    uint64_t m_zeros = Tq4_value_zero_bytes_limit;

public:
    // For what is decoded from so many bytes; the share of zeros is left for them.
    static constexpr uint64_t Whole(uint64_t input) { return input * each_input_byte + base - rounding; }
    static constexpr uint64_t Allowance(uint64_t input) { return Whole(input) - Tq4_value_zero_bytes_limit; }
    explicit Tq4_decode_budget(uint64_t allowed) : m_allowed(allowed) {}

    uint64_t taken() const { return m_taken; }
    // Whether so much can be taken; when it cannot, nothing can from now on.
    bool Fits(uint64_t bytes) {
        if (m_taken + bytes <= m_allowed) return true;
        m_taken = m_allowed + 1;
        return false;
    }
    bool exceeded() const { return m_taken > m_allowed; }
    bool Take(uint64_t bytes) { return (m_taken += bytes) <= m_allowed; }

    bool Table() { return Take(sizeof(Tq4_object) + sizeof(Tq4_value_table_obj) + allocator); }
    // One more entry in a table that has this many. Entries come in blocks, of which the largest may take twice their
    // size to lie at a multiple of it; once there are a few, an index grows with them.
    bool Entry(uint64_t before) { return Take(EntryCost(before)); }
    static uint64_t EntryCost(uint64_t before) {
        constexpr uint64_t few = 8, slots = 32, heads = 160;
        using Room = Tq4_entry_room<sizeof(Tq4_kv_pair)>;
        const uint64_t entries = Room::RoomsMadeAt(before);
        if (entries == 0) return before == few ? heads : 0;
        const uint64_t block =
            entries == Room::most ? 2 * MP_large_page : entries * sizeof(Tq4_kv_pair) + 2 * allocator;
        return block + (before < few ? 0 : entries * slots);
    }
    // The bytes of a key, a text or a packed array.
    bool Bytes(uint64_t n) { return n <= Tq4_text_cell::most_inside || Take(n + 1 + 2 * allocator); }
    // A string array; and an element of one, a string in a queue.
    bool Array() { return Take(384); }
    bool Element(uint64_t n) { return Take(n < Tq4_string_obj::first_capacity ? 256 : 256 + 256 + n + n / 2); }
    // An element that is appended to a packed array, whose string grows ahead of it.
    bool Appended() { return Take(64); }
    // How many of these bytes, which the input does not have, there may be as zeros.
    uint64_t Zeros(uint64_t wanted) {
        const uint64_t given = std::min(wanted, m_zeros);
        m_zeros -= given;
        return given;
    }
};
