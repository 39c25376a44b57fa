// run: the three ways to run.
//
// A daemon is decided on by connecting to the control socket, and that connection is then the shell's own. A daemon
// serves one shell at a time on its main thread: the connection becomes descriptors 0 to 2, so that whatever a command
// prints goes to the shell. What passes between the two is UTF-8; the shell converts for its console.
//
// Everything that waits does so in Await, where signals are noticed. A shell that does not read holds up whoever prints
// for Send_timeout at most: then the connection is ended and later output fails at once.
#include "app/app.hpp"
#include "app/control_socket.hpp"
#include "app/display.hpp"

#include <cstdlib>
#include <utility>

#include "base/debug.hpp"
#include "platform/multi_platform_console.hpp"
#include "platform/multi_platform_fs.hpp"
#include "platform/multi_platform_system.hpp"
#include "tq4/debug.h"
#include "tq4/sock_api.h"
#include "tq4/thread.h"

namespace {

constexpr int standard_input = 0, standard_output = 1;

// Milliseconds.
constexpr long Accept_wait = 5000;
constexpr long Accept_retry = 200; // after a connection could not be accepted, for want of descriptors perhaps
constexpr long Send_timeout = 1000;
constexpr long Leave_wait = 5000; // for a daemon to answer what was typed before a shell left
constexpr long Without_limit = -1;

enum Result { Done = 1, Start_refused = -3, Unknown_option = -4, No_daemon = -100 };

constexpr const char *standalone_text = "%s服务运行于独立模式（服务+命令行交互一体）\n";
constexpr const char *stopping_text = "服务程序 %s 准备退出....\n";
constexpr const char *stopped_text = "服务程序 %s 安全退出完成。\n";
constexpr const char *prompt_text = "\n\n请输入指令，如需帮助，请输入h(help)\n";
constexpr const char *stop_line = "stop\n";

void print(const char *format, const char *name) { Tq4_debug_api->Printf(0, format, name); }

// Shows what comes next; false at the end.
bool show_next(Tq4_app_display &display, int connection) {
    char bytes[8192];
    const int size = Tq4_sock_api->Read(connection, bytes, sizeof bytes);
    if (size <= 0) return false;
    const bool gb18030 = Tq4_app_obj::The().m_charset != 0; // a command may have changed it
    const std::string shown = display.Next({bytes, static_cast<std::size_t>(size)}, gb18030);
    MP_WriteAll(standard_output, shown.data(), shown.size());
    return true;
}

// Copies what the daemon writes to the console, until the daemon ends the connection.
unsigned long display_output(void *connection) {
    Tq4_app_display display;
    while (show_next(display, *static_cast<const int *>(connection))) continue;
    MP_Events_Raise(MP_Event_ended);
    return 0;
}

// A shell that cannot be written to is gone, or stuck: its connection ends. (On the null device this does nothing.)
void end_connection() { MP_SOCK_Shutdown(standard_output, MP_Direction_both); }

void notify_supervisor(const char *state) {
    if (const char *socket = std::getenv("NOTIFY_SOCKET")) MP_SendToSupervisor(socket, state);
}

} // namespace

// Waits until the descriptor (-1: none) has input or is at its end, at most ms milliseconds. False when the time is
// over or what is being done has to end.
bool Tq4_app_obj::Await(int descriptor, long ms) {
    for (bool readable = false;;) {
        const unsigned events = MP_Events_Wait(descriptor, ms, &readable);
        if (events & (MP_Event_stop | MP_Event_ended)) m_ending = true;
        if (m_ending) return false;
        if (events & MP_Event_reopen) Reload();
        if (readable) return true;
        if (events == MP_Event_none && ms >= 0) return false;
    }
}

void Tq4_app_obj::Reload() {
    (*m_log)->CheckFile(m_log.get());
    if (m_serving && m_reload) m_reload();
}

void Tq4_app_obj::Log(const char *format) const { Tq4_debug_api->log(0, format, m_name); }

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

bool Tq4_app_obj::Start(Tq4_app_start start) {
    if (start && !start(m_argc, m_argv)) {
        if (m_stop) m_stop();
        Log("服务程序 %s 启动失败\n");
        return false;
    }
    m_serving = true;
    notify_supervisor("READY=1");
    return true;
}

void Tq4_app_obj::Stop() {
    m_serving = false;
    notify_supervisor("STOPPING=1");
    if (m_stop) m_stop();
}

int Tq4_app_obj::Run(int argc, char **argv, Tq4_app_start start, Tq4_app_stop stop) {
    m_argc = argv ? argc : 0;
    m_argv = argv;
    m_stop = stop;
    int result = Done;
    if (!KnowsOptions()) return Unknown_option;
    if (!ParseOptions(&result)) return result;
    const int connection = Tq4_control_connect((*m_pipe)->c_str(m_pipe.get()));
    if (connection >= 0) m_run_type = Tq4_app_run_type_cmdonly;
    switch (m_run_type) {
    case Tq4_app_run_type_cmdonly:
        return RunShell(connection);
    case Tq4_app_run_type_standalone:
        return RunStandalone(start);
    case Tq4_app_run_type_daemon:
        return RunDaemon(start);
    }
    return Done;
}

// --- Standalone ---

int Tq4_app_obj::RunStandalone(Tq4_app_start start) {
    const bool on_terminal = MP_IsTerminal(standard_input);
    MP_Events_Open();
    Log(standalone_text);
    if (Start(start)) {
        Greet(standalone_text);
        Converse(-1);
        // Nobody was ever there to type: a supervisor runs the service, and ends it by a signal.
        while (!on_terminal && m_lines == 0 && !m_ending) Await(-1, Without_limit);
        Log(stopping_text);
        Stop();
        Log(stopped_text);
    }
    MP_Events_Close();
    return Done;
}

// --- Daemon ---

int Tq4_app_obj::OpenControl() {
    const auto failure = Tq4_control_listen((*m_pipe)->c_str(m_pipe.get()), &m_listen_sock);
    if (failure != Tq4_control_failure::None) print("创建管道%s失败\n", (*m_pipe)->c_str(m_pipe.get()));
    m_listen_process = MP_GetCurrentProcessId();
    return static_cast<int>(failure);
}

void Tq4_app_obj::CloseControl() {
    if (m_listen_sock < 0) return;
    if (m_listen_process == MP_GetCurrentProcessId()) MP_FileDelete((*m_pipe)->c_str(m_pipe.get()));
    Tq4_sock_api->Close(std::exchange(m_listen_sock, -1));
}

int Tq4_app_obj::RunDaemon(Tq4_app_start start) {
    if (const int failure = OpenControl()) return failure;
    MP_SetFileMask(0);                     // what the log makes now has the mode that it has later
    Log("服务程序 %s 准备进入后台模式\n"); // a log that cannot be written is told while somebody can read it
    const bool entered = MP_EnterBackground();
    m_listen_process = MP_GetCurrentProcessId(); // also where it failed: the socket goes with this process
    if (!entered) {
        Tq4_debug_api->Printf(0, "fork() failed");
        std::exit(-1);
    }
    MP_DetachStandardDescriptors();
    SetCharset(0);
    Tq4_debug_write_failed = end_connection;
    Announce("%s 运行于后台模式\n");
    MP_Events_Open();
    const bool started = Start(start);
    if (started) ServeShells();
    CloseControl();
    MP_FlushStandardOutput();
    MP_DetachStandardDescriptors(); // only now does a shell see the end: a new daemon can be started
    MP_Events_Close();
    return started ? Done : Start_refused;
}

// Until the service has stopped. The shell that said so is still attached then, and so is one that a signal cut short.
void Tq4_app_obj::ServeShells() {
    auto said = Tq4_app_farewell::Left;
    int connection = -1;
    while (said == Tq4_app_farewell::Left && !m_ending) {
        if (!Await(m_listen_sock, Accept_wait)) continue;
        connection = Tq4_sock_api->Accept(m_listen_sock, nullptr);
        if (connection < 0) {
            Await(-1, Accept_retry);
            continue;
        }
        said = ServeShell(connection);
        if (said == Tq4_app_farewell::Left && !m_ending) MP_DetachStandardDescriptors();
        Tq4_sock_api->Close(connection); // descriptors 0 to 2 keep it open
    }
    Announce(stopping_text);
    Stop();
    Announce(stopped_text);
}

Tq4_app_farewell Tq4_app_obj::ServeShell(int connection) {
    MP_SOCK_SendTimeout(connection, Send_timeout);
    MP_AttachStandardDescriptors(connection);
    if (m_charset) SetCharset(0);           // the last one may have asked for another
    Log("命令交互模式连接到服务程序 %s\n"); // here, not in the shell: that may belong to somebody else
    print("欢迎使用%s服务，请输入命令来控制服务器，输入help(h)获得命令帮助\n", m_name);
    const auto said = Converse(-1);
    MP_FlushStandardOutput(); // for this shell, and not for the next
    Log("命令交互模式离开服务程序 %s\n");
    return said;
}

// --- Shell ---

int Tq4_app_obj::RunShell(int connection) {
    MP_Events_Open(); // before anything is shown: who reads that may have gone
    print("%s服务程序已经运行，现在进入命令交互模式\n", m_name);
    Greet("%s服务运行于命令交互模式（实际服务在后台进程）\n");
    auto thread = Tq4_make<Tq4_thread>(Tq4_thread_oitf, "console_display");
    (*thread)->Init(thread.get(), display_output, &connection);
    (*thread)->Resume(thread.get());
    MP_SOCK_SendTimeout(connection, Leave_wait); // a daemon that does not read does not keep the shell
    const auto said = Converse(connection);
    // The daemon meets the end of what was typed, answers all of it and ends the connection. After "stop" that takes
    // what stopping takes.
    MP_SOCK_Shutdown(connection, MP_Direction_out);
    if (!m_ending) Await(-1, said == Tq4_app_farewell::Stop ? Without_limit : Leave_wait);
    MP_SOCK_Shutdown(connection, MP_Direction_both);
    thread.reset();
    Tq4_sock_api->Close(connection);
    MP_Events_Close();
    return Done;
}

// A shell with a single command.
int Tq4_app_obj::RunStopOption() {
    const char *pipe = (*m_pipe)->c_str(m_pipe.get());
    MP_FileInfo info;
    if (!MP_GetFileInfo(pipe, 0, &info)) {
        print("%s 服务没有运行\n", m_name);
        return Done;
    }
    const int connection = Tq4_control_connect(pipe);
    if (connection < 0) {
        print("连接%s服务程序失败，请检查服务程序是否正常运行\n", m_name);
        return No_daemon;
    }
    MP_Events_Open();
    Tq4_sock_api->Write(connection, stop_line, TQ4_ALL_ONES);
    Tq4_app_display display;
    while (Await(connection, Without_limit) && show_next(display, connection)) continue;
    Tq4_sock_api->Close(connection);
    MP_Events_Close();
    return Done;
}
