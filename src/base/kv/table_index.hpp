// table_index.hpp: from keys to the entries of a value table.
//
// A key leads to at most one entry: to the one that was entered last under it. Entries with an empty key are never in
// the index. Entries that were decoded are entered when somebody first asks: most messages are never looked into, or
// only handed on. Until then they are the end of the table's list, from the one remembered here; every operation below
// enters them before it does anything else. Finding is reading: any number of threads may find side by side while
// nobody changes the table. The first that comes enters the rest, and the others wait for it.
#pragma once

#include <atomic>

#include "base/key/key_forms.hpp"
#include "base/kv/pair.hpp"

class Tq4_table_index {
    Tq4_key_index<Tq4_kv_pair> m_entered;
    std::atomic<Tq4_kv_pair *> m_rest = nullptr; // borrowed: from it to the end of the list no entry is entered yet

public:
    int case_flag() const { return m_entered.case_flag(); }
    void CaseFlag(int flag) {
        Complete();
        m_entered.CaseFlag(flag);
    }

    template <class Form> Tq4_kv_pair *Find(const Form &form) const {
        Complete();
        return m_entered.Find(form);
    }
    Tq4_kv_pair *Find(const char *key) const { return LookUp(Tq4_text_form{key, case_flag()}); }
    Tq4_kv_pair *Find(unsigned long key) const { return LookUp(Tq4_number_form{key}); }
    Tq4_kv_pair *Find(Tq4_key key) const {
        const auto *record = Tq4_record<const Tq4_key_obj>(key);
        return record ? FindKey(*record) : nullptr;
    }

    // Enters a pair under a key that leads nowhere.
    template <class Form> void Add(Tq4_kv_pair *pair, const Form &form) {
        Complete();
        AddNew(pair, form);
    }
    // Enters a pair under its own key. Where that led to an older one, the pair takes its place.
    void Enter(Tq4_kv_pair *pair) {
        Complete();
        EnterNow(pair);
    }
    // The same some time before the index or a key handle is needed; the pair is the last of the list.
    void EnterLater(Tq4_kv_pair *pair) {
        if (!m_rest.load(std::memory_order_relaxed)) m_rest.store(pair, std::memory_order_relaxed);
    }
    // Nothing leads to the pair any more.
    void Remove(Tq4_kv_pair *pair) {
        Complete();
        Unlink(pair);
    }
    // The pair's key leads nowhere any more, also when it led to a newer pair; and nothing leads to the pair, also when
    // its key no longer finds it.
    void RemoveKeyOf(Tq4_kv_pair *pair) {
        Complete();
        if (Tq4_kv_pair *found = FindKey(pair->key())) Unlink(found);
        if (pair->registered()) Unlink(pair);
    }
    // Forgets all pairs, without a look at them. The flag stays.
    void Clear() {
        m_rest.store(nullptr, std::memory_order_relaxed);
        m_entered.Forget();
    }
    // Enters what is left. A key handle lets its holder change the key, which the index must have seen before.
    void Complete() const {
        if (m_rest.load(std::memory_order_acquire)) const_cast<Tq4_table_index *>(this)->EnterRest();
    }

private:
    template <class Form> Tq4_kv_pair *LookUp(const Form &form) const {
        Complete();
        return m_entered.LookUp(form);
    }
    Tq4_kv_pair *FindKey(const Tq4_key_obj &key) const {
        if (key.m_type == Tq4_key_type_Unvalid) return nullptr;
        return LookUp(Tq4_key_form{key, case_flag()});
    }
    void EnterRest();
    void EnterNow(Tq4_kv_pair *pair);
    template <class Form> void AddNew(Tq4_kv_pair *pair, const Form &form) {
        pair->MarkRegistered(case_flag());
        m_entered.Add(pair, form);
    }
    void Unlink(Tq4_kv_pair *pair) {
        m_entered.Unlink(pair);
        pair->MarkUnregistered();
    }
};
