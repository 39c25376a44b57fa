// report.hpp: what a machine says in its log about an item.
#pragma once

#include "base/fsm/rule.hpp"
#include "base/fsm/state.hpp"
#include "tq4/fsm.h"
#include "tq4/log.h"

class Tq4_fsm_report {
public:
    static constexpr int Level = -1;

    Tq4_fsm_report(Tq4_log log, Tq4_fsm_item item) : m_log(log), m_item(item) {}

    // What comes of an event in a state.
    void Received(const Tq4_fsm_msg &event, const Tq4_fsm_state_obj &in) const;
    void Dropped(const Tq4_fsm_msg &event, const Tq4_fsm_state_obj &in) const;
    void NoNextState(const Tq4_fsm_msg &event, const Tq4_fsm_state_obj &in, const Tq4_fsm_state_Handle &rule) const;
    void Moved(const Tq4_fsm_msg &event, const Tq4_fsm_state_obj &from, const Tq4_fsm_state_obj &to) const;
    // What comes of a force rule.
    void NoForcedState(const Tq4_fsm_state_Handle &rule) const;
    void Forced(const Tq4_fsm_state_obj &from, const Tq4_fsm_state_obj &to) const;

private:
    template <class... Arguments> void Line(const char *format, Arguments... arguments) const;

    const Tq4_log m_log; // borrowed
    const Tq4_fsm_item m_item;
};
