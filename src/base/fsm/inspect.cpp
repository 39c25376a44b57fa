// inspect: the next state of every rule is looked for; what is missing or never led to goes to the log.
#include "base/fsm/fsm.hpp"
#include "base/fsm/report.hpp"

namespace {

enum Finding { Missing_state = 1, Unreferenced_state = 2 };

// How a rule for an event is written: with one value, with any (an empty range), with those of a range.
struct Event_formats {
    const char *exact, *any, *range;
};
constexpr Event_formats of_number = {
    "%s ----(0x%lx:%ld)--->%s(该转移状态不存在)",
    "%s ----(0x%lx)--->%s(该转移状态不存在)",
    "%s ----(0x%lx:[%ld,%ld])--->%s(该转移状态不存在)",
};
constexpr Event_formats of_text = {
    "%s ----(%s:%ld)--->%s(该转移状态不存在)",
    "%s ----(%s)--->%s(该转移状态不存在)",
    "%s ----(%s:[%ld,%ld])--->%s(该转移状态不存在)",
};
constexpr char of_force[] = "%s ----(无条件转移)--->%s(该转移状态不存在)";
constexpr char of_unexpected[] = "%s ----(UnExceptEvent)--->%s(该转移状态不存在)";
constexpr char never_led_to[] = "%s定义后未被实际引用，可能是个潜在错误";

class Findings {
public:
    explicit Findings(Tq4_log log) : m_log(log) {}
    int sum() const { return m_sum; }

    void Missing(const Tq4_fsm_state_Handle &rule) {
        m_sum |= Missing_state;
        const Tq4_fsm_state_MsgInfo &msg = rule.m_msg;
        switch (msg.type) {
        case Tq4_fsm_stateNoMsg:
            return Line(of_force, from(rule), to(rule));
        case Tq4_fsm_stateIntMsg:
            return MissingAt(of_number, msg.m_iMsg, rule);
        case Tq4_fsm_stateStringMsg:
            return MissingAt(of_text, Tq4_fsm_text_of(msg.m_sMsg), rule);
        case Tq4_fsm_stateAnyMsg:
            return Line(of_unexpected, from(rule), to(rule));
        }
    }
    void Unreferenced(const Tq4_fsm_state_obj &state) {
        m_sum |= Unreferenced_state;
        Line(never_led_to, state.Name());
    }

private:
    static const char *from(const Tq4_fsm_state_Handle &rule) { return rule.m_state->Name(); }
    static const char *to(const Tq4_fsm_state_Handle &rule) { return Tq4_fsm_text_of(rule.m_nextStateName); }

    template <class Message>
    void MissingAt(const Event_formats &formats, Message message, const Tq4_fsm_state_Handle &rule) const {
        const long low = rule.m_msg.m_left, high = rule.m_msg.m_right;
        if (low == high)
            Line(formats.exact, from(rule), message, low, to(rule));
        else if (low > high)
            Line(formats.any, from(rule), message, to(rule));
        else
            Line(formats.range, from(rule), message, low, high, to(rule));
    }
    template <class... Arguments> void Line(const char *format, Arguments... arguments) const {
        if (m_log) (*m_log)->Printf(m_log, Tq4_fsm_report::Level, format, arguments...);
    }

    const Tq4_log m_log; // borrowed; null for none
    int m_sum = 0;
};

} // namespace

int Tq4_fsm_obj::Inspect() {
    Findings findings(m_log);
    const auto inspect = [&](const State &state) {
        record_of(state).EachRule([&](Tq4_fsm_state_Handle &rule) {
            if (!Resolve(rule)) findings.Missing(rule);
        });
    };
    for (const State &state : m_StatesList) inspect(state);
    inspect(m_default);
    for (const State &state : m_StatesList)
        if (record_of(state).m_ref == 0) findings.Unreferenced(record_of(state));
    return findings.sum();
}
