// scheme.hpp: the tunings of a connection. Both sides propose one; the connection takes the higher.
#pragma once

#include "tq4/timer.h"

// Milliseconds.
struct Tq4_udcp_timer_value {
    Tq4_timer_delta syn_ms;  // the intervals of the handshake behind the first
    unsigned long _syn_ms;   // the first interval, and what the others grow from
    unsigned long _rst_ms;   // between attempts to close
    unsigned long _act_ms;   // between looks at a connection's life
    unsigned long _exit_ms;  // for the last word of a closing
    unsigned long _rsend_ms; // a packet's nth sending is over when this has passed n times
    unsigned long _ack_ms;   // of no effect: everything is acknowledged at each tick
};

struct Tq4_udcp_queue_scheme {
    int sendq_size;    // packets under way, unacknowledged
    int recvq_size;    // packets that may wait for a missing one
    unsigned nok_size; // missing numbers told at once
    unsigned ack_size; // packets that may go unacknowledged until the next tick
};

struct Tq4_udcp_scheme {
    uint8_t index;
    const Tq4_udcp_timer_value *timer;
    const Tq4_udcp_queue_scheme *wnd;
};

// The next interval of a handshake that has been tried n times: base, n times; and base, doubled three times.
unsigned long Tq4_udcp_delta_ms1(const Tq4_id *id, unsigned long n, unsigned long base, void *data);
unsigned long Tq4_udcp_delta_ms2(const Tq4_id *id, unsigned long n, unsigned long base, void *data);

// The tuning of an index; one above the last is taken for the last.
const Tq4_udcp_scheme &Tq4_udcp_scheme_of(unsigned index);
