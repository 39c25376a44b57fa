// service: the program that the tests of the console run. It appends what happens to it to the file that TRACE in the
// environment names.
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <string>
#include <sys/time.h>
#include <sys/wait.h>
#include <thread>
#include <tuple>
#include <unistd.h>

#include <tq4/tq4.h>

namespace {

void print(const std::string &line) { Tq4_debug_api->Printf(0, "%s\n", line.c_str()); }

void trace(const std::string &event) {
    if (const char *path = std::getenv("TRACE")) std::ofstream(path, std::ios::app) << event << "\n";
}

// Every option with its values.
std::string arguments() {
    int at = 0;
    std::string text;
    const char *name = "", *value;
    do {
        text += name;
        while (Tq4_app->ArgV(&at, &value)) text += std::string(" = ") + value;
        text += ";";
    } while (Tq4_app->ArgK(&at, &name));
    return text;
}

bool has_option(const std::string &name) { return arguments().find(";" + name + ";") != std::string::npos; }

void interrupt_often() {
    std::signal(SIGALRM, [](int) {});
    const itimerval often{{0, 100000}, {0, 100000}};
    setitimer(ITIMER_REAL, &often, nullptr);
}

int start(int argc, char **) {
    trace("start " + std::to_string(argc));
    if (has_option("--alarm")) interrupt_often();
    for (const char *name : {"first", "second"})
        Tq4_app->Register(name, const_cast<char *>(name),
                          [](void *object) { trace("delete " + std::string(static_cast<char *>(object))); });
    return !has_option("--refuse");
}

void flood(const char *rest) {
    for (long lines = std::atol(rest); lines > 0; --lines) print(std::string(1000, 'x'));
}

void flood_stdio(const char *rest) {
    for (long lines = std::atol(rest); lines > 0; --lines) std::puts(std::string(100, 'x').c_str());
}

void print_aside(const char *rest) {
    std::thread([size = std::atol(rest)] {
        print(std::string(static_cast<std::size_t>(size), 'x'));
        trace("printed");
    }).detach();
}

// A process that has what this one has open, until it is killed.
void start_heir() {
    const pid_t heir = fork();
    if (heir == 0) {
        std::signal(SIGTERM, SIG_DFL);
        for (;;) pause();
    }
    trace("heir " + std::to_string(heir));
}

void worker(const char *) {
    const pid_t child = fork();
    if (child == 0) std::exit(0); // with everything that is registered for a process's end
    waitpid(child, nullptr, 0);
    print("worked");
}

void find(const char *rest) {
    const auto object = static_cast<const char *>(Tq4_app->Find(rest));
    print(object ? object : "nothing");
}

std::thread raw_writer;

void write_raw() {
    raw_writer = std::thread([block = std::string(10000, 'x')] {
        while (write(STDOUT_FILENO, block.data(), block.size()) > 0) continue;
    });
}

void stop() {
    if (raw_writer.joinable()) raw_writer.join();
    for (int standard = 0; standard < 3; ++standard)
        if (fcntl(standard, F_GETFD) < 0) trace("descriptor " + std::to_string(standard) + " is closed");
    trace("stop");
    if (has_option("--heir")) start_heir();
    const char *hold = std::getenv("HOLD"); // stopping takes as long as this file exists
    while (hold && access(hold, F_OK) == 0) usleep(1000);
}

void reload() {
    trace("reload");
    if (!has_option("--use")) return;
    trace("used up");
    while (dup(0) >= 0) continue;
}

// The thread sanitizer makes a thread's record of signals when that first waits or gets one. Those that come meanwhile
// are noted in a second record, which is lost (gcc 12). So the program makes it early; its daemon inherits it.
void let_sanitizer_record_signals() { usleep(0); }

} // namespace

int main(int argc, char **argv) {
    let_sanitizer_record_signals();
    Tq4_app->SetInfo("1.2", "today", "测试");
    const std::tuple<const char *, const char *, void (*)(const char *), const char *> commands[] = {
        {"echo", "e", [](const char *rest) { print(rest); }, "print the rest"},
        {"stdio", nullptr, [](const char *rest) { std::fputs(rest, stdout); }, "print by the C library"},
        {"which", "echo", [](const char *) { print("the shortcut"); }, "has a name for a shortcut"},
        {"pid", "p", [](const char *) { print(std::to_string(getpid())); }, "this process"},
        {"arguments", "a", [](const char *) { print(arguments()); }, "the command line"},
        {"flood", "", flood, "print many lines"},
        {"worker", nullptr, worker, "a process for a moment"},
        {"printf", nullptr, flood_stdio, "print many lines by the C library"},
        {"aside", nullptr, print_aside, "print on a thread"},
        {"heir", nullptr, [](const char *) { start_heir(); }, "a process that stays"},
        {"raw", nullptr, [](const char *) { write_raw(); }, "write by the system on a thread"},
        {"stop", "st", [](const char *) { print("not stopped"); }, "refused: it is the frame's"},
        {"halt", "stop", [](const char *) { print("not stopped"); }, "refused: so is the word"},
        {"again", "old", [](const char *) { print("old"); }, "replaced"},
        {"again", "new", [](const char *) { print("new"); }, "in place of the one before"},
        {"found", nullptr, find, "look an object up"},
    };
    for (const auto &[name, shortcut, run, comment] : commands) Tq4_app->AddCmd(name, shortcut, run, comment);
    const auto where = [](const char *rest) { print(std::to_string(getpid()) + ":" + rest); };
    Tq4_app->AddServiceCmd("where", "w", where, "the service's process");
    Tq4_app->OnReload(reload);
    if (argc > 1 && argv[1] == std::string("--stdio"))
        Tq4_debug_api->SetPrint([](int, const char *format, va_list args) { std::vprintf(format, args); });
    Tq4_debug_api->log(0, "made\n");
    const int result = Tq4_app->Run(argc, argv, start, stop);
    return result == 1 ? 0 : -result; // the test tells the failures apart
}
