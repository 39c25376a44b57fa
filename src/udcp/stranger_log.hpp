// stranger_log.hpp: how often strangers may make us write. Each second has so many lines; how many were left out is
// told with the first one after.
#pragma once

#include <cstdint>
#include <utility>

#include "udcp/limits.hpp"

class Tq4_udcp_stranger_log {
    uint64_t m_since = 0; // milliseconds: when this second began
    unsigned m_lines = 0;
    unsigned long m_left_out = 0;

public:
    // Whether one more line may be written at this time.
    bool Admits(uint64_t now) {
        if (now - m_since >= 1000) {
            m_since = now;
            m_lines = 0;
        }
        if (m_lines < Tq4_udcp_stranger_lines) return ++m_lines;
        ++m_left_out;
        return false;
    }
    // How many were left out since this was last asked.
    unsigned long LeftOut() { return std::exchange(m_left_out, 0); }
};
