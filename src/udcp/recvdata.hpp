// recvdata.hpp: receive caches: a datagram on its way from the socket's thread to the loop.
//
// The socket's buffer and a cache's string change places, so that no byte is copied. A cache that was handled is kept
// for the next datagram, but not the memory of one that is longer than any of the protocol. This is the one thing that
// the two threads share.
#pragma once

#include <vector>

#include "thread/lock.hpp"
#include "udcp/item.hpp"

class Tq4_udcp_caches;

struct Tq4_udcp_recvdata {
    Tq4_udcp_caches &owner;
    Tq4_own<Tq4_sockaddr> sender = Tq4_make<Tq4_sockaddr>(Tq4_sockaddr_oitf);
    Tq4_string buffer; // owned; null when the loop has kept it
    unsigned cost = 0; // of the ceiling: how many of the longest datagrams of the protocol it could hold, one at least
};

class Tq4_udcp_caches {
public:
    explicit Tq4_udcp_caches(const Tq4_udcp_strings &strings) : m_strings(strings) {}
    ~Tq4_udcp_caches();
    Tq4_udcp_caches(const Tq4_udcp_caches &) = delete;
    Tq4_udcp_caches &operator=(const Tq4_udcp_caches &) = delete;

    // A cache with the datagram and its sender; *datagram gets an empty string in return. Null when too many wait.
    Tq4_udcp_recvdata *Take(Tq4_string *datagram, Tq4_sockaddr sender);
    // Takes a cache back; for a dispatcher, which frees what it drops.
    static void GiveBack(void *cache);
    unsigned busy();

private:
    void Free(Tq4_udcp_recvdata *cache);

    const Tq4_udcp_strings m_strings;
    const Tq4_own<Tq4_lock> m_lock = Tq4_make<Tq4_lock>(Tq4_lock_oitf);
    std::vector<Tq4_udcp_recvdata *> m_free TQ4_GUARDED_BY(m_lock); // owned
    unsigned m_busy TQ4_GUARDED_BY(m_lock) = 0;
};
