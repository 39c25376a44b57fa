// date.cpp: date patterns.
//
// A pattern is a sequence of tokens ("YYYY", "MM", "mi" ...), letters of tokens standing alone, which stand for
// nothing, and other characters, which stand for themselves. One table says what each token is, and one walk over the
// pattern serves writing a date, reading one, and telling the period after which a dated name changes.
//
// A token is all in upper or all in lower case: "Mi" and "Yy" are no tokens.
#include <algorithm>
#include <ctime>

#include "base/string/string.hpp"
#include "platform/multi_platform_system.hpp"

namespace {

constexpr long seconds_of_a_day = 86400;

struct Token {
    char letters[5]; // in upper case, one for each digit
    long period;     // seconds; 0 leaves the period found so far
    long (*get)(const tm &);
    void (*set)(tm &, int);
};

// Where one token begins another, the longer one comes first.
constexpr Token tokens[] = {
    {"YYYY", 0, [](const tm &t) { return t.tm_year + 1900L; }, [](tm &t, int n) { t.tm_year = n - 1900; }},
    {"YY", 31536000, [](const tm &t) { return (t.tm_year + 1900L) % 100; }, [](tm &t, int n) { t.tm_year = n + 100; }},
    {"MM", 2592000, [](const tm &t) { return t.tm_mon + 1L; }, [](tm &t, int n) { t.tm_mon = n - 1; }},
    {"MI", 60, [](const tm &t) { return t.tm_min + 0L; }, [](tm &t, int n) { t.tm_min = n; }},
    {"DD", 86400, [](const tm &t) { return t.tm_mday + 0L; }, [](tm &t, int n) { t.tm_mday = n; }},
    {"HH", 3600, [](const tm &t) { return t.tm_hour + 0L; }, [](tm &t, int n) { t.tm_hour = n; }},
    {"KK", 900, [](const tm &t) { return t.tm_min / 15 + 1L; },
     [](tm &t, int n) { t.tm_min = std::max(n - 1, 0) * 15; }},
    {"SS", 1, [](const tm &t) { return t.tm_sec + 0L; }, [](tm &t, int n) { t.tm_sec = n; }},
};

constexpr char lone_letters[] = "DHKMSYdhkmsy";

bool starts_with(Tq4_bytes pattern, const Token &token, uint8_t case_bit) {
    size_t width = std::strlen(token.letters);
    return pattern.size >= width &&
           std::equal(token.letters, token.letters + width, pattern.data,
                      [=](char a, uint8_t b) { return (static_cast<uint8_t>(a) | case_bit) == b; });
}

const Token *token_at(Tq4_bytes pattern) {
    for (const Token &token : tokens)
        if (starts_with(pattern, token, 0) || starts_with(pattern, token, 'a' - 'A')) return &token;
    return nullptr;
}

void drop_front(Tq4_bytes &bytes, size_t n) {
    bytes.data += n;
    bytes.size -= n;
}

// Calls on_token(token, its digits) and on_other(character) along the pattern.
template <class OnToken, class OnOther> void walk(Tq4_bytes pattern, OnToken on_token, OnOther on_other) {
    while (pattern.size) {
        if (const Token *token = token_at(pattern)) {
            size_t width = std::strlen(token->letters);
            on_token(*token, width);
            drop_front(pattern, width);
        } else {
            if (!std::memchr(lone_letters, *pattern.data, sizeof lone_letters - 1)) on_other(*pattern.data);
            drop_front(pattern, 1);
        }
    }
}

// A time of day has day 0, month index 0 and the year 1900; every other time is a calendar time, in local time. False
// when its year is beyond what the calendar can say.
bool split_time(long time, tm &fields) {
    if (time < 0 || time >= seconds_of_a_day) return MP_localtime(&time, &fields) != nullptr;
    fields = {};
    fields.tm_hour = static_cast<int>(time / 3600);
    fields.tm_min = static_cast<int>(time / 60 % 60);
    fields.tm_sec = static_cast<int>(time % 60);
    return true;
}

// As "%0*ld" does.
void write_padded(Tq4_wbuf *out, long number, size_t width) {
    char digits[24];
    char *at = std::end(digits);
    unsigned long rest = number < 0 ? 0ul - static_cast<unsigned long>(number) : static_cast<unsigned long>(number);
    for (size_t wanted = number < 0 ? width - 1 : width; rest || wanted; rest /= 10, wanted -= wanted != 0)
        *--at = static_cast<char>('0' + rest % 10);
    if (number < 0) *--at = '-';
    Tq4_wbuf_memcat(out, at, static_cast<size_t>(std::end(digits) - at));
}

// The value of exactly width digits at the front of the text, or -1. The digits that are there are taken off.
int take_digits(Tq4_bytes &text, size_t width) {
    int value = 0;
    for (; width && text.size && *text.data >= '0' && *text.data <= '9'; --width, drop_front(text, 1))
        value = value * 10 + (*text.data - '0');
    return width ? -1 : value;
}

struct Date : Tq4_text_aside {
    Date(long time, const char *pattern) {
        tm fields;
        if (!split_time(time, fields)) return;
        walk(
            Tq4_text_bytes(pattern),
            [&](const Token &token, size_t width) { write_padded(buffer(), token.get(fields), width); },
            [&](uint8_t other) { Tq4_wbuf_putch(buffer(), other); });
    }
};

} // namespace

void Tq4_string_obj::FormatDate(long time, const char *pattern) {
    Date date(time, pattern);
    assign(date.data(), date.size());
}

void Tq4_string_obj::Append_FormatDate(long time, const char *pattern) {
    Date date(time, pattern);
    Tq4_wbuf_memcat(&m_buf, date.data(), date.size());
}

long Tq4_string_obj::ToTime(const char *pattern) const {
    tm fields = {};
    fields.tm_isdst = -1; // the system knows whether daylight saving was in force
    Tq4_bytes text = view();
    walk(
        Tq4_text_bytes(pattern),
        [&](const Token &token, size_t width) {
            int value = take_digits(text, width);
            if (value >= 0) token.set(fields, value);
        },
        [&](uint8_t) { drop_front(text, std::min<size_t>(text.size, 1)); });
    return MP_mktime(&fields);
}

// Deliberate: the last token wins, not the finest; patterns for dated names go from coarse to fine.
long Tq4_string_obj::GetTimePeriod(const char *pattern) {
    long period = 31536000;
    walk(
        Tq4_text_bytes(pattern), [&](const Token &token, size_t) { period = token.period ? token.period : period; },
        [](uint8_t) {});
    return period;
}
