// multi_platform_socket: socket calls, waiting on a socket, connecting without waiting, and resolving names.
//
// MP_SOCK_Wait answers as select would for one descriptor, but asks poll: select's sets end at descriptor 1023, and a
// service may have many more. The time that has passed is taken from the steady clock.
#include "platform/multi_platform_socket.hpp"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <fcntl.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

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

// A system call, made again while a signal interrupts it.
template <class Call> auto restarted(Call call) {
    auto result = call();
    while (result < 0 && errno == EINTR) result = call();
    return result;
}

int family_of(int socket) {
    int family = AF_UNSPEC;
    socklen_t size = sizeof family;
    getsockopt(socket, SOL_SOCKET, SO_DOMAIN, &family, &size);
    return family;
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

int MP_SOCK_Open(int family, int type) { return socket(family, type | SOCK_CLOEXEC, 0); }

int MP_SOCK_Bind(int socket, const sockaddr *address, socklen_t length) { return bind(socket, address, length) == 0; }

int MP_SOCK_Connect(int socket, const sockaddr *address, socklen_t length) {
    // Made again after a signal, connect goes on waiting; where it was decided meanwhile, the socket is connected.
    bool again = false;
    while (connect(socket, address, length) != 0) {
        if (errno == EISCONN) return again;
        if (errno == EINPROGRESS || errno == EALREADY) {
            if (MP_SOCK_Wait(socket, -1, wait_for_writing) <= 0) return 0;
            int error = 0;
            socklen_t size = sizeof error;
            getsockopt(socket, SOL_SOCKET, SO_ERROR, &error, &size);
            errno = error;
            return error == 0;
        }
        if (errno != EINTR) return 0;
        again = true;
    }
    return 1;
}

int MP_SOCK_Listen(int socket, int backlog) { return listen(socket, backlog); }

int MP_SOCK_Accept(int socket, sockaddr *peer, socklen_t *length) {
    return restarted([=] { return accept4(socket, peer, length, SOCK_CLOEXEC); });
}

long MP_SOCK_Send(int socket, const void *bytes, std::size_t n, const sockaddr *to, socklen_t length) {
    return restarted([=] { return sendto(socket, bytes, n, MSG_NOSIGNAL, to, length); });
}

long MP_SOCK_ReceiveNow(int socket, MP_SOCK_Room first, MP_SOCK_Room second, sockaddr *from, socklen_t *length) {
    iovec rooms[] = {{first.begin, first.size}, {second.begin, second.size}};
    msghdr message{};
    message.msg_name = from;
    message.msg_namelen = *length;
    message.msg_iov = rooms;
    message.msg_iovlen = 2;
    const long received = restarted([&] { return recvmsg(socket, &message, MSG_DONTWAIT); });
    if (received >= 0) *length = message.msg_namelen;
    return received;
}

long MP_SOCK_NextDatagram(int socket) {
    int waiting = 0;
    const int asked = ioctl(socket, FIONREAD, &waiting);
    if (asked < 0) return asked;
    // 0 stands for an empty datagram and for none. For no byte at all, a stream would not be waited for.
    char byte;
    return waiting ? waiting : restarted([&] { return recv(socket, &byte, 1, MSG_PEEK | MSG_TRUNC); });
}

int MP_SOCK_LocalAddress(int socket, sockaddr *address, socklen_t *length) {
    return getsockname(socket, address, length) == 0;
}

int MP_SOCK_PeerAddress(int socket, sockaddr *address, socklen_t *length) {
    return getpeername(socket, address, length) == 0;
}

int MP_SOCK_SetOption(int socket, MP_SOCK_Option option, int on) {
    struct Place {
        int level, name;
    };
    constexpr Place places[] = {
        {SOL_SOCKET, SO_REUSEADDR}, {SOL_SOCKET, SO_BROADCAST}, {IPPROTO_TCP, TCP_NODELAY}, {IPPROTO_IP, IP_RECVERR}};
    const int value = on != 0;
    if (setsockopt(socket, places[option].level, places[option].name, &value, sizeof value) != 0) return 0;
    // A socket of IPv6 has errors of its own, and those of the IPv4 it may carry.
    return option != MP_SOCK_AllErrors || family_of(socket) != AF_INET6 ||
           setsockopt(socket, IPPROTO_IPV6, IPV6_RECVERR, &value, sizeof value) == 0;
}

const char *MP_SOCK_HostText(int family, const void *host, char *text, std::size_t room) {
    if (room && !inet_ntop(family, host, text, static_cast<socklen_t>(room))) *text = 0;
    return text;
}
