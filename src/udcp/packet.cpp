// packet: headers to bytes and back.
//
// One function walks over the fields of a header in the order in which they travel; writing and reading are what it
// does with each. How many bytes that takes is known from the command before the first is touched. Reading therefore
// checks a length once.
#include "udcp/packet.hpp"

#include <array>
#include <cstring>

#include "assert.hpp"

namespace {

enum Extension : uint8_t { Has_time = 1, Has_schema = 2, Has_repeat = 4, Has_sender = 8 };

struct Row {
    uint8_t fields;
    Tq4_upp_queue queue;
    Tq4_upp_queue queue_marked;
};

constexpr Row rows[] = {
#define TQ4_UPP_ROW(code, name, fields, build, handle, queue, marked)                                                  \
    {fields, Tq4_upp_queue::queue, Tq4_upp_queue::marked},
    TQ4_UPP_COMMANDS(TQ4_UPP_ROW)
#undef TQ4_UPP_ROW
};

constexpr const Row &row_of(unsigned code) { return rows[Tq4_upp_fold(code & Tq4_upp_code_bits)]; }

constexpr uint8_t host_order = std::endian::native == std::endian::big ? ByteOrder_BigEndians : ByteOrder_LittleEndians;

template <class Number> Number swapped_if(bool swap, Number number) {
    if constexpr (sizeof number == 1)
        return number;
    else if constexpr (sizeof number == 2)
        return swap ? __builtin_bswap16(number) : number;
    else
        return swap ? __builtin_bswap32(number) : number;
}

// The fields of a header in the order in which they travel. A time is two numbers, the high half first.
template <class Visit, class Packet> constexpr void each_field(Visit &&visit, Packet &packet, uint8_t has) {
    if (has & Has_time) visit.Halves(packet.time);
    if (has & Has_schema) visit(packet.schema);
    if (has & Has_repeat) visit(packet.repeat);
    if (has & Has_sender) visit(packet.sender.h), visit(packet.sender.l);
    visit(packet.ver), visit(packet.cmd);
    visit(packet.receiver.h), visit(packet.receiver.l);
    visit(packet.seq), visit(packet.ack), visit(packet.delta);
    visit(packet.auth_h), visit(packet.auth_l);
}

struct Writer {
    uint8_t *at;
    const bool swap;

    template <class Number> void operator()(Number number) {
        number = swapped_if(swap, number);
        std::memcpy(at, &number, sizeof number);
        at += sizeof number;
    }
    void Halves(uint64_t number) {
        (*this)(static_cast<uint32_t>(number >> 32));
        (*this)(static_cast<uint32_t>(number));
    }
};

struct Reader {
    const uint8_t *at;
    const bool swap;

    template <class Number> void operator()(Number &number) {
        std::memcpy(&number, at, sizeof number);
        number = swapped_if(swap, number);
        at += sizeof number;
    }
    void Halves(uint64_t &number) {
        uint32_t high = 0, low = 0;
        (*this)(high), (*this)(low);
        number = uint64_t{high} << 32 | low;
    }
};

struct Sizer {
    std::size_t size = 0;
    template <class Number> constexpr void operator()(const Number &) { size += sizeof(Number); }
    constexpr void Halves(const uint64_t &) { size += 8; }
};

constexpr std::array<uint8_t, Tq4_upp_command_count> sizes = [] {
    std::array<uint8_t, Tq4_upp_command_count> all{};
    for (unsigned code = 0; code < Tq4_upp_command_count; ++code) {
        constexpr Tq4_upp_Packet any;
        Sizer sizer;
        each_field(sizer, any, rows[code].fields);
        all[code] = static_cast<uint8_t>(sizer.size);
    }
    return all;
}();
static_assert(sizes[0] == Tq4_upp_base_size && sizes[1] == 40 && sizes[2] == Tq4_upp_most_header && sizes[16] == 38);

constexpr unsigned order_of(uint8_t cmd) { return cmd >> Tq4_upp_order_shift; }

} // namespace

Tq4_upp_queue Tq4_upp_queue_of(unsigned code) {
    return code < Tq4_upp_command_count ? row_of(code).queue : row_of(code).queue_marked;
}

std::size_t Tq4_upp_header_size(unsigned code) { return sizes[Tq4_upp_fold(code & Tq4_upp_code_bits)]; }

uint8_t Tq4_upp_host_order() { return host_order; }

void Tq4_upp_Encode(const Tq4_upp_Packet &packet, uint8_t *room) {
    Writer writer{room, order_of(packet.cmd) != host_order};
    each_field(writer, packet, row_of(packet.cmd).fields);
    TQ4_CHECK(writer.at == room + Tq4_upp_header_size(packet.code()));
}

int Tq4_upp_Decode(Tq4_bytes datagram, uint8_t own_order, Tq4_upp_Packet &packet) {
    if (datagram.size < Tq4_upp_base_size || datagram.size > Tq4_upp_most_datagram) return -1;
    const uint8_t cmd = datagram.data[datagram.size - Tq4_upp_base_size + 1];
    const std::size_t header = Tq4_upp_header_size(cmd & Tq4_upp_code_bits);
    const unsigned told = order_of(cmd), order = told == ByteOrder_SameHost ? own_order : told;
    if (datagram.size < header || order == ByteOrder_MiddleEndians) return -1;
    packet = {};
    packet.order = static_cast<uint8_t>(order);
    packet.payload = {datagram.data, datagram.size - header};
    Reader reader{datagram.data + packet.payload.size, order != host_order};
    each_field(reader, packet, row_of(cmd).fields);
    TQ4_CHECK(reader.at == datagram.data + datagram.size);
    return static_cast<int>(packet.code());
}

Tq4_upp_numbers::Tq4_upp_numbers(const Tq4_upp_Packet &packet)
    : m_bytes(packet.payload), m_swap(packet.order != ByteOrder_BigEndians) {}

// The reader's numbers are big-endian.
bool Tq4_upp_numbers::Read(uint16_t &number) {
    if (!m_bytes.Read(number)) return false;
    number = swapped_if(m_swap, number);
    return true;
}

bool Tq4_upp_numbers::Read(uint32_t &number) {
    if (!m_bytes.Read(number)) return false;
    number = swapped_if(m_swap, number);
    return true;
}

bool Tq4_upp_group::Next(Tq4_upp_message &message) {
    uint16_t entry;
    if (!m_numbers.Read(entry)) return false;
    message.safe = entry & Tq4_upp_entry_safe;
    message.bytes = m_numbers.Take(entry & ~Tq4_upp_entry_safe);
    return message.bytes.data;
}

bool Tq4_upp_group::Whole(const Tq4_upp_Packet &packet) {
    Tq4_upp_group group(packet);
    Tq4_upp_message message;
    std::size_t seen = 0;
    while (group.Next(message)) seen += Tq4_upp_entry_size + message.bytes.size;
    return seen == packet.payload.size;
}

void Tq4_upp_Put(uint8_t order, uint16_t number, uint8_t *room) { Writer{room, order != host_order}(number); }
void Tq4_upp_Put(uint8_t order, uint32_t number, uint8_t *room) { Writer{room, order != host_order}(number); }
