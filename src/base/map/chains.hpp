// chains.hpp: the hash chains that all maps are made of.
//
// Entries stand in chains by hash modulo the bucket count, the newest first: the order in which maps iterate and in
// which a look-up meets entries. The number of chains never grows by itself. So that look-ups stay cheap in large maps,
// an index over the full hashes stands beside the chains once there are more than a few entries a chain. The index
// answers like the chain where at most one entry can match and its hash is the one asked for; where that is not so,
// the map asks the chain itself.
//
// An entry type derives from Tq4_chained<Entry>. The chains link and unlink entries and never destroy one by
// themselves.
#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "assert.hpp"
#include "platform/multi_platform_memory.hpp"

template <class Entry> struct Tq4_chained {
    Entry *pNext = nullptr;
    Entry *pPrev = nullptr;
    uint32_t nHashValue = 0; // bucket index
    uint32_t m_spread = 0;   // the full hash, spread
};

// Where an entry stands: in the chain of bucket modulo the number of chains, and in the index under full. Mostly both
// are the one hash of its key.
struct Tq4_chain_hash {
    uint64_t bucket;
    uint64_t full;
    Tq4_chain_hash(uint64_t hash) : bucket(hash), full(hash) {}
    Tq4_chain_hash(uint64_t bucket_hash, uint64_t full_hash) : bucket(bucket_hash), full(full_hash) {}

    // The hashes of short texts and small numbers lie close together: 32 bits in which they do not.
    uint32_t spread() const { return static_cast<uint32_t>((full ^ full >> 32) * 0x9E3779B97F4A7C15u >> 32); }
};

// Open addressing over spread full hashes, three quarters full at most; removal shifts back, so there are no
// tombstones.
template <class Entry> class Tq4_hash_index {
    struct Slot {
        uint32_t spread;
        Entry *entry; // borrowed; null when free
    };
    struct Free {
        void operator()(Slot *slots) const { std::free(slots); }
    };
    std::unique_ptr<Slot[], Free> m_slots;
    std::size_t m_mask = 0; // slots - 1
    unsigned m_shift = 0;
    std::size_t m_count = 0;

    std::size_t home(uint32_t spread) const { return spread >> m_shift; }

    void Place(const Slot &placed) {
        std::size_t at = home(placed.spread);
        while (m_slots[at].entry) at = (at + 1) & m_mask;
        m_slots[at] = placed;
    }
    static Slot *NewSlots(std::size_t size) {
        const std::size_t bytes = size * sizeof(Slot);
        void *memory = bytes % MP_large_page == 0 ? MP_LargePages(bytes) : nullptr;
        if (!memory) memory = std::malloc(bytes);
        TQ4_ASSERT(memory != nullptr);
        return static_cast<Slot *>(std::memset(memory, 0, bytes));
    }
    void Grow() {
        const std::size_t size = m_slots ? 2 * (m_mask + 1) : 256;
        std::unique_ptr<Slot[], Free> old(NewSlots(size));
        old.swap(m_slots);
        const std::size_t old_size = old ? m_mask + 1 : 0;
        m_mask = size - 1;
        m_shift = 32u - static_cast<unsigned>(std::countr_zero(size));
        for (std::size_t i = 0; i < old_size; ++i)
            if (old[i].entry) Place(old[i]);
    }

public:
    explicit operator bool() const { return m_slots != nullptr; }

    void Add(Entry *entry) {
        if (4 * (m_count + 1) > 3 * m_mask) Grow();
        Place({entry->m_spread, entry});
        ++m_count;
    }
    void Remove(const Entry *entry) {
        std::size_t at = home(entry->m_spread);
        while (m_slots[at].entry != entry) at = (at + 1) & m_mask;
        std::size_t hole = at;
        while (m_slots[at = (at + 1) & m_mask].entry) {
            const std::size_t wanted = home(m_slots[at].spread);
            if (((at - wanted) & m_mask) < ((at - hole) & m_mask)) continue; // would move in front of its home
            m_slots[hole] = m_slots[at];
            hole = at;
        }
        m_slots[hole].entry = nullptr;
        --m_count;
    }
    void Replace(const Entry *old, Entry *fresh) {
        std::size_t at = home(old->m_spread);
        while (m_slots[at].entry != old) at = (at + 1) & m_mask;
        m_slots[at].entry = fresh;
    }
    template <class Match> Entry *Find(uint32_t spread, Match match) const {
        for (std::size_t at = home(spread); m_slots[at].entry; at = (at + 1) & m_mask)
            if (m_slots[at].spread == spread && match(*m_slots[at].entry)) return m_slots[at].entry;
        return nullptr;
    }
    void Clear() {
        m_slots.reset();
        m_mask = m_count = 0;
    }
};

template <class Entry> class Tq4_chains {
    static constexpr std::size_t first_size = 17;
    static constexpr uint64_t most_heads = UINT32_MAX;
    static constexpr int indexed_from = 64; // entries; below, the chains are short enough

    Entry *m_first_heads[first_size] = {};
    struct Free {
        void operator()(Entry **heads) const { std::free(heads); }
    };
    std::unique_ptr<Entry *[], Free> m_other_heads; // after Resize
    Entry **m_pHashTable = m_first_heads;
    uint64_t m_nHashTableSize = first_size;
    int m_nCount = 0;
    Tq4_hash_index<Entry> m_index;

public:
    Tq4_chains() = default;
    Tq4_chains(const Tq4_chains &) = delete;
    Tq4_chains &operator=(const Tq4_chains &) = delete;

    uint64_t size() const { return m_nHashTableSize; }
    int count() const { return m_nCount; }
    bool indexed() const { return static_cast<bool>(m_index); }

    // A new number of chains, while there are no entries; 0, and more than memory can hold, changes nothing.
    void Resize(uint64_t heads = first_size) {
        if (m_nCount > 0 || heads == m_nHashTableSize || heads == 0 || heads > most_heads) return;
        Entry **other = heads == first_size ? nullptr : static_cast<Entry **>(std::calloc(heads, sizeof *other));
        if (!other && heads != first_size) return;
        m_other_heads.reset(other);
        m_pHashTable = other ? other : m_first_heads;
        m_nHashTableSize = heads;
    }

    // The first entry of the hash's chain that matches.
    template <class Match> Entry *FindInChain(Tq4_chain_hash hash, Match match) const {
        Entry *entry = m_pHashTable[BucketOf(hash)];
        while (entry && !match(*entry)) entry = entry->pNext;
        return entry;
    }
    // The same where at most one entry matches and it was added under this hash.
    template <class Match> Entry *Find(Tq4_chain_hash hash, Match match) const {
        const uint32_t spread = hash.spread();
        if (m_index) return m_index.Find(spread, match);
        return FindInChain(hash, [&](const Entry &entry) { return entry.m_spread == spread && match(entry); });
    }

    void Add(Entry *entry, Tq4_chain_hash hash) { Add(entry, BucketOf(hash), hash.spread()); }
    // As an entry of other chains of the same number was added.
    void AddLike(Entry *entry, const Entry &other) { Add(entry, other.nHashValue, other.m_spread); }

    void Unlink(Entry *entry) {
        (entry->pPrev ? entry->pPrev->pNext : m_pHashTable[entry->nHashValue]) = entry->pNext;
        if (entry->pNext) entry->pNext->pPrev = entry->pPrev;
        if (m_index) m_index.Remove(entry);
        --m_nCount;
    }

    // The new entry takes the place of the old one, which is no longer in the chains.
    void Replace(Entry *old, Entry *fresh) {
        static_cast<Tq4_chained<Entry> &>(*fresh) = *old;
        (old->pPrev ? old->pPrev->pNext : m_pHashTable[old->nHashValue]) = fresh;
        if (old->pNext) old->pNext->pPrev = fresh;
        if (m_index) m_index.Replace(old, fresh);
    }

    // By bucket, and within a bucket the newest first; null at the end.
    Entry *First() const { return m_nCount > 0 ? FirstFrom(0) : nullptr; }
    Entry *Next(const Entry *entry) const { return entry->pNext ? entry->pNext : FirstFrom(entry->nHashValue + 1); }

    // One step of an iteration whose position is the entry to report next, null before the first step. Gives that
    // entry and moves the position on; null, and the position null, after the last. The position may be null.
    Entry *Step(void **position) const {
        if (!position) return nullptr;
        Entry *entry = *position ? static_cast<Entry *>(*position) : First();
        *position = entry ? Next(entry) : nullptr;
        return entry;
    }

    // Visits in the same order until visit is non-zero; it may remove the entry it is shown.
    template <class Visit> void Each(Visit visit) const {
        for (Entry *entry = First(); entry;) {
            Entry *following = Next(entry);
            if (visit(*entry)) return;
            entry = following;
        }
    }

    // As many entries here as there, alike(here, there) in iteration order.
    template <class Alike> bool Equal(const Tq4_chains &other, Alike alike) const {
        if (m_nCount != other.m_nCount) return false;
        const Entry *here = First(), *there = other.First();
        for (; here && there; here = Next(here), there = other.Next(there))
            if (!alike(*here, *there)) return false;
        return true;
    }

    // Every entry, each chain from its oldest on: adding copies in this order gives the same chains.
    template <class Visit> void EachOldestFirst(Visit visit) const {
        for (uint64_t bucket = 0; bucket < m_nHashTableSize; ++bucket) {
            const Entry *entry = m_pHashTable[bucket];
            while (entry && entry->pNext) entry = entry->pNext;
            for (; entry; entry = entry->pPrev) visit(*entry);
        }
    }

    // Forgets all entries without a look at them.
    void Forget() {
        std::fill_n(m_first_heads, first_size, nullptr);
        if (m_other_heads) std::fill_n(m_pHashTable, m_nHashTableSize, nullptr);
        m_nCount = 0;
        m_index.Clear();
    }

    // Takes all entries out and hands each to dispose.
    template <class Dispose> void Clear(Dispose dispose) {
        for (uint64_t i = 0; i < m_nHashTableSize && m_nCount > 0; ++i)
            while (Entry *entry = m_pHashTable[i]) {
                m_pHashTable[i] = entry->pNext;
                --m_nCount;
                dispose(entry);
            }
        m_index.Clear();
    }

private:
    // The usual number of chains is a constant to the compiler, which then needs no division.
    uint32_t BucketOf(Tq4_chain_hash hash) const {
        return static_cast<uint32_t>(m_nHashTableSize == first_size ? hash.bucket % first_size
                                                                    : hash.bucket % m_nHashTableSize);
    }
    void Add(Entry *entry, uint32_t bucket, uint32_t spread) {
        entry->m_spread = spread;
        entry->nHashValue = bucket;
        Entry *&head = m_pHashTable[entry->nHashValue];
        entry->pNext = head;
        entry->pPrev = nullptr;
        if (head) head->pPrev = entry;
        head = entry;
        ++m_nCount;
        if (m_index)
            m_index.Add(entry);
        else if (m_nCount == indexed_from)
            for (Entry *each = First(); each; each = Next(each)) m_index.Add(each);
    }
    Entry *FirstFrom(uint64_t bucket) const {
        while (bucket < m_nHashTableSize && !m_pHashTable[bucket]) ++bucket;
        return bucket < m_nHashTableSize ? m_pHashTable[bucket] : nullptr;
    }
};
