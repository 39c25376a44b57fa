// http_reply: the bytes of HTTP/1.1 replies, in blocks of any size, as status, headers and body.
//
// An engine: it opens nothing and knows no request but that one waits. Its owner says Expect when a request has been
// sent, hands every block to Take until it is used up, and looks after each Take whether the reply is complete. Where a
// block is cut makes no difference, but for one rule that servers have come to rely on: what comes in one block with
// the end of a body of known length belongs to that body.
//
// A reply ends at its empty line when it is bodiless: an answer to HEAD, or without chunks and without a length that is
// a positive plain number. Behind the last chunk lines may follow, up to an empty one. They are the old reply's, also
// when they come after the next request was sent; a line that begins with "HTTP/" ends them too.
//
// Ceilings hold against servers that never stop: a reply that passes one is refused.
#pragma once

#include <cstddef>
#include <string>

#include "tq4/string.h"
#include "tq4/value_table.h"

class Tq4_http_reply {
public:
    enum class State {
        Idle,     // no request waits: what comes is dropped
        Reading,  // a request waits
        Complete, // the reply has ended
        Refused,  // it passed a ceiling: what was parsed stands, the connection is of no use any more
    };
    static constexpr std::size_t Longest_line = 64 * 1024; // of headers and chunk sizes
    static constexpr unsigned Most_headers = 1000;
    static constexpr unsigned long Largest_chunk = 0x7fffffff;
    static constexpr unsigned long Largest_body = 1ul << 30;

    // A request has been sent. The reply goes to an empty table, whose flags should ignore case, and an empty string;
    // both are borrowed until the reply has ended or is given up.
    void Expect(bool to_head, Tq4_value_table header, Tq4_string body);
    // Nothing is expected any more. What is left of a reply's end is still skipped.
    void GiveUp() {
        m_state = State::Idle;
        m_status = 0;
    }
    // The connection has ended: what a reply was cut off from does not come any more.
    void Disconnect();
    // Uses up bytes, to the end of the reply at most, and says how many. With n > 0 that is at least one.
    std::size_t Take(const char *bytes, std::size_t n);

    State state() const { return m_state; }
    bool has_ended() const { return m_state == State::Complete || m_state == State::Refused; }
    int status() const { return m_status; }

private:
    using Step = std::size_t (Tq4_http_reply::*)(const char *bytes, std::size_t n);

    State m_state = State::Idle;
    Step m_step = &Tq4_http_reply::StatusLine;
    bool m_in_trailer = false; // lines behind a last chunk are still to come
    bool m_to_head = false;
    bool m_is_chunked = false;
    int m_status = 0;
    unsigned m_headers = 0;             // lines of the header so far
    unsigned long m_owed = 0;           // bytes of the body, as its header says, or of the current chunk
    unsigned long m_body_size = 0;      // so far
    std::string m_line;                 // as far as it came, without carriage returns
    std::size_t m_line_bytes = 0;       // of it, with them
    Tq4_value_table m_header = nullptr; // borrowed
    Tq4_string m_body = nullptr;        // borrowed

    std::size_t StatusLine(const char *bytes, std::size_t n);
    std::size_t HeaderLine(const char *bytes, std::size_t n);
    std::size_t Body(const char *bytes, std::size_t n);
    std::size_t ChunkSize(const char *bytes, std::size_t n);
    std::size_t Chunk(const char *bytes, std::size_t n);
    std::size_t Trailer(const char *bytes, std::size_t n);

    void BeginLine();
    bool CollectLine(const char *bytes, std::size_t n, std::size_t *used);
    void BeginChunk(unsigned long size);
    void StoreHeader();
    void EndHeaders();
    void Append(const char *bytes, std::size_t n);
    void End(State state) { m_state = state; }
};
