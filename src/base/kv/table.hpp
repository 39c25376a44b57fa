// table.hpp: the value table's record and its entries.
//
// The list of entries is the order of the table. The index leads from a key to the entry registered under it; entries
// with an empty key are never in it, and no way of removing an entry leaves the index pointing at it.
#pragma once

#include <vector>

#include "base/kv/pair.hpp"
#include "base/kv/table_index.hpp"
#include "base/queue/list.hpp"
#include "tq4/value_table.h"

// An each under way, on the stack of its call.
struct Tq4_value_table_visit {
    Tq4_list_node *following;     // borrowed: what is shown next, or the end; moves on when it is removed
    Tq4_value_table_visit *outer; // borrowed: the each that called this one
};

struct Tq4_value_table_obj {
    Tq4_table_index m_index;
    Tq4_list m_list;
    mutable Tq4_value_table_visit *m_visits = nullptr; // borrowed: the innermost
    Tq4_kv_pair::Room m_room;
    Tq4_kv_pair *m_cur = nullptr; // borrowed: where First and Next stand
    bool m_cur_is_next = false;   // the entry at m_cur was removed: the cursor moved on, and Next gives m_cur itself
    uint8_t m_case = 0;           // given to the keys that the table makes; the index has a flag of its own

    ~Tq4_value_table_obj() {
        if (m_list.m_count) RemoveAll();
    }
    void Reset();
    void Copy(const Tq4_value_table_obj *source); // null empties
    bool Equal(const Tq4_value_table_obj &other) const;

    long Dump(Tq4_string out) const;
    int Import(const char *buf, int len);
    void ImportFrom(Tq4_import_call &from); // a part of a call's input

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
    unsigned long Count() const { return m_list.m_count; }
    void Append(Tq4_value_table source);
    void CaseFlag(int flag) { m_case = flag != 0; }
    void each(Tq4_value_table_visitor visitor, void *param) const;
    void Print() const;
    void Echo(Tq4_echo echo, void *context, int compact) const;
    const char *Json_encode(Tq4_string out) const; // compactly appended to out, whose text it returns; null prints

    // The pairs in order, for what walks them all: visit(pair) until it gives false. While one is visited, the entries
    // of the table that the next one holds come into the cache, and the table that the one after it holds.
    template <class Visit> void EachPair(Visit visit) const {
        for (const Tq4_list_node *node = m_list.first(); node != m_list.end(); node = node->next) {
            if (const Tq4_list_node *next = node->next; next != m_list.end()) {
                PrefetchEntries(static_cast<const Tq4_kv_pair *>(next)->value());
                if (next->next != m_list.end()) Prefetch(static_cast<const Tq4_kv_pair *>(next->next)->value());
            }
            if (!visit(*static_cast<const Tq4_kv_pair *>(node))) return;
        }
    }
    // A new entry at the end, without a key, that is not in the index.
    Tq4_kv_pair *NewPairAtTail();
    // The value under a text, made when there is none. From its first byte on, `readable` bytes may
    // be read.
    Tq4_value_obj &ValueOf(Tq4_bytes key, std::size_t readable);
    // The same in a table that has nothing but what this call made in it, and no case flag.
    Tq4_value_obj &DecodedMember(Tq4_bytes key, std::size_t readable);

    // For what goes through large documents: these bytes come into the cache, and of a table the first entries.
    static constexpr std::size_t prefetched = 4 * Tq4_kv_pair::Room::size;
    template <std::size_t size> static void PrefetchLines(const void *from) {
#pragma GCC unroll 16
        for (std::size_t at = 0; at < size; at += 64) __builtin_prefetch(static_cast<const char *>(from) + at);
    }

private:
    static void Prefetch(const Tq4_value_obj &v) {
        if (const void *table = v.made_table()) PrefetchLines<sizeof(Tq4_value_table_obj)>(table);
    }
    static void PrefetchEntries(const Tq4_value_obj &v) {
        if (Tq4_value_table table = v.made_table())
            PrefetchLines<prefetched>(Tq4_record<const Tq4_value_table_obj>(table)->m_list.first());
    }
    void ImportEntry(Tq4_import_call &from);
    Tq4_kv_pair *MakePair(const Tq4_text_form &form, std::size_t readable);
    void Delete(Tq4_kv_pair *pair);
    // Entries in no table, and their memory, which goes with them all at once.
    struct Entries {
        Tq4_list list;
        Tq4_kv_pair::Room room;
    };
    void Detach(Entries &entries); // empties the table, as far as it can be without deleting them
    static void DeleteEntries(Entries &entries);
    static void CopyEntries(const Tq4_value_table_obj &source, Tq4_list &copies, Tq4_kv_pair::Room &room);

    // The same through all the tables in this one, of which those deeper than the recursion goes are put off.
    struct Pair {
        Tq4_value_table_obj *to;
        const Tq4_value_table_obj *from;
    };
    struct Alike {
        const Tq4_value_table_obj *mine, *theirs;
    };
    static void EndEntries(Entries &entries, std::vector<Tq4_value_table> &put_off, int depth);
    static void EndTable(Tq4_value_table table, std::vector<Tq4_value_table> &put_off, int depth);
    static void CopyOwnEntries(const Tq4_value_table_obj &source, Tq4_list &copies, Tq4_kv_pair::Room &room,
                               std::vector<Pair> &put_off, int depth);
    void CopyAll(const Tq4_value_table_obj &source, std::vector<Pair> &put_off, int depth);
    bool EqualEntries(const Tq4_value_table_obj &other, std::vector<Alike> &put_off, int depth) const;
    void AppendEntries(Tq4_list &copies, uint8_t case_flag);
    Tq4_kv_pair *PairAt(int index) const;
    Tq4_value Show(Tq4_kv_pair *pair, Tq4_key *key) const;
};

// A message has many small tables.
static_assert(sizeof(Tq4_object) + sizeof(Tq4_value_table_obj) <= 250);

// ---- by key: each operation once for the three forms of key

template <class Key> Tq4_value Tq4_value_table_obj::Value(Key key) const {
    Tq4_kv_pair *pair = m_index.Find(key);
    return pair ? pair->shared_value_handle() : nullptr;
}
template <class Key> Tq4_value_table Tq4_value_table_obj::Table(Key key) const {
    const Tq4_kv_pair *pair = m_index.Find(key);
    return pair ? pair->value().GetValueTable() : nullptr;
}
template <class Key> void *Tq4_value_table_obj::Ptr(Key key) const {
    const Tq4_kv_pair *pair = m_index.Find(key);
    return pair ? pair->value().GetPtr() : nullptr;
}
template <class Key> char *Tq4_value_table_obj::Bytes(Key key, unsigned long *len) const {
    if (len) *len = 0;
    const Tq4_kv_pair *pair = m_index.Find(key);
    return pair ? pair->value().GetBytes(len) : nullptr;
}
template <class Key> unsigned long Tq4_value_table_obj::Base(Key key) const {
    const Tq4_kv_pair *pair = m_index.Find(key);
    return pair ? static_cast<unsigned long>(pair->value().GetInteger()) : 0;
}
template <class Key> long Tq4_value_table_obj::Int64(Key key) const {
    const Tq4_kv_pair *pair = m_index.Find(key);
    return pair ? pair->value().GetInt64() : 0;
}
template <class Key> void Tq4_value_table_obj::Remove(Key key) {
    if (Tq4_kv_pair *pair = m_index.Find(key)) {
        m_index.Remove(pair);
        Delete(pair);
    }
}

// A value that is a table already keeps its content.
template <class Key> Tq4_value_table Tq4_value_table_obj::InsertTable(Key key) {
    Tq4_value value = Insert(key);
    return value ? Tq4_record<Tq4_value_obj>(value)->make_table_handle() : nullptr;
}
