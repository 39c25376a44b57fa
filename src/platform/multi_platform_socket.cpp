// multi_platform_socket: socket calls, waiting on a socket, connecting without waiting, and resolving names.
//
// MP_SOCK_Wait answers as select would for one descriptor, but asks poll: select's sets end at descriptor 1023, and a
// service may have many more. The time that has passed is taken from the steady clock.
#include "platform/multi_platform_socket.hpp"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fcntl.h>
#include <netinet/tcp.h>
#include <netinet/udp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "platform/restarted.hpp"
#include "platform/stopwatch.hpp"

namespace {

constexpr int wait_for_writing = 1;
// What makes select call a descriptor readable or writable, without what poll reports unasked.
constexpr short readable = POLLIN | POLLRDNORM | POLLRDBAND;
constexpr short writable = POLLOUT | POLLWRNORM | POLLWRBAND;

// poll for one descriptor, continued after signals with the time that is left. A negative ms waits without limit.
int poll_one(pollfd &watched, long ms) {
    const MP_Stopwatch time;
    for (long left = ms;;) {
        const timespec timeout{left / 1000, left % 1000 * 1000000};
        const int ready = ppoll(&watched, 1, ms < 0 ? nullptr : &timeout, nullptr);
        if (ready >= 0 || errno != EINTR) return ready;
        if (ms > 0) left = std::max(0L, ms - static_cast<long>(time.GoneMs()));
    }
}

int bad_descriptor() {
    errno = EBADF;
    return -1;
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
    // An interrupted connect goes on by itself: the next one finds it in progress or done.
    if (MP_Restarted([=] { return connect(socket, address, length); }) == 0 || errno == EISCONN) return 1;
    return errno == EINPROGRESS || errno == EALREADY ? 0 : -1;
}

int MP_SOCK_Open(int family, int type) { return socket(family, type | SOCK_CLOEXEC, 0); }

int MP_SOCK_Duplicate(int socket) { return fcntl(socket, F_DUPFD_CLOEXEC, 0); }

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
    return MP_Restarted([=] { return accept4(socket, peer, length, SOCK_CLOEXEC); });
}

long MP_SOCK_Send(int socket, const void *bytes, std::size_t n, const sockaddr *to, socklen_t length) {
    return MP_Restarted([=] { return sendto(socket, bytes, n, MSG_NOSIGNAL, to, length); });
}

int MP_SOCK_SendRun(int socket, const void *bytes, std::size_t n, std::size_t datagram, const sockaddr *to,
                    socklen_t length) {
    const auto segment = static_cast<uint16_t>(datagram);
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof segment)] = {};
    iovec block{const_cast<void *>(bytes), n};
    msghdr message{};
    message.msg_name = const_cast<sockaddr *>(to);
    message.msg_namelen = length;
    message.msg_iov = &block;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    cmsghdr *header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = IPPROTO_UDP;
    header->cmsg_type = UDP_SEGMENT;
    header->cmsg_len = CMSG_LEN(sizeof segment);
    std::memcpy(CMSG_DATA(header), &segment, sizeof segment);
    return MP_Restarted([&] { return sendmsg(socket, &message, MSG_NOSIGNAL); }) == static_cast<ssize_t>(n);
}

long MP_SOCK_ReceiveNow(int socket, MP_SOCK_Room first, MP_SOCK_Room second, sockaddr *from, socklen_t *length) {
    iovec rooms[] = {{first.begin, first.size}, {second.begin, second.size}};
    msghdr message{};
    message.msg_name = from;
    message.msg_namelen = *length;
    message.msg_iov = rooms;
    message.msg_iovlen = 2;
    const long received = MP_Restarted([&] { return recvmsg(socket, &message, MSG_DONTWAIT); });
    if (received >= 0) *length = message.msg_namelen;
    return received;
}

long MP_SOCK_NextDatagram(int socket) {
    int waiting = 0;
    const int asked = ioctl(socket, FIONREAD, &waiting);
    if (asked < 0) return asked;
    // 0 stands for an empty datagram and for none. For no byte at all, a stream would not be waited for.
    char byte;
    return waiting ? waiting : MP_Restarted([&] { return recv(socket, &byte, 1, MSG_PEEK | MSG_TRUNC); });
}

long MP_SOCK_ReadNow(int socket, void *room, std::size_t n) {
    return MP_Restarted([=] { return recv(socket, room, n, MSG_DONTWAIT); });
}

int MP_SOCK_AcceptNow(int socket, sockaddr *peer, socklen_t *length) {
    return MP_Restarted([=] { return accept4(socket, peer, length, SOCK_CLOEXEC | SOCK_NONBLOCK); });
}

long MP_SOCK_WriteBlocks(int socket, const MP_SOCK_Block *blocks, std::size_t count) {
    if (count == 1) // the plainer call is the quicker one
        return MP_Restarted(
            [=] { return send(socket, blocks->iov_base, blocks->iov_len, MSG_NOSIGNAL | MSG_DONTWAIT); });
    msghdr message{};
    message.msg_iov = const_cast<iovec *>(blocks);
    message.msg_iovlen = count;
    return MP_Restarted([&] { return sendmsg(socket, &message, MSG_NOSIGNAL | MSG_DONTWAIT); });
}

// The length of the datagrams that a message joins; 0 when it is one datagram.
static std::size_t segment_of(msghdr &message) {
    for (cmsghdr *each = CMSG_FIRSTHDR(&message); each; each = CMSG_NXTHDR(&message, each)) {
        if (each->cmsg_level != IPPROTO_UDP || each->cmsg_type != UDP_GRO) continue;
        int segment = 0;
        std::memcpy(&segment, CMSG_DATA(each), sizeof segment);
        return segment > 0 ? static_cast<std::size_t>(segment) : 0;
    }
    return 0;
}

int MP_SOCK_ReceiveMany(int socket, MP_SOCK_Arrival *arrivals, int count) {
    constexpr int most = 64;
    mmsghdr messages[most];
    iovec blocks[most];
    alignas(cmsghdr) char controls[most][CMSG_SPACE(sizeof(int))];
    count = std::min(count, most);
    for (int i = 0; i < count; ++i) {
        blocks[i] = {arrivals[i].bytes, MP_SOCK_Arrival::Largest};
        messages[i].msg_hdr = {.msg_name = arrivals[i].from,
                               .msg_namelen = MP_SOCK_Arrival::Address_room,
                               .msg_iov = &blocks[i],
                               .msg_iovlen = 1,
                               .msg_control = controls[i],
                               .msg_controllen = sizeof controls[i],
                               .msg_flags = 0};
    }
    const int received =
        MP_Restarted([&] { return recvmmsg(socket, messages, static_cast<unsigned>(count), MSG_DONTWAIT, nullptr); });
    for (int i = 0; i < received; ++i) {
        arrivals[i].from_length = messages[i].msg_hdr.msg_namelen;
        arrivals[i].length = messages[i].msg_len;
        arrivals[i].segment = segment_of(messages[i].msg_hdr);
    }
    return received;
}

int MP_SOCK_JoinDatagrams(int socket) {
    const int on = 1;
    return setsockopt(socket, IPPROTO_UDP, UDP_GRO, &on, sizeof on) == 0;
}

int MP_SOCK_SetReceiveBuffer(int socket, int bytes) {
    return setsockopt(socket, SOL_SOCKET, SO_RCVBUFFORCE, &bytes, sizeof bytes) == 0 ||
           setsockopt(socket, SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes) == 0;
}

int MP_SOCK_SetSendBuffer(int socket, int bytes) {
    return setsockopt(socket, SOL_SOCKET, SO_SNDBUF, &bytes, sizeof bytes) == 0;
}

int MP_SOCK_TakeError(int socket) {
    int error = 0;
    socklen_t size = sizeof error;
    return getsockopt(socket, SOL_SOCKET, SO_ERROR, &error, &size) == 0 ? error : errno;
}

bool MP_SOCK_WouldBlock(int error) { return error == EAGAIN || error == EWOULDBLOCK; }

bool MP_SOCK_IsEnd(int error) { return error != ENOBUFS && error != ENOMEM; }

bool MP_SOCK_OutOfDescriptors(int error) {
    return error == EMFILE || error == ENFILE || error == ENOBUFS || error == ENOMEM;
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
