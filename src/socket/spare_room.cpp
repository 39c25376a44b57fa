// spare_room: rooms that were not written to wait in a few places, where any thread finds them.
#include "socket/spare_room.hpp"

#include <atomic>

#include "platform/multi_platform_memory.hpp"

namespace {

constinit std::atomic<void *> kept[4] = {}; // rooms, owned; null for none

} // namespace

Spare_room::Spare_room() {
    for (auto &place : kept)
        if ((m_begin = place.exchange(nullptr))) return;
    m_begin = MP_ReserveAddresses(size);
}

Spare_room::~Spare_room() {
    for (auto &place : kept)
        if (void *none = nullptr; m_begin && !m_used && place.compare_exchange_strong(none, m_begin)) return;
    if (m_begin) MP_ReleaseAddresses(m_begin, size);
}
