// key_forms.hpp: the forms of key that look-ups take, and the index over them that maps and tables share.
//
// The forms (a key object, a number, a text, a text with a number) differ in how they hash, what they match and how
// they fill a new entry's key; what is done with them is written once. An entry has index_key(), the key it was added
// under, and index_case(), the map's case flag at that time.
// The chains' index over full hashes is asked while every entry carries the map's own case flag; a map that changed
// its flag while it had entries, and a key object that ignores case in a map that does not, are looked up in the
// chains.
#pragma once

#include "base/kv/key.hpp"
#include "base/map/chains.hpp"
#include "base/string/string.hpp"

// exact(): equal keys and equal hashes go together.
struct Tq4_key_form {
    const Tq4_key_obj &key;
    int nocase;
    uint64_t hash = key.Hash(nocase);
    bool matches(const Tq4_key_obj &entry, int entry_case) const { return entry.EqualUnder(entry_case, key); }
    bool exact() const { return !key.cf || nocase; }
    void fill(Tq4_key_obj &entry) const {
        entry.Copy(&key);
        entry.SetNoCase(nocase);
    }
};

struct Tq4_number_form {
    unsigned long number;
    uint64_t hash = number;
    bool matches(const Tq4_key_obj &entry, int) const { return entry.EqualL(number); }
    static constexpr bool exact() { return true; }
    void fill(Tq4_key_obj &entry) const { entry.SetL(number, nullptr); }
};

struct Tq4_text_form {
    const char *given; // may be null; not looked at when the text is given as bytes
    int nocase;
    Tq4_bytes text = Tq4_text_bytes(given);
    uint64_t hash = Tq4_key_hash_bytes(text, nocase);
    bool matches(const Tq4_key_obj &entry, int entry_case) const {
        return entry.m_type == Tq4_key_type_String && Tq4_key_obj::same_text(entry.text(), text, entry_case || nocase);
    }
    static constexpr bool exact() { return true; }
    void fill(Tq4_key_obj &entry) const { entry.SetS(given, -1, nocase); }
};

struct Tq4_text_number_form {
    const char *given; // may be null
    unsigned long number;
    int nocase;
    Tq4_bytes text = Tq4_text_bytes(given);
    uint64_t hash = Tq4_key_hash_text_number(Tq4_key_hash_bytes(text, nocase), number);
    bool matches(const Tq4_key_obj &entry, int entry_case) const {
        return entry.m_type == Tq4_key_type_LS && entry.GetL() == number &&
               Tq4_key_obj::same_text(entry.text(), text, entry_case || nocase);
    }
    static constexpr bool exact() { return true; }
    void fill(Tq4_key_obj &entry) const { entry.SetLS(number, given, nocase); }
};

template <class Entry> class Tq4_key_index {
public:
    Tq4_chains<Entry> m_chains;
    int m_case = 0; // non-zero: strings compare and hash without case

    // Some entry was added under another case flag than there is now, so that hashes and matches no longer go together
    // and only the chains tell what a look-up meets. Lasts until there are no entries.
    bool m_mixed = false;

    void CaseFlag(int flag) {
        if (!m_case != !flag && m_chains.count() > 0) m_mixed = true;
        m_case = flag;
    }

    template <class Form> Entry *Find(const Form &form) const {
        const auto match = [&](const Entry &entry) { return form.matches(entry.index_key(), entry.index_case()); };
        return m_mixed || !form.exact() ? m_chains.FindInChain(form.hash, match) : m_chains.Find(form.hash, match);
    }

    // A key object that ignores case stands in the bucket of its own hash, but its entry takes the index's flag,
    // deliberately.
    template <class Form> void Add(Entry *entry, const Form &form) {
        m_chains.Add(entry, form.hash);
        if (!form.exact()) m_mixed = m_mixed || hash_of(*entry) != form.hash;
    }

    void Unlink(Entry *entry) {
        m_chains.Unlink(entry);
        if (m_chains.count() == 0) m_mixed = false;
    }

    // Forgets all entries.
    void Clear() {
        m_chains.Forget();
        m_mixed = false;
    }

private:
    uint64_t hash_of(const Entry &entry) const {
        const Tq4_key_obj &key = entry.index_key();
        return key.HashUnder(entry.index_case() || m_case);
    }
};
