// message.hpp: a message on its way to its handler, and the sender that waits for its answer.
#pragma once

#include <utility>

#include "base/queue/list_node.hpp"
#include "platform/multi_platform_pthread.hpp"
#include "thread/alarm.hpp"
#include "tq4/dispatch.h"

// The waiting sender of a Send, on its stack. It is on the dispatcher's list of senders while its message waits: who
// takes it off, under the dispatcher's lock, answers it.
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

// A queued message. It is copied from place to place; its id pointers are set when it has come to rest.
struct Tq4_msg_obj {
    Tq4_msg message;       // first: the handler's pointer to it is one to the whole
    Tq4_msg_free del_data; // null: params are not freed
    Tq4_id sender;         // copies
    Tq4_id receiver;
    Tq4_reply *reply; // borrowed; of a Send from another thread, until it is answered

    // A Post or Push keeps the ids, where null is a zero id; a Send borrows them.
    void CopyIds() {
        sender = message.sender ? *message.sender : Tq4_id{};
        receiver = message.receiver ? *message.receiver : Tq4_id{};
    }
    void PointToCopies() {
        message.sender = &sender;
        message.receiver = &receiver;
    }
    void FreeParams() {
        void *params = std::exchange(message.params, nullptr);
        if (params && del_data) del_data(params);
    }
};
