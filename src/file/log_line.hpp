// log_line.hpp: the text around a log message: the prefix of a line and the dump of data below it.
#pragma once

#include <cstdint>
#include <ctime>

#include "base/wbuf.hpp"

// The prefix "[%4d-%02d-%02d %02d:%02d:%02d %03d %04x] ": the part up to the seconds is made once a second and kept.
class Tq4_log_prefix {
public:
    // Takes over date and time of day from a calendar record.
    void Set(const std::tm &t);
    // Appends the prefix with the milliseconds (0 to 999) and the thread to a buffer that grows.
    void Append(Tq4_wbuf *out, unsigned milliseconds, int thread) const;

private:
    char m_second[96]; // "[%4d-%02d-%02d %02d:%02d:%02d ", whatever the record's numbers are
    unsigned m_length = 0;
};

// Appends the bytes, sixteen a line: "%08lx: ", each byte as "%02X ", and the bytes as text with a dot for each that is
// not printable ASCII. In a short line blanks fill up to the column of the text.
void Tq4_log_dump(Tq4_wbuf *out, const void *bytes, unsigned long n);
