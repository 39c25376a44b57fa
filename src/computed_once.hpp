// computed_once.hpp: a value that is computed at its first use and then kept.
//
// Unlike a function's static it takes no lock: threads that come together compute it each for themselves, and must find
// the same. So a child that was forked meanwhile never waits for a thread that it does not have.
#pragma once

#include <atomic>

// Call it in one place for each value: the type of the lambda given tells them apart.
template <class Compute> auto Tq4_computed_once(Compute compute) {
    static constinit std::atomic<decltype(compute())> value{};
    static constinit std::atomic<bool> known = false;
    if (!known.load(std::memory_order_acquire)) {
        value.store(compute(), std::memory_order_relaxed);
        known.store(true, std::memory_order_release);
    }
    return value.load(std::memory_order_relaxed);
}
