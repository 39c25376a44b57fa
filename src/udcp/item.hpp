// item.hpp: a connection's record, and what stands in its queue and its two windows.
//
// Everything belongs to the thread that drives the engine. A connection has its windows only while it stands: whether
// there is a receive window is the question whether it does. Records are kept and used again; what a waiting one holds
// is a few hundred bytes.
#pragma once

#include <deque>
#include <memory>
#include <string>

#include "base/charset/conversion.hpp"
#include "base/queue/list.hpp"
#include "own.hpp"
#include "tq4/fsm.h"
#include "tq4/reorder.h"
#include "tq4/sockaddr.h"
#include "tq4/udcp.h"
#include "udcp/scheme.hpp"

struct Tq4_udcp_engine;

// How strings are made and freed. Everything that holds one refers to it.
struct Tq4_udcp_strings {
    Tq4_new_hook make;
    Tq4_delete_hook free;

    Tq4_string Make() const { return static_cast<Tq4_string>(make()); }
    void Free(Tq4_string string) const {
        if (string) free(string);
    }
};

// Nulls replaced by what cxx_support.h has.
Tq4_udcp_strings Tq4_udcp_or_default(Tq4_udcp_strings strings);

// A message that waits for the window. It leaves it in pieces, and each is counted as waiting.
struct Tq4_udcp_SendItem {
    Tq4_string data;      // owned; null for a Timestamp, which has none
    unsigned long offset; // bytes that have left already
    unsigned long len;
    uint8_t safe_flag; // 0, or the safe bit of a command

    unsigned long pieces() const;
};

// A packet in the send window: payload and header.
struct Tq4_ups_data {
    const Tq4_udcp_strings &strings;
    Tq4_string data;    // owned
    uint64_t ts;        // the clock when it was first sent
    uint16_t try_index; // how often it was sent; it stays at the highest
    uint32_t asked;     // the last list of missing numbers that has named it

    Tq4_bytes bytes() const;
};
void Delete_Tq4_ups_data(void *data);

enum class Tq4_up_type : uint8_t { Whole = 0, Fragment = 1, FragmentEnd = 2, Timestamp = 4 };

// A packet in the receive window.
struct Tq4_up_data {
    const Tq4_udcp_strings &strings;
    Tq4_udcp_data info; // its string is owned
    Tq4_up_type type;
    uint64_t ts;      // the peer's time when it was sent
    uint64_t arrival; // the clock when it came
    uint32_t delta;
};
// A zeroed packet around a string, which is taken.
Tq4_up_data *Create_Tq4_up_data(const Tq4_udcp_strings &strings, Tq4_string string, bool safe);
void Delete_Tq4_up_data(void *data);
struct Tq4_up_data_delete {
    void operator()(Tq4_up_data *packet) const { Delete_Tq4_up_data(packet); }
};

struct Tq4_udcp_item {
    // A place in a list of the engine.
    struct Link : Tq4_list_node {
        Tq4_udcp_item *item;
        explicit Link(Tq4_udcp_item *owner) : item(owner) {}
        bool linked() const { return Tq4_list_node_linked(this); }
        static Tq4_udcp_item &item_of(Tq4_list_node *node) { return *static_cast<Link *>(node)->item; }
    };
    struct Codes {
        uint32_t h; // our own
        uint32_t l; // the peer's; any number until it is known
    };
    // What the peer's times count from.
    struct Sync {
        uint64_t local; // our clock when its first packet of the handshake came, or its last Timestamp
        uint64_t peer;  // its time base
    };

    Tq4_udcp_engine &m_engine;
    Tq4_own<Tq4_fsm_item> m_fsm = Tq4_make<Tq4_fsm_item>(Tq4_fsm_item_oitf);
    Tq4_udcp_info m_cbdata;

    // Who is who.
    Tq4_id m_id;  // our own, which the pool gave
    Tq4_id m_rid; // the peer's; zeros until it is known
    Codes m_auth;
    Tq4_own<Tq4_sockaddr> m_peer = Tq4_make<Tq4_sockaddr>(Tq4_sockaddr_oitf);
    Tq4_own<Tq4_sockaddr> m_dialed; // where the application says the peer is; null on the slave
    std::string m_addr;             // the same as it was said, with m_port
    std::string m_key;              // in the address table; empty when it is not there
    const Tq4_udcp_scheme *m_scheme;

    // Sending.
    std::deque<Tq4_udcp_SendItem> m_sendq;
    unsigned long m_waiting; // pieces of what is in it
    Tq4_own<Tq4_reorder> m_send;
    uint64_t m_next_due; // nothing in the send window is late before
    uint32_t m_first_seq;
    uint32_t m_asked; // lists of missing numbers that have come

    // Receiving.
    Tq4_own<Tq4_reorder> m_recv;
    Tq4_string m_fragment; // owned; null when no message is being put together

    // Time.
    Tq4_id m_t_timer;          // of the handshakes, and the one before a new attempt; zeros for none
    unsigned long m_t_firings; // how often it will fire
    Tq4_id m_a_timer;          // of the looks at its life
    Link m_working{this};      // has work at the next tick
    Link m_half_open{this};    // begun by a stranger, not confirmed
    uint64_t m_half_open_due;  // when its handshake is looked at next; the engine times those by itself
    long m_reconnect_ms;       // what the application said about a new attempt; negative for none
    long m_resyn_ms;           // what is being waited for now; negative for nothing
    uint64_t m_timestamp;      // our time base
    Sync m_timestamp_r;

    uint32_t m_expect_seq; // the first number expected; then what a DataAck2 has said: 0
    int m_port;
    int m_events = 0;       // events being handled, one in another
    uint16_t m_unack_count; // packets that came since we last acknowledged
    uint16_t m_unnok_count; // packets that came behind a gap since we last told of gaps
    uint16_t m_repeat;      // attempts of this handshake
    int16_t m_send_active;  // looks at its life until we must speak
    int16_t m_recv_active;  // looks at its life that may still find silence
    bool m_exited = false;  // in the last state: goes back to the pool when all events are over
    bool m_full_notify;     // the application was told that many wait
    bool m_renewing;        // a Timestamp waits
    bool m_confirmed;       // the peer knows what we have received

    explicit Tq4_udcp_item(Tq4_udcp_engine &engine);
    ~Tq4_udcp_item() { Clear(); }
    Tq4_udcp_item(const Tq4_udcp_item &) = delete;
    Tq4_udcp_item &operator=(const Tq4_udcp_item &) = delete;

    // As if it had just been made.
    void Clear();
    // What waits will not be sent.
    void ClearQueue();
    // For another connection of the same two sides: windows, counters and all that the peer had told.
    void ClearConnection();
    bool stands() const { return m_recv != nullptr; }
    bool asked_to_close() const { return m_cbdata.master & 0x80; }
    // The peer speaks from there now.
    void Follow(Tq4_sockaddr sender);
    void ShowPeer();
    // What the application said is shown to it again; nothing on the slave, where it said nothing.
    void ShowDialed();
    void Check() const;
};
