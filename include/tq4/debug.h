/* debug.h: the debug interface: where every module prints diagnostics and writes to the system log.
 *
 * Threads: no lock. Sinks and flags are set at start-up by one thread and then only read. Each call formats into a
 * string of its own, so concurrent output interleaves only between write calls.
 */
#ifndef TQ4_DEBUG_H
#define TQ4_DEBUG_H

#include <stdarg.h>

#include "tq4/api.h"

TQ4_BEGIN_DECLS

/* Where prints or log lines go. Called on the thread that prints. */
typedef void (*Tq4_debug_sink)(int level, const char *format, va_list args);

typedef struct Tq4_debug_ {
    void (*Init)(void);
    void (*UnInit)(void);
    void (*Charset)(int gb18030);
    void (*Printf)(int level, const char *format, ...);
    void (*vPrintf)(int level, const char *format, va_list args);
    void (*log)(int level, const char *format, ...);
    void (*vlog)(int level, const char *format, va_list args);
    void (*SetPrint)(Tq4_debug_sink sink);
    void (*SetLog)(Tq4_debug_sink sink);
    void (*SetPrintObj)(void *object);
    void (*SetLogObj)(void *object);
    void *(*GetPrintObj)(void);
    void *(*GetLogObj)(void);
} Tq4_debug_;

extern TQ4_API const Tq4_debug_ *const Tq4_debug_api;

TQ4_END_DECLS

#endif
