// semaphore: a counting semaphore of the system, as an object.
#include "tq4/semaphore.h"

#include "identity.hpp"
#include "module.hpp"
#include "platform/multi_platform_pthread.hpp"

struct Tq4_semaphore_obj : Tq4_identity {
    MP_THREAD_Semaphore m_sem;
    Tq4_semaphore_CreateParams m_made_with; // constant, like m_valid; without the name
    bool m_valid;                           // the system's semaphore exists

    explicit Tq4_semaphore_obj(const Tq4_semaphore_CreateParams *given) {
        Make(given ? *given : Tq4_semaphore_CreateParams{.initsps = 100, .maxsps = 100, .spName = nullptr});
    }
    ~Tq4_semaphore_obj() {
        if (!m_valid) return;
        MP_THREAD_Semaphore_post(&m_sem, 1); // lets one waiter go
        MP_THREAD_Semaphore_destroy(&m_sem);
    }
    void Make(const Tq4_semaphore_CreateParams &given) {
        m_made_with = {given.initsps, given.maxsps, nullptr};
        m_valid = MP_THREAD_Semaphore_init(&m_sem, given.initsps, given.maxsps, given.spName);
    }
    void Duplicate(const Tq4_semaphore_obj &source) {
        if (m_valid) MP_THREAD_Semaphore_destroy(&m_sem);
        Make(source.m_made_with);
    }
    void Reset();

    int Wait(unsigned long milliseconds) { return m_valid ? MP_THREAD_Semaphore_wait(&m_sem, milliseconds) : -1; }
    // The platform posts once whatever n is: deliberate.
    int PostN(unsigned long n) { return m_valid ? MP_THREAD_Semaphore_post(&m_sem, n > 0) : 0; }
};

// Step by step, since others may be waiting.
void Tq4_semaphore_obj::Reset() {
    if (!m_valid) return;
    long missing = long{m_made_with.initsps} - MP_THREAD_Semaphore_count(&m_sem);
    for (; missing > 0; --missing) MP_THREAD_Semaphore_post(&m_sem, 1);
    for (; missing < 0; ++missing) MP_THREAD_Semaphore_trywait(&m_sem);
}

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
