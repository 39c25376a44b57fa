// pair.hpp: one entry of a value table.
//
// It is in two parts (entry_room.hpp): a cache line with all that a look-up by key and a walk along the list read, and
// its place in the index and its value behind. The objects that handles of key and value lead to are made when somebody
// first asks for a handle; entries that are only decoded, looked into by key and encoded have none. Where a host makes
// keys or values, the entry has handles of the host's from the start.
//
// The index reads the entry's own key as long as that is what was registered; before the key changes through its
// handle, the index gets a copy of its own.
#pragma once

#include <atomic>
#include <memory>

#include "base/key/chains.hpp"
#include "base/key/entry_room.hpp"
#include "base/key/key.hpp"
#include "base/kv/value.hpp"
#include "base/queue/list_node.hpp"
#include "nested.hpp"

// What an entry has once somebody knows it by handles.
struct Tq4_kv_handles {
    Tq4_lent_object key, value;
    std::unique_ptr<Tq4_key_obj> registered_key; // when the key is no longer what was registered
};

struct Tq4_kv_pair_key {
    Tq4_key_obj m_key; // nothing where the host makes keys
    // Owned. Its lowest bits are the flags below; its highest, the cache lines between the two parts. Flags are changed
    // by a caller that has the table alone. Any reader makes handles, and the first one's stay.
    std::atomic<uintptr_t> m_handles = 0;
};

class Tq4_kv_pair : private Tq4_kv_pair_key, public Tq4_list_node {
    struct Rest : Tq4_chained<Tq4_kv_pair> {
        Tq4_value_obj value; // nothing where the host makes values, but for m_lines_between
    };
    static constexpr unsigned address_bits = 48;

    enum Flag : uintptr_t {
        key_is_hosts = 1,
        value_is_hosts = 2,
        index_ignores_case = 4,
        is_registered = 8,
        all_flags = 15
    };
    uintptr_t flags() const { return m_handles.load(std::memory_order_relaxed); }
    bool has(Flag flag) const { return (flags() & flag) != 0; }
    void Mark(uintptr_t set) { m_handles.store(flags() | set, std::memory_order_relaxed); }
    void Unmark(uintptr_t cleared) { m_handles.store(flags() & ~cleared, std::memory_order_relaxed); }
    static Tq4_kv_handles *handles_in(uintptr_t word) {
        constexpr uintptr_t address = (uintptr_t{1} << address_bits) - 1 - all_flags;
        return reinterpret_cast<Tq4_kv_handles *>(word & address);
    }
    // How many lines more than one the second part lies behind the first. Mostly none, and then both are read at once:
    // the processor foresees the branches on it.
    uintptr_t lines_between() const { return flags() >> address_bits; }
    Rest &RestBehind(uintptr_t lines) const {
        auto *line = const_cast<std::byte *>(reinterpret_cast<const std::byte *>(this));
        return *reinterpret_cast<Rest *>(line + (lines + 1) * Tq4_entry_place::line);
    }
    Rest &rest() const {
        const uintptr_t between = lines_between();
        if (between == 0) [[likely]]
            return RestBehind(0);
        return RestBehind(between);
    }
    Tq4_value_obj &ValueElsewhere() const;
    Tq4_kv_handles *handles() const { return handles_in(m_handles.load(std::memory_order_acquire)); }

public:
    using Room = Tq4_entry_room<sizeof(Rest)>;

    explicit Tq4_kv_pair(Tq4_entry_place place);
    ~Tq4_kv_pair() {
        if (handles() || Tq4_hooked_deletes()) EndHandles();
        rest().~Rest();
    }
    Tq4_entry_place place() const {
        return {const_cast<Tq4_kv_pair *>(this), static_cast<uint32_t>((lines_between() + 1) * Tq4_entry_place::line)};
    }
    const Tq4_chained<Tq4_kv_pair> &chained() const { return rest(); }
    Tq4_chained<Tq4_kv_pair> &chained() { return rest(); }
    static Tq4_kv_pair *of(Tq4_chained<Tq4_kv_pair> *chained) {
        auto *rest = static_cast<Rest *>(chained);
        auto *line = reinterpret_cast<std::byte *>(rest) - (rest->value.m_lines_between + 1) * Tq4_entry_place::line;
        return reinterpret_cast<Tq4_kv_pair *>(line);
    }
    uint32_t &index_hash() { return rest().m_full; }
    static constexpr bool findable() { return true; }

    Tq4_key_obj &key() const {
        return has(key_is_hosts) ? handles()->key.hosts_record<Tq4_key_obj>() : const_cast<Tq4_key_obj &>(m_key);
    }
    Tq4_value_obj &value() const {
        constexpr uintptr_t elsewhere = ~uintptr_t{0} << address_bits | value_is_hosts;
        if ((flags() & elsewhere) == 0) [[likely]]
            return RestBehind(0).value;
        return ValueElsewhere();
    }
    Tq4_key key_handle();
    Tq4_value value_handle();
    // The only one that readers make, side by side.
    Tq4_value shared_value_handle() {
        Tq4_kv_handles *made = handles();
        return made && !has(value_is_hosts) ? static_cast<Tq4_value>(made->value.own_handle())
                                            : MakeSharedValueHandle();
    }

    // What the index keeps with the entry: the key that it was registered under and the index's case flag then.
    const Tq4_key_obj &index_key() const {
        if (m_key.m_indexed) return m_key; // without a look at the handles' memory
        const Tq4_kv_handles *known = handles();
        return known && known->registered_key ? *known->registered_key : key();
    }
    int index_case() const { return has(index_ignores_case); }
    uint64_t full_hash() const { return index_key().FullHash(index_case()); }
    bool registered() const { return has(is_registered); }
    void MarkRegistered(int index_case) {
        Mark(index_case ? is_registered | index_ignores_case : is_registered);
        if (has(key_is_hosts))
            KeepRegisteredKey(key());
        else
            m_key.m_indexed = true;
    }
    void MarkRegisteredLike(const Tq4_kv_pair &older);
    void MarkUnregistered();

private:
    friend void Tq4_key_leaves_index(Tq4_key_obj &key);
    Tq4_kv_handles *NewHandles();
    Tq4_kv_handles &MakeHandles();
    Tq4_kv_handles &MakeSharedHandles();
    Tq4_value MakeSharedValueHandle();
    void MakeByHost();
    void KeepRegisteredKey(const Tq4_key_obj &registered);
    void EndHandles();
    // The delete hook is the host's, and is shown every key and value.
    static bool Tq4_hooked_deletes() { return Tq4_cxx_support->delete_obj != Tq4_cxx_defaults.delete_obj; }
};
static_assert(Tq4_kv_pair::Room::most <= UINT16_MAX, "the distance of an entry's parts is kept in 16 bits");
static_assert(sizeof(Tq4_kv_pair) == Tq4_entry_place::line && Tq4_kv_pair::Room::size == 2 * Tq4_entry_place::line);

inline Tq4_kv_pair::Tq4_kv_pair(Tq4_entry_place place) {
    Rest *rest = new (static_cast<std::byte *>(place.entry) + place.rest) Rest;
    if (place.rest != Tq4_entry_place::line) [[unlikely]] {
        const uintptr_t between = place.rest / Tq4_entry_place::line - 1;
        Mark(between << address_bits);
        rest->value.m_lines_between = static_cast<uint16_t>(between);
    }
    if (Tq4_cxx_support->new_key != Tq4_cxx_defaults.new_key ||
        Tq4_cxx_support->new_value != Tq4_cxx_defaults.new_value)
        MakeByHost();
}

// An entry in room for one, with an empty key and an empty value; and its end, which leaves the room. Neither touches
// list or index.
inline Tq4_kv_pair *Create_Tq4_kv_pair(Tq4_entry_place place) { return new (place.entry) Tq4_kv_pair(place); }
inline Tq4_entry_place Delete_Tq4_kv_pair(Tq4_kv_pair *pair) {
    const Tq4_entry_place place = pair->place();
    pair->~Tq4_kv_pair();
    return place;
}
// Empties key and value. Nothing in the library empties an entry that stays: the function completes the set.
void Reset_Tq4_kv_pair(Tq4_kv_pair *pair);
// Deep copies of key and value, in a new entry or in an existing one. Neither is indexed by it.
Tq4_kv_pair *Dup_Tq4_kv_pair(Tq4_entry_place place, const Tq4_kv_pair *pair);
void Tq4_kv_pair_Clone(Tq4_kv_pair *destination, const Tq4_kv_pair *source);
