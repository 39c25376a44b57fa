// strmap.hpp: the string map's record, for the table that is built on it.
#pragma once

#include "base/kv/key.hpp"
#include "base/map/chains.hpp"
#include "tq4/strmap.h"

// One entry.
struct Tq4_CAssoc : Tq4_chained<Tq4_CAssoc> {
    Tq4_hooked<Tq4_key> key = Tq4_make_hooked<Tq4_key>(Tq4_cxx_support->new_key);
    void *value = nullptr; // borrowed

    Tq4_key_obj &key_record() const { return *Tq4_record<Tq4_key_obj>(key.get()); }
};

struct Tq4_strmap_obj {
    Tq4_chains<Tq4_CAssoc> m_chains;
    int m_case = 0; // non-zero: strings compare and hash without case

    // Some entry was added under another case flag than the map has now, so that hashes and matches no longer go
    // together and only the chains tell what a look-up meets. Lasts until the map is empty.
    bool m_mixed = false;

    ~Tq4_strmap_obj() { RemoveAll(); }
    void Reset();
    void Copy(const Tq4_strmap_obj *source); // null empties
    bool Equal(const Tq4_strmap_obj &other) const;

    unsigned long HashTableSize() const { return m_chains.size(); }
    void Init(unsigned long count) { m_chains.Resize(count); }
    int Count() const { return m_chains.count(); }
    bool IsEmpty() const { return m_chains.count() == 0; }
    void CaseFlag(int flag);
    void *LookupK(Tq4_key key) const;
    void *LookupI(unsigned long number) const;
    void *LookupS(const char *text) const;
    void *LookupSI(const char *text, unsigned long number) const;
    void SetAtK(void *value, Tq4_key key);
    void SetAtI(void *value, unsigned long number);
    void SetAtS(void *value, const char *text);
    void SetAtSI(void *value, const char *text, unsigned long number);
    void *RemoveK(Tq4_key key);
    void *RemoveI(unsigned long number);
    void *RemoveS(const char *text);
    void *RemoveSI(const char *text, unsigned long number);
    void RemoveAll();
    void *NextK(Tq4_key *key, void **position) const;
    void *NextSI(const char **text, unsigned long *number, void **position) const;
    void eachKV(Tq4_strmap_key_visitor visitor, void *param) const;
    void each(Tq4_strmap_visitor visitor, void *param) const;

    // For the table, which keeps hold of entries: the entry under a key or null; the same, made when absent with a
    // null value; and the end of an entry.
    Tq4_CAssoc *EntryK(const Tq4_key_obj &key) const;
    Tq4_CAssoc *EntryI(unsigned long number) const;
    Tq4_CAssoc *EntryS(const char *text) const;
    Tq4_CAssoc *MakeEntryK(const Tq4_key_obj &key);
    Tq4_CAssoc *MakeEntryI(unsigned long number);
    Tq4_CAssoc *MakeEntryS(const char *text);
    void *Drop(Tq4_CAssoc *entry); // returns its value

private:
    template <class Form> Tq4_CAssoc *Find(const Form &form) const;
    template <class Form> Tq4_CAssoc *Make(const Form &form);
    template <class Form> void *Remove(const Form &form);
};
