// multi_platform_output: a write holds a descriptor of its own, which leads to what stood behind the given one when the
// write began. So the rest of a text never goes to the next shell, and only the connection that is stuck is ended.
//
// That descriptor does not wait. A socket is told so with each write; a terminal or a pipe is opened a second time,
// since its mode belongs to all who share it. Waiting is done in short slices, for two reasons. A blocked local socket
// reports room only when three quarters of it are free, which a slow reader may not reach in time. And the end may be
// asked for meanwhile.
#include "platform/multi_platform_output.hpp"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <fcntl.h>
#include <linux/sockios.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/multi_platform_console.hpp"
#include "platform/multi_platform_pthread.hpp"

namespace {

constexpr int slice_ms = 50;
constexpr int roomy_pipe = 1 << 20;         // bytes, what a pipe of an ordinary user may have; a full one has 64 KB
constexpr std::size_t terminal_piece = 128; // for one that cannot be opened again

enum class Kind { Socket, Pipe, Terminal, Other };

Kind kind_of(int descriptor) {
    struct stat status;
    if (fstat(descriptor, &status) != 0) return Kind::Other;
    if (S_ISSOCK(status.st_mode)) return Kind::Socket;
    if (S_ISFIFO(status.st_mode)) return Kind::Pipe;
    return S_ISCHR(status.st_mode) && isatty(descriptor) ? Kind::Terminal : Kind::Other;
}

// The same terminal or pipe in a mode of its own; -1 where the system does not allow it. For signal handlers too.
int open_again(int descriptor) {
    char path[] = "/proc/self/fd/0";
    if (descriptor > 9) return -1;
    path[sizeof path - 2] = static_cast<char>('0' + descriptor);
    return open(path, O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
}

class Held {
public:
    explicit Held(int descriptor) : m_kind(kind_of(descriptor)), m_given(descriptor) {
        if (m_kind == Kind::Socket) m_own = fcntl(descriptor, F_DUPFD_CLOEXEC, 0);
        if (m_kind == Kind::Terminal) m_own = open_again(descriptor);
    }
    ~Held() {
        if (m_own >= 0) close(m_own);
    }
    Held(const Held &) = delete;
    Held &operator=(const Held &) = delete;

    int at() const { return m_own >= 0 ? m_own : m_given; }
    ssize_t Write(const void *bytes, std::size_t size) const;
    void Await(int ms) const {
        pollfd watched{at(), POLLOUT, 0};
        poll(&watched, 1, ms);
    }
    void End() const {
        if (m_kind == Kind::Socket && m_own >= 0) shutdown(m_own, SHUT_RDWR);
    }

private:
    Kind m_kind;
    int m_given;    // borrowed
    int m_own = -1; // owned
};

ssize_t Held::Write(const void *bytes, std::size_t size) const {
    if (m_kind == Kind::Socket) return send(at(), bytes, size, MSG_DONTWAIT | MSG_NOSIGNAL);
    if (m_kind == Kind::Other || m_own >= 0) return write(at(), bytes, size);
    pollfd watched{at(), POLLOUT, 0};
    const std::size_t piece = m_kind == Kind::Pipe ? PIPE_BUF : terminal_piece;
    if (poll(&watched, 1, 0) == 1) return write(at(), bytes, std::min(size, piece));
    errno = EAGAIN;
    return -1;
}

// The time that one write may wait, in all. Most never wait, so the clock is first read when one has to.
class Patience {
public:
    explicit Patience(long ms) : m_ms(ms) {}
    // The next slice; 0 when no time is left.
    int Slice() {
        if (MP_Events_Ending()) return 0;
        if (m_ms < 0) return slice_ms;
        const uint64_t now = MP_THREAD_GetMonotonicMs();
        if (m_end == 0) m_end = now + static_cast<uint64_t>(m_ms);
        return now >= m_end ? 0 : static_cast<int>(std::min<uint64_t>(m_end - now, slice_ms));
    }

private:
    long m_ms;
    uint64_t m_end = 0; // when it waits
};

// False when the system refuses some of the bytes, or no reader takes them in time.
bool write_within(const Held &held, const char *at, std::size_t size, long ms) {
    Patience patience(ms);
    while (size > 0) {
        const ssize_t written = held.Write(at, size);
        if (written > 0) {
            at += written;
            size -= static_cast<std::size_t>(written);
        } else if (written == 0 || (errno != EAGAIN && errno != EINTR)) {
            return false;
        } else if (errno == EAGAIN) {
            const int slice = patience.Slice();
            if (slice == 0) return false;
            held.Await(slice);
        }
    }
    return true;
}

} // namespace

int MP_Output_Write(int descriptor, const void *bytes, std::size_t size, long ms) {
    const Held held(descriptor);
    const bool written = write_within(held, static_cast<const char *>(bytes), size, ms);
    // A reader that is late at the end may still want what found room.
    if (!written && !MP_Events_Ending()) held.End();
    return written;
}

int MP_Output_Tell(int descriptor, const void *bytes, std::size_t size, long ms) {
    pollfd watched{descriptor, POLLOUT, 0};
    poll(&watched, 1, 0);
    if (watched.revents & ~POLLOUT) return 0; // a write would raise SIGPIPE
    return write_within(Held(descriptor), static_cast<const char *>(bytes), size, ms);
}

void MP_Output_StopWaiting(int descriptor) {
    const Kind kind = kind_of(descriptor);
    if (kind == Kind::Other) return;
    const int own = kind == Kind::Socket ? -1 : open_again(descriptor);
    if (own >= 0) {
        dup2(own, descriptor);
        close(own);
    } else if (const int flags = fcntl(descriptor, F_GETFL); flags >= 0) {
        fcntl(descriptor, F_SETFL, flags | O_NONBLOCK);
    }
    if (kind == Kind::Pipe) fcntl(descriptor, F_SETPIPE_SZ, roomy_pipe);
}

MP_Output_Backlog MP_Output_GetBacklog(int socket) {
    pollfd watched{socket, POLLOUT, 0};
    if (poll(&watched, 1, 0) != 0) return MP_Output_follows;
    int unread = 0, room = 0;
    socklen_t size = sizeof room;
    const bool known =
        ioctl(socket, SIOCOUTQ, &unread) == 0 && getsockopt(socket, SOL_SOCKET, SO_SNDBUF, &room, &size) == 0;
    return known && unread >= room ? MP_Output_is_full : MP_Output_is_behind;
}
