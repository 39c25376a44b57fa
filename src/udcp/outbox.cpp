// outbox: a copy for each datagram, and one call for each run. Where the system refuses a run, because it knows none or
// because one datagram of it cannot go, each goes alone.
#include "udcp/outbox.hpp"

#include <algorithm>
#include <cstring>

bool Tq4_udcp_outbox::Continues(Tq4_sockaddr to, std::size_t size) const {
    return m_count < most_datagrams && m_size == m_count * m_length && size <= m_length &&
           m_size + size <= most_bytes && Tq4_sockaddr_oitf->Equal(m_to.get(), to);
}

void Tq4_udcp_outbox::Add(const Tq4_id &connection, Tq4_sockaddr to, Tq4_bytes datagram) {
    if (m_count && !Continues(to, datagram.size)) Flush();
    if (datagram.size > most_bytes || !m_way.send_run || m_alone) {
        if (m_alone) --m_alone;
        SendOne(connection, to, datagram);
        return;
    }
    if (m_count == 0) {
        Tq4_sockaddr_oitf->Copy(m_to.get(), to);
        m_length = datagram.size;
    }
    std::memcpy(m_room.get() + m_size, datagram.data, datagram.size);
    m_connections[m_count++] = connection;
    m_size += datagram.size;
}

void Tq4_udcp_outbox::Flush() {
    const std::size_t size = m_size;
    const unsigned count = m_count;
    m_size = m_count = 0;
    if (count == 0 || (count > 1 && m_way.send_run(m_way.context, m_to.get(), {m_room.get(), size}, m_length))) return;
    bool all_went = true;
    for (unsigned i = 0; i < count; ++i) {
        const std::size_t at = i * m_length;
        all_went &= SendOne(m_connections[i], m_to.get(), {m_room.get() + at, std::min(m_length, size - at)});
    }
    if (count > 1 && all_went) m_alone = refused_lasts;
}

bool Tq4_udcp_outbox::SendOne(const Tq4_id &connection, Tq4_sockaddr to, Tq4_bytes datagram) {
    if (m_way.send(m_way.context, to, datagram)) return true;
    m_way.failed(m_way.context, connection, datagram);
    return false;
}
