// item.hpp: the record of a driven item: the state it is in, the one before, and its event that is being handled.
#pragma once

#include "base/fsm/state.hpp"
#include "tq4/fsm.h"

struct Tq4_fsm_handling;

// The state before the first: handlers see null.
inline constexpr Tq4_fsm_state_obj *Tq4_fsm_state_empty_pre = nullptr;

struct Tq4_fsm_item_obj : Tq4_identity {
    Tq4_fsm_state_obj *m_CurrentState = nullptr;             // borrowed; null until the first event
    Tq4_fsm_state_obj *m_PreState = Tq4_fsm_state_empty_pre; // borrowed
    Tq4_fsm_handling *m_rflag = nullptr; // borrowed from the machine; not null while an event is being handled

    ~Tq4_fsm_item_obj() { Leave(); }
    void Reset();
    Tq4_fsm_item handle() { return Tq4_handle_of<Tq4_fsm_item>(this); }

private:
    void Leave();
};
