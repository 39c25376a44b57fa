// print: the printf engine.
//
// One pass over the format. Each conversion is parsed into a record, room is asked for once, and the bytes go straight
// to the cursor: no scratch copy of the conversion, no snprintf. The cursor lives in the Printer and is committed to
// the buffer before a hook can see it and at the end; bytes beyond it are never committed.
//
// The room asked for is part of the visible growth of a buffer: for a conversion the larger of width and precision
// plus a slack. Whatever needs more, such as %f of 1e300, asks again for what it needs.
#include "base/print.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cmath>
#include <string_view>

#include "base/charset/utf8.hpp"
#include "base/print_number.hpp"

namespace {

constexpr long number_slack = 64;
constexpr long text_slack = 32;
constexpr int longest_double = 310; // of %f without its decimals; %e and %g are shorter
constexpr int default_precision = 6;
constexpr int narrow = 16;     // bytes that one store fills
constexpr long short_run = 16; // ordinary characters that are copied one by one

constexpr Tq4_decimal decimal;
constexpr Tq4_binary_radix octal = {3, "01234567"};
constexpr Tq4_binary_radix hexadecimal = {4, "0123456789abcdef"};
constexpr Tq4_binary_radix upper_hexadecimal = {4, "0123456789ABCDEF"};

struct Conversion {
    bool left = false;
    bool plus = false;
    bool zero = false;
    bool wide = false; // takes 64 bits
    char letter = 0;
    long width = 0;
    long precision = -1; // none

    bool zero_filled() const { return zero && !left; }
};

// A variable argument list that can be handed on by reference on every platform.
struct Arguments {
    va_list list;
};

// Reads digits, which may be none, and stays above INT_MAX once it is there.
const char *parse_digits(const char *f, long &value) {
    for (; *f >= '0' && *f <= '9'; ++f)
        if (value <= INT_MAX) value = value * 10 + (*f - '0');
    return f;
}

const char *parse_width(const char *f, Conversion &c, Arguments &args) {
    if (*f != '*') return parse_digits(f, c.width);
    c.width = va_arg(args.list, int);
    if (c.width < 0) {
        c.left = true;
        c.width = -c.width;
    }
    return f + 1;
}

struct Precision {
    const char *behind;
    long value; // -1 for none
};

// Behind the point. A '*' takes no argument, deliberately; without digits it drops the precision.
Precision parse_precision(const char *f) {
    long value = 0;
    bool star = false, digits = false;
    for (;; ++f) {
        const char *after = parse_digits(f, value);
        digits |= after != f;
        f = after;
        if (*f != '*') break;
        star = true;
    }
    return {f, digits || !star ? value : -1};
}

const char *parse_length(const char *f, Conversion &c) {
    unsigned size = 0;
    if (f[0] == 'l')
        size = f[1] == 'l' ? 2 : 1;
    else if (f[0] == 'I' && f[1] == '6' && f[2] == '4')
        size = 3;
    c.wide = size > 0;
    return f + size;
}

// Parses what follows the percent sign; the letter is 0 when the format ends before it.
const char *parse(const char *f, Conversion &c, Arguments &args) {
    if (*f == '-') c.left = true, ++f;
    if (*f == '+') c.plus = true, ++f;
    if (*f == '0') c.zero = true, ++f;
    f = parse_width(f, c, args);
    if (*f == '.') {
        Precision precision = parse_precision(f + 1);
        c.precision = precision.value;
        f = precision.behind;
    }
    f = parse_length(f, c);
    c.letter = *f;
    return *f ? f + 1 : f;
}

// Short runs are one store: the slack of a number's room covers what is stored beyond n.
uint8_t *fill_number(uint8_t *at, char byte, long n) {
    if (n <= 0) return at;
    std::memset(at, byte, n <= narrow ? narrow : static_cast<size_t>(n));
    return at + n;
}

class Printer {
public:
    Printer(Tq4_wbuf *buffer, va_list args)
        : m_buffer(buffer), m_silent(!buffer->fflush || buffer->fflush == Tq4_wbuf_flush_nothing), m_error(errno) {
        va_copy(m_args.list, args);
        load();
    }
    ~Printer() { va_end(m_args.list); }
    Printer(const Printer &) = delete;
    Printer &operator=(const Printer &) = delete;

    long print(const char *f) {
        while ((f = literal(f)) && *f) {
            const char *behind = short_number(f + 1);
            f = behind ? behind : conversion(f + 1);
            if (!f) break;
        }
        commit();
        return m_count;
    }

private:
    Tq4_wbuf *m_buffer; // borrowed
    uint8_t *m_at;      // the cursor
    uint8_t *m_end;     // of the free room
    long m_count = 0;   // bytes committed
    bool m_silent;      // fflush has no effect, so it need not be called while there is room
    int m_error;        // errno at the call
    Arguments m_args;

    void load() {
        m_at = m_buffer->m_ptr;
        m_end = m_at + m_buffer->m_cnt;
    }
    void commit() {
        m_count += static_cast<long>(Tq4_wbuf_skip(m_buffer, static_cast<uint64_t>(m_at - m_buffer->m_ptr)));
    }

    // Room for n bytes at the cursor.
    bool room(long n) { return (m_silent && n <= m_end - m_at) || more_room(n); }
    bool more_room(long n) {
        commit();
        uint64_t free = Tq4_wbuf_space(m_buffer, static_cast<uint64_t>(n));
        load();
        return free >= static_cast<uint64_t>(n);
    }
    bool room(const Conversion &c, long slack) {
        long n = std::max(c.width, c.precision);
        return n <= INT_MAX && room(n + slack);
    }

    // Copies ordinary characters, "%%" being one of them. Returns where a conversion or the format's end is; null when
    // the buffer is full.
    const char *literal(const char *f) {
        for (;; ++f) {
            f = run(f);
            if (!*f || (*f == '%' && f[1] != '%')) return f;
            if (*f == '%') ++f;
            if (!put(*f)) return nullptr;
        }
    }
    // Copies a run of ordinary characters as far as there is room.
    const char *run(const char *f) {
        long most = std::min(short_run, m_end - m_at), n = 0;
        uint8_t *at = m_at;
        for (; n < most && f[n] && f[n] != '%'; ++n) at[n] = static_cast<uint8_t>(f[n]);
        m_at = at + n;
        return n == short_run ? long_run(f + n) : f + n;
    }
    [[gnu::noinline]] const char *long_run(const char *f) {
        long n = std::min(strchrnul(f, '%') - f, m_end - m_at);
        copy(f, n);
        return f + n;
    }
    void copy(const void *bytes, long n) {
        if (n > 0) std::memcpy(m_at, bytes, static_cast<size_t>(n));
        m_at += n;
    }
    bool put(char byte) {
        if (m_at < m_end) {
            *m_at++ = static_cast<uint8_t>(byte);
            return true;
        }
        commit();
        bool written = Tq4_wbuf_putch(m_buffer, byte) >= 0;
        load();
        m_count += written;
        return written;
    }

    // Most of what log lines are made of: %d, %u and %x with at most a zero flag and one digit of width. Null, and
    // nothing done, when it is something else or the hook must be asked for room.
    const char *short_number(const char *f) {
        bool zero = *f == '0';
        f += zero;
        bool has_width = *f >= '0' && *f <= '9';
        long width = has_width ? *f++ - '0' : 0;
        if (!m_silent || m_end - m_at < 9 + number_slack) return nullptr;
        switch (*f) {
        case 'd':
            short_signed(zero, width, va_arg(m_args.list, int));
            return f + 1;
        case 'u':
            short_digits(zero, width, va_arg(m_args.list, unsigned), decimal);
            return f + 1;
        case 'x':
            short_digits(zero, width, va_arg(m_args.list, unsigned), hexadecimal);
            return f + 1;
        default:
            return nullptr;
        }
    }
    void short_signed(bool zero, long width, long value) {
        if (value >= 0)
            short_digits(zero, width, static_cast<uint64_t>(value), decimal);
        else
            number({.zero = zero, .width = width}, static_cast<uint64_t>(-value), "-", decimal);
    }
    template <class Radix> void short_digits(bool zero, long width, uint64_t value, const Radix &radix) {
        uint8_t *at = m_at; // stores of bytes may change any member: a local spares the compiler the doubt
        zero ? std::memset(at, '0', narrow) : std::memset(at, ' ', narrow);
        at += std::max(width, long{radix.digit_count(value)});
        radix.write_before(at, value);
        m_at = at;
    }

    // Any conversion, from behind its percent sign. Returns what follows it; null when there is no room.
    [[gnu::noinline]] const char *conversion(const char *f) {
        Conversion c;
        f = parse(f, c, m_args);
        return (this->*writer_of(c.letter))(c) ? f : nullptr;
    }

    using Writer = bool (Printer::*)(const Conversion &);
    static Writer writer_of(char letter);

    bool other_letter(const Conversion &) { return true; }

    uint64_t argument(const Conversion &c) {
        return c.wide ? va_arg(m_args.list, unsigned long) : va_arg(m_args.list, unsigned);
    }

    bool signed_decimal(const Conversion &c) {
        long value = c.wide ? va_arg(m_args.list, long) : va_arg(m_args.list, int);
        std::string_view sign = value < 0 ? "-" : c.plus ? "+" : "";
        auto magnitude = static_cast<uint64_t>(value);
        if (!room(c, number_slack)) return false;
        number(c, value < 0 ? 0 - magnitude : magnitude, sign, decimal);
        return true;
    }

    template <const auto &radix> bool unsigned_number(const Conversion &c) {
        uint64_t value = argument(c);
        if (!room(c, number_slack)) return false;
        number(c, value, "", radix);
        return true;
    }

    // Blanks, prefix, zeros, digits, blanks.
    template <class Radix>
    void number(const Conversion &c, uint64_t value, std::string_view prefix, const Radix &radix) {
        auto before = static_cast<long>(prefix.size());
        long digits = value == 0 && c.precision == 0 ? 0 : radix.digit_count(value);
        long zeros = std::max(c.precision, 0l) - digits;
        if (c.zero_filled() && c.precision < 0) zeros = c.width - before - digits;
        zeros = std::max(zeros, 0l);
        long blanks = c.width - before - zeros - digits;

        uint8_t *at = c.left ? m_at : fill_number(m_at, ' ', blanks);
        std::memcpy(at, prefix.data(), prefix.size());
        at = fill_number(at + before, '0', zeros);
        if (digits) radix.write_before(at += digits, value);
        m_at = c.left ? fill_number(at, ' ', blanks) : at;
    }

    bool character(const Conversion &c) {
        auto byte = static_cast<uint8_t>(argument(c));
        return room(c, number_slack) && padded(c, &byte, 1, 1);
    }

    bool pointer(const Conversion &c) {
        const void *value = va_arg(m_args.list, const void *);
        if (!room(c, text_slack)) return false;
        if (!value) return padded(c, "(nil)", 5, 5);
        number(c, reinterpret_cast<uintptr_t>(value), c.plus ? "+0x" : "0x", hexadecimal);
        return true;
    }

    bool text(const Conversion &c) {
        auto *given = va_arg(m_args.list, const char *);
        if (!given) return true;
        if (c.width == 0 && c.precision < 0) return append(given, static_cast<long>(std::strlen(given)));
        long size = size_of(c, given);
        long columns = size;
        if (c.width > 0) {
            Tq4_bytes shown = {reinterpret_cast<const uint8_t *>(given), static_cast<size_t>(size)};
            columns = static_cast<long>(utf8_columns(shown));
        }
        return room(c, text_slack) && padded(c, given, size, columns);
    }

    bool system_error(const Conversion &c) {
        char scratch[128];
        const char *message = strerror_r(m_error, scratch, sizeof scratch);
        long size = size_of(c, message);
        return room(c, text_slack) && padded(c, message, size, size);
    }

    static long size_of(const Conversion &c, const char *given) {
        if (c.precision < 0) return static_cast<long>(std::strlen(given));
        return static_cast<long>(strnlen(given, static_cast<size_t>(c.precision)));
    }

    bool append(const void *bytes, long size) {
        if (!room(size)) return false;
        copy(bytes, size);
        return true;
    }

    // A text of size bytes and so many columns in the conversion's width, padded with blanks.
    bool padded(const Conversion &c, const void *bytes, long size, long columns) {
        long blanks = std::max(c.width - columns, 0l);
        if (blanks + size > m_end - m_at && !more_room(blanks + size)) return false;
        if (!c.left) blank(blanks);
        copy(bytes, size);
        if (c.left) blank(blanks);
        return true;
    }
    void blank(long n) {
        std::memset(m_at, ' ', static_cast<size_t>(n));
        m_at += n;
    }

    bool floating(const Conversion &c) {
        double value = va_arg(m_args.list, double);
        if (!room(c, number_slack)) return false;
        char sign = std::signbit(value) ? '-' : '+';
        bool has_sign = c.plus || sign == '-';
        if (!std::isfinite(value)) {
            const char *named = std::isnan(value) ? "-nan+nan" : "-inf+inf";
            return padded(c, named + (sign == '-' ? 0 : 4) + !has_sign, 3 + has_sign, 3 + has_sign);
        }
        long size = write_double(std::fabs(value), c, has_sign);
        if (size == 0) return false;
        if (has_sign) *m_at = static_cast<uint8_t>(sign);
        justify(c, has_sign, size);
        return true;
    }

    // Writes a finite value behind room for its sign; the width is free as well. Returns the bytes with the sign.
    long write_double(double value, const Conversion &c, bool has_sign) {
        int precision = c.precision < 0 ? default_precision : static_cast<int>(c.precision);
        auto write = [&] {
            auto free = static_cast<size_t>(m_end - m_at - has_sign);
            return static_cast<long>(Tq4_write_double(m_at + has_sign, free, value, c.letter, precision));
        };
        long size = write();
        if (size == 0 && more_room(std::max(c.width, has_sign + longest_double + long{precision}))) size = write();
        return size ? size + has_sign : 0;
    }

    // Moves the number of size bytes at the cursor, sign included, to its place in the width, and steps over it.
    void justify(const Conversion &c, bool has_sign, long size) {
        long missing = std::max(c.width - size, 0l);
        bool zeros = c.zero_filled();
        long kept = c.left ? size : (zeros ? has_sign : 0); // bytes that stay where they are
        if (missing) {
            std::memmove(m_at + kept + missing, m_at + kept, static_cast<size_t>(size - kept));
            std::memset(m_at + kept, zeros ? '0' : ' ', static_cast<size_t>(missing));
        }
        m_at += size + missing;
    }
};

Printer::Writer Printer::writer_of(char letter) {
    static constexpr auto writers = [] {
        std::array<Writer, 256> of;
        of.fill(&Printer::other_letter);
        of['d'] = &Printer::signed_decimal;
        of['u'] = &Printer::unsigned_number<decimal>;
        of['o'] = &Printer::unsigned_number<octal>;
        of['x'] = &Printer::unsigned_number<hexadecimal>;
        of['X'] = &Printer::unsigned_number<upper_hexadecimal>;
        of['c'] = &Printer::character;
        of['e'] = of['f'] = of['g'] = &Printer::floating;
        of['p'] = &Printer::pointer;
        of['s'] = &Printer::text;
        of['m'] = &Printer::system_error;
        return of;
    }();
    return writers[static_cast<uint8_t>(letter)];
}

} // namespace

long Tq4_wbuf_print(Tq4_wbuf *buffer, const char *format, va_list args) {
    return buffer && format ? Printer(buffer, args).print(format) : 0;
}
