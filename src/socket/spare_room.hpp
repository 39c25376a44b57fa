// spare_room.hpp: where the rest of a datagram goes that is larger than its receiver expected.
//
// The size of the next datagram can be asked, but another thread may take that one before us, and then a larger one may
// be next. A spare room takes what does not fit: addresses without memory, until something is written there. A few are
// kept for the next receivers.
#pragma once

#include <cstddef>

class Spare_room {
    void *m_begin; // owned
    bool m_used = false;

public:
    // Above all that Linux sends in one datagram: 64 KiB over UDP, and less than 5 MiB between local sockets.
    static constexpr std::size_t size = std::size_t{8} << 20;

    Spare_room();
    ~Spare_room();
    Spare_room(const Spare_room &) = delete;
    Spare_room &operator=(const Spare_room &) = delete;

    // Null when the system gave none.
    void *begin() const { return m_begin; }
    // Something was written: the memory goes back to the system at the end.
    void MarkUsed() { m_used = true; }
};
