// display: for a console of another charset all whole characters are converted, and a cut one waits for the next piece.
// Bytes that are no character, or have no counterpart, go through as they are, so that nothing a daemon writes is lost.
//
// The first byte from a daemon tells its charset: its welcome begins with a Chinese character, whose first byte in
// GB18030 (BB) begins no character of UTF-8.
#include "app/display.hpp"

#include <utility>

#include "base/charset/gb18030.hpp"
#include "base/charset/utf8.hpp"

namespace {

constexpr std::size_t longest_utf8 = 6, longest_gb18030 = 4;
constexpr std::size_t largest_growth = 2; // of a text, in both directions

Tq4_bytes from(const std::string &text, std::size_t at) {
    return {reinterpret_cast<const uint8_t *>(text.data()) + at, text.size() - at};
}

bool continues_utf8(uint8_t byte) { return (byte & 0xc0) == 0x80; }

// Whether the bytes begin a character of UTF-8 and end before it does.
bool is_cut_utf8(Tq4_bytes bytes) {
    const int result = utf8_decode(bytes, nullptr); // minus the length of a form that is cut, or broken
    const auto length = static_cast<std::size_t>(-result);
    if (result >= -1 || length > longest_utf8 || length <= bytes.size) return false;
    for (std::size_t i = 1; i < bytes.size; ++i)
        if (!continues_utf8(bytes.data[i])) return false;
    return true;
}

// The same of GB18030. A second byte that is a digit makes a character four bytes long.
bool is_cut_gb18030(Tq4_bytes bytes) {
    const auto leads = [](uint8_t byte) { return byte >= 0x81 && byte <= 0xfe; };
    const auto is_digit = [](uint8_t byte) { return byte >= '0' && byte <= '9'; };
    if (bytes.size == 0 || bytes.size >= longest_gb18030 || !leads(bytes.data[0])) return false;
    return bytes.size == 1 || (is_digit(bytes.data[1]) && (bytes.size == 2 || leads(bytes.data[2])));
}

struct Conversion {
    Tq4_converted (*convert)(Tq4_bytes in, Tq4_room out);
    bool (*is_cut)(Tq4_bytes);
};
constexpr Conversion to_gb18030 = {utf8_to_gb18030, is_cut_utf8}, to_utf8 = {gb18030_to_utf8, is_cut_gb18030};

// Converts text and leaves in *cut what has to wait.
std::string converted(const Conversion &conversion, const std::string &text, std::string *cut) {
    std::string out(text.size() * largest_growth, '\0');
    std::size_t at = 0, size = 0;
    while (at < text.size()) {
        const Tq4_converted done =
            conversion.convert(from(text, at), {reinterpret_cast<uint8_t *>(out.data()) + size, out.size() - size});
        at += done.consumed;
        size += done.produced;
        if (at == text.size()) break;
        if (conversion.is_cut(from(text, at))) {
            *cut = text.substr(at);
            break;
        }
        out[size++] = text[at++];
    }
    out.resize(size);
    return out;
}

} // namespace

std::string Tq4_app_display::Next(std::string_view piece, Tq4_app_charset console) {
    using enum Tq4_app_charset;
    std::string text = std::exchange(m_cut, {}).append(piece);
    if (m_from == As_it_comes && !text.empty())
        m_from = continues_utf8(static_cast<uint8_t>(text.front())) ? Gb18030 : Utf8;
    if (console == As_it_comes || console == m_from) return text;
    return converted(console == Gb18030 ? to_gb18030 : to_utf8, text, &m_cut);
}
