// rule.hpp: one rule of a state: what it matches, the handler it calls and where it leads.
#pragma once

#include "own.hpp"
#include "tq4/fsm.h"
#include "tq4/string.h"

struct Tq4_fsm_state_obj;

// A string object with this text, through the hook.
inline Tq4_hooked<Tq4_string> Tq4_fsm_text(const char *text) {
    auto string = Tq4_make_hooked<Tq4_string>(Tq4_cxx_support->new_string);
    (*string)->Strcpy(string.get(), text);
    return string;
}
inline const char *Tq4_fsm_text_of(const Tq4_hooked<Tq4_string> &string) { return (*string)->c_str(string.get()); }

// A message with the values that go with it, from m_left to m_right; those of a default rule are an empty range.
struct Tq4_fsm_state_MsgInfo {
    Tq4_fsm_stateMsgType type;
    Tq4_hooked<Tq4_string> m_sMsg; // string rules only
    unsigned long m_iMsg = 0;
    long m_left = 1;
    long m_right = 0;

    static Tq4_fsm_state_MsgInfo Of(unsigned long message, long low, long high) {
        return {Tq4_fsm_stateIntMsg, nullptr, message, low, high};
    }
    static Tq4_fsm_state_MsgInfo Of(const char *name, long low, long high) {
        return {Tq4_fsm_stateStringMsg, Tq4_fsm_text(name), 0, low, high};
    }
    bool Holds(const Tq4_fsm_msg &event) const;
};

struct Tq4_fsm_state_Handle {
    Tq4_fsm_state_MsgInfo m_msg;
    Tq4_fsm_handler m_Handler;
    Tq4_hooked<Tq4_string> m_nextStateName; // empty also for the initial state: the flag tells
    Tq4_fsm_stateNextStateType m_nextStateflag;
    Tq4_fsm_state_obj *m_nextState = nullptr; // borrowed; once found, null when it is m_state
    Tq4_fsm_state_obj *const m_state;         // borrowed: the state that the rule is set on

    Tq4_fsm_state_Handle(Tq4_fsm_state_obj *state, Tq4_fsm_state_MsgInfo msg, Tq4_fsm_handler handler,
                         const char *next);

    bool resolved() const {
        return m_nextStateflag == Tq4_fsm_stateNextStateOk || m_nextStateflag == Tq4_fsm_stateNextStateSelf;
    }
    // The search for the next state is over: null when there is no such state.
    void Found(Tq4_fsm_state_obj *next);
    // The rule goes: what it leads to is led to by one rule less.
    void Release();
};
