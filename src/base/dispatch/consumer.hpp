// consumer.hpp: the handler's side of a dispatcher, from one stop to the next.
//
// It has one thread at a time, its own or the owner's, and everything here but what producers tell it is that thread's
// alone. A stop takes the dispatcher's lock, marks the consumer and gives the dispatcher another one; so a handler that
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

// A message at its handler. The handler's pointer to the message is one to the frame.
struct Tq4_dispatch_frame : Tq4_msg_obj {
    bool m_answered;
    long m_ret; // the answer
    Tq4_dispatch_frame *const m_outer;
    std::unique_ptr<Tq4_dispatch_frame> m_inner; // made when first needed, and kept

    explicit Tq4_dispatch_frame(Tq4_dispatch_frame *outer) : m_outer(outer) {}
    // The first answer counts.
    void Answer(long value);
};

struct Tq4_dispatch_consumer {
    // What producers tell; changed under the dispatcher's lock, in a line that is read far more often.
    alignas(64) Tq4_alarm m_alarm; // armed when nothing was found, rung with each message
    std::atomic<bool> m_stopped{false};
    std::atomic<bool> m_front{false};   // messages wait at the front
    std::atomic<bool> m_crowded{false}; // so many wait that their number is of interest
    std::atomic<int> m_users{1};        // the dispatcher, the thread, calls that are under way

    // The thread's.
    alignas(64) Tq4_message_batch m_out;
    Tq4_dispatch_frame *m_current = nullptr; // the innermost that is being handled
    Tq4_dispatch_frame m_outermost{nullptr};
    // Set before the first message, and by its thread.
    Tq4_msg_handler handler = nullptr;
    void *handler_obj = nullptr;        // borrowed
    Tq4_dispatch_obj *m_owner;          // borrowed; its users count this one's thread and calls
    Tq4_thread m_thread = nullptr;      // borrowed; null: the owner's, which calls try_once
    std::atomic<bool> m_entered{false}; // the thread has come to serve

    explicit Tq4_dispatch_consumer(Tq4_dispatch_obj *owner) : m_owner(owner) {}
    void Use() { m_users.fetch_add(1, std::memory_order_relaxed); }
    void Leave() {
        if (m_users.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
    }

    Tq4_dispatch_frame &NextFrame();
    // The frame has its message, whose fate is from now on the consumer's.
    void Enter(Tq4_dispatch_frame &frame);
    // Calls the handler for the frame that was entered last, answers and frees the parameters; gives the answer.
    long Handle(Tq4_dispatch_frame &frame);
    // After a kill: the messages inside this frame (null: all) are answered with 0, their parameters freed.
    void Abandon(const Tq4_dispatch_frame *outside);
};
