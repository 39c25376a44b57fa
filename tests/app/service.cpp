// service: the program that the tests of the console run. It appends what happens to it to the file that TRACE in the
// environment names.
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <string>
#include <sys/wait.h>
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

int start(int argc, char **) {
    trace("start " + std::to_string(argc));
    for (const char *name : {"first", "second"})
        Tq4_app->Register(name, const_cast<char *>(name),
                          [](void *object) { trace("delete " + std::string(static_cast<char *>(object))); });
    return arguments().find("--refuse") == std::string::npos;
}

void flood(const char *rest) {
    for (long lines = std::atol(rest); lines > 0; --lines) print(std::string(1000, 'x'));
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

void stop() {
    for (int standard = 0; standard < 3; ++standard)
        if (fcntl(standard, F_GETFD) < 0) trace("descriptor " + std::to_string(standard) + " is closed");
    trace("stop");
}

} // namespace

int main(int argc, char **argv) {
    Tq4_app->SetInfo("1.2", "today", "测试");
    const std::tuple<const char *, const char *, void (*)(const char *), const char *> commands[] = {
        {"echo", "e", [](const char *rest) { print(rest); }, "print the rest"},
        {"stdio", nullptr, [](const char *rest) { std::fputs(rest, stdout); }, "print by the C library"},
        {"which", "echo", [](const char *) { print("the shortcut"); }, "has a name for a shortcut"},
        {"pid", "p", [](const char *) { print(std::to_string(getpid())); }, "this process"},
        {"arguments", "a", [](const char *) { print(arguments()); }, "the command line"},
        {"flood", "", flood, "print many lines"},
        {"worker", nullptr, worker, "a process for a moment"},
        {"found", nullptr, find, "look an object up"},
    };
    for (const auto &[name, shortcut, run, comment] : commands) Tq4_app->AddCmd(name, shortcut, run, comment);
    const auto where = [](const char *rest) { print(std::to_string(getpid()) + ":" + rest); };
    Tq4_app->AddServiceCmd("where", "w", where, "the service's process");
    Tq4_app->OnReload([] { trace("reload"); });
    if (argc > 1 && argv[1] == std::string("--stdio"))
        Tq4_debug_api->SetPrint([](int, const char *format, va_list args) { std::vprintf(format, args); });
    Tq4_debug_api->log(0, "made\n");
    return Tq4_app->Run(argc, argv, start, stop);
}
