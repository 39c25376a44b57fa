// entry_room.hpp: memory for the entries of one table or map.
//
// Entries are all of one size and mostly go together, so they lie side by side in blocks: the first alone or with as
// many as the owner foresees, up to 16; the next four, and then as many as there were before, up to a large page. What
// a removal frees is used by the next insertion; when the last entry is given back, so are all blocks. The owner has
// room for no entry: many tables of a message are empty, and many have one. A document of small objects takes 0.7 times
// as long to decode when each has its entries in one block.
//
// An entry is in two parts: a cache line with all that a look-up reads, and the rest. In blocks of up to 1,000 entries,
// the parts of each lie side by side, and changes find both at once. In larger ones the lines of all come first, so
// that the caches hold lines, and no rests beside them: a look-up among 100,000 entries takes half the time.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <utility>

#include "assert.hpp"
#include "object_memory.hpp"
#include "platform/multi_platform_memory.hpp"

// Room for one entry.
struct Tq4_entry_place {
    static constexpr std::size_t line = 64; // bytes of the first part, in larger blocks a cache line of its own

    void *entry;   // the first part
    uint32_t rest; // distance of the other part, in bytes
};

// What entries have besides their line is rest_size bytes.
template <std::size_t rest_size> class Tq4_entry_room {
    struct Block {
        Block *next;
        std::size_t bytes;
    };
    struct Free {
        Free *next;
        uint32_t rest;
    };
    static constexpr std::size_t line = Tq4_entry_place::line, few = 16, second = 4, many = 1000;

    Block *m_blocks = nullptr;     // owned
    Free *m_free = nullptr;        // given back one by one
    std::byte *m_unused = nullptr; // the next entry that was never taken
    uint32_t m_unused_count = 0;
    uint32_t m_unused_rest = 0; // where its rest lies
    uint32_t m_total = 0;       // all rooms
    uint32_t m_taken = 0;

public:
    static constexpr std::size_t size = line + rest_size;                              // of an entry
    static constexpr std::size_t most = (MP_large_page - sizeof(Block) - line) / size; // rooms of the largest block
    static constexpr std::size_t most_foreseen = few;
    static_assert(size % 16 == 0 && sizeof(Block) % 16 == 0, "an index uses the lowest 4 bits of an entry's address");
    // Memory of a block, but for the largest.
    static constexpr std::size_t BlockBytes(std::size_t count) {
        const bool aligned = count > many || (size % line == 0 && count > few);
        return sizeof(Block) + count * size + (aligned ? line : 0);
    }
    // Rooms of the block that is made when there are `total`, and at most `coming` entries are still to come.
    static constexpr std::size_t BlockBehind(std::size_t total, std::size_t coming) {
        return total ? std::min(std::clamp<std::size_t>(total, second, most), std::max<std::size_t>(coming, 1))
                     : std::clamp<std::size_t>(coming, 1, most_foreseen);
    }

    Tq4_entry_room() = default;
    ~Tq4_entry_room() { GiveAll(); }
    Tq4_entry_room(const Tq4_entry_room &) = delete;
    Tq4_entry_room &operator=(const Tq4_entry_room &) = delete;

    // Room for one entry, both parts aligned for pointers. The first lies at a multiple of 16, which an index needs.
    Tq4_entry_place Take() {
        ++m_taken;
        if (Free *room = m_free) {
            m_free = room->next;
            return {room, room->rest};
        }
        if (m_unused_count == 0) Grow(m_total ? BlockBehind(m_total, most) : 1);
        --m_unused_count;
        const Tq4_entry_place place{m_unused, m_unused_rest};
        const bool apart = m_unused_rest != line;
        m_unused += apart ? line : size;
        if (apart) m_unused_rest -= static_cast<uint32_t>(line - rest_size);
        return place;
    }
    void Give(Tq4_entry_place place) {
        TQ4_CHECK(m_taken > 0);
        m_free = new (place.entry) Free{m_free, place.rest};
        if (--m_taken == 0) GiveAll();
    }

    // Rooms that must be made for the next entry; 0 while there is one. The first block has room for those foreseen.
    std::size_t NextBlock(std::size_t foreseen) const {
        return m_free || m_unused_count ? 0 : BlockBehind(m_total, m_total ? most : foreseen);
    }
    // Makes that block.
    void Foresee(std::size_t entries) {
        if (m_total == 0) Grow(BlockBehind(0, entries));
    }
    // No more entries than these will come: when there is no room for the next, the block has none beyond them.
    void Announce(std::size_t entries) {
        if (!m_free && !m_unused_count) Grow(BlockBehind(m_total, entries));
    }

    // All rooms of this one become the other's, and the other's this one's.
    void Swap(Tq4_entry_room &other) {
        std::swap(m_blocks, other.m_blocks);
        std::swap(m_free, other.m_free);
        std::swap(m_unused, other.m_unused);
        std::swap(m_unused_count, other.m_unused_count);
        std::swap(m_unused_rest, other.m_unused_rest);
        std::swap(m_total, other.m_total);
        std::swap(m_taken, other.m_taken);
    }

    // Gives back all rooms.
    void GiveAll() {
        while (Block *block = m_blocks) {
            m_blocks = block->next;
            block->bytes == MP_large_page ? std::free(block) : Tq4_object_memory_free(block, block->bytes);
        }
        m_free = nullptr;
        m_unused = nullptr;
        m_unused_count = m_total = m_taken = 0;
    }

private:
    // In blocks of more than 16 entries, an entry of whole cache lines begins with one; in those kept apart, each first
    // part does. Not inlined, to keep Take short.
    [[gnu::noinline]] void Grow(std::size_t count) {
        const bool apart = count > many;
        std::size_t bytes = BlockBytes(count);
        const bool aligned = bytes > sizeof(Block) + count * size;
        std::byte *memory = nullptr;
        if (count == most) memory = static_cast<std::byte *>(MP_LargePages(bytes = MP_large_page));
        if (!memory) memory = static_cast<std::byte *>(Tq4_object_memory(bytes));
        m_blocks = new (memory) Block{m_blocks, bytes};
        m_unused = memory + sizeof(Block);
        if (aligned) m_unused += -reinterpret_cast<uintptr_t>(m_unused) % line;
        m_unused_count = static_cast<uint32_t>(count);
        m_unused_rest = static_cast<uint32_t>(apart ? count * line : line);
        m_total += m_unused_count;
    }
};
