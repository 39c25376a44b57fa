// debug.hpp: what the library's own modules ask of the debug interface beyond its table.
#pragma once

#include <cstddef>

#include "tq4/debug.h"

// Writes what the built-in print sink has formatted to standard output, on the thread that prints. Its result is the
// callee's affair. Set at start-up by one thread, never null.
extern void (*Tq4_debug_write)(const char *bytes, std::size_t size);

// Gives the log its built-in sink again, unless somebody has installed another one than `own` meanwhile.
void Tq4_debug_restore_log(Tq4_debug_sink own);

// Writes a message to standard error, in the charset of the console. From any thread. What its reader does not take
// within a second is lost, and so is all when it has gone.
void Tq4_debug_tell_error(const char *format, ...);
