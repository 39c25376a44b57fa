// chain_groups.hpp: for look-ups that several entries of a chain can match, the newest one of them.
//
// Entries of one bucket that some kind of look-up takes for the same are a group, a list with the newest first; an
// index leads to the first of each. A Relation says who is in one group: hash(entry), keyed, and same(entry, entry).
// Few maps are ever asked so. The groups are made by the first look-up that needs them, in one walk along all chains,
// follow every change from then on, and go with the index of the chains. Every operation on them has a constant cost.
#pragma once

#include <atomic>

#include "base/key/chains.hpp"

template <class Entry, class Relation> class Tq4_chain_groups {
    struct Node {
        Node *older, *newer; // of the same group
        Entry *entry;        // borrowed
        uint32_t group_hash, entry_hash;
    };
    Tq4_hash_index<Node, &Node::group_hash> m_newest; // of each group
    Tq4_hash_index<Node, &Node::entry_hash> m_nodes;  // owned: all

    static uint32_t hash_of(const Entry *entry) {
        return Tq4_index_hash(Tq4_keyed_number(0, reinterpret_cast<uint64_t>(entry)));
    }
    Node *node_of(const Entry *entry) const {
        return m_nodes.Find(hash_of(entry), [entry](const Node &node) { return node.entry == entry; });
    }

public:
    explicit Tq4_chain_groups(const Tq4_chains<Entry> &chains) {
        m_newest.Begin();
        m_nodes.Begin();
        chains.EachOldestFirst([this](Entry &entry) { Add(&entry); });
    }
    ~Tq4_chain_groups() {
        m_nodes.Each([](Node *node) { delete node; });
    }

    // The newest entry of the group of that hash that matches.
    template <class Match> Entry *Find(uint64_t hash, Match match) const {
        const Node *found = m_newest.Find(Tq4_index_hash(hash), [&](const Node &node) { return match(*node.entry); });
        return found ? found->entry : nullptr;
    }
    void Add(Entry *entry) {
        if (!entry->findable()) return;
        const uint32_t hash = Tq4_index_hash(Relation::hash(*entry));
        Node *older = m_newest.Find(hash, [=](const Node &node) { return Relation::same(*node.entry, *entry); });
        auto *node = new Node{older, nullptr, entry, hash, hash_of(entry)};
        if (older) {
            older->newer = node;
            m_newest.Replace(older, node);
        } else {
            m_newest.Add(node);
        }
        m_nodes.Add(node);
    }
    void Remove(const Entry *entry) {
        if (!entry->findable()) return;
        Node *node = node_of(entry);
        m_nodes.Remove(node);
        if (node->older) node->older->newer = node->newer;
        if (node->newer)
            node->newer->older = node->older;
        else if (node->older)
            m_newest.Replace(node, node->older);
        else
            m_newest.Remove(node);
        delete node;
    }
    // The new entry takes the place of the old one, whose hash it has.
    void Replace(const Entry *old, Entry *fresh) {
        Node *node = node_of(old);
        m_nodes.Remove(node);
        node->entry = fresh;
        node->entry_hash = hash_of(fresh);
        m_nodes.Add(node);
    }
};

// The groups of one map, once somebody needed them. Look-ups may come from several threads: each that finds none makes
// its own, and the first one's stay.
template <class Entry, class Relation> class Tq4_groups_on_demand {
    using Groups = Tq4_chain_groups<Entry, Relation>;
    mutable std::atomic<Groups *> m_made = nullptr; // owned

    Groups *made() const { return m_made.load(std::memory_order_relaxed); }

public:
    Tq4_groups_on_demand() = default;
    ~Tq4_groups_on_demand() { Drop(); }
    Tq4_groups_on_demand(const Tq4_groups_on_demand &) = delete;
    Tq4_groups_on_demand &operator=(const Tq4_groups_on_demand &) = delete;

    const Groups &Of(const Tq4_chains<Entry> &chains) const {
        if (const Groups *known = m_made.load(std::memory_order_acquire)) return *known;
        auto *fresh = new Groups(chains);
        Groups *first = nullptr;
        if (m_made.compare_exchange_strong(first, fresh, std::memory_order_acq_rel)) return *fresh;
        delete fresh;
        return *first;
    }
    // What happened to the chains, after it did.
    void Added(Entry *entry) {
        if (Groups *groups = made()) groups->Add(entry);
    }
    void Unlinked(const Entry *entry, const Tq4_chains<Entry> &chains) {
        if (Groups *groups = made()) chains.indexed() ? groups->Remove(entry) : Drop();
    }
    void Replaced(const Entry *old, Entry *fresh) {
        if (Groups *groups = made()) groups->Replace(old, fresh);
    }
    // The caller has the map alone, so this is no exchange: every small table would pay for two.
    void Drop() {
        if (Groups *groups = made()) {
            m_made.store(nullptr, std::memory_order_relaxed);
            delete groups;
        }
    }
};
