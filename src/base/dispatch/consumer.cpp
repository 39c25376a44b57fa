// consumer: a message meets its handler. The kill gate is open exactly while the handler runs.
#include "base/dispatch/consumer.hpp"

#include "thread/cancel.hpp"

void Tq4_dispatch_frame::Answer(long value) {
    if (std::exchange(m_answered, true)) return;
    m_ret = value;
    if (Tq4_reply *waiting = std::exchange(reply, nullptr)) waiting->Answer(value);
}

Tq4_dispatch_frame &Tq4_dispatch_consumer::NextFrame() {
    if (!m_current) return m_outermost;
    if (!m_current->m_inner) m_current->m_inner = std::make_unique<Tq4_dispatch_frame>(m_current);
    return *m_current->m_inner;
}

void Tq4_dispatch_consumer::Enter(Tq4_dispatch_frame &frame) {
    frame.m_answered = false;
    if (frame.message.type != Tq4_msg_type_send) frame.PointToCopies();
    m_current = &frame;
}

long Tq4_dispatch_consumer::Handle(Tq4_dispatch_frame &frame) {
    Tq4_open_kill_gate();
    const long result = handler(handler_obj, &frame.message);
    Tq4_shut_kill_gate();
    frame.Answer(result);
    frame.FreeParams();
    m_current = frame.m_outer;
    return frame.m_ret;
}

void Tq4_dispatch_consumer::Abandon(const Tq4_dispatch_frame *outside) {
    while (m_current != outside) {
        m_current->Answer(0);
        m_current->FreeParams();
        m_current = m_current->m_outer;
    }
}

// The ids may lie on the sender's stack, so they are copied before it goes on.
extern "C" void Tq4_dispatch_Return(Tq4_msg *message, long value) {
    if (!message || message->type != Tq4_msg_type_send) return;
    const Tq4_kill_gate_shut gate;
    auto *frame = reinterpret_cast<Tq4_dispatch_frame *>(message);
    if (frame->m_answered) return;
    frame->CopyIds();
    if (message->sender) message->sender = &frame->sender;
    if (message->receiver) message->receiver = &frame->receiver;
    frame->Answer(value);
}
