// Receive caches: what waits for the loop has a ceiling in bytes, too, and strangers cannot make the kept ones large.
#include "support/test.hpp"
#include "udcp/recvdata.hpp"
#include "udcp/simulator.hpp"

namespace {

long strings; // that live

Tq4_udcp_recvdata *take(Tq4_udcp_caches &caches, std::size_t size) {
    ++strings; // the socket's own, which is exchanged for another
    auto datagram = static_cast<Tq4_string>(Tq4_string_oitf->Create(nullptr));
    (*datagram)->Memcpy(datagram, std::string(size, 'x').data(), size);
    Tq4_udcp_recvdata *cache = caches.Take(&datagram, Host::sockaddr_of("10.0.0.1:1").get());
    --strings;
    Tq4_string_oitf->Delete(datagram);
    return cache;
}

TEST(UdcpCaches, CeilingIsOfBytesAndOnlySomeShortOnesAreKept) {
    strings = 0;
    Tq4_udcp_caches caches{{[]() -> void * { return ++strings, Tq4_string_oitf->Create(nullptr); },
                            [](void *string) {
                                --strings;
                                Tq4_string_oitf->Delete(string);
                            }}};
    const struct {
        std::size_t size, fit, kept;
    } cases[] = {{60000, Tq4_udcp_most_frames / 41, 0},
                 {14720, Tq4_udcp_most_frames / 10, 0},
                 {1472, 2 * Tq4_udcp_most_spare_caches, Tq4_udcp_most_spare_caches}};
    for (const auto &[size, fit, kept] : cases) {
        std::vector<Tq4_udcp_recvdata *> waiting;
        while (waiting.size() < fit) waiting.push_back(take(caches, size));
        EXPECT_NE(waiting.back(), nullptr);
        if (kept == 0) { EXPECT_EQ(take(caches, size), nullptr); }
        for (Tq4_udcp_recvdata *cache : waiting) Tq4_udcp_caches::GiveBack(cache);
        EXPECT_EQ(caches.busy(), 0u);
        EXPECT_EQ(static_cast<std::size_t>(strings), kept);
    }
}

} // namespace
