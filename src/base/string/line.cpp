// line.cpp: lines from a read buffer.
//
// The buffer is read by segments, as far as a line may go; its own refill brings the next segment when one is used up.
#include <algorithm>

#include "base/rbuf.hpp"
#include "base/string/string.hpp"

namespace {

// The unread bytes that lie in one piece; none at the end of the data.
Tq4_bytes next_segment(Tq4_rbuf *rbuf) {
    int byte = Tq4_rbuf_getch(rbuf);
    if (byte < 0) return {nullptr, 0};
    Tq4_rbuf_ungetch(rbuf, byte);
    return {rbuf->m_read, static_cast<size_t>(rbuf->m_cache1 - rbuf->m_read)};
}

} // namespace

const char *Tq4_string_itf_Read_line(Tq4_string s, Tq4_rbuf *rbuf, int trim, unsigned long max) {
    if (!s || !rbuf) return nullptr;
    auto *line = Tq4_record<Tq4_string_obj>(s);
    line->Reset();
    bool ended = false;
    while (!ended) {
        Tq4_bytes segment = next_segment(rbuf);
        if (!segment.size) break;
        // One byte more than may be without a line feed tells that the line is too long.
        if (max) segment.size = std::min(segment.size - 1, max - line->size()) + 1;
        auto *line_feed = static_cast<const uint8_t *>(std::memchr(segment.data, '\n', segment.size));
        ended = line_feed != nullptr;
        if (ended) segment.size = static_cast<size_t>(line_feed - segment.data) + 1;
        line->Memcat(segment.data, segment.size);
        Tq4_rbuf_skip(rbuf, static_cast<long>(segment.size));
        if (max && !ended && line->size() > max) {
            line->Reset();
            return nullptr;
        }
    }
    if (!line->size()) return nullptr;
    if (trim) line->TrimRight();
    return line->c_str();
}
