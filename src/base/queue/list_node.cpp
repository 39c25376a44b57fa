// list_node: making, walking and checking.
#include "base/queue/list_node.hpp"

#include "assert.hpp"

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

namespace {

bool first(const Tq4_list_node *node) { return !node->prev->prev; }
bool last(const Tq4_list_node *node) { return !node->next->next; }

} // namespace

void Tq4_list_walker::FollowLinked(Tq4_list_node *node) {
    if (node->next == m_seen)
        m_seen = node;
    else if (first(node))
        ++m_seen_index;
    else if (node->prev != m_seen && !last(node))
        Forget();
}

void Tq4_list_walker::FollowUnlinking(Tq4_list_node *node) {
    if (node != m_seen) {
        if (first(node) || node->next == m_seen)
            --m_seen_index;
        else if (node->prev != m_seen && !last(node))
            Forget();
    } else if (!last(node)) {
        m_seen = node->next;
    } else {
        m_seen = first(node) ? nullptr : node->prev;
        --m_seen_index; // of no meaning where there is no place
    }
}

namespace {

constexpr uint64_t checked_from_each_end = 64; // a check after each operation must not make it linear

// Walks from one sentinel towards the other; link leads on, back leads to where we came from.
template <Tq4_list_node *Tq4_list_node::*link, Tq4_list_node *Tq4_list_node::*back>
void check_links(const Tq4_list_node &from, const Tq4_list_node &to, uint64_t count) {
    TQ4_CHECK(!(from.*back));
    const Tq4_list_node *node = &from;
    for (uint64_t seen = 0; seen <= count && seen < checked_from_each_end; ++seen) {
        const Tq4_list_node *following = node->*link;
        TQ4_CHECK(following && following->*back == node);
        TQ4_CHECK((following == &to) == (seen == count));
        node = following;
    }
}

// That a sentinel lies that many links away from a node.
template <Tq4_list_node *Tq4_list_node::*link>
void check_place(const Tq4_list_node *node, uint64_t steps, const Tq4_list_node &sentinel) {
    if (steps > checked_from_each_end) return;
    for (; steps; --steps) node = node->*link;
    TQ4_CHECK(node == &sentinel);
}

} // namespace

void Tq4_list_check(const Tq4_list_node &head, const Tq4_list_node &tail, uint64_t count,
                    const Tq4_list_walker &walker) {
    check_links<&Tq4_list_node::next, &Tq4_list_node::prev>(head, tail, count);
    check_links<&Tq4_list_node::prev, &Tq4_list_node::next>(tail, head, count);
    if (!walker.m_seen) return;
    TQ4_CHECK(walker.m_seen_index < count);
    check_place<&Tq4_list_node::prev>(walker.m_seen, walker.m_seen_index + 1, head);
    check_place<&Tq4_list_node::next>(walker.m_seen, count - walker.m_seen_index, tail);
}
