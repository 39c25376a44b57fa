// stream: a write buffer and a read buffer over one descriptor.
//
// Output gathers in m_out until it is full or flushed; m_sent counts what the system has taken of it, so that a refused
// flush goes on where it stopped. Input is read ahead into m_in as far as one read gives. On a descriptor with a
// position at most one of the two holds data: writing gives back what was read ahead, reading sends what was written.
// A byte is copied once in each direction; large blocks are written past the buffer.
#include "base/stream.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include "base/print.hpp"
#include "base/string/string.hpp"
#include "platform/multi_platform_fs.hpp"
#include "platform/multi_platform_socket.hpp"
#include "platform/multi_platform_system.hpp"

namespace {

enum Direction { For_reading = 0, For_writing = 1 };

// Whether a transfer that failed may be tried again, after waiting for a descriptor that does not block.
bool can_retry(int descriptor, Direction direction) {
    const int error = MP_FileGetLastError();
    return (error == EAGAIN || error == EWOULDBLOCK) && MP_SOCK_Wait(descriptor, -1, direction) > 0;
}

// How many of the bytes were written: fewer only when the system refuses the rest.
unsigned long write_most(int descriptor, const uint8_t *bytes, unsigned long n) {
    unsigned long sent = 0;
    do sent += MP_WriteMost(descriptor, bytes + sent, n - sent);
    while (sent < n && can_retry(descriptor, For_writing));
    return sent;
}

long read_some(int descriptor, void *room, unsigned long n) {
    long received;
    do received = MP_FileRead(descriptor, room, n);
    while (received < 0 && can_retry(descriptor, For_reading));
    return received;
}

} // namespace

Tq4_stream_obj::~Tq4_stream_obj() {
    Detach();
    Tq4_wbuf_Release(&m_out);
    Tq4_rbuf_Release(&m_in);
}

void Tq4_stream_obj::Reset() {
    Detach();
    SetByteOrder(ByteOrder_BigEndians);
}

void Tq4_stream_obj::Copy(const Tq4_stream_obj *source) {
    m_order_flag = source ? source->m_order_flag : 1;
    m_out.m_order_flag = static_cast<uint8_t>(m_order_flag);
    m_in.m_order_flag = m_order_flag;
}

int Tq4_stream_obj::Attach(int descriptor) {
    Detach();
    if (descriptor < 0) return 0;
    m_handle = descriptor;
    m_seekable = MP_FileSeek(descriptor, 0, SEEK_CUR) >= 0;
    return 1;
}

int Tq4_stream_obj::Detach() {
    Flush();
    empty_output();
    give_back();
    if (m_in.m_data) Tq4_rbuf_Reset(&m_in);
    m_seekable = false;
    m_state = Tq4_stream_ok;
    m_last = -1;
    return std::exchange(m_handle, -1);
}

bool Tq4_stream_obj::SetByteOrder(Tq4_ByteOrder order) {
    const bool big_host = Tq4_host_order();
    if (order != ByteOrder_SameHost && order != ByteOrder_BigEndians && (order != ByteOrder_LittleEndians || big_host))
        return false;
    m_order_flag = order == ByteOrder_BigEndians;
    m_out.m_order_flag = static_cast<uint8_t>(m_order_flag);
    m_in.m_order_flag = m_order_flag;
    return true;
}

// --- Output ---

bool Tq4_stream_obj::prepare_output() {
    if (m_handle < 0) return false;
    if (m_seekable) give_back();
    if (!m_out.m_data) {
        Tq4_wbuf_Init(&m_out, Buffer_size);
        m_out.fflush = Tq4_wbuf_flush_nothing;
        m_out.m_order_flag = static_cast<uint8_t>(m_order_flag);
    }
    return true;
}

// What was read ahead is unread again: the position goes back to where the caller is.
void Tq4_stream_obj::give_back() {
    const long ahead = Tq4_rbuf_data_size(&m_in);
    if (!m_seekable || ahead == 0) return;
    MP_FileSeek(m_handle, -ahead, SEEK_CUR);
    Tq4_rbuf_Reset(&m_in);
}

// Makes room for n bytes, at most Buffer_size, by sending what is there.
bool Tq4_stream_obj::has_room(unsigned long n) {
    if (n <= m_out.m_cnt) return true;
    Flush();
    if (m_sent) { // the system took a part and then refused
        const unsigned long left = Pending();
        std::memmove(m_out.m_data, m_out.m_data + m_sent, left);
        m_out.m_ptr = m_out.m_data + left;
        m_out.m_cnt = m_out.m_len - left;
        m_sent = 0;
    }
    return n <= m_out.m_cnt;
}

bool Tq4_stream_obj::Flush() {
    if (m_handle < 0) return false;
    m_sent += write_most(m_handle, m_out.m_data + m_sent, Pending());
    if (Pending()) return false;
    empty_output();
    return true;
}

void Tq4_stream_obj::empty_output() {
    if (Tq4_wbuf_size(&m_out) == 0) return;
    m_last = last_char();
    m_sent = 0;
    Tq4_wbuf_Reset(&m_out);
}

long Tq4_stream_obj::Write(const void *bytes, unsigned long n) {
    if (!bytes || !prepare_output()) return 0;
    auto *from = static_cast<const uint8_t *>(bytes);
    const unsigned long all = Tq4_text_length(bytes, n);
    unsigned long left = all;
    while (left && has_room(1)) {
        if (Pending() == 0 && left >= Buffer_size) {
            const unsigned long sent = write_most(m_handle, from + (all - left), left);
            if (sent) m_last = from[all - left + sent - 1];
            left -= sent;
            break; // all of it, or what the system takes
        } else {
            const unsigned long part = std::min(left, m_out.m_cnt);
            Tq4_wbuf_memcat(&m_out, from + (all - left), part);
            left -= part;
        }
    }
    return static_cast<long>(all - left);
}

long Tq4_stream_obj::WriteChar(char c, unsigned long count) {
    if (!prepare_output()) return 0;
    unsigned long left = count;
    while (left && has_room(1)) {
        const unsigned long part = std::min(left, m_out.m_cnt);
        std::memset(m_out.m_ptr, c, part);
        left -= Tq4_wbuf_skip(&m_out, part);
    }
    return static_cast<long>(count - left);
}

long Tq4_stream_obj::vPrintf(const char *format, va_list args) {
    if (!format) return 0;
    Tq4_text_aside text;
    Tq4_wbuf_print(text.buffer(), format, args);
    return Write(text.data(), text.size());
}

// --- Input ---

// The hook of m_in: one read from the descriptor into the free room.
int Tq4_stream_obj::refill(Tq4_rbuf *input) {
    Tq4_stream_obj &s = *static_cast<Input *>(input)->stream;
    s.m_state = Tq4_stream_end;
    if (s.m_handle < 0) return 0;
    if (s.Pending() && !s.Flush() && s.m_seekable) { // the position would be wrong
        s.m_state = Tq4_stream_error;
        return -1;
    }
    if (s.Buffered() == 0) Tq4_rbuf_Reset(input);
    long room;
    uint8_t *at = Tq4_rbuf_buffer(input, &room);
    const long received = read_some(s.m_handle, at, static_cast<unsigned long>(room));
    if (received < 0) s.m_state = Tq4_stream_error;
    if (received <= 0) return static_cast<int>(received);
    Tq4_rbuf_fill(input, received);
    s.m_state = Tq4_stream_ok;
    return 1;
}

void Tq4_stream_obj::prepare_input() {
    m_state = Tq4_stream_ok;
    if (m_in.m_data) return;
    Tq4_rbuf_Init(&m_in, Buffer_size);
    m_in.get_ready = refill;
    m_in.stream = this;
    m_in.m_order_flag = m_order_flag;
}

// Whether n bytes can be read; when the data ends before, all of them stay unread.
bool Tq4_stream_obj::gather(unsigned long n) {
    prepare_input();
    while (Buffered() < n)
        if (refill(&m_in) <= 0) return false;
    return true;
}

const char *Tq4_stream_obj::ReadLine(int mode, unsigned long maximum) {
    if (!m_line) m_line = Tq4_make_hooked<Tq4_string>(Tq4_cxx_support->new_string);
    prepare_input();
    const char *text = Tq4_string_itf_Read_line(m_line.get(), &m_in, mode, maximum == TQ4_ALL_ONES ? 0 : maximum);
    if (text)
        m_state = Tq4_stream_ok; // though the line may have ended with the data
    else if (m_state == Tq4_stream_ok)
        skip_line();
    return text;
}

// The rest of a line that is longer than the maximum.
void Tq4_stream_obj::skip_line() {
    for (int byte = 0; byte >= 0 && byte != '\n'; byte = Tq4_rbuf_getch(&m_in)) {
        auto *line_feed = static_cast<uint8_t *>(std::memchr(m_in.m_read, '\n', m_in.m_cache1 - m_in.m_read));
        m_in.m_read = line_feed ? line_feed : m_in.m_cache1;
    }
    m_state = Tq4_stream_too_long;
}

unsigned long Tq4_stream_obj::LineLength() const {
    return m_line ? static_cast<unsigned long>((*m_line)->length(m_line.get())) : 0;
}

unsigned long Tq4_stream_obj::Read(void *room, unsigned long n) {
    if (!room) return 0;
    prepare_input();
    const long copied = Tq4_rbuf_Read_data(&m_in, room, n);
    return copied < 0 ? 0 : static_cast<unsigned long>(copied);
}

int Tq4_stream_obj::ReadChar() {
    prepare_input();
    const int byte = Tq4_rbuf_getch(&m_in);
    return byte < 0 ? -1 : byte;
}

// --- The position ---

long Tq4_stream_obj::Seek(long offset, int whence) {
    if (!Flush()) return -1;
    if (whence == SEEK_CUR && __builtin_sub_overflow(offset, Tq4_rbuf_data_size(&m_in), &offset)) return -1;
    const long position = MP_FileSeek(m_handle, offset, whence);
    if (position >= 0 && m_in.m_data) Tq4_rbuf_Reset(&m_in);
    return position;
}

long Tq4_stream_obj::Tell() {
    const long position = Flush() ? MP_FileSeek(m_handle, 0, SEEK_CUR) : -1;
    return position < 0 ? -1 : position - Tq4_rbuf_data_size(&m_in);
}

static long Tq4_stream_itf_Printf(Tq4_stream s, const char *format, ...) {
    if (!s) return 0;
    va_list args;
    va_start(args, format);
    const long written = Tq4_record<Tq4_stream_obj>(s)->vPrintf(format, args);
    va_end(args);
    return written;
}

const Tq4_stream_ Tq4_stream_itf = {.Handle = Tq4_op<&Tq4_stream_obj::Handle>,
                                    .Attach = Tq4_op<&Tq4_stream_obj::Attach>,
                                    .Detach = Tq4_op<&Tq4_stream_obj::Detach>,
                                    .SetByteOrder = Tq4_op<&Tq4_stream_obj::SetByteOrder>,
                                    .Printf = Tq4_stream_itf_Printf,
                                    .vPrintf = Tq4_op<&Tq4_stream_obj::vPrintf>,
                                    .WriteChar = Tq4_op<&Tq4_stream_obj::WriteChar>,
                                    .Write = Tq4_op<&Tq4_stream_obj::Write>,
                                    .last_char = Tq4_op<&Tq4_stream_obj::last_char>,
                                    .Flush = Tq4_op<&Tq4_stream_obj::Flush>,
                                    .ReadLine = Tq4_op<&Tq4_stream_obj::ReadLine>,
                                    .LineLength = Tq4_op<&Tq4_stream_obj::LineLength>,
                                    .Read = Tq4_op<&Tq4_stream_obj::Read>,
                                    .ReadChar = Tq4_op<&Tq4_stream_obj::ReadChar>,
                                    .Buffered = Tq4_op<&Tq4_stream_obj::Buffered>,
                                    .State = Tq4_op<&Tq4_stream_obj::State>,
#define TQ4_STREAM_WRITE(name, type) .Write_##name = Tq4_op<&Tq4_stream_obj::Write_number<type>>,
                                    TQ4_STREAM_NUMBERS(TQ4_STREAM_WRITE)
#undef TQ4_STREAM_WRITE
#define TQ4_STREAM_READ(name, type) .Read_##name = Tq4_op<&Tq4_stream_obj::Read_number<type>>,
                                        TQ4_STREAM_NUMBERS(TQ4_STREAM_READ)
#undef TQ4_STREAM_READ
};
TQ4_MODULE(stream)
