// log_output: a buffer that grows, one write, and what becomes of a line that was written in part.
//
// Others may write to the file as well, or die in the middle of a line. So whether the file ends inside a line is asked
// of the file when it is opened. Later only our own writes can have left half a line there.
#include "file/log_output.hpp"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <utility>

#include "platform/multi_platform_fs.hpp"
#include "platform/multi_platform_pthread.hpp"
#include "platform/multi_platform_system.hpp"

namespace {

// A write takes microseconds, milliseconds when its process has to wait for a processor.
constexpr int Torn_looks = 10;
constexpr long Torn_look_interval = 1; // milliseconds

// Takes n bytes away from the end of a file, if what was written last is still its end.
bool cut_tail(int descriptor, unsigned long n) {
    const long end = MP_FileSeek(descriptor, 0, SEEK_CUR);
    return end >= static_cast<long>(n) && MP_GetFileSize1(descriptor) == static_cast<uint64_t>(end) &&
           MP_FileTruncate(descriptor, static_cast<unsigned long>(end) - n);
}

bool ends_in_line_feed(int descriptor) {
    char last;
    return MP_FileSeek(descriptor, -1, SEEK_END) < 0 || MP_FileRead(descriptor, &last, 1) != 1 || last == '\n';
}

// Whether a killed process has left half a line at the end of the file. Half a line that another process is just
// writing does not stay half.
bool is_torn(int descriptor) {
    if (MP_GetFileSize1(descriptor) == 0) return false; // a device, perhaps
    for (int looks = 0; looks < Torn_looks; ++looks) {
        if (ends_in_line_feed(descriptor)) return false;
        MP_Sleep(Torn_look_interval);
    }
    return true;
}

} // namespace

Tq4_log_output::~Tq4_log_output() {
    Close();
    Tq4_wbuf_Release(&m_buffer);
}

void Tq4_log_output::Open(int descriptor) {
    TQ4_CHECK(m_descriptor < 0 && descriptor >= 0 && Pending() == 0);
    m_descriptor = descriptor;
    m_torn = is_torn(descriptor);
}

void Tq4_log_output::Close() {
    Empty();
    if (m_descriptor >= 0) MP_FileClose(std::exchange(m_descriptor, -1));
}

Tq4_wbuf *Tq4_log_output::Buffer() {
    TQ4_CHECK(m_descriptor >= 0);
    if (!m_buffer.m_data) {
        Tq4_wbuf_Init(&m_buffer, Buffer_size);
        m_buffer.fflush = Tq4_wbuf_flush_nothing;
    }
    if (m_torn && Pending() == 0) Tq4_wbuf_putch(&m_buffer, '\n');
    return &m_buffer;
}

unsigned long Tq4_log_output::Send() {
    const unsigned long size = Pending();
    if (size == 0) return 0;
    const unsigned long sent = MP_WriteMost(m_descriptor, m_buffer.m_data, size);
    const int error = errno;
    const unsigned long taken_back = sent < size ? TakeBack(sent) : 0;
    if (sent == size) m_torn = false;
    Empty();
    errno = error;
    return size - sent + taken_back;
}

// The beginning of a line at the end of what was sent; the number of bytes that the file is shorter by.
unsigned long Tq4_log_output::TakeBack(unsigned long sent) {
    if (sent == 0) return 0;
    auto *line_feed = static_cast<const uint8_t *>(memrchr(m_buffer.m_data, '\n', sent));
    const unsigned long torn = line_feed ? static_cast<unsigned long>(m_buffer.m_data + sent - line_feed) - 1 : sent;
    const bool cut = torn && cut_tail(m_descriptor, torn);
    m_torn = torn && !cut;
    return cut ? torn : 0;
}

void Tq4_log_output::Empty() {
    if (Pending() == 0) return;
    if (m_buffer.m_len > Buffer_kept_size)
        Tq4_wbuf_Release(&m_buffer);
    else
        Tq4_wbuf_Reset(&m_buffer);
}
