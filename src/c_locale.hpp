// c_locale.hpp: the C library's conversions of numbers with a point, whatever locale the program has chosen.
#pragma once

#include <locale.h>
#include <stdlib.h>

#include "computed_once.hpp"

// The plain locale, for the functions of the C library that end in "_l".
inline locale_t Tq4_c_locale() {
    return Tq4_computed_once([] { return newlocale(LC_ALL_MASK, "C", nullptr); });
}
