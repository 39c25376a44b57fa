// queue: a doubly linked list of items, optionally locked, optionally with an event for waiting readers.
//
// Every operation holds the queue's lock, when there is one, from its first look at the links to its last; callbacks
// of each, Range and the sort run under it. A reader that may wait looks first, and waits, once, only when it found
// nothing. After taking an item while more remain it passes the event on, so that two insertions that shared one
// setting of the event still serve two waiting readers. A Set by the caller is never dropped: it lets a reader through.
// Cost: the ends are constant; a position is walked from the nearest of the ends and a remembered position.
#include "base/queue/queue.hpp"

#include <algorithm>

#include "base/queue/sort.hpp"
#include "thread/event.hpp"
#include "thread/lock.hpp"

Tq4_queue_obj::Tq4_queue_obj(const Tq4_queue_CreateParams *given) : base{this, {}, {}} {
    if (!given) return;
    ThreadSafe(given->thread_safe_flag);
    EventSync(given->event_sync_flag);
}

Tq4_queue_obj::~Tq4_queue_obj() {
    while (m_list.m_count) Tq4_queue_item_oitf->Delete(item_of(m_list.first())->handle());
}

void Tq4_queue_obj::ThreadSafe(int on) {
    if (!on)
        base.m_lock.reset();
    else if (!base.m_lock)
        base.m_lock = Tq4_make<Tq4_lock>(Tq4_lock_oitf);
}

void Tq4_queue_obj::EventSync(int on) {
    const Tq4_event_CreateParams automatic{.bManualReset = 0, .bInitialState = 0};
    if (!on)
        base.m_event.reset();
    else if (!base.m_event)
        base.m_event = Tq4_make<Tq4_event>(Tq4_event_oitf, &automatic);
}

unsigned long Tq4_queue_obj::Count() {
    Tq4_guard guard(base.m_lock);
    return m_list.m_count;
}

// All items leave in one step, for a queue of their own. They are destroyed outside of the lock, so that deleters may
// use the queue and the other items.
void Tq4_queue_obj::RemoveAll() {
    Tq4_own<Tq4_queue> leaving; // destroyed after the guard
    Tq4_guard guard(base.m_lock);
    if (base.m_event) (*base.m_event)->Reset(base.m_event.get());
    if (m_list.m_count == 0) return;
    leaving = Tq4_make<Tq4_queue>(Tq4_queue_oitf);
    MoveAll(*Tq4_record<Tq4_queue_obj>(leaving.get()));
}

void Tq4_queue_obj::MoveAll(Tq4_queue_obj &to) {
    for (Tq4_list_node *node = m_list.first(); node != m_list.end(); node = node->next)
        item_of(node)->q_ref.store(&to.base, std::memory_order_relaxed);
    to.m_list.TakeAll(m_list);
}

int Tq4_queue_obj::Wait(unsigned long wait) {
    return base.m_event ? (*base.m_event)->Wait(base.m_event.get(), wait) : 0;
}

// Under the lock, so that the event and m_set_by_caller change together.
void Tq4_queue_obj::Set() {
    if (!base.m_event) return;
    Tq4_guard guard(base.m_lock);
    if (base.m_lock) m_set_by_caller = true;
    (*base.m_event)->Set(base.m_event.get());
}

// Under the queue's lock a look at the event is enough.
[[gnu::noinline]] void Tq4_queue_obj::SetUnlessSet() {
    if (base.m_lock) {
        if (Tq4_event_is_set(base.m_event.get())) return;
        m_set_by_caller = false; // the caller's Set, if any, has let its reader through
    }
    (*base.m_event)->Set(base.m_event.get());
}

// An insertion's event outlives its item when the item was taken without waiting. In an empty queue it tells nothing.
void Tq4_queue_obj::DropStaleEvent() {
    if (base.m_lock && !m_set_by_caller && Tq4_event_is_set(base.m_event.get()))
        (*base.m_event)->Reset(base.m_event.get());
}

// The usual cases, here and in Read, stand apart: a queue without a lock pays only for looking.
void Tq4_queue_obj::Insert(Tq4_queue_item_obj *item, unsigned long index) {
    if (!base.m_lock && !item->queue()) return Place(item, index);
    MoveTo(item, index);
}

// Within the queue a move is one step under the lock.
[[gnu::noinline]] void Tq4_queue_obj::MoveTo(Tq4_queue_item_obj *item, unsigned long index) {
    if (item->queue() && item->queue() != &base) item->Remove();
    Tq4_guard guard(base.m_lock);
    if (item->queue() == &base) Unlink(item);
    Place(item, index);
}

void Tq4_queue_obj::Place(Tq4_queue_item_obj *item, unsigned long index) {
    Link(item, m_list.At(index));
    Announce();
}

template <Tq4_queue_obj::Step step> Tq4_queue_obj::Found Tq4_queue_obj::Read(unsigned long index, unsigned long wait) {
    if (wait && base.m_event) return Await<step>(index, wait);
    return base.m_lock ? ReadUnderLock<step>(index) : (this->*step)(index);
}

template <Tq4_queue_obj::Step step>
[[gnu::noinline]] Tq4_queue_obj::Found Tq4_queue_obj::ReadUnderLock(unsigned long index) {
    Tq4_guard guard(base.m_lock);
    return (this->*step)(index);
}

// The event that lets a reader through is taken from all others: the reader passes it on while there are items. A kill
// between the event and the second look would lose it, so it waits until the reader is done.
template <Tq4_queue_obj::Step step>
[[gnu::noinline]] Tq4_queue_obj::Found Tq4_queue_obj::Await(unsigned long index, unsigned long wait) {
    {
        Tq4_guard guard(base.m_lock);
        if (const Found found = (this->*step)(index); found.item) return found;
        DropStaleEvent();
    }
    const Tq4_cancel_deferred deferred;
    if (Wait(wait) < 1) return {};
    Tq4_guard guard(base.m_lock);
    const Found found = (this->*step)(index);
    if (m_list.m_count) Announce();
    return found;
}

Tq4_queue_obj::Found Tq4_queue_obj::Look(unsigned long index) {
    Tq4_queue_item_obj *item = PeekClamped(index);
    return item ? Found{item->handle(), item->m_obj} : Found{};
}

Tq4_queue_obj::Found Tq4_queue_obj::Take(unsigned long index) {
    Tq4_queue_item_obj *item = PeekClamped(index);
    if (!item) return {};
    Unlink(item);
    if (m_list.m_count) Announce();
    return {item->handle(), item->m_obj};
}

void *Tq4_queue_obj::PeekObj(unsigned long index, unsigned long wait) {
    return Read<&Tq4_queue_obj::Look>(index, wait).payload;
}

Tq4_queue_item Tq4_queue_obj::At(unsigned long index, unsigned long wait) {
    return Read<&Tq4_queue_obj::Look>(index, wait).item;
}

Tq4_queue_item Tq4_queue_obj::RemoveAt(unsigned long index, unsigned long wait) {
    return Read<&Tq4_queue_obj::Take>(index, wait).item;
}

void Tq4_queue_obj::each(Tq4_queue_visitor visitor, void *param) {
    Tq4_guard guard(base.m_lock, Tq4_inside::callbacks);
    Visit(m_list.first(), ~0ul, visitor, param);
}

void Tq4_queue_obj::Range(unsigned long index, int n, Tq4_queue_visitor visitor, void *param) {
    if (n <= 0) return;
    Tq4_guard guard(base.m_lock, Tq4_inside::callbacks);
    Visit(m_list.At(index), static_cast<unsigned long>(n), visitor, param);
}

void Tq4_queue_obj::QSort(Tq4_queue_obj_compare compare, void *param) {
    Tq4_guard guard(base.m_lock, Tq4_inside::callbacks);
    if (m_list.m_count < 2 || !compare) return;
    m_temp = std::make_unique<Tq4_queue_sort_temp>();
    m_temp->Sort(*this, compare, param);
    m_temp.reset();
}

// The visitor may remove the item it is shown.
void Tq4_queue_obj::Visit(Tq4_list_node *from, unsigned long most, Tq4_queue_visitor visitor, void *param) {
    if (!visitor) return;
    for (Tq4_list_node *node = from; node != m_list.end() && most--;) {
        Tq4_list_node *following = node->next;
        if (visitor(item_of(node)->m_obj, param) != 0) return;
        node = following;
    }
}

Tq4_queue_item_obj *Tq4_queue_obj::PeekClamped(unsigned long index) {
    return m_list.m_count ? item_of(index ? m_list.AtClamped(index) : m_list.first()) : nullptr;
}

namespace {

// The inserting operations give back the item also when there is no queue.
Tq4_queue_item InsertAt(Tq4_queue q, Tq4_queue_item item, unsigned long index) {
    if (q && item) Tq4_record<Tq4_queue_obj>(q)->Insert(Tq4_record<Tq4_queue_item_obj>(item), index);
    return item;
}
Tq4_queue_item PutHead(Tq4_queue q, Tq4_queue_item item) { return InsertAt(q, item, 0); }
Tq4_queue_item PutTail(Tq4_queue q, Tq4_queue_item item) { return InsertAt(q, item, ~0ul); }

const int the_module = 0;

} // namespace

extern "C" constinit const void *const Tq4_queue_00 = &the_module;

const Tq4_queue_ Tq4_queue_itf = {
    .ThreadSafe = Tq4_op<&Tq4_queue_obj::ThreadSafe>,
    .EventSync = Tq4_op<&Tq4_queue_obj::EventSync>,
    .QSort = Tq4_op<&Tq4_queue_obj::QSort>,
    .Count = Tq4_op<&Tq4_queue_obj::Count>,
    .RemoveAll = Tq4_op<&Tq4_queue_obj::RemoveAll>,
    .Wait = Tq4_op<&Tq4_queue_obj::Wait>,
    .Set = Tq4_op<&Tq4_queue_obj::Set>,
    .InsertAt = InsertAt,
    .PutHead = PutHead,
    .PutTail = PutTail,
    .PeekObj = Tq4_op<&Tq4_queue_obj::PeekObj>,
    .At = Tq4_op<&Tq4_queue_obj::At>,
    .Head = Tq4_op<&Tq4_queue_obj::Head>,
    .Tail = Tq4_op<&Tq4_queue_obj::Tail>,
    .RemoveAt = Tq4_op<&Tq4_queue_obj::RemoveAt>,
    .RemoveHead = Tq4_op<&Tq4_queue_obj::RemoveHead>,
    .RemoveTail = Tq4_op<&Tq4_queue_obj::RemoveTail>,
    .each = Tq4_op<&Tq4_queue_obj::each>,
    .Range = Tq4_op<&Tq4_queue_obj::Range>,
    .SetOnSwap = Tq4_op<&Tq4_queue_obj::SetOnSwap>,
};
TQ4_MODULE(queue)
