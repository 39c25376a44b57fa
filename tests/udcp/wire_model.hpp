// wire_model.hpp: the rules of acknowledgement told a second time, from the datagrams alone: which packets carry what
// acknowledgement, what is answered and sent again at once, what a DataNok lists, how groups are numbered. Every
// datagram that a host of a campaign sends is judged.
#pragma once

#include <deque>
#include <set>

#include "udcp/shadow.hpp"

class Wire_model : public Shadow {
public:
    explicit Wire_model(Simulator &simulator) : Shadow(simulator), m_simulator(simulator) {
        simulator.arrives = [this](Host &host, const std::string &bytes) { before(host, bytes); };
        simulator.arrived = [this](Host &host, const std::string &bytes) { behind(host, bytes); };
        simulator.lose = [this](unsigned long, Host &host, Tq4_bytes bytes) { return judge(host, bytes), false; };
    }

private:
    struct Sent {
        std::string payload;
        uint8_t cmd; // with the bit that tells of an acknowledgement
        uint32_t ack;
    };
    // One side of a connection that stands.
    struct Side {
        const Tq4_udcp_queue_scheme *sizes;
        uint32_t next, confirmed_ack;   // expected; what rule A compares with
        uint32_t send_next, send_first; // the window of what was sent
        unsigned unacknowledged = 0, behind_gaps = 0;
        bool confirmed = true, owes_ack = false;
        std::set<uint32_t> held; // behind a gap
        std::map<uint32_t, Sent> sent;
        std::deque<uint32_t> owed_answers; // DataAck2s
        std::set<uint32_t> owed_packets;   // that a DataNok has named
        Microseconds since = 0;            // when it last acknowledged, or had something to
    };

    void on_ok(Host &host, Tq4_udcp_info &info) override {
        Shadow::on_ok(host, info);
        const Tq4_udcp_item &item = *host.engine().Find(*info.id);
        m_sides[&item] = {item.m_scheme->wnd, item.m_expect_seq, item.m_expect_seq, item.m_first_seq, item.m_first_seq};
    }
    int on_disconnect(Host &host, Tq4_udcp_info &info) override {
        m_sides.erase(host.engine().Find(*info.id));
        return Shadow::on_disconnect(host, info);
    }
    void expect(bool holds, Host &host, const char *what) {
        if (!holds) fault(host, host.engine().m_sending, what);
    }
    // The side that a datagram is for, if it stands and will believe it.
    Side *side_of(Host &host, const std::string &bytes, Tq4_upp_Packet &packet) {
        const Tq4_bytes view{reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size()};
        if (Tq4_upp_Decode(view, host.engine().m_order, packet) < 0) return nullptr;
        const Tq4_udcp_item *item = host.engine().Find(packet.receiver);
        if (!item || item->m_auth.h != packet.auth_l || !item->stands()) return nullptr;
        return &m_sides.at(item);
    }

    // --- What a host is told ---

    void store(Side &side, uint32_t seq) {
        const auto distance = static_cast<int32_t>(seq - side.next);
        if (distance >= side.sizes->recvq_size) return;
        ++side.unacknowledged;
        if (std::exchange(side.confirmed, false)) side.since = m_simulator.now();
        if (distance < 0 || !side.held.insert(seq).second) return;
        if (!side.held.contains(side.next)) ++side.behind_gaps;
    }
    static void acknowledge(Side &side, uint32_t ack) {
        if (static_cast<int32_t>(ack - side.send_next) >= 0) return;
        side.owed_answers.push_back(ack);
        for (; static_cast<int32_t>(ack - side.send_first) >= 0; ++side.send_first) {
            side.sent.erase(side.send_first);
            side.owed_packets.erase(side.send_first);
        }
    }
    void before(Host &host, const std::string &bytes) {
        Tq4_upp_Packet packet;
        Side *side = side_of(host, bytes, packet);
        if (!side) return;
        if (host.paused_until() + 200 * ms < m_simulator.now())
            expect(side->confirmed || m_simulator.now() < side->since + 120 * ms, host,
                   "has not acknowledged for long");
        const auto command = static_cast<Tq4_upp_command>(packet.command());
        const bool numbered = command >= Tq4_upp_command::Data && command != Tq4_upp_command::Group;
        uint32_t seq;
        if (numbered) store(*side, packet.seq);
        if (command == Tq4_upp_command::Group && Tq4_upp_group::Whole(packet)) {
            Tq4_upp_group group(packet);
            Tq4_upp_message message;
            for (seq = packet.seq; group.Next(message); ++seq) store(*side, seq);
        }
        while (side->held.erase(side->next)) ++side->next;
        side->owes_ack = side->unacknowledged >= side->sizes->ack_size;
        if (command == Tq4_upp_command::DataNok)
            for (Tq4_upp_numbers numbers(packet); numbers.Read(seq);)
                if (side->sent.contains(seq)) side->owed_packets.insert(seq);
        if (command == Tq4_upp_command::DataAck2) {
            side->confirmed_ack = packet.ack;
            side->confirmed |= packet.seq == side->next - 1;
        }
        const bool carries = command >= Tq4_upp_command::Post && command != Tq4_upp_command::Timestamp;
        if (command == Tq4_upp_command::DataAck || (carries && packet.acknowledges())) acknowledge(*side, packet.ack);
    }
    void behind(Host &host, const std::string &bytes) {
        Tq4_upp_Packet packet;
        const Side *side = side_of(host, bytes, packet);
        if (!side) return;
        expect(!side->owes_ack, host, "much has come and is not acknowledged");
        expect(side->owed_answers.empty(), host, "an acknowledgement is not answered");
        expect(side->owed_packets.empty(), host, "a missing packet is not sent again");
    }

    // --- What it says ---

    // A packet that is built: rule A is for whole messages, rule B for all others.
    static void build(Side &side, bool rule_a, uint8_t &cmd, uint32_t &ack) {
        if (side.unacknowledged == 0 || (rule_a && side.next == side.confirmed_ack)) return;
        cmd |= Tq4_upp_ack_bit;
        ack = side.next - 1;
        side.unacknowledged = 0;
    }
    void judge(Host &host, Tq4_bytes bytes) {
        Tq4_upp_Packet packet;
        Tq4_upp_Decode(bytes, 0, packet);
        const Tq4_udcp_item &item = *host.engine().Find(host.engine().m_sending);
        const auto command = static_cast<Tq4_upp_command>(packet.command());
        expect(packet.ver == 1 && packet.order == host.engine().m_order && packet.auth_h == item.m_auth.h, host,
               "base");
        if (command < Tq4_upp_command::DataAck) return expect(packet.seq == item.m_first_seq, host, "first number");
        if (!item.stands()) return fault(host, item.m_id, "speaks without standing");
        Side &side = m_sides.at(&item);
        uint8_t cmd = packet.cmd & static_cast<uint8_t>(~Tq4_upp_ack_bit);
        uint32_t ack = 0;
        if (command == Tq4_upp_command::DataAck) {
            expect(packet.seq == side.next - 1 && (side.owes_ack || !side.confirmed), host, "DataAck");
            ack = packet.seq;
            side.owes_ack = false;
            side.unacknowledged = 0;
            side.since = m_simulator.now();
        } else if (command == Tq4_upp_command::DataNok)
            expect(packet.seq == side.next && judge_list(side, packet), host, "DataNok");
        else if (command == Tq4_upp_command::DataAck2) {
            expect(!side.owed_answers.empty() && packet.seq == side.owed_answers.front(), host, "DataAck2");
            side.owed_answers.pop_front();
        } else if (command == Tq4_upp_command::Post)
            build(side, false, cmd, ack);
        else
            return judge_numbered(host, side, packet);
        expect(packet.cmd == cmd && packet.ack == ack, host, "an acknowledgement");
    }
    static bool judge_list(Side &side, const Tq4_upp_Packet &packet) {
        std::vector<uint32_t> missing, listed;
        std::size_t held = 0;
        for (uint32_t seq = side.next; held < side.held.size() && missing.size() < side.sizes->nok_size; ++seq)
            side.held.contains(seq) ? void(++held) : missing.push_back(seq);
        uint32_t seq;
        for (Tq4_upp_numbers numbers(packet); numbers.Read(seq);) listed.push_back(seq);
        return std::exchange(side.behind_gaps, 0) && missing == listed;
    }
    void judge_numbered(Host &host, Side &side, const Tq4_upp_Packet &packet) {
        const auto text = [](Tq4_bytes bytes) {
            return std::string(reinterpret_cast<const char *>(bytes.data), bytes.size);
        };
        const bool group = packet.command() == static_cast<unsigned>(Tq4_upp_command::Group);
        side.owed_packets.erase(packet.seq);
        const auto again = side.sent.find(packet.seq);
        if (!group && again != side.sent.end())
            return expect(again->second.cmd == packet.cmd && again->second.ack == packet.ack &&
                              again->second.payload == text(packet.payload),
                          host, "sent again, and differs");
        expect(packet.seq == side.send_next, host, "a number out of turn");
        constexpr uint8_t marks = Tq4_upp_ack_bit | Tq4_upp_code_bits;
        if (!group) {
            uint8_t cmd = packet.cmd & static_cast<uint8_t>(~Tq4_upp_ack_bit);
            uint32_t ack = 0;
            const bool whole = packet.command() == static_cast<unsigned>(Tq4_upp_command::Data);
            if (packet.code() != static_cast<unsigned>(Tq4_upp_command::Timestamp)) build(side, whole, cmd, ack);
            side.sent[side.send_next++] = {text(packet.payload), cmd, ack};
        } else {
            Tq4_upp_group entries(packet);
            Tq4_upp_message message;
            while (entries.Next(message)) {
                auto cmd = static_cast<uint8_t>((packet.cmd & ~marks) | 12 | (message.safe ? Tq4_upp_safe_bit : 0));
                uint32_t ack = 0;
                build(side, true, cmd, ack);
                side.sent[side.send_next++] = {text(message.bytes), cmd, ack};
            }
            expect(Tq4_upp_group::Whole(packet) && side.send_next - packet.seq > 1, host, "a group");
        }
        const Sent &first = side.sent[packet.seq];
        expect((first.cmd & Tq4_upp_ack_bit) == (packet.cmd & Tq4_upp_ack_bit) && first.ack == packet.ack, host,
               "what it acknowledges");
        expect(side.send_next - side.send_first <= static_cast<uint32_t>(side.sizes->sendq_size), host, "its window");
    }

    Simulator &m_simulator;
    std::map<const Tq4_udcp_item *, Side> m_sides;
};
