// brief_lock.hpp: a mutex for steps of some dozen nanoseconds.
//
// A thread that finds it taken looks again a few times before it sleeps: the step is over sooner than a sleep begins.
// Unlocking touches it last, so the thread that takes it next may destroy it.
#pragma once

#include "platform/multi_platform_pthread.hpp"
#include "thread_annotations.hpp"

class TQ4_CAPABILITY Tq4_brief_lock {
    MP_THREAD_mutex m_mutex;

    void Wait() TQ4_NO_THREAD_ANALYSIS;

public:
    Tq4_brief_lock() { MP_THREAD_mutex_init(&m_mutex, 0, nullptr); }
    ~Tq4_brief_lock() { MP_THREAD_mutex_destroy(&m_mutex); }
    Tq4_brief_lock(const Tq4_brief_lock &) = delete;
    Tq4_brief_lock &operator=(const Tq4_brief_lock &) = delete;

    void Lock() TQ4_ACQUIRE() {
        if (!MP_THREAD_mutex_take(&m_mutex)) Wait();
    }
    void Unlock() TQ4_RELEASE() { MP_THREAD_mutex_unlock(&m_mutex); }
};

// Holds it until the end of the scope. A thread that may be killed has shut its kill gate (cancel.hpp) before.
class TQ4_SCOPED_CAPABILITY Tq4_brief_guard {
    Tq4_brief_lock &m_lock;

public:
    explicit Tq4_brief_guard(Tq4_brief_lock &lock) TQ4_ACQUIRE(lock) : m_lock(lock) { m_lock.Lock(); }
    ~Tq4_brief_guard() TQ4_RELEASE() { m_lock.Unlock(); }
    Tq4_brief_guard(const Tq4_brief_guard &) = delete;
    Tq4_brief_guard &operator=(const Tq4_brief_guard &) = delete;
};
