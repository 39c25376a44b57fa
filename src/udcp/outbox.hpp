// outbox.hpp: datagrams on their way out, gathered so that one call of the system sends many.
//
// What is kept back is one run: datagrams to one address and of one length, of which only the last may be shorter. Such
// a run is what the system cuts apart itself. A datagram that does not continue the run sends it off first, so all
// leave in the order in which they came, and on the wire nothing shows that they were gathered.
#pragma once

#include <memory>

#include "base/charset/conversion.hpp"
#include "own.hpp"
#include "tq4/sockaddr.h"

class Tq4_udcp_outbox {
public:
    // How datagrams leave. All calls come from the thread that adds and flushes.
    struct Way {
        void *context; // borrowed
        // Sends one; 0 when that fails.
        int (*send)(void *context, Tq4_sockaddr to, Tq4_bytes datagram);
        // Sends bytes as datagrams of that length, the last one perhaps shorter; 0 when that fails, and then nothing
        // was sent. Null: there is no such way.
        int (*send_run)(void *context, Tq4_sockaddr to, Tq4_bytes run, std::size_t length);
        // Told of each datagram that was not sent: the connection it belongs to, and its bytes.
        void (*failed)(void *context, const Tq4_id &connection, Tq4_bytes datagram);
    };
    static constexpr unsigned most_datagrams = 64; // what every system that knows runs can cut
    static constexpr std::size_t most_bytes = 65000;
    // After a run that was refused although each of its datagrams could go: how many leave one by one before the next
    // run is tried. Some interfaces know no runs, and a way may lead over another interface later.
    static constexpr unsigned refused_lasts = 1000;

    explicit Tq4_udcp_outbox(const Way &way) : m_way(way) {}
    Tq4_udcp_outbox(const Tq4_udcp_outbox &) = delete;
    Tq4_udcp_outbox &operator=(const Tq4_udcp_outbox &) = delete;

    // Takes a copy of a datagram of a connection.
    void Add(const Tq4_id &connection, Tq4_sockaddr to, Tq4_bytes datagram);
    // Sends what is kept back.
    void Flush();
    bool empty() const { return m_count == 0; }

private:
    bool Continues(Tq4_sockaddr to, std::size_t size) const;
    bool SendOne(const Tq4_id &connection, Tq4_sockaddr to, Tq4_bytes datagram);

    const Way m_way;
    const Tq4_own<Tq4_sockaddr> m_to = Tq4_make<Tq4_sockaddr>(Tq4_sockaddr_oitf);
    const std::unique_ptr<uint8_t[]> m_room = std::make_unique_for_overwrite<uint8_t[]>(most_bytes);
    Tq4_id m_connections[most_datagrams];
    unsigned m_count = 0;
    unsigned m_alone = 0;     // datagrams that leave one by one before the next run
    std::size_t m_length = 0; // of each datagram but the last
    std::size_t m_size = 0;   // of all
};
