// recvdata: what caches cost a datagram: a lock taken twice, and an address that is copied.
#include "udcp/recvdata.hpp"

#include <utility>

#include "udcp/engine.hpp"

Tq4_udcp_caches::~Tq4_udcp_caches() {
    const Tq4_guard guard(m_lock);
    for (Tq4_udcp_recvdata *cache : m_free) Free(cache);
}

void Tq4_udcp_caches::Free(Tq4_udcp_recvdata *cache) {
    m_strings.Free(cache->buffer);
    delete cache;
}

Tq4_udcp_recvdata *Tq4_udcp_caches::Take(Tq4_string *datagram, Tq4_sockaddr sender) {
    Tq4_udcp_recvdata *cache = nullptr;
    const auto cost = static_cast<unsigned>(1 + Tq4_udcp_bytes(*datagram).size / (Tq4_upp_most_datagram + 1));
    {
        const Tq4_guard guard(m_lock);
        if (m_busy + cost > Tq4_udcp_most_frames) return nullptr;
        m_busy += cost;
        if (!m_free.empty()) {
            cache = m_free.back();
            m_free.pop_back();
        }
    }
    if (!cache) cache = new Tq4_udcp_recvdata{.owner = *this, .buffer = nullptr};
    if (!cache->buffer) cache->buffer = m_strings.Make();
    cache->cost = cost;
    std::swap(cache->buffer, *datagram);
    Tq4_sockaddr_oitf->Copy(cache->sender.get(), sender);
    return cache;
}

void Tq4_udcp_caches::GiveBack(void *params) {
    auto *cache = static_cast<Tq4_udcp_recvdata *>(params);
    Tq4_udcp_caches &owner = cache->owner;
    if (cache->cost > 1) owner.m_strings.Free(std::exchange(cache->buffer, nullptr));
    {
        const Tq4_guard guard(owner.m_lock);
        owner.m_busy -= cache->cost;
        if (owner.m_free.size() < Tq4_udcp_most_spare_caches) {
            owner.m_free.push_back(cache);
            return;
        }
    }
    owner.Free(cache);
}

unsigned Tq4_udcp_caches::busy() {
    const Tq4_guard guard(m_lock);
    return m_busy;
}
