// utf8_kernels.hpp: the vector loops over UTF-8 and 16-bit units, one row for each set of processor instructions.
//
// A kernel converts as many characters from the front as it can do quickly, all of them well-formed, and may stop
// anywhere between two characters; the rest, and every decision about bad input, is the scalar code's in utf8.cpp. The
// rows go from the slowest, which every processor runs, to the fastest.
#pragma once

#include <span>

#include "base/charset/utf8.hpp"

struct Utf8_kernel {
    const char *name;
    bool (*is_supported)(); // by this processor
    Tq4_converted (*to_units)(Tq4_bytes in, Tq4_room out);
    Tq4_converted (*from_units)(Tq4_bytes in, Tq4_room out);
    Tq4_converted (*columns)(Tq4_bytes text); // produced are the display columns
};

extern const Utf8_kernel utf8_portable;
extern const Utf8_kernel utf8_sse4;
extern const Utf8_kernel utf8_avx512;

// All kernels of this build, in order. The plain functions use the last one that the processor supports.
std::span<const Utf8_kernel *const> utf8_kernels();

Tq4_converted utf8_to_units_by(const Utf8_kernel &kernel, Tq4_bytes in, Tq4_room out);
Tq4_converted units_to_utf8_by(const Utf8_kernel &kernel, Tq4_bytes in, Tq4_room out);
std::size_t utf8_columns_by(const Utf8_kernel &kernel, Tq4_bytes text);
