// fsm_state: setting rules, and finding the one for an event.
#include "base/fsm/state.hpp"

#include <utility>

using Handle = Tq4_fsm_state_Handle;
using MsgInfo = Tq4_fsm_state_MsgInfo;

// The name stays, since the machine knows the state by it.
void Tq4_fsm_state_obj::Reset() {
    EachRule([](Handle &rule) { rule.Release(); });
    m_iHandles.RemoveAll();
    m_sHandles.RemoveAll();
    m_handlesByValue.clear();
    m_handlesByRange.clear();
    m_force.reset();
    m_except.reset();
    m_enter = m_exit = m_clean = nullptr;
}

// --- Finding ---

Handle *Tq4_fsm_state_obj::FindOther(const Tq4_fsm_msg &event) const {
    if (Handle *found = FindRange(event)) return found;
    if (Handle *found = FindDefault(event)) return found;
    return m_except.get();
}

Handle *Tq4_fsm_state_obj::FindRange(const Tq4_fsm_msg &event) const {
    for (const Rule &rule : m_handlesByRange)
        if (rule->m_msg.Holds(event)) return rule.get();
    return nullptr;
}

Handle *Tq4_fsm_state_obj::FindDefault(const Tq4_fsm_msg &event) const {
    return static_cast<Handle *>(event.sMsg ? m_sHandles.LookupS(event.sMsg)
                                            : m_iHandles.Lookup3(event.iMsg, 0, Default));
}

// --- Setting ---

Tq4_fsm_state_obj::Rule Tq4_fsm_state_obj::NewRule(MsgInfo msg, Tq4_fsm_handler handler, const char *next) {
    return std::make_unique<Handle>(this, std::move(msg), handler, next);
}

Handle *Tq4_fsm_state_obj::AddByValue(MsgInfo msg, Tq4_fsm_handler handler, const char *next) {
    m_handlesByValue.push_back(NewRule(std::move(msg), handler, next));
    return m_handlesByValue.back().get();
}

void Tq4_fsm_state_obj::Replace(Rule &rule, Rule by) {
    if (rule) rule->Release();
    rule = std::move(by);
}

void Tq4_fsm_state_obj::SetIntMsgHandle(unsigned long message, long value, Tq4_fsm_handler handler, const char *next) {
    m_iHandles.SetAt3(AddByValue(MsgInfo::Of(message, value, value), handler, next), message, bits(value), Exact);
}

void Tq4_fsm_state_obj::SetIntMsgHandleRange(unsigned long message, long low, long high, Tq4_fsm_handler handler,
                                             const char *next) {
    m_handlesByRange.push_back(NewRule(MsgInfo::Of(message, low, high), handler, next));
}

void Tq4_fsm_state_obj::SetIntMsgHandleDefault(unsigned long message, Tq4_fsm_handler handler, const char *next) {
    m_iHandles.SetAt3(AddByValue(MsgInfo::Of(message, 1, 0), handler, next), message, 0, Default);
}

void Tq4_fsm_state_obj::SetStrMsgHandle(const char *name, long value, Tq4_fsm_handler handler, const char *next) {
    if (!name) return;
    m_sHandles.SetAtSI(AddByValue(MsgInfo::Of(name, value, value), handler, next), name, bits(value));
}

void Tq4_fsm_state_obj::SetStrMsgHandleRange(const char *name, long low, long high, Tq4_fsm_handler handler,
                                             const char *next) {
    if (name) m_handlesByRange.push_back(NewRule(MsgInfo::Of(name, low, high), handler, next));
}

void Tq4_fsm_state_obj::SetStrMsgHandleDefault(const char *name, Tq4_fsm_handler handler, const char *next) {
    if (name) m_sHandles.SetAtS(AddByValue(MsgInfo::Of(name, 1, 0), handler, next), name);
}

void Tq4_fsm_state_obj::SetUnExceptEventHandle(Tq4_fsm_handler handler, const char *next) {
    Replace(m_except, handler ? NewRule({.type = Tq4_fsm_stateAnyMsg}, handler, next) : nullptr);
}

void Tq4_fsm_state_obj::SetForceState(const char *next, Tq4_fsm_handler handler) {
    Replace(m_force, NewRule({.type = Tq4_fsm_stateNoMsg}, handler, next));
}

static const char *Name(Tq4_fsm_state state) { return state ? Tq4_record_of<Tq4_fsm_state_obj>(state).Name() : ""; }

const Tq4_fsm_state_ Tq4_fsm_state_itf = {
    .Name = Name,
    .SetIntMsgHandle = Tq4_op<&Tq4_fsm_state_obj::SetIntMsgHandle>,
    .SetIntMsgHandleRange = Tq4_op<&Tq4_fsm_state_obj::SetIntMsgHandleRange>,
    .SetIntMsgHandleDefault = Tq4_op<&Tq4_fsm_state_obj::SetIntMsgHandleDefault>,
    .SetStrMsgHandle = Tq4_op<&Tq4_fsm_state_obj::SetStrMsgHandle>,
    .SetStrMsgHandleRange = Tq4_op<&Tq4_fsm_state_obj::SetStrMsgHandleRange>,
    .SetStrMsgHandleDefault = Tq4_op<&Tq4_fsm_state_obj::SetStrMsgHandleDefault>,
    .SetUnExceptEventHandle = Tq4_op<&Tq4_fsm_state_obj::SetUnExceptEventHandle>,
    .SetStateEnterHandler = Tq4_op<&Tq4_fsm_state_obj::SetStateEnterHandler>,
    .SetForceState = Tq4_op<&Tq4_fsm_state_obj::SetForceState>,
    .SetStateExitHandler = Tq4_op<&Tq4_fsm_state_obj::SetStateExitHandler>,
    .SetStateCleanHandler = Tq4_op<&Tq4_fsm_state_obj::SetStateCleanHandler>,
};
TQ4_MODULE(fsm_state)
