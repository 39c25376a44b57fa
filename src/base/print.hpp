// print.hpp: the library's one printf engine.
#pragma once

#include <cstdarg>

#include "base/wbuf.hpp"

// Appends the formatted text and returns the bytes written.
//
// A conversion is %[-][+][0][width or *][.digits][I64|ll|l]letter with the letters d u o x X c e f g p s m; '-', '+'
// and '0' come in that order. "%%" is a percent sign, %m the text of the current system error number. Every other
// letter writes nothing; what follows it is literal. A '*' in the precision takes no argument. The width of %s counts
// display columns, a character of more than one byte as two.
long Tq4_wbuf_print(Tq4_wbuf *buffer, const char *format, va_list args);
