// How a connection opens, closes, is found dead and begun anew: what travels, what the application is told, and that no
// datagram is one that may not be lost.
#include <set>

#include "udcp/recorder.hpp"

namespace {

using UdcpHandshake = Pair;

TEST_F(UdcpHandshake, OpensWithThreePacketsAndIsSilentThen) {
    id = client.connect(server);
    simulator.run_for(1 * second);
    EXPECT_EQ(wire, (Texts{"0:Sync", "1:SynAck", "0:SynAck2"}));
    EXPECT_EQ(at_client.take(), Texts{"ok"});
    EXPECT_EQ(at_server.take(), Texts{"ok"});
    EXPECT_EQ((*server.engine().m_addresses)->Count(server.engine().m_addresses.get()), 0) << "only who is half open";
    take_wire();
    simulator.run_for(40 * second);
    EXPECT_EQ(count("0:Active") + count("1:Active"), static_cast<long>(wire.size()))
        << "a sign of life and nothing else";
    EXPECT_NEAR(static_cast<double>(count("0:Active")), 10, 1) << "each second look, of 2 s";
    EXPECT_TRUE(at_client.seen.empty());
}

TEST_F(UdcpHandshake, PacketsCarryWhatTheOtherSideNeeds) {
    id = client.connect(server);
    simulator.run_for(1 * second);
    const Tq4_upp_Packet &sync = packets[0], &answer = packets[1], &confirmation = packets[2];
    EXPECT_TRUE(Tq4_id_Equal(&sync.receiver, &id));
    EXPECT_EQ(sync.repeat, 0);
    EXPECT_EQ(sync.time, 1700000000000u);
    EXPECT_TRUE(Tq4_id_Equal(&answer.receiver, &id));
    const Tq4_id theirs = server_id();
    EXPECT_TRUE(Tq4_id_Equal(&answer.sender, &theirs));
    EXPECT_EQ(answer.auth_l, sync.auth_h);
    EXPECT_TRUE(Tq4_id_Equal(&confirmation.receiver, &theirs));
    EXPECT_EQ(confirmation.auth_h, sync.auth_h);
    EXPECT_EQ(confirmation.auth_l, answer.auth_h);
    EXPECT_EQ(confirmation.delta, 10u);
    EXPECT_EQ(item(server, theirs).m_expect_seq, sync.seq);
}

TEST_F(UdcpHandshake, ClosesWithThreePacketsFromEitherSide) {
    for (const bool by_client : {true, false}) {
        connect();
        Host &closing = by_client ? client : server;
        closing.disconnect(by_client ? id : server_id());
        simulator.run_for(2 * second);
        const std::string a = by_client ? "0:" : "1:", b = by_client ? "1:" : "0:";
        EXPECT_EQ(take_wire(), (Texts{a + "Rst", b + "RstAck", a + "RstAck2", b + "RstAck2"}));
        EXPECT_EQ(at_client.take(), Texts{"disconnect"});
        EXPECT_EQ(at_server.take(), Texts{"disconnect"});
        EXPECT_EQ(client.engine().connections() + server.engine().connections(), 0u);
    }
}

TEST_F(UdcpHandshake, BothMayCloseAtOnceAndNobodyComesBack) {
    at_client.again = 0;
    connect();
    client.disconnect(id);
    server.disconnect(server_id());
    simulator.run_for(3 * second);
    EXPECT_EQ(at_client.take(), Texts{"disconnect"});
    EXPECT_EQ(at_server.take(), Texts{"disconnect"});
    EXPECT_EQ(client.engine().connections() + server.engine().connections(), 0u);
}

TEST_F(UdcpHandshake, IsTriedSixteenTimesAndThenAgainAsTheApplicationSays) {
    at_client.again = 50; // raised to 200
    lose = [](const std::string &) { return true; };
    id = client.connect(server);
    simulator.run_for(30 * second);
    ASSERT_GE(wire.size(), 17u);
    for (unsigned i = 0; i < 16; ++i) EXPECT_EQ(packets[i].repeat, i);
    EXPECT_EQ(packets[1].auth_h, packets[0].auth_h);
    EXPECT_EQ(packets[16].repeat, 0);
    EXPECT_NE(packets[16].auth_h, packets[0].auth_h) << "another attempt, another code";
    EXPECT_EQ(at_client.take(), Texts{"failed"});
    at_client.again = -1;
    simulator.run_for(30 * second);
    EXPECT_EQ(at_client.take(), Texts{"failed"});
    EXPECT_TRUE(gone(client, id));
    EXPECT_EQ(client.stopped_in_vain, 0u);
}

// From 200 ms: 200, 400, 800, and 1600 from then on; from 500 ms: 500, 500, 1000, 1500, ...
TEST_F(UdcpHandshake, BacksOffAsItsTuningSays) {
    const auto delta = [](unsigned long n, unsigned scheme) {
        const Tq4_udcp_timer_value &timer = *Tq4_udcp_scheme_of(scheme).timer;
        return timer.syn_ms(nullptr, n, timer._syn_ms, nullptr);
    };
    for (unsigned scheme : {0u, 1u}) {
        EXPECT_EQ(delta(1, scheme), 400u);
        EXPECT_EQ(delta(2, scheme), 800u);
        EXPECT_EQ(delta(3, scheme), 1600u);
        EXPECT_EQ(delta(4, scheme), 1600u);
        EXPECT_EQ(delta(15, scheme), 1600u);
    }
    for (unsigned long n = 1; n <= 5; ++n) EXPECT_EQ(delta(n, 2), 500 * n);
    EXPECT_EQ(&Tq4_udcp_scheme_of(3), &Tq4_udcp_scheme_of(2));
    EXPECT_EQ(&Tq4_udcp_scheme_of(255), &Tq4_udcp_scheme_of(2));

    std::vector<Microseconds> sent;
    lose = [&](const std::string &) { return sent.push_back(simulator.now()), true; };
    client.connect(server);
    simulator.run_for(10 * second);
    const std::vector<double> expected{200, 400, 800, 1600, 1600};
    for (std::size_t i = 0; i < expected.size(); ++i)
        EXPECT_NEAR(static_cast<double>(sent[i + 1] - sent[i]) / 1000, expected[i], 10) << i;
}

TEST_F(UdcpHandshake, HalfOpenConnectionIsGivenUpAfterFifteenTries) {
    lose = [](const std::string &name) { return name != "0:Sync"; };
    const Tq4_id first = client.connect(server);
    simulator.run_for(100 * ms);
    client.engine().EndExit(); // nobody asks again
    EXPECT_TRUE(gone(client, first));
    simulator.run_for(30 * second);
    EXPECT_EQ(count("1:SynAck"), 15) << "one for the Sync and 14 more";
    EXPECT_EQ(server.engine().connections(), 0u);
    EXPECT_TRUE(at_server.seen.empty());
}

TEST_F(UdcpHandshake, SilentPeerIsLostAfterFivePeriods) {
    connect();
    const Microseconds begin = simulator.now();
    simulator.each_link([](Link &link) { link.cut = true; });
    while (at_server.seen.empty() && simulator.now() < begin + minute) simulator.run_for(10 * ms);
    EXPECT_EQ(at_server.take(), Texts{"disconnect"});
    EXPECT_NEAR(static_cast<double>(simulator.now() - begin) / second, 10, 2.2);
    simulator.run_for(2 * second);
    EXPECT_EQ(at_client.take(), Texts{"disconnect"});
    EXPECT_EQ(client.engine().connections() + server.engine().connections(), 0u);
}

TEST_F(UdcpHandshake, LostMasterConnectsAnewUnderItsOwnId) {
    at_client.again = 1000;
    connect();
    const Tq4_id before = server_id();
    const uint32_t code = item(client, id).m_auth.h;
    simulator.each_link([](Link &link) { link.cut = true; });
    simulator.run_for(20 * second);
    EXPECT_EQ(at_client.take(), Texts{"disconnect"});
    simulator.each_link([](Link &link) { link.cut = false; });
    simulator.run_for(20 * second);
    EXPECT_EQ(at_client.take(), Texts{"ok"});
    const Tq4_id after = server_id();
    EXPECT_FALSE(Tq4_id_Equal(&before, &after));
    EXPECT_FALSE(gone(client, id));
    EXPECT_NE(item(client, id).m_auth.h, code);
    client.send(id, "hello again");
    simulator.run_for(1 * second);
    EXPECT_EQ(at_server.seen.back(), "hello again");
}

// A Rst that took long does not end the attempt that has followed.
TEST_F(UdcpHandshake, LateRstDoesNotEndTheNextAttempt) {
    at_client.again = 500;
    connect();
    server.disconnect(server_id());
    std::string rst;
    simulator.run_for(50 * ms);
    ASSERT_EQ(wire.front(), "1:Rst");
    rst = datagrams.front();
    EXPECT_TRUE(client.engine().In(item(client, id), "reconnect?"));
    client.receive(server.key(), rst);
    simulator.run_for(5 * second);
    EXPECT_EQ(at_client.take(), (Texts{"disconnect", "ok"}));
}

TEST_F(UdcpHandshake, LateSynAckIsNotForTheNextAttempt) {
    at_client.again = 500;
    id = client.connect(server);
    simulator.run_for(100 * ms);
    const std::string answer = datagrams[1];
    ASSERT_EQ(wire[1], "1:SynAck");
    server.disconnect(server_id());
    simulator.run_for(100 * ms);
    ASSERT_TRUE(client.engine().In(item(client, id), "reconnect?"));
    client.receive(server.key(), answer);
    simulator.run_for(5 * second);
    EXPECT_EQ(at_client.take(), (Texts{"ok", "disconnect", "ok"}));
}

TEST_F(UdcpHandshake, RepeatedSynAckIsAnsweredAndNothingElse) {
    id = client.connect(server);
    simulator.run_for(100 * ms);
    const std::string answer = datagrams[1];
    take_wire();
    client.receive(server.key(), answer);
    simulator.run_for(100 * ms);
    EXPECT_EQ(wire, Texts{"0:SynAck2"});
    EXPECT_EQ(at_client.take(), Texts{"ok"});
}

TEST_F(UdcpHandshake, RepeatedSyncIsForTheConnectionItBegan) {
    int lost = 0;
    lose = [&](const std::string &name) { return name == "1:SynAck" && lost++ < 3; };
    id = client.connect(server);
    simulator.run_for(300 * ms);
    EXPECT_GE(count("0:Sync"), 2);
    EXPECT_EQ(server.engine().connections(), 1u);
    simulator.run_for(5 * second);
    EXPECT_EQ(at_client.take(), Texts{"ok"});
    EXPECT_EQ(at_server.take(), Texts{"ok"});
}

TEST_F(UdcpHandshake, FirstSyncThatComesTwiceMakesOneConnectionInTheEnd) {
    Link &way = simulator.link(client, server);
    way.duplicate = 1;
    id = client.connect(server);
    simulator.run_for(100 * ms);
    way.duplicate = 0;
    EXPECT_EQ(at_client.take(), Texts{"ok"});
    EXPECT_EQ(at_server.take(), Texts{"ok"});
    EXPECT_EQ(server.engine().connections(), 2u) << "the other one waits for its confirmation";
    std::string repeated = datagrams[0];
    repeated[9] = 1;
    server.receive(client.key(), repeated);
    EXPECT_EQ(server.engine().connections(), 2u) << "and is found, though the first one has left the table";
    client.send(id, "to the right one");
    simulator.run_for(30 * second);
    EXPECT_EQ(at_server.take(), Texts{"to the right one"});
    EXPECT_EQ(server.engine().connections(), 1u);
    EXPECT_EQ((*server.engine().m_addresses)->Count(server.engine().m_addresses.get()), 0);
}

TEST_F(UdcpHandshake, TimeOfALaterSynAckIsCountedFromItsBase) {
    int lost = 0;
    lose = [&](const std::string &name) { return name == "1:SynAck" && lost++ == 0; };
    id = client.connect(server);
    simulator.run_for(1 * second);
    const auto answer = std::find(wire.begin() + 2, wire.end(), "1:SynAck") - wire.begin();
    const Tq4_upp_Packet &packet = packets[static_cast<std::size_t>(answer)];
    EXPECT_GE(packet.delta, 190u);
    EXPECT_EQ(item(client, id).m_timestamp_r.peer, packet.time + packet.delta);
}

// What waited for a connection that is lost is lost with it; what comes after the application knows is for the next.
TEST_F(UdcpHandshake, NextConnectionBeginsWithNothingOfTheOneBefore) {
    at_client.again = 1000;
    connect();
    server.send(server_id(), "counted");
    simulator.run_for(6 * ms);
    simulator.each_link([](Link &link) { link.cut = true; });
    for (int i = 0; i < 1000; ++i) client.send(id, "lost");
    client.send(id, std::string(5000, 'f'));
    while (!client.engine().In(item(client, id), "reconnect?")) simulator.run_for(10 * ms);
    const Tq4_udcp_item &waiting = item(client, id);
    EXPECT_EQ(waiting.m_rid.l, 0u);
    EXPECT_TRUE(!waiting.m_send && !waiting.m_recv && waiting.m_sendq.empty() && !waiting.m_fragment);
    EXPECT_EQ(waiting.m_unack_count + waiting.m_unnok_count + waiting.m_repeat, 0);
    EXPECT_TRUE(waiting.m_confirmed);
    client.send(id, "for the next one");
    simulator.each_link([](Link &link) { link.cut = false; });
    at_server.take();
    simulator.run_for(15 * second);
    Texts seen = at_server.take();
    std::erase(seen, "disconnect");
    EXPECT_EQ(seen, (Texts{"ok", "for the next one"}));
}

TEST_F(UdcpHandshake, MessagesWaitThroughAttemptsThatFail) {
    at_client.again = 200;
    simulator.each_link([](Link &link) { link.cut = true; });
    id = client.connect(server);
    client.send(id, "patient");
    simulator.run_for(30 * second);
    ASSERT_EQ(at_client.take(), Texts{"failed"});
    simulator.each_link([](Link &link) { link.cut = false; });
    simulator.run_for(30 * second);
    EXPECT_EQ(at_server.take(), (Texts{"ok", "patient"}));
}

// A peer may have moved in the meantime; the next attempt goes where the application said.
TEST_F(UdcpHandshake, NextAttemptGoesWhereTheApplicationSaid) {
    at_client.again = 300;
    connect();
    const std::string home = server.address();
    server.move("192.168.1.1", 5);
    server.send(server_id(), "from abroad");
    simulator.run_for(50 * ms);
    ASSERT_EQ(item(client, id).m_cbdata.port, 5);
    server.move(home, 4000);
    simulator.each_link([](Link &link) { link.cut = true; });
    simulator.run_for(14 * second);
    EXPECT_EQ(at_client.take(), (Texts{"from abroad", "disconnect"}));
    simulator.each_link([](Link &link) { link.cut = false; });
    simulator.run_for(10 * second);
    EXPECT_EQ(at_client.take(), Texts{"ok"});
}

TEST_F(UdcpHandshake, ConnectionTakesTheHigherTuningOfTheTwo) {
    Recorder slow_one;
    Host &slow = simulator.add_host(slow_one, {.scheme = 2});
    const Tq4_id to_slow = client.connect(slow), from_slow = slow.connect(client);
    simulator.run_for(1 * second);
    EXPECT_EQ(item(client, to_slow).m_scheme->index, 2);
    EXPECT_EQ(item(slow, slow_one.ids[0]).m_scheme->index, 2);
    EXPECT_EQ(item(slow, from_slow).m_scheme->index, 2);
    EXPECT_EQ(item(client, at_client.ids[1]).m_scheme->index, 2);
}

TEST_F(UdcpHandshake, WhoDoesNotListenIsNobodysServer) {
    Recorder nothing;
    Host &deaf = simulator.add_host(nothing, {.listens = false});
    deaf.keep_log = true;
    client.connect(deaf);
    simulator.run_for(100 * ms);
    EXPECT_EQ(wire, Texts{"0:Sync"});
    ASSERT_EQ(deaf.logged.size(), 2u);
    EXPECT_EQ(deaf.logged[1], "收到[10.0.0.1:4000]同步请求,但本端拒绝作为服务器\n");
}

TEST_F(UdcpHandshake, StopClosesAllAndWaitsForThem) {
    connect();
    client.connect(server);
    simulator.run_for(100 * ms);
    client.engine().BeginExit();
    EXPECT_EQ(client.engine().m_exit_flag, 1);
    Tq4_id none{};
    EXPECT_EQ(client.engine().Connect("x", 1, Host::sockaddr_of(server.key()).get(), nullptr, nullptr, &none), 0);
    simulator.run_for(1 * second);
    EXPECT_EQ(client.engine().m_exit_flag, 2);
    EXPECT_EQ(client.engine().connections() + server.engine().connections(), 0u);
}

// Whatever one or two datagrams of a whole life are lost, the application sees the same.

void live_and_die(const std::set<unsigned long> &lost, unsigned long &datagrams) {
    Recorder at_client, at_server;
    Simulator simulator(7);
    Host &client = simulator.add_host(at_client), &server = simulator.add_host(at_server);
    simulator.each_link([](Link &link) { link.delay = 5 * ms; });
    simulator.lose = [&](unsigned long number, const Host &, Tq4_bytes) { return lost.contains(number); };
    const Tq4_id id = client.connect(server);
    client.send(id, "question");
    simulator.run_for(5 * second);
    ASSERT_EQ(at_server.ids.size(), 1u);
    server.send(at_server.ids[0], "answer", true);
    simulator.run_for(2 * second);
    client.disconnect(id);
    simulator.run_for(20 * second); // a side that does not hear of the end finds out by itself
    EXPECT_EQ(at_client.take(), (Texts{"ok", "answer!", "disconnect"}));
    EXPECT_EQ(at_server.take(), (Texts{"ok", "question", "disconnect"}));
    EXPECT_EQ(client.engine().connections() + server.engine().connections(), 0u);
    EXPECT_EQ(client.stopped_in_vain + server.stopped_in_vain, 0u);
    datagrams = simulator.datagrams();
}

TEST(UdcpHandshakeLosses, EverySingleAndDoubleLossLeavesNoTrace) {
    unsigned long undisturbed, ignored;
    live_and_die({}, undisturbed);
    ASSERT_GT(undisturbed, 10u);
    for (unsigned long a = 0; a < undisturbed + 4; ++a)
        for (unsigned long b = a; b < undisturbed + 4 && !testing::Test::HasFailure(); ++b) {
            live_and_die({a, b}, ignored);
            if (testing::Test::HasFailure()) ADD_FAILURE() << "with " << a << " and " << b << " lost";
        }
}

} // namespace
