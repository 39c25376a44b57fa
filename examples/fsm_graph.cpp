// fsm_graph: declares a state machine from lines of text, says what the machine's own inspection finds, drives it with
// events from standard input, and prints a Graphviz graph with the path that was taken.
//
//   fsm_graph [OPTION]... FILE
//
// A rule of the file is kept by the machine as a handler would be: the machine's wrapper gets back whatever was set as
// a rule's handler, so that it learns which rule was followed. What the inspection finds is read back from the log that
// it is written to.
#include <fcntl.h>
#include <getopt.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <list>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include <tq4/tq4.h>

#include "object.hpp"

namespace {

const char help[] =
    "Usage: fsm_graph [OPTION]... FILE\n"
    "Declare the state machine in FILE, say on standard error what its inspection finds, drive it with the events on\n"
    "standard input, and print a Graphviz graph of it with the path that was taken.\n"
    "\n"
    "  -o, --output=FILE  draw the graph to FILE, by dot, in the format of its ending; without dot only a note is "
    "made\n"
    "  -h, --help         print this\n"
    "\n"
    "A machine is lines of words:\n"
    "  STATE EVENT VALUE -> NEXT   a rule: in STATE, EVENT with VALUE leads to NEXT\n"
    "  STATE -> NEXT               an unconditional move, made as soon as STATE is entered\n"
    "  STATE                       a state that no rule begins in\n"
    "STATE is a name, - for the initial state, or * for a rule of all states. EVENT is a number or a name, or * for "
    "any\n"
    "that no other rule of the state is for. VALUE is a number, a range LOW..HIGH, or * for any. NEXT is a name, - "
    "for\n"
    "the initial state, or = to stay. Names with a line of their own, or that begin one, are states; to lead to "
    "another\n"
    "is what the inspection finds. Events are lines EVENT [VALUE]; the value is 0 unless given. Empty lines and those\n"
    "that begin with # are skipped.\n"
    "\n"
    "Exit codes: 0 done; 1 a line is malformed, which is named; 2 wrong usage; 3 a file cannot be read or written.\n";

enum Exit { DONE = 0, MALFORMED = 1, USAGE = 2, NO_FILE = 3 };

// What a malformed line is told to be.
struct Malformed {
    std::string what;
};

using Words = std::vector<std::string>;

std::optional<long> number(std::string_view text) {
    const bool negative = text.starts_with('-'), hex = text.substr(negative).starts_with("0x");
    const std::string_view digits = text.substr(negative + 2 * hex);
    unsigned long value = 0;
    const auto [end, error] = std::from_chars(digits.begin(), digits.end(), value, hex ? 16 : 10);
    if (digits.empty() || error != std::errc() || end != digits.end()) return std::nullopt;
    return static_cast<long>(negative ? -value : value);
}

// One rule of the file, with the events (counted from 1) that it was followed for.
struct Rule {
    std::string state, event, value, next;
    struct Step {
        unsigned event;
        std::string from, to;
    };
    std::vector<Step> steps;

    bool forced() const { return event.empty(); }
    bool for_all_states() const { return state == "*"; }
    std::string label() const { return forced() ? "always" : event + (value == "*" ? "" : " " + value); }
};

// --- The machine ---

class Machine {
public:
    Machine() { m_fsm->SetCPPHandler(m_fsm, followed); }

    // One line of the file.
    void declare(const Words &words) {
        if (words.size() == 1) return declare_state(words[0]);
        if (words.size() != 3 && words.size() != 5) throw Malformed{"neither a state nor a rule"};
        if (words[words.size() - 2] != "->") throw Malformed{"a rule without ->"};
        declare_state(words[0]);
        if (words.size() == 3)
            add_force_rule({words[0], "", "", words[2]});
        else
            add_rule({words[0], words[1], words[2], words[4]});
    }

    // What the machine itself finds wrong.
    Words inspect() {
        std::string directory = std::filesystem::temp_directory_path() / "fsm_graph_XXXXXX";
        if (!mkdtemp(directory.data())) return {std::string("no directory for the log: ") + std::strerror(errno)};
        const Object<Tq4_log> log(Tq4_log_oitf);
        log->MainDir(log, directory.c_str());
        m_fsm->SetLog(m_fsm, log);
        m_fsm->Inspect(m_fsm);
        m_fsm->SetLog(m_fsm, nullptr);
        Words found;
        for (const auto &entry : std::filesystem::recursive_directory_iterator(directory))
            if (entry.is_regular_file()) add_lines(found, entry.path());
        std::filesystem::remove_all(directory);
        return found;
    }

    // One line of events. False when the machine had nothing to do for it.
    bool drive(const Words &words) {
        if (words.size() > 2) throw Malformed{"more than an event and a value"};
        const std::optional<long> value = words.size() == 2 ? number(words[1]) : 0;
        if (!value) throw Malformed{"not a value: " + words[1]};
        ++m_events;
        m_followed = false;
        if (const std::optional<long> message = number(words[0]))
            m_fsm->HandleIntMsg(m_fsm, m_item, static_cast<unsigned long>(*message), *value, this);
        else
            m_fsm->HandleStrMsg(m_fsm, m_item, words[0].c_str(), *value, this);
        return m_followed;
    }

    const std::list<Rule> &rules() const { return m_rules; }
    const Words &states() const { return m_states; }
    const std::string &current() const { return m_current; }
    unsigned events() const { return m_events; }
    bool has_state(const std::string &name) const { return std::count(m_states.begin(), m_states.end(), name) > 0; }

private:
    static void add_lines(Words &lines, const std::filesystem::path &path) {
        std::ifstream file(path);
        for (std::string line; std::getline(file, line);) lines.push_back(line.substr(line.find("] ") + 2));
    }
    static const char *name_of_next(const std::string &next) {
        return next == "-" ? nullptr : next == "=" ? "" : next.c_str();
    }
    Tq4_fsm_state state(const std::string &name) const {
        return m_fsm->AddState(m_fsm, name == "-" ? nullptr : name.c_str());
    }
    void declare_state(const std::string &name) {
        if (name == "=" || name == "->") throw Malformed{"not a state: " + name};
        if (name != "*" && !has_state(name)) state(name), m_states.push_back(name);
    }
    // The rule as a handler.
    static Tq4_fsm_handler handler(Rule &rule) { return reinterpret_cast<Tq4_fsm_handler>(&rule); }

    void add_force_rule(const Rule &given) {
        if (given.for_all_states()) throw Malformed{"an unconditional move is of one state"};
        Rule &rule = m_rules.emplace_back(given);
        const Tq4_fsm_state in = state(rule.state);
        (*in)->SetForceState(in, name_of_next(rule.next), handler(rule));
    }
    void add_rule(const Rule &given) {
        Rule &rule = m_rules.emplace_back(given);
        if (rule.event == "*") return add_unexpected_rule(rule);
        if (rule.for_all_states()) return set(static_cast<Tq4_fsm>(m_fsm), rule);
        set(state(rule.state), rule);
    }
    void add_unexpected_rule(Rule &rule) {
        if (rule.for_all_states() || rule.value != "*")
            throw Malformed{"* for any other event is of one state, and for any value"};
        const Tq4_fsm_state in = state(rule.state);
        (*in)->SetUnExceptEventHandle(in, handler(rule), name_of_next(rule.next));
    }
    // A machine and its states take rules for events alike.
    template <class On> void set(On on, Rule &rule) {
        const char *name = rule.event.c_str(), *next = name_of_next(rule.next);
        const std::size_t dots = rule.value.find("..");
        const std::optional<long> message = number(rule.event), low = number(rule.value.substr(0, dots)),
                                  high = dots == rule.value.npos ? low : number(rule.value.substr(dots + 2));
        const auto code = static_cast<unsigned long>(message.value_or(0));
        if (rule.value == "*")
            message ? (*on)->SetIntMsgHandleDefault(on, code, handler(rule), next)
                    : (*on)->SetStrMsgHandleDefault(on, name, handler(rule), next);
        else if (!low || !high)
            throw Malformed{"not a value or a range: " + rule.value};
        else if (dots == rule.value.npos)
            message ? (*on)->SetIntMsgHandle(on, code, *low, handler(rule), next)
                    : (*on)->SetStrMsgHandle(on, name, *low, handler(rule), next);
        else
            message ? (*on)->SetIntMsgHandleRange(on, code, *low, *high, handler(rule), next)
                    : (*on)->SetStrMsgHandleRange(on, name, *low, *high, handler(rule), next);
    }

    static std::string shown(Tq4_fsm_state state) {
        const std::string name = (*state)->Name(state);
        return name.empty() ? "-" : name;
    }
    static void followed(Tq4_fsm_handler handler, void *, Tq4_fsm_item, const Tq4_fsm_msg *message, Tq4_fsm_state,
                         Tq4_fsm_state now, Tq4_fsm_state next) {
        auto *machine = static_cast<Machine *>(message->params);
        machine->m_followed = true;
        machine->m_current = shown(next ? next : now);
        reinterpret_cast<Rule *>(handler)->steps.push_back({machine->m_events, shown(now), machine->m_current});
    }

    std::list<Rule> m_rules; // their addresses stay
    Words m_states{"-"};
    std::string m_current = "-";
    unsigned m_events = 0;
    bool m_followed = false;
    const Object<Tq4_fsm> m_fsm{Tq4_fsm_oitf};
    const Object<Tq4_fsm_item> m_item{Tq4_fsm_item_oitf};
};

// --- The graph ---

std::string quoted(const std::string &text) {
    std::string out = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') out += '\\';
        out += c;
    }
    return out + "\"";
}

// The numbers of the first events that took an edge.
std::string steps_text(const std::vector<unsigned> &events) {
    constexpr std::size_t most = 8;
    std::string text;
    for (std::size_t i = 0; i < std::min(events.size(), most); ++i) text += (i ? ", " : "") + std::to_string(events[i]);
    return events.size() > most ? text + ", ..." : text;
}

std::string edge(const std::string &from, const std::string &to, const std::string &label, const std::string &style,
                 const std::vector<unsigned> &events) {
    std::string text = quoted(label);
    if (!events.empty()) text.insert(text.size() - 1, "\\n" + steps_text(events));
    return "    " + quoted(from) + " -> " + quoted(to) + " [label=" + text + style +
           (events.empty() ? "" : ", color=red, fontcolor=red, penwidth=2") + "];\n";
}

std::string edges(const Rule &rule) {
    const std::string style = rule.forced() ? ", style=dotted" : rule.for_all_states() ? ", style=dashed" : "";
    const std::string to = rule.next == "=" ? rule.state : rule.next;
    std::map<std::pair<std::string, std::string>, std::vector<unsigned>> taken; // by what it led from and to
    for (const Rule::Step &step : rule.steps) taken[{step.from, step.to}].push_back(step.event);
    std::string text;
    if (rule.for_all_states() || taken.empty()) text += edge(rule.state, to, rule.label(), style, {});
    for (const auto &[ends, events] : taken) text += edge(ends.first, ends.second, rule.label(), style, events);
    return text;
}

std::string nodes(const Machine &machine) {
    std::string text;
    for (const std::string &state : machine.states()) {
        const bool initial = state == "-", current = state == machine.current();
        text += "    " + quoted(state) + " [" +
                (initial ? "label=\"\", shape=circle, width=0.3" : "label=" + quoted(state)) +
                (current ? ", style=\"rounded,filled\", fillcolor=lightyellow, color=red" : "") + "];\n";
    }
    bool for_all = false;
    for (const Rule &rule : machine.rules()) {
        for_all |= rule.for_all_states();
        const bool known = rule.next == "=" || machine.has_state(rule.next);
        if (!known) text += "    " + quoted(rule.next) + " [label=" + quoted(rule.next + "?") + ", style=dotted];\n";
    }
    return for_all ? text + "    \"*\" [label=\"any state\", style=\"rounded,dashed\"];\n" : text;
}

std::string graph(const Machine &machine) {
    std::string text = "digraph machine {\n    rankdir=LR;\n    node [shape=box, style=rounded];\n" + nodes(machine);
    for (const Rule &rule : machine.rules()) text += edges(rule);
    return text + "}\n";
}

// Draws by dot. False, with a message, when it is there and fails.
bool draw(const std::string &text, const std::string &file) {
    const std::string ending = std::filesystem::path(file).extension();
    std::string format = "-T" + (ending.empty() ? "svg" : ending.substr(1)), output = "-o" + file, program = "dot";
    char *const arguments[] = {program.data(), format.data(), output.data(), nullptr};
    int ends[2];
    pid_t dot;
    if (pipe2(ends, O_CLOEXEC) != 0) return std::perror("fsm_graph: pipe"), false;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[0], STDIN_FILENO);
    const int error = posix_spawnp(&dot, "dot", &actions, nullptr, arguments, environ);
    posix_spawn_file_actions_destroy(&actions);
    close(ends[0]);
    std::signal(SIGPIPE, SIG_IGN);
    FILE *to_dot = fdopen(ends[1], "w");
    if (!error) std::fputs(text.c_str(), to_dot);
    std::fclose(to_dot);
    if (error == ENOENT) return std::fprintf(stderr, "fsm_graph: dot is not installed: no %s\n", file.c_str()), true;
    int status = 0;
    if (!error && waitpid(dot, &status, 0) == dot && status == 0) return true;
    return std::fprintf(stderr, "fsm_graph: dot cannot draw %s\n", file.c_str()), false;
}

// --- The program ---

// Gives each line with words to use, with its number; names the one that is malformed. False then.
template <class Use> bool for_each_line(std::istream &in, const char *name, Use use) {
    unsigned at = 0;
    for (std::string line; ++at, std::getline(in, line);) {
        std::istringstream split(line);
        Words words;
        for (std::string word; split >> word;) words.push_back(word);
        if (words.empty() || words[0][0] == '#') continue;
        try {
            use(words, at);
        } catch (const Malformed &malformed) {
            return std::fprintf(stderr, "fsm_graph: %s:%u: %s\n", name, at, malformed.what.c_str()), false;
        }
    }
    return true;
}

int run(const char *path, const char *output) {
    std::ifstream file(path);
    if (!file) return std::fprintf(stderr, "fsm_graph: %s: %s\n", path, std::strerror(errno)), NO_FILE;
    Machine machine;
    if (!for_each_line(file, path, [&](const Words &words, unsigned) { machine.declare(words); })) return MALFORMED;
    for (const std::string &finding : machine.inspect()) std::fprintf(stderr, "fsm_graph: %s\n", finding.c_str());
    const auto drive = [&](const Words &words, unsigned at) {
        if (!machine.drive(words))
            std::fprintf(stderr, "fsm_graph: -:%u: nothing happens in state %s\n", at, machine.current().c_str());
    };
    if (!for_each_line(std::cin, "-", drive)) return MALFORMED;
    std::fprintf(stderr, "fsm_graph: %u events, ends in state %s\n", machine.events(), machine.current().c_str());
    const std::string text = graph(machine);
    std::fputs(text.c_str(), stdout);
    return !output || draw(text, output) ? DONE : NO_FILE;
}

} // namespace

int main(int argc, char **argv) {
    static const option long_options[] = {
        {"output", required_argument, nullptr, 'o'}, {"help", no_argument, nullptr, 'h'}, {}};
    const char *output = nullptr;
    for (int letter; (letter = getopt_long(argc, argv, "o:h", long_options, nullptr)) != -1;) {
        if (letter == 'h') return std::fputs(help, stdout), DONE;
        if (letter != 'o') return std::fputs("fsm_graph: no such option; see fsm_graph --help\n", stderr), USAGE;
        output = optarg;
    }
    if (optind + 1 != argc) return std::fputs("fsm_graph: one machine; see fsm_graph --help\n", stderr), USAGE;
    return run(argv[optind], output);
}
