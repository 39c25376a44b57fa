// strmap: chains of entries that own a key of any kind.
//
// The four forms of key that operations take (a key object, a number, a text, a text with a number) differ in how they
// hash, what they match and how they fill an entry's key; the operations are written once over the forms.
// The chains' index is asked while every entry's key carries the map's own case flag; a map that changed its flag
// while it had entries, and a key object that ignores case in a map that does not, are looked up in the chains.
#include "base/map/strmap.hpp"

#include "base/string/string.hpp"

namespace {

// A form of key: hash() under the map's case flag, matches() against an entry's key, fill() into a new entry's key,
// and exact() whether equal keys and equal hashes go together for it.
struct Key_form {
    const Tq4_key_obj &key;
    int nocase;
    uint64_t hash() const { return key.Hash(nocase); }
    bool matches(const Tq4_key_obj &entry) const { return entry.Equal(key); }
    bool exact() const { return !key.cf || nocase; }
    void fill(Tq4_key_obj &entry) const {
        entry.Copy(&key);
        entry.SetNoCase(nocase);
    }
};

struct Number_form {
    unsigned long number;
    uint64_t hash() const { return number; }
    bool matches(const Tq4_key_obj &entry) const { return entry.EqualL(number); }
    bool exact() const { return true; }
    void fill(Tq4_key_obj &entry) const { entry.SetL(number, nullptr); }
};

struct Text_form {
    const char *given; // may be null
    int nocase;
    Tq4_bytes text = Tq4_text_bytes(given);
    uint64_t hash() const { return given ? Tq4_key_hash_bytes(text, nocase) : 0; }
    bool matches(const Tq4_key_obj &entry) const {
        return entry.m_type == Tq4_key_type_String && entry.text_is(text, nocase);
    }
    bool exact() const { return true; }
    void fill(Tq4_key_obj &entry) const { entry.SetS(given, -1, nocase); }
};

struct Text_number_form {
    const char *given; // may be null
    unsigned long number;
    int nocase;
    Tq4_bytes text = Tq4_text_bytes(given);
    uint64_t hash() const { return Tq4_key_hash_text_number(given ? Tq4_key_hash_bytes(text, nocase) : 0, number); }
    bool matches(const Tq4_key_obj &entry) const {
        return entry.m_type == Tq4_key_type_LS && entry.GetL() == number && entry.text_is(text, nocase);
    }
    bool exact() const { return true; }
    void fill(Tq4_key_obj &entry) const { entry.SetLS(number, given, nocase); }
};

const Tq4_key_obj &record(Tq4_key key) { return *Tq4_record<const Tq4_key_obj>(key); }
void *value_of(const Tq4_CAssoc *entry) { return entry ? entry->value : nullptr; }

} // namespace

void Tq4_strmap_obj::Reset() {
    RemoveAll();
    m_case = 0;
}

// The entries are added from the oldest of each chain on, so that the copy iterates in the same order.
void Tq4_strmap_obj::Copy(const Tq4_strmap_obj *source) {
    if (source == this) return;
    Reset();
    if (!source) return;
    m_chains.Resize(source->m_chains.size());
    m_case = source->m_case;
    m_mixed = source->m_mixed;
    source->m_chains.EachOldestFirst([this](const Tq4_CAssoc &entry) {
        auto *copy = new Tq4_CAssoc;
        copy->key_record().Copy(&entry.key_record());
        copy->value = entry.value;
        m_chains.Add(copy, entry.m_full_hash);
    });
}

// The same keys with the same values in the same order.
bool Tq4_strmap_obj::Equal(const Tq4_strmap_obj &other) const {
    if (Count() != other.Count() || !m_case != !other.m_case) return false;
    const Tq4_CAssoc *a = m_chains.First(), *b = other.m_chains.First();
    for (; a && b; a = m_chains.Next(a), b = other.m_chains.Next(b))
        if (a->value != b->value || !a->key_record().Equal(b->key_record())) return false;
    return true;
}

void Tq4_strmap_obj::CaseFlag(int flag) {
    if (!m_case != !flag && Count() > 0) m_mixed = true;
    m_case = flag;
}

template <class Form> Tq4_CAssoc *Tq4_strmap_obj::Find(const Form &form) const {
    const auto match = [&](const Tq4_CAssoc &entry) { return form.matches(entry.key_record()); };
    return m_mixed || !form.exact() ? m_chains.FindInChain(form.hash(), match) : m_chains.Find(form.hash(), match);
}

// A key object that ignores case stands in the bucket of its own hash, but its entry takes the map's flag,
// deliberately.
template <class Form> Tq4_CAssoc *Tq4_strmap_obj::Make(const Form &form) {
    Tq4_CAssoc *entry = Find(form);
    if (entry) return entry;
    entry = new Tq4_CAssoc;
    form.fill(entry->key_record());
    m_chains.Add(entry, form.hash());
    if (!form.exact()) m_mixed = m_mixed || entry->key_record().Hash(m_case) != form.hash();
    return entry;
}

template <class Form> void *Tq4_strmap_obj::Remove(const Form &form) {
    Tq4_CAssoc *entry = Find(form);
    return entry ? Drop(entry) : nullptr;
}

void *Tq4_strmap_obj::Drop(Tq4_CAssoc *entry) {
    void *value = entry->value;
    m_chains.Unlink(entry);
    delete entry;
    if (IsEmpty()) m_mixed = false;
    return value;
}

void Tq4_strmap_obj::RemoveAll() {
    m_chains.Clear([](Tq4_CAssoc *entry) { delete entry; });
    m_mixed = false;
}

Tq4_CAssoc *Tq4_strmap_obj::EntryK(const Tq4_key_obj &key) const { return Find(Key_form{key, m_case}); }
Tq4_CAssoc *Tq4_strmap_obj::EntryI(unsigned long number) const { return Find(Number_form{number}); }
Tq4_CAssoc *Tq4_strmap_obj::EntryS(const char *text) const { return Find(Text_form{text, m_case}); }
Tq4_CAssoc *Tq4_strmap_obj::MakeEntryK(const Tq4_key_obj &key) { return Make(Key_form{key, m_case}); }
Tq4_CAssoc *Tq4_strmap_obj::MakeEntryI(unsigned long number) { return Make(Number_form{number}); }
Tq4_CAssoc *Tq4_strmap_obj::MakeEntryS(const char *text) { return Make(Text_form{text, m_case}); }

void *Tq4_strmap_obj::LookupK(Tq4_key key) const { return key ? value_of(EntryK(record(key))) : nullptr; }
void *Tq4_strmap_obj::LookupI(unsigned long number) const { return value_of(Find(Number_form{number})); }
void *Tq4_strmap_obj::LookupS(const char *text) const { return value_of(Find(Text_form{text, m_case})); }
void *Tq4_strmap_obj::LookupSI(const char *text, unsigned long number) const {
    return value_of(Find(Text_number_form{text, number, m_case}));
}

void Tq4_strmap_obj::SetAtK(void *value, Tq4_key key) {
    if (key) MakeEntryK(record(key))->value = value;
}
void Tq4_strmap_obj::SetAtI(void *value, unsigned long number) { MakeEntryI(number)->value = value; }
void Tq4_strmap_obj::SetAtS(void *value, const char *text) { MakeEntryS(text)->value = value; }
void Tq4_strmap_obj::SetAtSI(void *value, const char *text, unsigned long number) {
    Make(Text_number_form{text, number, m_case})->value = value;
}

void *Tq4_strmap_obj::RemoveK(Tq4_key key) { return key ? Remove(Key_form{record(key), m_case}) : nullptr; }
void *Tq4_strmap_obj::RemoveI(unsigned long number) { return Remove(Number_form{number}); }
void *Tq4_strmap_obj::RemoveS(const char *text) { return Remove(Text_form{text, m_case}); }
void *Tq4_strmap_obj::RemoveSI(const char *text, unsigned long number) {
    return Remove(Text_number_form{text, number, m_case});
}

void *Tq4_strmap_obj::NextK(Tq4_key *key, void **position) const {
    Tq4_CAssoc *entry = m_chains.Step(position);
    if (key) *key = entry ? entry->key.get() : nullptr;
    return value_of(entry);
}

void *Tq4_strmap_obj::NextSI(const char **text, unsigned long *number, void **position) const {
    Tq4_CAssoc *entry = m_chains.Step(position);
    if (text) *text = entry ? entry->key_record().GetS() : nullptr;
    if (number) *number = entry ? entry->key_record().GetL() : 0;
    return value_of(entry);
}

void Tq4_strmap_obj::eachKV(Tq4_strmap_key_visitor visitor, void *param) const {
    if (visitor) m_chains.Each([&](Tq4_CAssoc &entry) { return visitor(entry.key.get(), entry.value, param) != 0; });
}

void Tq4_strmap_obj::each(Tq4_strmap_visitor visitor, void *param) const {
    if (!visitor) return;
    m_chains.Each([&](Tq4_CAssoc &entry) {
        const Tq4_key_obj &key = entry.key_record();
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
