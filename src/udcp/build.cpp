// build: headers. A header is appended to its payload, in the same string.
//
// All begin with the same base; what a command adds stands in its builder, which the table of commands names.
#include "udcp/engine.hpp"

namespace {

// What a builder adds to. seq is what the caller gave.
struct Building {
    Tq4_udcp_engine &obj;
    Tq4_udcp_item &item;
    uint32_t seq;
    Tq4_upp_Packet &packet;
};

uint32_t next_expected(const Tq4_udcp_item &item) { return (*item.m_recv)->GetNok(item.m_recv.get()); }

void acknowledge(const Building &b, uint32_t next) {
    b.packet.cmd |= Tq4_upp_ack_bit;
    b.packet.ack = next - 1;
    b.item.m_unack_count = 0;
}

void Tq4_upp_BuildBase2(unsigned code, const Building &b) {
    b.packet.ver = Tq4_upp_version;
    b.packet.cmd = static_cast<uint8_t>(b.obj.m_order << Tq4_upp_order_shift | code);
    b.packet.receiver = b.item.m_rid;
    b.packet.seq = b.item.m_first_seq;
    b.packet.delta = static_cast<uint32_t>(b.obj.m_clock - b.item.m_timestamp);
    b.packet.auth_h = b.item.m_auth.h;
    b.packet.auth_l = b.item.m_auth.l;
}

void Tq4_upp_BuildNothing(const Building &) {}

void Tq4_upp_BuildSync(const Building &b) {
    b.packet.receiver = b.item.m_id;
    b.packet.time = b.item.m_timestamp;
    b.packet.schema = b.item.m_scheme->index;
    b.packet.repeat = static_cast<uint8_t>(b.item.m_repeat);
}

void Tq4_upp_BuildSyncAck(const Building &b) {
    b.packet.time = b.item.m_timestamp;
    b.packet.schema = b.item.m_scheme->index;
    b.packet.sender = b.item.m_id;
}

void Tq4_upp_BuildDataAck(const Building &b) { b.packet.seq = b.packet.ack = next_expected(b.item) - 1; }
void Tq4_upp_BuildDataNok(const Building &b) { b.packet.seq = next_expected(b.item); }
// The number stands in seq and ack stays 0, deliberately: peers read ack.
void Tq4_upp_BuildDataAck2(const Building &b) { b.packet.seq = b.seq; }

void Tq4_upp_BuildPost(const Building &b) {
    if (b.item.m_unack_count) acknowledge(b, next_expected(b.item));
}

// A whole message does not repeat the acknowledgement that the peer has confirmed last; pieces and posts do. Peers
// expect the difference.
void Tq4_upp_BuildData(const Building &b) {
    b.packet.seq = b.seq;
    if (b.item.m_unack_count == 0) return;
    const uint32_t next = next_expected(b.item);
    if (next != b.item.m_expect_seq) acknowledge(b, next);
}

void Tq4_upp_BuildFragment(const Building &b) {
    b.packet.seq = b.seq;
    if (b.item.m_unack_count) acknowledge(b, next_expected(b.item));
}

void Tq4_upp_BuildTimeStamp(const Building &b) {
    b.packet.seq = b.seq;
    b.packet.time = b.obj.m_clock;
}

constexpr void (*builders[])(const Building &) = {
#define TQ4_UPP_BUILDER(code, name, fields, build, ...) build,
    TQ4_UPP_COMMANDS(TQ4_UPP_BUILDER)
#undef TQ4_UPP_BUILDER
};

} // namespace

void Tq4_upp_Build(Tq4_udcp_engine &obj, Tq4_udcp_item &item, Tq4_string out, unsigned code, uint32_t seq) {
    Tq4_upp_Packet packet;
    const Building building{obj, item, seq, packet};
    Tq4_upp_BuildBase2(code, building);
    builders[Tq4_upp_fold(code)](building);
    if (char *room = (*out)->Extend(out, Tq4_upp_header_size(code)))
        Tq4_upp_Encode(packet, reinterpret_cast<uint8_t *>(room));
}

void Tq4_upp_Send(Tq4_udcp_engine &obj, Tq4_udcp_item &item, Tq4_upp_command command, uint32_t seq) {
    (*obj.m_scratch)->truncate(obj.m_scratch, 0);
    Tq4_upp_Build(obj, item, obj.m_scratch, static_cast<unsigned>(command), seq);
    obj.SendTo(item, Tq4_udcp_bytes(obj.m_scratch));
}
