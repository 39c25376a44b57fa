// dispatch.hpp: the record of a dispatcher.
//
// Producers meet the consumer at m_task, under m_lock, for a few dozen nanoseconds; no callback runs under it. After
// its unlocking a producer touches nothing here, since its message may have made the handler delete the dispatcher.
//
// The record has users: whoever deletes it, the thread that serves it, and calls that handle a message. The last one
// destroys it. So a handler may delete its own dispatcher, and one that outlasts even its kill finds a record.
#pragma once

#include <atomic>
#include <cstdarg>

#include "base/dispatch/consumer.hpp"
#include "base/dispatch/message_queue.hpp"
#include "base/queue/list.hpp"
#include "own.hpp"
#include "thread/brief_lock.hpp"
#include "tq4/dispatch.h"
#include "tq4/string.h"

struct Tq4_dispatch_obj {
    enum class State { fresh, serving, stopped };
    enum class Place { back, front };
    Tq4_brief_lock m_lock;
    Tq4_message_queue m_task TQ4_GUARDED_BY(m_lock);
    Tq4_list m_senders TQ4_GUARDED_BY(m_lock);       // Tq4_reply, whose messages wait
    uint64_t m_left_seen TQ4_GUARDED_BY(m_lock) = 0; // the most that is left in the consumer's batch
    uint64_t m_tell_at TQ4_GUARDED_BY(m_lock) = Tq4_dispatch_consumer::allowance; // see m_grown
    Tq4_dispatch_consumer *m_consumer; // owned; changed under m_lock, by whoever starts and stops
    Tq4_dispatch_notify Notify TQ4_GUARDED_BY(m_lock) = nullptr;
    Tq4_spin_habit m_consumer_habit;
    Tq4_spin_habit m_sender_habit;

    std::atomic<State> m_state{State::fresh};     // changed under m_lock
    std::atomic<unsigned long> handler_thread{0}; // 0: none
    std::atomic<int> m_users{1};
    // For whoever starts and stops, one at a time. A thread that was stopped by its own handler stays until the next.
    Tq4_own<Tq4_thread> m_working;
    Tq4_dispatch_consumer *m_served = nullptr; // owned: the consumer of m_working
    Tq4_hooked<Tq4_string> name;               // changed under m_lock

    explicit Tq4_dispatch_obj(const void *);
    ~Tq4_dispatch_obj();
    bool Retire();
    void Reset();
    void Copy(const Tq4_dispatch_obj *) {}
    bool Equal(const Tq4_dispatch_obj &other) const { return this == &other; }

    Tq4_thread StartV(void *context, Tq4_msg_handler handler, const char *format, va_list args);
    void Start2(void *context, unsigned long thread_id, Tq4_dispatch_notify notify, Tq4_msg_handler handler);
    void Stop();
    long Send(Tq4_waiting_msg &message, Place place);
    long Post(const Tq4_waiting_msg &message, Place place);
    long Push(const Tq4_waiting_msg &message, Place place);
    int try_once(unsigned long milliseconds);
    int IsSameThread() const;
    // By the handler's thread: how many messages wait now.
    uint64_t Waiting();

    // The consumer's thread: serving and handling (serve.cpp).
    static unsigned long Serve(void *consumer);
    int TakeAndHandle(Tq4_dispatch_consumer &consumer, unsigned long milliseconds);
    long HandleHere(Tq4_dispatch_consumer &consumer, const Tq4_waiting_msg &message);
    // Ends a user's stay; true: it was the last one, and the record is gone.
    bool Leave();

private:
    // What is left to do for a message when the lock is let go.
    struct Queued {
        const std::atomic<int> *sleeper; // null: nobody sleeps
        Tq4_dispatch_notify notify;
        void *context;
        void Tell() const;
    };
    Queued Queue(const Tq4_waiting_msg &message, Place place) TQ4_REQUIRES(m_lock);
    bool IsFull() TQ4_REQUIRES(m_lock);

    enum class Taken { message, nothing, stopped };
    Taken Take(Tq4_dispatch_consumer &consumer, Tq4_waiting_msg &to);
    Taken TakeLocked(Tq4_dispatch_consumer &consumer, Tq4_waiting_msg &to);
    Taken Claim(Tq4_dispatch_consumer &consumer, Tq4_waiting_msg &message);
    Taken Await(Tq4_dispatch_consumer &consumer, Tq4_waiting_msg &to, unsigned long milliseconds);
    void NoteBehind(Tq4_dispatch_consumer &consumer) TQ4_REQUIRES(m_lock);
    void TellIfBusy(Tq4_dispatch_consumer &consumer);
    int TryOnceAsGuest(Tq4_dispatch_consumer &consumer, unsigned long milliseconds);
    long SendAsGuest(Tq4_dispatch_consumer &consumer, const Tq4_waiting_msg &message);

    // What the end of a consumer leaves over. It goes as the last: its free functions may do everything with the
    // dispatcher, also delete it.
    struct Leavings {
        Tq4_message_queue messages;
        Tq4_dispatch_consumer *closed = nullptr; // owned, like the next
        Tq4_dispatch_consumer *served = nullptr;
        ~Leavings() {
            for (Tq4_dispatch_consumer *consumer : {closed, served})
                if (consumer) consumer->Leave();
        }
    };
    bool IsInside() const;
    void Close(State state, Leavings &leavings);
    void Reap(Leavings &leavings);
};
