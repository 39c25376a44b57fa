// receiving: a packet's way through the window to the application, and what the peer is told of it.
//
// Each packet is stored under its number and leaves the window in order. The peer learns at the next tick what is there
// and what is missing, and at once when much has come. It answers, so that both know; until then every tick tells it
// again, and afterwards there is silence until something comes.
#include <cstring>
#include <utility>

#include "udcp/engine.hpp"

namespace {

uint16_t one_more(uint16_t count) { return count < UINT16_MAX ? static_cast<uint16_t>(count + 1) : count; }

// Numbers that no window of ours could hold come from peers that do not keep to the protocol, or are not what they
// seem.
bool beyond(const Tq4_udcp_item &item, uint32_t seq) {
    const auto distance = static_cast<int32_t>(seq - (*item.m_recv)->GetNok(item.m_recv.get()));
    return distance >= item.m_scheme->wnd->recvq_size;
}

// --- What leaves the window ---

// Gives the application a message; what it does not keep is freed with the packet.
bool deliver(Tq4_udcp_engine &obj, Tq4_udcp_item &item, Tq4_up_data &packet) {
    packet.info.delay = Tq4_upi_Delay(item, packet.arrival, packet.delta);
    if (const auto on_data = obj.m_world.deliver.OnData) obj.Tell(on_data, &item.m_cbdata, &packet.info);
    obj.m_shown.reset();
    return true;
}

// False when a message without an end is more than anybody sends: the connection is given up.
bool append(Tq4_udcp_engine &obj, Tq4_udcp_item &item, Tq4_up_data &packet) {
    if (!item.m_fragment) {
        item.m_fragment = std::exchange(packet.info.data, nullptr);
        return true;
    }
    const Tq4_bytes piece = Tq4_udcp_bytes(packet.info.data);
    (*item.m_fragment)->Memcat(item.m_fragment, piece.data, piece.size);
    if (static_cast<unsigned long>((*item.m_fragment)->length(item.m_fragment)) <= Tq4_udcp_most_fragments) return true;
    obj.Drive(item, Tq4_udcp_msg_TIMER_err, 1);
    return false;
}

bool append_last(Tq4_udcp_engine &obj, Tq4_udcp_item &item, Tq4_up_data &packet) {
    if (!append(obj, item, packet)) return false;
    obj.m_strings.Free(packet.info.data);
    packet.info.data = std::exchange(item.m_fragment, nullptr);
    return deliver(obj, item, packet);
}

bool renew_base(Tq4_udcp_engine &obj, Tq4_udcp_item &item, Tq4_up_data &packet) {
    const uint64_t here = packet.arrival - item.m_timestamp_r.local, there = packet.ts - item.m_timestamp_r.peer;
    const auto delay = static_cast<int64_t>(here - there);
    obj.Log("[%08x:%08x] 收到时间同步消息，通信延迟约 %u ms\n", item.m_id.h, item.m_id.l,
            delay > 0 ? static_cast<unsigned>(delay) : 0u);
    item.m_timestamp_r = {obj.m_clock, packet.ts};
    return true;
}

bool leave_window(Tq4_udcp_engine &obj, Tq4_udcp_item &item, Tq4_up_data &packet) {
    constexpr bool (*ways[])(Tq4_udcp_engine &, Tq4_udcp_item &, Tq4_up_data &) = {deliver, append, append_last,
                                                                                   nullptr, renew_base};
    return ways[static_cast<unsigned>(packet.type)](obj, item, packet);
}

void send_ack(Tq4_udcp_engine &obj, Tq4_udcp_item &item) {
    Tq4_upp_Send(obj, item, Tq4_upp_command::DataAck);
    item.m_unack_count = 0;
}

// --- What is missing ---

struct Gaps {
    const Tq4_udcp_item &item;
    uint8_t order;
    uint32_t expected;
    unsigned left;
    Tq4_string list;
};

// Shown the packets that are there, in order: all numbers in between are missing.
int list_gap(unsigned seq, void *, void *context) {
    auto &gaps = *static_cast<Gaps *>(context);
    for (; gaps.expected != seq && gaps.left; ++gaps.expected, --gaps.left) {
        uint8_t number[sizeof gaps.expected];
        Tq4_upp_Put(gaps.order, gaps.expected, number);
        (*gaps.list)->Memcat(gaps.list, number, sizeof number);
    }
    ++gaps.expected;
    return gaps.left == 0;
}

void send_nok(Tq4_udcp_engine &obj, Tq4_udcp_item &item) {
    const Tq4_reorder window = item.m_recv.get();
    const uint32_t first = (*window)->GetNok(window);
    (*obj.m_scratch)->truncate(obj.m_scratch, 0);
    Gaps gaps{item, obj.m_order, first, item.m_scheme->wnd->nok_size, obj.m_scratch};
    (*window)->each(window, list_gap, &gaps);
    item.m_unnok_count = 0;
    if ((*obj.m_scratch)->length(obj.m_scratch) == 0) return; // the gaps have closed
    Tq4_upp_Build(obj, item, obj.m_scratch, static_cast<unsigned>(Tq4_upp_command::DataNok));
    obj.SendTo(item, Tq4_udcp_bytes(obj.m_scratch));
}

} // namespace

unsigned Tq4_upi_Delay(const Tq4_udcp_item &item, uint64_t arrival, uint32_t delta) {
    const auto delay = static_cast<int64_t>(arrival - item.m_timestamp_r.local) - static_cast<int64_t>(delta);
    return delay > 0 ? static_cast<unsigned>(delay) : 0;
}

void Tq4_upi_Cache(Tq4_udcp_engine &obj, Tq4_udcp_item &item, const Tq4_upp_Packet &packet, uint32_t seq,
                   Tq4_up_type type, Tq4_string string, bool safe) {
    if (beyond(item, seq) && !obj.MayLogStranger()) return obj.m_strings.Free(string);
    const uint64_t base = type == Tq4_up_type::Timestamp ? packet.time : item.m_timestamp_r.peer;
    Tq4_up_data *cached = Create_Tq4_up_data(obj.m_strings, string, safe);
    cached->type = type;
    cached->ts = base + packet.delta;
    cached->arrival = obj.m_clock;
    cached->delta = packet.delta;
    const int stored = (*item.m_recv)->CacheItem(item.m_recv.get(), seq, cached, 1);
    if (stored <= 0) Delete_Tq4_up_data(cached);
    if (stored == -1) return;
    item.m_unack_count = one_more(item.m_unack_count);
    item.m_confirmed = false;
    if (stored > 0 && (*item.m_recv)->IsEmpty(item.m_recv.get())) item.m_unnok_count = one_more(item.m_unnok_count);
    obj.Work(item);
}

bool Tq4_upi_CheckCache(Tq4_udcp_engine &obj, Tq4_udcp_item &item) {
    for (;;) {
        unsigned seq;
        int empty;
        void *packet = (*item.m_recv)->GetItemWait(item.m_recv.get(), &seq, 0, &empty);
        if (empty) break;
        obj.m_shown.reset(static_cast<Tq4_up_data *>(packet));
        if (!leave_window(obj, item, *obj.m_shown)) return false;
    }
    if (item.m_unack_count >= item.m_scheme->wnd->ack_size) send_ack(obj, item);
    return true;
}

// The field that tells what was confirmed is 0, deliberately, and is taken as it is: the next message acknowledges
// again. That the peer knows stands in the other one.
void Tq4_upi_OnAck2(Tq4_udcp_item &item, const Tq4_upp_Packet &packet) {
    item.m_expect_seq = packet.ack;
    if (packet.seq == (*item.m_recv)->GetNok(item.m_recv.get()) - 1) item.m_confirmed = true;
}

void Tq4_upi_Acknowledge(Tq4_udcp_engine &obj, Tq4_udcp_item &item) {
    if (item.m_unnok_count) send_nok(obj, item);
    if (!item.m_confirmed) send_ack(obj, item);
}
