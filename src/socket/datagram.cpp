// datagram: UDP sockets, of which the service only receives; their owners send by the descriptor.
//
// Many datagrams are taken in one call, and the system may join those of one sender. Each gets a callback of its own,
// with a copy in the service's string.
#include <algorithm>
#include <cstring>

#include "base/string/string.hpp"
#include "socket/addr.hpp"
#include "socket/service.hpp"
#include "tq4/debug.h"
#include "tq4/sock_api.h"

namespace {
constexpr int Most_datagrams = 64; // of one event, but for those that come joined with the last
constexpr int Receive_buffer = 4 * 1024 * 1024;
constexpr int Smallest_send_buffer = 0; // deliberately: a sender that is too fast waits, instead of filling memory
} // namespace

// Room for what one call receives. Most of it is never touched: the system gives memory for what is used.
struct Tq4_datagram_room {
    MP_SOCK_Arrival arrivals[Most_datagrams];
    char bytes[Most_datagrams][MP_SOCK_Arrival::Largest];
    bool come_joined = false; // the last ones did

    Tq4_datagram_room() {
        for (int i = 0; i < Most_datagrams; ++i) arrivals[i].bytes = bytes[i];
    }
};

void Tq4_datagram_room_delete::operator()(Tq4_datagram_room *room) const { delete room; }

void Tq4_socket_obj::OpenDatagrams(Tq4_socket_info *info, const Tq4_socket_callback *callback) {
    Tq4_sock_item *item = NewItem();
    if (!item) return;
    const int has_port = info->local && (*info->local)->port(info->local) != 0;
    item->info.fd = Tq4_sock_api->OpenUdp2(info->local, has_port);
    if (item->info.fd < 0) {
        const int error = MP_SOCK_GetLastError();
        Release(item);
        Tq4_debug_api->log(-1, "Tq4_socket_Open failed,error = %d\n", error);
        Tq4_debug_api->Printf(-1, "Tq4_socket_Open failed,error = %d\n", error);
        return;
    }
    MP_SOCK_SetSendBuffer(item->info.fd, Smallest_send_buffer);
    MP_SOCK_SetReceiveBuffer(item->info.fd, Receive_buffer);
    MP_SOCK_JoinDatagrams(item->info.fd);
    item->info.type = Tq4_socket_udp;
    Tq4_sock_api->GetLocalAddr(item->info.fd, item->info.local);
    if ((*item->info.local)->port(item->info.local) != 0)
        item->m_bind.reset(static_cast<Tq4_sockaddr>(Tq4_sockaddr_oitf->Dup(item->info.local)));
    if (!WatchForReading(item)) {
        Tq4_debug_api->log(-1, "epoll_ctl error 01");
        return Release(item);
    }
    if (!m_datagrams) m_datagrams.reset(new Tq4_datagram_room);
    item->TakeUserFields(*info);
    if (callback) item->callback.OnDataOk = callback->OnDataOk;
    info->type = Tq4_socket_udp;
    info->id = item->info.id;
    info->fd = item->info.fd;
}

// Where datagrams come joined, one arrival holds many: then arrivals are taken one by one.
void Tq4_socket_obj::ReadDatagrams(Tq4_sock_item *item) {
    const Tq4_id id = item->info.id;
    Tq4_datagram_room &room = *m_datagrams;
    for (int datagrams = 0; datagrams < Most_datagrams;) {
        const int arrivals = room.come_joined ? 1 : Most_datagrams - datagrams;
        const int received = MP_SOCK_ReceiveMany(item->info.fd, room.arrivals, arrivals);
        for (int i = 0; i < received; ++i) {
            const int delivered = Deliver(item, room.arrivals[i]);
            if (!Lives(item, id)) return;
            room.come_joined = delivered > 1;
            datagrams += delivered;
        }
        if (received < arrivals) return;
    }
}

// Tells the datagrams of an arrival; returns how many they are.
int Tq4_socket_obj::Deliver(Tq4_sock_item *item, const MP_SOCK_Arrival &arrival) {
    const Tq4_id id = item->info.id;
    const std::size_t segment = arrival.segment ? arrival.segment : arrival.length;
    int datagrams = 0;
    std::size_t at = 0;
    do {
        const std::size_t length = std::min(segment, arrival.length - at);
        SetSender(item, arrival);
        if (!Buffer().assign(arrival.bytes + at, length)) return datagrams;
        TellData(item);
        ++datagrams;
        at += length;
    } while (at < arrival.length && Lives(item, id));
    return datagrams;
}

// Most datagrams come from the sender of the one before.
void Tq4_socket_obj::SetSender(Tq4_sock_item *item, const MP_SOCK_Arrival &arrival) {
    auto &remote = Tq4_record_of<Tq4_sockaddr_obj>(item->info.remote);
    if (remote.info.ai_addrlen == arrival.from_length && arrival.from_length > 0 &&
        std::memcmp(remote.raw(), arrival.from, arrival.from_length) == 0)
        return;
    if (!remote.Init2(reinterpret_cast<const sockaddr *>(arrival.from), arrival.from_length)) remote.Reset();
}
