// alarm.hpp: one thread waits until others ring; it looks for a while before it sleeps, where that has paid.
//
// A thread that sleeps is woken tens of microseconds later on another core; one that looks sees the ring after a tenth
// of a microsecond. But looking takes the core from whoever might ring. So a habit learns from each wait whether it
// pays:
// - The ring comes soon after a wait began that did not look: looking would have paid, and the next wait looks.
// - The ring comes while the wait looks: it pays.
// - The ring comes soon after looking in vain: the ringer seems to have waited for our core. The next time that looking
//   would have paid is not believed, then the next two, four and so on.
// Waits that end late teach that it does not pay now, and cost nothing from then on.
#pragma once

#include <atomic>
#include <cstdint>

class Tq4_spin_habit {
public:
    // How long a wait looks; a sleep and its end cost two to five times that.
    static constexpr int64_t most_ns = 20000;

    bool pays() const { return m_pays.load(std::memory_order_relaxed); }
    // What the ringer saw: the waiter was awake; or it was asleep, for asleep_ns, after it had looked or not.
    void Caught() {
        if (m_disbelief.load(std::memory_order_relaxed)) m_disbelief.store(0, std::memory_order_relaxed);
    }
    void Slept(bool looked, int64_t asleep_ns);

private:
    static constexpr unsigned most_disbelief = 12; // 4096 times

    // Hints: a lost change costs a wait that is longer than it need be.
    std::atomic<bool> m_pays{true};
    std::atomic<unsigned> m_disbelief{0}; // how often in a row looking was in vain and the ring came soon after
    std::atomic<unsigned> m_ignore{0};    // how often looking would have to pay before it is believed
};

class Tq4_alarm {
public:
    // For the waiter, or before it is known to others: from now on a ring is a new one.
    void Arm() { m_state.store(Awake, std::memory_order_relaxed); }
    bool rung() const { return m_state.load(std::memory_order_acquire) == Rung; }
    // Waits until it is rung, at most ms (all ones: without limit), and looks for it first if it may. False: it was
    // not.
    bool Await(bool may_look, unsigned long ms);

    // For one ringer at a time. From its end on the alarm, and what else the waiter owns, may be gone, unless the
    // caller knows better. True: the waiter sleeps on word(), and the caller wakes it.
    bool Ring(Tq4_spin_habit &habit);
    const std::atomic<int> *word() const { return &m_state; }

private:
    enum State : int { Awake, Asleep, Rung };

    std::atomic<int> m_state{Awake};
    std::atomic<bool> m_looked{false};      // in this wait; like the next, the waiter's until it is asleep
    std::atomic<int64_t> m_asleep_since{0}; // nanoseconds of the steady clock

    bool Sleep(unsigned long ms);
};
