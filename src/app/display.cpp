// display: on a UTF-8 console pieces go through as they come. On a GB18030 one all whole characters are converted and a
// cut one waits for the next piece; bytes that are no character, or have no counterpart, go through as they are, so
// that nothing a daemon writes is lost or held back for long.
#include "app/display.hpp"

#include <utility>

#include "base/charset/gb18030.hpp"
#include "base/charset/utf8.hpp"
#include "platform/multi_platform_console.hpp"

namespace {

constexpr int standard_output = 1;
constexpr std::size_t largest_growth = 2; // of a text on its way to GB18030

Tq4_bytes from(const std::string &text, std::size_t at) {
    return {reinterpret_cast<const uint8_t *>(text.data()) + at, text.size() - at};
}

// Whether the bytes begin a character and end before it does.
bool is_cut(Tq4_bytes bytes) {
    const int result = utf8_decode(bytes, nullptr);
    if (result >= -1 || static_cast<std::size_t>(-result) <= bytes.size) return false;
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

void Tq4_app_display::Show(const char *bytes, std::size_t size) {
    const bool converts = m_gb18030();
    if (!converts && m_cut.empty()) {
        MP_WriteAll(standard_output, bytes, size);
        return;
    }
    std::string text = std::exchange(m_cut, {}).append(bytes, size);
    if (converts) text = to_gb18030(text, &m_cut);
    MP_WriteAll(standard_output, text.data(), text.size());
}
