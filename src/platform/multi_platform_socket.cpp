// multi_platform_socket: waiting on a socket, connecting without waiting, and resolving names.
//
// MP_SOCK_Wait answers as select would for one descriptor, but asks poll: select's sets end at descriptor 1023, and a
// service may have many more. The time that has passed is taken from the steady clock.
#include "platform/multi_platform_socket.hpp"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>

namespace {

constexpr int wait_for_writing = 1;
// What makes select call a descriptor readable or writable, without what poll reports unasked.
constexpr short readable = POLLIN | POLLRDNORM | POLLRDBAND;
constexpr short writable = POLLOUT | POLLWRNORM | POLLWRBAND;

// poll for one descriptor, continued after signals with the time that is left. A negative ms waits without limit.
int poll_one(pollfd &watched, long ms) {
    using namespace std::chrono;
    const auto start = steady_clock::now();
    for (long left = ms;;) {
        const timespec timeout{left / 1000, left % 1000 * 1000000};
        const int ready = ppoll(&watched, 1, ms < 0 ? nullptr : &timeout, nullptr);
        if (ready >= 0 || errno != EINTR) return ready;
        if (ms > 0) left = std::max(0L, ms - duration_cast<milliseconds>(steady_clock::now() - start).count());
    }
}

int bad_descriptor() {
    errno = EBADF;
    return -1;
}

// Makes a resolved address the any-address of its family.
void set_any(sockaddr *address, uint16_t port) {
    if (address->sa_family == AF_INET) {
        auto *ipv4 = reinterpret_cast<sockaddr_in *>(address);
        ipv4->sin_addr.s_addr = htonl(INADDR_ANY);
        ipv4->sin_port = htons(port);
    } else if (address->sa_family == AF_INET6) {
        auto *ipv6 = reinterpret_cast<sockaddr_in6 *>(address);
        ipv6->sin6_addr = in6addr_any;
        ipv6->sin6_port = htons(port);
    }
}

} // namespace

int MP_SOCK_GetLastError() { return errno; }
int MP_SOCK_SetLastError(int code) { return errno = code; }

int MP_SOCK_Wait(int socket, long ms, int direction) {
    if (socket < 0) return bad_descriptor(); // poll would skip it and wait for nothing
    const short wanted = direction == wait_for_writing ? writable : readable;
    pollfd watched{socket, static_cast<short>(wanted | POLLPRI), 0};
    const int ready = poll_one(watched, ms);
    if (ready <= 0) return ready;
    if (watched.revents & POLLNVAL) return bad_descriptor();
    const bool exception = watched.revents & POLLPRI;
    const bool wanted_or_failed = watched.revents & ~POLLPRI;
    return exception + wanted_or_failed;
}

addrinfo *MP_InitSockAddr(const char *host, uint16_t port) {
    if (host && !*host) host = nullptr;
    char port_text[8] = {};
    std::to_chars(port_text, port_text + sizeof port_text - 1, port);

    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_DGRAM;
    addrinfo *addresses = nullptr;
    if (getaddrinfo(host, port_text, &hints, &addresses) != 0) return nullptr;
    if (!host)
        for (addrinfo *each = addresses; each; each = each->ai_next) set_any(each->ai_addr, port);
    return addresses;
}

int MP_SOCK_Opt_Block(int socket, int blocking) {
    const int flags = fcntl(socket, F_GETFL);
    if (flags < 0) return 0;
    return fcntl(socket, F_SETFL, blocking ? flags & ~O_NONBLOCK : flags | O_NONBLOCK) == 0;
}

int MP_SOCK_AnsyConnect(int socket, const sockaddr *address, socklen_t length) {
    if (connect(socket, address, length) == 0) return 1;
    // An interrupted connect goes on by itself, exactly as one in progress.
    return errno == EINPROGRESS || errno == EALREADY || errno == EINTR ? 0 : -1;
}
