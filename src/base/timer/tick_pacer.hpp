// tick_pacer.hpp: how many ticks a sleeping thread has missed. Without a clock of its own: tests step theirs.
//
// A sleep is never shorter than asked and often longer, so a thread that ticks after each one falls behind. It looks at
// the clock every few ticks, and makes up for whole ticks. What is less is carried on, so that no error gathers.
#pragma once

#include <cstdint>

class Tq4_tick_pacer {
public:
    static constexpr int tick_ms = 10, ticks_a_look = 8, tolerance_ms = 5;
    using Clock = uint64_t (*)(); // milliseconds that only go forward

    explicit Tq4_tick_pacer(Clock clock) : m_clock(clock), m_looked(clock()) {}

    // Called after each tick: how many more are due.
    long Missed() {
        if (++m_ticks < ticks_a_look) return 0;
        m_ticks = 0;
        const uint64_t now = m_clock();
        m_drift += static_cast<int64_t>(now - m_looked) - ticks_a_look * tick_ms;
        m_looked = now;
        if (m_drift <= tolerance_ms) return 0;
        const int64_t missed = (m_drift + tolerance_ms) / tick_ms;
        m_drift -= missed * tick_ms;
        return missed;
    }

private:
    const Clock m_clock;
    uint64_t m_looked;
    int64_t m_drift = 0; // milliseconds that the ticks are behind
    int m_ticks = 0;     // since the last look
};
