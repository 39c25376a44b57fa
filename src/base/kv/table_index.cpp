// table_index: entering pairs under their own keys.
#include "base/kv/table_index.hpp"

#include "thread/cancel.hpp"

void Tq4_table_index::EnterNow(Tq4_kv_pair *pair) {
    const Tq4_key_obj &key = pair->key();
    if (key.m_type == Tq4_key_type_Unvalid) return;
    const Tq4_key_form form{key, case_flag()};
    Tq4_kv_pair *older = m_entered.Find(form);
    if (!older) return AddNew(pair, form);
    m_entered.Replace(older, pair);
    pair->MarkRegisteredLike(*older);
    older->MarkUnregistered();
}

namespace {

// What stands in the place of the first pair while a thread enters them.
Tq4_kv_pair *under_way() { return reinterpret_cast<Tq4_kv_pair *>(alignof(Tq4_kv_pair)); }

} // namespace

// A thread that was killed here would let the others wait for ever: no kill comes in between.
void Tq4_table_index::EnterRest() {
    const Tq4_cancel_deferred no_kill;
    Tq4_kv_pair *first = m_rest.load(std::memory_order_acquire);
    while (first &&
           (first == under_way() || !m_rest.compare_exchange_weak(first, under_way(), std::memory_order_acquire))) {
        if (first == under_way()) m_rest.wait(first, std::memory_order_acquire);
        first = m_rest.load(std::memory_order_acquire);
    }
    if (!first) return;
    for (Tq4_list_node *node = first; node->next; node = node->next) // up to the tail sentinel
        EnterNow(static_cast<Tq4_kv_pair *>(node));
    m_rest.store(nullptr, std::memory_order_release);
    m_rest.notify_all();
}
