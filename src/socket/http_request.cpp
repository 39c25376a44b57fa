// http_request: see the header. "Connecting" is the name of the keep-alive line, deliberately: servers that look for it
// have come to know it.
#include "socket/http_request.hpp"

#include <charconv>
#include <cstring>

#include "base/string/string.hpp"

namespace {

bool fits_line(Tq4_bytes text) {
    const auto has = [&](char c) { return std::memchr(text.data, c, text.size) != nullptr; };
    return text.size == 0 || (!has('\r') && !has('\n') && !has(0));
}

template <class Number> void append_digits(Tq4_string out, Number number) {
    char digits[64];
    const auto [end, error] = std::to_chars(digits, digits + sizeof digits, number);
    (*out)->Memcat(out, digits, static_cast<unsigned long>(end - digits));
}

void append_number(Tq4_string out, Tq4_value value) {
    const Tq4_value_type type = (*value)->Type(value);
    switch (type) {
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
        return append_digits(out, static_cast<unsigned long>((*value)->GetULong(value)));
    default:
        return append_digits(out, (*value)->GetLong(value));
    }
}

constexpr bool is_text(Tq4_value_type type) { return type >= Tq4_value_STRING && type <= Tq4_value_PUCHAR; }
constexpr bool is_number(Tq4_value_type type) {
    return (type >= Tq4_value_CHAR && type <= Tq4_value_ULONG) || (type >= Tq4_value_INT64 && type <= Tq4_value_DOUBLE);
}

// False when it cannot stand in a line.
bool append_value(Tq4_string out, Tq4_value value) {
    const Tq4_value_type type = (*value)->Type(value);
    if (is_number(type)) append_number(out, value);
    if (!is_text(type)) return is_number(type);
    const Tq4_bytes text = Tq4_record_of<Tq4_string_obj>((*value)->GetString(value)).view();
    (*out)->Memcat(out, text.data, text.size);
    return fits_line(text);
}

} // namespace

bool Tq4_http_fits_line(const char *text) { return !std::strpbrk(text, "\r\n"); }

bool Tq4_http_append_headers(Tq4_string out, Tq4_value_table headers) {
    struct Lines {
        Tq4_string out;
        bool fit;
    } lines{out, true};
    const auto append = [](Tq4_key key, Tq4_value value, void *to) -> int {
        auto &[text, fit] = *static_cast<Lines *>(to);
        const char *name = (*key)->GetS(key);
        fit = name && *name && Tq4_http_fits_line(name);
        if (!fit) return 1;
        (*text)->Sprintf_append(text, "%s: ", name);
        fit = append_value(text, value);
        (*text)->Strcat(text, "\r\n");
        return !fit;
    };
    if (headers) (*headers)->each(headers, append, &lines);
    return lines.fit;
}

void Tq4_http_make_request(Tq4_string out, const char *method, const char *url, const char *host, const char *headers,
                           Tq4_string body) {
    (*out)->Sprintf(out, "%s %s HTTP/1.1\r\n", method, url);
    (*out)->Sprintf_append(out, "host: %s\r\n", host);
    (*out)->Strcat(out, headers);
    (*out)->Strcat(out, "Connecting: keep-alive\r\n");
    const long length = body ? (*body)->length(body) : 0;
    if (length > 0) {
        (*out)->Sprintf_append(out, "Content-Length: %ld\r\n", length);
        (*out)->Strcat(out, "\r\n");
        (*out)->Memcat(out, (*body)->c_str(body), static_cast<unsigned long>(length));
    } else {
        (*out)->Strcat(out, "\r\n");
    }
}
