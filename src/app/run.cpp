// run: the three ways to run.
//
// A daemon is decided on by connecting to the control socket, and that connection is then the shell's own. A daemon
// serves one shell at a time on its main thread: the connection becomes descriptors 0 to 2, so that whatever a command
// prints goes to the shell. What passes between the two is in the charset that the daemon was started with; the shell
// converts for its console where an option or a command asks for another.
//
// Everything that waits does so in Await, where signals are noticed. A shell that does not read holds up a print of the
// daemon for a second at most: then its connection is ended and later output fails at once. On a console of its own a
// program waits for the reader, until a signal asks for the end.
#include "app/app.hpp"
#include "app/attached_shell.hpp"
#include "app/display.hpp"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <utility>

#include "base/debug.hpp"
#include "platform/multi_platform_console.hpp"
#include "platform/multi_platform_output.hpp"
#include "platform/multi_platform_system.hpp"
#include "thread/cancel.hpp"
#include "tq4/debug.h"
#include "tq4/sock_api.h"
#include "tq4/thread.h"

namespace {

// Milliseconds.
constexpr long Accept_wait = 5000;
constexpr long Accept_retry = 200;  // after a connection could not be accepted, for want of descriptors perhaps
constexpr long End_wait = 10000;    // for the process of a daemon that is ending
constexpr long Welcome_wait = 1000; // for a daemon to welcome a shell: it may serve another one
constexpr long Leave_wait = 5000;   // for a daemon to answer what was typed before a shell left
constexpr long Without_limit = -1;

enum Result { Done = 1, Start_refused = -3, Unknown_option = -4, No_daemon = -100 };

constexpr const char *standalone_text = "%s服务运行于独立模式（服务+命令行交互一体）\n";
constexpr const char *stopping_text = "服务程序 %s 准备退出....\n";
constexpr const char *stopped_text = "服务程序 %s 安全退出完成。\n";
constexpr const char *prompt_text = "\n\n请输入指令，如需帮助，请输入h(help)\n";
constexpr const char *stop_line = "stop\n";

void print(const char *format, const char *name) { Tq4_debug_api->Printf(0, format, name); }

// A line of its own with the reason of the failure before it.
void print_reason(int error) {
    Tq4_sock_api->SetError(error);
    Tq4_debug_api->Printf(0, "%m\n");
}

// Whether the system gave what the service cannot do without; the name of the call and the reason otherwise.
bool is_granted(int result, const char *call) {
    if (result) return true;
    const int error = Tq4_sock_api->Error();
    print("%s failed\n", call);
    print_reason(error);
    return false;
}
bool open_events() { return is_granted(MP_Events_Open(), "eventfd()"); }

// Output on a console of the program's own.
void write_patiently(const char *bytes, std::size_t size) {
    MP_Output_Write(MP_standard_output, bytes, size, Without_limit);
}

// A shell that cannot be written to is gone, or stuck: its connection ends.
void write_to_shell(const char *bytes, std::size_t size) {
    const Tq4_cancel_held whole; // a descriptor is held meanwhile
    MP_Output_Write(MP_standard_output, bytes, size, Tq4_attached_shell::Print_wait);
}

// Copies what the daemon writes to the console, until the daemon ends the connection.
unsigned long display_output(void *) {
    while (Tq4_app_obj::The().ShowNext()) continue;
    MP_Events_Raise(MP_Event_ended);
    return 0;
}

void notify_supervisor(const char *state) {
    if (const char *socket = std::getenv("NOTIFY_SOCKET")) MP_SendToSupervisor(socket, state);
}

} // namespace

// Waits until the descriptor has input or is at its end (-1: until the daemon has answered), at most ms milliseconds.
// False when the time is over or what is being done has to end. In a shell without a thread for it, shows what the
// daemon writes meanwhile.
bool Tq4_app_obj::Await(int descriptor, long ms) {
    for (bool readable = false, shows = false;;) {
        const unsigned events = MP_Events_Wait(ms, descriptor, &readable, m_shows_itself ? m_daemon : -1, &shows);
        if (events & (MP_Event_stop | MP_Event_ended)) m_ending = true;
        if (shows && !m_ending) m_ending = !ShowNext();
        if (m_ending) return false;
        if (events & MP_Event_reopen) Reload();
        if (readable || (descriptor < 0 && events & MP_Event_answered)) return true;
        if (events == MP_Event_none && !shows && ms >= 0) return false;
    }
}

void Tq4_app_obj::Reload() {
    (*m_log)->CheckFile(m_log.get());
    if (m_serving && m_reload) m_reload();
}

void Tq4_app_obj::Log(const char *format) const { Tq4_debug_api->log(0, format, m_name); }

// Shows what the daemon writes next; false at the end.
bool Tq4_app_obj::ShowNext() {
    char bytes[8192];
    const int size = Tq4_sock_api->Read(m_daemon, bytes, sizeof bytes);
    if (size <= 0) return false;
    const auto console = !m_charset_chosen ? Tq4_app_charset::As_it_comes
                         : m_charset       ? Tq4_app_charset::Gb18030
                                           : Tq4_app_charset::Utf8;
    std::string shown = m_display.Next({bytes, static_cast<std::size_t>(size)}, console);
    if (!m_charset_chosen && m_display.FromGb18030()) SetCharset(1); // the shell's own words, too
    const bool answered = DropPrompt(&shown);
    write_patiently(shown.data(), shown.size());
    if (answered) { // only now: the shell's own prompt comes behind the answer
        m_awaits_prompt = false;
        MP_Events_Raise(MP_Event_answered);
    }
    return true;
}

// As the console shows it.
std::string Tq4_app_obj::Prompt() const {
    const auto text = Tq4_make<Tq4_string>(Tq4_string_oitf), converted = Tq4_make<Tq4_string>(Tq4_string_oitf);
    (*text)->Sprintf(text.get(), "%s> ", m_name);
    (*text)->utf8_2_gb18030(converted.get(), (*text)->c_str(text.get()), TQ4_ALL_ONES);
    return (*text)->c_str(m_charset ? converted.get() : text.get());
}

// Whether what the daemon writes ends with the prompt that is awaited. It is taken away: the line editor needs its own.
bool Tq4_app_obj::DropPrompt(std::string *shown) {
    if (m_prompts_due <= 0) return false;
    const std::string prompt = Prompt();
    if (!shown->ends_with(prompt) || --m_prompts_due > 0 || !m_awaits_prompt) return false;
    shown->resize(shown->size() - prompt.size());
    return true;
}

// The daemon asks for the next line when it has answered the last one. The shell waits for that before it asks itself.
void Tq4_app_obj::ExpectPrompt() {
    ++m_prompts_due;
    m_awaits_prompt = true;
}
bool Tq4_app_obj::AwaitPrompt(long ms) {
    while (m_awaits_prompt && Await(-1, ms)) continue;
    return !m_awaits_prompt.exchange(false);
}

// For whoever is attached, and for the log.
void Tq4_app_obj::Announce(const char *format) const {
    print(format, m_name);
    Log(format);
}

void Tq4_app_obj::Greet(const char *format) const {
    print(format, m_name);
    PrintCommands();
    Tq4_debug_api->Printf(0, "%s", prompt_text);
}

// After a refusal the stop function is to be called.
bool Tq4_app_obj::Start(Tq4_app_start start) {
    if (start && !start(m_argc, m_argv)) {
        Log("服务程序 %s 启动失败\n");
        return false;
    }
    m_serving = true;
    notify_supervisor("READY=1");
    return true;
}

void Tq4_app_obj::Stop(bool started) {
    m_serving = false;
    if (started) notify_supervisor("STOPPING=1");
    if (m_stop) m_stop();
}

int Tq4_app_obj::Run(int argc, char **argv, Tq4_app_start start, Tq4_app_stop stop) {
    m_argc = argv ? argc : 0;
    m_argv = argv;
    m_stop = stop;
    Tq4_debug_write = write_patiently;
    if (!KnowsOptions()) return Unknown_option;
    if (const int result = ObeyOptions()) return result;
    m_daemon = Reach();
    if (m_daemon == Tq4_control_unknown) return FailToReach();
    if (m_daemon >= 0) m_run_type = Tq4_app_run_type_cmdonly;
    switch (m_run_type) {
    case Tq4_app_run_type_cmdonly:
        return RunShell();
    case Tq4_app_run_type_standalone:
        return RunStandalone(start);
    case Tq4_app_run_type_daemon:
        return RunDaemon(start);
    }
    return Done;
}

// Without a name nobody can say where a daemon of it would listen.
int Tq4_app_obj::Connect() const {
    if (*m_name) return Tq4_control_connect(PipePath());
    Tq4_sock_api->SetError(m_name_error);
    return Tq4_control_unknown;
}

// Connects to the daemon. One that is to be started waits for the end of the one before, which no longer listens.
int Tq4_app_obj::Reach() {
    const char *pipe = PipePath();
    const int connection = Connect();
    if (connection != Tq4_control_nobody || m_run_type != Tq4_app_run_type_daemon) return connection;
    if (Tq4_control_await_end(pipe, End_wait)) return Tq4_control_connect(pipe); // others may have waited, too
    Tq4_sock_api->SetError(EBUSY);
    return Tq4_control_unknown;
}

int Tq4_app_obj::FailToReach() {
    const int error = Tq4_sock_api->Error();
    if (*m_name)
        print("连接%s服务程序失败，请检查服务程序是否正常运行\n", m_name);
    else
        print("%s failed\n", "readlink(\"/proc/self/exe\")");
    print_reason(error);
    return No_daemon;
}

// --- Standalone ---

int Tq4_app_obj::RunStandalone(Tq4_app_start start) {
    const bool on_terminal = MP_IsTerminal(MP_standard_input);
    if (!open_events()) return Start_refused;
    Log(standalone_text);
    const bool started = Start(start);
    if (started) {
        Greet(standalone_text);
        Converse(-1);
        // Nobody was ever there to type: a supervisor runs the service, and ends it by a signal.
        while (!on_terminal && m_lines == 0 && !m_ending) Await(-1, Without_limit);
        Log(stopping_text);
    }
    Stop(started);
    if (started) Log(stopped_text);
    MP_FlushStandardOutput(); // as long as a signal can end the wait for a reader
    MP_Events_Close();
    return Done;
}

// --- Daemon ---

int Tq4_app_obj::OpenControl() {
    const char *pipe = PipePath();
    const auto failure = Tq4_control_listen(pipe, &m_listen_sock, &m_listen_file);
    if (failure != Tq4_control_failure::None) {
        const int error = Tq4_sock_api->Error();
        print("创建管道%s失败\n", pipe);
        print_reason(error);
    }
    m_listen_process = MP_GetCurrentProcessId();
    return static_cast<int>(failure);
}

void Tq4_app_obj::CloseControl() {
    if (m_listen_sock < 0) return;
    if (m_listen_process == MP_GetCurrentProcessId()) Tq4_control_remove(PipePath(), m_listen_file);
    Tq4_sock_api->Close(std::exchange(m_listen_sock, -1));
}

int Tq4_app_obj::RunDaemon(Tq4_app_start start) {
    if (!open_events()) return Start_refused;
    const bool can_detach = is_granted(MP_PrepareToDetach(), "open()");
    if (const int failure = can_detach ? OpenControl() : Start_refused) {
        MP_Events_Close();
        return failure;
    }
    MP_SetFileMask(0);                     // what the log makes now has the mode that it has later
    Log("服务程序 %s 准备进入后台模式\n"); // a log that cannot be written is told while somebody can read it
    EnterBackground();
    Announce("%s 运行于后台模式\n");
    const bool started = Start(start);
    if (started)
        ServeShells();
    else
        End(false);
    MP_Events_Close();
    return started ? Done : Start_refused;
}

// The signal handlers stand already, so that the process that was called may end at any moment.
void Tq4_app_obj::EnterBackground() {
    const bool entered = MP_EnterBackground();
    m_listen_process = MP_GetCurrentProcessId(); // also where it failed: the socket goes with this process
    if (!entered) {
        Tq4_debug_api->Printf(0, "fork() failed");
        std::exit(-1);
    }
    Tq4_control_occupy(PipePath());
    MP_DetachStandardDescriptors();
    Tq4_debug_write = write_to_shell;
    m_daemon_charset = m_charset;
}

// Nobody is let in any more: whoever starts the next daemon waits for the end of this one.
void Tq4_app_obj::End(bool started) {
    CloseControl();
    if (started) Announce(stopping_text);
    Stop(started);
    if (started) Announce(stopped_text);
}

// Until the service has stopped. The shell that said so is still attached then, and so is one that a signal cut short.
void Tq4_app_obj::ServeShells() {
    auto said = Tq4_app_farewell::Left;
    std::optional<Tq4_attached_shell> shell;
    while (said == Tq4_app_farewell::Left && !m_ending) {
        shell.reset();
        if (m_spare < 0) m_spare = MP_OpenSpareDescriptor();
        if (!Await(m_listen_sock, Accept_wait)) continue;
        const int connection = Admit();
        if (connection < 0) {
            Await(-1, Accept_retry);
            continue;
        }
        shell.emplace(connection);
        said = ServeShell();
    }
    End(true);
}

// Whoever wants to stop a service that has used up its descriptors gets in, too.
int Tq4_app_obj::Admit() {
    const int connection = Tq4_sock_api->Accept(m_listen_sock, nullptr);
    if (connection >= 0 || m_spare < 0) return connection;
    Tq4_sock_api->Close(std::exchange(m_spare, -1));
    return Tq4_sock_api->Accept(m_listen_sock, nullptr);
}

Tq4_app_farewell Tq4_app_obj::ServeShell() {
    SetCharset(m_daemon_charset);           // the last one may have asked for another
    Log("命令交互模式连接到服务程序 %s\n"); // here, not in the shell: that may belong to somebody else
    print("欢迎使用%s服务，请输入命令来控制服务器，输入help(h)获得命令帮助\n", m_name);
    const auto said = Converse(-1);
    Log("命令交互模式离开服务程序 %s\n");
    return said;
}

// --- Shell ---

int Tq4_app_obj::RunShell() {
    if (!open_events()) return No_daemon; // before anything is shown, since its reader may have gone
    print("%s服务程序已经运行，现在进入命令交互模式\n", m_name);
    Greet("%s服务运行于命令交互模式（实际服务在后台进程）\n");
    auto thread = Tq4_make<Tq4_thread>(Tq4_thread_oitf, "console_display");
    ExpectPrompt();
    m_shows_itself = !(*thread)->Init(thread.get(), display_output, nullptr);
    (*thread)->Resume(thread.get());
    AwaitPrompt(Welcome_wait);
    const auto said = Converse(m_daemon);
    // The daemon meets the end of what was typed, answers all of it and ends the connection. After "stop" that takes
    // what stopping takes.
    MP_SOCK_Shutdown(m_daemon, MP_Direction_out);
    while (!m_ending && Await(-1, said == Tq4_app_farewell::Stop ? Without_limit : Leave_wait)) continue;
    MP_SOCK_Shutdown(m_daemon, MP_Direction_both);
    thread.reset();
    return Leave();
}

// A shell with a single command.
int Tq4_app_obj::RunStopOption() {
    m_daemon = Connect();
    if (m_daemon == Tq4_control_nobody) {
        Tq4_control_await_end(PipePath(), End_wait);
        print("%s 服务没有运行\n", m_name);
        return Done;
    }
    if (m_daemon == Tq4_control_unknown) return FailToReach();
    if (!open_events()) return No_daemon;
    MP_Output_Write(m_daemon, stop_line, std::strlen(stop_line), Leave_wait);
    MP_SOCK_Shutdown(m_daemon, MP_Direction_out); // a daemon that does something else with it ends the connection
    while (Await(m_daemon, Without_limit) && ShowNext()) continue;
    const bool cut_short = m_ending;
    Leave(); // from here on a signal ends the wait
    if (!cut_short) Tq4_control_await_end(PipePath(), End_wait);
    return Done;
}

int Tq4_app_obj::Leave() {
    Tq4_sock_api->Close(std::exchange(m_daemon, -1));
    MP_FlushStandardOutput();
    MP_Events_Close();
    return Done;
}
