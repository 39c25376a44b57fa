// events: what an event does to its item: the rule, the handlers, the move, and the force rules behind it.
//
// A handler may change rules, drive this machine again, and reset or delete the item. So a rule is not looked at after
// a handler was called. The message is put back when an inner event is over. And after each handler the engine asks
// whether the item is still there.
#include <utility>

#include "assert.hpp"
#include "base/fsm/fsm.hpp"
#include "base/fsm/report.hpp"
#include "thread/cancel.hpp"

namespace {

constexpr int Most_forced_moves = 3; // in a row

// The event at hand, m_msg of its machine, on its way through its item.
class Event {
public:
    Event(Tq4_fsm_obj &machine, Tq4_fsm_item_obj &item, const Tq4_fsm_handling &handling, Tq4_cancel_held_around &held)
        : m_machine(machine), m_item(item), m_handling(handling), m_held(held) {}

    void Handle() {
        if (!m_item.m_CurrentState && !Start()) return;
        Tq4_fsm_state_obj &current = *m_item.m_CurrentState;
        if (logs()) report().Received(message(), current);
        Tq4_fsm_state_Handle *rule = current.Find(message());
        if (!rule && !(rule = Tq4_fsm_obj::record_of(m_machine.m_default).Find(message()))) {
            if (logs()) report().Dropped(message(), current);
        } else if (!m_machine.Resolve(*rule)) {
            if (logs()) report().NoNextState(message(), current, *rule);
        } else {
            Follow(*rule, current);
        }
    }

private:
    const Tq4_fsm_msg &message() const { return m_machine.m_msg; }
    bool logs() const { return __builtin_expect(m_machine.m_log != nullptr, 0); }
    Tq4_fsm_report report() const { return {m_machine.m_log, m_item.handle()}; }

    // The first event puts the item into the initial state. False when that is the end of it.
    bool Start() {
        Tq4_fsm_state_obj &initial = m_machine.initial();
        m_item.m_CurrentState = &initial;
        return Arrive(initial, nullptr);
    }

    void Follow(const Tq4_fsm_state_Handle &rule, Tq4_fsm_state_obj &current) {
        Tq4_fsm_state_obj *next = rule.m_nextState == &current ? nullptr : rule.m_nextState;
        if (!Call(rule.m_Handler, current, next) || !next) return;
        if (!Call(current.m_exit, current, next)) return;
        if (logs()) report().Moved(message(), current, *next);
        if (MoveTo(*next)) FollowForceRules();
    }

    bool MoveTo(Tq4_fsm_state_obj &next) {
        m_item.m_PreState = std::exchange(m_item.m_CurrentState, &next);
        return Arrive(next, &next);
    }

    // The handlers of a state that the item has come into. False when the event is over.
    bool Arrive(Tq4_fsm_state_obj &state, Tq4_fsm_state_obj *next) {
        if (!Call(state.m_enter, state, next)) return false;
        if (!state.m_clean) return true;
        Call(state.m_clean, state, next);
        return false;
    }

    void FollowForceRules() {
        for (int moves = 0; moves < Most_forced_moves && m_item.m_CurrentState->m_force; ++moves)
            if (!FollowForceRule(*m_item.m_CurrentState)) return;
    }

    // False when that is the end of the event.
    bool FollowForceRule(Tq4_fsm_state_obj &from) {
        Tq4_fsm_state_Handle &rule = *from.m_force;
        if (!m_machine.Resolve(rule)) {
            if (logs()) report().NoForcedState(rule);
            return false;
        }
        Tq4_fsm_state_obj *next = rule.m_nextState;
        if (!next) return false;
        const Tq4_fsm_handler handler = rule.m_Handler;
        if (!Call(from.m_exit, from, next) || !Call(handler, from, next)) return false;
        if (logs()) report().Forced(from, *next);
        return MoveTo(*next);
    }

    // False when the item was reset or deleted in the handler: nothing of the event is left to do.
    bool Call(Tq4_fsm_handler handler, Tq4_fsm_state_obj &current, Tq4_fsm_state_obj *next) {
        if (!handler) return true;
        const Tq4_fsm_item item = m_item.handle();
        const Tq4_fsm_state previous = handle_of(m_item.m_PreState), now = current.handle(), then = handle_of(next);
        const Tq4_fsm_cpp_handler wrapper = m_machine.m_cpp_handler;
        m_held.Admit([&] {
            if (wrapper)
                wrapper(handler, nullptr, item, &m_machine.m_msg, previous, now, then);
            else
                handler(item, &m_machine.m_msg, previous, now, then);
        });
        return m_handling.m_item != nullptr;
    }
    static Tq4_fsm_state handle_of(Tq4_fsm_state_obj *state) { return state ? state->handle() : nullptr; }

    Tq4_fsm_obj &m_machine;
    Tq4_fsm_item_obj &m_item; // no more than an address when the handling is abandoned
    const Tq4_fsm_handling &m_handling;
    Tq4_cancel_held_around &m_held;
};

} // namespace

// Takes the event's parts one by one: they stay in registers until they are the machine's.
void Tq4_fsm_obj::Handle(Tq4_fsm_item item, const char *name, unsigned long message, long value, void *params) {
    auto &record = Tq4_record_of<Tq4_fsm_item_obj>(item);
    Tq4_cancel_held_around held;
    if (record.m_rflag) return record.m_rflag->Defer({name, message, value, params});
    const std::size_t depth = m_depth;
    Tq4_fsm_handling &handling = Begin(record);
    const Tq4_fsm_msg outer = std::exchange(m_msg, {name, message, value, params});
    do Event(*this, record, handling, held).Handle();
    while (handling.Take(m_msg));
    m_msg = outer;
    TQ4_CHECK(!handling.m_item || (handling.m_item == &record && record.m_rflag == &handling));
    handling.End();
    m_depth = depth;
    TQ4_CHECK(m_handlings[depth].get() == &handling);
}

Tq4_fsm_handling &Tq4_fsm_obj::Begin(Tq4_fsm_item_obj &item) {
    if (m_depth == m_handlings.size()) m_handlings.push_back(std::make_unique<Tq4_fsm_handling>());
    Tq4_fsm_handling &handling = *m_handlings[m_depth++];
    handling.Begin(item);
    return handling;
}
