// kv_pair: one entry of a value table, what its handles lead to, and what the index keeps with it.
#include "base/kv/pair.hpp"

static_assert(alignof(std::max_align_t) > 15, "four flags lie in the lowest bits of a pointer to memory");

void Reset_Tq4_kv_pair(Tq4_kv_pair *pair) {
    if (!pair) return;
    pair->key().Reset();
    pair->value().Reset();
}

Tq4_kv_pair *Dup_Tq4_kv_pair(Tq4_entry_place place, const Tq4_kv_pair *pair) {
    if (!pair) return nullptr;
    Tq4_kv_pair *copy = Create_Tq4_kv_pair(place);
    Tq4_kv_pair_Clone(copy, pair);
    return copy;
}

void Tq4_kv_pair_Clone(Tq4_kv_pair *destination, const Tq4_kv_pair *source) {
    if (!destination || !source) return;
    destination->key().Copy(&source->key());
    destination->value().Copy(&source->value());
}

Tq4_value_obj &Tq4_kv_pair::ValueElsewhere() const {
    return has(value_is_hosts) ? handles()->value.hosts_record<Tq4_value_obj>() : rest().value;
}

// ---- handles

Tq4_kv_handles *Tq4_kv_pair::NewHandles() {
    auto *made = new (Tq4_object_memory(sizeof(Tq4_kv_handles))) Tq4_kv_handles;
    made->key.Lend(&Tq4_key_obj_itf, &Tq4_key_itf, &m_key);
    made->value.Lend(&Tq4_value_obj_itf, &Tq4_value_itf, &rest().value);
    return made;
}

// By whoever has the table alone: without the price of an exchange.
Tq4_kv_handles &Tq4_kv_pair::MakeHandles() {
    if (Tq4_kv_handles *made = handles()) return *made;
    Tq4_kv_handles *made = NewHandles();
    Mark(reinterpret_cast<uintptr_t>(made));
    return *made;
}

Tq4_kv_handles &Tq4_kv_pair::MakeSharedHandles() {
    if (Tq4_kv_handles *made = handles()) return *made;
    Tq4_kv_handles *made = NewHandles();
    uintptr_t word = flags();
    while (!handles_in(word))
        if (m_handles.compare_exchange_weak(word, word | reinterpret_cast<uintptr_t>(made), std::memory_order_acq_rel))
            return *made;
    Tq4_object_memory_free(made, sizeof *made); // another reader was first
    return *handles();
}

void Tq4_kv_pair::MakeByHost() {
    Tq4_kv_handles &made = MakeHandles();
    if (Tq4_cxx_support->new_key != Tq4_cxx_defaults.new_key) {
        made.key.TakeHosts(Tq4_cxx_support->new_key());
        Mark(key_is_hosts);
        key().Reset(); // decoding fills it without a look at what it holds
    }
    if (Tq4_cxx_support->new_value != Tq4_cxx_defaults.new_value) {
        made.value.TakeHosts(Tq4_cxx_support->new_value());
        Mark(value_is_hosts);
        value().Reset();
    }
}

Tq4_key Tq4_kv_pair::key_handle() { return static_cast<Tq4_key>(MakeHandles().key.handle()); }
Tq4_value Tq4_kv_pair::value_handle() { return static_cast<Tq4_value>(MakeHandles().value.handle()); }
Tq4_value Tq4_kv_pair::MakeSharedValueHandle() { return static_cast<Tq4_value>(MakeSharedHandles().value.handle()); }

void Tq4_kv_pair::EndHandles() {
    Tq4_kv_handles &known = MakeHandles();
    m_key.m_indexed = false;
    known.key.End();
    known.value.End();
    known.~Tq4_kv_handles();
    Tq4_object_memory_free(&known, sizeof known);
}

// ---- what the index keeps

namespace {

std::unique_ptr<Tq4_key_obj> copy_of(const Tq4_key_obj &key) {
    auto copy = std::make_unique<Tq4_key_obj>();
    copy->Copy(&key);
    return copy;
}

} // namespace

// Where the index does not read the key itself: a key of the host's cannot be watched for changes.
void Tq4_kv_pair::KeepRegisteredKey(const Tq4_key_obj &registered) {
    m_key.m_indexed = false;
    MakeHandles().registered_key = copy_of(registered);
}

// In the place of an older entry, whose key may have been written in other letters.
void Tq4_kv_pair::MarkRegisteredLike(const Tq4_kv_pair &older) {
    MarkRegistered(older.index_case());
    if (!Tq4_key_obj::same_text(older.index_key().text(), key().text(), false)) KeepRegisteredKey(older.index_key());
}

void Tq4_kv_pair::MarkUnregistered() {
    m_key.m_indexed = false;
    Unmark(is_registered | index_ignores_case);
    if (Tq4_kv_handles *known = handles()) known->registered_key.reset();
}

void Tq4_key_leaves_index(Tq4_key_obj &key) {
    auto *pair = static_cast<Tq4_kv_pair *>(reinterpret_cast<Tq4_kv_pair_key *>(&key));
    pair->KeepRegisteredKey(key);
}
