// http_reply: one step at a time: the status line, header lines, then a body of known length, or chunks and the lines
// behind them. Each step takes what is its own from the front of the bytes; m_step is the one that is next.
#include "socket/http_reply.hpp"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace {

constexpr std::size_t Version_length = 8; // of "HTTP/1.1"
constexpr std::string_view Version_start = "HTTP/";

constexpr bool is_blank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && is_blank(text.front())) text.remove_prefix(1);
    while (!text.empty() && is_blank(text.back())) text.remove_suffix(1);
    return text;
}

bool starts_ignoring_case(std::string_view text, std::string_view start) {
    return text.size() >= start.size() && strncasecmp(text.data(), start.data(), start.size()) == 0;
}
bool equals_ignoring_case(std::string_view text, std::string_view other) {
    return text.size() == other.size() && starts_ignoring_case(text, other);
}

// A number of digits alone, as large as it may be; 0 for anything else.
unsigned long plain_number(std::string_view digits) {
    const auto is_digit = [](char c) { return c >= '0' && c <= '9'; };
    if (!std::all_of(digits.begin(), digits.end(), is_digit)) return 0;
    unsigned long number = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    return error == std::errc::result_out_of_range ? ULONG_MAX : number;
}

// A chunk's size as hexadecimal digits, with or without sign and "0x"; what follows them is ignored. False when there
// are none. A size below zero is as bad as one that is too large.
bool read_chunk_size(std::string_view line, unsigned long *size) {
    line = trimmed(line);
    const bool is_negative = line.starts_with('-');
    if (is_negative || line.starts_with('+')) line.remove_prefix(1);
    if (line.starts_with("0x") || line.starts_with("0X")) line.remove_prefix(2);
    const auto [end, error] = std::from_chars(line.data(), line.data() + line.size(), *size, 16);
    const bool is_too_large = error == std::errc::result_out_of_range || (is_negative && *size > 0);
    if (is_too_large) *size = ULONG_MAX;
    return error != std::errc::invalid_argument;
}

} // namespace

void Tq4_http_reply::Expect(bool to_head, Tq4_value_table header, Tq4_string body) {
    m_state = State::Reading;
    m_step = &Tq4_http_reply::StatusLine;
    m_to_head = to_head;
    m_status = 0;
    m_headers = 0;
    m_is_chunked = false;
    m_owed = m_body_size = 0;
    m_header = header;
    m_body = body;
    if (!m_in_trailer) BeginLine();
}

void Tq4_http_reply::Disconnect() {
    m_in_trailer = false;
    BeginLine();
    m_step = &Tq4_http_reply::StatusLine;
}

void Tq4_http_reply::BeginLine() {
    m_line.clear();
    m_line_bytes = 0;
}

std::size_t Tq4_http_reply::Take(const char *bytes, std::size_t n) {
    if (m_in_trailer) return Trailer(bytes, n);
    return m_state == State::Reading ? (this->*m_step)(bytes, n) : n;
}

// Adds what comes before the next line feed to the line, without carriage returns. True when the line is complete. Of a
// line over the ceiling, which may have one carriage return more, the beginning is kept, and its reply is refused.
bool Tq4_http_reply::CollectLine(const char *bytes, std::size_t n, std::size_t *used) {
    const auto *feed = static_cast<const char *>(std::memchr(bytes, '\n', n));
    const std::size_t length = feed ? static_cast<std::size_t>(feed - bytes) : n;
    *used = length + (feed != nullptr);
    const std::size_t before = m_line.size();
    m_line.append(bytes, std::min(length, Longest_line + 1 - before));
    m_line.erase(std::remove(m_line.begin() + static_cast<long>(before), m_line.end(), '\r'), m_line.end());
    m_line_bytes += length;
    const bool is_over = m_line.size() > Longest_line || m_line_bytes > Longest_line + 1;
    if (is_over && m_state == State::Reading) End(State::Refused);
    return feed != nullptr;
}

std::size_t Tq4_http_reply::StatusLine(const char *bytes, std::size_t n) {
    std::size_t used;
    if (!CollectLine(bytes, n, &used) || m_state != State::Reading) return used;
    if (m_line.size() > Version_length) {
        m_status = std::atoi(m_line.c_str() + Version_length);
        m_step = &Tq4_http_reply::HeaderLine;
    } else {
        End(State::Complete);
    }
    BeginLine();
    return used;
}

std::size_t Tq4_http_reply::HeaderLine(const char *bytes, std::size_t n) {
    std::size_t used;
    if (!CollectLine(bytes, n, &used) || m_state != State::Reading) return used;
    if (m_line.empty())
        EndHeaders();
    else if (++m_headers > Most_headers)
        End(State::Refused);
    else
        StoreHeader();
    BeginLine();
    return used;
}

// Both texts end where the line has something else, of which a NUL takes the place. A name that comes again replaces
// what it said before.
void Tq4_http_reply::StoreHeader() {
    const std::size_t colon = m_line.find(':');
    if (colon == m_line.npos) return;
    const std::string_view line = m_line;
    const std::string_view name = trimmed(line.substr(0, colon)), value = trimmed(line.substr(colon + 1));
    m_line[static_cast<std::size_t>(name.data() + name.size() - line.data())] = 0;
    m_line[static_cast<std::size_t>(value.data() + value.size() - line.data())] = 0;
    if (equals_ignoring_case(name, "Transfer-Encoding")) m_is_chunked = starts_ignoring_case(value, "chunked");
    if (equals_ignoring_case(name, "Content-Length")) m_owed = plain_number(value);
    (*m_header)->SetSS(m_header, name.data(), value.data());
}

void Tq4_http_reply::EndHeaders() {
    if (m_to_head) return End(State::Complete);
    m_step = m_is_chunked ? &Tq4_http_reply::ChunkSize : &Tq4_http_reply::Body;
    if (m_is_chunked) return;
    if (m_owed == 0) End(State::Complete);
    if (m_owed > Largest_body) End(State::Refused);
}

void Tq4_http_reply::Append(const char *bytes, std::size_t n) {
    m_body_size += n;
    if (m_body_size > Largest_body) return End(State::Refused);
    (*m_body)->Memcat(m_body, bytes, n);
}

// All that is there: what a server sends beyond the length in the same block is in the body, deliberately.
std::size_t Tq4_http_reply::Body(const char *bytes, std::size_t n) {
    Append(bytes, n);
    m_owed -= std::min<unsigned long>(m_owed, n);
    if (m_owed == 0 && m_state == State::Reading) End(State::Complete);
    return n;
}

// The line with a chunk's size. Empty lines, one of which ends the chunk before, and lines without a size are skipped.
std::size_t Tq4_http_reply::ChunkSize(const char *bytes, std::size_t n) {
    std::size_t used;
    if (!CollectLine(bytes, n, &used) || m_state != State::Reading) return used;
    unsigned long size;
    if (read_chunk_size(m_line, &size)) BeginChunk(size);
    BeginLine();
    return used;
}

void Tq4_http_reply::BeginChunk(unsigned long size) {
    if (size > Largest_chunk) return End(State::Refused);
    m_owed = size;
    m_step = &Tq4_http_reply::Chunk;
    if (size > 0) return;
    m_in_trailer = true;
    End(State::Complete);
}

std::size_t Tq4_http_reply::Chunk(const char *bytes, std::size_t n) {
    const std::size_t used = std::min<std::size_t>(n, m_owed);
    Append(bytes, used);
    m_owed -= used;
    if (m_owed == 0) m_step = &Tq4_http_reply::ChunkSize;
    return used;
}

// A line behind the last chunk. The one that begins the next reply is its status line.
std::size_t Tq4_http_reply::Trailer(const char *bytes, std::size_t n) {
    std::size_t used;
    if (!CollectLine(bytes, n, &used) || m_state == State::Refused) return used;
    if (m_state == State::Reading && ++m_headers > Most_headers) {
        End(State::Refused);
        return used;
    }
    const bool is_next_reply = std::string_view(m_line).starts_with(Version_start);
    m_in_trailer = !m_line.empty() && !is_next_reply;
    if (is_next_reply && m_state == State::Reading) {
        const char end_of_line = '\n';
        m_headers = 0;
        StatusLine(&end_of_line, 1);
    }
    BeginLine();
    return used;
}
