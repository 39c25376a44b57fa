// state.hpp: a state's record: its rules and the look-up of the one for an event.
//
// Exact and default rules are found through maps from what they match; a later rule takes the place of an earlier one.
// Ranges are asked in the order they were set. Every rule set stays until the state goes, so that all are inspected.
#pragma once

#include <memory>
#include <vector>

#include "base/fsm/rule.hpp"
#include "base/map/intmap.hpp"
#include "base/map/strmap.hpp"
#include "identity.hpp"

struct Tq4_fsm_state_obj : Tq4_identity {
    using Rule = std::unique_ptr<Tq4_fsm_state_Handle>;

    Tq4_intmap_obj m_iHandles; // by message, value, and whether it is a default rule
    Tq4_strmap_obj m_sHandles; // by text and value; a default rule by the text alone
    Rule m_except;             // null for none
    Rule m_force;              // null for none
    Tq4_fsm_handler m_enter = nullptr;
    Tq4_fsm_handler m_exit = nullptr;
    Tq4_fsm_handler m_clean = nullptr;
    std::vector<Rule> m_handlesByRange; // as they were set, which is the order they match in
    std::vector<Rule> m_handlesByValue; // as they were set
    Tq4_hooked<Tq4_string> m_StateName = Tq4_make_hooked<Tq4_string>(Tq4_cxx_support->new_string);
    int m_ref = 0; // rules found to lead here

    void Reset();
    Tq4_fsm_state handle() { return Tq4_handle_of<Tq4_fsm_state>(this); }
    const char *Name() const { return Tq4_fsm_text_of(m_StateName); }

    // The rule for an event; null for none.
    Tq4_fsm_state_Handle *Find(const Tq4_fsm_msg &event) const {
        Tq4_fsm_state_Handle *exact = FindExact(event);
        return exact ? exact : FindOther(event);
    }
    // Every rule: exact and default ones, ranges, the force rule, the one for unexpected events.
    template <class Visit> void EachRule(Visit visit) const;

    void SetIntMsgHandle(unsigned long message, long value, Tq4_fsm_handler handler, const char *next);
    void SetIntMsgHandleRange(unsigned long message, long low, long high, Tq4_fsm_handler handler, const char *next);
    void SetIntMsgHandleDefault(unsigned long message, Tq4_fsm_handler handler, const char *next);
    void SetStrMsgHandle(const char *name, long value, Tq4_fsm_handler handler, const char *next);
    void SetStrMsgHandleRange(const char *name, long low, long high, Tq4_fsm_handler handler, const char *next);
    void SetStrMsgHandleDefault(const char *name, Tq4_fsm_handler handler, const char *next);
    void SetUnExceptEventHandle(Tq4_fsm_handler handler, const char *next);
    void SetStateEnterHandler(Tq4_fsm_handler handler) { m_enter = handler; }
    void SetForceState(const char *next, Tq4_fsm_handler handler);
    void SetStateExitHandler(Tq4_fsm_handler handler) { m_exit = handler; }
    void SetStateCleanHandler(Tq4_fsm_handler handler) { m_clean = handler; }

private:
    // The last of an integer rule's keys.
    enum Kind : unsigned long { Exact = 0, Default = 1 };

    static unsigned long bits(long value) { return static_cast<unsigned long>(value); }
    Tq4_fsm_state_Handle *FindExact(const Tq4_fsm_msg &event) const {
        return static_cast<Tq4_fsm_state_Handle *>(event.sMsg
                                                       ? m_sHandles.LookupSI(event.sMsg, bits(event.status))
                                                       : m_iHandles.Lookup3(event.iMsg, bits(event.status), Exact));
    }
    Tq4_fsm_state_Handle *FindOther(const Tq4_fsm_msg &event) const;
    Tq4_fsm_state_Handle *FindRange(const Tq4_fsm_msg &event) const;
    Tq4_fsm_state_Handle *FindDefault(const Tq4_fsm_msg &event) const;
    Rule NewRule(Tq4_fsm_state_MsgInfo msg, Tq4_fsm_handler handler, const char *next);
    Tq4_fsm_state_Handle *AddByValue(Tq4_fsm_state_MsgInfo msg, Tq4_fsm_handler handler, const char *next);
    static void Replace(Rule &rule, Rule by);
};

template <class Visit> void Tq4_fsm_state_obj::EachRule(Visit visit) const {
    for (const Rule &rule : m_handlesByValue) visit(*rule);
    for (const Rule &rule : m_handlesByRange) visit(*rule);
    if (m_force) visit(*m_force);
    if (m_except) visit(*m_except);
}
