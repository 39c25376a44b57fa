// list_node.hpp: links of a doubly linked list between two sentinels.
//
// The head sentinel's prev and the tail sentinel's next are null; a linked node always has both links set, an unlinked
// one neither.
#pragma once

#include <cstdint>

struct Tq4_list_node {
    Tq4_list_node *next = nullptr;
    Tq4_list_node *prev = nullptr;
};

// A node on the heap, unlinked; and its end, which does not unlink it. Delete ignores null. The library has its nodes
// in their owners: these two, PeekHead and PeekTail are there because the helpers are one set.
Tq4_list_node *Create_Tq4_list_node();
void Delete_Tq4_list_node(Tq4_list_node *node);

inline bool Tq4_list_node_linked(const Tq4_list_node *node) { return node->next && node->prev; }

// Links node after `after`, which is linked or a head sentinel.
inline void Tq4_list_node_AddNode(Tq4_list_node *after, Tq4_list_node *node) {
    node->prev = after;
    node->next = after->next;
    if (after->next) after->next->prev = node;
    after->next = node;
}

// Unlinks a linked node and clears its links; an unlinked one stays as it is.
inline void Tq4_list_node_Remove(Tq4_list_node *node) {
    if (!Tq4_list_node_linked(node)) return;
    node->prev->next = node->next;
    node->next->prev = node->prev;
    *node = {};
}

// Moves all nodes between two sentinels behind `after`, in their order; there is at least one.
inline void Tq4_list_node_Splice(Tq4_list_node *after, Tq4_list_node *head, Tq4_list_node *tail) {
    head->next->prev = after;
    tail->prev->next = after->next;
    after->next->prev = tail->prev;
    after->next = head->next;
    head->next = tail;
    tail->prev = head;
}

// The outermost node reached from any node of the list: the head or tail sentinel.
Tq4_list_node *Tq4_list_node_PeekHead(Tq4_list_node *from);
Tq4_list_node *Tq4_list_node_PeekTail(Tq4_list_node *from);
// The node that many steps on, forward for a direction of +1 and backward for -1; it stops at a sentinel.
Tq4_list_node *Tq4_list_node_PeekAt(Tq4_list_node *from, unsigned long steps, int direction);

// Walks to nodes by index. Each walk begins at the nearest of the ends and a remembered place: the node found last, or
// the neighbour that took its index. So going through a list by index is linear in all, also when each node found is
// removed, or others are linked beside it. A change elsewhere in the middle, whose index is unknown, forgets the place.
struct Tq4_list_walker {
    Tq4_list_node *m_seen = nullptr; // borrowed: the remembered place, null for none
    uint64_t m_seen_index = 0;

    void Forget() { m_seen = nullptr; }
    // After a node was linked, and before one is unlinked.
    void Linked(Tq4_list_node *node) {
        if (m_seen) FollowLinked(node);
    }
    void Unlinking(Tq4_list_node *node) {
        if (m_seen) FollowUnlinking(node);
    }
    // The node at an index below the count, which is that of the nodes between the sentinels.
    Tq4_list_node *WalkTo(Tq4_list_node *head, Tq4_list_node *tail, uint64_t count, uint64_t index);

private:
    void FollowLinked(Tq4_list_node *node);
    void FollowUnlinking(Tq4_list_node *node);
};

// Checks the links and the count of a list between two sentinels, and the place that its walker remembers. Of a long
// list it checks a few dozen nodes from either end. Called where Tq4_checks is set.
void Tq4_list_check(const Tq4_list_node &head, const Tq4_list_node &tail, uint64_t count,
                    const Tq4_list_walker &walker);
