// edit.cpp: changing the text in place.
//
// Everything that lengthens the text opens a gap and fills it; everything that shortens it moves the tail down. Case
// and blanks are ASCII, whatever the locale.
#include <algorithm>

#include "base/string/string.hpp"
#include "tq4/byte_order.h"

namespace {

bool is_blank(uint8_t c) { return c == ' ' || c == '\t'; }
bool is_blank_or_line_end(uint8_t c) { return is_blank(c) || c == '\n' || c == '\r'; }

} // namespace

void Tq4_string_obj::truncate(unsigned long n) { set_size(std::min(n, size())); }

void Tq4_string_obj::truncate_tail(unsigned long n) { n < size() ? set_size(size() - n) : Reset(); }

void Tq4_string_obj::Memcpy(const void *bytes, unsigned long len) { assign(bytes, Tq4_text_length(bytes, len)); }

void Tq4_string_obj::insert_char(unsigned long position, char c, unsigned long count) { fill_gap(position, count, c); }

void Tq4_string_obj::insert_str(unsigned long position, const void *bytes, unsigned long len) {
    Tq4_operand operand(*this, bytes, len);
    uint8_t *gap = open_gap(position, operand.size);
    if (gap && operand.size) std::memcpy(gap, operand.data, operand.size);
}

void Tq4_string_obj::del(unsigned long position, unsigned long count) {
    if (position >= size()) return;
    uint8_t *from = begin() + position;
    count = std::min(count, size() - position);
    std::memmove(from, from + count, size() - position - count);
    set_size(size() - count);
}

void Tq4_string_obj::Replace(char from, char to) {
    std::replace(begin(), end(), static_cast<uint8_t>(from), static_cast<uint8_t>(to));
}

void Tq4_string_obj::addnch(char c, unsigned long count) { fill_gap(TQ4_ALL_ONES, count, c); }

void Tq4_string_obj::resize(unsigned long length, int fill) {
    if (length <= size()) return set_size(length);
    unsigned long added = length - size();
    uint8_t *gap = open_gap(TQ4_ALL_ONES, added);
    if (gap && fill >= 0) std::memset(gap, fill, added);
}

char *Tq4_string_obj::Extend(unsigned long n) { return reinterpret_cast<char *>(open_gap(TQ4_ALL_ONES, n)); }

const char *Tq4_string_obj::c_str() {
    // Deliberate: when no room can be had the NUL takes the last byte's place; callers rely on a terminated text.
    if (reserve(1))
        *end() = 0;
    else if (size())
        end()[-1] = 0;
    return reinterpret_cast<const char *>(begin());
}

// Deliberate: line ends are removed on the right only.
void Tq4_string_obj::TrimLeft() {
    uint8_t *first = std::find_if_not(begin(), end(), is_blank);
    if (first != begin()) del(0, static_cast<unsigned long>(first - begin()));
}

void Tq4_string_obj::TrimRight() {
    unsigned long n = size();
    while (n && is_blank_or_line_end(begin()[n - 1])) --n;
    set_size(n);
}

void Tq4_string_obj::Trim() {
    TrimRight();
    TrimLeft();
}

void Tq4_string_obj::Upper() { std::transform(begin(), end(), begin(), Tq4_ascii_upper); }
void Tq4_string_obj::Lower() { std::transform(begin(), end(), begin(), Tq4_ascii_lower); }

short Tq4_string_obj::GetAt(unsigned long index) const { return index < size() ? begin()[index] : short(-1); }

void Tq4_string_obj::SetAt(unsigned long index, char c) {
    if (index < size()) begin()[index] = static_cast<uint8_t>(c);
}

void Tq4_string_obj::Reverse() { std::reverse(begin(), end()); }

void Tq4_string_obj::host2net(const void *bytes, unsigned long len) {
    Tq4_operand operand(*this, bytes, len);
    if (uint8_t *gap = open_gap(TQ4_ALL_ONES, operand.size)) host_net_exchange(operand.data, gap, operand.size);
}

void Tq4_string_obj::Align(char mode, char pad, unsigned long width) {
    if (mode != 'L' && mode != 'R' && mode != 'M') return;
    if (width < size()) return mode == 'R' ? del(0, size() - width) : set_size(width);

    unsigned long missing = width - size();
    if (!reserve(missing)) return;
    unsigned long left = mode == 'L' ? 0 : mode == 'M' ? missing / 2 : missing;
    fill_gap(0, left, pad);
    fill_gap(TQ4_ALL_ONES, missing - left, pad);
}
