// Random machines do what a model does, and say it in the same words. The model keeps rules in one list, searches it
// from the beginning, and remembers only what a machine is said to remember. Either side is told the same operations,
// from outside and from handlers: events, rules, handlers, looks at the whole machine, items and states that are reset,
// items that are deleted, and the log that comes and goes. Handlers are numbers to a wrapper, which keeps them in the
// machine as a host would keep member functions.
#include <optional>

#include "support/output.hpp"

namespace {

using Name = std::optional<std::string>; // of a state: none is the initial one, "" stays
constexpr int items = 3;
constexpr unsigned long all_bits = ~0ul, low_half = 0xffffffff;

struct Event {
    Name text;
    unsigned long number = 0;
    long value = 0;
    // The lines show all bits of a number, or the low half.
    std::string message(unsigned long mask, int width) const {
        char hex[32];
        std::snprintf(hex, sizeof hex, "0x%0*lx", width, number & mask);
        return text ? *text : hex;
    }
    std::string shown(unsigned long mask) const { return message(mask, 8) + ":" + std::to_string(value); }
};

struct Op {
    enum Kind { give, set_rule, set_handlers, inspect, set_log, reset_state, reset_item, delete_item } kind;
    int item;
    Name state; // "" is the machine, with its rules for all states
    Event event;
    enum Rule { exact, range, any, unexpected, force } rule; // in the order they are asked for
    long low, high, handler[3];
    Name next;
    bool logs;
};
using Weights = std::initializer_list<double>; // of the kinds
constexpr Weights from_outside = {6, 3, 1, 1, 1}, from_handlers = {6, 2, 0, 0, 1, 1, 1, 1};

class Drawn {
public:
    explicit Drawn(unsigned seed) : m_random(seed) {}
    unsigned long below(unsigned long n) { return m_random() % n; }
    template <class List> auto one_of(const List &list) { return list[below(std::size(list))]; }
    Op op(Weights kinds) {
        const Name names[] = {{}, "甲", "b", "%s%n", std::string(40, 'c'), "", "never added"};
        const Name texts[] = {{}, {}, "x", "%n%s"};
        const unsigned long numbers[] = {0, 1, 0x123400000001};
        const long values[] = {-2, -1, 0, 0, 1, 1, 2, LONG_MIN, LONG_MAX};
        Op op{static_cast<Op::Kind>(std::discrete_distribution(kinds)(m_random)),
              static_cast<int>(below(items)),
              names[below(6)],
              {one_of(texts)},
              static_cast<Op::Rule>(std::discrete_distribution({2, 2, 1, 1, 1})(m_random)),
              1,
              0,
              {},
              one_of(names),
              below(3) > 0};
        if (!op.event.text) op.event.number = one_of(numbers);
        op.event.value = one_of(values);
        if (op.rule <= Op::range) op.low = one_of(values), op.high = op.rule == Op::exact ? op.low : one_of(values);
        for (long &handler : op.handler) handler = below(3) ? 1 + static_cast<long>(below(40)) : 0;
        if (below(3)) op.handler[2] = 0;                                             // few states are final
        const bool of_states = op.rule >= Op::unexpected || op.kind != Op::set_rule; // the machine has none of those
        if (op.state == "" && of_states) op.state = {};
        return op;
    }

private:
    std::mt19937 m_random;
};

// What handlers do besides being called. Each side draws for itself, from the same seed.
template <class Side> struct Acting {
    Drawn drawn{0};
    int left = 0; // handlers may go in circles

    void act(Side &side) {
        if (left > 0 && left-- && drawn.below(3) == 0) side.apply(drawn.op(from_handlers));
    }
};

// --- The model ---

struct Model {
    static constexpr int none = -1, unknown = -2, missing = -3; // besides places of states
    enum { everywhere, initial };

    struct Rule : Op {
        int in, target = next == "" ? none : unknown;
        bool matches(const Event &e) const {
            if (rule >= unexpected) return rule == unexpected;
            return event.text == e.text && event.number == e.number &&
                   (rule == any || (low <= e.value && e.value <= high));
        }
        std::string shown() const { // as the report of a missing state
            if (rule >= unexpected) return rule == force ? "无条件转移" : "UnExceptEvent";
            const std::string message = event.message(all_bits, 1), from = std::to_string(low);
            if (low == high) return message + ":" + from;
            return low > high ? message : message + ":[" + from + "," + std::to_string(high) + "]";
        }
    };
    struct State {
        std::string name;
        long enter = 0, exit = 0, clean = 0;
    };
    struct Item {
        std::string id;
        int previous = none, current = none;
        bool busy = false;
        int lives = 0;
        std::optional<Event> deferred;
    };
    std::deque<State> states{{"<all>"}, {""}};
    std::vector<Rule> rules;
    Item driven[items];
    Texts log, calls;
    bool logs = true;
    Acting<Model> acting;

    int place(const Name &name) const {
        const auto has = [&](const State &state) { return state.name == *name; };
        const auto found = name ? std::find_if(states.begin() + 2, states.end(), has) : states.begin() + initial;
        return found == states.end() ? none : static_cast<int>(found - states.begin());
    }
    State &at(int place) { return states[static_cast<std::size_t>(place)]; }
    std::string shown(int place) { return place == everywhere ? "" : at(place).name; }
    void say(const std::string &line) {
        if (logs) log.push_back(line);
    }

    void apply(const Op &op) {
        Item &item = driven[op.item];
        if (op.state != "" && place(op.state) == none) states.push_back({*op.state});
        const int in = op.state == "" ? everywhere : place(op.state);
        const auto is_of = [&](const Rule &r) {
            return r.in == in && (op.kind == Op::reset_state || r.rule == op.rule);
        };
        switch (op.kind) {
        case Op::give:
            return drive(op.item, op.event);
        case Op::set_rule:
            if (op.rule >= Op::unexpected) std::erase_if(rules, is_of);
            if (op.rule != Op::unexpected || op.handler[0]) rules.push_back({op, in});
            return;
        case Op::reset_state:
            std::erase_if(rules, is_of);
            at(in) = {shown(in)};
            return;
        case Op::set_handlers:
            at(in) = {shown(in), op.handler[0], op.handler[1], op.handler[2]};
            return;
        case Op::inspect:
            return look();
        case Op::reset_item:
        case Op::delete_item:
            item = {.id = "[0x00000000:00000000] ", .lives = item.lives + 1, .deferred = {}};
            return;
        case Op::set_log:
            logs = op.logs;
        }
    }

    bool resolve(Rule &rule) {
        if (rule.target == unknown && (rule.target = place(rule.next)) == none) rule.target = missing;
        if (rule.target == rule.in) rule.target = none;
        return rule.target != missing;
    }
    // Of two alike the later one counts, of ranges the first.
    Rule *find(int in, const Event &e) {
        Rule *best = nullptr;
        for (Rule &r : rules)
            if (r.in == in && r.matches(e) &&
                (!best || r.rule < best->rule || (r.rule == best->rule && r.rule != Op::range)))
                best = &r;
        return best;
    }
    void look() {
        int result = 0;
        const auto inspect = [&](int in) {
            for (const int turn : {0, 1, 2, 3}) // exact and default ones, ranges, force, unexpected
                for (Rule &r : rules) {
                    constexpr int turns[] = {0, 1, 0, 3, 2};
                    if (r.in != in || turns[r.rule] != turn || resolve(r)) continue;
                    say(shown(in) + " ----(" + r.shown() + ")--->" + *r.next + "(该转移状态不存在)");
                    result |= 1;
                }
        };
        const int count = static_cast<int>(states.size());
        for (int in = initial; in < count; ++in) inspect(in);
        inspect(everywhere);
        for (int i = initial + 1; i < count; ++i) {
            if (std::any_of(rules.begin(), rules.end(), [&](const Rule &r) { return r.target == i; })) continue;
            say(shown(i) + "定义后未被实际引用，可能是个潜在错误");
            result |= 2;
        }
        calls.push_back("inspects " + std::to_string(result));
    }

    void drive(int which, const Event &event) {
        Item &item = driven[which];
        if (item.busy) {
            item.deferred = event;
            return;
        }
        item.busy = true;
        const int life = item.lives;
        for (std::optional<Event> now = event; now; now = std::exchange(item.deferred, {})) {
            One{*this, item, which, life, *now}.run();
            if (item.lives != life) return;
        }
        item.busy = false;
    }

    // One event of one item. Those that return bool say whether more follows.
    struct One {
        Model &m;
        Item &item;
        int which, life;
        Event event;

        void say(const std::string &line) { m.say(item.id + line); }
        bool call(long handler, int next) {
            if (!handler) return true;
            std::string line = std::to_string(handler) + " item " + std::to_string(which) + " " + event.shown(all_bits);
            for (int state : {item.previous, item.current, next})
                line += state == none ? " null" : " (" + m.shown(state) + ")";
            m.calls.push_back(line);
            m.acting.act(m);
            return item.lives == life;
        }
        bool arrive(int at, int next) {
            item.current = at;
            if (!call(m.at(at).enter, next)) return false;
            const long clean = m.at(at).clean;
            return !clean || (call(clean, next), false);
        }
        bool move(int next) {
            item.previous = item.current;
            return arrive(next, next);
        }
        void run() {
            if (item.current == none && !arrive(initial, none)) return;
            const int from = item.current;
            const std::string received = "在状态(" + m.shown(from) + "),收到事件(";
            say(received + event.shown(all_bits) + ")");
            Rule *rule = m.find(from, event);
            if (!rule) rule = m.find(everywhere, event);
            if (!rule) return say(received + event.shown(low_half) + "),没有对应处理规则，事件被丢弃");
            if (!m.resolve(*rule))
                return say(received + event.shown(low_half) + "),规则错误，没有找到对应的下一状态(" + *rule->next +
                           ")");
            const int next = rule->target == from ? none : rule->target;
            if (!call(rule->handler[0], next) || next == none || !call(m.at(from).exit, next)) return;
            say("状态迁移(" + m.shown(from) + ")---(" + event.shown(low_half) + ")-->" + (event.text ? " (" : "(") +
                m.shown(next) + ")");
            bool goes_on = move(next);
            for (int moves = 0; moves < 3 && goes_on; ++moves) goes_on = forced(item.current);
        }
        bool forced(int from) {
            const auto rule = std::find_if(m.rules.begin(), m.rules.end(),
                                           [&](const Rule &r) { return r.in == from && r.rule == Op::force; });
            if (rule == m.rules.end()) return false;
            if (!m.resolve(*rule))
                return say("在状态(" + m.shown(from) + ")下无条件前转设置错误：没有找到(" + *rule->next + ")状态"),
                       false;
            const int next = rule->target;
            const long handler = rule->handler[0];
            if (next == none || !call(m.at(from).exit, next) || !call(handler, next)) return false;
            say("状态被无条件迁移(" + m.shown(from) + ")----->(" + m.shown(next) + ")");
            return move(next);
        }
    };
};

// --- The machine ---

struct Real {
    Temp_dir directory;
    Tq4_own<Tq4_log> log = Tq4_make<Tq4_log>(Tq4_log_oitf);
    Tq4_own<Tq4_fsm> machine = Tq4_make<Tq4_fsm>(Tq4_fsm_oitf, log.get());
    Tq4_fsm fsm = machine.get();
    Tq4_own<Tq4_fsm_item> driven[items];
    Texts calls;
    Acting<Real> acting;

    explicit Real(Model &model, uint32_t seed) {
        (*log)->Init(log.get(), "fsm", -1);
        (*log)->MainDir(log.get(), directory.path().c_str());
        (*fsm)->SetCPPHandler(fsm, called);
        for (uint32_t i = 0; i < items; ++i) {
            const Tq4_id id{i ? seed : 0, i};
            driven[i] = Tq4_make<Tq4_fsm_item>(Tq4_fsm_item_oitf);
            if (i) Tq4_object_SetId(driven[i].get(), &id); // the first has none
            char shown[64];
            std::snprintf(shown, sizeof shown, "[0x%08x:%08x] ", id.h, id.l);
            model.driven[i].id = shown;
        }
    }

    static std::string shown(const Tq4_fsm_msg &message) {
        Event event{{}, message.iMsg, message.status};
        if (message.sMsg) event.text = message.sMsg;
        return event.shown(all_bits);
    }
    static void called(Tq4_fsm_handler handler, void *context, Tq4_fsm_item item, const Tq4_fsm_msg *message,
                       Tq4_fsm_state previous, Tq4_fsm_state now, Tq4_fsm_state next) {
        auto &self = *static_cast<Real *>(message->params);
        int which = 0;
        while (self.driven[which].get() != item) ++which;
        const std::string event = shown(*message), number = std::to_string(reinterpret_cast<long>(handler));
        self.calls.push_back(number + " item " + std::to_string(which) + " " + event);
        for (Tq4_fsm_state state : {previous, now, next})
            self.calls.back() += state ? " (" + std::string((*state)->Name(state)) + ")" : " null";
        self.acting.act(self);
        EXPECT_TRUE(!context && message->params == &self && shown(*message) == event) << "whatever it drove";
    }
    static Tq4_fsm_handler registered(long handler) { return reinterpret_cast<Tq4_fsm_handler>(handler); }
    static const char *text(const Name &name) { return name ? name->c_str() : nullptr; }

    void apply(const Op &op) {
        const Tq4_fsm_state s = (*fsm)->AddState(fsm, text(op.state));
        EXPECT_EQ(s, (*fsm)->GetState(fsm, text(op.state)));
        switch (op.kind) {
        case Op::give:
            return give(driven[op.item].get(), op.event);
        case Op::set_rule:
            return s ? set(s, op) : set(fsm, op);
        case Op::reset_state:
            return Tq4_fsm_state_oitf->Reset(s);
        case Op::set_handlers:
            (*s)->SetStateEnterHandler(s, registered(op.handler[0]));
            (*s)->SetStateExitHandler(s, registered(op.handler[1]));
            return (*s)->SetStateCleanHandler(s, registered(op.handler[2]));
        case Op::inspect:
            return calls.push_back("inspects " + std::to_string((*fsm)->Inspect(fsm)));
        case Op::reset_item:
            return Tq4_fsm_item_oitf->Reset(driven[op.item].get());
        case Op::delete_item:
            return (driven[op.item].reset(), driven[op.item] = Tq4_make<Tq4_fsm_item>(Tq4_fsm_item_oitf), void());
        case Op::set_log:
            return (*fsm)->SetLog(fsm, op.logs ? log.get() : nullptr);
        }
    }
    void give(Tq4_fsm_item item, const Event &e) {
        if (!e.text) return (*fsm)->HandleIntMsg(fsm, item, e.number, e.value, this);
        const std::string borrowed = *e.text; // gone when the call returns
        (*fsm)->HandleStrMsg(fsm, item, borrowed.c_str(), e.value, this);
    }
    // The operations that machines and states have alike, and two that only states have.
    template <class Handle> void set(Handle on, const Op &op) {
        const Tq4_fsm_handler handler = registered(op.handler[0]);
        const char *next = text(op.next), *message = text(op.event.text);
        const unsigned long number = op.event.number;
        if constexpr (std::is_same_v<Handle, Tq4_fsm_state>) {
            if (op.rule == Op::unexpected) return (*on)->SetUnExceptEventHandle(on, handler, next);
            if (op.rule == Op::force) return (*on)->SetForceState(on, next, handler);
        }
        if (op.rule == Op::exact)
            message ? (*on)->SetStrMsgHandle(on, message, op.low, handler, next)
                    : (*on)->SetIntMsgHandle(on, number, op.low, handler, next);
        else if (op.rule == Op::range)
            message ? (*on)->SetStrMsgHandleRange(on, message, op.low, op.high, handler, next)
                    : (*on)->SetIntMsgHandleRange(on, number, op.low, op.high, handler, next);
        else
            message ? (*on)->SetStrMsgHandleDefault(on, message, handler, next)
                    : (*on)->SetIntMsgHandleDefault(on, number, handler, next);
    }
    Texts logged() const {
        Texts lines;
        for (const std::string &path : log_files_in(directory.path()))
            for (const std::string &line : messages_in(path)) lines.push_back(line);
        return lines;
    }
};

TEST(RandomMachines, CallAndSayWhatTheModelDoes) {
    std::size_t lines = 0, calls = 0;
    for (unsigned seed = 1; seed <= 60; ++seed) {
        Model model;
        Real real(model, seed);
        Drawn drawn(seed);
        for (unsigned step = 0; step < 500; ++step) {
            const Op op = drawn.op(from_outside);
            const Drawn actions(1000 * seed + step);
            model.acting = {actions, 40};
            real.acting = {actions, 40};
            model.apply(op);
            real.apply(op);
        }
        ASSERT_EQ(real.calls, model.calls) << seed;
        ASSERT_EQ(real.logged(), model.log) << seed;
        EXPECT_EQ((*real.fsm)->GetStateCount(real.fsm), model.states.size() - 1);
        lines += model.log.size();
        calls += model.calls.size();
    }
    EXPECT_GT(lines, 20000u) << "otherwise the draw has become too tame to tell";
    EXPECT_GT(calls, 10000u);
}

} // namespace
