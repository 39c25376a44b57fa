// http_request: see the header. "Connecting" is the name of the keep-alive line, deliberately: servers that look for it
// have come to know it.
#include "socket/http_request.hpp"

#include <charconv>
#include <cstring>

#include "base/string/string.hpp"

namespace {

constexpr unsigned long Fixed_text = 128; // bytes of room for the words of every request, and for the length

bool fits_line(Tq4_bytes text) {
    const auto has = [&](char c) { return std::memchr(text.data, c, text.size) != nullptr; };
    return text.size == 0 || (!has('\r') && !has('\n') && !has(0));
}
bool fits_line(const char *text) { return !std::strpbrk(text, "\r\n"); }

template <class Number> void append_digits(Tq4_string_obj &out, Number number) {
    char digits[400]; // a double without an exponent has up to 326
    std::to_chars_result result;
    if constexpr (std::is_floating_point_v<Number>)
        result = std::to_chars(digits, digits + sizeof digits, number, std::chars_format::fixed);
    else
        result = std::to_chars(digits, digits + sizeof digits, number);
    out.Memcat(digits, static_cast<unsigned long>(result.ptr - digits));
}

void append_number(Tq4_string_obj &out, Tq4_value value) {
    switch ((*value)->Type(value)) {
    case Tq4_value_FLOAT:
        return append_digits(out, (*value)->GetFloat(value));
    case Tq4_value_DOUBLE:
        return append_digits(out, (*value)->GetDouble(value));
    case Tq4_value_INT64:
        return append_digits(out, (*value)->GetInt64(value));
    case Tq4_value_UINT64:
        return append_digits(out, static_cast<unsigned long>((*value)->GetInt64(value)));
    case Tq4_value_UCHAR:
    case Tq4_value_USHORT:
    case Tq4_value_UINT:
    case Tq4_value_ULONG:
        return append_digits(out, (*value)->GetULong(value));
    default:
        return append_digits(out, (*value)->GetLong(value));
    }
}

constexpr bool is_text(Tq4_value_type type) { return type >= Tq4_value_STRING && type <= Tq4_value_PUCHAR; }
constexpr bool is_number(Tq4_value_type type) {
    return (type >= Tq4_value_CHAR && type <= Tq4_value_ULONG) || (type >= Tq4_value_INT64 && type <= Tq4_value_DOUBLE);
}

// False when it cannot stand in a line.
bool append_value(Tq4_string_obj &out, Tq4_value value) {
    const Tq4_value_type type = (*value)->Type(value);
    if (is_number(type)) append_number(out, value);
    if (!is_text(type)) return is_number(type);
    const Tq4_bytes text = Tq4_record_of<Tq4_string_obj>((*value)->GetString(value)).view();
    out.Memcat(text.data, text.size);
    return fits_line(text);
}

void append(Tq4_string_obj &out, const char *text) { out.Memcat(text, std::strlen(text)); }

// A line for each entry; false when one does not fit.
bool append_headers(Tq4_string_obj &out, Tq4_value_table headers) {
    struct Lines {
        Tq4_string_obj &out;
        bool fit;
    } lines{out, true};
    const auto append_line = [](Tq4_key key, Tq4_value value, void *to) -> int {
        auto &[text, fit] = *static_cast<Lines *>(to);
        const char *name = (*key)->GetS(key);
        fit = false;
        if (!name || !*name || !fits_line(name)) return 1;
        append(text, name);
        append(text, ": ");
        fit = append_value(text, value);
        append(text, "\r\n");
        return !fit;
    };
    if (headers) (*headers)->each(headers, append_line, &lines);
    return lines.fit;
}

} // namespace

bool Tq4_http_make_request(Tq4_string out, const Tq4_http_wanted &wanted) {
    const auto &[method, url, host, headers, body] = wanted;
    if (!*method || !*url || !fits_line(method) || !fits_line(url) || !fits_line(host)) return false;
    auto &text = Tq4_record_of<Tq4_string_obj>(out);
    const Tq4_bytes content = body ? Tq4_record_of<Tq4_string_obj>(body).view() : Tq4_bytes{};
    text.set_size(0);
    text.reserve(std::strlen(method) + std::strlen(url) + std::strlen(host) + Fixed_text + content.size);
    for (const char *part : {method, " ", url, " HTTP/1.1\r\nhost: ", host, "\r\n"}) append(text, part);
    if (!append_headers(text, headers)) return false;
    append(text, "Connecting: keep-alive\r\n");
    if (content.size > 0) {
        append(text, "Content-Length: ");
        append_digits(text, content.size);
        append(text, "\r\n");
    }
    append(text, "\r\n");
    text.Memcat(content.data, content.size);
    return true;
}
