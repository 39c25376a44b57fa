// Messages from one side to the other over a connection that stands: how they are cut, grouped, acknowledged and sent
// again, to the byte in both orders; and what the application is told of queues.
#include <set>

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

TEST_F(UdcpTransfer, EverySizeArrivesAsItIs) {
    Texts sent;
    for (std::size_t size : {0, 1, 2, 1440, 1441, 1442, 1443, 1444, 2883, 2884, 2885, 14420, 100000}) {
        std::string message(size, '\0');
        for (char &c : message) c = static_cast<char>(simulator.random());
        sent.push_back(message);
        client.send(id, message);
    }
    simulator.run_for(1 * second);
    EXPECT_EQ(at_server.take(), sent);
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

TEST_F(UdcpTransfer, AcknowledgesInWordsThatPeersRead) {
    const uint32_t first = item(client, id).m_first_seq;
    client.send(id, "one");
    simulator.run_for(50 * ms);
    for (const Tq4_upp_Packet &packet : packets) {
        if (packet.command() == 8) {
            EXPECT_EQ(packet.seq, first);
            EXPECT_EQ(packet.ack, first);
            EXPECT_FALSE(packet.acknowledges());
        }
        if (packet.command() == 10) {
            EXPECT_EQ(packet.seq, first);
            EXPECT_EQ(packet.ack, 0u) << "deliberate";
        }
    }
    EXPECT_EQ(item(server, server_id()).m_expect_seq, 0u);
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

TEST_F(UdcpTransfer, MuchIsAcknowledgedBeforeTheNextTick) {
    for (int i = 0; i < 127; ++i) client.send(id, "m");
    simulator.run_for(6 * ms);
    EXPECT_EQ(count("1:DataAck"), 0);
    client.send(id, "m");
    simulator.run_for(6 * ms);
    EXPECT_EQ(count("1:DataAck"), 1);
}

TEST_F(UdcpTransfer, ListOfMissingPacketsHasAnEnd) {
    int number = 0;
    lose = [&](const std::string &name) { return name == "0:Data" && number++ < 300; };
    for (int i = 0; i < 310; ++i) client.send(id, "m");
    simulator.run_for(40 * ms);
    const auto nok = std::find(wire.begin(), wire.end(), "1:DataNok") - wire.begin();
    ASSERT_LT(static_cast<std::size_t>(nok), wire.size());
    EXPECT_EQ(datagrams[static_cast<std::size_t>(nok)].size(), 128u * 4 + 30);
    simulator.run_for(3 * second);
    EXPECT_EQ(at_server.seen.size(), 310u);
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

TEST_F(UdcpTransfer, MissingPacketsAreAskedForAndSentAtOnce) {
    int number = 0;
    lose = [&](const std::string &name) {
        if (name != "0:Data") return false;
        ++number;
        return number == 2 || number == 3 || number == 5;
    };
    Texts sent;
    for (int i = 0; i < 6; ++i) {
        sent.push_back("m" + std::to_string(i));
        client.send(id, sent.back());
    }
    const uint32_t first = packets[0].seq;
    std::string list;
    simulator.run_for(45 * ms); // before any is late
    EXPECT_EQ(at_server.take(), sent);
    for (std::size_t i = 0; i < wire.size(); ++i)
        if (wire[i] == "1:DataNok") {
            list = datagrams[i].substr(0, datagrams[i].size() - 30);
            EXPECT_EQ(packets[i].seq, first + 1);
        }
    ASSERT_EQ(list.size(), 12u);
    uint32_t asked[3];
    std::memcpy(asked, list.data(), 12);
    EXPECT_EQ(asked[0], first + 1);
    EXPECT_EQ(asked[1], first + 2);
    EXPECT_EQ(asked[2], first + 4);
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

TEST_F(UdcpTransfer, LostGroupIsSentAgainPacketByPacket) {
    for (int i = 0; i < 768; ++i) client.send(id, "w");
    for (int i = 0; i < 5; ++i) client.send(id, "g" + std::to_string(i));
    take_wire();
    int groups = 0;
    lose = [&](const std::string &name) { return name == "0:Group" && ++groups; };
    simulator.run_for(500 * ms);
    EXPECT_EQ(groups, 1);
    EXPECT_EQ(count("0:Data"), 5);
    EXPECT_EQ(at_server.seen.back(), "g4");
    EXPECT_EQ(at_server.seen.size(), 773u);
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

// The 768 of a window fit the receiver's 1024; with the head missing they wait there, all at once deliverable then.
TEST_F(UdcpTransfer, WindowThatLacksOnlyItsHeadIsDeliveredWhole) {
    int number = 0;
    lose = [&](const std::string &name) { return name == "0:Data" && number++ == 0; };
    for (int i = 0; i < 768; ++i) client.send(id, std::to_string(i));
    simulator.run_for(200 * ms);
    const Texts seen = at_server.take();
    ASSERT_EQ(seen.size(), 768u);
    for (int i = 0; i < 768; ++i) ASSERT_EQ(seen[static_cast<std::size_t>(i)], std::to_string(i));
}

// The same with the receiver's own ring filled to its last slot.
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

TEST_F(UdcpTransfer, NumbersWrap) {
    Recorder far;
    Host &other = simulator.add_host(far);
    const Tq4_id wrapping = other.connect(server);
    other.engine().Find(wrapping)->m_first_seq = 0xfffffff0;
    other.engine().Drive(*other.engine().Find(wrapping), Tq4_udcp_msg_TIMER_syn, 1); // told again, with that number
    const std::string told = datagrams.back();
    other.engine().EndExit();
    // A first number is below 2^31 by itself; a connection that has carried much has any.
    Tq4_upp_Packet sync;
    Tq4_upp_Decode({reinterpret_cast<const uint8_t *>(told.data()), told.size()}, 2, sync);
    EXPECT_EQ(sync.seq, 0xfffffff0u);

    Tq4_udcp_item &here = item(client, id), &there = item(server, server_id());
    (*here.m_send)->SetFirstSeq(here.m_send.get(), 0xfffffff0);
    (*there.m_recv)->SetFirstSeq(there.m_recv.get(), 0xfffffff0);
    int number = 0;
    lose = [&](const std::string &name) { return name == "0:Data" && ++number % 3 == 0 && number < 40; };
    for (int i = 0; i < 40; ++i) client.send(id, std::to_string(i));
    simulator.run_for(1 * second);
    Texts seen = at_server.take();
    std::erase(seen, "ok");
    ASSERT_EQ(seen.size(), 40u);
    for (int i = 0; i < 40; ++i) EXPECT_EQ(seen[static_cast<std::size_t>(i)], std::to_string(i));
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
    std::snprintf(line, sizeof line, "[%08x:%08x] 收到时间同步消息，通信延迟约 0 ms\n", there.h, there.l);
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

TEST_F(UdcpTransfer, PeerThatMovesKeepsItsConnection) {
    client.send(id, "from home");
    simulator.run_for(50 * ms);
    client.move("192.168.7.7", 999);
    client.send(id, "from abroad");
    simulator.run_for(20 * ms);
    const Tq4_udcp_info &info = item(server, server_id()).m_cbdata;
    EXPECT_STREQ(info.addr, "192.168.7.7");
    EXPECT_EQ(info.port, 999);
    server.send(server_id(), "welcome");
    simulator.run_for(50 * ms);
    EXPECT_EQ(at_server.take(), (Texts{"from home", "from abroad"}));
    EXPECT_EQ(at_client.take(), Texts{"welcome"});
}

TEST_F(UdcpTransfer, DestinationChangesWhenTheApplicationSaysSo) {
    server.move("10.9.9.9", 9);
    client.engine().ChangeDestAddr(id, "somewhere", 9, Host::sockaddr_of(server.key()).get());
    client.send(id, "there you are");
    simulator.run_for(50 * ms);
    EXPECT_EQ(at_server.take(), Texts{"there you are"});
}

// Two hosts of either order, in every combination, and everything that travels between them.
TEST(UdcpOrders, HostsOfEitherOrderUnderstandEachOther) {
    for (const unsigned orders : {0x11u, 0x12u, 0x21u, 0x22u}) {
        Recorder at_client, at_server;
        Simulator simulator(5);
        const uint8_t mine = orders >> 4, theirs = orders & 15;
        Host &client = simulator.add_host(at_client, {.order = mine});
        Host &server = simulator.add_host(at_server, {.order = theirs});
        std::set<std::string> commands;
        int number = 0;
        simulator.lose = [&](unsigned long, const Host &from, Tq4_bytes bytes) {
            Tq4_upp_Packet packet;
            EXPECT_GE(Tq4_upp_Decode(bytes, 0, packet), 0);
            EXPECT_EQ(packet.order, &from == &client ? mine : theirs);
            commands.insert(name_of(bytes));
            std::vector<uint8_t> again(Tq4_upp_header_size(packet.code()));
            Tq4_upp_Encode(packet, again.data());
            EXPECT_EQ(std::memcmp(again.data(), bytes.data + packet.payload.size, again.size()), 0);
            return packet.command() >= 12 && number++ % 7 == 3;
        };
        const Tq4_id id = client.connect(server);
        Texts sent{"ok"};
        for (int i = 0; i < 900; ++i) client.send(id, sent.emplace_back("message " + std::to_string(i)));
        sent.emplace_back(5000, 'f');
        client.send(id, sent.back());
        simulator.run_for(5 * second);
        client.post(id, "p");
        sent.push_back("post p");
        simulator.run_for(61 * minute);
        client.send(id, sent.emplace_back("late"));
        simulator.run_for(2 * second);
        EXPECT_EQ(at_server.take(), sent);
        const Tq4_udcp_item *item = client.engine().Find(id);
        EXPECT_EQ(item->m_cbdata.byte_order, mine == theirs ? 0 : theirs);
        client.disconnect(id);
        simulator.run_for(1 * second);
        EXPECT_EQ(commands.size(), 16u) << "all but the one that is never sent";
    }
}

} // namespace
