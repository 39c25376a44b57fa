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

    static constexpr uint64_t each_input_byte = 64, base = 1 << 20;

    uint64_t m_allowed, m_taken = 0;
    uint64_t m_zeros = Tq4_value_zero_bytes_limit;

public:
    static constexpr uint64_t Allowance(uint64_t input) { return input * each_input_byte + base; }
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
    bool Table() { return Take(Block(sizeof(Tq4_object) + sizeof(Tq4_value_table_obj))); }
    // The entries of a table that says how many it has.
    class Entries {
        uint64_t m_rooms = 0, m_unused = 0, m_left;

    public:
        explicit Entries(uint64_t announced) : m_left(announced) {}
        uint64_t NextCost() {
            const uint64_t block = m_unused ? 0 : Room::BlockBehind(m_rooms, m_left);
            m_rooms += block;
            m_unused += block - 1;
            --m_left;
            return EntryCost(block);
        }
    };
    bool Entry(Entries &entries) { return Take(entries.NextCost()); }
    // The cost of the next entry when a block of `rooms` must be made for it. The largest blocks may take twice their
    // size to lie at a multiple of it.
    static uint64_t EntryCost(uint64_t rooms) {
        if (rooms == 0) return 0;
        return rooms == Room::most ? 2 * MP_large_page : Block(Room::BlockBytes(rooms));
    }
    // The cost of one more among entries that were there before the call: it does not pay for the room that their table
    // makes ahead for as many.
    static uint64_t EntryCostAmong(bool indexed) { return 2 * (Room::size + (indexed ? slots : 0)); }
    // What is taken beside a block by the index of a table whose keys are looked up while it is decoded.
    static uint64_t IndexCost(uint64_t before, uint64_t rooms) {
        constexpr uint64_t few = 8, heads = 160;
        return (before < few ? 0 : rooms * slots) + (before == few ? heads : 0);
    }
    // The bytes of a key, a text or a packed array.
    bool Bytes(uint64_t n) { return n <= Tq4_text_cell::most_inside || Take(Block(n + 1)); }
    // A string array; and an element of one: a string in a queue, whose bytes lie in it or have some room behind them.
    bool Array() { return Take(array); }
    bool Element(uint64_t n) {
        constexpr uint64_t ahead = 160;
        return Take(element + (n <= Tq4_string_obj::first_capacity ? 0 : Block(n + ahead)));
    }
    // An element appended to a packed array of `before` bytes. Beyond a cell it lies in a string that grows ahead.
    bool Appended(uint64_t before, uint64_t width) {
        constexpr uint64_t ahead = 4, inside = Tq4_text_cell::most_inside;
        return before + width <= inside || Take(before <= inside ? element : ahead * width);
    }
    // How many of these bytes, which the input does not have, there may be as zeros.
    uint64_t Zeros(uint64_t wanted) {
        const uint64_t given = exceeded() ? 0 : std::min({wanted, m_zeros, m_allowed - m_taken});
        m_zeros -= given;
        Take(given);
        return given;
    }

private:
    static constexpr uint64_t array = 240, element = 256, slots = 32; // measured, with the allocator's share

    // A block of the allocator's, which puts something in front of it and rounds large ones to pages.
    static constexpr uint64_t Block(uint64_t bytes) {
        constexpr uint64_t large = 1 << 16, pages = 8192, small = 32;
        return bytes + (bytes < large ? small : pages);
    }
};
