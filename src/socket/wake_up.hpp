// wake_up: how other threads wake the service thread where it waits, by a datagram to a socket of its own.
//
// While the service thread is awake nobody sends: it looks for what was queued before it falls asleep. Whoever finds it
// asleep first wakes it, the others rely on that. So queueing for an awake service costs no system call, and for one
// asleep one. A datagram that the system loses delays what was queued by one turn of the loop.
#pragma once

#include <atomic>
#include <cstdint>

#include "own.hpp"
#include "tq4/lock.h"
#include "tq4/sockaddr.h"

class Tq4_wake_up {
public:
    Tq4_wake_up();
    ~Tq4_wake_up();
    Tq4_wake_up(const Tq4_wake_up &) = delete;
    Tq4_wake_up &operator=(const Tq4_wake_up &) = delete;

    // The descriptor that can be read when somebody woke the service; -1 when the system refused one.
    int descriptor() const { return m_fd; }

    // On any thread, after something was queued.
    void Notify();

    // On the service thread. FallAsleep comes first; then what is queued is looked for once more before it waits.
    void FallAsleep() { m_asleep = true; }
    void Awake() { m_asleep = false; }
    // Reads one datagram. One of another length is not ours, and ignored.
    void Read();

private:
    int m_fd;
    Tq4_own<Tq4_lock> m_lock;
    Tq4_own<Tq4_sockaddr> m_address; // the descriptor's own
    uint32_t m_seq = 0;              // notifications sent; under m_lock
    uint32_t m_seq_read = 0;         // the last one that came; the service thread's
    std::atomic<bool> m_asleep = false;
};
