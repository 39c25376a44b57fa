// intmap.hpp: the integer map's record. Look-ups are inline for modules that keep a map in their own record.
#pragma once

#include "base/map/chains.hpp"
#include "tq4/intmap.h"

struct Tq4_CAssocEx : Tq4_chained<Tq4_CAssocEx> {
    uint64_t ukey, ukey2, ukey3; // keys not given are 0
    void *value;                 // borrowed

    // How many keys it takes to tell this entry's keys from none at all.
    int arity() const { return ukey3 ? 3 : ukey2 ? 2 : 1; }
};

struct Tq4_intmap_keys {
    uint64_t k1, k2 = 0, k3 = 0;
    // The bucket is the plain sum; the index keeps apart what has the same sum.
    Tq4_chain_hash hash() const { return {k1 + k2 + k3, (k1 * 0x9E3779B97F4A7C15u + k2) * 0xC2B2AE3D27D4EB4Fu + k3}; }
};

struct Tq4_intmap_obj {
    Tq4_chains<Tq4_CAssocEx> m_chains;
    int m_with_arity[4] = {}; // entries by arity

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
    template <int arity> Tq4_CAssocEx *Find(const Tq4_intmap_keys &asked) const {
        const auto match = [&](const Tq4_CAssocEx &entry) {
            return entry.ukey == asked.k1 && (arity < 2 || entry.ukey2 == asked.k2) &&
                   (arity < 3 || entry.ukey3 == asked.k3);
        };
        const bool one_candidate = (arity > 2 || !m_with_arity[3]) && (arity > 1 || !m_with_arity[2]);
        const bool by_index = one_candidate && m_chains.indexed(); // to compare keys is as cheap as to compare hashes
        return by_index ? m_chains.Find(asked.hash(), match) : m_chains.FindInChain(asked.hash(), match);
    }
    template <int arity> void SetAt(void *value, const Tq4_intmap_keys &keys) {
        Tq4_CAssocEx *entry = Find<arity>(keys);
        if (!entry) Add(entry = new Tq4_CAssocEx{{}, keys.k1, keys.k2, keys.k3, value});
        entry->value = value;
    }
    template <int arity> void *Remove(const Tq4_intmap_keys &keys) {
        Tq4_CAssocEx *entry = Find<arity>(keys);
        return entry ? Remove(entry) : nullptr;
    }
    void Add(Tq4_CAssocEx *entry);
    void *Remove(Tq4_CAssocEx *entry);
};
