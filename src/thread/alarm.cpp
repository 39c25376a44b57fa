// alarm: a word in one of three states. Going to sleep and ringing each change it in one step, so that one of the two
// sees the other.
#include "thread/alarm.hpp"

#include <chrono>

#include "platform/multi_platform_pthread.hpp"
#include "platform/spin.hpp"
#include "tq4/api.h"

namespace {

int64_t now_ns() { return std::chrono::steady_clock::now().time_since_epoch() / std::chrono::nanoseconds(1); }

} // namespace

void Tq4_spin_habit::Slept(bool looked, int64_t asleep_ns) {
    constexpr auto relaxed = std::memory_order_relaxed;
    const bool soon = asleep_ns <= most_ns;
    if (looked) {
        m_pays.store(false, relaxed);
        if (!soon) return;
        const unsigned disbelief = m_disbelief.load(relaxed);
        m_ignore.store(1u << disbelief, relaxed);
        if (disbelief < most_disbelief) m_disbelief.store(disbelief + 1, relaxed);
    } else if (soon) {
        const unsigned ignore = m_ignore.load(relaxed);
        if (ignore)
            m_ignore.store(ignore - 1, relaxed);
        else
            m_pays.store(true, relaxed);
    }
}

bool Tq4_alarm::Await(bool may_look, unsigned long ms) {
    if (rung()) return true;
    if (ms == 0) return false;
    const bool looks = may_look && !MP_THREAD_IsAlone();
    m_looked.store(looks, std::memory_order_relaxed);
    return (looks && MP_THREAD_Spin(std::chrono::nanoseconds(Tq4_spin_habit::most_ns), 1, [this] { return rung(); })) ||
           Sleep(ms);
}

bool Tq4_alarm::Sleep(unsigned long ms) {
    constexpr int64_t ns_a_ms = 1000000;
    const int64_t start = now_ns();
    m_asleep_since.store(start, std::memory_order_relaxed);
    int state = Awake;
    if (!m_state.compare_exchange_strong(state, Asleep, std::memory_order_acq_rel)) return true;
    for (unsigned long gone = 0; gone < ms && !rung();) {
        MP_THREAD_SleepOn(&m_state, Asleep, ms == TQ4_ALL_ONES ? ms : ms - gone);
        if (ms != TQ4_ALL_ONES) gone = static_cast<unsigned long>((now_ns() - start + ns_a_ms / 2) / ns_a_ms);
    }
    state = Asleep;
    return !m_state.compare_exchange_strong(state, Awake, std::memory_order_acq_rel);
}

bool Tq4_alarm::Ring(Tq4_spin_habit &habit) {
    const int state = m_state.load(std::memory_order_acquire);
    if (state == Rung) return false;
    if (state == Asleep)
        habit.Slept(m_looked.load(std::memory_order_relaxed),
                    now_ns() - m_asleep_since.load(std::memory_order_relaxed));
    else
        habit.Caught();
    return m_state.exchange(Rung, std::memory_order_acq_rel) == Asleep;
}
