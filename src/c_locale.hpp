// c_locale.hpp: the C library's conversions of numbers with a point, whatever locale the program has chosen.
#pragma once

#include <locale.h>
#include <stdlib.h>

// The plain locale, for the functions of the C library that end in "_l".
inline locale_t Tq4_c_locale() {
    static const locale_t plain = newlocale(LC_ALL_MASK, "C", nullptr);
    return plain;
}
