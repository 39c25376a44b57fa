// intmap: chains of entries under one, two or three integers.
//
// The bucket comes from the sum of the keys given, and a match compares only the keys given; so a look-up by fewer
// keys than an entry has also finds that entry when it lies in the same bucket, deliberately. The chains' index finds
// entries by all three keys: it answers for a look-up by fewer keys as long as no entry has more.
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
    source->m_chains.EachOldestFirst([this](const Tq4_CAssocEx &entry) { Add(new Tq4_CAssocEx(entry)); });
}

// The same keys with the same values in the same order.
bool Tq4_intmap_obj::Equal(const Tq4_intmap_obj &other) const {
    return m_chains.Equal(other.m_chains, [](const Tq4_CAssocEx &a, const Tq4_CAssocEx &b) {
        return a.value == b.value && a.ukey == b.ukey && a.ukey2 == b.ukey2 && a.ukey3 == b.ukey3;
    });
}

void Tq4_intmap_obj::RemoveAll() {
    m_chains.Clear([](Tq4_CAssocEx *entry) { delete entry; });
    for (int &count : m_with_arity) count = 0;
}

void *Tq4_intmap_obj::Next(unsigned long *k1, unsigned long *k2, unsigned long *k3, void **position) const {
    Tq4_CAssocEx *entry = m_chains.Step(position);
    if (k1) *k1 = entry ? entry->ukey : 0;
    if (k2) *k2 = entry ? entry->ukey2 : 0;
    if (k3) *k3 = entry ? entry->ukey3 : 0;
    return value_of(entry);
}

void Tq4_intmap_obj::each(Tq4_intmap_visitor visitor, void *param) const {
    if (!visitor) return;
    m_chains.Each([&](const Tq4_CAssocEx &entry) {
        return visitor(entry.ukey, entry.ukey2, entry.ukey3, entry.value, param) != 0;
    });
}

void Tq4_intmap_obj::Add(Tq4_CAssocEx *entry) {
    m_chains.Add(entry, Tq4_intmap_keys{entry->ukey, entry->ukey2, entry->ukey3}.hash());
    ++m_with_arity[entry->arity()];
}

void *Tq4_intmap_obj::Remove(Tq4_CAssocEx *entry) {
    void *value = entry->value;
    m_chains.Unlink(entry);
    --m_with_arity[entry->arity()];
    delete entry;
    return value;
}

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
