// format.cpp: the formatted operations.
//
// The format and its text arguments may lie inside the string that receives the result, and an argument list does not
// tell. So the text is always made aside and then put in its place as bytes.
#include "base/print.hpp"
#include "base/string/string.hpp"

namespace {

struct Formatted : Tq4_text_aside {
    Formatted(const char *format, va_list args) {
        if (format) Tq4_wbuf_print(buffer(), format, args);
    }
};

} // namespace

long Tq4_string_obj::vSprintf(const char *format, va_list args) {
    Formatted text(format, args);
    return assign(text.data(), text.size()) ? length() : 0;
}

// Deliberate: the result is the bytes of this call, not the length of the whole text.
long Tq4_string_obj::vsprintf_append(const char *format, va_list args) {
    Formatted text(format, args);
    long before = length();
    Tq4_wbuf_memcat(&m_buf, text.data(), text.size());
    return length() - before;
}

void Tq4_string_obj::vinsert(unsigned long position, const char *format, va_list args) {
    Formatted text(format, args);
    insert_str(position, text.data(), text.size());
}
