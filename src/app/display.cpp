// display: for a GB18030 console all whole characters are converted, and a cut one waits for the next piece. Bytes that
// are no character, or have no counterpart, go through as they are, so that nothing a daemon writes is lost.
#include "app/display.hpp"

#include <utility>

#include "base/charset/gb18030.hpp"
#include "base/charset/utf8.hpp"

namespace {

constexpr int longest_form = 6;
constexpr std::size_t largest_growth = 2; // of a text on its way to GB18030

Tq4_bytes from(const std::string &text, std::size_t at) {
    return {reinterpret_cast<const uint8_t *>(text.data()) + at, text.size() - at};
}

// Whether the bytes begin a character and end before it does.
bool is_cut(Tq4_bytes bytes) {
    const int result = utf8_decode(bytes, nullptr); // minus the length of a form that is cut, or broken
    if (result >= -1 || result < -longest_form || static_cast<std::size_t>(-result) <= bytes.size) return false;
    for (std::size_t i = 1; i < bytes.size; ++i)
        if ((bytes.data[i] & 0xc0) != 0x80) return false;
    return true;
}

// Converts text and leaves in *cut what has to wait.
std::string to_gb18030(const std::string &text, std::string *cut) {
    std::string out(text.size() * largest_growth, '\0');
    std::size_t at = 0, size = 0;
    while (at < text.size()) {
        const Tq4_converted done =
            utf8_to_gb18030(from(text, at), {reinterpret_cast<uint8_t *>(out.data()) + size, out.size() - size});
        at += done.consumed;
        size += done.produced;
        if (at == text.size()) break;
        if (is_cut(from(text, at))) {
            *cut = text.substr(at);
            break;
        }
        out[size++] = text[at++];
    }
    out.resize(size);
    return out;
}

} // namespace

std::string Tq4_app_display::Next(std::string_view piece, bool gb18030) {
    std::string text = std::exchange(m_cut, {}).append(piece);
    return gb18030 ? to_gb18030(text, &m_cut) : text;
}
