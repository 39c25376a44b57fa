// table_index: entering pairs under their own keys.
#include "base/kv/table_index.hpp"

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

void Tq4_table_index::EnterRest() {
    Tq4_list_node *node = m_rest;
    m_rest = nullptr;
    for (; node->next; node = node->next) EnterNow(static_cast<Tq4_kv_pair *>(node)); // up to the tail sentinel
}
