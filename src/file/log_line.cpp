// log_line: digits by hand, because every line pays for them.
#include "file/log_line.hpp"

#include <algorithm>
#include <cstdio>

namespace {

constexpr unsigned long Dump_width = 16;
constexpr char Digits_small[] = "0123456789abcdef";
constexpr char Digits_large[] = "0123456789ABCDEF";

// The number in hexadecimal with at least `least` digits; returns the end.
char *put_hex(char *at, unsigned long value, int least) {
    int digits = least;
    while (digits < 16 && value >> (4 * digits)) ++digits;
    for (int i = digits; i-- > 0; value >>= 4) at[i] = Digits_small[value & 15];
    return at + digits;
}

constexpr char printable(uint8_t byte) { return byte >= 0x20 && byte < 0x7f ? static_cast<char>(byte) : '.'; }

} // namespace

void Tq4_log_prefix::Set(const std::tm &t) {
    const int length = std::snprintf(m_second, sizeof m_second, "[%4ld-%02d-%02d %02d:%02d:%02d ", t.tm_year + 1900L,
                                     t.tm_mon + 1, t.tm_mday, t.tm_hour, t.tm_min, t.tm_sec);
    m_length = static_cast<unsigned>(std::max(length, 0));
}

void Tq4_log_prefix::Append(Tq4_wbuf *out, unsigned milliseconds, int thread) const {
    char rest[32];
    rest[0] = static_cast<char>('0' + milliseconds / 100 % 10);
    rest[1] = static_cast<char>('0' + milliseconds / 10 % 10);
    rest[2] = static_cast<char>('0' + milliseconds % 10);
    rest[3] = ' ';
    char *end = put_hex(rest + 4, static_cast<unsigned>(thread), 4);
    *end++ = ']';
    *end++ = ' ';
    Tq4_wbuf_memcat(out, m_second, m_length);
    Tq4_wbuf_memcat(out, rest, static_cast<uint64_t>(end - rest));
}

void Tq4_log_dump(Tq4_wbuf *out, const void *bytes, unsigned long n) {
    auto *from = static_cast<const uint8_t *>(bytes);
    for (unsigned long offset = 0; offset < n; offset += Dump_width) {
        char line[128];
        char *hex = put_hex(line, offset, 8);
        *hex++ = ':';
        *hex++ = ' ';
        char *text = hex + 3 * Dump_width;
        std::fill(hex, text, ' ');
        const unsigned long count = std::min(Dump_width, n - offset);
        for (unsigned long i = 0; i < count; ++i) {
            const uint8_t byte = from[offset + i];
            *hex++ = Digits_large[byte >> 4];
            *hex++ = Digits_large[byte & 15];
            ++hex;
            *text++ = printable(byte);
        }
        *text++ = '\n';
        Tq4_wbuf_memcat(out, line, static_cast<uint64_t>(text - line));
    }
}
