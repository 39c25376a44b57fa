// handler: messages in, engine calls out. What a message carries is freed by the dispatcher when it is dropped, so that
// nothing is lost at the end.
#include "udcp/handler.hpp"

#include <cstdlib>
#include <cstring>
#include <iterator>
#include <new>
#include <utility>

#include "platform/multi_platform_pthread.hpp"
#include "platform/multi_platform_system.hpp"
#include "tq4/debug.h"
#include "tq4/system.h"

namespace {

uint64_t clock_base() { return Tq4_system_api->GetTickCount() - MP_THREAD_GetMonotonicMs(); }

uint32_t secret(void *) {
    uint32_t number = 0;
    if (!MP_GetRandom(&number, sizeof number)) number = static_cast<uint32_t>(std::rand());
    return number;
}

constexpr unsigned message_flush = 64; // behind all numbers of the engine

// The number of a datagram that is not decoded yet.
uint32_t number_of(Tq4_bytes datagram) {
    Tq4_upp_Packet packet;
    return Tq4_upp_Decode(datagram, Tq4_upp_host_order(), packet) < 0 ? 0 : packet.seq;
}

bool is_numbered(Tq4_bytes datagram) {
    const uint8_t cmd = datagram.data[datagram.size - Tq4_upp_base_size + 1];
    return (cmd & Tq4_upp_code_bits) >= static_cast<unsigned>(Tq4_upp_command::Data);
}

} // namespace

// What a timer of the engine is for.
struct Tq4_udcp_handler::Trigger {
    Tq4_udcp_handler *handler;
    Tq4_id connection;
    unsigned message;
};

struct Tq4_udcp_handler::Connecting {
    const char *addr;
    int port;
    Tq4_sockaddr resolved;
    const Tq4_id *user_id;
    void *user_data;
    Tq4_id *out;
};

struct Tq4_udcp_handler::Destination {
    std::string addr;
    int port;
    Tq4_own<Tq4_sockaddr> resolved;
};

Tq4_udcp_handler::Tq4_udcp_handler(Tq4_udcp pair, const Tq4_udcp_callback &callbacks, const Tq4_udcp_settings &settings,
                                   const Network &network)
    : m_network(network), m_outbox(Way()), m_clock_base(clock_base()), m_caches(Tq4_udcp_or_default(settings.strings)),
      m_engine(std::make_unique<Tq4_udcp_engine>(World(pair, callbacks), settings)) {}

Tq4_udcp_handler::~Tq4_udcp_handler() { Stop(); }

Tq4_udcp_world Tq4_udcp_handler::World(Tq4_udcp pair, const Tq4_udcp_callback &callbacks) {
    Tq4_udcp_world world{};
    world.context = this;
    world.pair = pair;
    world.deliver = callbacks;
    world.now = [](void *c) { return of(c).m_clock_base + MP_THREAD_GetMonotonicMs(); };
    world.send = [](void *c, Tq4_sockaddr to, Tq4_bytes bytes) {
        of(c).m_outbox.Add(of(c).m_engine->m_sending, to, bytes);
        return 1; // a failure is told when it happens
    };
    world.flush = [](void *c) { of(c).m_outbox.Flush(); };
    world.start_timer = [](void *c, const Tq4_udcp_timer &timer, Tq4_id *id) { of(c).StartTimer(timer, id); };
    world.stop_timer = [](void *c, const Tq4_id *id) {
        const Tq4_timer timer = of(c).m_timer.get();
        (*timer)->ClearTimer(timer, id);
    };
    world.secret = secret;
    world.random = [](void *) { return static_cast<uint32_t>(std::rand()); };
    world.log = [](void *, const char *format, va_list args) { Tq4_debug_api->vlog(Tq4_level_error, format, args); };
    return world;
}

Tq4_udcp_outbox::Way Tq4_udcp_handler::Way() {
    Tq4_udcp_outbox::Way way{};
    way.context = this;
    way.send = [](void *c, Tq4_sockaddr to, Tq4_bytes datagram) {
        const Network &wire = of(c).m_network;
        return wire.send(wire.context, to, datagram);
    };
    if (m_network.send_run)
        way.send_run = [](void *c, Tq4_sockaddr to, Tq4_bytes run, std::size_t length) {
            const Network &wire = of(c).m_network;
            return wire.send_run(wire.context, to, run, length);
        };
    way.failed = [](void *c, const Tq4_id &connection, Tq4_bytes datagram) {
        if (is_numbered(datagram)) Tq4_udcp_LogUnsent(*of(c).m_engine, connection, number_of(datagram));
    };
    return way;
}

// What waits for the loop now comes first. On the way out nothing is put off: the loop may end behind any message.
void Tq4_udcp_handler::FlushSoon() {
    if (m_engine->m_exit_flag) return m_outbox.Flush();
    if (m_outbox.empty() || m_will_flush) return;
    const Tq4_dispatch loop = m_loop.get();
    (*loop)->Push(loop, nullptr, nullptr, message_flush, 0, nullptr, nullptr);
    m_will_flush = true;
}

// --- Threads ---

int Tq4_udcp_handler::Start() {
    const Tq4_dispatch loop = m_loop.get();
    const Tq4_timer timer = m_timer.get();
    if (!(*timer)->Start(timer, "Tq4_udcp")) return 0;
    m_started = m_receiving = (*loop)->Start(loop, this, Handle, "Tq4_udcp_handler") != nullptr;
    return m_started;
}

void Tq4_udcp_handler::Stop() {
    if (OnOwnThread()) return;
    const Tq4_dispatch loop = m_loop.get();
    if (m_started.exchange(false)) {
        (*loop)->Push(loop, nullptr, nullptr, Tq4_udcp_msg_Stop, 0, nullptr, nullptr);
        (*m_ended)->Wait(m_ended.get(), Tq4_udcp_exit_ms);
        m_receiving = false;
        (*loop)->Stop(loop);
        if (const unsigned long left = m_engine->connections())
            m_engine->Log("udcp has %d session to be force exit.\n", static_cast<int>(left));
        else
            m_engine->Log("udcp session exit normally\n");
        m_engine->EndExit();
    }
    (*m_timer)->Stop(m_timer.get());
}

// --- Timers: their thread only hands over. ---

void Tq4_udcp_handler::triger(Tq4_timer, Tq4_timer_callback *firing) {
    auto &trigger = *static_cast<Trigger *>(firing->userdata);
    const Tq4_dispatch loop = trigger.handler->m_loop.get();
    (*loop)->Push(loop, firing->timerid, &trigger.connection, trigger.message, static_cast<long>(firing->repeat),
                  nullptr, nullptr);
}

void Tq4_udcp_handler::StartTimer(const Tq4_udcp_timer &timer, Tq4_id *id) {
    auto *trigger = static_cast<Trigger *>(std::malloc(sizeof(Trigger)));
    *trigger = {this, timer.connection, timer.message};
    if (!(*m_timer)->SetRepeatTimerDelta(m_timer.get(), timer.count, timer.ms, triger, timer.delta, id, trigger,
                                         std::free))
        std::free(trigger);
}

// --- What comes in ---

void Tq4_udcp_handler::OnDatagram(Tq4_string *datagram, Tq4_sockaddr sender) {
    using Hand_over = decltype(Tq4_dispatch_::Push);
    const Tq4_bytes bytes = Tq4_udcp_bytes(*datagram);
    if (bytes.size < Tq4_upp_base_size || !m_receiving) return;
    uint8_t base[Tq4_upp_base_size];
    std::memcpy(base, bytes.data + bytes.size - sizeof base, sizeof base);
    Tq4_udcp_recvdata *cache = m_caches.Take(datagram, sender);
    if (!cache) return Dropped(base, sender);
    const Tq4_dispatch loop = m_loop.get();
    const Hand_over ways[] = {(*loop)->Post, (*loop)->Push, (*loop)->PushFirst};
    const auto way = static_cast<unsigned>(Tq4_upp_queue_of(base[1] & Tq4_upp_code_bits));
    if (!ways[way](loop, nullptr, nullptr, Tq4_udcp_msg_FRAME, 0, cache, Tq4_udcp_caches::GiveBack))
        Dropped(base, sender);
}

void Tq4_udcp_handler::Dropped(const uint8_t (&base)[Tq4_upp_base_size], Tq4_sockaddr sender) {
    if (!m_busy_log.Admits(MP_THREAD_GetMonotonicMs())) return;
    Tq4_debug_api->log(Tq4_level_error, "系统忙，来自%s:%d 的数据包cmd=%x,seq=%u被丢弃\n", (*sender)->ip(sender),
                       (*sender)->port(sender), base[1] & Tq4_upp_code_bits, number_of({base, sizeof base}));
}

// --- What the application asks for ---

int Tq4_udcp_handler::Connect(const char *addr, int port, Tq4_sockaddr resolved, const Tq4_id *user_id, void *user_data,
                              Tq4_id *out) {
    if (!m_started) return 0;
    Connecting connecting{addr, port, resolved, user_id, user_data, out};
    const Tq4_dispatch loop = m_loop.get();
    return static_cast<int>((*loop)->Send(loop, nullptr, nullptr, Tq4_udcp_msg_Connect, 0, &connecting, nullptr));
}

int Tq4_udcp_handler::DisConnect(const Tq4_id *id) {
    const Tq4_dispatch loop = m_loop.get();
    return m_started && (*loop)->Push(loop, nullptr, receiver(id), Tq4_udcp_msg_DisConnect, 0, nullptr, nullptr);
}

void Tq4_udcp_handler::Post(const Tq4_id *id, Tq4_string string) {
    const Tq4_dispatch loop = m_loop.get();
    const Tq4_delete_hook free_string = m_engine->m_strings.free;
    if (!m_started) return free_string(string);
    (*loop)->Post(loop, nullptr, receiver(id), Tq4_udcp_msg_PostData, 0, string, free_string);
}

int Tq4_udcp_handler::Send(const Tq4_id *id, Tq4_string string, bool forced) {
    const Tq4_dispatch loop = m_loop.get();
    const Tq4_delete_hook free_string = m_engine->m_strings.free;
    if (!m_started) return free_string(string), 0;
    const auto way = forced ? (*loop)->Push : (*loop)->Post;
    return static_cast<int>(way(loop, nullptr, receiver(id), Tq4_udcp_msg_SendData, forced, string, free_string));
}

int Tq4_udcp_handler::ChangeDestAddr(const Tq4_id *id, const char *addr, int port, Tq4_sockaddr resolved) {
    if (!m_started) return 0;
    const Tq4_dispatch loop = m_loop.get();
    auto *destination = new Destination{addr, port, nullptr};
    destination->resolved.reset(static_cast<Tq4_sockaddr>(Tq4_sockaddr_oitf->Dup(resolved)));
    return static_cast<int>((*loop)->Push(loop, nullptr, receiver(id), Tq4_udcp_msg_ChangeDstAddr, 0, destination,
                                          [](void *params) { delete static_cast<Destination *>(params); }));
}

// --- The loop ---

namespace {

Tq4_string take(Tq4_msg &message) { return static_cast<Tq4_string>(std::exchange(message.params, nullptr)); }

} // namespace

// A kill takes the thread only in the application's callbacks. From the first message on it is kept off for good, since
// keeping it off for each would cost as much as the message. A callback that asks for a connection has that message
// handled inside its own.
long Tq4_udcp_handler::Handle(void *context, Tq4_msg *message) {
    Tq4_udcp_handler &handler = of(context);
    Tq4_cancel_held_around *&held = handler.m_engine->m_held;
    if (held) return handler.Answer(*message);
    if (!std::exchange(handler.m_entered, true)) {
        held = new (handler.m_held) Tq4_cancel_held_around;
        return handler.Answer(*message);
    }
    Tq4_cancel_held_around in_callback;
    held = &in_callback;
    const long answer = handler.Answer(*message);
    held = nullptr;
    return answer;
}

// What answers each message, by its number. Those behind the last are timers, whose numbers are the engine's events.
long Tq4_udcp_handler::Answer(Tq4_msg &message) {
    using Action = long (*)(Tq4_udcp_engine &, Tq4_msg &);
    constexpr Action nothing = [](Tq4_udcp_engine &, Tq4_msg &) { return 0l; };
    static constexpr Action actions[] = {
        nothing,
        [](Tq4_udcp_engine &engine, Tq4_msg &) { return engine.BeginExit(), 1l; },
        [](Tq4_udcp_engine &engine, Tq4_msg &m) {
            const auto &c = *static_cast<Connecting *>(m.params);
            return long{engine.Connect(c.addr, c.port, c.resolved, c.user_id, c.user_data, c.out)};
        },
        [](Tq4_udcp_engine &engine, Tq4_msg &m) { return engine.DisConnect(*m.receiver), 1l; },
        [](Tq4_udcp_engine &engine, Tq4_msg &m) { return long{engine.Post(*m.receiver, take(m))}; },
        [](Tq4_udcp_engine &engine, Tq4_msg &m) { return long{engine.Send(*m.receiver, take(m), m.submsg != 0)}; },
        [](Tq4_udcp_engine &engine, Tq4_msg &m) {
            const auto &to = *static_cast<Destination *>(m.params);
            return engine.ChangeDestAddr(*m.receiver, to.addr.c_str(), to.port, to.resolved.get()), 1l;
        },
        nothing,
        nothing,
        [](Tq4_udcp_engine &engine, Tq4_msg &m) {
            auto &cache = *static_cast<Tq4_udcp_recvdata *>(m.params);
            return long{engine.Receive(&cache.buffer, cache.sender.get())};
        },
    };
    static_assert(std::size(actions) == Tq4_udcp_msg_FRAME + 1);
    long answer = 1;
    if (message.msg == message_flush) {
        m_will_flush = false;
        m_outbox.Flush();
    } else if (message.msg < std::size(actions))
        answer = actions[message.msg](*m_engine, message);
    else
        m_engine->OnTimer(*message.sender, *message.receiver, static_cast<unsigned>(message.msg),
                          static_cast<unsigned long>(message.submsg));
    FlushSoon();
    if (m_engine->m_exit_flag == 2) (*m_ended)->Set(m_ended.get());
    return answer;
}
