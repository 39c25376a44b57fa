// decode_budget.hpp: how much memory decoding may take for its input.
//
// A few bytes can name an entry, a table or a text, each of which takes much more memory than they. One call of Import
// or Json_decode holds at most 64 times its input and a megabyte. What is charged for a part is what its memory comes
// to at most, with the allocator's share; so Check, which builds nothing, comes to the same sum.
#pragma once

#include <algorithm>
#include <cstring>

#include "base/kv/limits.hpp"
#include "base/kv/table.hpp"

class Tq4_decode_budget {
    using Room = Tq4_kv_pair::Room;

    static constexpr uint64_t allocator = 16; // bytes in front of a block
    static constexpr uint64_t each_input_byte = 64, base = 1 << 20;
    static constexpr uint64_t rounding = 1 << 16; // of the largest blocks, to pages

    uint64_t m_allowed, m_taken = 0;
    uint64_t m_zeros = Tq4_value_zero_bytes_limit;

public:
    // For an input of that many bytes; the share of zeros is left for them.
    static constexpr uint64_t Whole(uint64_t input) { return input * each_input_byte + base - rounding; }
    static constexpr uint64_t Allowance(uint64_t input) { return Whole(input) - Tq4_value_zero_bytes_limit; }
    explicit Tq4_decode_budget(uint64_t allowed) : m_allowed(allowed) {}

    uint64_t taken() const { return m_taken; }
    // Whether so much can be taken; when it cannot, nothing can from now on.
    bool Fits(uint64_t bytes) {
        if (m_taken + bytes > m_allowed) Close();
        return !exceeded();
    }
    void Close() { m_taken = m_allowed + 1; }
    // What was taken since then is freed.
    void GiveBackTo(uint64_t taken) {
        if (!exceeded()) m_taken = taken;
    }
    bool exceeded() const { return m_taken > m_allowed; }
    bool Take(uint64_t bytes) { return (m_taken += bytes) <= m_allowed; }

    // An encoded table begins with its case flag and the number of its entries. When both are 0, no table is made,
    // unless the host would see it.
    static constexpr std::size_t header = 5;
    static bool NoTable(Tq4_bytes encoding) {
        constexpr uint8_t empty[header] = {};
        return !Tq4_value_hosts_tables() && encoding.size >= header && std::memcmp(encoding.data, empty, header) == 0;
    }
    bool Table() { return Take(sizeof(Tq4_object) + sizeof(Tq4_value_table_obj) + allocator); }
    // The entries of a table that says how many it has.
    class Entries {
        uint64_t m_rooms = 0, m_taken = 0;
        const uint64_t m_expected;

    public:
        explicit Entries(uint64_t expected) : m_expected(std::min<uint64_t>(expected, Room::most_expected)) {}
        uint64_t expected() const { return m_expected; }
        uint64_t NextCost() {
            const uint64_t block = m_taken == m_rooms ? Room::BlockBehind(m_rooms, m_expected) : 0;
            m_rooms += block;
            ++m_taken;
            return EntryCost(block);
        }
    };
    bool Entry(Entries &entries) { return Take(entries.NextCost()); }
    // The cost of the next entry when a block of `rooms` must be made for it. The largest blocks may take twice their
    // size to lie at a multiple of it.
    static uint64_t EntryCost(uint64_t rooms) {
        if (rooms == 0) return 0;
        return rooms == Room::most ? 2 * MP_large_page : Room::BlockBytes(rooms) + allocator;
    }
    // The same for the index of a table whose keys are looked up while it is decoded.
    static uint64_t IndexCost(uint64_t before, uint64_t rooms) {
        constexpr uint64_t few = 8, slots = 32, heads = 160;
        return (before < few ? 0 : rooms * slots) + (before == few ? heads : 0);
    }
    // The bytes of a key, a text or a packed array.
    bool Bytes(uint64_t n) { return n <= Tq4_text_cell::most_inside || Take(n + 1 + 2 * allocator); }
    // A string array; and an element of one, a string in a queue.
    bool Array() { return Take(384); }
    bool Element(uint64_t n) { return Take(n < Tq4_string_obj::first_capacity ? 256 : 256 + 256 + n + n / 2); }
    // An element appended to a packed array of `before` bytes. Beyond a cell it lies in a string that grows ahead.
    bool Appended(uint64_t before, uint64_t width) {
        constexpr uint64_t string = 256, ahead = 4, inside = Tq4_text_cell::most_inside;
        return before + width <= inside || Take(before <= inside ? string : ahead * width);
    }
    // How many of these bytes, which the input does not have, there may be as zeros.
    uint64_t Zeros(uint64_t wanted) {
        const uint64_t given = std::min(wanted, m_zeros);
        m_zeros -= given;
        return given;
    }
};
