// intmap: chains of entries under one, two or three integers.
//
// The bucket comes from the sum of the keys given, and a match compares only the keys given; so a look-up by fewer
// keys than an entry has also finds that entry when it lies in the same bucket, deliberately. The chains' index finds
// entries by all three keys: it answers for a look-up by fewer keys as long as no entry has more. Then groups do.
#include "base/map/intmap.hpp"

#include "module.hpp"

void Tq4_intmap_obj::Reset() {
    RemoveAll();
    m_chains.Resize();
}

void Tq4_intmap_obj::Copy(const Tq4_intmap_obj *source) {
    if (source == this) return;
    Reset();
    if (!source) return;
    m_chains.Resize(source->m_chains.size());
    source->m_chains.EachOldestFirst(
        [this](const Tq4_CAssocEx &entry) { Add(new Tq4_CAssocEx(entry.keys, entry.value)); });
}

// The same keys with the same values in the same order.
bool Tq4_intmap_obj::Equal(const Tq4_intmap_obj &other) const {
    return m_chains.Equal(other.m_chains, [](const Tq4_CAssocEx &a, const Tq4_CAssocEx &b) {
        return a.value == b.value && a.keys.begin_like<3>(b.keys);
    });
}

void Tq4_intmap_obj::RemoveAll() {
    m_chains.Clear([](Tq4_CAssocEx *entry) { delete entry; });
    Emptied();
}

void *Tq4_intmap_obj::Next(unsigned long *k1, unsigned long *k2, unsigned long *k3, void **position) const {
    Tq4_CAssocEx *entry = m_chains.Step(position);
    if (k1) *k1 = entry ? entry->keys.k1 : 0;
    if (k2) *k2 = entry ? entry->keys.k2 : 0;
    if (k3) *k3 = entry ? entry->keys.k3 : 0;
    return value_of(entry);
}

void Tq4_intmap_obj::each(Tq4_intmap_visitor visitor, void *param) const {
    if (!visitor) return;
    m_chains.Each([&](const Tq4_CAssocEx &entry) {
        return visitor(entry.keys.k1, entry.keys.k2, entry.keys.k3, entry.value, param) != 0;
    });
}

void Tq4_intmap_obj::Add(Tq4_CAssocEx *entry) {
    m_chains.AddInBucket(entry, m_chains.BucketOf(entry->keys.sum()));
    m_by_one.Added(entry);
    m_by_two.Added(entry);
    m_most_keys = std::max(m_most_keys, entry->arity());
}

void *Tq4_intmap_obj::Remove(Tq4_CAssocEx *entry) {
    void *value = entry->value;
    m_chains.Unlink(entry);
    m_by_one.Unlinked(entry, m_chains);
    m_by_two.Unlinked(entry, m_chains);
    delete entry;
    if (IsEmpty()) Emptied();
    return value;
}

void Tq4_intmap_obj::Emptied() {
    m_by_one.Drop();
    m_by_two.Drop();
    m_most_keys = 1;
}

template <int given> Tq4_CAssocEx *Tq4_intmap_obj::FindInGroup(const Tq4_intmap_keys &asked) const {
    const uint32_t bucket = m_chains.BucketOf(asked.sum());
    const auto match = [&](const Tq4_CAssocEx &entry) {
        return entry.nHashValue == bucket && asked.begin_like<given>(entry.keys);
    };
    const uint64_t hash = Tq4_same_beginning<given>::hash(asked, bucket);
    if constexpr (given == 1) return m_by_one.Of(m_chains).Find(hash, match);
    return m_by_two.Of(m_chains).Find(hash, match);
}
template Tq4_CAssocEx *Tq4_intmap_obj::FindInGroup<1>(const Tq4_intmap_keys &) const;
template Tq4_CAssocEx *Tq4_intmap_obj::FindInGroup<2>(const Tq4_intmap_keys &) const;

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
