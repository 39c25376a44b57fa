// consumer: a message meets its handler. The kill gate is open exactly while the handler runs.
#include "base/dispatch/consumer.hpp"

#include "thread/cancel.hpp"

void Tq4_dispatch_consumer::Gather() {
    constexpr int pauses = 48; // two microseconds; measured: the least with which producers are seldom disturbed
    if (!MP_THREAD_IsAlone())
        for (int i = 0; i < pauses; ++i) MP_THREAD_Pause();
}

void Tq4_dispatch_consumer::Enter(const Tq4_waiting_msg &message) {
    Tq4_dispatch_frame *frame = &m_outermost;
    if (m_current) {
        if (!m_current->m_inner) m_current->m_inner = std::make_unique<Tq4_dispatch_frame>(m_current);
        frame = m_current->m_inner.get();
    }
    frame->Settle(message);
    m_current = frame;
}

long Tq4_dispatch_consumer::Handle() {
    Tq4_dispatch_frame &frame = *m_current;
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
