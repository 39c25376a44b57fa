// message.hpp: a message on its way to its handler, and the sender that waits for its answer.
#pragma once

#include <utility>

#include "base/queue/list_node.hpp"
#include "platform/multi_platform_pthread.hpp"
#include "thread/alarm.hpp"
#include "tq4/dispatch.h"

// The waiting sender of a Send, on its stack. It is on the dispatcher's list of senders while its message waits.
// Whoever takes it off, under the dispatcher's lock, answers it.
struct Tq4_reply {
    Tq4_list_node node;      // first: a node of the list is the reply that it starts
    Tq4_spin_habit &m_habit; // borrowed: the dispatcher's, for the one that answers
    long m_ret = 0;
    Tq4_alarm m_alarm;

    explicit Tq4_reply(Tq4_spin_habit &habit) : m_habit(habit) {}
    static Tq4_reply *of(Tq4_list_node *first) { return reinterpret_cast<Tq4_reply *>(first); }

    // Lets the sender go; the reply is gone after it.
    void Answer(long value) {
        m_ret = value;
        const std::atomic<int> *word = m_alarm.word();
        if (m_alarm.Ring(m_habit)) MP_THREAD_WakeSleeper(word);
    }
};

// A message as a user hands it over, and while it waits. It fills one line of the cache: bringing that from one core to
// another is most of what a message costs.
struct alignas(64) Tq4_waiting_msg {
    // An id of a Post or Push is copied, null as a zero id; that of a Send stays the sender's.
    union Party {
        Tq4_id copy;
        Tq4_id *borrowed;
    };
    Tq4_msg_type type;
    unsigned long msg;
    long submsg;
    void *params;
    Tq4_msg_free del_data; // null: params are not freed
    Party sender;
    Party receiver;
    Tq4_reply *reply; // borrowed; of a Send from another thread, else null

    static Party party(Tq4_msg_type type, Tq4_id *id) {
        if (type == Tq4_msg_type_send) return {.borrowed = id};
        return {.copy = id ? *id : Tq4_id{}};
    }
    void FreeParams() const {
        if (params && del_data) del_data(params);
    }
};
static_assert(sizeof(Tq4_waiting_msg) == 64);

// A message at its handler, whose pointer to the message is one to the whole. One is inside another when a handler
// sends to its own dispatcher.
struct Tq4_msg_obj {
    Tq4_msg message; // first
    Tq4_msg_free del_data;
    Tq4_id sender; // copies
    Tq4_id receiver;
    Tq4_reply *reply; // borrowed; the sender that waits for the answer, until it is answered
    long m_ret;       // the answer
    bool m_answered;

    void Settle(const Tq4_waiting_msg &waiting);
    // The first answer counts.
    void Answer(long value);
    // The sender may go on, and its ids with it.
    void KeepIds();
    void FreeParams() {
        void *params = std::exchange(message.params, nullptr);
        if (params && del_data) del_data(params);
    }
};
