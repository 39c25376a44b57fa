// debug.hpp: what the console frame hands down to the debug interface.
#pragma once

// Told when the built-in print sink cannot write to standard output, on the thread that prints; null for nobody. Set at
// start-up by one thread.
extern void (*Tq4_debug_write_failed)();
