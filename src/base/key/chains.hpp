// chains.hpp: the hash chains that all maps are made of, and the index beside them.
//
// Entries stand in chains by hash modulo the bucket count, the newest first: the order in which maps iterate and in
// which a look-up meets entries. The number of chains never grows by itself. While there are few entries a look-up
// walks along a chain. Once there are more, all are in an index over keyed hashes; what an entry is hashed by is told
// by full_hash(), and entries that no look-up finds are left out. The index gives any entry that matches: the map asks
// it only for what at most one entry can match, and else the groups beside it (chain_groups.hpp).
//
// An entry type derives from Tq4_chained<Entry>, or has one elsewhere: then chained() gives it, of(chained) leads back,
// and index_hash() is where the entry keeps its hash for the index. It also has full_hash(), and findable(), which is
// false for entries that no look-up finds. Links lead from one Tq4_chained to the next, so
// that changes touch nothing else of an entry's neighbours. The chains link and unlink entries and never destroy one by
// themselves. Memory goes with the last entry, but for a number of heads that the owner chose.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

#include "assert.hpp"
#include "base/key/hash_index.hpp"
#include "base/key/keyed_hash.hpp"
#include "object_memory.hpp"

template <class Entry> struct Tq4_chained {
    Tq4_chained *pNext = nullptr;
    Tq4_chained *pPrev = nullptr;
    uint32_t nHashValue = 0; // bucket index
    uint32_t m_full = 0;     // the hash in the index, while there is one

    bool findable() const { return true; }
    Tq4_chained &chained() { return *this; }
    const Tq4_chained &chained() const { return *this; }
    static Entry *of(Tq4_chained *chained) { return static_cast<Entry *>(chained); }
    uint32_t &index_hash() { return m_full; }
};

template <class Entry> class Tq4_chains {
    static constexpr uint32_t first_size = 17;
    static constexpr uint64_t most_heads = UINT32_MAX;
    static constexpr std::size_t first_bytes = first_size * sizeof(void *);
    static constexpr int indexed_from = 64; // entries; with fewer, a walk along a chain costs less than a keyed hash
    static constexpr int few = 8;           // entries; heads for them cost more to make than they save
    static constexpr int indexed_until = indexed_from / 4;

    using Node = Tq4_chained<Entry>;

    Node **m_pHashTable = nullptr; // owned: the newest entry of each chain. Null while m_few is in use
    Node *m_few = nullptr;         // of 17 chains with a few entries: all of them, the newest first
    uint32_t m_nHashTableSize = first_size;
    int m_nCount = 0;
    static const uint32_t &index_hash_of(const Entry &entry) { return const_cast<Entry &>(entry).index_hash(); }
    Tq4_hash_index<Entry, index_hash_of> m_index;

    static Entry *entry_of(Node *node) { return node ? Entry::of(node) : nullptr; }

public:
    Tq4_chains() = default;
    ~Tq4_chains() { FreeHeads(); }
    Tq4_chains(const Tq4_chains &) = delete;
    Tq4_chains &operator=(const Tq4_chains &) = delete;

    uint64_t size() const { return m_nHashTableSize; }
    int count() const { return m_nCount; }
    bool indexed() const { return static_cast<bool>(m_index); }

    // A new number of chains, while there are no entries; 0, and more than there is memory for, changes nothing.
    void Resize(uint64_t heads = first_size) {
        if (m_nCount > 0 || heads == m_nHashTableSize || heads == 0 || heads > most_heads) return;
        void *fresh = heads == first_size ? nullptr : std::calloc(heads, sizeof(void *));
        if (!fresh && heads != first_size) return;
        FreeHeads();
        m_pHashTable = static_cast<Node **>(fresh);
        m_nHashTableSize = static_cast<uint32_t>(heads);
    }

    // The usual number of chains is a constant to the compiler, which then needs no division.
    uint32_t BucketOf(uint64_t hash) const {
        return static_cast<uint32_t>(m_nHashTableSize == first_size ? hash % first_size : hash % m_nHashTableSize);
    }

    // The first entry of the hash's chain that matches.
    template <class Match> Entry *FindInChain(uint64_t hash, Match match) const {
        const uint32_t bucket = BucketOf(hash);
        Node *node = m_pHashTable ? m_pHashTable[bucket] : m_few;
        while (node && !(node->nHashValue == bucket && match(*Entry::of(node)))) node = node->pNext;
        return entry_of(node);
    }
    // The entry of that full hash that matches; at most one does. There is an index.
    template <class Match> Entry *FindByIndex(uint64_t full_hash, Match match) const {
        return m_index.Find(Tq4_index_hash(full_hash), match);
    }

    void AddInBucket(Entry *entry, uint32_t bucket) {
        AddInBucket(entry, bucket, [entry] { return entry->full_hash(); });
    }
    // full_hash() gives the entry's, for callers that know it already.
    template <class FullHash> void AddInBucket(Entry *entry, uint32_t bucket, FullHash full_hash) {
        if (!m_pHashTable && m_nCount == few) MakeHeads();
        Node &node = entry->chained();
        node.nHashValue = bucket;
        Link(&node);
        ++m_nCount;
        if (m_index)
            AddToIndex(entry, full_hash);
        else if (m_nCount == indexed_from)
            BeginIndex();
        Check();
    }

    void Unlink(Entry *entry) {
        const Node &node = entry->chained();
        (node.pPrev ? node.pPrev->pNext : HeadOf(node)) = node.pNext;
        if (node.pNext) node.pNext->pPrev = node.pPrev;
        --m_nCount;
        if (m_index && m_nCount < indexed_until)
            m_index.Clear();
        else if (m_index && entry->findable())
            m_index.Remove(entry);
        if (m_nCount == 0) Emptied();
        Check();
    }

    // The new entry takes the place of the old one, which is no longer in the chains.
    void Replace(Entry *old, Entry *fresh) {
        Node &node = fresh->chained() = old->chained();
        fresh->index_hash() = old->index_hash();
        (node.pPrev ? node.pPrev->pNext : HeadOf(node)) = &node;
        if (node.pNext) node.pNext->pPrev = &node;
        if (m_index) m_index.Replace(old, fresh);
    }

    // By bucket, and within a bucket the newest first; null at the end.
    Entry *First() const { return m_nCount > 0 ? entry_of(FirstFrom(0)) : nullptr; }
    Entry *Next(const Entry *entry) const {
        const Node &node = entry->chained();
        if (!m_pHashTable) return entry_of(NextOfFew(node));
        return entry_of(node.pNext ? node.pNext : FirstFrom(uint64_t{node.nHashValue} + 1));
    }

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
        const uint64_t heads = m_pHashTable ? m_nHashTableSize : 1;
        for (uint64_t bucket = 0; m_nCount && bucket < heads; ++bucket) {
            Node *node = m_pHashTable ? m_pHashTable[bucket] : m_few;
            while (node && node->pNext) node = node->pNext;
            for (; node; node = node->pPrev) visit(*Entry::of(node));
        }
    }

    // Forgets all entries without a look at them.
    void Forget() {
        if (m_nCount == 0) return;
        if (m_nHashTableSize != first_size) std::fill_n(m_pHashTable, m_nHashTableSize, nullptr);
        m_nCount = 0;
        Emptied();
    }

    // Takes all entries out and hands each to dispose.
    template <class Dispose> void Clear(Dispose dispose) {
        const uint64_t heads = m_pHashTable ? m_nHashTableSize : 1;
        for (uint64_t bucket = 0; m_nCount && bucket < heads; ++bucket)
            for (Node *node = m_pHashTable ? m_pHashTable[bucket] : m_few, *older; node; node = older) {
                older = node->pNext;
                dispose(Entry::of(node));
            }
        Forget();
    }

    // That the index has the entries that it should, and as much room as they need. Of bounded cost.
    void Check() const {
        if (!Tq4_checks) return;
        TQ4_CHECK(m_nCount >= 0 && (m_nCount <= few || m_pHashTable));
        TQ4_CHECK(!m_few || !m_pHashTable);
        TQ4_CHECK(m_nCount > 0 || !m_index);
        TQ4_CHECK(m_nCount < indexed_from || m_index);
        TQ4_CHECK(m_index.slots() <= 256 || m_index.slots() <= 16 * static_cast<std::size_t>(m_nCount));
    }

private:
    void Emptied() {
        m_index.Clear();
        m_few = nullptr;
        if (m_nHashTableSize == first_size) FreeHeads();
    }
    Node *&HeadOf(const Node &node) { return m_pHashTable ? m_pHashTable[node.nHashValue] : m_few; }
    void Link(Node *node) {
        Node *&head = HeadOf(*node);
        node->pNext = head;
        node->pPrev = nullptr;
        if (head) head->pPrev = node;
        head = node;
    }
    void MakeHeads() {
        Node *oldest = m_few;
        while (oldest->pNext) oldest = oldest->pNext;
        m_few = nullptr;
        m_pHashTable = static_cast<Node **>(std::memset(Tq4_object_memory(first_bytes), 0, first_bytes));
        for (Node *node = oldest, *newer; node; node = newer) {
            newer = node->pPrev;
            Link(node);
        }
    }
    // The newest of the lowest bucket from this one on.
    Node *FirstOfFew(uint64_t bucket) const {
        Node *first = nullptr;
        for (Node *node = m_few; node; node = node->pNext)
            if (node->nHashValue >= bucket && (!first || node->nHashValue < first->nHashValue)) first = node;
        return first;
    }
    Node *NextOfFew(const Node &node) const {
        for (Node *older = node.pNext; older; older = older->pNext)
            if (older->nHashValue == node.nHashValue) return older;
        return FirstOfFew(uint64_t{node.nHashValue} + 1);
    }
    void FreeHeads() {
        if (m_pHashTable)
            m_nHashTableSize == first_size ? Tq4_object_memory_free(m_pHashTable, first_bytes)
                                           : std::free(m_pHashTable);
        m_pHashTable = nullptr;
    }
    template <class FullHash> void AddToIndex(Entry *entry, FullHash full_hash) {
        if (!entry->findable()) return;
        entry->index_hash() = Tq4_index_hash(full_hash());
        m_index.Add(entry);
    }
    void BeginIndex() {
        Tq4_draw_hash_key();
        m_index.Begin();
        for (Entry *entry = First(); entry; entry = Next(entry)) AddToIndex(entry, [=] { return entry->full_hash(); });
    }
    Node *FirstFrom(uint64_t bucket) const {
        if (!m_pHashTable) return FirstOfFew(bucket);
        while (bucket < m_nHashTableSize && !m_pHashTable[bucket]) ++bucket;
        return bucket < m_nHashTableSize ? m_pHashTable[bucket] : nullptr;
    }
};
