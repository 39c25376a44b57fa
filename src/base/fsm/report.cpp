// report: the lines about items. Names of messages and states are arguments of the formats, never formats.
#include "base/fsm/report.hpp"

namespace {

const char *next_of(const Tq4_fsm_state_Handle &rule) { return Tq4_fsm_text_of(rule.m_nextStateName); }

// All lines but those of a received event show the low half of an integer message, deliberately.
unsigned low(const Tq4_fsm_msg &event) { return static_cast<unsigned>(event.iMsg); }

} // namespace

// Every line begins with the item's id.
template <class... Arguments> void Tq4_fsm_report::Line(const char *format, Arguments... arguments) const {
    const Tq4_id *id = Tq4_object_Id(m_item);
    (*m_log)->Printf(m_log, Level, format, id ? id->h : 0u, id ? id->l : 0u, arguments...);
}

void Tq4_fsm_report::Received(const Tq4_fsm_msg &event, const Tq4_fsm_state_obj &in) const {
    if (event.sMsg)
        Line("[0x%08x:%08x] 在状态(%s),收到事件(%s:%ld)", in.Name(), event.sMsg, event.status);
    else
        Line("[0x%08x:%08x] 在状态(%s),收到事件(0x%08lx:%ld)", in.Name(), event.iMsg, event.status);
}

void Tq4_fsm_report::Dropped(const Tq4_fsm_msg &event, const Tq4_fsm_state_obj &in) const {
    if (event.sMsg)
        Line("[0x%08x:%08x] 在状态(%s),收到事件(%s:%ld),没有对应处理规则，事件被丢弃", in.Name(), event.sMsg,
             event.status);
    else
        Line("[0x%08x:%08x] 在状态(%s),收到事件(0x%08x:%ld),没有对应处理规则，事件被丢弃", in.Name(), low(event),
             event.status);
}

void Tq4_fsm_report::NoNextState(const Tq4_fsm_msg &event, const Tq4_fsm_state_obj &in,
                                 const Tq4_fsm_state_Handle &rule) const {
    if (event.sMsg)
        Line("[0x%08x:%08x] 在状态(%s),收到事件(%s:%ld),规则错误，没有找到对应的下一状态(%s)", in.Name(), event.sMsg,
             event.status, next_of(rule));
    else
        Line("[0x%08x:%08x] 在状态(%s),收到事件(0x%08x:%ld),规则错误，没有找到对应的下一状态(%s)", in.Name(),
             low(event), event.status, next_of(rule));
}

void Tq4_fsm_report::Moved(const Tq4_fsm_msg &event, const Tq4_fsm_state_obj &from, const Tq4_fsm_state_obj &to) const {
    if (event.sMsg)
        Line("[0x%08x:%08x] 状态迁移(%s)---(%s:%ld)--> (%s)", from.Name(), event.sMsg, event.status, to.Name());
    else
        Line("[0x%08x:%08x] 状态迁移(%s)---(0x%08x:%ld)-->(%s)", from.Name(), low(event), event.status, to.Name());
}

void Tq4_fsm_report::NoForcedState(const Tq4_fsm_state_Handle &rule) const {
    Line("[0x%08x:%08x] 在状态(%s)下无条件前转设置错误：没有找到(%s)状态", rule.m_state->Name(), next_of(rule));
}

void Tq4_fsm_report::Forced(const Tq4_fsm_state_obj &from, const Tq4_fsm_state_obj &to) const {
    Line("[0x%08x:%08x] 状态被无条件迁移(%s)----->(%s)", from.Name(), to.Name());
}
