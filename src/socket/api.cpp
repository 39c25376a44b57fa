// sock_api: socket calls on descriptors and address objects, over the platform layer.
//
// Nothing is kept between calls. A descriptor that is opened here and fails later on its way is closed here.
#include "tq4/sock_api.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>

#include "base/string/string.hpp"
#include "platform/multi_platform_fs.hpp"
#include "platform/multi_platform_socket.hpp"
#include "platform/multi_platform_system.hpp"
#include "socket/addr.hpp"
#include "socket/spare_room.hpp"
#include "thread/cancel.hpp"

namespace {

Tq4_sockaddr_obj *record(Tq4_sockaddr address) { return Tq4_record<Tq4_sockaddr_obj>(address); }

// Results are ints: no call moves more.
unsigned long limited(unsigned long length) { return std::min<unsigned long>(length, INT_MAX); }

// An address in the system's form that a call fills in.
struct Filled_address {
    alignas(8) char room[Tq4_sockaddr_obj::Largest] = {};
    socklen_t length = sizeof room;
    sockaddr *at() { return reinterpret_cast<sockaddr *>(room); }
    bool give_to(Tq4_sockaddr_obj &address) { return address.Init2(at(), length); }
};

void Close(int descriptor) { MP_FileClose(descriptor); }

int close_keeping_error(int descriptor) {
    const int error = MP_SOCK_GetLastError();
    Close(descriptor);
    MP_SOCK_SetLastError(error);
    return -1;
}

int open_udp(const Tq4_sockaddr_obj *address, bool bind) {
    const int descriptor = MP_SOCK_Open(address ? address->info.ai_family : AF_INET, SOCK_DGRAM);
    if (descriptor < 0 || !bind || !address) return descriptor;
    return MP_SOCK_Bind(descriptor, address->raw(), address->info.ai_addrlen) ? descriptor
                                                                              : close_keeping_error(descriptor);
}

int open_tcp(const Tq4_sockaddr_obj *address, bool bind) {
    if (!address) return -1;
    const int descriptor = MP_SOCK_Open(address->info.ai_family, SOCK_STREAM);
    if (descriptor < 0 || !bind) return descriptor;
    MP_SOCK_SetOption(descriptor, MP_SOCK_Reuse, 1);
    return MP_SOCK_Bind(descriptor, address->raw(), address->info.ai_addrlen) ? descriptor
                                                                              : close_keeping_error(descriptor);
}

int connect(const Tq4_sockaddr_obj *address, int given) {
    if (!address) return -1;
    const int descriptor = given < 0 ? open_tcp(address, false) : given;
    if (descriptor < 0 || MP_SOCK_Connect(descriptor, address->raw(), address->info.ai_addrlen)) return descriptor;
    return given < 0 ? close_keeping_error(descriptor) : -1;
}

int OpenUdp(const char *host, int port, int bind) {
    Tq4_sockaddr_obj address;
    return address.Init(host, port) ? open_udp(&address, bind) : -1;
}

int OpenTcp(const char *host, int port, int bind) {
    Tq4_sockaddr_obj address;
    return address.Init(host, port) ? open_tcp(&address, bind) : -1;
}

int Connect(const char *host, int port) {
    Tq4_sockaddr_obj address;
    return address.Init(host, port) ? connect(&address, -1) : -1;
}

// The address of a sender or a peer, who may have none.
void set(Tq4_sockaddr_obj *address, Filled_address &from) {
    if (address && !from.give_to(*address)) address->Reset();
}

int Accept(int descriptor, Tq4_sockaddr address) {
    Filled_address peer;
    const int accepted = MP_SOCK_Accept(descriptor, peer.at(), &peer.length);
    if (accepted >= 0) set(record(address), peer);
    return accepted;
}

int Wait(int descriptor, unsigned long milliseconds, int direction) {
    // All ones is negative, which waits without limit, and so does a time that never comes.
    return MP_SOCK_Wait(descriptor, static_cast<long>(milliseconds), direction);
}

int Send(int descriptor, Tq4_sockaddr address, const void *bytes, unsigned long length) {
    const Tq4_sockaddr_obj *to = record(address);
    return static_cast<int>(MP_SOCK_Send(descriptor, bytes, limited(Tq4_text_length(bytes, length)),
                                         to ? to->raw() : nullptr, to ? to->info.ai_addrlen : 0));
}

// A plain write would raise SIGPIPE where a socket's peer has gone.
int Write(int descriptor, const void *bytes, unsigned long length) {
    const unsigned long n = limited(Tq4_text_length(bytes, length));
    long written = MP_SOCK_Send(descriptor, bytes, n, nullptr, 0);
    if (written < 0 && MP_SOCK_GetLastError() == ENOTSOCK) written = MP_Write(descriptor, bytes, n);
    return static_cast<int>(written);
}

int Read(int descriptor, void *buffer, unsigned long length) {
    return static_cast<int>(MP_FileRead(descriptor, buffer, limited(length)));
}

// Takes one datagram, whole, even when it is larger than expected, because another thread took the expected one. Its
// length; -1 with EAGAIN when none is left. A kill would take the rooms along.
long take_datagram(int descriptor, Tq4_string_obj &text, unsigned long expected, Filled_address &sender) {
    const Tq4_cancel_held held;
    Spare_room spare;
    if (!spare.begin() || !text.reserve(expected)) return MP_SOCK_SetLastError(ENOMEM), -1;
    const long received = MP_SOCK_ReceiveNow(descriptor, {text.begin(), expected}, {spare.begin(), Spare_room::size},
                                             sender.at(), &sender.length);
    if (received < 0) return -1;
    const auto length = static_cast<unsigned long>(received);
    text.set_size(std::min(length, expected));
    if (length <= expected) return received;
    spare.MarkUsed();
    if (!text.reserve(length)) return MP_SOCK_SetLastError(ENOMEM), -1;
    std::memcpy(text.begin() + expected, spare.begin(), length - expected);
    text.set_size(length);
    return received;
}

int RecvFrom(int descriptor, Tq4_string string, Tq4_sockaddr address) {
    auto *text = Tq4_record<Tq4_string_obj>(string);
    if (!text) return 0;
    text->assign(nullptr, 0);
    for (;;) {
        const long waiting = MP_SOCK_NextDatagram(descriptor);
        if (waiting < 0) return static_cast<int>(waiting);
        Filled_address sender;
        const long received = take_datagram(descriptor, *text, limited(static_cast<unsigned long>(waiting)), sender);
        if (received < 0 && MP_SOCK_GetLastError() == EAGAIN) continue; // another thread was faster
        if (received < 0) return -1;
        set(record(address), sender);
        return static_cast<int>(received);
    }
}

template <MP_SOCK_Option option> void set_option(int descriptor, int on) { MP_SOCK_SetOption(descriptor, option, on); }

int GetLocalAddr(int descriptor, Tq4_sockaddr address) {
    Filled_address own;
    return address && MP_SOCK_LocalAddress(descriptor, own.at(), &own.length) && own.give_to(*record(address));
}

int GetRemoteAddr(int descriptor, Tq4_sockaddr address) {
    Filled_address peer;
    return address && MP_SOCK_PeerAddress(descriptor, peer.at(), &peer.length) && peer.give_to(*record(address));
}

// Connecting a datagram socket sends nothing, but the system chooses the way and with it the local address.
int GetRoutingInf(Tq4_sockaddr destination, Tq4_sockaddr local) {
    const Tq4_sockaddr_obj *to = record(destination);
    if (!to || !local) return 0;
    const int descriptor = open_udp(to, false);
    if (descriptor < 0) return 0;
    Filled_address own;
    const bool found = MP_SOCK_Connect(descriptor, to->raw(), to->info.ai_addrlen) &&
                       MP_SOCK_LocalAddress(descriptor, own.at(), &own.length) && own.give_to(*record(local));
    close_keeping_error(descriptor);
    if (found) record(local)->SetPort(0); // the port of the closed socket means nothing
    return found;
}

constinit const Tq4_socket_api_ api_Tq4_sock = {
    .Init = [] {},
    .Error = MP_SOCK_GetLastError,
    .SetError = [](int code) { MP_SOCK_SetLastError(code); },
    .OpenUdp = OpenUdp,
    .OpenTcp = OpenTcp,
    .Connect = Connect,
    .OpenUdp2 = [](Tq4_sockaddr address, int bind) { return open_udp(record(address), bind); },
    .OpenTcp2 = [](Tq4_sockaddr address, int bind) { return open_tcp(record(address), bind); },
    .Connect2 = [](Tq4_sockaddr address, int descriptor) { return connect(record(address), descriptor); },
    .Listen = MP_SOCK_Listen,
    .Accept = Accept,
    .Close = Close,
    .Wait = Wait,
    .Write = Write,
    .Send = Send,
    .Read = Read,
    .RecvFrom = RecvFrom,
    .Reuse = set_option<MP_SOCK_Reuse>,
    .BroadCast = set_option<MP_SOCK_Broadcast>,
    .NoDelay = set_option<MP_SOCK_NoDelay>,
    .AllError = set_option<MP_SOCK_AllErrors>,
    .Block = [](int descriptor, int on) { MP_SOCK_Opt_Block(descriptor, on); },
    .GetRoutingInf = GetRoutingInf,
    .GetLocalAddr = GetLocalAddr,
    .GetRemoteAddr = GetRemoteAddr,
};

} // namespace

extern "C" constinit const Tq4_socket_api_ *const Tq4_sock_api = &api_Tq4_sock;
