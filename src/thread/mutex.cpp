// mutex: a plain mutex of the system with a timed lock, as an object.
#include "tq4/mutex.h"

#include "identity.hpp"
#include "module.hpp"
#include "platform/multi_platform_pthread.hpp"

struct Tq4_mutex_obj : Tq4_identity {
    MP_THREAD_mutex m_mutex;
    bool m_valid; // constant: the system's mutex exists

    explicit Tq4_mutex_obj(const Tq4_mutex_CreateParams *) : m_valid(MP_THREAD_mutex_init(&m_mutex, 0, nullptr)) {}
    ~Tq4_mutex_obj() {
        if (m_valid) MP_THREAD_mutex_destroy(&m_mutex);
    }

    int Lock(unsigned long milliseconds) {
        if (!m_valid) return 0;
        if (milliseconds == TQ4_ALL_ONES) return MP_THREAD_mutex_lock(&m_mutex) == 0;
        return MP_THREAD_mutex_trylock(&m_mutex, milliseconds) == 0;
    }
    int Unlock() { return m_valid ? MP_THREAD_mutex_unlock(&m_mutex) : 0; }
    int IsLocked() { return m_valid ? MP_THREAD_mutex_islock(&m_mutex) : 0; }
};

const Tq4_mutex_ Tq4_mutex_itf = {
    .Lock = Tq4_op<&Tq4_mutex_obj::Lock>,
    .Unlock = Tq4_op<&Tq4_mutex_obj::Unlock>,
    .IsLocked = Tq4_op<&Tq4_mutex_obj::IsLocked>,
};
TQ4_MODULE(mutex)
