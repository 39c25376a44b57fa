// queue_item: a place in a queue and the payload that stands in it.
//
// An item reaches its queue's lock through q_ref. Whoever moves an item between queues serialises that itself; within
// one queue, items and queue operations may be used from any thread when the queue is thread-safe.
#include <utility>

#include "base/queue/queue.hpp"
#include "thread/lock.hpp"

namespace {

// Under the lock of the item's queue, when it has one, runs change(queue); does nothing for an unlinked item.
template <class Change> auto in_queue(Tq4_queue_item_obj *item, Change change) {
    using Result = decltype(change(*item->queue()->qobj));
    Tq4_queue_ref *ref = item->queue();
    if (!ref) return Result();
    Tq4_guard guard(ref->m_lock);
    if (item->queue() != ref) return Result(); // left the queue while we waited for the lock
    return change(*ref->qobj);
}

// The queue's lock guards the payload too: the sort moves payloads between items.
template <class Use> auto with_payload(const Tq4_queue_item_obj *item, Use use) {
    const Tq4_queue_ref *ref = item->queue();
    if (!ref) return use();
    Tq4_guard guard(ref->m_lock);
    return use();
}

} // namespace

// Unlinked, and without a payload; a payload with a deleter is destroyed outside the lock.
void Tq4_queue_item_obj::Reset() {
    if (queue()) Remove();
    void *payload = std::exchange(m_obj, nullptr);
    if (Tq4_queue_deleter deleter = std::exchange(m_del_pf, nullptr)) deleter(payload);
}

Tq4_queue Tq4_queue_item_obj::Queue() {
    return in_queue(this, [](Tq4_queue_obj &queue) { return Tq4_handle_of<Tq4_queue>(&queue); });
}

void Tq4_queue_item_obj::Remove() {
    in_queue(this, [this](Tq4_queue_obj &queue) { queue.Unlink(this); });
}

void Tq4_queue_item_obj::ToHead() {
    in_queue(this, [this](Tq4_queue_obj &queue) {
        queue.Unlink(this);
        queue.Link(this, queue.m_list.first());
    });
}

void Tq4_queue_item_obj::ToTail() {
    in_queue(this, [this](Tq4_queue_obj &queue) {
        queue.Unlink(this);
        queue.Link(this, &queue.m_list.m_tail);
    });
}

void *Tq4_queue_item_obj::Attach(void *payload, Tq4_queue_deleter deleter) {
    return with_payload(this, [=, this] {
        m_del_pf = deleter;
        return std::exchange(m_obj, payload);
    });
}

void *Tq4_queue_item_obj::GetAttach() {
    return with_payload(this, [this] { return m_obj; });
}

Tq4_queue_item Tq4_queue_item_obj::Next() {
    return in_queue(this, [this](Tq4_queue_obj &queue) -> Tq4_queue_item {
        return node.next == queue.m_list.end() ? nullptr : Tq4_queue_obj::item_of(node.next)->handle();
    });
}

Tq4_queue_item Tq4_queue_item_obj::Pre() {
    return in_queue(this, [this](Tq4_queue_obj &queue) -> Tq4_queue_item {
        return node.prev == &queue.m_list.m_head ? nullptr : Tq4_queue_obj::item_of(node.prev)->handle();
    });
}

namespace {

enum class Side { before, after };

// Moves other next to i, without signalling; next to itself or to an unlinked item it stays where it is.
template <Side side> Tq4_queue_item AddNextTo(Tq4_queue_item i, Tq4_queue_item other) {
    if (!i || !other || i == other) return other;
    auto *place = Tq4_record<Tq4_queue_item_obj>(i);
    auto *moved = Tq4_record<Tq4_queue_item_obj>(other);
    if (!place->queue()) return other;
    if (moved->queue() && moved->queue() != place->queue()) moved->Remove();
    in_queue(place, [&](Tq4_queue_obj &queue) {
        if (moved->queue() == &queue.base) queue.Unlink(moved);
        queue.Link(moved, side == Side::before ? &place->node : place->node.next);
    });
    return other;
}

} // namespace

const Tq4_queue_item_ Tq4_queue_item_itf = {
    .Queue = Tq4_op<&Tq4_queue_item_obj::Queue>,
    .Remove = Tq4_op<&Tq4_queue_item_obj::Remove>,
    .ToHead = Tq4_op<&Tq4_queue_item_obj::ToHead>,
    .ToTail = Tq4_op<&Tq4_queue_item_obj::ToTail>,
    .Attach = Tq4_op<&Tq4_queue_item_obj::Attach>,
    .GetAttach = Tq4_op<&Tq4_queue_item_obj::GetAttach>,
    .Next = Tq4_op<&Tq4_queue_item_obj::Next>,
    .Pre = Tq4_op<&Tq4_queue_item_obj::Pre>,
    .AddBefore = AddNextTo<Side::before>,
    .AddAfter = AddNextTo<Side::after>,
};
TQ4_MODULE(queue_item)
