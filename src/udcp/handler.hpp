// handler.hpp: the engine on a thread of its own, with the library's timers and the system's clock.
//
// Datagrams, timers that fired and what the application asks for become messages of one dispatcher, whose thread,
// "Tq4_udcp_handler", alone touches the engine. Other threads only hand over. The network is a function that sends;
// who receives calls OnDatagram.
//
// Datagrams of one turn of the loop leave together: a turn is what waited for the loop when the first of them was made,
// and ends early before the application is called.
//
// The clock is the wall clock at the beginning and a clock that only goes forward since.
#pragma once

#include <atomic>
#include <memory>

#include "tq4/dispatch.h"
#include "tq4/event.h"
#include "tq4/timer.h"
#include "udcp/engine.hpp"
#include "udcp/outbox.hpp"
#include "udcp/recvdata.hpp"

class Tq4_udcp_handler {
public:
    // Sends on the loop's thread; as in the outbox's Way, and send_run may be null.
    struct Network {
        void *context; // borrowed
        int (*send)(void *context, Tq4_sockaddr to, Tq4_bytes datagram);
        int (*send_run)(void *context, Tq4_sockaddr to, Tq4_bytes run, std::size_t length);
    };

    Tq4_udcp_handler(Tq4_udcp pair, const Tq4_udcp_callback &callbacks, const Tq4_udcp_settings &settings,
                     const Network &network);
    ~Tq4_udcp_handler();
    Tq4_udcp_handler(const Tq4_udcp_handler &) = delete;
    Tq4_udcp_handler &operator=(const Tq4_udcp_handler &) = delete;

    // Starts the threads. 1; 0 when the system has none.
    int Start();
    // Closes all connections and ends the threads, for good. Nothing in a callback.
    void Stop();

    // A datagram has come. The string is exchanged for an empty one, or left alone. From one thread at a time; nothing
    // happens while the loop does not run.
    void OnDatagram(Tq4_string *datagram, Tq4_sockaddr sender);

    // From any thread, as the operations of the module. Strings are taken.
    int Connect(const char *addr, int port, Tq4_sockaddr resolved, const Tq4_id *user_id, void *user_data, Tq4_id *out);
    int DisConnect(const Tq4_id *id);
    void Post(const Tq4_id *id, Tq4_string string);
    int Send(const Tq4_id *id, Tq4_string string, bool forced);
    int ChangeDestAddr(const Tq4_id *id, const char *addr, int port, Tq4_sockaddr resolved);
    const Tq4_udcp_strings &strings() const { return m_engine->m_strings; }
    bool OnOwnThread() const { return (*m_loop)->IsSameThread(m_loop.get()); }

private:
    struct Trigger;
    struct Connecting;
    struct Destination;

    Tq4_udcp_world World(Tq4_udcp pair, const Tq4_udcp_callback &callbacks);
    static Tq4_udcp_handler &of(void *context) { return *static_cast<Tq4_udcp_handler *>(context); }
    static void triger(Tq4_timer timer, Tq4_timer_callback *firing);
    void StartTimer(const Tq4_udcp_timer &timer, Tq4_id *id);
    Tq4_udcp_outbox::Way Way();
    void FlushSoon();
    static long Handle(void *context, Tq4_msg *message);
    long Answer(Tq4_msg &message);
    void Dropped(const uint8_t (&base)[Tq4_upp_base_size], Tq4_sockaddr sender);
    static Tq4_id *receiver(const Tq4_id *id) { return const_cast<Tq4_id *>(id); } // the dispatcher copies it

    const Network m_network;
    Tq4_udcp_outbox m_outbox;  // the loop's thread alone
    bool m_will_flush = false; // that thread's: a message that flushes is on its way to it
    bool m_entered = false;    // that thread's: it has handled a message
    // Made by that thread and never destroyed: it ends with the thread.
    alignas(Tq4_cancel_held_around) std::byte m_held[sizeof(Tq4_cancel_held_around)];
    const uint64_t m_clock_base; // wall clock less the clock that only goes forward, milliseconds
    Tq4_udcp_caches m_caches;
    const Tq4_own<Tq4_timer> m_timer = Tq4_make<Tq4_timer>(Tq4_timer_oitf);
    const Tq4_own<Tq4_event> m_ended = Tq4_make<Tq4_event>(Tq4_event_oitf);
    std::unique_ptr<Tq4_udcp_engine> m_engine; // the loop's thread alone, while that runs
    const Tq4_own<Tq4_dispatch> m_loop = Tq4_make<Tq4_dispatch>(Tq4_dispatch_oitf);
    Tq4_udcp_stranger_log m_busy_log;     // the receiving thread's
    std::atomic<bool> m_started{false};   // takes what the application asks for
    std::atomic<bool> m_receiving{false}; // takes datagrams, until the last peer was told of the end
};
