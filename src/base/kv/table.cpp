// value_table: an insertion-ordered table of typed values.
//
// The list holds the pairs in order; the index, a string map, leads from keys to list items and keeps copies of the
// keys under a case flag of its own. An entry appended under a key that was there already takes over the index; the
// older one stays in the list.
// Cost: look-up, insertion and removal by key are constant; positions cost what they cost in the list, so that a walk
// by At in order is linear in all.
#include "base/kv/table.hpp"

#include <cstring>

// ---- pairs

Tq4_kv_pair *Create_Tq4_kv_pair() { return new Tq4_kv_pair; }
void Delete_Tq4_kv_pair(Tq4_kv_pair *pair) { delete pair; }

void Reset_Tq4_kv_pair(Tq4_kv_pair *pair) {
    if (!pair) return;
    pair->key().Reset();
    pair->value().Reset();
}

Tq4_kv_pair *Dup_Tq4_kv_pair(const Tq4_kv_pair *pair) {
    if (!pair) return nullptr;
    Tq4_kv_pair *copy = Create_Tq4_kv_pair();
    Tq4_kv_pair_Clone(copy, pair);
    return copy;
}

void Tq4_kv_pair_Clone(Tq4_kv_pair *destination, const Tq4_kv_pair *source) {
    if (!destination || !source) return;
    destination->key().Copy(&source->key());
    destination->value().Copy(&source->value());
}

namespace {

Tq4_kv_pair *pair_of(Tq4_queue_item item) {
    return static_cast<Tq4_kv_pair *>(Tq4_record<Tq4_queue_item_obj>(item)->m_obj);
}

Tq4_queue_item new_item(Tq4_kv_pair *pair) {
    auto item = static_cast<Tq4_queue_item>(Tq4_queue_item_oitf->Create(nullptr));
    Tq4_record<Tq4_queue_item_obj>(item)->Attach(
        pair, [](void *payload) { Delete_Tq4_kv_pair(static_cast<Tq4_kv_pair *>(payload)); });
    return item;
}

Tq4_queue_item item_of(const Tq4_CAssoc *entry) { return static_cast<Tq4_queue_item>(entry->value); }

// Deep copies of all entries of a table as a list, none of them indexed.
Tq4_own<Tq4_queue> copies_of(const Tq4_value_table_obj &source) {
    auto copies = Tq4_make<Tq4_queue>(Tq4_queue_oitf);
    source.EachPair([&](const Tq4_kv_pair &pair) {
        (*copies)->PutTail(copies.get(), new_item(Dup_Tq4_kv_pair(&pair)));
        return true;
    });
    return copies;
}

} // namespace

// ---- the index

Tq4_value Tq4_value_table_obj::ValueAt(const Tq4_CAssoc *entry) {
    return entry ? pair_of(item_of(entry))->m_value.get() : nullptr;
}

Tq4_CAssoc *Tq4_value_table_obj::Entry(Tq4_key key) const {
    if (!key || (*key)->GetType(key) == Tq4_key_type_Unvalid) return nullptr;
    return index().EntryK(*Tq4_record<Tq4_key_obj>(key));
}

// The entry leads to the item from now on, and no more to the item that it led to before.
void Tq4_value_table_obj::Register(Tq4_queue_item item, Tq4_CAssoc *entry) {
    if (entry->value) pair_of(item_of(entry))->m_entry = nullptr;
    entry->value = item;
    pair_of(item)->m_entry = entry;
}

void Tq4_value_table_obj::RegisterByKey(Tq4_queue_item item) {
    const Tq4_key_obj &key = pair_of(item)->key();
    if (key.m_type != Tq4_key_type_Unvalid) Register(item, index().MakeEntryK(key));
}

// The item's key goes from the index, also when it leads to a newer entry of the same key; and whatever leads to the
// item goes, also when the key no longer finds it.
void Tq4_value_table_obj::Unregister(Tq4_queue_item item) {
    Tq4_kv_pair *pair = pair_of(item);
    if (pair->key().m_type == Tq4_key_type_Unvalid) return;
    if (Tq4_CAssoc *entry = index().EntryK(pair->key())) {
        pair_of(item_of(entry))->m_entry = nullptr;
        index().Drop(entry);
    }
    if (pair->m_entry) index().Drop(pair->m_entry);
    pair->m_entry = nullptr;
}

// ---- entries

Tq4_kv_pair *Tq4_value_table_obj::NewPairAtTail() {
    Tq4_kv_pair *pair = Create_Tq4_kv_pair();
    (*m_list)->PutTail(m_list.get(), new_item(pair));
    return pair;
}

void Tq4_value_table_obj::AddAtTail(Tq4_kv_pair *pair) {
    RegisterByKey((*m_list)->PutTail(m_list.get(), new_item(pair)));
}

void Tq4_value_table_obj::DeleteAt(Tq4_CAssoc *entry) {
    Tq4_queue_item item = item_of(entry);
    index().Drop(entry);
    Delete(item);
}

void Tq4_value_table_obj::Delete(Tq4_queue_item item) {
    if (item == m_cur) {
        m_cur = (*item)->Next(item);
        m_cur_is_next = true;
    }
    Tq4_queue_item_oitf->Delete(item);
}

Tq4_queue_item Tq4_value_table_obj::ItemAt(int index) const {
    return (*m_list)->At(m_list.get(), static_cast<unsigned long>(static_cast<long>(index)), 0);
}

Tq4_value Tq4_value_table_obj::Show(Tq4_queue_item item, Tq4_key *key) const {
    if (key) *key = item ? pair_of(item)->m_key.get() : nullptr;
    return item ? pair_of(item)->m_value.get() : nullptr;
}

Tq4_value Tq4_value_table_obj::InsertS(const char *key) {
    if (Tq4_CAssoc *entry = Entry(key)) return ValueAt(entry);
    if (!key) return nullptr;
    Tq4_kv_pair *pair = NewPairAtTail();
    pair->key().SetS(key, -1, m_case);
    Register((*m_list)->Tail(m_list.get(), 0), index().MakeEntryS(key));
    return pair->m_value.get();
}

Tq4_value Tq4_value_table_obj::InsertI(unsigned long key) {
    if (Tq4_CAssoc *entry = Entry(key)) return ValueAt(entry);
    Tq4_kv_pair *pair = NewPairAtTail();
    pair->key().SetL(key, nullptr);
    Register((*m_list)->Tail(m_list.get(), 0), index().MakeEntryI(key));
    return pair->m_value.get();
}

Tq4_value Tq4_value_table_obj::InsertK(Tq4_key key) {
    if (Tq4_CAssoc *entry = Entry(key)) return ValueAt(entry);
    if (!key) return nullptr;
    Tq4_kv_pair *pair = NewPairAtTail();
    pair->key().Copy(Tq4_record<const Tq4_key_obj>(key));
    RegisterByKey((*m_list)->Tail(m_list.get(), 0));
    return pair->m_value.get();
}

Tq4_value Tq4_value_table_obj::InsertAt(int index) {
    Tq4_kv_pair *pair = Create_Tq4_kv_pair();
    (*m_list)->InsertAt(m_list.get(), new_item(pair), static_cast<unsigned long>(static_cast<long>(index)));
    return pair->m_value.get();
}

void Tq4_value_table_obj::RemoveAt(int index) {
    Tq4_queue_item item = ItemAt(index);
    if (!item) return;
    Unregister(item);
    Delete(item);
}

void Tq4_value_table_obj::RemoveAll() {
    m_cur = nullptr;
    m_cur_is_next = false;
    index().RemoveAll();
    (*m_list)->RemoveAll(m_list.get());
}

// ---- other keys for an entry

void Tq4_value_table_obj::ModifyKeyK(int index, Tq4_key key) {
    Tq4_queue_item item = ItemAt(index);
    if (!item) return;
    Unregister(item);
    Tq4_key_obj &own = pair_of(item)->key();
    own.Copy(Tq4_record<const Tq4_key_obj>(key));
    if (!key) return;
    own.SetNoCase(m_case);
    RegisterByKey(item);
}

// These keys are of kind 6, deliberately: ValueK finds them, ValueS and ValueI do not.
void Tq4_value_table_obj::ModifyKeyS(int index, const char *text) {
    Tq4_queue_item item = ItemAt(index);
    if (!item) return;
    Unregister(item);
    Tq4_key_obj &own = pair_of(item)->key();
    if (!text) return own.Reset();
    own.SetLS(0, text, m_case);
    RegisterByKey(item);
}

void Tq4_value_table_obj::ModifyKeyI(int index, unsigned long n) {
    Tq4_queue_item item = ItemAt(index);
    if (!item) return;
    Unregister(item);
    pair_of(item)->key().SetLS(n, nullptr, m_case);
    RegisterByKey(item);
}

// ---- setting by key

namespace {

// Finds or makes the entry and sets its value.
template <class Key, class Set> Tq4_value set(Tq4_value_table_obj &table, Key key, Set setter) {
    Tq4_value value = table.Insert(key);
    if (value) setter(*Tq4_record<Tq4_value_obj>(value));
    return value;
}

} // namespace

Tq4_value Tq4_value_table_obj::SetSS(const char *key, const char *text) {
    return set(*this, key, [=](Tq4_value_obj &value) { value.SetString(text, -1); });
}
Tq4_value Tq4_value_table_obj::SetIS(unsigned long key, const char *text) {
    return set(*this, key, [=](Tq4_value_obj &value) { value.SetString(text, -1); });
}
Tq4_value Tq4_value_table_obj::SetSI(const char *key, long n) {
    return set(*this, key, [=](Tq4_value_obj &value) { value.SetScalar<Tq4_value_LONG>(n); });
}
Tq4_value Tq4_value_table_obj::SetII(unsigned long key, long n) {
    return set(*this, key, [=](Tq4_value_obj &value) { value.SetScalar<Tq4_value_LONG>(n); });
}
Tq4_value Tq4_value_table_obj::SetSInt64(const char *key, long long n) {
    return set(*this, key, [=](Tq4_value_obj &value) { value.SetInt64(n); });
}
Tq4_value Tq4_value_table_obj::SetIInt64(unsigned long key, long long n) {
    return set(*this, key, [=](Tq4_value_obj &value) { value.SetInt64(n); });
}
Tq4_value Tq4_value_table_obj::SetPtrS(const char *key, void *pointer) {
    return set(*this, key, [=](Tq4_value_obj &value) { value.SetPtr(pointer); });
}
Tq4_value Tq4_value_table_obj::SetPtrI(unsigned long key, void *pointer) {
    return set(*this, key, [=](Tq4_value_obj &value) { value.SetPtr(pointer); });
}

// ---- all entries

Tq4_value Tq4_value_table_obj::First(Tq4_key *key) {
    m_cur = (*m_list)->Head(m_list.get(), 0);
    m_cur_is_next = false;
    return Show(m_cur, key);
}

Tq4_value Tq4_value_table_obj::Next(Tq4_key *key) {
    if (m_cur && !m_cur_is_next) m_cur = (*m_cur)->Next(m_cur);
    m_cur_is_next = false;
    return Show(m_cur, key);
}

Tq4_value Tq4_value_table_obj::At(int index, Tq4_key *key) const { return Show(ItemAt(index), key); }

void Tq4_value_table_obj::each(Tq4_value_table_visitor visitor, void *param) const {
    struct Call {
        Tq4_value_table_visitor visitor;
        void *param;
    } call{visitor, param};
    const auto visit = [](void *payload, void *given) {
        auto *pair = static_cast<Tq4_kv_pair *>(payload);
        auto *to = static_cast<Call *>(given);
        return to->visitor(pair->m_key.get(), pair->m_value.get(), to->param);
    };
    if (visitor) (*m_list)->each(m_list.get(), visit, &call);
}

void Tq4_value_table_obj::Reset() {
    RemoveAll();
    index().CaseFlag(0);
    m_case = 0;
}

// Empties the table as Reset does, and gives its entries, if there are any, to the caller.
Tq4_own<Tq4_queue> Tq4_value_table_obj::Detach() {
    Tq4_own<Tq4_queue> entries;
    if (Count()) {
        entries = std::move(m_list);
        m_list = Tq4_make<Tq4_queue>(Tq4_queue_oitf);
    }
    Reset();
    return entries;
}

// The copies are complete before the old entries go: the source may lie in one of them.
void Tq4_value_table_obj::Copy(const Tq4_value_table_obj *source) {
    if (source == this) return;
    if (!source) return Reset();
    const uint8_t case_flag = source->m_case;
    Tq4_own<Tq4_queue> copies = copies_of(*source);
    Reset();
    LinkCopies(std::move(copies), case_flag);
}

void Tq4_value_table_obj::Append(Tq4_value_table source) {
    if (!source) return;
    auto &from = *Tq4_record<Tq4_value_table_obj>(source);
    const uint8_t case_flag = from.m_case;
    LinkCopies(copies_of(from), case_flag);
}

void Tq4_value_table_obj::LinkCopies(Tq4_own<Tq4_queue> copies, uint8_t case_flag) {
    m_case = case_flag;
    index().CaseFlag(case_flag);
    while (Tq4_queue_item item = (*copies)->RemoveHead(copies.get(), 0)) {
        (*m_list)->PutTail(m_list.get(), item);
        RegisterByKey(item);
    }
}

bool Tq4_value_table_obj::Equal(const Tq4_value_table_obj &other) const {
    if (Count() != other.Count()) return false;
    Tq4_list_node *theirs = other.list().m_head.next;
    bool equal = true;
    EachPair([&](const Tq4_kv_pair &mine) {
        const auto *pair = static_cast<const Tq4_kv_pair *>(Tq4_queue_obj::item_of(theirs)->m_obj);
        theirs = theirs->next;
        return equal = mine.key().Equal(pair->key()) && mine.value().Equal(pair->value());
    });
    return equal;
}

using Table = Tq4_value_table_obj;

const Tq4_value_table_ Tq4_value_table_itf = {
    .Dump = Tq4_op<&Table::Dump>,
    .Import = Tq4_op<&Table::Import>,
    .SetSS = Tq4_op<&Table::SetSS>,
    .SetIS = Tq4_op<&Table::SetIS>,
    .SetSI = Tq4_op<&Table::SetSI>,
    .SetII = Tq4_op<&Table::SetII>,
    .SetSInt64 = Tq4_op<&Table::SetSInt64>,
    .SetIInt64 = Tq4_op<&Table::SetIInt64>,
    .SetPtrS = Tq4_op<&Table::SetPtrS>,
    .SetPtrI = Tq4_op<&Table::SetPtrI>,
    .InsertS = Tq4_op<&Table::InsertS>,
    .InsertI = Tq4_op<&Table::InsertI>,
    .InsertK = Tq4_op<&Table::InsertK>,
    .InsertAt = Tq4_op<&Table::InsertAt>,
    .RemoveAt = Tq4_op<&Table::RemoveAt>,
    .ModifyKeyK = Tq4_op<&Table::ModifyKeyK>,
    .ModifyKeyS = Tq4_op<&Table::ModifyKeyS>,
    .ModifyKeyI = Tq4_op<&Table::ModifyKeyI>,
    .InsertTableI = Tq4_op<&Table::InsertTable<unsigned long>>,
    .InsertTableS = Tq4_op<&Table::InsertTable<const char *>>,
    .InsertTableK = Tq4_op<&Table::InsertTable<Tq4_key>>,
    .ValueK = Tq4_op<&Table::Value<Tq4_key>>,
    .ValueS = Tq4_op<&Table::Value<const char *>>,
    .ValueI = Tq4_op<&Table::Value<unsigned long>>,
    .TableK = Tq4_op<&Table::Table<Tq4_key>>,
    .TableS = Tq4_op<&Table::Table<const char *>>,
    .TableI = Tq4_op<&Table::Table<unsigned long>>,
    .PtrK = Tq4_op<&Table::Ptr<Tq4_key>>,
    .PtrS = Tq4_op<&Table::Ptr<const char *>>,
    .PtrI = Tq4_op<&Table::Ptr<unsigned long>>,
    .BytesK = Tq4_op<&Table::Bytes<Tq4_key>>,
    .BytesS = Tq4_op<&Table::Bytes<const char *>>,
    .BytesI = Tq4_op<&Table::Bytes<unsigned long>>,
    .BaseK = Tq4_op<&Table::Base<Tq4_key>>,
    .BaseS = Tq4_op<&Table::Base<const char *>>,
    .BaseI = Tq4_op<&Table::Base<unsigned long>>,
    .Int64K = Tq4_op<&Table::Int64<Tq4_key>>,
    .Int64S = Tq4_op<&Table::Int64<const char *>>,
    .Int64I = Tq4_op<&Table::Int64<unsigned long>>,
    .First = Tq4_op<&Table::First>,
    .Next = Tq4_op<&Table::Next>,
    .At = Tq4_op<&Table::At>,
    .RemoveK = Tq4_op<&Table::Remove<Tq4_key>>,
    .RemoveS = Tq4_op<&Table::Remove<const char *>>,
    .RemoveI = Tq4_op<&Table::Remove<unsigned long>>,
    .RemoveAll = Tq4_op<&Table::RemoveAll>,
    .Count = Tq4_op<&Table::Count>,
    .Append = Tq4_op<&Table::Append>,
    .CaseFlag = Tq4_op<&Table::CaseFlag>,
    .each = Tq4_op<&Table::each>,
    .Print = Tq4_op<&Table::Print>,
    .Echo = Tq4_op<&Table::Echo>,
};
TQ4_MODULE(value_table)
