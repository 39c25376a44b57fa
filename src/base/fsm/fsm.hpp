// fsm.hpp: the machine's record: its states, the rules for all of them, and the events it is handling.
//
// Who does what: fsm.cpp states and rules, events.cpp an event's way, inspect.cpp the look at all rules.
#pragma once

#include <memory>
#include <vector>

#include "base/fsm/handling.hpp"
#include "base/fsm/state.hpp"
#include "identity.hpp"
#include "tq4/fsm.h"

struct Tq4_fsm_obj : Tq4_identity {
    using State = Tq4_hooked<Tq4_fsm_state>;

    Tq4_fsm_msg m_msg{}; // the event at hand, as handlers see it
    Tq4_fsm_cpp_handler m_cpp_handler = nullptr;
    Tq4_log m_log; // borrowed; null for none
    // One for each event at hand, innermost last, and behind m_depth those that are free. An event whose thread was
    // killed stays at hand.
    std::vector<std::unique_ptr<Tq4_fsm_handling>> m_handlings;
    std::size_t m_depth = 0;
    State m_default;                 // holds the rules for all states; no item is ever in it
    std::vector<State> m_StatesList; // as they were added; the first is the initial state
    Tq4_own<Tq4_strmap> m_mapStates; // by name, the initial one by null

    explicit Tq4_fsm_obj(const void *log);
    ~Tq4_fsm_obj() { Clear(); }
    void Reset();
    void Duplicate(const Tq4_fsm_obj &source) { m_log = source.m_log; }

    void HandleStrMsg(Tq4_fsm_item item, const char *name, long value, void *params) {
        if (item && name) Handle(item, name, 0, value, params);
    }
    void HandleIntMsg(Tq4_fsm_item item, unsigned long message, long value, void *params) {
        if (item) Handle(item, nullptr, message, value, params);
    }

    Tq4_fsm_state AddState(const char *name);
    Tq4_fsm_state GetState(const char *name) const;
    unsigned long GetStateCount() const { return m_StatesList.size(); }
    int Inspect();
    void EachState(Tq4_fsm_state_visitor visitor);
    void SetCPPHandler(Tq4_fsm_cpp_handler wrapper) { m_cpp_handler = wrapper; }
    void SetLog(Tq4_log log) { m_log = log; }

    Tq4_fsm_state_obj &initial() const { return record_of(m_StatesList.front()); }
    static Tq4_fsm_state_obj &record_of(const State &state) { return Tq4_record_of<Tq4_fsm_state_obj>(state.get()); }
    // Finds the rule's next state, unless that was done before; false when there is none of its name.
    bool Resolve(Tq4_fsm_state_Handle &rule) const { return rule.resolved() || LookForNextState(rule); }

private:
    void Declare();
    void Clear();
    Tq4_fsm_state Append(const char *name);
    bool LookForNextState(Tq4_fsm_state_Handle &rule) const;
    void Handle(Tq4_fsm_item item, const char *name, unsigned long message, long value, void *params);
    Tq4_fsm_handling &Begin(Tq4_fsm_item_obj &item);
};
