// debug.hpp: what the console frame hands down to the debug interface.
#pragma once

#include <cstddef>

// Writes what the built-in print sink has formatted to standard output, on the thread that prints. Its result is the
// callee's affair. Set at start-up by one thread, never null.
extern void (*Tq4_debug_write)(const char *bytes, std::size_t size);
