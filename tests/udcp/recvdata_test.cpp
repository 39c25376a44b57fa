// Receive caches: what waits for the loop has a ceiling in bytes, too, and strangers cannot make the kept ones large.
#include "support/test.hpp"
#include "udcp/recvdata.hpp"
#include "udcp/simulator.hpp"

namespace {

struct UdcpCaches : testing::Test {
    static inline long strings = 0; // that live
    Tq4_udcp_caches caches{{[]() -> void * { return ++strings, Tq4_string_oitf->Create(nullptr); },
                            [](void *string) {
                                --strings;
                                Tq4_string_oitf->Delete(string);
                            }}};
    const Tq4_own<Tq4_sockaddr> sender = Host::sockaddr_of("10.0.0.1:1");

    UdcpCaches() { strings = 0; }
    Tq4_udcp_recvdata *take(std::size_t size) {
        ++strings; // the socket's own, which is exchanged for another
        auto datagram = static_cast<Tq4_string>(Tq4_string_oitf->Create(nullptr));
        (*datagram)->Memcpy(datagram, std::string(size, 'x').data(), size);
        Tq4_udcp_recvdata *cache = caches.Take(&datagram, sender.get());
        --strings;
        Tq4_string_oitf->Delete(datagram);
        return cache;
    }
};

TEST_F(UdcpCaches, ALongDatagramCountsForWhatItHoldsAndItsMemoryGoes) {
    Tq4_udcp_recvdata *cache = take(1472);
    EXPECT_EQ(caches.busy(), 1u);
    Tq4_udcp_caches::GiveBack(cache);
    EXPECT_EQ(strings, 1); // kept for the next one
    cache = take(60000);
    EXPECT_EQ(caches.busy(), 41u);
    Tq4_udcp_caches::GiveBack(cache);
    EXPECT_EQ(caches.busy(), 0u);
    EXPECT_EQ(strings, 0);
}

TEST_F(UdcpCaches, CeilingIsOfBytesAndOnlySomeAreKept) {
    std::vector<Tq4_udcp_recvdata *> waiting;
    while (Tq4_udcp_recvdata *cache = take(14720)) waiting.push_back(cache);
    EXPECT_EQ(waiting.size(), Tq4_udcp_most_frames / 10);
    for (Tq4_udcp_recvdata *cache : waiting) Tq4_udcp_caches::GiveBack(cache);
    waiting.clear();
    for (unsigned i = 0; i < 2 * Tq4_udcp_most_spare_caches; ++i) waiting.push_back(take(30));
    for (Tq4_udcp_recvdata *cache : waiting) Tq4_udcp_caches::GiveBack(cache);
    EXPECT_EQ(strings, Tq4_udcp_most_spare_caches);
}

} // namespace
