// strmap2: the light string map, without key objects.
//
// An entry holds its text in a field of 32 bytes. A text that fills the field has no terminator there, so its entry
// equals no text any more: it takes part in counts and iterations, is found by nothing, and every further insertion of
// the same text adds another one. That is deliberate; keys of this map are shorter than 32 bytes.
#include "tq4/strmap2.h"

#include <algorithm>
#include <cctype>
#include <cstring>

#include "base/key/chain_groups.hpp"
#include "base/key/chains.hpp"
#include "base/key/entry_room.hpp"
#include "base/key/key.hpp"
#include "base/short_copy.hpp"
#include "base/string/string.hpp"

namespace {

enum class Form : uint8_t { number = 1, text = 2, text_number = 3 };

constexpr std::size_t text_field = 32;

// Keyed. What no entry matches, a text that fills the field, may have any.
template <bool folded> uint64_t full_hash_of(Form form, uint64_t number, Tq4_bytes text) {
    const uint64_t hash = Tq4_keyed_number(static_cast<uint64_t>(form), number);
    if (form == Form::number) return hash;
    if constexpr (!folded) return Tq4_keyed_text<false>(hash, text);
    uint8_t letters[text_field]; // folded as strcasecmp compares
    const std::size_t size = std::min(text.size, text_field);
    for (std::size_t i = 0; i < size; ++i) letters[i] = static_cast<uint8_t>(std::tolower(text.data[i]));
    return Tq4_keyed_text<false>(hash, {letters, size});
}

} // namespace

// One entry, in two parts (entry_room.hpp): what a look-up reads, and the place in the chains.
class Tq4_CAssoc2 {
    struct Rest : Tq4_chained<Tq4_CAssoc2> {
        Tq4_CAssoc2 *entry;
    };
    char m_text[text_field + 1] = {}; // one more, so that iterations may show what no look-up finds

public:
    using Room = Tq4_entry_room<sizeof(Rest)>;

    uint8_t text_size; // up to text_field
    Form key_type;
    bool folding; // ignores case: the map did when it was added

private:
    uint32_t m_index_hash = 0;
    Rest &m_rest;

    Tq4_CAssoc2(Rest *rest, Form form, uint64_t number, Tq4_bytes text, bool nocase)
        : text_size(static_cast<uint8_t>(std::min(text.size, text_field))), key_type(form), folding(nocase),
          m_rest(*rest), ukey(number) {
        rest->entry = this;
        if (text.size) std::memcpy(m_text, text.data, text_size);
    }

public:
    uint64_t ukey;
    void *value = nullptr; // borrowed

    static Tq4_CAssoc2 *Create(Tq4_entry_place place, Form form, uint64_t number, Tq4_bytes text, bool nocase) {
        auto *rest = new (static_cast<std::byte *>(place.entry) + place.rest) Rest;
        return new (place.entry) Tq4_CAssoc2(rest, form, number, text, nocase);
    }
    Tq4_entry_place place() {
        const auto distance = reinterpret_cast<std::byte *>(&m_rest) - reinterpret_cast<std::byte *>(this);
        return {this, static_cast<uint32_t>(distance)};
    }
    const char *c_str() const { return m_text; }
    Tq4_bytes text() const { return {reinterpret_cast<const uint8_t *>(m_text), text_size}; }

    Tq4_chained<Tq4_CAssoc2> &chained() { return m_rest; }
    const Tq4_chained<Tq4_CAssoc2> &chained() const { return m_rest; }
    static Tq4_CAssoc2 *of(Tq4_chained<Tq4_CAssoc2> *chained) { return static_cast<Rest *>(chained)->entry; }
    uint32_t &index_hash() { return m_index_hash; }
    bool findable() const { return text_size < text_field; }
    uint64_t full_hash() const {
        return folding ? full_hash_of<true>(key_type, ukey, text()) : full_hash_of<false>(key_type, ukey, text());
    }
};
static_assert(sizeof(Tq4_CAssoc2) == Tq4_entry_place::line && std::is_trivially_destructible_v<Tq4_CAssoc2>);

namespace {

// A key as the operations are given it.
struct Asked {
    Form form;
    const char *given; // null counts as empty
    uint64_t number;
    Tq4_bytes text = Tq4_text_bytes(given);
    Tq4_hash_on_demand full[2] = {};

    uint64_t hash(int nocase) const {
        if (form == Form::number) return number;
        const uint64_t text_hash = Tq4_key_hash_bytes(text, nocase);
        return form == Form::text ? text_hash : Tq4_key_hash_text_number(text_hash, number);
    }
    uint64_t full_hash(bool folded) const {
        return full[folded].Get([=, this] {
            return folded ? full_hash_of<true>(form, number, text) : full_hash_of<false>(form, number, text);
        });
    }
    bool matches(const Tq4_CAssoc2 &entry, int nocase) const {
        if (entry.key_type != form || entry.ukey != number) return false;
        if (form == Form::number) return true;
        if (entry.text_size != text.size || !entry.findable()) return false;
        if (nocase) return text.size == 0 || strncasecmp(entry.c_str(), given, text.size) == 0;
        return Tq4_short_same(entry.text().data, text.data, text.size);
    }
    Tq4_CAssoc2 *new_entry(Tq4_entry_place place, int nocase) const {
        return Tq4_CAssoc2::Create(place, form, number, text, nocase != 0);
    }
};

Asked by_number(unsigned long number) { return {Form::number, nullptr, number}; }
Asked by_text(const char *text) { return {Form::text, text, 0}; }
Asked by_text_number(const char *text, unsigned long number) { return {Form::text_number, text, number}; }
void *value_of(const Tq4_CAssoc2 *entry) { return entry ? entry->value : nullptr; }

// Entries of one bucket whose keys are equal, or differ in case at most.
template <bool folded> struct Same_key {
    static uint64_t hash(uint64_t full_hash, uint32_t bucket) { return Tq4_keyed_number(bucket, full_hash); }
    static uint64_t hash(const Tq4_CAssoc2 &entry) {
        return hash(full_hash_of<folded>(entry.key_type, entry.ukey, entry.text()), entry.chained().nHashValue);
    }
    static bool same(const Tq4_CAssoc2 &a, const Tq4_CAssoc2 &b) {
        return a.chained().nHashValue == b.chained().nHashValue &&
               Asked{a.key_type, a.c_str(), a.ukey}.matches(b, folded);
    }
};

} // namespace

// A look-up compares by the map's flag alone, whatever flag an entry was added under. While no text was added under
// the other flag, at most one entry matches, and the index finds it; after a change of the flag, groups do.
struct Tq4_strmap2_obj {
    Tq4_chains<Tq4_CAssoc2> m_chains;
    Tq4_CAssoc2::Room m_room;
    Tq4_groups_on_demand<Tq4_CAssoc2, Same_key<false>> m_by_text;
    Tq4_groups_on_demand<Tq4_CAssoc2, Same_key<true>> m_by_folded_text;
    int m_case = 0;                                    // non-zero: texts compare and hash without case
    bool m_some_exact = false, m_some_folding = false; // entries with a text, by the flag they were added under

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
        m_some_exact = source->m_some_exact;
        m_some_folding = source->m_some_folding;
        source->m_chains.EachOldestFirst([this](const Tq4_CAssoc2 &entry) {
            const Asked key{entry.key_type, entry.c_str(), entry.ukey};
            Tq4_CAssoc2 *copy = key.new_entry(m_room.Take(), entry.folding);
            copy->value = entry.value;
            m_chains.AddInBucket(copy, entry.chained().nHashValue);
        });
    }
    // The same keys with the same values in the same order.
    bool Equal(const Tq4_strmap2_obj &other) const {
        return !m_case == !other.m_case &&
               m_chains.Equal(other.m_chains, [](const Tq4_CAssoc2 &a, const Tq4_CAssoc2 &b) {
                   return a.value == b.value && a.key_type == b.key_type && a.ukey == b.ukey &&
                          std::strcmp(a.c_str(), b.c_str()) == 0;
               });
    }

    unsigned long HashTableSize() const { return m_chains.size(); }
    void Init(unsigned long count) { m_chains.Resize(count); }
    int Count() const { return m_chains.count(); }
    bool IsEmpty() const { return m_chains.count() == 0; }
    void CaseFlag(int flag) { m_case = flag; }
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
        m_chains.Forget();
        m_room.GiveAll();
        Emptied();
    }
    void *NextSI(const char **text, unsigned long *number, void **position) const {
        Tq4_CAssoc2 *entry = m_chains.Step(position);
        if (text) *text = entry ? entry->c_str() : nullptr;
        if (number) *number = entry ? entry->ukey : 0;
        return value_of(entry);
    }
    void each(Tq4_strmap_visitor visitor, void *param) const {
        if (!visitor) return;
        m_chains.Each(
            [&](const Tq4_CAssoc2 &entry) { return visitor(entry.c_str(), entry.ukey, entry.value, param) != 0; });
    }

private:
    Tq4_CAssoc2 *Find(const Asked &asked) const {
        const bool plain = asked.form == Form::number || !(m_case ? m_some_exact : m_some_folding);
        if (!m_chains.indexed() || !plain) return FindInBucket(asked);
        const auto match = [&](const Tq4_CAssoc2 &entry) { return asked.matches(entry, m_case); };
        return m_chains.FindByIndex(asked.full_hash(m_case), match);
    }
    // Among few entries, or after a change of the flag. The key is a copy: what Find is given lies in registers.
    [[gnu::noinline]] Tq4_CAssoc2 *FindInBucket(Asked asked) const {
        const auto match = [&](const Tq4_CAssoc2 &entry) { return asked.matches(entry, m_case); };
        if (!m_chains.indexed()) return m_chains.FindInChain(asked.hash(m_case), match);
        const uint32_t bucket = m_chains.BucketOf(asked.hash(m_case));
        const uint64_t hash = Same_key<true>::hash(asked.full_hash(m_case), bucket);
        const auto here = [&](const Tq4_CAssoc2 &entry) {
            return entry.chained().nHashValue == bucket && match(entry);
        };
        return m_case ? m_by_folded_text.Of(m_chains).Find(hash, here) : m_by_text.Of(m_chains).Find(hash, here);
    }
    void SetAt(void *value, const Asked &asked) {
        Tq4_CAssoc2 *entry = Find(asked);
        if (!entry) Add(entry = asked.new_entry(m_room.Take(), m_case), asked);
        entry->value = value;
    }
    void Add(Tq4_CAssoc2 *entry, const Asked &asked) {
        if (asked.form != Form::number) (m_case ? m_some_folding : m_some_exact) = true;
        m_chains.AddInBucket(entry, m_chains.BucketOf(asked.hash(m_case)), [&] { return asked.full_hash(m_case); });
        m_by_text.Added(entry);
        m_by_folded_text.Added(entry);
    }
    void *Remove(const Asked &asked) {
        Tq4_CAssoc2 *entry = Find(asked);
        if (!entry) return nullptr;
        void *value = entry->value;
        m_chains.Unlink(entry);
        m_by_text.Unlinked(entry, m_chains);
        m_by_folded_text.Unlinked(entry, m_chains);
        m_room.Give(entry->place());
        if (IsEmpty()) Emptied();
        return value;
    }
    void Emptied() {
        m_by_text.Drop();
        m_by_folded_text.Drop();
        m_some_exact = m_some_folding = false;
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
