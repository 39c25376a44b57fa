// print.hpp: the library's one printf engine.
#pragma once

#include <cstdarg>

#include "base/wbuf.hpp"

// Appends the formatted text and returns the bytes written. When the buffer cannot grow, printing ends and the count
// so far is returned; nothing is committed that was not written. Null buffers and formats write nothing. Ordinary
// characters go through put_ready, conversions and texts ask Tq4_wbuf_space: the owner of a buffer that is to grow
// sets its fflush (Tq4_wbuf_flush_nothing). Format and texts must not lie in the buffer itself.
//
// A conversion is %[-][+][0][width or *][.digits][I64|ll|l]letter; '-', '+' and '0' come in that order. Letters:
//   d u o x X   an int, or a long or long long by the length; bytes as the C library's snprintf writes them
//   c           the same, written as one byte, NUL included
//   e f g       a double, whatever the length; the decimal point is '.' in every locale, rounding is to nearest even
//   p           a pointer
//   s           a text, null writes nothing; the precision counts bytes, the width display columns of what is written,
//               a character of more than one byte as two
//   m           the text of the system error number at the call; takes no argument
// "%%" is a percent sign. Every other letter writes nothing; what follows it is literal. A '*' as width takes an int,
// negative for '-' and the width; a '*' in the precision takes no argument, and without digits drops the precision. A
// format may end inside a conversion, which then writes nothing. Widths and precisions beyond an int end the printing
// like room that cannot be had.
long Tq4_wbuf_print(Tq4_wbuf *buffer, const char *format, va_list args);
