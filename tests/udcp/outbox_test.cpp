// The outbox: which datagrams leave together, in what order, and what becomes of a run that cannot.
#include "support/test.hpp"
#include "udcp/outbox.hpp"
#include "udcp/simulator.hpp"

namespace {

struct UdcpOutbox : testing::Test {
    Texts calls; // "address: lengths", one a call
    std::string sent;
    bool runs_fail = false, all_fail = false;
    std::vector<unsigned> unsent;

    static UdcpOutbox &of(void *context) { return *static_cast<UdcpOutbox *>(context); }
    static std::string text(Tq4_bytes bytes) { return {reinterpret_cast<const char *>(bytes.data), bytes.size}; }
    static int send(void *context, Tq4_sockaddr to, Tq4_bytes datagram) {
        UdcpOutbox &test = of(context);
        if (test.all_fail) return 0;
        test.calls.push_back(std::to_string((*to)->port(to)) + ": " + std::to_string(datagram.size));
        test.sent += text(datagram);
        return 1;
    }
    static int send_run(void *context, Tq4_sockaddr to, Tq4_bytes run, std::size_t length) {
        UdcpOutbox &test = of(context);
        if (test.runs_fail || test.all_fail) return 0;
        std::string lengths = std::to_string((*to)->port(to)) + ":";
        for (std::size_t at = 0; at < run.size; at += length)
            lengths += " " + std::to_string(std::min(length, run.size - at));
        test.calls.push_back(lengths);
        test.sent += text(run);
        return 1;
    }
    static void failed(void *context, const Tq4_id &connection, Tq4_bytes) {
        of(context).unsent.push_back(connection.l);
    }
    Tq4_udcp_outbox outbox{{this, send, send_run, failed}};
    std::string given;
    unsigned connection = 0;

    void add(int port, std::size_t size) {
        const std::string bytes(size, static_cast<char>('a' + connection % 26));
        given += bytes;
        outbox.Add({0, ++connection}, Host::sockaddr_of("10.0.0.1:" + std::to_string(port)).get(),
                   {reinterpret_cast<const uint8_t *>(bytes.data()), size});
    }
};

TEST_F(UdcpOutbox, ARunIsOfOneAddressAndOneLengthButForItsLast) {
    for (const std::size_t size : {10, 10, 7, 7, 9, 9}) add(1, size); // a shorter one ends a run, a longer one too
    add(2, 9);
    EXPECT_FALSE(outbox.empty());
    outbox.Flush();
    EXPECT_TRUE(outbox.empty());
    EXPECT_EQ(calls, (Texts{"1: 10 10 7", "1: 7", "1: 9 9", "2: 9"}));
    EXPECT_EQ(sent, given);
    outbox.Flush();
    EXPECT_EQ(calls.size(), 4u);
}

TEST_F(UdcpOutbox, ARunHasLimits) {
    for (int i = 0; i < 200; ++i) add(1, 30);
    for (int i = 0; i < 100; ++i) add(1, 1472);
    outbox.Flush();
    EXPECT_EQ(sent, given);
    EXPECT_EQ(calls.size(), 4u + 3u); // 64 datagrams, or 44 of full length in 65000 bytes
}

TEST_F(UdcpOutbox, DatagramsOfARunThatTheSystemRefusesGoAlone) {
    runs_fail = true;
    for (const std::size_t size : {10, 10, 7}) add(1, size);
    outbox.Flush();
    EXPECT_EQ(calls, (Texts{"1: 10", "1: 10", "1: 7"}));
    EXPECT_EQ(sent, given);
    EXPECT_TRUE(unsent.empty());
    runs_fail = false;
    for (unsigned i = 0; i < Tq4_udcp_outbox::refused_lasts; ++i) add(1, 5); // nothing waits meanwhile
    EXPECT_TRUE(outbox.empty());
    calls.clear();
    add(1, 5);
    add(1, 5);
    outbox.Flush();
    EXPECT_EQ(calls, Texts{"1: 5 5"});
    EXPECT_EQ(sent, given);
}

TEST_F(UdcpOutbox, WhatCannotGoAtAllIsTold) {
    all_fail = true;
    add(1, 5);
    add(1, 5);
    outbox.Flush();
    EXPECT_EQ(unsent, (std::vector<unsigned>{1, 2}));
}

} // namespace
