// message: its handler, its answer.
#include "base/dispatch/message.hpp"

#include "thread/cancel.hpp"

void Tq4_msg_obj::Settle(const Tq4_waiting_msg &waiting) {
    message = {waiting.type, waiting.msg, waiting.submsg, nullptr, nullptr, waiting.params};
    del_data = waiting.del_data;
    reply = waiting.reply;
    m_answered = false;
    if (waiting.type == Tq4_msg_type_send) {
        message.sender = waiting.sender.borrowed;
        message.receiver = waiting.receiver.borrowed;
    } else {
        sender = waiting.sender.copy;
        receiver = waiting.receiver.copy;
        message.sender = &sender;
        message.receiver = &receiver;
    }
}

void Tq4_msg_obj::KeepIds() {
    if (message.sender) sender = *std::exchange(message.sender, &sender);
    if (message.receiver) receiver = *std::exchange(message.receiver, &receiver);
}

void Tq4_msg_obj::Answer(long value) {
    if (std::exchange(m_answered, true)) return;
    m_ret = value;
    if (Tq4_reply *waiting = std::exchange(reply, nullptr)) waiting->Answer(value);
}

extern "C" void Tq4_dispatch_Return(Tq4_msg *message, long value) {
    if (!message || message->type != Tq4_msg_type_send) return;
    const Tq4_kill_gate_shut gate;
    auto *handled = reinterpret_cast<Tq4_msg_obj *>(message);
    if (handled->m_answered) return;
    handled->KeepIds();
    handled->Answer(value);
}
