// hash_index.hpp: an index of entries by 32-bit hashes.
//
// Open addressing, a quarter to three quarters full, or less when it is small. The highest bits of a hash tell where
// the search begins, its home. A slot is 8 bytes, so that entries that are not asked for stay out of the cache: the
// address of an entry, which has 48 bits; above it the lowest 16 bits of its hash; and in the lowest 4 bits, which are
// 0 in the address, how far behind its home it is. A removal shifts back what follows, so that there are no tombstones.
// The entry keeps its hash: hash_of is a member, or a function that gives it by reference.
#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <utility>

#include "assert.hpp"
#include "platform/multi_platform_memory.hpp"

template <class Entry, auto hash_of> class Tq4_hash_index {
    static constexpr unsigned address_bits = 48;
    static constexpr uint64_t far_behind = 15; // or more: then the entry must be asked
    static constexpr uint64_t address = (uint64_t{1} << address_bits) - 1 - far_behind;
    static constexpr std::size_t least = 128; // slots

    uint64_t *m_slots = nullptr; // owned; a slot is 0 when free
    std::size_t m_mask = 0;      // slots - 1
    uint32_t m_shift = 0;
    uint32_t m_count = 0;

    static const uint32_t &kept_hash(const Entry *entry) { return std::invoke(hash_of, *entry); }
    static Entry *entry_in(uint64_t slot) { return reinterpret_cast<Entry *>(slot & address); }
    static uint64_t slot_of(Entry *entry, uint32_t hash) {
        return reinterpret_cast<uint64_t>(entry) | uint64_t{hash} << address_bits;
    }
    std::size_t home(uint32_t hash) const { return hash >> m_shift; }

    void Put(uint64_t slot, std::size_t at, std::size_t behind) {
        m_slots[at] = (slot & ~far_behind) | std::min<uint64_t>(behind, far_behind);
    }
    void Place(uint64_t slot, uint32_t hash) {
        std::size_t behind = 0;
        while (m_slots[(home(hash) + behind) & m_mask]) ++behind;
        Put(slot, (home(hash) + behind) & m_mask, behind);
    }
    std::size_t behind_home(std::size_t at) const {
        const uint64_t behind = m_slots[at] & far_behind;
        return behind < far_behind ? behind : (at - home(kept_hash(entry_in(m_slots[at])))) & m_mask;
    }
    static uint64_t *NewSlots(std::size_t size) {
        const std::size_t bytes = size * sizeof(uint64_t);
        void *memory = bytes % MP_large_page == 0 ? MP_LargePages(bytes) : nullptr;
        if (!memory) memory = std::malloc(bytes);
        TQ4_ASSERT(memory != nullptr);
        return static_cast<uint64_t *>(std::memset(memory, 0, bytes));
    }
    void Resize(std::size_t size) {
        uint64_t *old = std::exchange(m_slots, NewSlots(size));
        const std::size_t old_size = old ? m_mask + 1 : 0;
        m_mask = size - 1;
        m_shift = 32u - static_cast<unsigned>(std::countr_zero(size));
        constexpr std::size_t ahead = 8; // entries that come into the cache meanwhile, and then where their hashes are
        for (std::size_t i = 0; i < old_size; ++i) {
            if (i + 2 * ahead < old_size) __builtin_prefetch(entry_in(old[i + 2 * ahead]));
            if (i + ahead < old_size && old[i + ahead]) __builtin_prefetch(&kept_hash(entry_in(old[i + ahead])));
            if (old[i]) Place(old[i], kept_hash(entry_in(old[i])));
        }
        std::free(old);
    }
    std::size_t position(const Entry *entry, uint32_t hash) const {
        TQ4_CHECK(entry && m_slots);
        std::size_t at = home(hash);
        while (entry_in(m_slots[at]) != entry) at = (at + 1) & m_mask;
        return at;
    }

public:
    Tq4_hash_index() = default;
    ~Tq4_hash_index() { Clear(); }
    Tq4_hash_index(const Tq4_hash_index &) = delete;
    Tq4_hash_index &operator=(const Tq4_hash_index &) = delete;

    explicit operator bool() const { return m_slots != nullptr; }
    std::size_t slots() const { return m_slots ? m_mask + 1 : 0; }

    // Room for entries, while there is none.
    void Begin() {
        if (!m_slots) Resize(least);
    }
    // The entry has its hash already.
    void Add(Entry *entry) {
        TQ4_CHECK((reinterpret_cast<uint64_t>(entry) & ~address) == 0);
        if (4 * (std::size_t{m_count} + 1) > 3 * m_mask) Resize(m_slots ? 2 * (m_mask + 1) : least);
        const uint32_t hash = kept_hash(entry);
        Place(slot_of(entry, hash), hash);
        ++m_count;
    }
    void Remove(const Entry *entry) {
        std::size_t at = position(entry, kept_hash(entry)), hole = at;
        while (m_slots[at = (at + 1) & m_mask]) {
            const std::size_t behind = behind_home(at), back = (at - hole) & m_mask;
            if (behind < back) continue; // would move in front of its home
            Put(m_slots[at], hole, behind - back);
            hole = at;
        }
        m_slots[hole] = 0;
        --m_count;
        if (m_mask + 1 > least && 8 * std::size_t{m_count} < m_mask) Resize((m_mask + 1) / 4);
    }
    // Of the same hash.
    void Replace(const Entry *old, Entry *fresh) {
        uint64_t &slot = m_slots[position(old, kept_hash(fresh))];
        slot = slot_of(fresh, kept_hash(fresh)) | (slot & far_behind);
    }

    template <class Match> Entry *Find(uint32_t hash, Match match) const {
        const uint64_t tag = uint64_t{hash} << address_bits;
        for (std::size_t at = home(hash); const uint64_t slot = m_slots[at]; at = (at + 1) & m_mask)
            if ((slot ^ tag) >> address_bits == 0 && match(*entry_in(slot))) return entry_in(slot);
        return nullptr;
    }
    template <class Visit> void Each(Visit visit) const {
        for (std::size_t i = 0; i < slots(); ++i)
            if (m_slots[i]) visit(entry_in(m_slots[i]));
    }
    void Clear() {
        std::free(std::exchange(m_slots, nullptr));
        m_mask = m_count = 0;
    }
};
