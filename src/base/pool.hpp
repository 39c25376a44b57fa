// pool.hpp: the record of a pool.
//
// A slot is in one of four states:
//
//     unmade    no payload
//     held      a payload, or the mark of one to come, in no list: Create or Reset has it
//     free      a payload in m_resource, l = 0
//     busy      a payload in m_busy, l is the serial number or the l of the caller's id
//
// So the functions that a user gives, Create and Reset, can neither lend nor give back what they are called for.
//
// Slots lie in leaves of 256, and a directory leads to the leaves. A leaf is made when a slot in it is first used, and
// stays; no look-up makes one. Look-ups come at random and mostly miss the caches. So what they read of a slot is
// packed into 12 bytes; what only lending and giving back need stands apart.
#pragma once

#include <cstddef>

#include "assert.hpp"
#include "base/queue/list.hpp"
#include "tq4/pool.h"

struct Tq4_pool_item {
    Tq4_list_node m_q; // first: a node of a list is the item that it starts
    uint32_t slot;
};

struct Tq4_pool_leaf {
    static constexpr unsigned size = 256;
    uint32_t l[size];  // of the id under which the slot is lent; 0 unless busy
    void *m_obj[size]; // payloads, owned
    Tq4_pool_item items[size];
};

// One slot; its leaf is null where none was made.
struct Tq4_pool_slot {
    Tq4_pool_leaf *leaf;
    unsigned at;

    explicit operator bool() const { return leaf != nullptr; }
    Tq4_pool_leaf &there() const {
        TQ4_CHECK(leaf != nullptr);
        return *leaf;
    }
    uint32_t &l() const { return there().l[at]; }
    void *&obj() const { return there().m_obj[at]; }
    Tq4_pool_item &item() const { return there().items[at]; }
    Tq4_list_node *node() const { return &item().m_q; }

    bool made() const { return leaf && obj(); }
    bool busy() const { return l() != 0; }
    bool free() const { return !busy() && Tq4_list_node_linked(node()); }
};

struct Tq4_pool_obj {
    Tq4_pool_CreateParams m_callback; // constant; with defaults
    uint32_t m_mask;                  // constant: all bits of slot numbers
    uint32_t m_mask_radom;            // constant: what they are scrambled with
    Tq4_pool_leaf **m_item_res;       // owned, like the leaves; an entry for each 256 slots
    uint64_t m_res_count = 0;         // no slot below is unmade
    uint32_t m_serial;                // the next lending's; never 0
    Tq4_list m_resource;              // free slots, the next to lend first
    Tq4_list m_busy;                  // busy slots in the order of lending

    static bool Accepts(const Tq4_pool_CreateParams *given) { return given && given->Create; }
    explicit Tq4_pool_obj(const Tq4_pool_CreateParams *given);
    ~Tq4_pool_obj();
    void Reset() { RecycleAll(); }
    void Copy(const Tq4_pool_obj *) {} // payloads belong to one pool
    bool Equal(const Tq4_pool_obj &other) const { return this == &other; }
    const Tq4_pool_CreateParams *Params() const { return &m_callback; }

    void *Alloc(void *param, Tq4_id *id);
    void *AllocAt(unsigned slot, void *param, Tq4_id *id);
    void *AllocBy(void *param, const Tq4_id *id);
    void *Peek(const Tq4_id *id) const {
        const Tq4_pool_slot slot = Find(id);
        return slot ? slot.obj() : nullptr;
    }
    void *PeekAt(unsigned number) const {
        const Tq4_pool_slot slot = At(number);
        return slot && slot.busy() ? slot.obj() : nullptr;
    }
    unsigned ToIndex(const Tq4_id *id) const { return id ? Unscramble(id->h) : 0; }
    unsigned long Counts() const { return m_busy.m_count; }
    int Recycle(const Tq4_id *id);
    void RecycleAll();
    void each(Tq4_pool_visitor visitor, void *param) const;

private:
    unsigned Unscramble(uint32_t h) const { return (h ^ m_mask_radom) & m_mask; }
    uint32_t Scramble(unsigned slot) const { return (slot ^ m_mask_radom) & m_mask; }
    static unsigned number_of(const Tq4_list_node *node) { return reinterpret_cast<const Tq4_pool_item *>(node)->slot; }

    Tq4_pool_slot At(unsigned number) const {
        constexpr unsigned size = Tq4_pool_leaf::size;
        return {number < m_callback.max_res ? m_item_res[number / size] : nullptr, number % size};
    }
    // What is busy under the id.
    Tq4_pool_slot Find(const Tq4_id *id) const {
        if (!id || id->l == 0) return {};
        const Tq4_pool_slot slot = At(Unscramble(id->h));
        return slot && slot.l() == id->l ? slot : Tq4_pool_slot{};
    }
    std::size_t Leaves() const { return (m_callback.max_res + Tq4_pool_leaf::size - 1) / Tq4_pool_leaf::size; }
    Tq4_pool_slot Claim(unsigned number, void *param);
    Tq4_pool_slot Make(unsigned number, void *param);
    Tq4_pool_slot Room(unsigned number);
    unsigned NextUnmade();
    void *Lend(Tq4_pool_slot slot, Tq4_id id, Tq4_id *out);
    Tq4_id FreshId(Tq4_pool_slot slot) const { return {Scramble(slot.item().slot), m_serial}; }
    void GiveBack(Tq4_pool_slot slot);
    void Destroy(Tq4_pool_slot slot);
    void Check(Tq4_pool_slot touched) const;
};
