// packet.hpp: a datagram of the reliable datagram protocol, in bytes and as a record.
//
// A datagram is payload, extension and base, in this order: the header stands behind, so that it is appended to a
// message where that lies. Nothing is aligned. Numbers are in the sender's byte order, which the header tells, and come
// out of here in the host's. The bytes are told in docs/wire-formats.md.
#pragma once

#include "base/byte_reader.hpp"
#include "base/charset/conversion.hpp"
#include "tq4/byte_order.h"
#include "tq4/object.h"
#include "udcp/command.hpp"

inline constexpr std::size_t Tq4_upp_base_size = 30;
inline constexpr std::size_t Tq4_upp_most_header = 47;
inline constexpr std::size_t Tq4_upp_most_payload = 1442;
inline constexpr std::size_t Tq4_upp_most_datagram = 1472;
inline constexpr uint8_t Tq4_upp_version = 1;

// A header. What its command does not carry is zero.
struct Tq4_upp_Packet {
    uint8_t ver = 0;
    uint8_t cmd = 0;      // Tq4_upp_bits
    Tq4_id receiver = {}; // the receiver's connection; in a Sync the sender's
    uint32_t seq = 0;     // what it means is the command's affair
    uint32_t ack = 0;     // everything up to it has been received
    uint32_t delta = 0;   // milliseconds since the sender's time base
    uint32_t auth_h = 0;  // the sender's code
    uint32_t auth_l = 0;  // the receiver's
    uint64_t time = 0;    // milliseconds: the sender's time base; in a Timestamp its clock
    uint8_t schema = 0;   // the tuning that the sender proposes, or has chosen
    uint8_t repeat = 0;   // which attempt a Sync is, from 0
    Tq4_id sender = {};   // in a SynAck: the sender's connection
    Tq4_bytes payload{};  // borrowed from the datagram
    uint8_t order = 0;    // the sender's: big or little

    unsigned code() const { return cmd & Tq4_upp_code_bits; }
    unsigned command() const { return Tq4_upp_fold(code()); }
    bool acknowledges() const { return cmd & Tq4_upp_ack_bit; }
    bool safe() const { return cmd & Tq4_upp_safe_bit; }
};

// The order that headers of this host tell: big or little.
uint8_t Tq4_upp_host_order();

// Writes the header, and not the payload, in the byte order that its cmd tells, to room for as many bytes as
// Tq4_upp_header_size says.
void Tq4_upp_Encode(const Tq4_upp_Packet &packet, uint8_t *room);

// Reads a datagram; own_order is what a header means that tells none. The code, five bits; -1 when the datagram is
// shorter than its header, longer than any, or of an order that nobody has.
int Tq4_upp_Decode(Tq4_bytes datagram, uint8_t own_order, Tq4_upp_Packet &packet);

// The numbers that stand in a payload.
class Tq4_upp_numbers {
    Tq4_byte_reader m_bytes;
    const bool m_swap;

public:
    explicit Tq4_upp_numbers(const Tq4_upp_Packet &packet);
    // False when not all of its bytes are there.
    bool Read(uint16_t &number);
    bool Read(uint32_t &number);
    Tq4_bytes Take(std::size_t n) { return m_bytes.Take(n); }
    std::size_t left() const { return m_bytes.left(); }
};

// The messages of a group, one by one:
//     Tq4_upp_group group(packet);
//     while (group.Next(message)) ...
struct Tq4_upp_message {
    Tq4_bytes bytes; // borrowed from the datagram
    bool safe;
};
class Tq4_upp_group {
    Tq4_upp_numbers m_numbers;

public:
    explicit Tq4_upp_group(const Tq4_upp_Packet &packet) : m_numbers(packet) {}
    // Whether entries fill the payload exactly. What is not whole has no messages for anybody.
    static bool Whole(const Tq4_upp_Packet &packet);
    bool Next(Tq4_upp_message &message);
};

// What stands in front of each message in a group.
inline constexpr std::size_t Tq4_upp_entry_size = 2;
inline constexpr uint16_t Tq4_upp_entry_safe = 0x8000;
// Writes a number as a datagram of that order has it.
void Tq4_upp_Put(uint8_t order, uint16_t number, uint8_t *room);
void Tq4_upp_Put(uint8_t order, uint32_t number, uint8_t *room);
