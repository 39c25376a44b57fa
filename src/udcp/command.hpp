// command.hpp: the commands of the reliable datagram protocol, one row each. What each command is made of, who builds
// it, who handles it and how it waits for the loop derive from these rows; a row without a column does not compile.
//
// A command is five bits. Those from 17 on are the command of their low four bits with the mark for safe data: in a
// datagram only messages and groups carry it, but whatever a stranger marks is taken for the same command.
#pragma once

#include <cstddef>
#include <cstdint>

// X(code, name, fields of the extension, builder, handler, how it is queued, how it is queued when it is marked safe)
#define TQ4_UPP_COMMANDS(X)                                                                                            \
    X(0, Error, 0, Tq4_upp_BuildNothing, Tq4_upf_error, Push, Post)                                                    \
    X(1, Sync, Has_time | Has_schema | Has_repeat, Tq4_upp_BuildSync, Tq4_upf_sync, Push, Post)                        \
    X(2, SynAck, Has_time | Has_schema | Has_sender, Tq4_upp_BuildSyncAck, Tq4_upf_sync_ack, Push, Post)               \
    X(3, SynAck2, 0, Tq4_upp_BuildNothing, Tq4_upf_sync_ack2, Push, Post)                                              \
    X(4, Rst, 0, Tq4_upp_BuildNothing, Tq4_upf_rst, Push, Post)                                                        \
    X(5, RstAck, 0, Tq4_upp_BuildNothing, Tq4_upf_rst_ack, Push, Post)                                                 \
    X(6, RstAck2, 0, Tq4_upp_BuildNothing, Tq4_upf_rst_ack2, Push, Post)                                               \
    X(7, Active, 0, Tq4_upp_BuildNothing, Tq4_upf_active, PushFirst, Post)                                             \
    X(8, DataAck, 0, Tq4_upp_BuildDataAck, Tq4_upf_data_ack, Push, Post)                                               \
    X(9, DataNok, 0, Tq4_upp_BuildDataNok, Tq4_upf_data_nok, Push, Post)                                               \
    X(10, DataAck2, 0, Tq4_upp_BuildDataAck2, Tq4_upf_data_ack2, Push, Post)                                           \
    X(11, Post, 0, Tq4_upp_BuildPost, Tq4_upf_post, Post, Post)                                                        \
    X(12, Data, 0, Tq4_upp_BuildData, Tq4_upf_data, Post, Push)                                                        \
    X(13, Fragment, 0, Tq4_upp_BuildFragment, Tq4_upf_data, Post, Push)                                                \
    X(14, FragmentEnd, 0, Tq4_upp_BuildFragment, Tq4_upf_data, Post, Push)                                             \
    X(15, Group, 0, Tq4_upp_BuildNothing, Tq4_upf_group, Post, Push)                                                   \
    X(16, Timestamp, Has_time, Tq4_upp_BuildTimeStamp, Tq4_upf_timestamp, PushFirst, PushFirst)

enum class Tq4_upp_command : uint8_t {
#define TQ4_UPP_NAME(code, name, ...) name = code,
    TQ4_UPP_COMMANDS(TQ4_UPP_NAME)
#undef TQ4_UPP_NAME
};

inline constexpr unsigned Tq4_upp_command_count = 0
#define TQ4_UPP_ONE(...) +1
    TQ4_UPP_COMMANDS(TQ4_UPP_ONE)
#undef TQ4_UPP_ONE
    ;

// The bits of a header's command byte. The two highest are the sender's byte order.
enum Tq4_upp_bits : uint8_t {
    Tq4_upp_code_bits = 0x1f,
    Tq4_upp_safe_bit = 0x10,
    Tq4_upp_ack_bit = 0x20, // the header acknowledges
    Tq4_upp_order_shift = 6
};

// The command of a code with or without the mark for safe data.
constexpr unsigned Tq4_upp_fold(unsigned code) {
    return code < Tq4_upp_command_count ? code : code & (Tq4_upp_safe_bit - 1u);
}

// How a datagram enters the queue of the loop: what may be lost is refused by a full queue, what a connection stands on
// never is, and what keeps it alive goes in front.
enum class Tq4_upp_queue : uint8_t { Post, Push, PushFirst };

// For a code of five bits.
Tq4_upp_queue Tq4_upp_queue_of(unsigned code);
std::size_t Tq4_upp_header_size(unsigned code);
