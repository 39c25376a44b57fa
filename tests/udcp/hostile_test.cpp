// What strangers and hostile peers can do: be refused, counted and told of in the log, as far as they may fill that;
// and not disturb what stands.
#include "udcp/recorder.hpp"

namespace {

struct UdcpHostile : Pair {
    const std::string stranger = "172.16.0.1:1";
    UdcpHostile() { connect(); }

    static std::string datagram(Tq4_upp_Packet packet, const std::string &payload = {}) {
        std::string bytes = payload + std::string(Tq4_upp_header_size(packet.code()), '\0');
        Tq4_upp_Encode(packet, reinterpret_cast<uint8_t *>(bytes.data()) + payload.size());
        return bytes;
    }
    Tq4_upp_Packet header(unsigned code) {
        Tq4_upp_Packet packet;
        packet.ver = 1;
        packet.cmd = static_cast<uint8_t>(Tq4_upp_host_order() << 6 | code);
        return packet;
    }
    // A header of the client's, as the server takes it.
    Tq4_upp_Packet from_client(unsigned code, uint32_t seq = 0, uint32_t ack = 0) {
        const Tq4_udcp_item &here = item(client, id);
        Tq4_upp_Packet packet = header(code);
        packet.receiver = here.m_rid;
        packet.seq = seq;
        packet.ack = ack;
        packet.auth_h = here.m_auth.h;
        packet.auth_l = here.m_auth.l;
        return packet;
    }
    int to_server(const std::string &bytes) { return server.receive(client.key(), bytes); }
    void expect_undisturbed() {
        at_client.take();
        at_server.take();
        const Tq4_id there = item(client, id).m_rid;
        client.send(id, "still");
        server.send(there, "here");
        simulator.run_for(300 * ms);
        EXPECT_EQ(at_server.take(), Texts{"still"});
        EXPECT_EQ(at_client.take(), Texts{"here"});
    }
};

// Every length with every command and order, of bytes that say nothing, and with the client's id but another code.
TEST_F(UdcpHostile, WhatStrangersSendIsNotAnsweredAndDisturbsNobody) {
    const Tq4_id there = item(client, id).m_rid;
    server.keep_log = true;
    for (unsigned cmd = 0; cmd < 256; ++cmd)
        for (std::size_t size = 30; size < 60; ++size)
            for (const bool with_id : {false, true}) {
                std::string bytes(size, '\x55');
                char *base = bytes.data() + size - 30;
                base[1] = static_cast<char>(cmd);
                if (with_id) std::memcpy(base + 2, &there.h, 4), std::memcpy(base + 6, &there.l, 4);
                if (Tq4_upp_fold(cmd & 31) == 1) continue; // a Sync begins something: below
                EXPECT_EQ(server.receive(stranger, bytes), 0) << cmd << " of " << size;
            }
    EXPECT_TRUE(wire.empty());
    EXPECT_EQ(server.engine().connections(), 1u);
    EXPECT_GT(server.engine().m_dropped, 10000u);
    EXPECT_LE(server.logged.size(), 100u) << "no more lines in a second";
    simulator.run_for(1100 * ms);
    server.logged.clear();
    server.receive(stranger, std::string(30, '\0'));
    ASSERT_EQ(server.logged.size(), 2u);
    EXPECT_EQ(server.logged[0].substr(0, 15), "udcp 省略了 ");
    EXPECT_EQ(server.logged[1], "收到[172.16.0.1:1] 错误包,len=30\n");
    EXPECT_STREQ(item(server, there).m_cbdata.addr, client.address().c_str());
    expect_undisturbed();
}

TEST_F(UdcpHostile, LinesTellWhatWasWrong) {
    server.keep_log = true;
    const Tq4_id there = item(client, id).m_rid;
    std::string sync(40, '\0');
    sync[11] = '\x81';
    server.receive(stranger, sync.substr(1));
    EXPECT_EQ(server.logged.back(), "收到[172.16.0.1:1] 错误包,len=39\n");
    Tq4_upp_Packet unknown = header(12);
    unknown.receiver = {1, 0x22};
    server.receive(stranger, datagram(unknown));
    EXPECT_EQ(server.logged.back(), "收到[172.16.0.1:1] 包,cmd=8c,无法找到[00000001:00000022]对应的连接对象\n");
    Tq4_upp_Packet wrong = from_client(28);
    ++wrong.auth_l;
    server.receive(stranger, datagram(wrong));
    char line[128];
    std::snprintf(line, sizeof line, "[%08x:%08x] 收到[172.16.0.1:1] 包,cmd=9c,验证码不正确\n", there.h, there.l);
    EXPECT_EQ(server.logged.back(), line);
}

// Codes 17 and 18 are a Sync and a SynAck with a mark, and as long as those.
TEST_F(UdcpHostile, MarkedCommandsAreTheCommandsTheyMark) {
    for (const auto &[code, size] : {std::pair{17u, 40u}, {18u, 47u}}) {
        std::string bytes(size, '\0');
        bytes[size - 29] = static_cast<char>(0x80 | code);
        server.keep_log = true;
        server.receive(stranger, bytes.substr(1));
        EXPECT_EQ(server.logged.back(), "收到[172.16.0.1:1] 错误包,len=" + std::to_string(size - 1) + "\n");
    }
    EXPECT_EQ(to_server(datagram(from_client(16 + 7))), 1);
    expect_undisturbed();
}

TEST_F(UdcpHostile, InventedSendersGainLittleAndKeepNobodyOut) {
    server.keep_log = true;
    const unsigned long before = simulator.datagrams();
    for (unsigned i = 0; i < 6000; ++i) {
        Tq4_upp_Packet sync = header(1);
        sync.receiver = {i, i + 1};
        sync.auth_h = i;
        server.receive("172.16." + std::to_string(i / 250) + "." + std::to_string(i % 250 + 1) + ":9", datagram(sync));
    }
    EXPECT_EQ(server.engine().m_half_open.m_count, 4096u);
    EXPECT_EQ(server.engine().connections(), 4097u);
    EXPECT_EQ(simulator.datagrams() - before, 6000u) << "one answer for each";
    EXPECT_LE(server.logged.size(), 100u);
    Recorder honest;
    Host &other = simulator.add_host(honest);
    other.connect(server);
    simulator.run_for(30 * second);
    EXPECT_EQ(honest.take(), Texts{"ok"});
    EXPECT_LE(simulator.datagrams() - before, 6000u + 256 * 14 + 100) << "few are asked again";
    EXPECT_EQ(server.engine().m_half_open.m_count, 0u);
    EXPECT_EQ(server.engine().connections(), 2u);
    at_server.take();
    expect_undisturbed();
}

TEST_F(UdcpHostile, RepeatedSyncIsForWhoHasItsCode) {
    Tq4_upp_Packet sync = header(1);
    sync.auth_h = 1;
    server.receive(stranger, datagram(sync));
    sync.auth_h = 2;
    sync.repeat = 1;
    server.receive(stranger, datagram(sync));
    EXPECT_EQ(server.engine().m_half_open.m_count, 2u);
    server.receive(stranger, datagram(sync));
    EXPECT_EQ(server.engine().m_half_open.m_count, 2u);
}

TEST_F(UdcpHostile, AcknowledgementOfWhatWasNeverSentIsNotAnswered) {
    const Tq4_id there = item(client, id).m_rid;
    const uint32_t next = item(server, there).m_first_seq;
    for (const uint32_t seq : {next, next + 1, next + 767, next + 768, next + 0x7fffffff}) {
        EXPECT_EQ(to_server(datagram(from_client(8, seq, seq))), 0);
        EXPECT_TRUE(wire.empty()) << seq;
    }
    server.send(there, "one");
    take_wire();
    server.keep_log = true;
    EXPECT_EQ(to_server(datagram(from_client(8, next + 1, next + 1))), 0);
    EXPECT_TRUE(wire.empty());
    char line[128];
    std::snprintf(line, sizeof line, "[%08x:%08x] 收到数据ACK(seq=%x)，该序列号无对应数据(ret=-5)\n", there.h, there.l,
                  next + 1);
    EXPECT_EQ(server.logged.back(), line);
    EXPECT_EQ(to_server(datagram(from_client(8, next, next))), 1);
    EXPECT_EQ(take_wire(), Texts{"1:DataAck2"});
    EXPECT_EQ(to_server(datagram(from_client(8, next, next))), 1) << "again: it is not known that the answer came";
    EXPECT_EQ(take_wire(), Texts{"1:DataAck2"});
}

TEST_F(UdcpHostile, NumberThatIsListedOftenIsSentOnce) {
    const Tq4_id there = item(client, id).m_rid;
    const uint32_t first = item(server, there).m_first_seq;
    lose = [](const std::string &name) { return name == "1:Data"; };
    server.send(there, "one");
    server.send(there, "two");
    take_wire();
    std::string list;
    for (int i = 0; i < 300; ++i)
        for (const uint32_t seq : {first, first + 1, first + 7})
            if (list.size() < 1400) list.append(reinterpret_cast<const char *>(&seq), 4);
    EXPECT_EQ(to_server(datagram(from_client(9, first), list)), 1);
    EXPECT_EQ(take_wire(), (Texts{"1:Data", "1:Data"}));
    EXPECT_EQ(to_server(datagram(from_client(9, first), list.substr(0, 6))), 1);
    EXPECT_EQ(take_wire(), Texts{"1:Data"}) << "what is less than a number is ignored";
}

TEST_F(UdcpHostile, GroupWithAnEntryPastItsEndHasNoMessages) {
    const uint32_t first = item(client, id).m_first_seq;
    const std::string good{"\x03\x00one\x03\x00two", 10};
    for (const std::string &bad : {good + "\x05", good + std::string("\x05\x00x", 3), std::string("\xff\xff\x00", 3)})
        EXPECT_EQ(to_server(datagram(from_client(15, first), bad)), 0);
    EXPECT_TRUE(at_server.seen.empty());
    EXPECT_EQ(to_server(datagram(from_client(15, first), good)), 1);
    EXPECT_EQ(at_server.take(), (Texts{"one", "two"}));
}

TEST_F(UdcpHostile, NumbersBeyondTheWindowAreDroppedWithoutFillingTheLog) {
    static Texts told;
    told.clear();
    Tq4_debug_api->SetLog([](int, const char *format, va_list args) { told.push_back(formatted(format, args)); });
    const uint32_t first = item(client, id).m_first_seq;
    for (uint32_t i = 0; i < 10000; ++i) to_server(datagram(from_client(12, first + 1024 + i * 100), "far"));
    Tq4_debug_api->SetLog(nullptr);
    EXPECT_GT(told.size(), 0u);
    EXPECT_LE(told.size(), 100u);
    EXPECT_EQ(item(server, item(client, id).m_rid).m_unack_count, 0);
    EXPECT_TRUE(wire.empty());
    expect_undisturbed();
}

TEST_F(UdcpHostile, MessageWithoutAnEndEndsItsConnection) {
    const Tq4_id there = item(client, id).m_rid;
    uint32_t seq = item(client, id).m_first_seq;
    const std::string piece(1442, 'e');
    for (unsigned long sent = 0; sent <= 32ul << 20; sent += piece.size(), ++seq)
        ASSERT_EQ(to_server(datagram(from_client(13, seq), piece)), 1);
    EXPECT_TRUE(gone(server, there));
    EXPECT_EQ(at_server.take(), Texts{"disconnect"});
}

TEST_F(UdcpHostile, SynAckOfAnotherIsNotForAConnectionThatKnowsItsPeer) {
    const Tq4_udcp_item &here = item(client, id);
    Tq4_upp_Packet answer = header(2);
    answer.receiver = id;
    answer.auth_l = here.m_auth.h;
    answer.auth_h = here.m_auth.l + 1;
    answer.sender = {9, 9};
    EXPECT_EQ(client.receive(stranger, datagram(answer)), 0);
    EXPECT_STREQ(here.m_cbdata.addr, server.address().c_str());
    EXPECT_NE(here.m_rid.l, 9u);
    expect_undisturbed();
}

TEST_F(UdcpHostile, TuningThatDoesNotExistIsTheLast) {
    for (const uint8_t schema : {3, 4, 255}) {
        Tq4_upp_Packet sync = header(1);
        sync.receiver = {1, schema};
        sync.schema = schema;
        server.receive(stranger, datagram(sync));
        EXPECT_EQ(Tq4_udcp_item::Link::item_of(server.engine().m_half_open.first()->next->prev).m_scheme->index, 2);
    }
}

} // namespace
