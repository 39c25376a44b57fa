// connection: TCP connections, made by this side or accepted.
//
// UnUsed -> Connecting -> Connected -> UnUsed, and on to the next attempt where a callback asks for one. The state
// changes, and the epoll entry with it, before the callback that tells so: a callback that closes the socket, or sends
// on it, finds it as it is told.
//
// A send only queues. Connections with something to send get a turn at the end of the loop's turn; the write epoll has
// those from which the system took no more.
#include <cstdlib>

#include "assert.hpp"
#include "base/string/string.hpp"
#include "socket/addr.hpp"
#include "socket/service.hpp"
#include "tq4/debug.h"
#include "tq4/sock_api.h"

namespace {

// What a timer carries to the next attempt.
struct Tq4_socket_Reconnect_Callback {
    Tq4_id id;
    Tq4_dispatch loop; // borrowed from the service, which outlives its timers
    unsigned long message;
};

void push_reconnection(Tq4_timer, Tq4_timer_callback *timer) {
    auto *to = static_cast<Tq4_socket_Reconnect_Callback *>(timer->userdata);
    (*to->loop)->Push(to->loop, nullptr, &to->id, to->message, 0, nullptr, nullptr);
}

} // namespace

void Tq4_socket_obj::OpenConnection(Tq4_socket_info *info, const Tq4_socket_callback *callback) {
    Tq4_sock_item *item = NewItem();
    if (!item) return;
    const Tq4_id id = info->id = item->info.id;
    info->type = item->info.type = Tq4_socket_tcp_client;
    item->TakeUserFields(*info);
    Tq4_sockaddr_oitf->Copy(item->info.local, info->local);
    Tq4_sockaddr_oitf->Copy(item->info.remote, info->remote);
    if (info->local) item->m_bind.reset(static_cast<Tq4_sockaddr>(Tq4_sockaddr_oitf->Dup(info->local)));
    if (callback) item->callback = *callback;
    item->tcp = std::make_unique<Tq4_socket_tcp_info>();
    item->tcp->master = 1;
    TryToConnect(item);
    const bool lives = Lives(item, id);
    info->fd = lives ? item->info.fd : -1;
    if (!lives) info->id = {};
}

void Tq4_socket_obj::TryToConnect(Tq4_sock_item *item) {
    TQ4_CHECK(item->info.fd < 0 && item->tcp->state == Tq4_tcp_UnUsed && item->tcp->m_sendq.count() == 0);
    int &fd = item->info.fd;
    fd = Tq4_sock_api->OpenTcp2(item->m_bind ? item->m_bind.get() : item->info.remote, item->m_bind != nullptr);
    if (fd < 0 || !MP_SOCK_Opt_Block(fd, 0)) return FailToBegin(item, MP_SOCK_GetLastError());
    Tq4_sock_api->NoDelay(fd, 1);
    ++item->tcp->count;
    if (!MP_EPOLL_Watch(m_epfd_read, fd, MP_EPOLL_Connected, item->number()))
        return FailToBegin(item, MP_SOCK_GetLastError());
    const auto &remote = Tq4_record_of<Tq4_sockaddr_obj>(item->info.remote);
    const int begun = MP_SOCK_AnsyConnect(fd, remote.raw(), remote.info.ai_addrlen);
    if (begun < 0) return FailToBegin(item, MP_SOCK_GetLastError());
    item->tcp->state = Tq4_tcp_Connecting;
    if (begun > 0) BeConnected(item);
}

// An attempt that the system refuses at once would be refused again: it is not repeated, whatever the callback says.
void Tq4_socket_obj::FailToBegin(Tq4_sock_item *item, int error) {
    const Tq4_id id = item->info.id;
    if (auto *told = item->callback.OnConnectFaild) Call(told, &item->info, error);
    if (Lives(item, id)) Release(item);
}

void Tq4_socket_obj::ConnectAgain(Tq4_sock_item *item) {
    if (!item->tcp || item->tcp->state != Tq4_tcp_UnUsed || item->tcp->reconnet_timer.l == 0) return;
    item->tcp->reconnet_timer = {};
    TryToConnect(item);
}

void Tq4_socket_obj::HandleConnection(Tq4_sock_item *item) {
    if (item->tcp->state == Tq4_tcp_Connecting)
        FinishConnecting(item);
    else if (item->tcp->state == Tq4_tcp_Connected)
        Read(item);
}

void Tq4_socket_obj::FinishConnecting(Tq4_sock_item *item) {
    const int error = MP_SOCK_TakeError(item->info.fd);
    error ? EndAttempt(item, error) : BeConnected(item);
}

void Tq4_socket_obj::BeConnected(Tq4_sock_item *item) {
    if (!item->m_bind) Tq4_sock_api->GetLocalAddr(item->info.fd, item->info.local);
    item->tcp->state = Tq4_tcp_Connected;
    if (!WatchForReading(item)) return EndAttempt(item, MP_SOCK_GetLastError());
    if (item->tcp->m_sendq.count() > 0) TakeTurn(item);
    if (auto *told = item->callback.OnConnectOk) Call(told, &item->info, 1);
}

void Tq4_socket_obj::EndAttempt(Tq4_sock_item *item, int error) {
    const Tq4_id id = item->info.id;
    item->tcp->state = Tq4_tcp_UnUsed;
    auto *told = item->callback.OnConnectFaild;
    const int delay_ms = told ? Call(told, &item->info, error) : -1;
    if (Lives(item, id)) ConnectLaterOrRelease(item, delay_ms);
}

void Tq4_socket_obj::Disconnect(Tq4_sock_item *item) {
    const Tq4_id id = item->info.id;
    const char master = item->tcp->master;
    item->tcp->state = Tq4_tcp_UnUsed;
    auto *told = item->callback.OnDisConnect;
    const int delay_ms = told ? Call(told, &item->info, int{master}) : -1;
    if (Lives(item, id)) ConnectLaterOrRelease(item, master ? delay_ms : -1);
}

// After a negative delay, or while nothing opens any more, the socket goes.
void Tq4_socket_obj::ConnectLaterOrRelease(Tq4_sock_item *item, int delay_ms) {
    const Tq4_id id = item->info.id;
    CloseDescriptor(item);
    item->tcp->m_sendq.Clear();
    item->tcp->m_cannot_write = false;
    if (delay_ms >= 0 && m_opens && ArrangeReconnection(item, delay_ms)) return;
    TellListener(item);
    if (Lives(item, id)) Release(item);
}

bool Tq4_socket_obj::ArrangeReconnection(Tq4_sock_item *item, int delay_ms) {
    auto *to = static_cast<Tq4_socket_Reconnect_Callback *>(std::malloc(sizeof(Tq4_socket_Reconnect_Callback)));
    TQ4_ASSERT(to != nullptr);
    *to = {item->info.id, m_loop.get(), Tq4_socket_msg_ReConnect};
    const bool set = (*m_timer)->SetRepeatTimer2(m_timer.get(), 1, static_cast<unsigned long>(delay_ms),
                                                 push_reconnection, &item->tcp->reconnet_timer, to, std::free);
    if (!set) std::free(to);
    return set;
}

// A socket of any kind, in Close and Stop. A client that waits for its next attempt makes none: its timer is cleared.
void Tq4_socket_obj::End(Tq4_sock_item *item) {
    const Tq4_id id = item->info.id;
    if (item->tcp && item->tcp->reconnet_timer.l != 0) {
        (*m_timer)->ClearTimer(m_timer.get(), &item->tcp->reconnet_timer);
        item->tcp->reconnet_timer = {};
    }
    if (item->tcp && std::exchange(item->tcp->state, Tq4_tcp_UnUsed) == Tq4_tcp_Connected) {
        if (auto *told = item->callback.OnDisConnect) Call(told, &item->info, int{item->tcp->master});
        if (!Lives(item, id)) return;
    }
    TellListener(item);
    if (Lives(item, id)) Release(item);
}

// --- Reading ---

void Tq4_socket_obj::Read(Tq4_sock_item *item) {
    Tq4_string_obj &buffer = Buffer();
    buffer.set_size(0);
    if (!buffer.reserve(Most_read)) return;
    const long n = MP_SOCK_ReadNow(item->info.fd, buffer.begin(), Most_read);
    if (n < 0 && MP_SOCK_WouldBlock(MP_SOCK_GetLastError())) return;
    if (n <= 0) return Disconnect(item);
    buffer.set_size(static_cast<unsigned long>(n));
    TellData(item);
}

// --- Sending ---

int Tq4_socket_obj::Send(Tq4_id id, Tq4_string text) {
    Tq4_sock_item *item = m_opens ? Find(id) : nullptr;
    if (!item || !item->tcp || item->tcp->state == Tq4_tcp_UnUsed) return 0;
    Tq4_send_queue &queue = item->tcp->m_sendq;
    const bool refused = queue.Refuses();
    if (queue.BecomesFull() && item->callback.OnSendQueueFull) {
        Call(item->callback.OnSendQueueFull, &item->info, 1);
        if (!Lives(item, id) || item->tcp->state == Tq4_tcp_UnUsed) return 0;
    }
    if (refused) {
        Tq4_debug_api->log(-1, "[0x%08lx] 发送数据失败，队列满(2560)\n", item->number());
        return 0;
    }
    queue.Append(Tq4_hooked<Tq4_string>(text));
    TakeTurn(item);
    return 1;
}

void Tq4_socket_obj::TakeTurn(Tq4_sock_item *item) {
    auto &tcp = *item->tcp;
    if (tcp.state != Tq4_tcp_Connected || tcp.m_has_turn || tcp.m_awaits_room || tcp.m_cannot_write) return;
    TQ4_CHECK(item->info.fd >= 0);
    tcp.m_has_turn = true;
    m_turns.push_back(item->number());
}

// One write, and what is to be told after it.
void Tq4_socket_obj::WriteOn(Tq4_sock_item *item) {
    auto &tcp = *item->tcp;
    tcp.m_has_turn = false;
    if (tcp.state != Tq4_tcp_Connected) return;
    if (!Write(item)) return;
    const Tq4_id id = item->info.id;
    if (tcp.m_sendq.HasDrained() && item->callback.OnSendQueueFull) {
        Call(item->callback.OnSendQueueFull, &item->info, 0);
        if (!Lives(item, id) || tcp.state != Tq4_tcp_Connected) return;
    }
    if (tcp.m_sendq.count() > 0) return TakeTurn(item);
    AwaitRoom(item, false);
    if (auto *told = item->callback.OnSendQueueEmpty) Call(told, &item->info);
}

// False after a failure, whose units stay. The end of a connection is about to be read too, and told then; anything
// else may pass.
bool Tq4_socket_obj::Write(Tq4_sock_item *item) {
    auto &tcp = *item->tcp;
    MP_SOCK_Block blocks[Tq4_send_queue::Most_blocks];
    const std::size_t count = tcp.m_sendq.Blocks(blocks);
    std::size_t bytes = 0;
    for (std::size_t i = 0; i < count; ++i) bytes += blocks[i].iov_len;
    const long written = bytes > 0 ? MP_SOCK_WriteBlocks(item->info.fd, blocks, count) : 0;
    const int error = written < 0 ? Tq4_sock_api->Error() : 0;
    if (written < 0 && !MP_SOCK_WouldBlock(error)) {
        Tq4_debug_api->log(-1, "发送数据失败，err = %d\n", error);
        tcp.m_cannot_write = MP_SOCK_IsEnd(error);
        AwaitRoom(item, !tcp.m_cannot_write);
        return false;
    }
    tcp.m_sendq.Written(written > 0 ? static_cast<std::size_t>(written) : 0);
    if (written < static_cast<long>(bytes)) AwaitRoom(item, true);
    return true;
}

void Tq4_socket_obj::AwaitRoom(Tq4_sock_item *item, bool awaits) {
    bool &on_epoll = item->tcp->m_awaits_room;
    if (on_epoll == awaits) return;
    if (!awaits) MP_EPOLL_Forget(m_epfd_write, item->info.fd);
    on_epoll = awaits && MP_EPOLL_Watch(m_epfd_write, item->info.fd, MP_EPOLL_Writable, item->number());
    if (awaits) TakeTurn(item); // which it has when the epoll takes no more
}
