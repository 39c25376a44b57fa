// stopwatch.hpp: the time since something began, by the clock that only goes forward.
#pragma once

#include <chrono>

class MP_Stopwatch {
    const std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();

public:
    std::chrono::nanoseconds Gone() const { return std::chrono::steady_clock::now() - m_start; }
    // In whole milliseconds.
    unsigned long GoneMs() const {
        return static_cast<unsigned long>(std::chrono::floor<std::chrono::milliseconds>(Gone()).count());
    }
};
