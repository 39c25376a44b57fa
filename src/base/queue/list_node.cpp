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
