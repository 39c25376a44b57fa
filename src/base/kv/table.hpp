// table.hpp: the value table's record and its entries.
//
// The entries are the payloads of a list, in order. The index leads from a key to a list item; an entry knows its place
// in the index, so that no way of removing an entry leaves the index pointing at it. Entries with an empty key are
// never in the index.
#pragma once

#include "base/kv/key.hpp"
#include "base/kv/value.hpp"
#include "base/map/strmap.hpp"
#include "base/queue/queue.hpp"
#include "tq4/value_table.h"

class Tq4_byte_reader;

// One entry; attached to its list item with Delete_Tq4_kv_pair as deleter.
struct Tq4_kv_pair {
    Tq4_hooked<Tq4_key> m_key = Tq4_make_hooked<Tq4_key>(Tq4_cxx_support->new_key);
    Tq4_hooked<Tq4_value> m_value = Tq4_make_hooked<Tq4_value>(Tq4_cxx_support->new_value);
    Tq4_CAssoc *m_entry = nullptr; // borrowed: the place in the table's index; null when not indexed

    Tq4_key_obj &key() const { return *Tq4_record<Tq4_key_obj>(m_key.get()); }
    Tq4_value_obj &value() const { return *Tq4_record<Tq4_value_obj>(m_value.get()); }
};

Tq4_kv_pair *Create_Tq4_kv_pair();
void Delete_Tq4_kv_pair(Tq4_kv_pair *pair);
// Empties key and value.
void Reset_Tq4_kv_pair(Tq4_kv_pair *pair);
// Deep copies of key and value, in a new pair or in an existing one. Neither is indexed by it.
Tq4_kv_pair *Dup_Tq4_kv_pair(const Tq4_kv_pair *pair);
void Tq4_kv_pair_Clone(Tq4_kv_pair *destination, const Tq4_kv_pair *source);

struct Tq4_value_table_obj {
    Tq4_own<Tq4_strmap> m_table = Tq4_make<Tq4_strmap>(Tq4_strmap_oitf);
    Tq4_own<Tq4_queue> m_list = Tq4_make<Tq4_queue>(Tq4_queue_oitf);
    Tq4_queue_item m_cur = nullptr; // borrowed: where First and Next stand
    bool m_cur_is_next = false;     // the entry at m_cur was removed: the cursor moved on, and Next gives m_cur itself
    uint8_t m_case = 0;             // given to the keys that the table makes; the index has a flag of its own

    ~Tq4_value_table_obj() { RemoveAll(); }
    void Reset();
    void Copy(const Tq4_value_table_obj *source); // null empties
    bool Equal(const Tq4_value_table_obj &other) const;

    long Dump(Tq4_string out) const;
    int Import(const char *buf, int len);
    // The same inside so many tables.
    int ImportAt(const char *buf, int len, int depth);

    Tq4_value SetSS(const char *key, const char *text);
    Tq4_value SetIS(unsigned long key, const char *text);
    Tq4_value SetSI(const char *key, long n);
    Tq4_value SetII(unsigned long key, long n);
    Tq4_value SetSInt64(const char *key, long long n);
    Tq4_value SetIInt64(unsigned long key, long long n);
    Tq4_value SetPtrS(const char *key, void *pointer);
    Tq4_value SetPtrI(unsigned long key, void *pointer);
    Tq4_value InsertS(const char *key);
    Tq4_value InsertI(unsigned long key);
    Tq4_value InsertK(Tq4_key key);
    Tq4_value InsertAt(int index);
    void RemoveAt(int index);
    void ModifyKeyK(int index, Tq4_key key);
    void ModifyKeyS(int index, const char *text);
    void ModifyKeyI(int index, unsigned long n);
    Tq4_value Insert(const char *key) { return InsertS(key); }
    Tq4_value Insert(unsigned long key) { return InsertI(key); }
    Tq4_value Insert(Tq4_key key) { return InsertK(key); }
    template <class Key> Tq4_value_table InsertTable(Key key);
    template <class Key> Tq4_value Value(Key key) const;
    template <class Key> Tq4_value_table Table(Key key) const;
    template <class Key> void *Ptr(Key key) const;
    template <class Key> char *Bytes(Key key, unsigned long *len) const;
    template <class Key> unsigned long Base(Key key) const;
    template <class Key> long Int64(Key key) const;
    Tq4_value First(Tq4_key *key);
    Tq4_value Next(Tq4_key *key);
    Tq4_value At(int index, Tq4_key *key) const;
    template <class Key> void Remove(Key key);
    void RemoveAll();
    unsigned long Count() const { return list().base.m_itemCount; }
    void Append(Tq4_value_table source);
    void CaseFlag(int flag) { m_case = flag != 0; }
    void each(Tq4_value_table_visitor visitor, void *param) const;
    void Print() const;
    void Echo(Tq4_echo echo, void *context, int compact) const;
    const char *Json_encode(Tq4_string out) const; // compactly appended to out, whose text it returns; null prints

    Tq4_strmap_obj &index() const { return *Tq4_record<Tq4_strmap_obj>(m_table.get()); }
    Tq4_queue_obj &list() const { return *Tq4_record<Tq4_queue_obj>(m_list.get()); }

    // The pairs in order, for what walks them all: visit(pair) until it gives false.
    template <class Visit> void EachPair(Visit visit) const {
        for (Tq4_list_node *node = list().m_head.next; node != &list().m_tail; node = node->next)
            if (!visit(*static_cast<const Tq4_kv_pair *>(Tq4_queue_obj::item_of(node)->m_obj))) return;
    }

private:
    Tq4_CAssoc *Entry(const char *key) const { return index().EntryS(key); }
    Tq4_CAssoc *Entry(unsigned long key) const { return index().EntryI(key); }
    Tq4_CAssoc *Entry(Tq4_key key) const;
    static Tq4_value ValueAt(const Tq4_CAssoc *entry); // null for null
    void DeleteAt(Tq4_CAssoc *entry);
    Tq4_kv_pair *NewPairAtTail();
    void AddAtTail(Tq4_kv_pair *pair); // takes it over and registers it by its key
    void Register(Tq4_queue_item item, Tq4_CAssoc *entry);
    void RegisterByKey(Tq4_queue_item item);
    void Unregister(Tq4_queue_item item);
    void Delete(Tq4_queue_item item);
    Tq4_own<Tq4_queue> Detach();
    void LinkCopies(Tq4_own<Tq4_queue> copies, uint8_t case_flag);
    Tq4_queue_item ItemAt(int index) const;
    Tq4_value Show(Tq4_queue_item item, Tq4_key *key) const;
};

// ---- by key: each operation once for the three forms of key

template <class Key> Tq4_value Tq4_value_table_obj::Value(Key key) const { return ValueAt(Entry(key)); }
template <class Key> Tq4_value_table Tq4_value_table_obj::Table(Key key) const {
    Tq4_value value = Value(key);
    return value ? Tq4_record<Tq4_value_obj>(value)->GetValueTable() : nullptr;
}
template <class Key> void *Tq4_value_table_obj::Ptr(Key key) const {
    Tq4_value value = Value(key);
    return value ? Tq4_record<Tq4_value_obj>(value)->GetPtr() : nullptr;
}
template <class Key> char *Tq4_value_table_obj::Bytes(Key key, unsigned long *len) const {
    if (len) *len = 0;
    Tq4_value value = Value(key);
    return value ? Tq4_record<Tq4_value_obj>(value)->GetBytes(len) : nullptr;
}
template <class Key> unsigned long Tq4_value_table_obj::Base(Key key) const {
    Tq4_value value = Value(key);
    return value ? static_cast<unsigned long>(Tq4_record<Tq4_value_obj>(value)->GetInteger()) : 0;
}
template <class Key> long Tq4_value_table_obj::Int64(Key key) const {
    Tq4_value value = Value(key);
    return value ? Tq4_record<Tq4_value_obj>(value)->GetInt64() : 0;
}
template <class Key> void Tq4_value_table_obj::Remove(Key key) {
    if (Tq4_CAssoc *entry = Entry(key)) DeleteAt(entry);
}

// A value that is a table already keeps its content.
template <class Key> Tq4_value_table Tq4_value_table_obj::InsertTable(Key key) {
    Tq4_value value = Insert(key);
    return value ? Tq4_record<Tq4_value_obj>(value)->make_table_handle() : nullptr;
}
