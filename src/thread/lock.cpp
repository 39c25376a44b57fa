// lock: a recursive mutex of the system, as an object. The holder and the depth are the system's to know.
#include "tq4/lock.h"

#include "identity.hpp"
#include "module.hpp"
#include "platform/multi_platform_pthread.hpp"

struct Tq4_lock_obj : Tq4_identity {
    MP_THREAD_CriticalSection m_criticalsec;

    Tq4_lock_obj() { MP_THREAD_CriticalSection_init(&m_criticalsec); }
    ~Tq4_lock_obj() { MP_THREAD_CriticalSection_destroy(&m_criticalsec); }

    void Lock() { MP_THREAD_CriticalSection_lock(&m_criticalsec); }
    void Unlock() { MP_THREAD_CriticalSection_unlock(&m_criticalsec); }
};

const Tq4_lock_ Tq4_lock_itf = {
    .Lock = Tq4_op<&Tq4_lock_obj::Lock>,
    .Unlock = Tq4_op<&Tq4_lock_obj::Unlock>,
};
TQ4_MODULE(lock)
