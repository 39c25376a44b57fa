// State machines beside Boost.MSM: events over ten thousand driven items; events by text beside events by number; and
// the inspection of a large machine.
//
// Both sides have the same four states, with an exact rule in each for each of four messages with the value 1: one
// stays, three lead to the other states, and all have an action that counts. What arrives is a number and a value. The
// library looks its rule up; for Boost, whose rules are fixed when it is compiled, a switch chooses the type of event,
// and a guard compares the value. Events come as to a service, any message to any item, and as a processor foresees
// them, one message to the items in turn.
#include <benchmark/benchmark.h>

#include <random>
#include <string>
#include <vector>

#include "tq4/fsm.h"

#ifdef HAVE_BOOST_MSM
#define BOOST_ALLOW_DEPRECATED_HEADERS // its own headers include such, and would say so
#define BOOST_BIND_GLOBAL_PLACEHOLDERS
#include <boost/msm/back/state_machine.hpp>
#include <boost/msm/front/functor_row.hpp>
#include <boost/msm/front/state_machine_def.hpp>
#endif

namespace {

constexpr std::size_t driven = 10000, events = 1 << 16;
constexpr unsigned long messages = 4; // 0 stays, the others lead on so many states
unsigned long handled;

struct Event {
    std::size_t item;
    unsigned long message;
};

std::vector<Event> any_message_to_any_item() {
    std::mt19937 random(1);
    std::vector<Event> load(events);
    for (Event &event : load) event = {random() % driven, random() % messages};
    return load;
}
std::vector<Event> one_message_in_turn(unsigned long message) {
    std::vector<Event> load(driven);
    for (std::size_t i = 0; i < driven; ++i) load[i] = {i, message};
    return load;
}

template <class Drive> void drive(benchmark::State &state, const std::vector<Event> &load, Drive event_to) {
    std::size_t next = 0;
    handled = 0;
    for (auto _ : state) {
        event_to(load[next]);
        if (++next == load.size()) next = 0;
    }
    if (handled != static_cast<unsigned long>(state.iterations())) state.SkipWithError("events were lost");
}

void count(Tq4_fsm_item, const Tq4_fsm_msg *message, Tq4_fsm_state, Tq4_fsm_state, Tq4_fsm_state) {
    handled += static_cast<unsigned long>(message->status);
}

const char *const names[] = {"red", "red and amber", "green", "amber"};
const char *const texts[] = {"stay", "go on", "go opposite", "go back"};

struct Machine {
    Tq4_fsm fsm = static_cast<Tq4_fsm>(Tq4_fsm_oitf->Create(nullptr));
    std::vector<Tq4_fsm_item> items;

    Machine() {
        for (unsigned long from = 0; from < 4; ++from) add_rules(from);
        (*fsm)->SetIntMsgHandle(fsm, messages, 0, nullptr, names[0]); // out of the initial state
        for (std::size_t i = 0; i < driven; ++i) {
            items.push_back(static_cast<Tq4_fsm_item>(Tq4_fsm_item_oitf->Create(nullptr)));
            (*fsm)->HandleIntMsg(fsm, items.back(), messages, 0, nullptr);
        }
    }
    ~Machine() {
        for (Tq4_fsm_item item : items) Tq4_fsm_item_oitf->Delete(item);
        Tq4_fsm_oitf->Delete(fsm);
    }
    void add_rules(unsigned long from) {
        Tq4_fsm_state state = (*fsm)->AddState(fsm, names[from]);
        for (unsigned long message = 0; message < messages; ++message) {
            const char *next = message ? names[(from + message) % 4] : "";
            (*state)->SetIntMsgHandle(state, message, 1, count, next);
            (*state)->SetStrMsgHandle(state, texts[message], 1, count, next);
        }
    }
};

void tq4_number(benchmark::State &state, const std::vector<Event> &load) {
    Machine m;
    drive(state, load,
          [&](Event event) { (*m.fsm)->HandleIntMsg(m.fsm, m.items[event.item], event.message, 1, nullptr); });
}
void tq4_text(benchmark::State &state, const std::vector<Event> &load) {
    Machine m;
    drive(state, load,
          [&](Event event) { (*m.fsm)->HandleStrMsg(m.fsm, m.items[event.item], texts[event.message], 1, nullptr); });
}
BENCHMARK_CAPTURE(tq4_number, any, any_message_to_any_item())->Name("event_any/tq4");
BENCHMARK_CAPTURE(tq4_number, stay, one_message_in_turn(0))->Name("event_stay/tq4");
BENCHMARK_CAPTURE(tq4_number, move, one_message_in_turn(1))->Name("event_move/tq4");
BENCHMARK_CAPTURE(tq4_text, any, any_message_to_any_item())->Name("event_any/tq4_by_text");
BENCHMARK_CAPTURE(tq4_text, stay, one_message_in_turn(0))->Name("event_stay/tq4_by_text");
BENCHMARK_CAPTURE(tq4_text, move, one_message_in_turn(1))->Name("event_move/tq4_by_text");

// A hundred states with a hundred rules each, inspected for the first time and, with all found, again.
struct Large_machine {
    Tq4_fsm fsm = static_cast<Tq4_fsm>(Tq4_fsm_oitf->Create(nullptr));
    Large_machine() {
        for (int from = 0; from < 100; ++from) {
            Tq4_fsm_state state = (*fsm)->AddState(fsm, name(from).c_str());
            for (int to = 0; to < 100; ++to)
                (*state)->SetIntMsgHandle(state, static_cast<unsigned long>(to), 1, count, name(to).c_str());
        }
    }
    ~Large_machine() { Tq4_fsm_oitf->Delete(fsm); }
    static std::string name(int state) { return "state number " + std::to_string(state); }
};

void tq4_inspect(benchmark::State &state) {
    for (auto _ : state) {
        state.PauseTiming();
        auto *m = new Large_machine;
        state.ResumeTiming();
        if ((*m->fsm)->Inspect(m->fsm) != 0) state.SkipWithError("a state is missing");
        state.PauseTiming();
        delete m;
        state.ResumeTiming();
    }
}
BENCHMARK(tq4_inspect)->Name("inspect_10000_rules/tq4")->Unit(benchmark::kMicrosecond);

#ifdef HAVE_BOOST_MSM
namespace msm = boost::msm;

template <unsigned long number> struct Message { long status; };

struct Is_one {
    template <class Event, class... Rest> bool operator()(const Event &event, const Rest &...) const {
        return event.status == 1;
    }
};
struct Count {
    template <class Event, class... Rest> void operator()(const Event &event, const Rest &...) const {
        handled += static_cast<unsigned long>(event.status);
    }
};

struct Lights : msm::front::state_machine_def<Lights> {
    struct Red : msm::front::state<> {};
    struct Red_amber : msm::front::state<> {};
    struct Green : msm::front::state<> {};
    struct Amber : msm::front::state<> {};
    using initial_state = Red;

    template <class From, unsigned long message, class To> using on =
        msm::front::Row<From, Message<message>, To, Count, Is_one>;
    template <class In> using stays = on<In, 0, msm::front::none>;

    using transition_table =
        boost::mpl::vector<stays<Red>, on<Red, 1, Red_amber>, on<Red, 2, Green>, on<Red, 3, Amber>, stays<Red_amber>,
                           on<Red_amber, 1, Green>, on<Red_amber, 2, Amber>, on<Red_amber, 3, Red>, stays<Green>,
                           on<Green, 1, Amber>, on<Green, 2, Red>, on<Green, 3, Red_amber>, stays<Amber>,
                           on<Amber, 1, Red>, on<Amber, 2, Red_amber>, on<Amber, 3, Green>>;
};
using Boost_machine = msm::back::state_machine<Lights>;

void process(Boost_machine &machine, unsigned long message, long value) {
    switch (message) {
    case 0:
        machine.process_event(Message<0>{value});
        break;
    case 1:
        machine.process_event(Message<1>{value});
        break;
    case 2:
        machine.process_event(Message<2>{value});
        break;
    case 3:
        machine.process_event(Message<3>{value});
        break;
    }
}

void boost_event(benchmark::State &state, const std::vector<Event> &load) {
    std::vector<Boost_machine> machines(driven);
    for (Boost_machine &machine : machines) machine.start();
    drive(state, load, [&](Event event) { process(machines[event.item], event.message, 1); });
}
BENCHMARK_CAPTURE(boost_event, any, any_message_to_any_item())->Name("event_any/boost_msm");
BENCHMARK_CAPTURE(boost_event, stay, one_message_in_turn(0))->Name("event_stay/boost_msm");
BENCHMARK_CAPTURE(boost_event, move, one_message_in_turn(1))->Name("event_move/boost_msm");
#endif

} // namespace
