// spin.hpp: looking for what another thread is about to do, before sleeping for it.
#pragma once

#include <chrono>

#include "platform/multi_platform_pthread.hpp"
#include "platform/stopwatch.hpp"

// Looks until something holds or the time is over, each time after so many pauses; true when it held. Where nobody else
// can run meanwhile it does not look at all. The clock is read only now and then: a look at it costs as much as a pause
// or two.
template <class Condition> bool MP_THREAD_Spin(std::chrono::nanoseconds limit, int pauses, Condition holds) {
    constexpr int looks_a_reading = 8;
    if (MP_THREAD_IsAlone()) return false;
    const MP_Stopwatch time;
    do {
        for (int look = 0; look < looks_a_reading; ++look) {
            for (int i = 0; i < pauses; ++i) MP_THREAD_Pause();
            if (holds()) return true;
        }
    } while (time.Gone() < limit);
    return false;
}
