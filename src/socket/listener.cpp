// listener: TCP listeners and the connections they accept.
//
// A listener that finds no descriptor left would be told of the same connection again and again. It pauses instead, off
// the epoll, and the loop wakes it.
#include <algorithm>

#include "platform/multi_platform_pthread.hpp"
#include "socket/addr.hpp"
#include "socket/service.hpp"
#include "tq4/sock_api.h"

namespace {
constexpr int Backlog = 20;
constexpr int Most_accepted = 64; // of one event, so that a flood of connections lets others have their turn
constexpr uint64_t Pause_ms = 100;
} // namespace

void Tq4_socket_obj::OpenListener(Tq4_socket_info *info, const Tq4_listen_callback *callback) {
    static constexpr Tq4_listen_callback none = {};
    if (!callback) callback = &none;
    Tq4_sock_item *item = Listening(info, *callback);
    if (!item) {
        info->fd = -1;
        info->id = {};
        if (callback->OnListenResult) Call(callback->OnListenResult, info, 0);
        return;
    }
    const Tq4_id id = item->info.id;
    if (callback->OnListenResult) Call(item->listen.OnListenResult, &item->info, 1);
    if (Lives(item, id)) return;
    info->fd = -1;
    info->id = {};
}

// A record that listens; null, and nothing left of it, when that failed.
Tq4_sock_item *Tq4_socket_obj::Listening(Tq4_socket_info *info, const Tq4_listen_callback &callback) {
    const int fd = Tq4_sock_api->OpenTcp2(info->local, 1);
    if (fd < 0) return nullptr;
    Tq4_sock_item *item = NewItem();
    if (!item) {
        Tq4_sock_api->Close(fd);
        return nullptr;
    }
    item->info.fd = fd;
    Tq4_sock_api->GetLocalAddr(fd, item->info.local);
    item->m_bind.reset(static_cast<Tq4_sockaddr>(Tq4_sockaddr_oitf->Dup(item->info.local)));
    if (!MP_SOCK_Opt_Block(fd, 0) || Tq4_sock_api->Listen(fd, Backlog) != 0 || !WatchForReading(item)) {
        Release(item);
        return nullptr;
    }
    info->type = item->info.type = Tq4_socket_tcp_server;
    item->TakeUserFields(*info);
    item->listen = callback;
    info->fd = fd;
    info->id = item->info.id;
    return item;
}

void Tq4_socket_obj::Accept(Tq4_sock_item *listener) {
    const Tq4_id id = listener->info.id;
    for (int i = 0; i < Most_accepted; ++i) {
        alignas(8) char peer[Tq4_sockaddr_obj::Largest];
        socklen_t length = sizeof peer;
        auto *address = reinterpret_cast<sockaddr *>(peer);
        const int fd = MP_SOCK_AcceptNow(listener->info.fd, address, &length);
        if (fd < 0) {
            if (MP_SOCK_OutOfDescriptors(MP_SOCK_GetLastError())) Pause(listener);
            return;
        }
        Tq4_sock_item *child = NewItem();
        if (!child) {
            Tq4_sock_api->Close(fd);
            continue;
        }
        child->info.fd = fd;
        Tq4_record_of<Tq4_sockaddr_obj>(child->info.remote).Init2(address, length);
        Welcome(listener, child);
        if (!Lives(listener, id)) return;
    }
}

void Tq4_socket_obj::Welcome(Tq4_sock_item *listener, Tq4_sock_item *child) {
    const Tq4_id id = child->info.id, id_of_listener = listener->info.id;
    Tq4_sock_api->NoDelay(child->info.fd, 1);
    Tq4_sock_api->Reuse(child->info.fd, 1);
    child->info.type = Tq4_socket_tcp_client;
    Tq4_sockaddr_oitf->Copy(child->info.local, listener->info.local);
    child->tcp = std::make_unique<Tq4_socket_tcp_info>();
    auto *asked = listener->listen.OnAccept;
    const Tq4_socket_callback *callback = asked ? Call(asked, &listener->info, &child->info) : nullptr;
    if (!Lives(child, id)) return;
    if (!callback || !WatchForReading(child)) return Release(child);
    child->callback = *callback;
    child->tcp->listener = id_of_listener;
    child->tcp->state = Tq4_tcp_Connected;
    if (auto *told = child->callback.OnConnectOk) Call(told, &child->info, 0);
}

// Once for each connection that was welcomed.
void Tq4_socket_obj::TellListener(Tq4_sock_item *child) {
    if (!child->tcp) return;
    Tq4_sock_item *listener = Find(std::exchange(child->tcp->listener, {}));
    if (listener && listener->info.type == Tq4_socket_tcp_server && listener->listen.OnChildClose)
        Call(listener->listen.OnChildClose, &listener->info, &child->info);
}

void Tq4_socket_obj::Pause(Tq4_sock_item *listener) {
    MP_EPOLL_Forget(m_epfd_read, listener->info.fd);
    m_paused.push_back({listener->number(), MP_THREAD_GetMonotonicMs() + Pause_ms});
}

void Tq4_socket_obj::ResumeListeners() {
    if (m_paused.empty()) return;
    const uint64_t now = MP_THREAD_GetMonotonicMs();
    std::erase_if(m_paused, [&](const Paused_listener &paused) {
        if (now < paused.until_ms) return false;
        Tq4_sock_item *listener = Find(paused.number);
        return !listener || WatchForReading(listener);
    });
}
