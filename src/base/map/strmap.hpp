// strmap.hpp: the string map's record.
#pragma once

#include "base/key/entry_room.hpp"
#include "base/key/key_forms.hpp"
#include "tq4/strmap.h"

struct Tq4_CAssoc_content {
    void *value = nullptr; // borrowed
    Tq4_nested_key key;
};

// One entry. What a look-up reads comes first, within one cache line.
struct Tq4_CAssoc : Tq4_CAssoc_content, Tq4_chained<Tq4_CAssoc> {
    static constexpr std::size_t size = 128; // that it takes: whole cache lines

    const Tq4_key_obj &index_key() const { return key.record(); }
    int index_case() const { return key.record().cf; }
    uint64_t full_hash() const { return index_key().FullHash(index_case()); }
};

static_assert(sizeof(Tq4_CAssoc) <= Tq4_CAssoc::size);

struct Tq4_strmap_obj {
    Tq4_key_index<Tq4_CAssoc> m_index;
    Tq4_entry_room<Tq4_CAssoc::size> m_room;

    ~Tq4_strmap_obj() { RemoveAll(); }
    void Reset();
    void Copy(const Tq4_strmap_obj *source); // null empties
    bool Equal(const Tq4_strmap_obj &other) const;

    unsigned long HashTableSize() const { return m_index.chains().size(); }
    void Init(unsigned long count) { m_index.Resize(count); }
    int Count() const { return m_index.chains().count(); }
    bool IsEmpty() const { return Count() == 0; }
    void CaseFlag(int flag) { m_index.CaseFlag(flag); }
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

private:
    template <class Form> void *Lookup(const Form &form) const;
    template <class Form> void SetAt(void *value, const Form &form);
    template <class Form> void *Remove(const Form &form);
};
