// list_node: making and walking.
#include "base/queue/list_node.hpp"

Tq4_list_node *Create_Tq4_list_node() { return new Tq4_list_node; }
void Delete_Tq4_list_node(Tq4_list_node *node) { delete node; }

Tq4_list_node *Tq4_list_node_PeekHead(Tq4_list_node *from) { return Tq4_list_node_PeekAt(from, ~0ul, -1); }
Tq4_list_node *Tq4_list_node_PeekTail(Tq4_list_node *from) { return Tq4_list_node_PeekAt(from, ~0ul, +1); }

Tq4_list_node *Tq4_list_node_PeekAt(Tq4_list_node *from, unsigned long steps, int direction) {
    for (; steps; --steps) {
        Tq4_list_node *beyond = direction > 0 ? from->next : from->prev;
        if (!beyond) break;
        from = beyond;
    }
    return from;
}

Tq4_list_node *Tq4_list_walker::WalkTo(Tq4_list_node *head, Tq4_list_node *tail, uint64_t count, uint64_t index) {
    const auto distance = [](uint64_t a, uint64_t b) { return a < b ? b - a : a - b; };
    Tq4_list_node *from = head;
    uint64_t steps = index + 1;
    int direction = +1;
    if (index > count / 2) {
        from = tail;
        steps = count - index;
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
