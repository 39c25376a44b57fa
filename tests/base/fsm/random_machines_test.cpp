// Random machines do what the model of model.hpp does, and say it in the same words. Rules, states and looks at the
// whole machine come between events; handlers drive their own item and others, set rules, and reset items. Handlers are
// numbers to a wrapper, which keeps them in the machine as a host would keep member functions.
#include "model.hpp"

namespace {

using namespace fsm_model;

constexpr int items = 3;
constexpr int most_actions = 40; // of handlers, in answer to one event from outside: they may go in circles

// What is drawn from.
const std::vector<Next> names = {{}, "", "甲", "b", "%s%n", std::string(40, 'c'), "never added"};
const std::vector<std::optional<std::string>> messages = {{}, {}, "x", "%n%s"};
const unsigned long numbers[] = {0, 1, 0x123400000001};
const long values[] = {-2, -1, 0, 0, 1, 1, 2, LONG_MIN, LONG_MAX};

class Drawn {
public:
    explicit Drawn(unsigned seed) : m_random(seed) {}
    template <class List> auto &one_of(const List &list) { return list[below(std::size(list))]; }
    unsigned long below(unsigned long n) { return m_random() % n; }
    long handler() { return below(3) ? 1 + static_cast<long>(below(40)) : nobody; }
    Event event() {
        Event e{.text = one_of(messages), .value = one_of(values)};
        if (!e.text) e.number = one_of(numbers);
        return e;
    }
    Rule rule(int states) {
        Event e = event();
        const auto kind = static_cast<Rule::Kind>(one_of(std::vector{0, 0, 0, 1, 1, 2, 2, 3, 4}));
        const long value = std::exchange(e.value, 0), other = one_of(values);
        const bool is_event = kind < Rule::fallback;
        Rule rule{kind, e, value, kind == Rule::exact ? value : other, handler(), one_of(names), 0};
        if (!is_event) rule.low = 1, rule.high = 0;
        // Only a state has the last two kinds.
        rule.in = static_cast<int>(below(static_cast<unsigned long>(states)));
        if (kind >= Rule::unexpected && rule.in == Machine::everywhere) rule.in = 1;
        return rule;
    }

private:
    std::mt19937 m_random;
};

// The machine and its model side by side.
class Both {
public:
    Machine model;

    explicit Both(unsigned seed) : m_drawn(seed), m_action_seed(seed) {
        current = this;
        (*m_log)->Init(m_log.get(), "fsm", -1);
        (*m_log)->MainDir(m_log.get(), m_directory.path().c_str());
        (*m_fsm)->SetLog(m_fsm.get(), m_log.get());
        (*m_fsm)->SetCPPHandler(m_fsm.get(), called);
        model.act = [this](long handler, int item) { act(m_model_actions, handler, item, model_side()); };
        for (int i = 0; i < items; ++i) {
            const Tq4_id id{static_cast<uint32_t>(seed), static_cast<uint32_t>(i)};
            if (i) Tq4_object_SetId(m_items[i].get(), &id); // the first has none
            char shown[64];
            std::snprintf(shown, sizeof shown, "[0x%08x:%08x]", i ? id.h : 0, id.l);
            model.items.push_back({shown});
        }
    }
    ~Both() { current = nullptr; }

    void step() {
        switch (m_drawn.below(12)) {
        case 0:
            return add_state();
        case 1:
        case 2:
            return set(m_drawn.rule(static_cast<int>(model.states.size())));
        case 3:
            return set_handlers();
        case 4:
            if (m_drawn.below(8) == 0) inspect();
            return;
        default:
            event();
        }
    }
    Texts calls;
    Texts log_lines() const {
        Texts lines;
        std::vector<fs::path> files;
        for (const auto &file : fs::recursive_directory_iterator(m_directory.path()))
            if (file.is_regular_file()) files.push_back(file.path());
        std::sort(files.begin(), files.end());
        for (const fs::path &path : files) {
            std::ifstream file(path);
            for (std::string line; std::getline(file, line);) lines.push_back(line.substr(line.find("] ") + 2));
        }
        return lines;
    }

private:
    // What a handler does, on either side: nothing, mostly.
    struct Side {
        std::function<void(int item, const Event &)> drive;
        std::function<void(int item)> reset;
    };
    struct Actions {
        Drawn drawn{0};
        int left = 0;
    };
    Side model_side() {
        return {[this](int item, const Event &e) { model.drive(item, e); }, [this](int item) { model.reset(item); }};
    }
    Side real_side() {
        return {[this](int item, const Event &e) { drive(item, e); },
                [this](int item) { Tq4_fsm_item_oitf->Reset(m_items[item].get()); }};
    }
    static void act(Actions &actions, long handler, int item, const Side &side) {
        if (--actions.left < 0) return;
        const int other = static_cast<int>(actions.drawn.below(items));
        if (handler % 8 == 0) side.drive(item, actions.drawn.event()), side.drive(item, actions.drawn.event());
        if (handler % 8 == 1) side.drive(other, actions.drawn.event());
        if (handler % 40 == 7) side.reset(other);
        if (handler % 40 == 15) side.reset(item), side.drive(item, actions.drawn.event());
    }

    static void called(Tq4_fsm_handler handler, void *context, Tq4_fsm_item item, const Tq4_fsm_msg *message,
                       Tq4_fsm_state previous, Tq4_fsm_state now, Tq4_fsm_state next) {
        EXPECT_EQ(context, nullptr);
        current->call(reinterpret_cast<long>(handler), item, *message, {previous, now, next});
    }
    void call(long handler, Tq4_fsm_item item, const Tq4_fsm_msg &message, std::initializer_list<Tq4_fsm_state> three) {
        int which = 0;
        while (m_items[which].get() != item) ++which;
        Event event{.number = message.iMsg, .value = message.status};
        if (message.sMsg) event.text = message.sMsg;
        std::string line = std::to_string(handler) + " item " + std::to_string(which) + " " + event.shown(false) + " ";
        for (Tq4_fsm_state state : three) line += state ? "(" + std::string((*state)->Name(state)) + ")" : "null";
        calls.push_back(line);
        EXPECT_EQ(message.params, this);
        act(m_actions, handler, which, real_side());
    }
    static Tq4_fsm_handler registered(long handler) { return reinterpret_cast<Tq4_fsm_handler>(handler); }
    static const char *text(const Next &name) { return name ? name->c_str() : nullptr; }
    Tq4_fsm_state state(int at) { return (*m_fsm)->GetState(m_fsm.get(), at > 1 ? model.shown(at).c_str() : nullptr); }

    void drive(int item, const Event &e) {
        const Tq4_fsm_item driven = m_items[item].get();
        if (e.text) {
            const std::string borrowed = *e.text; // gone when the call returns
            (*m_fsm)->HandleStrMsg(m_fsm.get(), driven, borrowed.c_str(), e.value, this);
        } else {
            (*m_fsm)->HandleIntMsg(m_fsm.get(), driven, e.number, e.value, this);
        }
    }
    void event() {
        const int item = static_cast<int>(m_drawn.below(items));
        const Event e = m_drawn.event();
        m_actions = m_model_actions = {Drawn(++m_action_seed), most_actions};
        drive(item, e);
        model.drive(item, e);
    }
    void add_state() {
        const Next &name = names[m_drawn.below(names.size() - 1)];
        const Tq4_fsm_state added = (*m_fsm)->AddState(m_fsm.get(), text(name));
        EXPECT_EQ(added != nullptr, (name ? model.add_state(*name) : 1) != nowhere);
        EXPECT_EQ(added, (*m_fsm)->GetState(m_fsm.get(), text(name)));
        EXPECT_EQ((*m_fsm)->GetStateCount(m_fsm.get()), model.states.size() - 1);
    }
    void inspect() { EXPECT_EQ((*m_fsm)->Inspect(m_fsm.get()), model.inspect()); }
    void set_handlers() {
        const int at = 1 + static_cast<int>(m_drawn.below(model.states.size() - 1));
        State &known = model.states[static_cast<std::size_t>(at)];
        const Tq4_fsm_state s = state(at);
        (*s)->SetStateEnterHandler(s, registered(known.enter = m_drawn.handler()));
        (*s)->SetStateExitHandler(s, registered(known.exit = m_drawn.handler()));
        known.clean = m_drawn.below(4) ? nobody : m_drawn.handler();
        (*s)->SetStateCleanHandler(s, registered(known.clean));
    }
    void set(const Rule &rule) {
        model.set(rule);
        if (rule.in == Machine::everywhere) return set_on(m_fsm.get(), rule);
        const Tq4_fsm_state s = state(rule.in);
        const Tq4_fsm_handler handler = registered(rule.handler);
        if (rule.kind == Rule::unexpected) return (*s)->SetUnExceptEventHandle(s, handler, text(rule.next));
        if (rule.kind == Rule::force) return (*s)->SetForceState(s, text(rule.next), handler);
        set_on(s, rule);
    }
    // The operations that machines and states have alike.
    template <class Handle> void set_on(Handle on, const Rule &r) {
        const Tq4_fsm_handler handler = registered(r.handler);
        const char *next = text(r.next), *message = r.event.text ? r.event.text->c_str() : nullptr;
        switch (r.kind) {
        case Rule::exact:
            return message ? (*on)->SetStrMsgHandle(on, message, r.low, handler, next)
                           : (*on)->SetIntMsgHandle(on, r.event.number, r.low, handler, next);
        case Rule::range:
            return message ? (*on)->SetStrMsgHandleRange(on, message, r.low, r.high, handler, next)
                           : (*on)->SetIntMsgHandleRange(on, r.event.number, r.low, r.high, handler, next);
        default:
            return message ? (*on)->SetStrMsgHandleDefault(on, message, handler, next)
                           : (*on)->SetIntMsgHandleDefault(on, r.event.number, handler, next);
        }
    }

    static inline Both *current = nullptr;
    Temp_dir m_directory;
    Tq4_own<Tq4_log> m_log = Tq4_make<Tq4_log>(Tq4_log_oitf);
    Tq4_own<Tq4_fsm> m_fsm = Tq4_make<Tq4_fsm>(Tq4_fsm_oitf);
    std::vector<Tq4_own<Tq4_fsm_item>> m_items = [] {
        std::vector<Tq4_own<Tq4_fsm_item>> made;
        for (int i = 0; i < items; ++i) made.push_back(Tq4_make<Tq4_fsm_item>(Tq4_fsm_item_oitf));
        return made;
    }();
    Drawn m_drawn;
    unsigned m_action_seed;
    Actions m_actions, m_model_actions;
};

TEST(RandomMachines, CallAndSayWhatTheModelDoes) {
    std::size_t lines = 0, calls = 0;
    for (unsigned seed = 1; seed <= 60; ++seed) {
        Both both(seed);
        for (int i = 0; i < 400; ++i) both.step();
        ASSERT_EQ(both.calls, both.model.calls) << seed;
        ASSERT_EQ(both.log_lines(), both.model.log) << seed;
        lines += both.model.log.size();
        calls += both.calls.size();
    }
    EXPECT_GT(lines, 20000u); // otherwise the draw has become too tame to tell
    EXPECT_GT(calls, 10000u);
}

} // namespace
