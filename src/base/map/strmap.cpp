// strmap: chains of entries that own a key of any kind.
//
// The operations on the four forms of key that they take are written once over the forms (key_forms.hpp).
#include "base/map/strmap.hpp"

namespace {

const Tq4_key_obj &record(Tq4_key key) { return *Tq4_record<const Tq4_key_obj>(key); }
void *value_of(const Tq4_CAssoc *entry) { return entry ? entry->value : nullptr; }

} // namespace

void Tq4_strmap_obj::Reset() {
    RemoveAll();
    m_index.Reset();
}

void Tq4_strmap_obj::Copy(const Tq4_strmap_obj *source) {
    if (source == this) return;
    Reset();
    if (!source) return;
    m_index.CopyEmpty(source->m_index, [this](const Tq4_CAssoc &entry) {
        Tq4_CAssoc *copy = Tq4_CAssoc::Create(m_room.Take());
        copy->key().Copy(&entry.key());
        copy->value = entry.value;
        return copy;
    });
}

// The same keys with the same values in the same order.
bool Tq4_strmap_obj::Equal(const Tq4_strmap_obj &other) const {
    return !m_index.case_flag() == !other.m_index.case_flag() &&
           m_index.chains().Equal(other.m_index.chains(), [](const Tq4_CAssoc &a, const Tq4_CAssoc &b) {
               return a.value == b.value && a.key().Equal(b.key());
           });
}

template <class Form> void *Tq4_strmap_obj::Lookup(const Form &form) const { return value_of(m_index.LookUp(form)); }

template <class Form> void Tq4_strmap_obj::SetAt(void *value, const Form &form) {
    Tq4_CAssoc *entry = m_index.Find(form);
    if (!entry) {
        entry = Tq4_CAssoc::Create(m_room.Take());
        form.fill(entry->key());
        m_index.Add(entry, form);
    }
    entry->value = value;
}

template <class Form> void *Tq4_strmap_obj::Remove(const Form &form) {
    Tq4_CAssoc *entry = m_index.Find(form);
    if (!entry) return nullptr;
    void *value = entry->value;
    m_index.Unlink(entry);
    m_room.Give(Tq4_CAssoc::Delete(entry));
    return value;
}

void Tq4_strmap_obj::RemoveAll() {
    m_index.Clear([](Tq4_CAssoc *entry) { Tq4_CAssoc::Delete(entry); });
    m_room.GiveAll();
}

void *Tq4_strmap_obj::LookupK(Tq4_key key) const {
    return key ? Lookup(Tq4_key_form{record(key), m_index.case_flag()}) : nullptr;
}
void *Tq4_strmap_obj::LookupI(unsigned long number) const { return Lookup(Tq4_number_form{number}); }
void *Tq4_strmap_obj::LookupS(const char *text) const { return Lookup(Tq4_text_form{text, m_index.case_flag()}); }
void *Tq4_strmap_obj::LookupSI(const char *text, unsigned long number) const {
    return Lookup(Tq4_text_number_form{text, number, m_index.case_flag()});
}

void Tq4_strmap_obj::SetAtK(void *value, Tq4_key key) {
    if (key) SetAt(value, Tq4_key_form{record(key), m_index.case_flag()});
}
void Tq4_strmap_obj::SetAtI(void *value, unsigned long number) { SetAt(value, Tq4_number_form{number}); }
void Tq4_strmap_obj::SetAtS(void *value, const char *text) { SetAt(value, Tq4_text_form{text, m_index.case_flag()}); }
void Tq4_strmap_obj::SetAtSI(void *value, const char *text, unsigned long number) {
    SetAt(value, Tq4_text_number_form{text, number, m_index.case_flag()});
}

void *Tq4_strmap_obj::RemoveK(Tq4_key key) {
    return key ? Remove(Tq4_key_form{record(key), m_index.case_flag()}) : nullptr;
}
void *Tq4_strmap_obj::RemoveI(unsigned long number) { return Remove(Tq4_number_form{number}); }
void *Tq4_strmap_obj::RemoveS(const char *text) { return Remove(Tq4_text_form{text, m_index.case_flag()}); }
void *Tq4_strmap_obj::RemoveSI(const char *text, unsigned long number) {
    return Remove(Tq4_text_number_form{text, number, m_index.case_flag()});
}

void *Tq4_strmap_obj::NextK(Tq4_key *key, void **position) const {
    Tq4_CAssoc *entry = m_index.chains().Step(position);
    if (key) *key = entry ? entry->key_handle() : nullptr;
    return value_of(entry);
}

void *Tq4_strmap_obj::NextSI(const char **text, unsigned long *number, void **position) const {
    Tq4_CAssoc *entry = m_index.chains().Step(position);
    if (text) *text = entry ? entry->key().GetS() : nullptr;
    if (number) *number = entry ? entry->key().GetL() : 0;
    return value_of(entry);
}

void Tq4_strmap_obj::eachKV(Tq4_strmap_key_visitor visitor, void *param) const {
    if (visitor)
        m_index.chains().Each([&](Tq4_CAssoc &entry) { return visitor(entry.key_handle(), entry.value, param) != 0; });
}

void Tq4_strmap_obj::each(Tq4_strmap_visitor visitor, void *param) const {
    if (!visitor) return;
    m_index.chains().Each([&](Tq4_CAssoc &entry) {
        const Tq4_key_obj &key = entry.key();
        return visitor(key.GetS(), key.GetL(), entry.value, param) != 0;
    });
}

const Tq4_strmap_ Tq4_strmap_itf = {
    .HashTableSize = Tq4_op<&Tq4_strmap_obj::HashTableSize>,
    .Init = Tq4_op<&Tq4_strmap_obj::Init>,
    .Count = Tq4_op<&Tq4_strmap_obj::Count>,
    .IsEmpty = Tq4_op<&Tq4_strmap_obj::IsEmpty>,
    .CaseFlag = Tq4_op<&Tq4_strmap_obj::CaseFlag>,
    .LookupK = Tq4_op<&Tq4_strmap_obj::LookupK>,
    .LookupI = Tq4_op<&Tq4_strmap_obj::LookupI>,
    .LookupS = Tq4_op<&Tq4_strmap_obj::LookupS>,
    .LookupSI = Tq4_op<&Tq4_strmap_obj::LookupSI>,
    .SetAtK = Tq4_op<&Tq4_strmap_obj::SetAtK>,
    .SetAtI = Tq4_op<&Tq4_strmap_obj::SetAtI>,
    .SetAtS = Tq4_op<&Tq4_strmap_obj::SetAtS>,
    .SetAtSI = Tq4_op<&Tq4_strmap_obj::SetAtSI>,
    .RemoveK = Tq4_op<&Tq4_strmap_obj::RemoveK>,
    .RemoveI = Tq4_op<&Tq4_strmap_obj::RemoveI>,
    .RemoveS = Tq4_op<&Tq4_strmap_obj::RemoveS>,
    .RemoveSI = Tq4_op<&Tq4_strmap_obj::RemoveSI>,
    .RemoveAll = Tq4_op<&Tq4_strmap_obj::RemoveAll>,
    .NextK = Tq4_op<&Tq4_strmap_obj::NextK>,
    .NextSI = Tq4_op<&Tq4_strmap_obj::NextSI>,
    .eachKV = Tq4_op<&Tq4_strmap_obj::eachKV>,
    .each = Tq4_op<&Tq4_strmap_obj::each>,
};
TQ4_MODULE(strmap)
