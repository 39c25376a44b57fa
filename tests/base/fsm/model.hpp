// model.hpp: machines told a second time: rules in one list, searched from the beginning, and nothing remembered but
// what a machine is said to remember.
#pragma once

#include <optional>

#include "support/test.hpp"

namespace fsm_model {

using Next = std::optional<std::string>; // none: the initial state; "": stay
constexpr int nowhere = -1;              // no state
constexpr long nobody = 0;               // no handler

struct Event {
    std::optional<std::string> text;
    unsigned long number = 0;
    long value = 0;

    std::string shown(bool low_half) const {
        char hex[32];
        std::snprintf(hex, sizeof hex, "0x%08lx", low_half ? number & 0xffffffff : number);
        return (text ? *text : hex) + ":" + std::to_string(value);
    }
};

struct Rule {
    enum Kind { exact, range, fallback, unexpected, force } kind;
    Event event; // without its value
    long low, high;
    long handler;
    Next next;
    int in; // the state it is set on
    enum { unknown, found, missing } search = unknown;
    int target = nowhere; // also when it leads to its own state

    bool for_message(const Event &e) const { return event.text == e.text && event.number == e.number; }
    bool holds(const Event &e) const { return for_message(e) && low <= e.value && e.value <= high; }
    // As the report of a missing state writes it.
    std::string shown() const {
        if (kind == force) return "无条件转移";
        if (kind == unexpected) return "UnExceptEvent";
        char hex[32];
        std::snprintf(hex, sizeof hex, "0x%lx", event.number);
        const std::string message = event.text ? *event.text : hex, from = std::to_string(low);
        if (low == high) return message + ":" + from;
        return low > high ? message : message + ":[" + from + "," + std::to_string(high) + "]";
    }
};

struct State {
    std::string name;
    long enter = nobody, exit = nobody, clean = nobody;
};

struct Item {
    std::string id;
    int previous = nowhere, current = nowhere;
    bool busy = false;
    int lives = 0; // resets
    std::optional<Event> deferred;
};

struct Machine {
    static constexpr int everywhere = 0; // the place of rules for all states; states follow it
    std::vector<State> states{{"<all>"}, {""}};
    std::vector<Rule> rules;
    std::vector<Item> items;
    Texts log, calls;
    std::function<void(long handler, int item)> act; // what a handler does besides being called

    int place(const Next &name) const {
        if (!name) return 1;
        for (int i = 2; i < static_cast<int>(states.size()); ++i)
            if (states[static_cast<std::size_t>(i)].name == *name) return i;
        return nowhere;
    }
    int add_state(const std::string &name) {
        if (place(name) == nowhere && !name.empty()) states.push_back({name});
        return place(name);
    }
    void set(Rule rule) {
        if (rule.kind == Rule::unexpected || rule.kind == Rule::force)
            std::erase_if(rules, [&](const Rule &r) { return r.in == rule.in && r.kind == rule.kind; });
        if (rule.kind != Rule::unexpected || rule.handler != nobody) rules.push_back(rule);
    }

    bool find_target(Rule &rule) {
        if (rule.search == Rule::unknown && rule.next != "") {
            const int target = place(rule.next);
            rule.search = target == nowhere ? Rule::missing : Rule::found;
            rule.target = target == rule.in ? nowhere : target;
        }
        return rule.search != Rule::missing;
    }

    template <class Match> Rule *first(int in, Match match) {
        for (Rule &rule : rules)
            if (rule.in == in && match(rule)) return &rule;
        return nullptr;
    }
    template <class Match> Rule *last(int in, Match match) {
        Rule *found = nullptr;
        for (Rule &rule : rules)
            if (rule.in == in && match(rule)) found = &rule;
        return found;
    }
    Rule *rule_for(int in, const Event &e) {
        Rule *rule = last(in, [&](const Rule &r) { return r.kind == Rule::exact && r.holds(e); });
        if (!rule) rule = first(in, [&](const Rule &r) { return r.kind == Rule::range && r.holds(e); });
        if (!rule) rule = last(in, [&](const Rule &r) { return r.kind == Rule::fallback && r.for_message(e); });
        return rule ? rule : first(in, [](const Rule &r) { return r.kind == Rule::unexpected; });
    }

    void drive(int which, const Event &event) {
        Item &item = items[static_cast<std::size_t>(which)];
        if (item.busy) {
            item.deferred = event;
            return;
        }
        item.busy = true;
        const int life = item.lives;
        for (std::optional<Event> now = event; now; now = std::exchange(item.deferred, {})) {
            One{*this, which, life, *now}.run();
            if (item.lives != life) return;
        }
        item.busy = false;
    }
    void reset(int which) {
        Item &item = items[static_cast<std::size_t>(which)];
        item = {"[0x00000000:00000000]", nowhere, nowhere, false, item.lives + 1, {}};
    }

    int inspect() {
        int result = 0;
        std::vector<int> order;
        for (int i = 1; i < static_cast<int>(states.size()); ++i) order.push_back(i);
        order.push_back(everywhere);
        constexpr int groups[] = {0, 1, 0, 3, 2}; // by kind: those by value, ranges, force, unexpected
        for (int in : order)
            for (int group : {0, 1, 2, 3})
                for (Rule &rule : rules)
                    if (rule.in == in && groups[rule.kind] == group && !find_target(rule)) {
                        log.push_back(shown(in) + " ----(" + rule.shown() + ")--->" + *rule.next +
                                      "(该转移状态不存在)");
                        result |= 1;
                    }
        for (int i = 2; i < static_cast<int>(states.size()); ++i)
            if (std::none_of(rules.begin(), rules.end(), [&](const Rule &rule) { return rule.target == i; })) {
                log.push_back(shown(i) + "定义后未被实际引用，可能是个潜在错误");
                result |= 2;
            }
        return result;
    }

    std::string shown(int state) const {
        return state == everywhere ? "" : states[static_cast<std::size_t>(state)].name;
    }

    // One event of one item; each step says whether there is another.
    struct One {
        Machine &m;
        int which, life;
        Event event;

        Item &item() { return m.items[static_cast<std::size_t>(which)]; }
        State &state(int at) { return m.states[static_cast<std::size_t>(at)]; }
        void say(const std::string &line) { m.log.push_back(item().id + " " + line); }

        bool call(long handler, int next) {
            if (handler == nobody) return true;
            const auto name = [&](int at) { return at == nowhere ? "null" : "(" + m.shown(at) + ")"; };
            m.calls.push_back(std::to_string(handler) + " item " + std::to_string(which) + " " + event.shown(false) +
                              " " + name(item().previous) + name(item().current) + name(next));
            m.act(handler, which);
            return item().lives == life;
        }
        bool arrive(int next) {
            if (!call(state(item().current).enter, next)) return false;
            const long clean = state(item().current).clean;
            return clean == nobody || (call(clean, next), false);
        }
        bool move(int next) {
            item().previous = item().current;
            item().current = next;
            return arrive(next);
        }
        void run() {
            if (item().current == nowhere) {
                item().current = 1;
                if (!arrive(nowhere)) return;
            }
            const std::string received = "在状态(" + m.shown(item().current) + "),收到事件(";
            say(received + event.shown(false) + ")");
            Rule *rule = m.rule_for(item().current, event);
            if (!rule) rule = m.rule_for(everywhere, event);
            if (!rule) return say(received + event.shown(true) + "),没有对应处理规则，事件被丢弃");
            if (!m.find_target(*rule))
                return say(received + event.shown(true) + "),规则错误，没有找到对应的下一状态(" + *rule->next + ")");
            const int from = item().current, next = rule->target == from ? nowhere : rule->target;
            if (!call(rule->handler, next) || next == nowhere || !call(state(from).exit, next)) return;
            say("状态迁移(" + m.shown(from) + ")---(" + event.shown(true) + ")-->" + (event.text ? " (" : "(") +
                m.shown(next) + ")");
            if (!move(next)) return;
            for (int moves = 0; moves < 3; ++moves)
                if (!forced()) return;
        }
        bool forced() {
            const int from = item().current;
            Rule *rule = m.first(from, [](const Rule &r) { return r.kind == Rule::force; });
            if (!rule) return false;
            if (!m.find_target(*rule)) {
                say("在状态(" + m.shown(from) + ")下无条件前转设置错误：没有找到(" + *rule->next + ")状态");
                return false;
            }
            const int next = rule->target;
            if (next == nowhere) return false;
            const long handler = rule->handler;
            if (!call(state(from).exit, next) || !call(handler, next)) return false;
            say("状态被无条件迁移(" + m.shown(from) + ")----->(" + m.shown(next) + ")");
            return move(next);
        }
    };
};

} // namespace fsm_model
