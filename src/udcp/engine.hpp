// engine.hpp: all connections of one module object, without the world.
//
// The engine takes datagrams, timers that fired and what the application asks for, one at a time and from one thread.
// It reaches the world through one small table. It reads the clock once at the beginning of each, so that all that
// belongs together has one time. Tests and the simulator drive the same engine with a clock, a network and a source of
// random numbers of their own.
//
//     engine.cpp         connections come and go; timers
//     state_machine.cpp  the handshakes, the look at a connection's life, and connecting anew
//     frames.cpp         what each command of a datagram does
//     build.cpp          headers
//     sending.cpp        a message's way into the window and onto the wire, until it is acknowledged
//     receiving.cpp      a packet's way through the window to the application, and acknowledging it
//
// Functions that the application's callbacks are called from may find another connection begun when they go on, and
// never one ended: a connection ends by an event, and goes back to the pool when its last event is over.
#pragma once

#include <cstdarg>
#include <utility>

#include "assert.hpp"
#include "thread/cancel.hpp"
#include "tq4/pool.h"
#include "tq4/strmap.h"
#include "udcp/item.hpp"
#include "udcp/limits.hpp"
#include "udcp/packet.hpp"
#include "udcp/stranger_log.hpp"

// Messages of the loop; those from 8 on are events of the state machine, too.
enum Tq4_udcp_msg : unsigned {
    Tq4_udcp_msg_Stop = 1,
    Tq4_udcp_msg_Connect = 2,
    Tq4_udcp_msg_DisConnect = 3,
    Tq4_udcp_msg_PostData = 4,
    Tq4_udcp_msg_SendData = 5,
    Tq4_udcp_msg_ChangeDstAddr = 6,
    Tq4_udcp_msg_GetPeer = 7,
    Tq4_udcp_msg_USER = 8,
    Tq4_udcp_msg_FRAME = 9,
    Tq4_udcp_msg_TIMER_syn = 10,
    Tq4_udcp_msg_TIMER_resyn = 11,
    Tq4_udcp_msg_TIMER_rst = 12,
    Tq4_udcp_msg_TIMER_act = 13,
    Tq4_udcp_msg_TIMER_err = 14,
    Tq4_udcp_msg_TIMER_exit = 15,
    Tq4_udcp_msg_TIMER_resend = 16,
    Tq4_udcp_msg_TIMER_timestamp = 17
};

// With FRAME: the packet that came. They are no commands of the wire.
enum Tq4_udcp_submsg : unsigned {
    Tq4_udcp_submsg_Syn = 1,
    Tq4_udcp_submsg_SynAck = 2,
    Tq4_udcp_submsg_SynAck2 = 3,
    Tq4_udcp_submsg_Rst = 4,
    Tq4_udcp_submsg_RstAck = 5,
    Tq4_udcp_submsg_RstAck2 = 6,
    Tq4_udcp_submsg_ReSyn = 16
};

// With USER: what the application asks for.
enum Tq4_udcp_usermsg : unsigned { Tq4_udcp_user_connect = 1, Tq4_udcp_user_disconnect = 4 };

// A timer as the engine wants it. When it fires, it is given to OnTimer, with zeros for the connection to Tick.
struct Tq4_udcp_timer {
    Tq4_id connection;
    unsigned message;
    unsigned long count;   // firings; 0 without end
    unsigned long ms;      // the first interval
    Tq4_timer_delta delta; // gives the others; null: the same
};

// The world. All functions are called on the thread that drives the engine.
struct Tq4_udcp_world {
    void *context; // borrowed; handed to each
    // Milliseconds. A clock that is set back is taken to stand still.
    uint64_t (*now)(void *context);
    // Hands a datagram to the network; 0 when that fails. Bytes and address are borrowed for the call. m_sending says
    // which connection it is of.
    int (*send)(void *context, Tq4_sockaddr to, Tq4_bytes datagram);
    // Lets go what send has kept back, since the application comes next, which may take long. Null: send keeps nothing.
    void (*flush)(void *context);
    void (*start_timer)(void *context, const Tq4_udcp_timer &timer, Tq4_id *id);
    void (*stop_timer)(void *context, const Tq4_id *id);
    // A number that strangers cannot guess; and any number.
    uint32_t (*secret)(void *context);
    uint32_t (*random)(void *context);
    void (*log)(void *context, const char *format, va_list args);
    // The application.
    Tq4_udcp pair;
    Tq4_udcp_callback deliver;
};

// How a module object is set up.
struct Tq4_udcp_settings {
    unsigned scheme = 0;
    bool listens = true;
    uint8_t order = Tq4_upp_host_order(); // of what it sends
    Tq4_udcp_strings strings = {};        // nulls: as cxx_support.h has it
};

// A datagram that was read, and its sender.
struct Tq4_udcp_frame {
    Tq4_upp_Packet packet;
    Tq4_string *buffer; // holds the payload and nothing else; a handler that takes the string sets it to null
    Tq4_sockaddr sender;
};

struct Tq4_udcp_engine {
    const Tq4_udcp_world m_world;
    const Tq4_udcp_scheme &m_scheme;
    const uint8_t m_order;
    Tq4_udcp_strings m_strings;

    Tq4_own<Tq4_pool> m_items;       // all connections
    Tq4_own<Tq4_strmap> m_addresses; // "address:port" to the connection half open from there; null: nobody may connect
    Tq4_own<Tq4_fsm> m_fsm;
    Tq4_list m_half_open; // the oldest first
    Tq4_list m_working;
    Tq4_id m_tick = {}; // the timer; zeros for none
    unsigned m_idle_ticks = 0;

    uint64_t m_clock = 0;
    uint64_t m_read = 0;    // what the world's clock said last
    int m_exit_flag = 0;    // 0 running, 1 stopping, 2 stopped
    uint64_t m_dropped = 0; // datagrams that were refused
    Tq4_udcp_stranger_log m_stranger_log;
    Tq4_string m_scratch; // owned; control packets
    // What the application is being shown. It is not on the stack, so that a callback that is killed does not lose it.
    std::unique_ptr<Tq4_up_data, Tq4_up_data_delete> m_shown;
    Tq4_id m_sending = {};
    Tq4_cancel_held_around *m_held =
        nullptr; // borrowed: what keeps kills off the thread that drives; null: nothing does
    uint8_t m_group[Tq4_upp_most_datagram];

    Tq4_udcp_engine(const Tq4_udcp_world &world, const Tq4_udcp_settings &settings);
    ~Tq4_udcp_engine();
    Tq4_udcp_engine(const Tq4_udcp_engine &) = delete;
    Tq4_udcp_engine &operator=(const Tq4_udcp_engine &) = delete;

    // --- What comes in ---

    // A datagram. The string may be taken, and is null then; otherwise its content is not what it was. 1; 0 when the
    // datagram was refused.
    int Receive(Tq4_string *datagram, Tq4_sockaddr sender);
    // A timer has fired for the nth time.
    void OnTimer(const Tq4_id &timer, const Tq4_id &connection, unsigned message, unsigned long n);
    void Tick();

    // --- What the application asks for. Only Connect may be called in a callback. ---

    // 1; 0 when there are no more connections, or on the way out.
    int Connect(const char *addr, int port, Tq4_sockaddr resolved, const Tq4_id *user_id, void *user_data, Tq4_id *out);
    void DisConnect(const Tq4_id &id);
    // Take the string. 0 when the connection refuses.
    int Post(const Tq4_id &id, Tq4_string string);
    int Send(const Tq4_id &id, Tq4_string string, bool forced);
    void ChangeDestAddr(const Tq4_id &id, const char *addr, int port, Tq4_sockaddr resolved);
    // Closes all connections. m_exit_flag is 2 when the last one has ended.
    void BeginExit();
    // What is left ends at once.
    void EndExit();
    unsigned long connections() const { return (*m_items)->Counts(m_items.get()); }

    // --- For the parts ---

    Tq4_udcp_item *Find(const Tq4_id &id) const {
        return static_cast<Tq4_udcp_item *>((*m_items)->Peek(m_items.get(), &id));
    }
    // A connection with an id and codes of its own; null when there are no more.
    Tq4_udcp_item *Begin(bool master);
    // Gives the connection an event. It may be gone afterwards.
    void Drive(Tq4_udcp_item &item, unsigned long message, long submessage);
    bool In(const Tq4_udcp_item &item, const char *state) const;
    void ReadClock();
    void EnterAddress(Tq4_udcp_item &item);
    void LeaveAddress(Tq4_udcp_item &item);
    void StartTimer(Tq4_udcp_item &item, unsigned message, unsigned long count, unsigned long ms,
                    Tq4_timer_delta delta = nullptr);
    void StopTimer(Tq4_id &timer);
    void StartTicks();
    void Work(Tq4_udcp_item &item); // it has some at the next tick
    void Rest(Tq4_udcp_item &item);
    // Calls the application: here, and nowhere else in the engine, a kill may take the thread. After that the engine
    // can only be ended.
    template <class Callback, class... Args> auto Tell(Callback callback, Args... args) {
        if (m_world.flush) m_world.flush(m_world.context);
        const auto call = [=] { return callback(args...); };
        if (!m_held) return call();
        const Telling telling(m_held);
        return telling.held->Admit(call);
    }
    int SendTo(const Tq4_udcp_item &item, Tq4_bytes datagram) {
        m_sending = item.m_id;
        return m_world.send(m_world.context, m_peer_of(item), datagram);
    }
    uint32_t Secret() { return m_world.secret(m_world.context); }
    uint32_t Random() { return m_world.random(m_world.context); }
    void Log(const char *format, ...);
    // A line that strangers can cause.
    void LogStranger(const char *format, ...);
    bool MayLogStranger();

private:
    // While the application is called nothing keeps kills off.
    struct Telling {
        Tq4_cancel_held_around *&current;
        Tq4_cancel_held_around *const held = std::exchange(current, nullptr);
        explicit Telling(Tq4_cancel_held_around *&holding) : current(holding) {}
        ~Telling() { current = held; }
        Telling(const Telling &) = delete;
        Telling &operator=(const Telling &) = delete;
    };

    void LookAtHalfOpen();
    static Tq4_sockaddr m_peer_of(const Tq4_udcp_item &item) { return item.m_peer.get(); }
};

// The bytes of a string, borrowed until it is next changed.
inline Tq4_bytes Tq4_udcp_bytes(Tq4_string string) {
    return {reinterpret_cast<const uint8_t *>((*string)->c_str(string)),
            static_cast<std::size_t>((*string)->length(string))};
}

// --- build.cpp ---

// Appends the header of a command, which may be marked as safe, to what the string holds. seq is the packet's number,
// for commands whose number is not the connection's own affair.
void Tq4_upp_Build(Tq4_udcp_engine &obj, Tq4_udcp_item &item, Tq4_string out, unsigned code, uint32_t seq = 0);
// Builds a packet without payload and sends it.
void Tq4_upp_Send(Tq4_udcp_engine &obj, Tq4_udcp_item &item, Tq4_upp_command command, uint32_t seq = 0);

// --- state_machine.cpp ---

// Declares all states and transitions; 0 when they fit together, as Inspect has it.
int Tq4_udcp_InitFSM(Tq4_fsm machine);
void On_Tq4_udcp_msg_TIMER_act(Tq4_udcp_engine &obj, Tq4_udcp_item &item);

// --- frames.cpp ---

// "address:port": what a half-open connection is found by.
std::string Tq4_udcp_address_key(const char *addr, int port);
int Tq4_udcp_doFrame(Tq4_udcp_engine &obj, Tq4_string *datagram, Tq4_sockaddr sender);

// --- sending.cpp ---

void Tq4_udcp_LogUnsent(Tq4_udcp_engine &obj, const Tq4_id &connection, uint32_t seq);
int Tq4_udcp_item_SendData(Tq4_udcp_engine &obj, Tq4_udcp_item &item, Tq4_string string, bool forced);
int Tq4_udcp_item_PostData(Tq4_udcp_engine &obj, Tq4_udcp_item &item, Tq4_string string);
// Moves waiting messages into the window and onto the wire, as long as there is room.
void Tq4_upi_SendDataInqueue(Tq4_udcp_engine &obj, Tq4_udcp_item &item);
// 0 for a number that was never sent.
int Tq4_upi_OnAck(Tq4_udcp_engine &obj, Tq4_udcp_item &item, uint32_t seq);
void Tq4_upi_OnNok(Tq4_udcp_engine &obj, Tq4_udcp_item &item, const Tq4_upp_Packet &packet);
void Tq4_udcp_resenddata(Tq4_udcp_engine &obj, Tq4_udcp_item &item);

// --- receiving.cpp ---

// Puts a packet into the receive window; the string is taken.
void Tq4_upi_Cache(Tq4_udcp_engine &obj, Tq4_udcp_item &item, const Tq4_upp_Packet &packet, uint32_t seq,
                   Tq4_up_type type, Tq4_string string, bool safe);
// Gives the application what is in order, and acknowledges when much has come. False when the connection has been given
// up and may be gone.
bool Tq4_upi_CheckCache(Tq4_udcp_engine &obj, Tq4_udcp_item &item);
void Tq4_upi_OnAck2(Tq4_udcp_item &item, const Tq4_upp_Packet &packet);
// What a tick tells the peer about what has come.
void Tq4_upi_Acknowledge(Tq4_udcp_engine &obj, Tq4_udcp_item &item);
// How long a packet was on its way.
unsigned Tq4_upi_Delay(const Tq4_udcp_item &item, uint64_t arrival, uint32_t delta);
