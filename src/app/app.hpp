// app.hpp: the application's record.
//
// Threads: the main thread alone, except where a group of fields says otherwise.
#pragma once

#include <atomic>
#include <cstdio>
#include <deque>
#include <mutex>
#include <string>

#include "app/command_loop.hpp"
#include "app/control_socket.hpp"
#include "app/display.hpp"
#include "own.hpp"
#include "tq4/app.h"
#include "tq4/log.h"
#include "tq4/queue.h"
#include "tq4/stream.h"
#include "tq4/strmap.h"
#include "tq4/value_table.h"

// A command-line option.
struct Tq4_app_arg {
    const char *m_arg_name;
    const char *m_arg_shortcut;
    const char *m_comment;
    bool m_ends;           // the run ends after it
    int (*m_arg_handle)(); // then with this result
    static constexpr int None = 0;
};

struct Tq4_app_obj {
    using Text = Tq4_hooked<Tq4_string>;
    using Table = Tq4_hooked<Tq4_value_table>;

    Text m_pathbuffer, m_namebuffer, m_version, m_build_time, m_author;
    const char *m_name;                // the executable's; borrowed from m_namebuffer. "": the system does not tell
    const char *m_path;                // its directory, then "."; borrowed from m_pathbuffer
    int m_argc = 0;                    // of Run
    char **m_argv = nullptr;           // borrowed
    Table m_arg_cmds;                  // options by name: Tq4_app_arg
    Tq4_own<Tq4_strmap> m_arg_shotcut; // by shortcut
    Table m_cmds;                      // commands by name: Tq4_app_cmd
    Tq4_own<Tq4_strmap> m_cmd_shotcut; // by shortcut
    Tq4_app_run_type m_run_type = Tq4_app_run_type_standalone;
    Text m_pipe;                                     // path of the control socket
    long m_start_sec = 0, m_start_usec = 0;          // when the frame was first used
    Tq4_own<Tq4_log> m_log;                          // for all threads
    Tq4_own<Tq4_queue> m_global_obj;                 // registered objects, the last one first; under m_registry
    Tq4_own<Tq4_strmap> m_obj_map;                   // the same by name; under m_registry
    std::atomic<int> m_charset = 0;                  // of the console: 0 UTF-8, 1 GB18030; for all threads
    std::atomic<bool> m_charset_chosen = false;      // by an option or a command; for all threads
    int m_daemon_charset = 0;                        // of a daemon: what it was started with
    int m_listen_sock = -1;                          // owned
    Tq4_control_file m_listen_file;                  // what it made
    Tq4_own<Tq4_stream> m_stream;                    // the console's input
    void *readline_dll = nullptr;                    // stays loaded: readline keeps state of its own
    char *(*readline)(const char *prompt) = nullptr; // null: the built-in reader
    void (*add_history)(const char *line);

    std::deque<Tq4_app_cmd> m_cmd_records; // what m_cmds and m_cmd_shotcut lead to
    std::mutex m_registry;
    int m_name_error = 0;               // why there is no name
    int m_spare = -1;                   // a descriptor for a shell that comes when no other is free; owned
    unsigned long m_listen_process = 0; // whose socket file it is: processes that the service forks must leave it alone
    Tq4_app_stop m_stop = nullptr;      // of Run
    Tq4_app_reload m_reload = nullptr;
    bool m_serving = false;                    // the service runs in this process
    bool m_ending = false;                     // a signal, or the end of the daemon, ends what is being done
    int m_daemon = -1;                         // a shell's connection; owned
    Tq4_app_display m_display;                 // of the one thread that shows what comes from there
    std::atomic<int> m_prompts_due = 0;        // of the daemon; for both threads of a shell
    std::atomic<bool> m_awaits_prompt = false; // the last of them, to ask in its place; for both threads of a shell
    bool m_shows_itself = false;               // that is the main thread: there is no other
    unsigned long m_lines = 0;                 // read in this conversation

    // The one there is, made when it is first used.
    static Tq4_app_obj &The();

    Tq4_app_obj();
    ~Tq4_app_obj();
    Tq4_app_obj(const Tq4_app_obj &) = delete;
    Tq4_app_obj &operator=(const Tq4_app_obj &) = delete;

    void SetInfo(const char *version, const char *build_time, const char *author);
    void AddCmd(const char *name, const char *shortcut, Tq4_app_cmd_handle handler, const char *comment, bool local,
                bool exits);
    void Register(const char *name, void *object, Tq4_app_delete delete_object);
    void *Find(const char *name);
    const Tq4_app_cmd *FindCmd(const char *word) const;
    void SetCharset(int gb18030);
    void ChooseCharset(int gb18030); // as whoever sits at the console wants it
    void PrintOptions() const;
    void PrintCommands() const;
    void PrintVersion() const;
    // The next option's name, or value, at or after *cursor.
    bool ArgK(int *cursor, const char **name) const;
    bool ArgV(int *cursor, const char **value) const;

    // run.cpp: the ways to run.
    int Run(int argc, char **argv, Tq4_app_start start, Tq4_app_stop stop);
    int RunStandalone(Tq4_app_start start);
    int RunDaemon(Tq4_app_start start);
    int RunShell();
    int RunStopOption();
    bool ShowNext();

private:
    void LearnName();
    std::string Directory(const char *variable) const;
    bool KnowsOptions() const;
    int ObeyOptions() const;
    void ForgetShortcut(const char *name);
    int Connect() const;
    int Reach();
    int FailToReach();
    bool Start(Tq4_app_start start);
    void Stop(bool started);
    void Reload();
    void End(bool started);
    int Leave();
    const char *PipePath() const { return (*m_pipe)->c_str(m_pipe.get()); }
    bool Await(int descriptor, long ms);
    std::string Prompt() const;
    bool DropPrompt(std::string *shown);
    void ExpectPrompt();
    bool AwaitPrompt(long ms);
    void Log(const char *format) const;
    void Announce(const char *format) const;
    void Greet(const char *format) const;
    int OpenControl();
    void CloseControl();
    void EnterBackground();
    void ServeShells();
    int Admit();
    Tq4_app_farewell ServeShell();

    // console.cpp: what is typed.
    Tq4_app_farewell Converse(int connection);
    void Flush() const;
    Tq4_app_line ReadLine(std::string *line, bool edit);
    Tq4_app_line ReadPlain(std::string *line);
    Tq4_app_line ReadEdited(std::string *line);
    bool LoadReadline();
    static int ReadlineCharacter(std::FILE *);
};
