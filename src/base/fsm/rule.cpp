// rule: matching, and the search for the next state, which is done once and kept, whatever it gave.
#include "base/fsm/rule.hpp"

#include <utility>

#include "assert.hpp"
#include "base/fsm/state.hpp"

static Tq4_fsm_stateNextStateType first_flag(const char *next) {
    if (!next) return Tq4_fsm_stateNextStateNull;
    return *next ? Tq4_fsm_stateNextStateNotInit : Tq4_fsm_stateNextStateSelf;
}

bool Tq4_fsm_state_MsgInfo::Holds(const Tq4_fsm_msg &event) const {
    if (event.status < m_left || event.status > m_right) return false;
    if (!event.sMsg) return type == Tq4_fsm_stateIntMsg && m_iMsg == event.iMsg;
    return type == Tq4_fsm_stateStringMsg && (*m_sMsg)->EqualStr(m_sMsg.get(), event.sMsg, 0);
}

Tq4_fsm_state_Handle::Tq4_fsm_state_Handle(Tq4_fsm_state_obj *state, Tq4_fsm_state_MsgInfo msg, Tq4_fsm_handler handler,
                                           const char *next)
    : m_msg(std::move(msg)), m_Handler(handler), m_nextStateName(Tq4_fsm_text(next)), m_nextStateflag(first_flag(next)),
      m_state(state) {}

void Tq4_fsm_state_Handle::Found(Tq4_fsm_state_obj *next) {
    m_nextStateflag = next ? Tq4_fsm_stateNextStateOk : Tq4_fsm_stateNextStateFaild;
    if (!next || next == m_state) return;
    m_nextState = next;
    ++next->m_ref;
}

void Tq4_fsm_state_Handle::Release() {
    if (!m_nextState) return;
    TQ4_CHECK(m_nextState->m_ref > 0);
    --m_nextState->m_ref;
}
