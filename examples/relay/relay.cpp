// relay: the demo service, made with the console frame.
//
//   relay                 the service and a command line in one process
//   relay -start          the service in the background; `relay` is then a shell to it, `relay -stop` ends it
//   relay receive DIRECTORY PORT, relay send FILE HOST:PORT
//                         carry a file from one machine to another over UDP (transfer.hpp tells how)
//
// Commands of the service: status (its counters as JSON), get KEY, set KEY VALUE. A shell hands them to the service, so
// they show what it has. Peers come over TCP, to the port of relay.port (server.hpp tells what they say). Settings lie
// in relay.ini beside the program, counters in relay.json; the service looks at its settings at every beat, and at once
// on SIGHUP. TQ4_LOG_DIR in the environment is for its log too.
#include <cstdlib>
#include <memory>
#include <mutex>
#include <string>

#include <tq4/tq4.h>

#include "../object.hpp"
#include "counters.hpp"
#include "server.hpp"
#include "settings.hpp"
#include "transfer.hpp"

namespace {

std::string file_beside_the_program(const char *name) {
    const Object<Tq4_string> path(Tq4_string_oitf);
    return Tq4_system_api->ExePath(path) + std::string("/") + name;
}
std::string settings_file() { return file_beside_the_program("relay.ini"); }
std::string counters_file() { return file_beside_the_program("relay.json"); }

// The service: a thread that beats, and one that serves peers.
class Relay {
public:
    Relay() {
        if (const char *directory = std::getenv("TQ4_LOG_DIR"); directory && *directory)
            m_log->MainDir(m_log, (directory + std::string("/log_files")).c_str());
        m_log->Init(m_log, "relay", static_cast<int>(m_settings.GetNumber("log.level", 10)));
        m_log->Printf(m_log, 0, "%s starts", m_settings.Get("name", "relay").c_str());
        m_counters.Add("starts");
        const auto port = static_cast<int>(m_settings.GetNumber("port", 0)); // before the thread has the settings
        m_thread->Init(m_thread, Run, this);
        // Until the thread has begun, so that what it prints then is not left for the first shell.
        if (m_thread->Resume(m_thread)) m_begun->Wait(m_begun, TQ4_ALL_ONES);
        m_log->Printf(m_log, 0, "listens on 127.0.0.1:%d", m_server->Listen(port));
    }
    ~Relay() {
        m_thread->NotifyQuit(m_thread);
        m_quit->Set(m_quit);
        m_thread->WaitFor(m_thread, 2000);
        m_server.reset();
        m_counters.Save();
        m_log->Printf(m_log, 0, "stops with %s", m_counters.Json().c_str());
    }
    std::string Status() { return m_counters.Json(); }
    std::string Get(const std::string &name) {
        const std::lock_guard guard(m_mutex);
        return m_settings.Has(name) ? m_settings.Get(name) : "no such setting: " + name;
    }
    std::string Set(const std::string &name, const std::string &value) {
        const std::lock_guard guard(m_mutex);
        ReadSettings(); // somebody may have edited the file
        if (!m_settings.Set(name, value)) return "cannot be set: " + name;
        SettingsHaveChanged();
        return name + " is now " + m_settings.Get(name);
    }
    // Whoever has moved the log's file or edited the settings need not wait.
    void Reload() {
        const std::lock_guard guard(m_mutex);
        m_log->CheckFile(m_log);
        ReadSettings();
    }

private:
    // Members go from the last to the first: the thread before what it uses.
    std::mutex m_mutex;
    Settings m_settings{settings_file()}; // under m_mutex
    Counters m_counters{counters_file()};
    Object<Tq4_log> m_log{Tq4_log_oitf, "for several threads"};
    std::unique_ptr<Server> m_server = std::make_unique<Server>(m_counters);
    Object<Tq4_event> m_begun{Tq4_event_oitf}, m_quit{Tq4_event_oitf};
    Object<Tq4_thread> m_thread{Tq4_thread_oitf, "relay"};

    static unsigned long Run(void *relay) {
        static_cast<Relay *>(relay)->Beat();
        return 0;
    }
    void Beat() {
        m_begun->Set(m_begun);
        while (m_thread->IsRunning(m_thread)) {
            m_counters.Add("beats");
            const long beat = NextBeat();
            if (!m_counters.Save()) m_log->Printf(m_log, 0, "counters are not saved: %m");
            m_quit->Wait(m_quit, static_cast<unsigned long>(beat > 0 ? beat : 1));
        }
    }
    // Milliseconds until then.
    long NextBeat() {
        const std::lock_guard guard(m_mutex);
        ReadSettings();
        return m_settings.GetNumber("beat", 1000);
    }
    void ReadSettings() {
        if (m_settings.Reload()) SettingsHaveChanged();
    }
    void SettingsHaveChanged() {
        m_counters.Add("settings_changed");
        m_log->Level(m_log, static_cast<int>(m_settings.GetNumber("log.level", 10)));
        m_log->Printf(m_log, 0, "settings have changed: it is called %s", m_settings.Get("name").c_str());
    }
};

std::unique_ptr<Relay> relay; // while the service runs in this process: whenever a command of its own does

int start(int, char **) {
    relay = std::make_unique<Relay>();
    return 1;
}

void stop() { relay.reset(); }

void reload() { relay->Reload(); }

// --- Commands ---

void print(const std::string &line) { Tq4_debug_api->Printf(0, "%s\n", line.c_str()); }

void status(const char *) { print(relay->Status()); }

void get(const char *name) { print(relay->Get(name)); }

void set(const char *name_and_value) {
    const std::string both = name_and_value;
    const std::size_t blank = both.find_first_of(" \t"), value = both.find_first_not_of(" \t", blank);
    if (blank == std::string::npos || value == std::string::npos) {
        print("set KEY VALUE");
        return;
    }
    print(relay->Set(both.substr(0, blank), both.substr(value)));
}

} // namespace

int main(int argc, char **argv) {
    const std::string first = argc > 1 ? argv[1] : "";
    if (argc == 4 && first == "send") return send_file(argv[2], argv[3]);
    if (argc == 4 && first == "receive") return receive_files(argv[2], argv[3]);
    Tq4_app->SetInfo("0.1", __DATE__, "Tq4");
    Tq4_app->AddServiceCmd("status", "s", status, "the counters as JSON");
    Tq4_app->AddServiceCmd("get", "g", get, "get KEY: a setting");
    Tq4_app->AddServiceCmd("set", nullptr, set, "set KEY VALUE: change a setting and save it");
    Tq4_app->OnReload(reload);
    return Tq4_app->Run(argc, argv, start, stop) == 1 ? 0 : 1;
}
