// intmap: chains of entries under one, two or three integers.
//
// The bucket comes from the sum of the keys given, and a match compares only the keys given; so a look-up by fewer
// keys than an entry has also finds that entry when it lies in the same bucket, deliberately. The chains' index finds
// entries by all three keys: it answers for a look-up by fewer keys as long as no entry has more.
#include "tq4/intmap.h"

#include "base/map/chains.hpp"
#include "module.hpp"

struct Tq4_CAssocEx : Tq4_chained<Tq4_CAssocEx> {
    uint64_t ukey, ukey2, ukey3; // keys not given are 0
    void *value;                 // borrowed

    // How many keys it takes to tell this entry's keys from none at all.
    int arity() const { return ukey3 ? 3 : ukey2 ? 2 : 1; }
};

namespace {

struct Keys {
    uint64_t k1, k2 = 0, k3 = 0;
    // The bucket is the plain sum; the index keeps apart what has the same sum.
    Tq4_chain_hash hash() const { return {k1 + k2 + k3, (k1 * 0x9E3779B97F4A7C15u + k2) * 0xC2B2AE3D27D4EB4Fu + k3}; }
};

void *value_of(const Tq4_CAssocEx *entry) { return entry ? entry->value : nullptr; }

} // namespace

struct Tq4_intmap_obj {
    Tq4_chains<Tq4_CAssocEx> m_chains;
    int m_with_arity[4] = {}; // entries by arity

    ~Tq4_intmap_obj() { RemoveAll(); }
    void Reset() {
        RemoveAll();
        m_chains.Resize();
    }
    void Copy(const Tq4_intmap_obj *source) {
        if (source == this) return;
        Reset();
        if (!source) return;
        m_chains.Resize(source->m_chains.size());
        source->m_chains.EachOldestFirst([this](const Tq4_CAssocEx &entry) { Add(new Tq4_CAssocEx(entry)); });
    }
    // The same keys with the same values in the same order.
    bool Equal(const Tq4_intmap_obj &other) const {
        return m_chains.Equal(other.m_chains, [](const Tq4_CAssocEx &a, const Tq4_CAssocEx &b) {
            return a.value == b.value && a.ukey == b.ukey && a.ukey2 == b.ukey2 && a.ukey3 == b.ukey3;
        });
    }

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
    void RemoveAll() {
        m_chains.Clear([](Tq4_CAssocEx *entry) { delete entry; });
        for (int &count : m_with_arity) count = 0;
    }
    void *Next(unsigned long *k1, unsigned long *k2, unsigned long *k3, void **position) const {
        Tq4_CAssocEx *entry = m_chains.Step(position);
        if (k1) *k1 = entry ? entry->ukey : 0;
        if (k2) *k2 = entry ? entry->ukey2 : 0;
        if (k3) *k3 = entry ? entry->ukey3 : 0;
        return value_of(entry);
    }
    void each(Tq4_intmap_visitor visitor, void *param) const {
        if (!visitor) return;
        m_chains.Each([&](const Tq4_CAssocEx &entry) {
            return visitor(entry.ukey, entry.ukey2, entry.ukey3, entry.value, param) != 0;
        });
    }

private:
    template <int arity> Tq4_CAssocEx *Find(const Keys &asked) const {
        const auto match = [&](const Tq4_CAssocEx &entry) {
            return entry.ukey == asked.k1 && (arity < 2 || entry.ukey2 == asked.k2) &&
                   (arity < 3 || entry.ukey3 == asked.k3);
        };
        const bool one_candidate = (arity > 2 || !m_with_arity[3]) && (arity > 1 || !m_with_arity[2]);
        return one_candidate ? m_chains.Find(asked.hash(), match) : m_chains.FindInChain(asked.hash(), match);
    }
    template <int arity> void SetAt(void *value, const Keys &keys) {
        Tq4_CAssocEx *entry = Find<arity>(keys);
        if (!entry) Add(entry = new Tq4_CAssocEx{{}, keys.k1, keys.k2, keys.k3, value});
        entry->value = value;
    }
    template <int arity> void *Remove(const Keys &keys) {
        Tq4_CAssocEx *entry = Find<arity>(keys);
        if (!entry) return nullptr;
        void *value = entry->value;
        m_chains.Unlink(entry);
        --m_with_arity[entry->arity()];
        delete entry;
        return value;
    }
    void Add(Tq4_CAssocEx *entry) {
        m_chains.Add(entry, Keys{entry->ukey, entry->ukey2, entry->ukey3}.hash());
        ++m_with_arity[entry->arity()];
    }
};

const Tq4_intmap_ Tq4_intmap_itf = {
    .HashTableSize = Tq4_op<&Tq4_intmap_obj::HashTableSize>,
    .Init = Tq4_op<&Tq4_intmap_obj::Init>,
    .Count = Tq4_op<&Tq4_intmap_obj::Count>,
    .IsEmpty = Tq4_op<&Tq4_intmap_obj::IsEmpty>,
    .Lookup1 = Tq4_op<&Tq4_intmap_obj::Lookup1>,
    .Lookup2 = Tq4_op<&Tq4_intmap_obj::Lookup2>,
    .Lookup3 = Tq4_op<&Tq4_intmap_obj::Lookup3>,
    .SetAt1 = Tq4_op<&Tq4_intmap_obj::SetAt1>,
    .SetAt2 = Tq4_op<&Tq4_intmap_obj::SetAt2>,
    .SetAt3 = Tq4_op<&Tq4_intmap_obj::SetAt3>,
    .Remove1 = Tq4_op<&Tq4_intmap_obj::Remove1>,
    .Remove2 = Tq4_op<&Tq4_intmap_obj::Remove2>,
    .Remove3 = Tq4_op<&Tq4_intmap_obj::Remove3>,
    .RemoveAll = Tq4_op<&Tq4_intmap_obj::RemoveAll>,
    .Next = Tq4_op<&Tq4_intmap_obj::Next>,
    .each = Tq4_op<&Tq4_intmap_obj::each>,
};
TQ4_MODULE(intmap)
