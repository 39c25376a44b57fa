// queue.hpp: the records of a queue and its items.
//
// The queue's lock guards its list; items reach the same lock through q_ref. An item is linked exactly while its q_ref
// is set.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "assert.hpp"
#include "base/queue/list.hpp"
#include "own.hpp"
#include "tq4/event.h"
#include "tq4/lock.h"
#include "tq4/queue.h"

struct Tq4_queue_obj;
struct Tq4_queue_sort_temp;

// The part of a queue that its items point back to.
struct Tq4_queue_ref {
    Tq4_queue_obj *qobj;        // borrowed: the queue that this is part of
    Tq4_own<Tq4_event> m_event; // automatic reset; null when event sync is off
    Tq4_own<Tq4_lock> m_lock;   // null when the queue is not thread-safe
};

struct Tq4_queue_item_obj {
    Tq4_list_node node; // first: a node of a queue is the item that it starts
    // Of the queue the item is linked into, else null; borrowed. Changed under that queue's lock; read without it only
    // to find the lock.
    std::atomic<Tq4_queue_ref *> q_ref = nullptr;
    void *m_obj = nullptr; // payload; owned when there is a deleter
    Tq4_queue_deleter m_del_pf = nullptr;

    ~Tq4_queue_item_obj() {
        if (queue()) Remove();
        if (m_del_pf) m_del_pf(m_obj);
    }
    void Reset();
    void Copy(const Tq4_queue_item_obj *) {} // an item's place and payload are its own
    bool Equal(const Tq4_queue_item_obj &other) const { return this == &other; }

    Tq4_queue_ref *queue() const { return q_ref.load(std::memory_order_relaxed); }
    Tq4_queue_item handle() { return Tq4_handle_of<Tq4_queue_item>(this); }
    Tq4_queue Queue();
    void Remove();
    void ToHead();
    void ToTail();
    void *Attach(void *payload, Tq4_queue_deleter deleter);
    void *GetAttach();
    Tq4_queue_item Next();
    Tq4_queue_item Pre();
};

struct Tq4_queue_obj {
    Tq4_queue_ref base;
    Tq4_list m_list;                             // the items' nodes
    std::unique_ptr<Tq4_queue_sort_temp> m_temp; // while a sort runs, and what one left that was killed
    Tq4_queue_on_swap on_swap = nullptr;

    // Whether a caller's Set may be what set the event, and not an insertion alone. Only kept with a lock.
    bool m_set_by_caller = false;

    explicit Tq4_queue_obj(const Tq4_queue_CreateParams *given);
    ~Tq4_queue_obj();
    void Reset() { RemoveAll(); }
    void Copy(const Tq4_queue_obj *) {} // payloads belong to one queue
    bool Equal(const Tq4_queue_obj &other) const { return this == &other; }

    void ThreadSafe(int on);
    void EventSync(int on);
    void QSort(Tq4_queue_obj_compare compare, void *param);
    unsigned long Count();
    void RemoveAll();
    int Wait(unsigned long wait);
    void Set();
    void Insert(Tq4_queue_item_obj *item, unsigned long index);
    void *PeekObj(unsigned long index, unsigned long wait);
    Tq4_queue_item At(unsigned long index, unsigned long wait);
    Tq4_queue_item Head(unsigned long wait) { return At(0, wait); }
    Tq4_queue_item Tail(unsigned long wait) { return At(~0ul, wait); }
    Tq4_queue_item RemoveAt(unsigned long index, unsigned long wait);
    Tq4_queue_item RemoveHead(unsigned long wait) { return RemoveAt(0, wait); }
    Tq4_queue_item RemoveTail(unsigned long wait) { return RemoveAt(~0ul, wait); }
    void each(Tq4_queue_visitor visitor, void *param);
    void Range(unsigned long index, int n, Tq4_queue_visitor visitor, void *param);
    void SetOnSwap(Tq4_queue_on_swap function) { on_swap = function; }

    // The rest is called under the lock.
    static Tq4_queue_item_obj *item_of(Tq4_list_node *node) { return reinterpret_cast<Tq4_queue_item_obj *>(node); }
    Tq4_queue_item_obj *PeekClamped(unsigned long index); // the last item past the end; null when empty
    void Link(Tq4_queue_item_obj *item, Tq4_list_node *before) {
        TQ4_CHECK(!item->queue());
        m_list.Link(&item->node, before);
        item->q_ref.store(&base, std::memory_order_relaxed);
    }
    [[gnu::always_inline]] void Unlink(Tq4_queue_item_obj *item) { // each removal passes here
        TQ4_CHECK(item->queue() == &base);
        m_list.Unlink(&item->node);
        item->q_ref.store(nullptr, std::memory_order_relaxed);
    }
    void MoveAll(Tq4_queue_obj &to); // an empty one
    void Visit(Tq4_list_node *from, unsigned long most, Tq4_queue_visitor visitor, void *param);
    void Announce() { // there are items
        if (base.m_event) SetUnlessSet();
    }
    void SetUnlessSet();
    void DropStaleEvent();
    void Place(Tq4_queue_item_obj *item, unsigned long index);
    struct Found {
        Tq4_queue_item item; // null for none
        void *payload;
    };
    Found Look(unsigned long index);
    Found Take(unsigned long index);

private:
    void MoveTo(Tq4_queue_item_obj *item, unsigned long index);
    // The readers, of which each is a step: what it does once it has the lock.
    using Step = Found (Tq4_queue_obj::*)(unsigned long index);
    template <Step step> Found Read(unsigned long index, unsigned long wait);
    template <Step step> Found ReadUnderLock(unsigned long index);
    template <Step step> Found Await(unsigned long index, unsigned long wait);
};
