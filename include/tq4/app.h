/* app.h: the console application: the main of a service program.
 *
 * A service gives a start and a stop function to Run, and is then a program that runs in three ways:
 *
 *     static int start(int argc, char **argv) { ... return 1; }      // 0 refuses
 *     static void stop(void) { ... }
 *
 *     int main(int argc, char **argv) {
 *         Tq4_app->SetInfo("1.0", __DATE__, "somebody");
 *         Tq4_app->AddServiceCmd("status", "s", show_status, "what the service does");
 *         return Tq4_app->Run(argc, argv, start, stop) == 1 ? 0 : 1;
 *     }
 *
 * - standalone (the default): the service and a command line in one process;
 * - as a daemon ("--service=start"): the service in the background, which listens for shells on a local socket;
 * - as a shell, whenever a daemon of this program runs already: a command line whose commands for the service go there.
 *
 * There is one application in a process. Its name and its place are those of the executable. The control socket is
 * "tq4_run_var/NAME/__1pipe__" in the executable's directory (at most 107 bytes with it), usable by the owner and the
 * group. docs/writing-a-service.md tells it at length.
 *
 * The first call into the frame prepares the process: it seeds the random generator and makes the application log
 * ("Tq4_app", level 100, in "log_files" in the executable's directory). All lines of the debug interface's log go there
 * from then on, until the program installs another sink. Console output goes through the debug interface's Printf, to
 * descriptor 1.
 *
 * Environment: when TQ4_RUN_DIR or TQ4_LOG_DIR is set and not empty, that directory takes the place of the
 * executable's, the former for the control socket, the latter for the application log. A shell finds the daemon that
 * was started with the same TQ4_RUN_DIR. A process with more rights than its caller ignores both.
 *
 * Threads: SetInfo, AddCmd, AddServiceCmd, OnReload and Run belong to the main thread; the other operations may be
 * called from any.
 */
#ifndef TQ4_APP_H
#define TQ4_APP_H

#include "tq4/api.h"

TQ4_BEGIN_DECLS

/* How the program runs. */
typedef enum Tq4_app_run_type {
    Tq4_app_run_type_cmdonly = 0,    /* a shell attached to a daemon */
    Tq4_app_run_type_standalone = 1, /* service and command line in one process: the default */
    Tq4_app_run_type_daemon = 2      /* in the background */
} Tq4_app_run_type;

/* Runs a console command. rest is what follows the command's name on the line, without leading blanks, "" for nothing;
 * borrowed for the call. Runs on the main thread. What it prints through the debug interface or the C library's
 * standard output reaches whoever typed the command, before the next prompt. */
typedef void (*Tq4_app_cmd_handle)(const char *rest);
/* Starts the service, with the arguments of Run. 0 refuses; anything else lets it run. Threads that the service needs
 * are made here and not before Run: a daemon is a new process. */
typedef int (*Tq4_app_start)(int argc, char **argv);
/* Stops the service; also called when the start function refused. A daemon's shell is still attached. */
typedef void (*Tq4_app_stop)(void);
/* Looks again at what the service has read: its settings, its own log files. */
typedef void (*Tq4_app_reload)(void);
/* Deletes a registered object. */
typedef void (*Tq4_app_delete)(void *object);

typedef struct Tq4_app_ {
    /* The texts that the version option and command print (copied; null: empty). */
    void (*SetInfo)(const char *version, const char *build_time, const char *author);
    /* Adds a console command, known by its name and by its shortcut (null or "": none; shortcuts are looked up before
     * names). The texts are copied. It runs in the process where it is typed, in a shell too, where the start function
     * was never called; for what asks the service there is AddServiceCmd. Reading goes on after it. A command of the
     * same name takes the place of the earlier one, whose shortcut is gone with it. Ignored are a null or empty name, a
     * null handler, and "stop" as name or shortcut: that word ends the service. */
    void (*AddCmd)(const char *name, const char *shortcut, Tq4_app_cmd_handle handler, const char *comment);
    /* Runs the application and returns when it ends. The arguments are main's, borrowed until the process ends; those
     * that the frame does not know are the program's (ArgK and ArgV). A null start always succeeds, a null stop does
     * nothing. With "--service=start" it returns in the daemon only; the process that was called ends with code 0.
     *
     *     --help, -h                          lists the options
     *     --version, -v                       prints the texts of SetInfo
     *     --charset=utf8, -utf8               console output in UTF-8
     *     --charset=gb18030, -gb              console output in GB18030
     *     --service=start, -start             runs as a daemon
     *     --service=stop, -stop               stops the daemon, shows what it answers, and waits for its end
     *
     * A daemon lets nobody in once it ends. "--service=start" waits up to 10 s for the end of such a process. A shell
     * begins in the charset that the daemon was started with, unless an option of its own says another.
     *
     * An argument that begins with "--charset=" or "--service=" and is none of these is told on standard error, and
     * nothing is started.
     *
     * Signals, from before the start function until after the stop function:
     * - SIGTERM and SIGINT stop the service in order;
     * - SIGHUP lets the application log look for its file (CheckFile of tq4/log.h), and then calls the function of
     *   OnReload;
     * - SIGPIPE does nothing: a broken pipe is an error like others.
     * Afterwards what the program had installed is back. A daemon has the handlers before "--service=start" returns. A
     * shell that gets SIGTERM or SIGINT leaves. From SIGTERM or SIGINT on, no output to descriptors 1 and 2 waits for a
     * reader, in any mode: what finds no room is lost.
     * Standalone, with standard input closed or at its end from the start (and not a terminal), the service runs until
     * a signal stops it.
     *
     * When NOTIFY_SOCKET is set in the environment, the supervisor there is told "READY=1" after the start function
     * and "STOPPING=1" before the stop function.
     *
     * Standalone and as a daemon it writes to the application log before the start function and after the stop
     * function, and the daemon also when a shell comes and goes.
     *
     * Returns 1, also for the options that only print, for "--service=stop" where no daemon runs, and for a standalone
     * start that refuses. Otherwise the reason is printed and the result is
     *   -1    the daemon's control socket cannot be made
     *   -2    it cannot be listened on
     *   -3    the daemon's start function refused, or the system has no descriptor for it
     *   -4    an argument is refused
     *   -100  it cannot be told whether a daemon runs (no right to connect, no path of the program in "/proc"),
     *         the one before has not ended after 10 s, or the system has no descriptor for a shell
     * So main ends with "return Tq4_app->Run(argc, argv, start, stop) == 1 ? 0 : 1;". */
    int (*Run)(int argc, char **argv, Tq4_app_start start, Tq4_app_stop stop);
    /* Keeps an object for the whole process. At its normal end all are deleted, the last one first, each by its delete
     * function (null: it is only forgotten). The name (copied) finds the object; a name given again finds the newer
     * one. Null name: it is kept and not found. A null object is ignored. */
    void (*Register)(const char *name, void *object, Tq4_app_delete delete_object);
    /* The object registered under the name; null when there is none. Borrowed. */
    void *(*Find)(const char *name);
    /* Walk the arguments of Run: an argument that starts with '-' and goes on is the name of an option, every other one
     * is a value. *cursor starts at 0.
     *
     *     int at = 0;
     *     const char *name, *value;
     *     while (Tq4_app->ArgK(&at, &name))
     *         while (Tq4_app->ArgV(&at, &value)) ...
     *
     * ArgK goes on to the next name, over values, stores it and returns 1; 0 when there is none. ArgV stores the next
     * argument when that is a value and returns 1; 0 when it is a name or the end, and then the cursor stays. Both give
     * 0 when a pointer is null and before Run. */
    int (*ArgK)(int *cursor, const char **name);
    int (*ArgV)(int *cursor, const char **value);
    /* Adds a command of the service; otherwise as AddCmd. In a shell the line is handed to the daemon, which runs the
     * command on its main thread, and what that prints goes to the shell. Standalone it is like any other. So it always
     * runs between the start function and the stop function. Help lists these commands apart from the others. */
    void (*AddServiceCmd)(const char *name, const char *shortcut, Tq4_app_cmd_handle handler, const char *comment);
    /* Sets the function that SIGHUP calls while the service runs, after the application log has looked for its file. It
     * runs on the main thread, where commands run, never in a signal handler; a shell does not call it. Null, as at the
     * start: none. */
    void (*OnReload)(Tq4_app_reload function);
} Tq4_app_;

extern TQ4_API const Tq4_app_ *const Tq4_app;

TQ4_END_DECLS

#endif
