// event: a flag behind a mutex, with a condition to wait on.
//
// The flag decides, and for a manual-reset event also how often it became set: a waiter that was there then passes even
// if a Reset came before it ran. The condition only tells waiters to look again, so wake-ups without cause, and a Set
// that arrives together with the time-out, need no care of their own. Waiters are woken while the mutex is held. So
// once a waiter has passed, the setter is done with the event, and the waiter may delete it.
// A kill takes a waiter only inside the wait, where a handler gives the mutex back and passes the wake-up on.
#include "thread/event.hpp"

#include <atomic>
#include <cerrno>

#include "identity.hpp"
#include "module.hpp"
#include "platform/stopwatch.hpp"
#include "thread/cancel.hpp"

struct Tq4_event_obj : Tq4_identity {
    MP_THREAD_event m_cond;
    MP_THREAD_mutex m_mutex;
    std::atomic<bool> m_isSet; // changed under m_mutex
    bool m_isManuSet;          // constant once others know the event, like m_initial
    bool m_initial;            // m_isSet of a new event
    unsigned long m_sets = 0;  // how often a manual-reset event became set; under m_mutex

    explicit Tq4_event_obj(const Tq4_event_CreateParams *given) {
        constexpr Tq4_event_CreateParams defaults{.bManualReset = 1, .bInitialState = 0};
        if (!given) given = &defaults;
        MP_THREAD_event_init(&m_cond, &m_mutex);
        m_isManuSet = given->bManualReset;
        m_isSet = m_initial = given->bInitialState;
    }
    ~Tq4_event_obj() { MP_THREAD_event_destroy(&m_cond, &m_mutex); }
    void Duplicate(const Tq4_event_obj &source) {
        m_isManuSet = source.m_isManuSet;
        m_isSet = m_initial = source.m_initial;
    }
    void Reset() { m_initial ? Set() : Clear(); }

    void Set();
    void Clear();
    int Wait(unsigned long milliseconds);
    void *GetHandle() { return &m_cond; }

private:
    bool StaysSet();
    void Await(unsigned long milliseconds, unsigned long sets_before);
    void AwaitUntilTimeout(unsigned long milliseconds, unsigned long sets_before);
    bool IsSetSince(unsigned long sets_before) const { return m_isSet || m_sets != sets_before; }
    void Wake() { m_isManuSet ? MP_THREAD_event_signal_all(&m_cond) : MP_THREAD_event_signal(&m_cond); }
    static void KilledInWait(void *event);
};

// A Set of an event that is set comes before the thread that clears it next. Both change the flag in one step, so that
// thread also sees all that the setter did before. A look at the flag alone would not promise this.
bool Tq4_event_obj::StaysSet() {
    bool set = true;
    return m_isSet.load(std::memory_order_relaxed) && m_isSet.compare_exchange_strong(set, true);
}

void Tq4_event_obj::Set() {
    if (StaysSet()) return;
    Tq4_cancel_deferred deferred;
    MP_THREAD_mutex_lock(&m_mutex);
    m_isSet.exchange(true);
    m_sets += m_isManuSet;
    Wake();
    MP_THREAD_mutex_unlock(&m_mutex);
}

void Tq4_event_obj::Clear() {
    Tq4_cancel_deferred deferred;
    MP_THREAD_mutex_lock(&m_mutex);
    m_isSet.exchange(false);
    MP_THREAD_event_reset(&m_cond);
    MP_THREAD_mutex_unlock(&m_mutex);
}

int Tq4_event_obj::Wait(unsigned long milliseconds) {
    Tq4_cancel_deferred deferred;
    MP_THREAD_mutex_lock(&m_mutex);
    const unsigned long sets_before = m_sets;
    if (!m_isSet && milliseconds != 0) Await(milliseconds, sets_before);
    const bool passes = m_isManuSet ? IsSetSince(sets_before) : m_isSet.exchange(false);
    MP_THREAD_mutex_unlock(&m_mutex);
    return passes;
}

void Tq4_event_obj::Await(unsigned long milliseconds, unsigned long sets_before) {
    pthread_cleanup_push(KilledInWait, this);
    if (milliseconds == TQ4_ALL_ONES)
        while (!IsSetSince(sets_before)) MP_THREAD_event_wait(&m_cond, TQ4_ALL_ONES, &m_mutex);
    else
        AwaitUntilTimeout(milliseconds, sets_before);
    pthread_cleanup_pop(0);
}

// Woken without cause, it waits for the rest.
void Tq4_event_obj::AwaitUntilTimeout(unsigned long milliseconds, unsigned long sets_before) {
    const MP_Stopwatch time;
    for (unsigned long gone = 0; !IsSetSince(sets_before) && gone < milliseconds;) {
        if (MP_THREAD_event_wait(&m_cond, milliseconds - gone, &m_mutex) == ETIMEDOUT) return;
        gone = time.GoneMs();
    }
}

void Tq4_event_obj::KilledInWait(void *event) {
    Tq4_forget_killed_frames();
    auto *killed = static_cast<Tq4_event_obj *>(event);
    if (killed->m_isSet) killed->Wake();
    MP_THREAD_mutex_unlock(&killed->m_mutex);
}

bool Tq4_event_is_set(Tq4_event event) {
    return Tq4_record<const Tq4_event_obj>(event)->m_isSet.load(std::memory_order_relaxed);
}

const Tq4_event_ Tq4_event_itf = {
    .Set = Tq4_op<&Tq4_event_obj::Set>,
    .Reset = Tq4_op<&Tq4_event_obj::Clear>,
    .Wait = Tq4_op<&Tq4_event_obj::Wait>,
    .GetHandle = Tq4_op<&Tq4_event_obj::GetHandle>,
};
TQ4_MODULE(event)
