// string.hpp: the string's record, for the modules in src/ that keep or fill strings.
#pragma once

#include "base/wbuf.hpp"
#include "module.hpp"
#include "tq4/string.h"

struct Tq4_rbuf;

// Reads one line, up to and including its line feed, into s (replacing its text), refilling the buffer through its
// hook. With trim non-zero the line is trimmed on the right. Returns the text; null at the end of data with nothing
// read, or, when max > 0 and more than max bytes came without a line feed, with s emptied.
const char *Tq4_string_itf_Read_line(Tq4_string s, Tq4_rbuf *rbuf, int trim, unsigned long max);
