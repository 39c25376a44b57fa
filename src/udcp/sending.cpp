// sending: a message's way into the window and onto the wire, until it is acknowledged.
//
// A message enters the window in pieces of one packet each. A packet gets its number and its header as it enters, in
// its own string behind its payload, and is sent; it stays until an acknowledgement covers it, and goes out again as it
// is when that is late or the peer misses it. Messages that have waited go out in groups; in the window each is by
// itself, so that only what is lost is sent again.
#include <algorithm>
#include <cstring>
#include <utility>

#include "udcp/engine.hpp"

namespace {

constexpr unsigned code_of(Tq4_upp_command command) { return static_cast<unsigned>(command); }

void transmit(Tq4_udcp_engine &obj, const Tq4_udcp_item &item, uint32_t seq, Tq4_bytes datagram) {
    if (!obj.SendTo(item, datagram)) Tq4_udcp_LogUnsent(obj, item.m_id, seq);
}

// --- Groups ---

// What is about to leave in one datagram: one packet as it is in the window, or several in the engine's room. The first
// is copied only when a second comes.
class Departure {
public:
    Departure(Tq4_udcp_engine &obj, Tq4_udcp_item &item) : m_obj(obj), m_item(item) {}
    ~Departure() { Leave(); }
    Departure(const Departure &) = delete;
    Departure &operator=(const Departure &) = delete;

    void Add(const Tq4_ups_data &packet, uint32_t seq, bool whole_message) {
        const Tq4_bytes bytes = packet.bytes();
        const std::size_t entry = Tq4_upp_entry_size + bytes.size - Tq4_upp_base_size;
        if (!whole_message || m_size + entry > Tq4_upp_most_payload) Leave();
        if (m_count++ == 0) {
            m_first = bytes;
            m_first_seq = seq;
        } else {
            if (m_count == 2) Append(m_first);
            Append(bytes);
        }
        m_size += entry;
        if (!whole_message) Leave();
    }
    void Leave() {
        if (m_count == 1) transmit(m_obj, m_item, m_first_seq, m_first);
        if (m_count > 1) transmit(m_obj, m_item, m_first_seq, Close());
        m_count = 0;
        m_size = m_filled = 0;
    }

private:
    void Append(Tq4_bytes packet) {
        const std::size_t size = packet.size - Tq4_upp_base_size;
        const bool safe = packet.data[size + 1] & Tq4_upp_safe_bit;
        TQ4_CHECK(m_filled + Tq4_upp_entry_size + size <= Tq4_upp_most_payload);
        uint8_t *room = m_obj.m_group + m_filled;
        Tq4_upp_Put(m_obj.m_order, static_cast<uint16_t>(size | (safe ? Tq4_upp_entry_safe : 0)), room);
        std::memcpy(room + Tq4_upp_entry_size, packet.data, size);
        m_filled += Tq4_upp_entry_size + size;
    }
    // The header of a group is that of its first packet with another command and no mark.
    Tq4_bytes Close() {
        uint8_t *header = m_obj.m_group + m_filled;
        std::memcpy(header, m_first.data + m_first.size - Tq4_upp_base_size, Tq4_upp_base_size);
        header[1] = static_cast<uint8_t>((header[1] & ~Tq4_upp_code_bits) | code_of(Tq4_upp_command::Group));
        return {m_obj.m_group, m_filled + Tq4_upp_base_size};
    }

    Tq4_udcp_engine &m_obj;
    Tq4_udcp_item &m_item;
    Tq4_bytes m_first{}; // borrowed from the window
    uint32_t m_first_seq = 0;
    unsigned m_count = 0;
    std::size_t m_size = 0;   // of the entries, if they are to be a group
    std::size_t m_filled = 0; // of those in the room
};

// --- The queue ---

// The next piece of a message, without a header. A message of one piece gives its own string.
Tq4_string next_piece(Tq4_udcp_engine &obj, Tq4_udcp_SendItem &message) {
    if (!message.data) return obj.m_strings.Make();
    if (message.len <= Tq4_upp_most_payload) return std::exchange(message.data, nullptr);
    const Tq4_bytes bytes = Tq4_udcp_bytes(message.data);
    const Tq4_string piece = obj.m_strings.Make();
    (*piece)->Memcpy(piece, bytes.data + message.offset, std::min(Tq4_upp_most_payload, message.len - message.offset));
    return piece;
}

Tq4_upp_command command_of(const Tq4_udcp_SendItem &message) {
    if (!message.data) return Tq4_upp_command::Timestamp;
    if (message.len <= Tq4_upp_most_payload) return Tq4_upp_command::Data;
    return message.len - message.offset > Tq4_upp_most_payload ? Tq4_upp_command::Fragment
                                                               : Tq4_upp_command::FragmentEnd;
}

uint64_t due(const Tq4_udcp_item &item, const Tq4_ups_data &packet) {
    return packet.ts + packet.try_index * item.m_scheme->timer->_rsend_ms;
}

// The first piece that waits becomes a packet of the window, which has room.
void enter_window(Tq4_udcp_engine &obj, Tq4_udcp_item &item, Departure &departure) {
    Tq4_udcp_SendItem &message = item.m_sendq.front();
    const Tq4_upp_command command = command_of(message);
    if (command == Tq4_upp_command::Timestamp) {
        item.m_timestamp = obj.m_clock;
        item.m_renewing = false;
    }
    unsigned seq = (*item.m_send)->GetSendSeq(item.m_send.get());
    const Tq4_string piece = next_piece(obj, message);
    Tq4_upp_Build(obj, item, piece, code_of(command) | message.safe_flag, seq);
    auto *packet = new Tq4_ups_data{obj.m_strings, piece, obj.m_clock, 1, item.m_asked};
    [[maybe_unused]] const int entered = (*item.m_send)->SafeWait(item.m_send.get(), &seq, packet);
    TQ4_CHECK(entered);
    item.m_next_due = std::min(item.m_next_due, due(item, *packet));
    message.offset += Tq4_upp_most_payload;
    --item.m_waiting;
    if (message.offset >= message.len) {
        obj.m_strings.Free(message.data);
        item.m_sendq.pop_front();
    }
    departure.Add(*packet, seq, command == Tq4_upp_command::Data);
}

void put_in_queue(Tq4_udcp_item &item, const Tq4_udcp_SendItem &message) {
    item.m_sendq.push_back(message);
    item.m_waiting += message.pieces();
}

// A connection that is being closed takes nothing any more; one that is being opened keeps it until it stands.
bool is_closing(const Tq4_udcp_engine &obj, const Tq4_udcp_item &item) {
    if (item.stands()) return false;
    return obj.In(item, "user_rst") || obj.In(item, "exit_wait") || obj.In(item, "net_rst");
}

int refuse(Tq4_udcp_engine &obj, Tq4_udcp_item &item, Tq4_string string, bool forced) {
    obj.m_shown.reset(Create_Tq4_up_data(obj.m_strings, string, forced));
    if (const auto on_error = obj.m_world.deliver.OnSendError) obj.Tell(on_error, &item.m_cbdata, &obj.m_shown->info);
    obj.m_shown.reset();
    return 0;
}

// --- The window ---

void send_again(Tq4_udcp_engine &obj, const Tq4_udcp_item &item, uint32_t seq, Tq4_ups_data &packet) {
    if (packet.try_index < UINT16_MAX) ++packet.try_index;
    transmit(obj, item, seq, packet.bytes());
}

struct Resending {
    Tq4_udcp_engine &obj;
    Tq4_udcp_item &item;
    int left;
};

int resend_if_due(unsigned seq, void *data, void *context) {
    auto &[obj, item, left] = *static_cast<Resending *>(context);
    auto &packet = *static_cast<Tq4_ups_data *>(data);
    if (due(item, packet) <= obj.m_clock) {
        if (left == 0) { // the next tick's
            item.m_next_due = obj.m_clock;
            return 1;
        }
        --left;
        send_again(obj, item, seq, packet);
    }
    item.m_next_due = std::min(item.m_next_due, due(item, packet));
    return 0;
}

} // namespace

void Tq4_udcp_LogUnsent(Tq4_udcp_engine &obj, const Tq4_id &connection, uint32_t seq) {
    obj.Log("[%08x:%08x] seq=%x 发送失败\n", connection.h, connection.l, seq);
}

int Tq4_udcp_item_SendData(Tq4_udcp_engine &obj, Tq4_udcp_item &item, Tq4_string string, bool forced) {
    if (is_closing(obj, item)) return refuse(obj, item, string, forced);
    const unsigned long n = item.m_waiting + 1;
    if (n > Tq4_udcp_busy && !item.m_full_notify) {
        item.m_full_notify = true;
        if (const auto on_status = obj.m_world.deliver.OnSendQeueuStatus) obj.Tell(on_status, &item.m_cbdata, 1);
    }
    if (n > Tq4_udcp_busy && n % Tq4_udcp_most_waiting == 0)
        obj.Log("[%08x:%08x] warning busy queue= %d\n", item.m_id.h, item.m_id.l, static_cast<int>(n));
    if (!forced && n > Tq4_udcp_most_waiting) return refuse(obj, item, string, forced);
    if (item.stands() && !item.m_renewing && obj.m_clock - item.m_timestamp > Tq4_udcp_time_base_lasts) {
        item.m_renewing = true;
        put_in_queue(item, {nullptr, 0, 0, 0});
    }
    const auto length = static_cast<unsigned long>((*string)->length(string));
    put_in_queue(item, {string, 0, length, static_cast<uint8_t>(forced ? Tq4_upp_safe_bit : 0)});
    Tq4_upi_SendDataInqueue(obj, item);
    return 1;
}

int Tq4_udcp_item_PostData(Tq4_udcp_engine &obj, Tq4_udcp_item &item, Tq4_string string) {
    if (!item.stands() || (*string)->length(string) > static_cast<long>(Tq4_upp_most_payload)) return 0;
    Tq4_upp_Build(obj, item, string, code_of(Tq4_upp_command::Post));
    return obj.SendTo(item, Tq4_udcp_bytes(string));
}

void Tq4_upi_SendDataInqueue(Tq4_udcp_engine &obj, Tq4_udcp_item &item) {
    if (!item.stands()) return;
    {
        Departure departure(obj, item);
        while (!item.m_sendq.empty() && !(*item.m_send)->IsFull(item.m_send.get())) enter_window(obj, item, departure);
    }
    if (!(*item.m_send)->IsEmpty(item.m_send.get())) obj.Work(item);
    item.Check();
    if (!item.m_full_notify || item.m_waiting > Tq4_udcp_busy) return;
    item.m_full_notify = false;
    if (const auto on_status = obj.m_world.deliver.OnSendQeueuStatus) obj.Tell(on_status, &item.m_cbdata, 0);
}

// What was never sent is not acknowledged by a peer that speaks the protocol: it gets no answer.
int Tq4_upi_OnAck(Tq4_udcp_engine &obj, Tq4_udcp_item &item, uint32_t seq) {
    const Tq4_reorder window = item.m_send.get();
    if (static_cast<int32_t>(seq - (*window)->GetSendSeq(window)) >= 0) {
        if (!obj.MayLogStranger()) return 0;
        const int result = (*window)->Ack(window, seq, nullptr, nullptr);
        obj.Log("[%08x:%08x] 收到数据ACK(seq=%x)，该序列号无对应数据(ret=%d)\n", item.m_id.h, item.m_id.l, seq, result);
        return 0;
    }
    Tq4_upp_Send(obj, item, Tq4_upp_command::DataAck2, seq);
    (*window)->Ack(window, seq, nullptr, nullptr);
    Tq4_udcp_resenddata(obj, item);
    Tq4_upi_SendDataInqueue(obj, item);
    return 1;
}

void Tq4_upi_OnNok(Tq4_udcp_engine &obj, Tq4_udcp_item &item, const Tq4_upp_Packet &packet) {
    ++item.m_asked;
    Tq4_upp_numbers numbers(packet);
    uint32_t seq;
    while (numbers.Read(seq)) {
        auto *missing = static_cast<Tq4_ups_data *>((*item.m_send)->PeekData(item.m_send.get(), seq));
        if (!missing || std::exchange(missing->asked, item.m_asked) == item.m_asked) continue;
        send_again(obj, item, seq, *missing);
    }
}

void Tq4_udcp_resenddata(Tq4_udcp_engine &obj, Tq4_udcp_item &item) {
    if (obj.m_clock < item.m_next_due) return;
    item.m_next_due = UINT64_MAX;
    Resending resending{obj, item, Tq4_udcp_resends_a_tick};
    (*item.m_send)->each_nok(item.m_send.get(), resend_if_due, &resending);
}
