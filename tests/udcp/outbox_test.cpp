// The outbox: which datagrams leave together, in what order, and what becomes of a run that cannot.
#include "support/test.hpp"
#include "udcp/outbox.hpp"
#include "udcp/simulator.hpp"

namespace {

struct UdcpOutbox : testing::Test {
    Texts calls; // "port: lengths", one a call
    std::string given, sent;
    bool runs_fail = false, all_fail = false;
    std::vector<unsigned> unsent;
    unsigned connection = 0;
    Tq4_udcp_outbox outbox{{this,
                            [](void *test, Tq4_sockaddr to, Tq4_bytes one) { return of(test).send(to, one, one.size); },
                            [](void *test, Tq4_sockaddr to, Tq4_bytes run, std::size_t length) {
                                return of(test).runs_fail ? 0 : of(test).send(to, run, length);
                            },
                            [](void *test, const Tq4_id &of_it, Tq4_bytes) { of(test).unsent.push_back(of_it.l); }}};

    static UdcpOutbox &of(void *test) { return *static_cast<UdcpOutbox *>(test); }
    int send(Tq4_sockaddr to, Tq4_bytes run, std::size_t length) {
        if (all_fail) return 0;
        std::string lengths = std::to_string((*to)->port(to)) + ":";
        for (std::size_t at = 0; at < run.size; at += length)
            lengths += " " + std::to_string(std::min(length, run.size - at));
        calls.push_back(lengths);
        sent.append(reinterpret_cast<const char *>(run.data), run.size);
        return 1;
    }
    void add(int port, std::size_t size) {
        const std::string bytes(size, static_cast<char>('a' + connection % 26));
        given += bytes;
        outbox.Add({0, ++connection}, Host::sockaddr_of("10.0.0.1:" + std::to_string(port)).get(),
                   {reinterpret_cast<const uint8_t *>(bytes.data()), size});
    }
    Texts flushed() {
        outbox.Flush();
        EXPECT_TRUE(outbox.empty());
        EXPECT_TRUE(all_fail || sent == given);
        return std::exchange(calls, {});
    }
};

TEST_F(UdcpOutbox, ARunIsOfOneAddressAndOneLengthButForItsLastAndHasLimits) {
    for (const std::size_t size : {10, 10, 7, 7, 9, 9}) add(1, size); // a shorter one ends a run, a longer one too
    add(2, 9);
    EXPECT_FALSE(outbox.empty());
    EXPECT_EQ(flushed(), (Texts{"1: 10 10 7", "1: 7", "1: 9 9", "2: 9"}));
    EXPECT_EQ(flushed(), Texts());
    for (int i = 0; i < 200; ++i) add(1, 30);
    for (int i = 0; i < 100; ++i) add(1, 1472);
    EXPECT_EQ(flushed().size(), 4u + 3u); // 64 datagrams, or 44 of full length in 65000 bytes
}

TEST_F(UdcpOutbox, DatagramsOfARunThatTheSystemRefusesGoAloneOrAreTold) {
    all_fail = true;
    for (const std::size_t size : {5, 5}) add(1, size);
    EXPECT_EQ(flushed(), Texts());
    EXPECT_EQ(unsent, (std::vector<unsigned>{1, 2}));
    all_fail = false;
    given.clear();
    runs_fail = true;
    for (const std::size_t size : {10, 10, 7}) add(1, size);
    EXPECT_EQ(flushed(), (Texts{"1: 10", "1: 10", "1: 7"}));
    runs_fail = false;
    for (unsigned i = 0; i < Tq4_udcp_outbox::refused_lasts; ++i) add(1, 5); // nothing waits meanwhile
    EXPECT_TRUE(outbox.empty());
    EXPECT_EQ(flushed().size(), Tq4_udcp_outbox::refused_lasts);
    for (const std::size_t size : {5, 5}) add(1, size);
    EXPECT_EQ(flushed(), Texts{"1: 5 5"});
    EXPECT_EQ(unsent.size(), 2u);
}

} // namespace
