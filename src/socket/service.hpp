// service.hpp: the records of the socket service, and what its files share.
//
// socket.cpp has the operations, the thread and its turns, and what is asked from other threads. connection.cpp has
// connections: making, reading, sending and ending them. listener.cpp and datagram.cpp have the other two kinds.
//
// Everything here but the operations themselves runs on the service thread: the one that Start makes; in Stop, the one
// that stops. It is held back from forced kills, but for the callbacks.
//
// A callback may close any socket. So whoever has called one asks with Lives whether the record is still the same
// socket's, and touches it no more otherwise.
#pragma once

#include <atomic>
#include <memory>
#include <utility>
#include <vector>

#include "identity.hpp"
#include "own.hpp"
#include "platform/multi_platform_epoll.hpp"
#include "platform/multi_platform_pthread.hpp"
#include "platform/multi_platform_socket.hpp"
#include "socket/send_queue.hpp"
#include "socket/wake_up.hpp"
#include "thread/cancel.hpp"
#include "tq4/dispatch.h"
#include "tq4/pool.h"
#include "tq4/socket.h"
#include "tq4/timer.h"
#include "tq4/value_table.h"

enum Tq4_tcp_state {
    Tq4_tcp_UnUsed = 0, // no descriptor: it waits for its next attempt, or is about to go
    Tq4_tcp_Connecting = 1,
    Tq4_tcp_Connected = 2,
};

// What the service is asked for through its dispatcher.
enum Tq4_socket_msg {
    Tq4_socket_msg_Open = 0,
    Tq4_socket_msg_Connect = 1,
    Tq4_socket_msg_Listen = 2,
    Tq4_socket_msg_Close = 3,
    Tq4_socket_msg_Send = 4,
    Tq4_socket_msg_ReConnect = 5,
};

struct Tq4_socket_tcp_info {
    Tq4_tcp_state state = Tq4_tcp_UnUsed;
    unsigned long count = 0;    // attempts to connect
    char master = 0;            // 1: made by this side, may connect again
    Tq4_id reconnet_timer = {}; // zero while no attempt is arranged
    Tq4_id listener = {};       // that is to be told of its end
    Tq4_send_queue m_sendq;
    bool m_has_turn = false;     // it is in m_turns
    bool m_awaits_room = false;  // it is on the write epoll
    bool m_cannot_write = false; // a write failed: the end is about to be read
};

// One socket: a record of the pool.
struct Tq4_sock_item {
    Tq4_socket_info info;         // its addresses are owned, and kept for the next socket
    Tq4_own<Tq4_sockaddr> m_bind; // the local address that it is bound to, or null
    union {
        Tq4_socket_callback callback;
        Tq4_listen_callback listen; // of a listener
    };
    std::unique_ptr<Tq4_socket_tcp_info> tcp; // of a connection

    Tq4_sock_item();
    ~Tq4_sock_item();
    Tq4_sock_item(const Tq4_sock_item &) = delete;
    Tq4_sock_item &operator=(const Tq4_sock_item &) = delete;
    void Reset();

    uint64_t number() const { return uint64_t{info.id.h} << 32 | info.id.l; } // of the epoll
    void TakeUserFields(const Tq4_socket_info &given);
};

struct Tq4_string_obj;
struct Tq4_datagram_room; // of datagram.cpp
struct Tq4_datagram_room_delete {
    void operator()(Tq4_datagram_room *room) const;
};

struct Tq4_socket_obj : Tq4_identity {
    static constexpr unsigned Most_sockets = 65536;
    static constexpr int Most_events = 128;     // of one turn, for reading and for writing
    static constexpr int Longest_wait_ms = 200; // of one turn
    static constexpr int Pause_look_ms = 20;    // of one turn while a listener pauses
    static constexpr unsigned long Stop_wait_ms = 2000;
    static constexpr std::size_t Most_read = 2048; // bytes of one event

    // --- Constant after creation ---
    Tq4_wake_up m_wake_up;
    Tq4_own<Tq4_dispatch> m_loop; // what other threads ask for
    Tq4_own<Tq4_timer> m_timer;   // of the attempts to connect again
    const int m_epfd_read;
    const int m_epfd_write; // watched by the other one
    bool m_is_whole;        // the system gave all descriptors

    // --- Of any thread ---
    Tq4_own<Tq4_lock> m_life;     // held by Start and Stop
    Tq4_own<Tq4_thread> m_thread; // under m_life; null when stopped, or when it is about to release itself
    std::atomic<bool> m_running = false;
    std::atomic<bool> m_in_body = false; // the thread has come to serve, and has not left
    std::atomic<int> m_users = 1;        // the owner, the thread, and who starts or stops; the last one destroys
    std::atomic<unsigned> m_callers = 0; // operations of other threads that are on their way
    std::atomic<unsigned long> m_service_id = 0; // the service thread; 0 while there is none

    // --- The service thread's ---
    Tq4_own<Tq4_pool> m_resource;  // the sockets
    Tq4_string m_buffer = nullptr; // owned; null until it is needed, and when a callback has taken it
    std::vector<uint64_t> m_turns; // connections to write on at the end of the turn
    std::vector<uint64_t> m_turns_taken;
    struct Paused_listener {
        uint64_t number;
        uint64_t until_ms; // monotonic
    };
    std::vector<Paused_listener> m_paused;
    std::unique_ptr<Tq4_datagram_room, Tq4_datagram_room_delete> m_datagrams; // made for the first datagram socket
    Tq4_cancel_held_around *m_held = nullptr; // borrowed: the body's, or the innermost Inside's
    bool m_opens = false;                     // sockets may be opened, and sends are taken
    bool m_self_stopped = false;              // by a callback: the thread releases everything at its end

    Tq4_socket_obj();
    ~Tq4_socket_obj();
    void Reset() { Stop(); }
    bool Retire();

    // socket.cpp: the operations, on any thread
    Tq4_thread Start();
    void Stop();
    int Open(Tq4_socket_info *info, const Tq4_socket_callback *callback);
    int Listen(Tq4_socket_info *info, const Tq4_listen_callback *callback);
    int Connect(Tq4_socket_info *info, const Tq4_socket_callback *callback);
    void Close(const Tq4_id *id);
    int vPrintf(const Tq4_id *id, const char *format, va_list args);
    int SendData(const Tq4_id *id, const void *bytes, unsigned long length);
    int SendString(const Tq4_id *id, Tq4_string *text);

    // socket.cpp: records
    Tq4_socket handle() { return Tq4_handle_of<Tq4_socket>(this); }
    Tq4_sock_item *NewItem();
    Tq4_sock_item *Find(Tq4_id id);
    Tq4_sock_item *Find(uint64_t number) { return Find(Tq4_id{uint32_t(number >> 32), uint32_t(number)}); }
    bool Lives(const Tq4_sock_item *item, Tq4_id id) { return Find(id) == item; }
    // The end of a socket: closes its descriptor, gives its record back, frees the user's object. Calls nothing else.
    void Release(Tq4_sock_item *item);
    void CloseDescriptor(Tq4_sock_item *item);
    bool WatchForReading(Tq4_sock_item *item) {
        return MP_EPOLL_Watch(m_epfd_read, item->info.fd, MP_EPOLL_Readable, item->number());
    }
    Tq4_string_obj &Buffer(); // what is received comes into it
    void TellData(Tq4_sock_item *item);
    template <class Function, class... Args> auto Call(Function function, Args... args) {
        return m_held->Admit([&] { return function(handle(), args...); });
    }

    // datagram.cpp
    void OpenDatagrams(Tq4_socket_info *info, const Tq4_socket_callback *callback);
    void ReadDatagrams(Tq4_sock_item *item);

    // listener.cpp
    void OpenListener(Tq4_socket_info *info, const Tq4_listen_callback *callback);
    void Accept(Tq4_sock_item *listener);
    void ResumeListeners();
    void TellListener(Tq4_sock_item *child); // that a connection has ended

    // connection.cpp
    void OpenConnection(Tq4_socket_info *info, const Tq4_socket_callback *callback);
    void TryToConnect(Tq4_sock_item *item);
    void ConnectAgain(Tq4_sock_item *item);
    void HandleConnection(Tq4_sock_item *item);
    int Send(Tq4_id id, Tq4_string text); // 1: the text is the service's now
    void WriteOn(Tq4_sock_item *item);
    void End(Tq4_sock_item *item); // a socket of any kind, with the callbacks of its end

private:
    // An operation in a callback, or in Stop: a kill takes it only in the callbacks that it makes in its turn.
    class Inside {
        Tq4_socket_obj &m_service;
        Tq4_cancel_held_around m_held;
        Tq4_cancel_held_around *const m_outer = std::exchange(m_service.m_held, &m_held);

    public:
        explicit Inside(Tq4_socket_obj &service) : m_service(service) {}
        ~Inside() { m_service.m_held = m_outer; }
        Inside(const Inside &) = delete;
        Inside &operator=(const Inside &) = delete;
    };

    // socket.cpp: what other threads ask for
    class Caller;
    template <class Callback> struct Opening;
    static long Handle(void *service, Tq4_msg *message);
    long HandleOpen(Tq4_msg *message);
    long HandleConnect(Tq4_msg *message);
    long HandleListen(Tq4_msg *message);
    long HandleClose(Tq4_msg *message);
    long HandleSend(Tq4_msg *message);
    long HandleReConnect(Tq4_msg *message);
    template <class Callback> int AskOpening(Tq4_socket_msg message,
                                             void (Tq4_socket_obj::*open)(Tq4_socket_info *, const Callback *),
                                             Tq4_socket_info *info, const Callback *callback);
    template <class Make> int GiveText(const Tq4_id *id, Make make);
    void CloseNow(Tq4_id id);
    bool OnServiceThread() const { return m_service_id.load(std::memory_order_relaxed) == MP_THREAD_GetCurrentId(); }

    // socket.cpp: the thread, its start and its end
    class Stay {
        const Tq4_cancel_held_around m_held;
        Tq4_socket_obj &m_service;

    public:
        explicit Stay(Tq4_socket_obj &service) : m_service(service) { ++m_service.m_users; }
        ~Stay() { m_service.Leave(); }
        Stay(const Stay &) = delete;
        Stay &operator=(const Stay &) = delete;
    };
    void Leave();
    static unsigned long Body(void *service);
    static void EndBody(void *service);
    void Run();
    void Turn();
    int WaitMs() const;
    void HandleEvent(uint64_t number);
    bool HandleMessages();
    void HandleRoom();
    void WriteTurns();
    void BecomeServiceThread(unsigned long id);
    void EndThread();
    void Finish();
    void ReleaseAll();
    Tq4_sock_item *AnyItem(bool connections_only);

    // datagram.cpp
    int Deliver(Tq4_sock_item *item, const MP_SOCK_Arrival &arrival);
    static void SetSender(Tq4_sock_item *item, const MP_SOCK_Arrival &arrival);

    // listener.cpp
    Tq4_sock_item *Listening(Tq4_socket_info *info, const Tq4_listen_callback &callback);
    void Welcome(Tq4_sock_item *listener, Tq4_sock_item *child);
    void Pause(Tq4_sock_item *listener);

    // connection.cpp
    void FailToBegin(Tq4_sock_item *item, int error);
    void FinishConnecting(Tq4_sock_item *item);
    void BeConnected(Tq4_sock_item *item);
    void EndAttempt(Tq4_sock_item *item, int error);
    void Disconnect(Tq4_sock_item *item);
    void ConnectLaterOrRelease(Tq4_sock_item *item, int delay_ms);
    bool ArrangeReconnection(Tq4_sock_item *item, int delay_ms);
    void Read(Tq4_sock_item *item);
    void TakeTurn(Tq4_sock_item *item);
    bool Write(Tq4_sock_item *item);
    void AwaitRoom(Tq4_sock_item *item, bool awaits);
};
