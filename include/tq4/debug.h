/* debug.h: the debug interface: where every module prints diagnostics and writes to the system log.
 *
 * Printing and logging go to one sink each. A host may exchange them: the built-in ones write to standard output and
 * to the system log. The level is the message's importance (Tq4_level); what it does is the sink's affair. Formats are
 * those of Tq4_string's Sprintf.
 *
 * Threads: no lock. Sinks and the charset may be changed at any time; a call that has begun ends with the old ones.
 * Init, UnInit and the pointers for sinks belong to one thread. Each call formats into a string of its own, so
 * concurrent output interleaves only between write calls.
 */
#ifndef TQ4_DEBUG_H
#define TQ4_DEBUG_H

#include <stdarg.h>

#include "tq4/api.h"

TQ4_BEGIN_DECLS

/* The levels by name. The lower a level, the more important the message; a log keeps those at its own level and below.
 * Other numbers are as good, where a program wants finer steps. */
typedef enum Tq4_level {
    Tq4_level_error = -1, /* something failed or was refused; a state machine's steps, too */
    Tq4_level_notice = 0, /* what an operator wants to see at any time; the system log and a new log keep no more */
    Tq4_level_info = 10,
    Tq4_level_debug = 50,
    Tq4_level_all = 100 /* for a log that keeps everything, as the application log does */
} Tq4_level;

/* Where prints or log lines go. Called on the thread that prints, which waits for it; the format and the arguments are
 * valid during the call only. */
typedef void (*Tq4_debug_sink)(int level, const char *format, va_list args);

typedef struct Tq4_debug_ {
    /* Opens the system log for this process: identity "Tq4_Base", the process id in each line, user facility. Only the
     * first call in a process does anything, also after UnInit. Logging without it works, under the program's name. */
    void (*Init)(void);
    /* Closes the system log, if Init has opened it. */
    void (*UnInit)(void);
    /* Non-zero: the built-in print sink converts its output from UTF-8 to GB18030, up to the first character that
     * cannot be converted. 0, as at the start: it writes UTF-8. */
    void (*Charset)(int gb18030);
    /* Prints: hands level, format and arguments to the print sink. The built-in one ignores the level and writes the
     * formatted bytes to standard output (descriptor 1) until all are written or a write fails. */
    void (*Printf)(int level, const char *format, ...);
    /* The same with an argument list, which is used up by the call. */
    void (*vPrintf)(int level, const char *format, va_list args);
    /* Logs: hands level, format and arguments to the log sink. The built-in one ignores levels above 0 and writes
     * everything else to the system log with facility user and severity 0, the same for every message. */
    void (*log)(int level, const char *format, ...);
    /* The same with an argument list, which is used up by the call. */
    void (*vlog)(int level, const char *format, va_list args);
    /* Installs a print sink; null installs the built-in one again. */
    void (*SetPrint)(Tq4_debug_sink sink);
    /* Installs a log sink; null installs the built-in one again. */
    void (*SetLog)(Tq4_debug_sink sink);
    /* Keep a pointer for the host's print sink and log sink: borrowed, never used by the library, null at the start. */
    void (*SetPrintObj)(void *object);
    void (*SetLogObj)(void *object);
    /* The pointers kept last. */
    void *(*GetPrintObj)(void);
    void *(*GetLogObj)(void);
} Tq4_debug_;

extern TQ4_API const Tq4_debug_ *const Tq4_debug_api;

TQ4_END_DECLS

#endif
