// lock.hpp: holding a Tq4_lock for a scope.
#pragma once

#include "own.hpp"
#include "thread/cancel.hpp"
#include "thread_annotations.hpp"
#include "tq4/lock.h"

// What happens under a lock. Our own code does not wait there, so a cancellation takes only a thread of ours that may
// be killed at any instruction; a callback may wait on any thread.
enum class Tq4_inside { own_code, callbacks };

// Holds the lock until the end of the scope, and keeps a forced kill of the calling thread out of it. A null lock is no
// lock, and costs nothing.
class TQ4_SCOPED_CAPABILITY Tq4_guard {
    const Tq4_lock m_lock; // borrowed
    const bool m_holds_off_kill;
    const int m_cancel_before;

public:
    explicit Tq4_guard(const Tq4_own<Tq4_lock> &lock, Tq4_inside inside = Tq4_inside::own_code) TQ4_ACQUIRE(lock)
        : m_lock(lock.get()),
          m_holds_off_kill(m_lock && (Tq4_this_thread->kill_gate || inside == Tq4_inside::callbacks)),
          m_cancel_before(m_holds_off_kill ? Tq4_hold_off_kill() : 0) {
        if (m_lock) (*m_lock)->Lock(m_lock);
    }
    ~Tq4_guard() TQ4_RELEASE() {
        if (m_lock) (*m_lock)->Unlock(m_lock);
        if (m_holds_off_kill) Tq4_admit_kill(m_cancel_before);
    }
    Tq4_guard(const Tq4_guard &) = delete;
    Tq4_guard &operator=(const Tq4_guard &) = delete;
};
