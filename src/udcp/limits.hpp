// limits.hpp: the ceilings of the reliable datagram protocol, all above what two honest sides need.
#pragma once

#include "tq4/udcp.h"

inline constexpr unsigned Tq4_udcp_most_connections = 65536;
// Connections that a stranger has begun and not confirmed. Beyond it the oldest is dropped.
inline constexpr unsigned Tq4_udcp_most_half_open = 4096;
// Beyond it a SynAck is repeated only when the Sync is: who invents senders gets one datagram for each of theirs.
inline constexpr unsigned Tq4_udcp_crowd = 256;
// Bytes of fragments whose end has not come.
inline constexpr unsigned long Tq4_udcp_most_fragments = TQ4_UDCP_MOST_MESSAGE;
// Lines of the log about strangers in a second.
inline constexpr unsigned Tq4_udcp_stranger_lines = 100;
// The number of waiting pieces beyond which the application is told, and messages that may be refused are.
inline constexpr unsigned long Tq4_udcp_busy = 1024;
inline constexpr unsigned long Tq4_udcp_most_waiting = 2048;
// Packets of one connection that a tick sends again.
inline constexpr int Tq4_udcp_resends_a_tick = 4;
inline constexpr unsigned long Tq4_udcp_tick_ms = 20;
// How long ticks go on without work: starting them costs more than a few in vain.
inline constexpr unsigned Tq4_udcp_idle_ticks = 50;
// Milliseconds after which a time base is renewed, so that the 32 bits of a delta never wrap.
inline constexpr uint64_t Tq4_udcp_time_base_lasts = 3600000;
// Milliseconds before a new attempt to connect, at least.
inline constexpr long Tq4_udcp_least_reconnect_ms = 200;
// Looks at a connection's life that may pass in silence.
inline constexpr int16_t Tq4_udcp_lives = 4;
// Datagrams that wait for the loop, whatever they are; and caches that are kept for the next ones.
inline constexpr unsigned Tq4_udcp_most_frames = 65536;
inline constexpr unsigned Tq4_udcp_most_spare_caches = 1024;
// Milliseconds that connections have to run down.
inline constexpr unsigned long Tq4_udcp_exit_ms = 5000;
