// value_table: an insertion-ordered table of typed values.
//
// An entry appended under a key that was there already takes over the index; the older one stays in the list.
// Cost: look-up, insertion and removal by key are constant; positions cost what they cost in the list, so that a walk
// by At in order is linear in all. Entries lie in blocks that belong to the table and go with the last entry.
#include "base/kv/table.hpp"

#include <cstring>

#include "base/kv/value_check.hpp"

namespace {

Tq4_kv_pair *pair_of(Tq4_list_node *node) { return static_cast<Tq4_kv_pair *>(node); }

} // namespace

// ---- entries

Tq4_kv_pair *Tq4_value_table_obj::NewPairAtTail() {
    Tq4_kv_pair *pair = Create_Tq4_kv_pair(m_room.Take());
    m_list.Append(pair);
    return pair;
}

// The entry is not in the index any more.
void Tq4_value_table_obj::Delete(Tq4_kv_pair *pair) {
    if (pair == m_cur) {
        m_cur = pair->next == m_list.end() ? nullptr : pair_of(pair->next);
        m_cur_is_next = true;
    }
    for (Tq4_value_table_visit *visit = m_visits; visit; visit = visit->outer)
        if (visit->following == pair) visit->following = pair->next;
    m_list.Unlink(pair);
    m_room.Give(Delete_Tq4_kv_pair(pair));
}

// The queue's rules for positions: past the end means the last one.
Tq4_kv_pair *Tq4_value_table_obj::PairAt(int index) const {
    auto &list = const_cast<Tq4_list &>(m_list); // which only remembers the position
    return static_cast<Tq4_kv_pair *>(list.AtClamped(static_cast<unsigned long>(static_cast<long>(index))));
}

// A key may change through its handle: the index must have seen it before.
Tq4_value Tq4_value_table_obj::Show(Tq4_kv_pair *pair, Tq4_key *key) const {
    if (key) m_index.Complete();
    if (key) *key = pair ? pair->key_handle() : nullptr;
    return pair ? pair->value_handle() : nullptr;
}

Tq4_value Tq4_value_table_obj::InsertS(const char *key) {
    const Tq4_text_form form{key, m_index.case_flag()};
    if (Tq4_kv_pair *found = m_index.Find(form)) return found->value_handle();
    return key ? MakePair(form, form.text.size)->value_handle() : nullptr;
}

Tq4_value_obj &Tq4_value_table_obj::ValueOf(Tq4_bytes key, std::size_t readable) {
    const Tq4_text_form form{nullptr, m_index.case_flag(), key};
    Tq4_kv_pair *found = m_index.Find(form);
    return (found ? found : MakePair(form, readable))->value();
}

// While there are few members, they are compared: that costs less than an index of them.
Tq4_value_obj &Tq4_value_table_obj::DecodedMember(Tq4_bytes key, std::size_t readable) {
    constexpr unsigned long few = 8;
    if (Count() >= few) return ValueOf(key, readable);
    for (Tq4_list_node *node = m_list.first(); node != m_list.end(); node = node->next)
        if (Tq4_key_obj::same_text(pair_of(node)->key().text(), key, false)) return pair_of(node)->value();
    Tq4_kv_pair *pair = NewPairAtTail();
    pair->key().FillText(key, 0, readable);
    m_index.EnterLater(pair);
    return pair->value();
}

Tq4_kv_pair *Tq4_value_table_obj::MakePair(const Tq4_text_form &form, std::size_t readable) {
    Tq4_kv_pair *pair = NewPairAtTail();
    pair->key().FillText(form.text, m_case, readable);
    m_index.Add(pair, form);
    return pair;
}

Tq4_value Tq4_value_table_obj::InsertI(unsigned long key) {
    const Tq4_number_form form{key};
    if (Tq4_kv_pair *found = m_index.Find(form)) return found->value_handle();
    Tq4_kv_pair *pair = NewPairAtTail();
    pair->key().SetL(key, nullptr);
    m_index.Add(pair, form);
    return pair->value_handle();
}

Tq4_value Tq4_value_table_obj::InsertK(Tq4_key key) {
    if (Tq4_kv_pair *found = m_index.Find(key)) return found->value_handle();
    if (!key) return nullptr;
    Tq4_kv_pair *pair = NewPairAtTail();
    pair->key().Copy(Tq4_record<const Tq4_key_obj>(key));
    m_index.Enter(pair);
    return pair->value_handle();
}

Tq4_value Tq4_value_table_obj::InsertAt(int index) {
    Tq4_kv_pair *pair = Create_Tq4_kv_pair(m_room.Take());
    m_list.Link(pair, m_list.At(static_cast<unsigned long>(static_cast<long>(index))));
    return pair->value_handle();
}

void Tq4_value_table_obj::RemoveAt(int index) {
    Tq4_kv_pair *pair = PairAt(index);
    if (!pair) return;
    m_index.RemoveKeyOf(pair);
    Delete(pair);
}

void Tq4_value_table_obj::RemoveAll() {
    Entries entries;
    Detach(entries);
    DeleteEntries(entries);
}

void Tq4_value_table_obj::Detach(Entries &entries) {
    m_cur = nullptr;
    m_cur_is_next = false;
    for (Tq4_value_table_visit *visit = m_visits; visit; visit = visit->outer) visit->following = &m_list.m_tail;
    m_index.Clear();
    entries.list.TakeAll(m_list);
    entries.room.Swap(m_room);
}

// ---- other keys for an entry

void Tq4_value_table_obj::ModifyKeyK(int index, Tq4_key key) {
    Tq4_kv_pair *pair = PairAt(index);
    if (!pair) return;
    m_index.RemoveKeyOf(pair);
    Tq4_key_obj &own = pair->key();
    own.Copy(Tq4_record<const Tq4_key_obj>(key));
    if (!key) return;
    own.SetNoCase(m_case);
    m_index.Enter(pair);
}

// These keys are of kind 6, deliberately: ValueK finds them, ValueS and ValueI do not.
void Tq4_value_table_obj::ModifyKeyS(int index, const char *text) {
    Tq4_kv_pair *pair = PairAt(index);
    if (!pair) return;
    m_index.RemoveKeyOf(pair);
    if (!text) return pair->key().Reset();
    pair->key().SetLS(0, text, m_case);
    m_index.Enter(pair);
}

void Tq4_value_table_obj::ModifyKeyI(int index, unsigned long n) {
    Tq4_kv_pair *pair = PairAt(index);
    if (!pair) return;
    m_index.RemoveKeyOf(pair);
    pair->key().SetLS(n, nullptr, m_case);
    m_index.Enter(pair);
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
    m_cur = m_list.m_count ? pair_of(m_list.first()) : nullptr;
    m_cur_is_next = false;
    return Show(m_cur, key);
}

Tq4_value Tq4_value_table_obj::Next(Tq4_key *key) {
    if (m_cur && !m_cur_is_next) m_cur = m_cur->next == m_list.end() ? nullptr : pair_of(m_cur->next);
    m_cur_is_next = false;
    return Show(m_cur, key);
}

Tq4_value Tq4_value_table_obj::At(int index, Tq4_key *key) const { return Show(PairAt(index), key); }

// The visitor may remove entries: by a key that it is shown, also a newer one of the same key.
void Tq4_value_table_obj::each(Tq4_value_table_visitor visitor, void *param) const {
    if (!visitor) return;
    m_index.Complete();
    Tq4_value_table_visit visit{m_list.first(), m_visits};
    m_visits = &visit;
    for (bool stop = false; !stop && visit.following != m_list.end();) {
        Tq4_kv_pair *pair = pair_of(visit.following);
        visit.following = pair->next;
        stop = visitor(pair->key_handle(), pair->value_handle(), param) != 0;
    }
    m_visits = visit.outer;
}

void Tq4_value_table_obj::Reset() {
    RemoveAll();
    m_index.CaseFlag(0);
    m_case = 0;
}

// The copies are complete before the old entries go: the source may lie in one of them.
void Tq4_value_table_obj::Copy(const Tq4_value_table_obj *source) {
    if (source == this) return;
    if (!source) return Reset();
    const uint8_t case_flag = source->m_case;
    Entries copies, former;
    CopyEntries(*source, copies.list, copies.room);
    Detach(former);
    m_room.Swap(copies.room);
    DeleteEntries(former);
    AppendEntries(copies.list, case_flag);
}

void Tq4_value_table_obj::Append(Tq4_value_table source) {
    if (!source) return;
    const auto &from = *Tq4_record<const Tq4_value_table_obj>(source);
    const uint8_t case_flag = from.m_case;
    Tq4_list copies;
    CopyEntries(from, copies, m_room);
    AppendEntries(copies, case_flag);
}

void Tq4_value_table_obj::AppendEntries(Tq4_list &copies, uint8_t case_flag) {
    m_case = case_flag;
    m_index.CaseFlag(case_flag);
    while (copies.m_count) {
        Tq4_kv_pair *pair = pair_of(copies.first());
        copies.Unlink(pair);
        m_list.Append(pair);
        m_index.Enter(pair);
    }
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
    .Check = Tq4_value_table_itf_Check,
};
TQ4_MODULE(value_table)
