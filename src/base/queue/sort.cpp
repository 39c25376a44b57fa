// sort: a quicksort with the first payload of a range as pivot.
//
// The payloads are lifted out of the items into an array, sorted there and put back, all under the queue's lock. A
// partition counts how far its two cursors moved and keeps the middle of either way. When the split is lopsided, the
// payloads in the middle become the next pivots, so sorted and reversed input is as cheap as random input. Ranges are
// kept on a stack of their own. A range that was split too often for its size goes to a heap sort instead, so n log n
// comparisons bound the whole. That takes an input made for it, or a comparator that lies.
#include "base/queue/sort.hpp"

#include <algorithm>
#include <bit>
#include <utility>

#include "base/queue/queue.hpp"

// Two cursors on their way towards each other through the payloads behind the pivot.
struct Tq4_queue_sort_temp::Partition {
    std::size_t m_sort_left, m_sort_right;
    std::size_t m_sort_leftCount = 0, m_sort_rightCount = 0; // steps taken
    std::size_t m_sort_pAdjustLeft, m_sort_pAdjustRight;     // half-way behind the cursors
    int m_sort_diffFlag = 0;                                 // all comparisons together; 0: everything is equal

    explicit Partition(const Range &range)
        : m_sort_left(range.first + 1), m_sort_right(range.last), m_sort_pAdjustLeft(range.first),
          m_sort_pAdjustRight(range.last) {}

    bool met() const { return m_sort_left == m_sort_right; }
    void StepLeft() {
        ++m_sort_left;
        if (++m_sort_leftCount % 2 == 0) ++m_sort_pAdjustLeft;
    }
    void StepRight() {
        --m_sort_right;
        if (++m_sort_rightCount % 2 == 0) --m_sort_pAdjustRight;
    }
    bool lopsided() const {
        auto [fewer, more] = std::minmax(m_sort_leftCount, m_sort_rightCount);
        return more / (fewer + 1) > 5;
    }
};

void Tq4_queue_sort_temp::Sort(Tq4_queue_obj &queue, Tq4_queue_obj_compare compare, void *param) {
    m_sort_compfunc = compare;
    m_sort_param = param;
    m_on_swap = queue.on_swap;
    m_payloads.reserve(queue.m_list.m_count);
    if (m_on_swap) m_items.reserve(queue.m_list.m_count);
    for (Tq4_list_node *node = queue.m_list.first(); node != queue.m_list.end(); node = node->next) {
        m_payloads.push_back({Tq4_queue_obj::item_of(node)->m_obj, Tq4_queue_obj::item_of(node)->m_del_pf});
        if (m_on_swap) m_items.push_back(Tq4_queue_obj::item_of(node));
    }

    const std::size_t last = m_payloads.size() - 1;
    const int order = Compare(0, last);
    if (last == 1) {
        if (order > 0) Swap(0, 1);
    } else {
        if (Inconsistent(order)) return;
        SortRanges();
    }
    const Tq4_queue_payload *sorted = m_payloads.data();
    for (Tq4_list_node *node = queue.m_list.first(); node != queue.m_list.end(); node = node->next)
        PutBack(*Tq4_queue_obj::item_of(node), *sorted++);
}

void Tq4_queue_sort_temp::PutBack(Tq4_queue_item_obj &item, const Tq4_queue_payload &payload) {
    item.m_obj = payload.m_obj;
    item.m_del_pf = payload.m_del_pf;
}

// A comparator that does not answer the exact opposite for the opposite question cannot sort, deliberately.
bool Tq4_queue_sort_temp::Inconsistent(int first_to_last) {
    if (first_to_last == 0) return false;
    return -static_cast<long>(Compare(m_payloads.size() - 1, 0)) != first_to_last;
}

void Tq4_queue_sort_temp::SortRanges() {
    struct Pending {
        Range range;
        unsigned splits_left;
    };
    std::vector<Pending> pending{
        {{0, m_payloads.size() - 1}, 4u * static_cast<unsigned>(std::bit_width(m_payloads.size()))}};
    while (!pending.empty()) {
        auto [range, splits_left] = pending.back();
        pending.pop_back();
        if (range.empty_or_single()) continue;
        if (splits_left == 0) {
            HeapSort(range);
            continue;
        }
        std::size_t pivot_place;
        if (!Split(range, pivot_place)) continue;
        if (pivot_place < range.last) pending.push_back({{pivot_place + 1, range.last}, splits_left - 1});
        if (pivot_place > range.first) pending.push_back({{range.first, pivot_place - 1}, splits_left - 1});
    }
}

// Partitions a range of two or more. False when every payload equals the pivot and nothing is left to do.
bool Tq4_queue_sort_temp::Split(const Range &range, std::size_t &pivot_place) {
    Partition part(range);
    const auto against_pivot = [&](std::size_t place) {
        int order = Compare(place, range.first);
        part.m_sort_diffFlag |= order;
        return order;
    };
    while (!part.met()) {
        while (!part.met() && against_pivot(part.m_sort_left) <= 0) part.StepLeft();
        while (!part.met() && against_pivot(part.m_sort_right) > 0) part.StepRight();
        if (part.met()) break;
        Swap(part.m_sort_left, part.m_sort_right);
        part.StepLeft();
        if (!part.met()) part.StepRight();
    }
    pivot_place = part.m_sort_right;
    if (against_pivot(pivot_place) > 0) --pivot_place;
    if (part.m_sort_diffFlag == 0) return false;

    Swap(range.first, pivot_place);
    if (!part.lopsided()) return true;
    if (pivot_place != range.first) Swap(range.first, part.m_sort_pAdjustLeft);
    if (pivot_place != range.last) Swap(pivot_place + 1, part.m_sort_pAdjustRight);
    return true;
}

// A heap sort by swaps, which stays inside its range whatever the comparator says.
void Tq4_queue_sort_temp::HeapSort(const Range &range) {
    const std::size_t count = range.last - range.first + 1;
    for (std::size_t root = count / 2; root-- > 0;) SiftDown(range.first, root, count);
    for (std::size_t left = count - 1; left > 0; --left) {
        Swap(range.first, range.first + left);
        SiftDown(range.first, 0, left);
    }
}

void Tq4_queue_sort_temp::SiftDown(std::size_t base, std::size_t root, std::size_t count) {
    for (std::size_t child; (child = 2 * root + 1) < count; root = child) {
        if (child + 1 < count && Compare(base + child, base + child + 1) < 0) ++child;
        if (Compare(base + root, base + child) >= 0) return;
        Swap(base + root, base + child);
    }
}

int Tq4_queue_sort_temp::Compare(std::size_t a, std::size_t b) {
    return m_sort_compfunc(m_payloads[a].m_obj, m_payloads[b].m_obj, m_sort_param);
}

void Tq4_queue_sort_temp::Swap(std::size_t a, std::size_t b) {
    if (a == b) return;
    std::swap(m_payloads[a], m_payloads[b]);
    if (!m_on_swap) return;
    for (std::size_t place : {a, b}) PutBack(*m_items[place], m_payloads[place]);
    m_on_swap(m_payloads[a].m_obj, m_payloads[b].m_obj);
}
