// strmap2: the light string map, without key objects.
//
// An entry holds its text in a field of 32 bytes. A text that fills the field has no terminator there, so its entry
// equals no text any more: it takes part in counts and iterations, is found by nothing, and every further insertion of
// the same text adds another one. That is deliberate; keys of this map are shorter than 32 bytes.
#include "tq4/strmap2.h"

#include <cstring>

#include "base/map/chains.hpp"
#include "base/string/string.hpp"

namespace {

enum class Form : uint8_t { number = 1, text = 2, text_number = 3 };

} // namespace

struct Tq4_CAssoc2 : Tq4_chained<Tq4_CAssoc2> {
    static constexpr std::size_t text_field = 32;

    char sKey[text_field + 1] = {}; // one more, so that iterations may show what no look-up finds
    Form key_type;
    uint64_t ukey;
    void *value; // borrowed

    bool unreachable() const { return sKey[text_field - 1] != '\0'; }
};

namespace {

// A key as the operations are given it.
struct Asked {
    Form form;
    const char *text; // null counts as empty
    uint64_t number;

    uint64_t hash(int nocase) const {
        if (form == Form::number) return number;
        return form == Form::text ? Tq4_key_HashString(text, nocase) : Tq4_key_HashLS(number, text, nocase);
    }
    bool matches(const Tq4_CAssoc2 &entry, int nocase) const {
        if (entry.key_type != form || entry.ukey != number) return false;
        if (form == Form::number) return true;
        const char *wanted = text ? text : "";
        if (entry.unreachable()) return false;
        return (nocase ? strcasecmp(entry.sKey, wanted) : std::strcmp(entry.sKey, wanted)) == 0;
    }
    Tq4_CAssoc2 *new_entry() const {
        auto *entry = new Tq4_CAssoc2{{}, {}, form, number, nullptr};
        if (text) std::memcpy(entry->sKey, text, strnlen(text, Tq4_CAssoc2::text_field));
        return entry;
    }
};

Asked by_number(unsigned long number) { return {Form::number, nullptr, number}; }
Asked by_text(const char *text) { return {Form::text, text, 0}; }
Asked by_text_number(const char *text, unsigned long number) { return {Form::text_number, text, number}; }
void *value_of(const Tq4_CAssoc2 *entry) { return entry ? entry->value : nullptr; }

} // namespace

struct Tq4_strmap2_obj {
    Tq4_chains<Tq4_CAssoc2> m_chains;
    int m_case = 0;       // non-zero: texts compare and hash without case
    bool m_mixed = false; // the flag was changed while there were entries: only the chains tell; until empty

    ~Tq4_strmap2_obj() { RemoveAll(); }
    void Reset() {
        RemoveAll();
        m_chains.Resize();
        m_case = 0;
    }
    void Copy(const Tq4_strmap2_obj *source) {
        if (source == this) return;
        Reset();
        if (!source) return;
        m_chains.Resize(source->m_chains.size());
        m_case = source->m_case;
        m_mixed = source->m_mixed;
        source->m_chains.EachOldestFirst(
            [this](const Tq4_CAssoc2 &entry) { m_chains.AddLike(new Tq4_CAssoc2(entry), entry); });
    }
    // The same keys with the same values in the same order.
    bool Equal(const Tq4_strmap2_obj &other) const {
        return !m_case == !other.m_case &&
               m_chains.Equal(other.m_chains, [](const Tq4_CAssoc2 &a, const Tq4_CAssoc2 &b) {
                   return a.value == b.value && a.key_type == b.key_type && a.ukey == b.ukey &&
                          std::memcmp(a.sKey, b.sKey, Tq4_CAssoc2::text_field) == 0;
               });
    }

    unsigned long HashTableSize() const { return m_chains.size(); }
    void Init(unsigned long count) { m_chains.Resize(count); }
    int Count() const { return m_chains.count(); }
    bool IsEmpty() const { return m_chains.count() == 0; }
    void CaseFlag(int flag) {
        if (!m_case != !flag && Count() > 0) m_mixed = true;
        m_case = flag;
    }
    void *LookupI(unsigned long number) const { return value_of(Find(by_number(number))); }
    void *LookupS(const char *text) const { return value_of(Find(by_text(text))); }
    void *LookupSI(const char *text, unsigned long number) const {
        return value_of(Find(by_text_number(text, number)));
    }
    void SetAtI(void *value, unsigned long number) { SetAt(value, by_number(number)); }
    void SetAtS(void *value, const char *text) { SetAt(value, by_text(text)); }
    void SetAtSI(void *value, const char *text, unsigned long number) { SetAt(value, by_text_number(text, number)); }
    void *RemoveI(unsigned long number) { return Remove(by_number(number)); }
    void *RemoveS(const char *text) { return Remove(by_text(text)); }
    void *RemoveSI(const char *text, unsigned long number) { return Remove(by_text_number(text, number)); }
    void RemoveAll() {
        m_chains.Clear([](Tq4_CAssoc2 *entry) { delete entry; });
        m_mixed = false;
    }
    void *NextSI(const char **text, unsigned long *number, void **position) const {
        Tq4_CAssoc2 *entry = m_chains.Step(position);
        if (text) *text = entry ? entry->sKey : nullptr;
        if (number) *number = entry ? entry->ukey : 0;
        return value_of(entry);
    }
    void each(Tq4_strmap_visitor visitor, void *param) const {
        if (!visitor) return;
        m_chains.Each(
            [&](const Tq4_CAssoc2 &entry) { return visitor(entry.sKey, entry.ukey, entry.value, param) != 0; });
    }

private:
    Tq4_CAssoc2 *Find(const Asked &asked) const {
        const auto match = [&](const Tq4_CAssoc2 &entry) { return asked.matches(entry, m_case); };
        const uint64_t hash = asked.hash(m_case);
        return m_mixed ? m_chains.FindInChain(hash, match) : m_chains.Find(hash, match);
    }
    void SetAt(void *value, const Asked &asked) {
        Tq4_CAssoc2 *entry = Find(asked);
        if (!entry) m_chains.Add(entry = asked.new_entry(), asked.hash(m_case));
        entry->value = value;
    }
    void *Remove(const Asked &asked) {
        Tq4_CAssoc2 *entry = Find(asked);
        if (!entry) return nullptr;
        void *value = entry->value;
        m_chains.Unlink(entry);
        delete entry;
        if (IsEmpty()) m_mixed = false;
        return value;
    }
};

const Tq4_strmap2_ Tq4_strmap2_itf = {
    .HashTableSize = Tq4_op<&Tq4_strmap2_obj::HashTableSize>,
    .Init = Tq4_op<&Tq4_strmap2_obj::Init>,
    .Count = Tq4_op<&Tq4_strmap2_obj::Count>,
    .IsEmpty = Tq4_op<&Tq4_strmap2_obj::IsEmpty>,
    .CaseFlag = Tq4_op<&Tq4_strmap2_obj::CaseFlag>,
    .LookupI = Tq4_op<&Tq4_strmap2_obj::LookupI>,
    .LookupS = Tq4_op<&Tq4_strmap2_obj::LookupS>,
    .LookupSI = Tq4_op<&Tq4_strmap2_obj::LookupSI>,
    .SetAtI = Tq4_op<&Tq4_strmap2_obj::SetAtI>,
    .SetAtS = Tq4_op<&Tq4_strmap2_obj::SetAtS>,
    .SetAtSI = Tq4_op<&Tq4_strmap2_obj::SetAtSI>,
    .RemoveI = Tq4_op<&Tq4_strmap2_obj::RemoveI>,
    .RemoveS = Tq4_op<&Tq4_strmap2_obj::RemoveS>,
    .RemoveSI = Tq4_op<&Tq4_strmap2_obj::RemoveSI>,
    .RemoveAll = Tq4_op<&Tq4_strmap2_obj::RemoveAll>,
    .NextSI = Tq4_op<&Tq4_strmap2_obj::NextSI>,
    .each = Tq4_op<&Tq4_strmap2_obj::each>,
};
TQ4_MODULE(strmap2)
