// debug.hpp: what the library's own modules ask of the debug interface beyond its table.
#pragma once

#include "tq4/debug.h"

// Told when the built-in print sink cannot write to standard output, on the thread that prints; null for nobody. Set at
// start-up by one thread.
extern void (*Tq4_debug_write_failed)();

// Gives the log its built-in sink again, unless somebody has installed another one than `own` meanwhile.
void Tq4_debug_restore_log(Tq4_debug_sink own);

// Writes a message to standard error, in the charset of the console. From any thread.
void Tq4_debug_tell_error(const char *format, ...);
