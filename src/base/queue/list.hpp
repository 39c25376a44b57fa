// list.hpp: a doubly linked list between two sentinels, with its count. Nodes lie in their owners; the list frees
// nothing.
#pragma once

#include <cstdint>
#include <utility>

#include "assert.hpp"
#include "base/queue/list_node.hpp"

struct Tq4_list {
    Tq4_list_node m_head; // sentinels
    Tq4_list_node m_tail;
    uint64_t m_count = 0; // linked nodes

    Tq4_list_walker m_walker;

    Tq4_list() { Tq4_list_node_AddNode(&m_head, &m_tail); }
    Tq4_list(const Tq4_list &) = delete;
    Tq4_list &operator=(const Tq4_list &) = delete;

    Tq4_list_node *first() const { return m_head.next; }
    const Tq4_list_node *end() const { return &m_tail; }

    void Link(Tq4_list_node *node, Tq4_list_node *before) {
        TQ4_CHECK(!Tq4_list_node_linked(node));
        Tq4_list_node_AddNode(before->prev, node);
        m_walker.Linked(node);
        ++m_count;
        Check();
    }
    void Append(Tq4_list_node *node) { Link(node, &m_tail); }
    void Unlink(Tq4_list_node *node) {
        TQ4_CHECK(Tq4_list_node_linked(node));
        m_walker.Unlinking(node);
        Tq4_list_node_Remove(node);
        --m_count;
        Check();
    }

    // All nodes of another list come to this one, which is empty.
    void TakeAll(Tq4_list &other) {
        TQ4_CHECK(m_count == 0);
        if (other.m_count == 0) return;
        Tq4_list_node_Splice(&m_head, &other.m_head, &other.m_tail);
        m_count = std::exchange(other.m_count, 0);
        other.m_walker.Forget();
        Check();
        other.Check();
    }

    // The tail sentinel past the end.
    Tq4_list_node *At(uint64_t index) {
        if (index >= m_count) return &m_tail;
        Tq4_list_node *node = m_walker.WalkTo(&m_head, &m_tail, m_count, index);
        Check();
        return node;
    }
    // The last node past the end; null in an empty list.
    Tq4_list_node *AtClamped(uint64_t index) {
        if (m_count == 0) return nullptr;
        return index < m_count ? At(index) : m_tail.prev;
    }

    void Check() const {
        if (Tq4_checks) Tq4_list_check(m_head, m_tail, m_count, m_walker);
    }
};
