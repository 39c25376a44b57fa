// Messages from one side to the other over a connection that stands: how they are cut, grouped, acknowledged and sent
// again, to the byte in both orders; and what the application is told of queues.
#include "udcp/recorder.hpp"

namespace {

struct UdcpTransfer : Pair {
    UdcpTransfer() { connect(); }
    std::string text(std::size_t size, char c = 'x') const { return std::string(size, c); }
};

TEST_F(UdcpTransfer, LargestSinglePacketAndTheFirstThatIsCut) {
    client.send(id, text(1442));
    EXPECT_EQ(datagrams.back().size(), 1472u);
    client.send(id, text(1443), true);
    EXPECT_EQ(wire, (Texts{"0:Data", "0:Fragment", "0:FragmentEnd"}));
    EXPECT_EQ(datagrams[1].size(), 1472u);
    EXPECT_EQ(datagrams[2].size(), 31u);
    EXPECT_EQ(packets[0].code(), 12u);
    EXPECT_EQ(packets[1].code(), 29u);
    EXPECT_EQ(packets[2].code(), 30u);
    EXPECT_EQ(packets[2].seq, packets[0].seq + 2);
    simulator.run_for(50 * ms);
    EXPECT_EQ(at_server.take(), (Texts{text(1442), text(1443) + "!"}));
}

TEST_F(UdcpTransfer, IsSilentAgainWhenBothKnowThatAllHasCome) {
    client.send(id, "one");
    simulator.run_for(200 * ms);
    EXPECT_EQ(count("0:Data"), 1);
    EXPECT_EQ(count("0:DataAck2"), count("1:DataAck"));
    EXPECT_LE(wire.size(), 5u);
    take_wire();
    simulator.run_for(1 * second);
    EXPECT_EQ(wire.size(), static_cast<std::size_t>(count("0:Active") + count("1:Active")));
}

// A message does not repeat the acknowledgement that was confirmed last, a piece and a post do.
TEST_F(UdcpTransfer, MessagesAndPiecesAcknowledgeByDifferentRules) {
    Tq4_udcp_item &there = item(server, server_id());
    const uint32_t first = item(client, id).m_first_seq;
    client.send(id, "one");
    simulator.run_for(6 * ms); // it is there, no tick was
    ASSERT_EQ(there.m_unack_count, 1);
    there.m_expect_seq = first + 1;
    server.send(server_id(), "answer");
    EXPECT_FALSE(packets.back().acknowledges());
    EXPECT_EQ(there.m_unack_count, 1);
    server.post(server_id(), "post");
    EXPECT_TRUE(packets.back().acknowledges());
    EXPECT_EQ(packets.back().ack, first);
    EXPECT_EQ(there.m_unack_count, 0);
    server.post(server_id(), "post");
    EXPECT_FALSE(packets.back().acknowledges()) << "there is nothing new";
    client.send(id, "two");
    simulator.run_for(6 * ms);
    server.send(server_id(), "answer");
    EXPECT_TRUE(packets.back().acknowledges());
    EXPECT_EQ(packets.back().ack, first + 1);
}

TEST_F(UdcpTransfer, PostsComeAtOnceOrNeverAndAreNotNumbered) {
    lose = [](const std::string &name) { return name == "0:Data"; };
    client.send(id, "lost at first");
    EXPECT_EQ(client.post(id, "ahead"), 1);
    EXPECT_EQ(client.post(id, text(1443)), 0);
    simulator.run_for(10 * ms);
    EXPECT_EQ(at_server.take(), Texts{"post ahead"});
    lose = nullptr;
    simulator.run_for(200 * ms);
    EXPECT_EQ(at_server.take(), Texts{"lost at first"});
}

TEST_F(UdcpTransfer, WhatIsNotAcknowledgedIsSentAgainLaterEachTime) {
    std::vector<Microseconds> times;
    lose = [&](const std::string &name) { return name == "0:Data" && (times.push_back(simulator.now()), true); };
    client.send(id, "again");
    simulator.run_for(1 * second);
    ASSERT_GE(times.size(), 6u);
    for (std::size_t i = 1; i < 6; ++i) {
        const double late = static_cast<double>(times[i] - times[0]) / 1000 - 60 * static_cast<double>(i);
        EXPECT_GE(late, 0) << i;
        EXPECT_LE(late, 32) << i << ": a tick";
    }
    for (const std::string &datagram : datagrams) EXPECT_EQ(datagram, datagrams[0]);
    lose = nullptr;
    simulator.run_for(200 * ms);
    EXPECT_EQ(at_server.take(), Texts{"again"});
}

TEST_F(UdcpTransfer, TickSendsFourPacketsAgainAndNotMore) {
    lose = [](const std::string &name) { return name == "0:Data"; };
    for (int i = 0; i < 10; ++i) client.send(id, "m" + std::to_string(i));
    take_wire();
    const Microseconds begin = simulator.now();
    std::map<Microseconds, int> at;
    lose = [&](const std::string &name) { return name == "0:Data" && ++at[simulator.now() - begin]; };
    simulator.run_for(110 * ms);
    ASSERT_FALSE(at.empty());
    for (const auto &[when, sent] : at) EXPECT_LE(sent, 4) << when;
}

TEST_F(UdcpTransfer, AcknowledgementSendsWhatIsLateAtOnce) {
    lose = [](const std::string &name) { return name == "0:Data"; };
    client.send(id, "lost");
    const uint32_t first = packets.back().seq;
    client.pause(100 * ms); // no tick comes
    simulator.run_for(90 * ms);
    client.engine().ReadClock();
    take_wire();
    Tq4_upi_OnAck(client.engine(), item(client, id), first - 1);
    EXPECT_EQ(wire, (Texts{"0:DataAck2", "0:Data"}));
}

TEST_F(UdcpTransfer, ClockThatIsSetBackChangesNothing) {
    lose = [](const std::string &name) { return name == "1:DataAck"; };
    client.send(id, "once");
    client.step_clock(-3600000);
    simulator.run_for(50 * ms);
    EXPECT_EQ(count("0:Data"), 1);
    simulator.run_for(50 * ms);
    EXPECT_EQ(count("0:Data"), 2);
}

TEST_F(UdcpTransfer, MessagesThatWaitedTravelInGroups) {
    Texts sent;
    for (int i = 0; i < 800; ++i) { // 768 fill the window
        sent.push_back(i % 3 ? "small " + std::to_string(i) : text(700));
        client.send(id, sent.back(), i % 2);
        if (i % 2) sent.back() += "!";
    }
    EXPECT_EQ(count("0:Data"), 768);
    take_wire();
    simulator.run_for(300 * ms);
    EXPECT_EQ(at_server.take(), sent);
    ASSERT_GT(count("0:Group"), 5);
    for (std::size_t i = 0; i < wire.size(); ++i) {
        if (wire[i] != "0:Group") continue;
        EXPECT_EQ(packets[i].code(), 15u);
        EXPECT_LE(datagrams[i].size(), 1472u);
        EXPECT_GT(datagrams[i].size(), 32u);
    }
    EXPECT_EQ(count("0:Data"), 0);
}

TEST_F(UdcpTransfer, TellsOfFullQueuesOnceAndRefusesWhatIsNotForced) {
    simulator.each_link([](Link &link) { link.cut = true; });
    for (int i = 0; i < 768 + 1024; ++i) ASSERT_EQ(client.send(id, "x"), 1);
    EXPECT_TRUE(at_client.seen.empty());
    ASSERT_EQ(client.send(id, "x"), 1);
    EXPECT_EQ(at_client.take(), Texts{"busy"});
    for (int i = 0; i < 1023; ++i) ASSERT_EQ(client.send(id, "x"), 1);
    EXPECT_TRUE(at_client.seen.empty());
    EXPECT_EQ(client.send(id, "too much"), 0);
    EXPECT_EQ(at_client.take(), Texts{"refused too much"});
    EXPECT_EQ(client.send(id, "forced", true), 1);
    simulator.each_link([](Link &link) { link.cut = false; });
    simulator.run_for(8 * second);
    EXPECT_EQ(at_client.take(), Texts{"idle"});
    EXPECT_EQ(at_server.seen.size(), 768u + 2048 + 1);
}

TEST_F(UdcpTransfer, MessagesSentTooEarlyWaitForTheConnection) {
    Recorder late;
    Host &other = simulator.add_host(late);
    const Tq4_id early = other.connect(server);
    Texts sent;
    for (int i = 0; i < 3; ++i) other.send(early, sent.emplace_back("early " + std::to_string(i)));
    simulator.run_for(100 * ms);
    EXPECT_EQ(count("2:Group"), 1);
    sent.insert(sent.begin(), "ok");
    EXPECT_EQ(at_server.take(), sent);
    other.disconnect(early);
    EXPECT_EQ(other.send(early, "late"), 0);
    EXPECT_EQ(late.take(), (Texts{"ok", "disconnect", "refused late"}));
}

// A receiver's ring that is filled to its last slot, and lacks its head.
TEST_F(UdcpTransfer, RingThatIsFullButForItsHeadIsDeliveredWhole) {
    client.send(id, "head");
    const std::string head = datagrams.back();
    simulator.each_link([](Link &link) { link.cut = true; });
    at_server.take();
    Tq4_udcp_item &there = item(server, server_id());
    simulator.run_for(20 * ms);
    const uint32_t next = (*there.m_recv)->GetNok(there.m_recv.get());
    const auto numbered = [&](uint32_t seq) {
        std::string datagram = head;
        std::memcpy(datagram.data() + datagram.size() - 20, &seq, 4);
        return datagram;
    };
    at_server.take();
    for (uint32_t i = 1; i < 1024; ++i) server.receive(client.key(), numbered(next + i));
    EXPECT_TRUE(at_server.seen.empty());
    EXPECT_EQ(server.receive(client.key(), numbered(next + 1024)), 1) << "beyond the window: ignored";
    server.receive(client.key(), numbered(next));
    EXPECT_EQ(at_server.take().size(), 1024u);
    EXPECT_EQ((*there.m_recv)->GetNok(there.m_recv.get()), next + 1024);
}

TEST_F(UdcpTransfer, TimeBaseIsRenewedAfterAnHour) {
    simulator.run_for(59 * minute);
    client.send(id, "before");
    EXPECT_EQ(count("0:Timestamp"), 0);
    simulator.run_for(2 * minute);
    take_wire();
    server.keep_log = true;
    client.send(id, "after");
    EXPECT_EQ(wire, (Texts{"0:Timestamp", "0:Data"}));
    EXPECT_EQ(packets[0].delta, 0u);
    EXPECT_EQ(packets[1].delta, 0u);
    EXPECT_EQ(packets[0].time, 1700000000000u + simulator.now() / ms);
    EXPECT_EQ(packets[1].seq, packets[0].seq + 1);
    const Tq4_id there = server_id();
    simulator.run_for(100 * ms);
    EXPECT_EQ(at_server.take(), (Texts{"before", "after"}));
    EXPECT_EQ(item(server, there).m_timestamp_r.peer, item(client, id).m_timestamp);
    ASSERT_FALSE(server.logged.empty());
    char line[128];
    std::snprintf(line, sizeof line, "[%08x:%08x] 收到时间同步消息，通信延迟约 0 ms", there.h, there.l);
    EXPECT_EQ(server.logged[0], line);
}

TEST_F(UdcpTransfer, DelayIsWhatTheWayHasCostBesidesTheFirst) {
    struct : Recorder {
        unsigned delay = 0;
        void on_data(Host &, Tq4_udcp_info &, Tq4_udcp_data &data) override { delay = data.delay; }
    } measuring;
    Host &other = simulator.add_host(measuring);
    simulator.each_link([](Link &link) { link.delay = 5 * ms; });
    client.connect(other);
    simulator.run_for(100 * ms);
    simulator.link(client, other).delay = 35 * ms;
    const Tq4_id second_id = at_client.ids.back();
    client.send(second_id, "slow");
    simulator.run_for(100 * ms);
    EXPECT_EQ(measuring.delay, 30u);
}

TEST_F(UdcpTransfer, DestinationChangesWhenTheApplicationSaysSo) {
    server.move("10.9.9.9", 9);
    client.engine().ChangeDestAddr(id, "somewhere", 9, Host::sockaddr_of(server.key()).get());
    client.send(id, "there you are");
    simulator.run_for(50 * ms);
    EXPECT_EQ(at_server.take(), Texts{"there you are"});
}

} // namespace
