// semaphore: a counting semaphore of the system, as an object.
#include "tq4/semaphore.h"

#include "identity.hpp"
#include "module.hpp"
#include "platform/multi_platform_pthread.hpp"

struct Tq4_semaphore_obj : Tq4_identity {
    MP_THREAD_Semaphore m_sem;
    bool m_valid; // constant: the system's semaphore exists

    explicit Tq4_semaphore_obj(const Tq4_semaphore_CreateParams *given) {
        constexpr Tq4_semaphore_CreateParams defaults{.initsps = 100, .maxsps = 100, .spName = nullptr};
        if (!given) given = &defaults;
        m_valid = MP_THREAD_Semaphore_init(&m_sem, given->initsps, given->maxsps, given->spName);
    }
    ~Tq4_semaphore_obj() {
        if (!m_valid) return;
        MP_THREAD_Semaphore_post(&m_sem, 1); // lets one waiter go
        MP_THREAD_Semaphore_destroy(&m_sem);
    }

    int Wait(unsigned long milliseconds) { return m_valid ? MP_THREAD_Semaphore_wait(&m_sem, milliseconds) : -1; }
    // The platform posts once whatever n is: deliberate.
    int PostN(unsigned long n) { return m_valid ? MP_THREAD_Semaphore_post(&m_sem, n > 0) : 0; }
};

static Tq4_semaphore_obj *record_of(Tq4_semaphore semaphore) { return Tq4_record<Tq4_semaphore_obj>(semaphore); }

static int Tq4_semaphore_itf_PostN(Tq4_semaphore semaphore, unsigned long n) {
    return semaphore ? record_of(semaphore)->PostN(n) : -1;
}

const Tq4_semaphore_ Tq4_semaphore_itf = {
    .Wait = Tq4_op<&Tq4_semaphore_obj::Wait>,
    .Post = [](Tq4_semaphore semaphore) { return Tq4_semaphore_itf_PostN(semaphore, 1); },
    .PostN = Tq4_semaphore_itf_PostN,
};
TQ4_MODULE(semaphore)
