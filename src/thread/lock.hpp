// lock.hpp: holding a Tq4_lock for a scope.
#pragma once

#include "own.hpp"
#include "thread/cancel.hpp"
#include "thread_annotations.hpp"
#include "tq4/lock.h"

// Holds the lock until the end of the scope, and keeps a forced kill of the calling thread out of it. A null lock is
// no lock, and costs nothing.
class TQ4_SCOPED_CAPABILITY Tq4_guard {
    const Tq4_lock m_lock; // borrowed
    const int m_cancel_before;

public:
    explicit Tq4_guard(const Tq4_own<Tq4_lock> &lock) TQ4_ACQUIRE(lock)
        : m_lock(lock.get()), m_cancel_before(m_lock ? Tq4_hold_off_kill() : 0) {
        if (m_lock) (*m_lock)->Lock(m_lock);
    }
    ~Tq4_guard() TQ4_RELEASE() {
        if (!m_lock) return;
        (*m_lock)->Unlock(m_lock);
        Tq4_admit_kill(m_cancel_before);
    }
    Tq4_guard(const Tq4_guard &) = delete;
    Tq4_guard &operator=(const Tq4_guard &) = delete;
};
