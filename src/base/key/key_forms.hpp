// key_forms.hpp: the forms of key that look-ups take, and the index over them that maps and tables share.
//
// The forms (a key object, a number, a text, a text with a number) differ in how they hash, what they match and how
// they fill a new entry's key; what is done with them is written once. An entry has index_key(), the key it was added
// under, and index_case(), the map's case flag at that time.
//
// A look-up meets the first entry of its bucket that matches. An entry that ignores case matches every case of its
// text; another one its own text, and every case of it when the look-up itself ignores case. Where an entry that
// ignores case stands, no other case of its text is added to the bucket any more: it is the newest of them and the only
// one. So a look-up that ignores case meets the newest of all cases; every other look-up meets the one that ignores
// case, or else the one that is its own text.
#pragma once

#include "base/key/chain_groups.hpp"
#include "base/key/chains.hpp"
#include "base/key/key.hpp"
#include "base/string/string.hpp"

// has_text(): the text is part of what matches. folds(): every case of it matches entries that do not ignore case.
struct Tq4_key_form {
    const Tq4_key_obj &key;
    int nocase;
    Tq4_hash_on_demand bucket = {}, full[2] = {};
    bool has_text() const { return key.identified_by_text(); }
    bool folds() const { return key.cf && has_text(); }
    uint64_t bucket_hash() const {
        return bucket.Get([this] { return key.Hash(nocase); });
    }
    uint64_t full_hash(bool folded) const {
        return full[folded].Get([=, this] { return key.FullHash(folded); });
    }
    bool matches(const Tq4_key_obj &entry, int entry_case) const { return entry.EqualUnder(entry_case, key); }
    void fill(Tq4_key_obj &entry) const {
        entry.Copy(&key);
        entry.SetNoCase(nocase);
    }
};

struct Tq4_number_form {
    unsigned long number;
    static constexpr bool has_text() { return false; }
    static constexpr bool folds() { return false; }
    uint64_t bucket_hash() const { return number; }
    uint64_t full_hash(bool) const { return Tq4_key_full_hash(Tq4_key_type_L, number); }
    bool matches(const Tq4_key_obj &entry, int) const { return entry.EqualL(number); }
    void fill(Tq4_key_obj &entry) const { entry.SetL(number, nullptr); }
};

struct Tq4_text_form {
    const char *given; // may be null; not looked at when the text is given as bytes
    int nocase;
    Tq4_bytes text = Tq4_text_bytes(given);
    Tq4_hash_on_demand bucket = {}, full[2] = {};
    static constexpr bool has_text() { return true; }
    bool folds() const { return nocase != 0; }
    uint64_t bucket_hash() const {
        return bucket.Get([this] { return Tq4_key_hash_bytes(text, nocase); });
    }
    [[gnu::always_inline]] uint64_t full_hash(bool folded) const {
        return full[folded].Get([=, this] { return Tq4_key_full_hash(Tq4_key_type_String, 0, text, folded); });
    }
    bool matches(const Tq4_key_obj &entry, int entry_case) const {
        return entry.m_type == Tq4_key_type_String && entry.text_is(text, entry_case || nocase);
    }
    void fill(Tq4_key_obj &entry) const {
        text.data ? entry.FillText(text, nocase, text.size) : entry.SetS(nullptr, 0, nocase);
    }
};

struct Tq4_text_number_form {
    const char *given; // may be null
    unsigned long number;
    int nocase;
    Tq4_bytes text = Tq4_text_bytes(given);
    Tq4_hash_on_demand bucket = {}, full[2] = {};
    static constexpr bool has_text() { return true; }
    bool folds() const { return nocase != 0; }
    uint64_t bucket_hash() const {
        return bucket.Get([this] { return Tq4_key_hash_text_number(Tq4_key_hash_bytes(text, nocase), number); });
    }
    uint64_t full_hash(bool folded) const {
        return full[folded].Get([=, this] { return Tq4_key_full_hash(Tq4_key_type_LS, number, text, folded); });
    }
    bool matches(const Tq4_key_obj &entry, int entry_case) const {
        return entry.m_type == Tq4_key_type_LS && entry.GetL() == number && entry.text_is(text, entry_case || nocase);
    }
    void fill(Tq4_key_obj &entry) const { entry.SetLS(number, given, nocase); }
};

// Entries of one bucket whose keys differ in case at most.
struct Tq4_same_but_case {
    static uint64_t hash(uint64_t folded_hash, uint32_t bucket) { return Tq4_keyed_number(bucket, folded_hash); }
    template <class Entry> static uint64_t hash(const Entry &entry) {
        return hash(entry.index_key().FullHash(true), entry.chained().nHashValue);
    }
    template <class Entry> static bool same(const Entry &a, const Entry &b) {
        return a.chained().nHashValue == b.chained().nHashValue && a.index_key().EqualUnder(true, b.index_key());
    }
};

template <class Entry> class Tq4_key_index {
    Tq4_chains<Entry> m_chains;
    Tq4_groups_on_demand<Entry, Tq4_same_but_case> m_groups;
    int m_case = 0; // non-zero: strings compare and hash without case

    // What there may be among the entries with a text; until there are no entries.
    bool m_some_exact = false;   // entries that do not ignore case
    bool m_some_folding = false; // entries that do
    bool m_some_astray = false;  // entries that do not, in the bucket of one that does

public:
    const Tq4_chains<Entry> &chains() const { return m_chains; }
    int case_flag() const { return m_case; }
    void CaseFlag(int flag) { m_case = flag; }
    void Resize(uint64_t heads) { m_chains.Resize(heads); }

    // No entries, 17 buckets and no case flag.
    void Reset() {
        Forget();
        m_chains.Resize();
        m_case = 0;
    }

    // Keeps in the form the hashes that it computes: the caller goes on to add an entry.
    template <class Form> Entry *Find(const Form &form) const {
        return Plain(form) ? FindPlain(form) : FindInBucket(form);
    }
    // For a look-up alone. Calls get a copy of the form, so the form itself stays in registers.
    template <class Form> Entry *LookUp(const Form &form) const {
        return Plain(form) ? FindPlain(form) : FindInBucket(Form(form));
    }

    // A key object that ignores case stands in the bucket of its own hash, but its entry takes the index's flag,
    // deliberately.
    template <class Form> void Add(Entry *entry, const Form &form) {
        if (form.has_text()) {
            (entry->index_case() ? m_some_folding : m_some_exact) = true;
            m_some_astray = m_some_astray || (form.folds() && !m_case);
        }
        m_chains.AddInBucket(entry, m_chains.BucketOf(form.bucket_hash()),
                             [&] { return form.full_hash(entry->index_case() != 0); });
        m_groups.Added(entry);
    }
    // The new entry takes the place of the old one, and its key.
    void Replace(Entry *old, Entry *fresh) {
        m_chains.Replace(old, fresh);
        m_groups.Replaced(old, fresh);
    }
    void Unlink(Entry *entry) {
        m_chains.Unlink(entry);
        m_groups.Unlinked(entry, m_chains);
        if (m_chains.count() == 0) m_some_exact = m_some_folding = m_some_astray = false;
    }
    void Forget() {
        m_chains.Forget();
        m_groups.Drop();
        m_some_exact = m_some_folding = m_some_astray = false;
    }
    // Takes all entries out and hands each to dispose.
    template <class Dispose> void Clear(Dispose dispose) {
        m_chains.Clear(dispose);
        Forget();
    }
    // The same buckets and flag, and copies of the same entries in the same order, made by copy(entry).
    template <class MakeCopy> void CopyEmpty(const Tq4_key_index &source, MakeCopy copy) {
        m_chains.Resize(source.m_chains.size());
        m_case = source.m_case;
        m_some_exact = source.m_some_exact;
        m_some_folding = source.m_some_folding;
        m_some_astray = source.m_some_astray;
        source.m_chains.EachOldestFirst(
            [&](const Entry &entry) { m_chains.AddInBucket(copy(entry), entry.chained().nHashValue); });
    }

private:
    template <class Form> bool Plain(const Form &form) const {
        if (!m_chains.indexed()) return false;
        return !form.has_text() || (!m_some_folding && !m_some_astray && !m_case && !form.folds());
    }
    template <class Form> Entry *FindPlain(const Form &form) const {
        return m_chains.FindByIndex(form.full_hash(false),
                                    [&](const Entry &entry) { return form.matches(entry.index_key(), false); });
    }
    // Among few entries, or some that ignore case, or by a look-up that does.
    template <class Form> [[gnu::noinline]] Entry *FindInBucket(const Form &form) const {
        const auto match = [&](const Entry &entry) { return form.matches(entry.index_key(), entry.index_case()); };
        if (!m_chains.indexed()) return m_chains.FindInChain(form.bucket_hash(), match);
        const uint32_t bucket = m_chains.BucketOf(form.bucket_hash());
        const auto here = [&](const Entry &entry) { return entry.chained().nHashValue == bucket && match(entry); };
        if (m_some_exact && form.folds())
            return m_groups.Of(m_chains).Find(Tq4_same_but_case::hash(form.full_hash(true), bucket), here);
        const auto folding = [&](const Entry &entry) { return entry.index_case() && here(entry); };
        Entry *found = m_some_folding ? m_chains.FindByIndex(form.full_hash(true), folding) : nullptr;
        return found || !m_some_exact ? found : m_chains.FindByIndex(form.full_hash(false), here);
    }
};
