// strmap.hpp: the string map's record.
#pragma once

#include "base/key/entry_room.hpp"
#include "base/key/key_forms.hpp"
#include "tq4/strmap.h"

// One entry, in two parts (entry_room.hpp): what a look-up reads, and the key's object and place in the chains.
class Tq4_CAssoc : Tq4_nested_key {
    struct Rest : Tq4_chained<Tq4_CAssoc> {
        Tq4_CAssoc *entry;
        Tq4_lent_object key_object;
    };
    uint32_t m_index_hash = 0;
    Rest &m_rest;

    explicit Tq4_CAssoc(Rest *rest) : Tq4_nested_key(rest->key_object), m_rest(*rest) {
        rest->entry = this;
        if (rest->key_object.is_hosts()) key().Reset(); // filled without a look at what it holds
    }

public:
    using Room = Tq4_entry_room<sizeof(Rest)>;

    void *value = nullptr; // borrowed

    static Tq4_CAssoc *Create(Tq4_entry_place place) {
        return new (place.entry) Tq4_CAssoc(new (static_cast<std::byte *>(place.entry) + place.rest) Rest);
    }
    // Leaves the room.
    static Tq4_entry_place Delete(Tq4_CAssoc *entry) {
        const auto distance = reinterpret_cast<std::byte *>(&entry->m_rest) - reinterpret_cast<std::byte *>(entry);
        entry->End(entry->m_rest.key_object);
        return {entry, static_cast<uint32_t>(distance)};
    }
    Tq4_key key_handle() { return handle(m_rest.key_object); }
    Tq4_key_obj &key() const { return record(m_rest.key_object); }

    Tq4_chained<Tq4_CAssoc> &chained() { return m_rest; }
    const Tq4_chained<Tq4_CAssoc> &chained() const { return m_rest; }
    static Tq4_CAssoc *of(Tq4_chained<Tq4_CAssoc> *chained) { return static_cast<Rest *>(chained)->entry; }
    uint32_t &index_hash() { return m_index_hash; }
    static constexpr bool findable() { return true; }

    const Tq4_key_obj &index_key() const { return key(); }
    int index_case() const { return key().cf; }
    uint64_t full_hash() const { return key().FullHash(index_case()); }
};
static_assert(sizeof(Tq4_CAssoc) == Tq4_entry_place::line);

struct Tq4_strmap_obj {
    Tq4_key_index<Tq4_CAssoc> m_index;
    Tq4_CAssoc::Room m_room;

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
