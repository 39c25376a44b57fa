// number: what a configuration's values mean as numbers and characters. Nothing here depends on the locale.
#include "file/ini/number.hpp"

#include "c_locale.hpp"

namespace {

// Characters that are written as a backslash and a letter or a word; reading needs only the first letter, and takes
// any that is not here for a blank.
struct Escape {
    char character;
    std::string_view text;
};
constexpr Escape Escapes[] = {{'\t', "\\t"}, {'\n', "\\n"}, {'\r', "\\r"}, {' ', "\\space"}, {'\\', "\\\\"}};

} // namespace

uint64_t Tq4_config_hex(std::string_view text) {
    const char *const end = text.data() + text.size();
    for (const char *at = text.data();; ++at) {
        uint64_t value = 0;
        const auto [stop, error] = std::from_chars(at, end, value, 16);
        at = stop;
        if (at == end || (*at != 'x' && *at != 'X')) return error == std::errc::result_out_of_range ? ~0ul : value;
    }
}

template <> float Tq4_config_float(std::string_view text) { return strtof_l(text.data(), nullptr, Tq4_c_locale()); }
template <> double Tq4_config_float(std::string_view text) { return strtod_l(text.data(), nullptr, Tq4_c_locale()); }

char Tq4_config_char(std::string_view text) {
    if (text.starts_with("0x") || text.starts_with("0X")) return static_cast<char>(Tq4_config_hex(text));
    if (!text.starts_with('\\')) return text.empty() ? '\0' : text.front(); // a leading '0' is itself
    const char letter = text.size() > 1 ? text[1] : '\0';
    if (letter == '0') return '\0';
    for (const Escape &escape : Escapes)
        if (escape.character != ' ' && letter == escape.text[1]) return escape.character;
    return ' ';
}

std::string Tq4_config_float_text(double value) {
    char text[352]; // the largest double has 309 digits before the point
    return {text, std::to_chars(text, text + sizeof text, value, std::chars_format::fixed, 6).ptr};
}

std::string Tq4_config_char_text(char value) {
    for (const Escape &escape : Escapes)
        if (value == escape.character) return std::string(escape.text);
    const auto code = static_cast<unsigned char>(value);
    if (code > ' ' && code < 127) return std::string(1, value);
    return Tq4_config_integer_text(code, true);
}
