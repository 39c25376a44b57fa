// frames: what each command of a datagram does.
//
// A datagram is believed when it names a connection of ours and carries the code that we drew for it; a Sync, which
// cannot, begins something that is let go when nobody confirms it. Nothing else of a stranger's is kept or answered. It
// is told in the log, as far as strangers may fill that. Handlers give 1 for a datagram that was accepted, else 0.
#include <algorithm>
#include <cstring>
#include <utility>

#include "udcp/engine.hpp"

namespace {

// A connection's tuning, once both sides have said theirs.
const Tq4_udcp_scheme &agreed(const Tq4_udcp_engine &obj, unsigned proposed) {
    return Tq4_udcp_scheme_of(std::max<unsigned>(proposed, obj.m_scheme.index));
}

const char *from(const Tq4_udcp_frame &frame) { return (*frame.sender)->ip(frame.sender); }
int port_of(const Tq4_udcp_frame &frame) { return (*frame.sender)->port(frame.sender); }

// 0 for our own, which connections have when they are like us.
int told_order(const Tq4_udcp_engine &obj, const Tq4_upp_Packet &packet) {
    return packet.order == obj.m_order ? int{ByteOrder_SameHost} : int{packet.order};
}

int wrong_code(Tq4_udcp_engine &obj, const Tq4_udcp_item &item, const Tq4_udcp_frame &frame) {
    obj.LogStranger("[%08x:%08x] 收到[%s:%u] 包,cmd=%x,验证码不正确\n", item.m_id.h, item.m_id.l, from(frame),
                    port_of(frame), frame.packet.cmd);
    return 0;
}

Tq4_udcp_item *find_or_log(Tq4_udcp_engine &obj, const Tq4_udcp_frame &frame) {
    const Tq4_upp_Packet &packet = frame.packet;
    Tq4_udcp_item *item = obj.Find(packet.receiver);
    if (!item)
        obj.LogStranger("收到[%s:%u] 包,cmd=%x,无法找到[%08x:%08x]对应的连接对象\n", from(frame), port_of(frame),
                        packet.cmd, packet.receiver.h, packet.receiver.l);
    return item;
}

// It has come from the peer: that lives, and where it speaks from is where it is.
Tq4_udcp_item *believe(Tq4_udcp_item *item, const Tq4_udcp_frame &frame) {
    item->Follow(frame.sender);
    item->m_recv_active = Tq4_udcp_lives;
    return item;
}

// The connection that a datagram is for; null when it is for none.
Tq4_udcp_item *Tq4_upf_safe_find(Tq4_udcp_engine &obj, const Tq4_udcp_frame &frame) {
    Tq4_udcp_item *item = find_or_log(obj, frame);
    if (!item) return nullptr;
    if (item->m_auth.h != frame.packet.auth_l) return wrong_code(obj, *item, frame), nullptr;
    return believe(item, frame);
}

// The same for what only a connection that stands has a use for.
Tq4_udcp_item *find_standing(Tq4_udcp_engine &obj, const Tq4_udcp_frame &frame) {
    Tq4_udcp_item *item = Tq4_upf_safe_find(obj, frame);
    return item && item->stands() ? item : nullptr;
}

int Tq4_upf_error(Tq4_udcp_engine &obj, const Tq4_udcp_frame &frame) {
    obj.LogStranger("收到[%s:%u] 错误包,len=%d\n", from(frame), port_of(frame),
                    static_cast<int>(frame.packet.payload.size + Tq4_upp_base_size));
    return 0;
}

// --- The opening ---

// A repeated Sync is for the connection that the first one began, if that is still half open.
Tq4_udcp_item *begun_by(Tq4_udcp_engine &obj, const Tq4_udcp_frame &frame) {
    if (frame.packet.repeat == 0) return nullptr;
    const std::string key = Tq4_udcp_address_key(from(frame), port_of(frame));
    auto *item = static_cast<Tq4_udcp_item *>((*obj.m_addresses)->LookupS(obj.m_addresses.get(), key.c_str()));
    return item && item->m_auth.l == frame.packet.auth_h ? item : nullptr;
}

Tq4_udcp_item *begin_slave(Tq4_udcp_engine &obj, const Tq4_udcp_frame &frame) {
    if (obj.m_half_open.m_count >= Tq4_udcp_most_half_open)
        obj.Drive(Tq4_udcp_item::Link::item_of(obj.m_half_open.first()), Tq4_udcp_msg_TIMER_syn, 15);
    Tq4_udcp_item *item = obj.Begin(false);
    if (!item) {
        obj.LogStranger("收到[%s:%u] 同步请求,资源不足\n", from(frame), port_of(frame));
        return nullptr;
    }
    const Tq4_upp_Packet &packet = frame.packet;
    item->m_auth.l = packet.auth_h;
    item->m_rid = packet.receiver;
    item->m_expect_seq = packet.seq;
    item->m_timestamp_r = {obj.m_clock, packet.time};
    item->m_scheme = &agreed(obj, packet.schema);
    item->m_cbdata.byte_order = told_order(obj, packet);
    item->Follow(frame.sender);
    obj.EnterAddress(*item);
    return item;
}

int Tq4_upf_sync(Tq4_udcp_engine &obj, const Tq4_udcp_frame &frame) {
    const Tq4_upp_Packet &packet = frame.packet;
    obj.LogStranger("Sync(%d) from %s:%d, auth=(%x:%x)\n", packet.repeat, from(frame), port_of(frame), packet.auth_h,
                    packet.auth_l);
    if (!obj.m_addresses) {
        obj.LogStranger("收到[%s:%u]同步请求,但本端拒绝作为服务器\n", from(frame), port_of(frame));
        return 0;
    }
    if (obj.m_exit_flag) return 0;
    Tq4_udcp_item *item = begun_by(obj, frame);
    if (!item) item = begin_slave(obj, frame);
    if (!item) return 0;
    item->Follow(frame.sender);
    obj.Drive(*item, Tq4_udcp_msg_FRAME, Tq4_udcp_submsg_Syn);
    return 1;
}

// The first answer to our Sync tells who the peer is.
void learn_peer(Tq4_udcp_engine &obj, Tq4_udcp_item &item, const Tq4_upp_Packet &packet) {
    item.m_expect_seq = packet.seq;
    item.m_auth.l = packet.auth_h;
    item.m_timestamp_r = {obj.m_clock, packet.time + packet.delta};
    item.m_scheme = &agreed(obj, packet.schema);
    item.m_rid = packet.sender;
}

int Tq4_upf_sync_ack(Tq4_udcp_engine &obj, const Tq4_udcp_frame &frame) {
    const Tq4_upp_Packet &packet = frame.packet;
    obj.LogStranger("[%08x:%08x] SynAck from %s:%d, auth=(%x:%x)\n", packet.receiver.h, packet.receiver.l, from(frame),
                    port_of(frame), packet.auth_h, packet.auth_l);
    Tq4_udcp_item *item = find_or_log(obj, frame);
    if (!item) return 0;
    const bool first = item->m_rid.h == 0 && item->m_rid.l == 0;
    if (item->m_auth.h != packet.auth_l || (!first && item->m_auth.l != packet.auth_h))
        return wrong_code(obj, *item, frame);
    item->m_cbdata.byte_order = told_order(obj, packet);
    if (first) learn_peer(obj, *item, packet);
    believe(item, frame);
    obj.Drive(*item, Tq4_udcp_msg_FRAME, Tq4_udcp_submsg_SynAck);
    return 1;
}

// The packets of the handshakes that are events and nothing else.
int pass_event(Tq4_udcp_engine &obj, const Tq4_udcp_frame &frame, const char *name, long event) {
    const Tq4_upp_Packet &packet = frame.packet;
    obj.LogStranger("[%08x:%08x] %s from %s:%d, auth=(%x:%x)\n", packet.receiver.h, packet.receiver.l, name,
                    from(frame), port_of(frame), packet.auth_h, packet.auth_l);
    Tq4_udcp_item *item = Tq4_upf_safe_find(obj, frame);
    if (!item) return 0;
    obj.Drive(*item, Tq4_udcp_msg_FRAME, event);
    return 1;
}

int Tq4_upf_sync_ack2(Tq4_udcp_engine &obj, const Tq4_udcp_frame &frame) {
    return pass_event(obj, frame, "SynAck2", Tq4_udcp_submsg_SynAck2);
}
int Tq4_upf_rst(Tq4_udcp_engine &obj, const Tq4_udcp_frame &frame) {
    return pass_event(obj, frame, "Rst", Tq4_udcp_submsg_Rst);
}
int Tq4_upf_rst_ack(Tq4_udcp_engine &obj, const Tq4_udcp_frame &frame) {
    return pass_event(obj, frame, "RstAck", Tq4_udcp_submsg_RstAck);
}
int Tq4_upf_rst_ack2(Tq4_udcp_engine &obj, const Tq4_udcp_frame &frame) {
    return pass_event(obj, frame, "RstAck2", Tq4_udcp_submsg_RstAck2);
}

int Tq4_upf_active(Tq4_udcp_engine &obj, const Tq4_udcp_frame &frame) {
    return Tq4_upf_safe_find(obj, frame) != nullptr;
}

// --- Acknowledgements ---

int Tq4_upf_data_ack(Tq4_udcp_engine &obj, const Tq4_udcp_frame &frame) {
    Tq4_udcp_item *item = find_standing(obj, frame);
    return item && Tq4_upi_OnAck(obj, *item, frame.packet.ack);
}

int Tq4_upf_data_nok(Tq4_udcp_engine &obj, const Tq4_udcp_frame &frame) {
    Tq4_udcp_item *item = find_standing(obj, frame);
    if (item) Tq4_upi_OnNok(obj, *item, frame.packet);
    return item != nullptr;
}

int Tq4_upf_data_ack2(Tq4_udcp_engine &obj, const Tq4_udcp_frame &frame) {
    Tq4_udcp_item *item = find_standing(obj, frame);
    if (item) Tq4_upi_OnAck2(*item, frame.packet);
    return item != nullptr;
}

// --- Messages ---

// Behind what a packet has brought: its acknowledgement.
int and_acknowledged(Tq4_udcp_engine &obj, Tq4_udcp_item &item, const Tq4_udcp_frame &frame) {
    if (frame.packet.acknowledges()) Tq4_upi_OnAck(obj, item, frame.packet.ack);
    return 1;
}

int Tq4_upf_post(Tq4_udcp_engine &obj, const Tq4_udcp_frame &frame) {
    Tq4_udcp_item *item = find_standing(obj, frame);
    if (!item) return 0;
    obj.m_shown.reset(Create_Tq4_up_data(obj.m_strings, std::exchange(*frame.buffer, nullptr), false));
    obj.m_shown->info.delay = Tq4_upi_Delay(*item, obj.m_clock, frame.packet.delta);
    if (const auto on_post = obj.m_world.deliver.OnPost) obj.Tell(on_post, &item->m_cbdata, &obj.m_shown->info);
    obj.m_shown.reset();
    return and_acknowledged(obj, *item, frame);
}

Tq4_up_type type_of(unsigned command) {
    constexpr Tq4_up_type types[] = {Tq4_up_type::Whole, Tq4_up_type::Fragment, Tq4_up_type::FragmentEnd};
    return types[command - static_cast<unsigned>(Tq4_upp_command::Data)];
}

int Tq4_upf_data(Tq4_udcp_engine &obj, const Tq4_udcp_frame &frame) {
    Tq4_udcp_item *item = find_standing(obj, frame);
    if (!item) return 0;
    const Tq4_upp_Packet &packet = frame.packet;
    Tq4_upi_Cache(obj, *item, packet, packet.seq, type_of(packet.command()), std::exchange(*frame.buffer, nullptr),
                  packet.safe());
    return Tq4_upi_CheckCache(obj, *item) ? and_acknowledged(obj, *item, frame) : 1;
}

int Tq4_upf_group(Tq4_udcp_engine &obj, const Tq4_udcp_frame &frame) {
    Tq4_udcp_item *item = find_standing(obj, frame);
    if (!item) return 0;
    if (!Tq4_upp_group::Whole(frame.packet)) return Tq4_upf_error(obj, frame);
    Tq4_upp_group group(frame.packet);
    Tq4_upp_message message;
    for (uint32_t seq = frame.packet.seq; group.Next(message); ++seq) {
        const Tq4_string copy = obj.m_strings.Make();
        (*copy)->Memcpy(copy, message.bytes.data, message.bytes.size);
        Tq4_upi_Cache(obj, *item, frame.packet, seq, Tq4_up_type::Whole, copy, message.safe);
    }
    return Tq4_upi_CheckCache(obj, *item) ? and_acknowledged(obj, *item, frame) : 1;
}

int Tq4_upf_timestamp(Tq4_udcp_engine &obj, const Tq4_udcp_frame &frame) {
    Tq4_udcp_item *item = find_standing(obj, frame);
    if (!item) return 0;
    Tq4_upi_Cache(obj, *item, frame.packet, frame.packet.seq, Tq4_up_type::Timestamp, nullptr, false);
    Tq4_upi_CheckCache(obj, *item);
    return 1;
}

constexpr int (*_g_upf_handler[])(Tq4_udcp_engine &, const Tq4_udcp_frame &) = {
#define TQ4_UPP_HANDLER(code, name, fields, build, handle, ...) handle,
    TQ4_UPP_COMMANDS(TQ4_UPP_HANDLER)
#undef TQ4_UPP_HANDLER
};

} // namespace

std::string Tq4_udcp_address_key(const char *addr, int port) { return std::string(addr) + ":" + std::to_string(port); }

int Tq4_udcp_doFrame(Tq4_udcp_engine &obj, Tq4_string *datagram, Tq4_sockaddr sender) {
    Tq4_udcp_frame frame{{}, datagram, sender};
    const Tq4_bytes bytes = Tq4_udcp_bytes(*datagram);
    const int code = Tq4_upp_Decode(bytes, obj.m_order, frame.packet);
    if (code < 0) {
        obj.LogStranger("收到[%s:%u] 错误包,len=%d\n", from(frame), port_of(frame), static_cast<int>(bytes.size));
        return 0;
    }
    (**datagram)->truncate(*datagram, frame.packet.payload.size);
    return _g_upf_handler[frame.packet.command()](obj, frame);
}
