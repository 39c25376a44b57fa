// sort.hpp: the queue's in-place sort.
#pragma once

#include <cstddef>
#include <vector>

#include "tq4/queue.h"

struct Tq4_queue_obj;
struct Tq4_queue_item_obj;

// What moves when two items swap: payloads go with their deleters, the items stay where they are.
struct Tq4_queue_payload {
    void *m_obj;
    Tq4_queue_deleter m_del_pf;
};

// The state of a sort. Positions are indexes into m_payloads; ends are included.
struct Tq4_queue_sort_temp {
    // Sorts the queue, whose lock is held, ascending. An inconsistent comparator leaves it as it is.
    void Sort(Tq4_queue_obj &queue, Tq4_queue_obj_compare compare, void *param);

private:
    struct Range {
        std::size_t first, last;
        bool empty_or_single() const { return first >= last; }
    };
    struct Partition;

    void SortRanges();
    bool Split(const Range &range, std::size_t &pivot_place);
    void HeapSort(const Range &range);
    void SiftDown(std::size_t base, std::size_t root, std::size_t count);
    int Compare(std::size_t a, std::size_t b);
    void Swap(std::size_t a, std::size_t b);
    bool Inconsistent(int first_to_last);
    static void PutBack(Tq4_queue_item_obj &item, const Tq4_queue_payload &payload);

    std::vector<Tq4_queue_payload> m_payloads;
    std::vector<Tq4_queue_item_obj *> m_items; // only for on_swap, which finds its payloads in their new places
    Tq4_queue_obj_compare m_sort_compfunc = nullptr;
    void *m_sort_param = nullptr; // borrowed
    Tq4_queue_on_swap m_on_swap = nullptr;
};
