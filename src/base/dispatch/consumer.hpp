// consumer.hpp: the handler's side of a dispatcher, from one stop to the next.
//
// It has one thread at a time, its own or the owner's. Everything here is that thread's alone, except what producers
// tell it. A stop takes the dispatcher's lock, marks the consumer and gives the dispatcher another one. A handler that
// outlasts its stop comes back to a consumer that nobody else uses, and finds the mark.
//
// A message that is being handled lies in a frame, a frame inside another when the handler sends to its own dispatcher.
// Frames are on the heap: what becomes of a message whose handler was killed is decided when its stack is gone.
#pragma once

#include <atomic>
#include <memory>

#include "base/dispatch/message_queue.hpp"
#include "tq4/dispatch.h"

struct Tq4_dispatch_obj;

struct Tq4_dispatch_frame : Tq4_msg_obj {
    Tq4_dispatch_frame *const m_outer;
    std::unique_ptr<Tq4_dispatch_frame> m_inner; // made when first needed, and kept

    explicit Tq4_dispatch_frame(Tq4_dispatch_frame *outer) : Tq4_msg_obj{}, m_outer(outer) {}
};

struct Tq4_dispatch_consumer {
    // What producers tell, and what does not change: a line that is read far more often than written.
    alignas(64) Tq4_alarm m_alarm; // armed when nothing was found, rung with each message; under the dispatcher's lock
    std::atomic<bool> m_stopped{false}; // like the next two changed under that lock
    std::atomic<bool> m_front{false};   // messages wait at the front
    std::atomic<bool> m_grown{false};   // allowance more wait behind the batch than m_behind
    std::atomic<bool> m_entered{false}; // the thread has come to serve
    std::atomic<int> m_users{1};        // the dispatcher, the thread, calls that are under way
    Tq4_msg_handler handler = nullptr;  // like the next set before the first message, and by the handler's thread
    void *handler_obj = nullptr;        // borrowed
    Tq4_dispatch_obj *m_owner;          // borrowed; its users count this one's thread and calls
    Tq4_thread m_thread = nullptr;      // borrowed; null: the owner's, which calls try_once

    // The thread's.
    alignas(64) Tq4_message_batch m_out;
    uint64_t m_behind = 0;                   // the least number that waits behind the batch
    Tq4_dispatch_frame *m_current = nullptr; // the innermost that is being handled
    Tq4_dispatch_frame m_outermost{nullptr};
    unsigned m_stream = 0; // batches in a row that came without a sleep, and began with nobody waiting

    // How many may come before producers tell. So their number need not be looked at for each message.
    static constexpr uint64_t allowance = 512;

    explicit Tq4_dispatch_consumer(Tq4_dispatch_obj *owner) : m_owner(owner) {}
    // Whether a multiple of step may be waiting now; false is certain.
    bool MayWait(uint64_t step) const {
        if (m_grown.load(std::memory_order_relaxed)) return true;
        const uint64_t least = m_behind + m_out.left(), most = least + allowance - 1;
        return most / step != (least ? least - 1 : 0) / step;
    }
    void Use() { m_users.fetch_add(1, std::memory_order_relaxed); }
    void Leave() {
        if (m_users.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
    }

    // In a stream of messages, lets some more gather before they are taken.
    void GatherInStream() const {
        if (m_stream >= 4) Gather();
    }
    static void Gather();
    // The message gets a frame; its fate is from now on the consumer's.
    void Enter(const Tq4_waiting_msg &message);
    // Calls the handler for the message that was entered last, answers and frees the parameters; gives the answer.
    long Handle();
    // After a kill: the messages inside this frame (null: all) are answered with 0, their parameters freed.
    void Abandon(const Tq4_dispatch_frame *outside);
};
