// wake_up: falling asleep stores the mark and then looks at the queue; who queues stores there and then looks at the
// mark. Both in one order for everybody, so at least one of them sees the other.
#include "socket/wake_up.hpp"

#include <cstring>

#include "platform/multi_platform_socket.hpp"
#include "thread/lock.hpp"
#include "tq4/sock_api.h"

Tq4_wake_up::Tq4_wake_up()
    : m_fd(Tq4_sock_api->OpenUdp("127.0.0.1", 0, 1)), m_lock(Tq4_make<Tq4_lock>(Tq4_lock_oitf)),
      m_address(Tq4_make<Tq4_sockaddr>(Tq4_sockaddr_oitf)) {
    if (m_fd < 0) return;
    Tq4_sock_api->Block(m_fd, 0);
    Tq4_sock_api->GetLocalAddr(m_fd, m_address.get());
    Tq4_sock_api->Connect2(m_address.get(), m_fd); // to itself: what others send there is not received
}

Tq4_wake_up::~Tq4_wake_up() {
    if (m_fd >= 0) Tq4_sock_api->Close(m_fd);
}

void Tq4_wake_up::Notify() {
    if (!m_asleep.load() || !m_asleep.exchange(false)) return;
    Tq4_guard guard(m_lock);
    ++m_seq;
    Tq4_sock_api->Send(m_fd, m_address.get(), &m_seq, sizeof m_seq);
}

void Tq4_wake_up::Read() {
    char datagram[sizeof m_seq + 1];
    if (MP_SOCK_ReadNow(m_fd, datagram, sizeof datagram) == sizeof m_seq)
        std::memcpy(&m_seq_read, datagram, sizeof m_seq);
}
