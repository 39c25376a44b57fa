// intmap.hpp: the integer map's record. Look-ups are inline for modules that keep a map in their own record.
#pragma once

#include "base/key/chain_groups.hpp"
#include "base/key/chains.hpp"
#include "tq4/intmap.h"

struct Tq4_intmap_keys {
    uint64_t k1, k2 = 0, k3 = 0;

    uint64_t sum() const { return k1 + k2 + k3; }
    // Keyed, of the first of them.
    template <int given> uint64_t hash(uint64_t kind = 0) const {
        uint64_t all = Tq4_keyed_number(kind, k1);
        if (given > 1 && (k2 || k3)) all = Tq4_keyed_number(1, all ^ k2);
        if (given > 2 && k3) all = Tq4_keyed_number(2, all ^ k3);
        return all;
    }
    template <int given> bool begin_like(const Tq4_intmap_keys &other) const {
        return k1 == other.k1 && (given < 2 || k2 == other.k2) && (given < 3 || k3 == other.k3);
    }
};

struct Tq4_CAssocEx : Tq4_chained<Tq4_CAssocEx> {
    Tq4_intmap_keys keys; // those not given are 0
    void *value;          // borrowed

    Tq4_CAssocEx(const Tq4_intmap_keys &given, void *pointer) : keys(given), value(pointer) {}
    uint64_t full_hash() const { return keys.hash<3>(); }
    // How many keys it takes to tell this entry's keys from none at all.
    int arity() const { return keys.k3 ? 3 : keys.k2 ? 2 : 1; }
};

// Entries of one bucket that begin with the same keys: what a look-up by fewer keys than they have meets.
template <int given> struct Tq4_same_beginning {
    static uint64_t hash(const Tq4_intmap_keys &keys, uint32_t bucket) {
        return Tq4_keyed_number(bucket, Tq4_intmap_keys{keys.k1, given > 1 ? keys.k2 : 0}.hash<given>());
    }
    static uint64_t hash(const Tq4_CAssocEx &entry) { return hash(entry.keys, entry.nHashValue); }
    static bool same(const Tq4_CAssocEx &a, const Tq4_CAssocEx &b) {
        return a.nHashValue == b.nHashValue && a.keys.begin_like<given>(b.keys);
    }
};

struct Tq4_intmap_obj {
    Tq4_chains<Tq4_CAssocEx> m_chains;
    Tq4_groups_on_demand<Tq4_CAssocEx, Tq4_same_beginning<1>> m_by_one;
    Tq4_groups_on_demand<Tq4_CAssocEx, Tq4_same_beginning<2>> m_by_two;
    int m_most_keys = 1; // that an entry may have; until there are no entries

    ~Tq4_intmap_obj() { RemoveAll(); }
    void Reset();
    void Copy(const Tq4_intmap_obj *source); // null empties
    bool Equal(const Tq4_intmap_obj &other) const;

    unsigned long HashTableSize() const { return m_chains.size(); }
    void Init(unsigned long count) { m_chains.Resize(count); }
    int Count() const { return m_chains.count(); }
    bool IsEmpty() const { return m_chains.count() == 0; }

    void *Lookup1(unsigned long k1) const { return value_of(Find<1>({k1})); }
    void *Lookup2(unsigned long k1, unsigned long k2) const { return value_of(Find<2>({k1, k2})); }
    void *Lookup3(unsigned long k1, unsigned long k2, unsigned long k3) const {
        return value_of(Find<3>({k1, k2, k3}));
    }
    void SetAt1(void *value, unsigned long k1) { SetAt<1>(value, {k1}); }
    void SetAt2(void *value, unsigned long k1, unsigned long k2) { SetAt<2>(value, {k1, k2}); }
    void SetAt3(void *value, unsigned long k1, unsigned long k2, unsigned long k3) { SetAt<3>(value, {k1, k2, k3}); }
    void *Remove1(unsigned long k1) { return Remove<1>({k1}); }
    void *Remove2(unsigned long k1, unsigned long k2) { return Remove<2>({k1, k2}); }
    void *Remove3(unsigned long k1, unsigned long k2, unsigned long k3) { return Remove<3>({k1, k2, k3}); }
    void RemoveAll();
    void *Next(unsigned long *k1, unsigned long *k2, unsigned long *k3, void **position) const;
    void each(Tq4_intmap_visitor visitor, void *param) const;

private:
    static void *value_of(const Tq4_CAssocEx *entry) { return entry ? entry->value : nullptr; }
    // The bucket is the plain sum. Where no entry has more keys than are given, at most one matches.
    template <int given> Tq4_CAssocEx *Find(const Tq4_intmap_keys &asked) const {
        const auto match = [&](const Tq4_CAssocEx &entry) { return asked.begin_like<given>(entry.keys); };
        if (!m_chains.indexed()) return m_chains.FindInChain(asked.sum(), match);
        if (given >= m_most_keys) return m_chains.FindByIndex(asked.hash<3>(), match);
        if constexpr (given < 3) return FindInGroup<given>(asked);
        return nullptr;
    }
    template <int given> Tq4_CAssocEx *FindInGroup(const Tq4_intmap_keys &asked) const;
    template <int given> void SetAt(void *value, const Tq4_intmap_keys &keys) {
        Tq4_CAssocEx *entry = Find<given>(keys);
        if (!entry) Add(entry = new Tq4_CAssocEx(keys, value));
        entry->value = value;
    }
    template <int given> void *Remove(const Tq4_intmap_keys &keys) {
        Tq4_CAssocEx *entry = Find<given>(keys);
        return entry ? Remove(entry) : nullptr;
    }
    void Add(Tq4_CAssocEx *entry);
    void *Remove(Tq4_CAssocEx *entry);
    void Emptied();
};
