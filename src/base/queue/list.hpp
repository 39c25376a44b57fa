// list.hpp: a doubly linked list between two sentinels, with its count and the position looked up last.
//
// A position is walked to from the nearest of the ends and the position looked up last, so that walking by index is
// linear in all. Nodes lie in their owners; the list frees nothing.
#pragma once

#include <cstdint>
#include <utility>

#include "base/queue/list_node.hpp"

struct Tq4_list {
    Tq4_list_node m_head; // sentinels
    Tq4_list_node m_tail;
    uint64_t m_count = 0; // linked nodes

    // Null after any change of links but one at the tail.
    Tq4_list_node *m_seen = nullptr;
    uint64_t m_seen_index = 0;

    Tq4_list() { Tq4_list_node_AddNode(&m_head, &m_tail); }
    Tq4_list(const Tq4_list &) = delete;
    Tq4_list &operator=(const Tq4_list &) = delete;

    Tq4_list_node *first() const { return m_head.next; }
    const Tq4_list_node *end() const { return &m_tail; }

    void Link(Tq4_list_node *node, Tq4_list_node *before) {
        if (before != &m_tail) m_seen = nullptr;
        Tq4_list_node_AddNode(before->prev, node);
        ++m_count;
    }
    void Append(Tq4_list_node *node) { Link(node, &m_tail); }
    void Unlink(Tq4_list_node *node) {
        m_seen = nullptr;
        Tq4_list_node_Remove(node);
        --m_count;
    }

    // All nodes of another list come to this one, which is empty.
    void TakeAll(Tq4_list &other) {
        if (other.m_count == 0) return;
        m_head.next = other.m_head.next;
        m_tail.prev = other.m_tail.prev;
        m_head.next->prev = &m_head;
        m_tail.prev->next = &m_tail;
        m_count = std::exchange(other.m_count, 0);
        other.m_head.next = &other.m_tail;
        other.m_tail.prev = &other.m_head;
        other.m_seen = nullptr;
    }

    // The tail sentinel past the end.
    Tq4_list_node *At(uint64_t index) {
        if (index >= m_count) return &m_tail;
        const auto distance = [](uint64_t a, uint64_t b) { return a < b ? b - a : a - b; };
        Tq4_list_node *from = &m_head;
        uint64_t steps = index + 1;
        int direction = +1;
        if (index > m_count / 2) {
            from = &m_tail;
            steps = m_count - index;
            direction = -1;
        }
        if (m_seen && distance(m_seen_index, index) < steps) {
            from = m_seen;
            steps = distance(m_seen_index, index);
            direction = m_seen_index < index ? +1 : -1;
        }
        m_seen = Tq4_list_node_PeekAt(from, steps, direction);
        m_seen_index = index;
        return m_seen;
    }
    // The last node past the end; null in an empty list.
    Tq4_list_node *AtClamped(uint64_t index) {
        if (m_count == 0) return nullptr;
        return index < m_count ? At(index) : m_tail.prev;
    }
};
