// simulator.hpp: hosts with an engine each, on a network that exists only here.
//
// Time is virtual, in microseconds, and everything that happens is an event of one queue. All that is random comes from
// one seed, so a seed gives the same run to the byte: trace() tells. What a link does to datagrams stands in Link; what
// a host suffers besides (a clock that is set, an address that changes, a pause) are calls.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <queue>
#include <random>
#include <string>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>

#include "udcp/engine.hpp"

using Microseconds = uint64_t;
constexpr Microseconds ms = 1000, second = 1000 * ms, minute = 60 * second;

// What a link does, one way.
struct Link {
    double bytes_a_second = 0;         // 0: no limit
    std::size_t queue_limit = 1 << 20; // bytes waiting for their turn; more are lost
    Microseconds delay = 0;
    Microseconds jitter = 0; // up to so much more
    bool in_order = true;    // jitter does not reorder
    double loss = 0;
    double burst = 0; // how likely a datagram begins a burst, in which most are lost
    double duplicate = 0;
    double late = 0; // how likely a datagram takes 20 times as long
    double damage = 0;
    bool cut = false;

    // State.
    Microseconds busy_until = 0, last_arrival = 0;
    bool in_burst = false;
};

class Host;

// What a host runs; the calls are the engine's callbacks.
struct Application {
    virtual ~Application() = default;
    virtual void on_ok(Host &, Tq4_udcp_info &) {}
    virtual int on_failed(Host &, Tq4_udcp_info &) { return -1; }
    virtual int on_disconnect(Host &, Tq4_udcp_info &) { return -1; }
    virtual void on_data(Host &, Tq4_udcp_info &, Tq4_udcp_data &) {}
    virtual void on_post(Host &, Tq4_udcp_info &, Tq4_udcp_data &) {}
    virtual void on_status(Host &, Tq4_udcp_info &, int) {}
    virtual void on_error(Host &, Tq4_udcp_info &, Tq4_udcp_data &) {}
};

class Simulator {
public:
    explicit Simulator(unsigned seed) : m_random(seed) { srandom(seed); } // pools draw their first serial there
    ~Simulator();
    Simulator(const Simulator &) = delete;
    Simulator &operator=(const Simulator &) = delete;

    Microseconds now() const { return m_now; }
    Host &add_host(Application &application, Tq4_udcp_settings settings = {});
    Host &host(std::size_t index) { return *m_hosts[index]; }
    std::size_t hosts() const { return m_hosts.size(); }
    // The link from one host to another; all begin perfect.
    Link &link(const Host &from, const Host &to) { return m_links[{&from, &to}]; }
    void each_link(const std::function<void(Link &)> &change);

    // Does something then, now at the earliest.
    void at(Microseconds when, std::function<void()> what) {
        m_events.push({std::max(when, m_now), m_serial++, std::move(what)});
    }
    void after(Microseconds delay, std::function<void()> what) { at(m_now + delay, std::move(what)); }
    // False when there was nothing to do until then.
    bool run_until(Microseconds when);
    bool run_for(Microseconds time) { return run_until(m_now + time); }

    uint32_t random() { return static_cast<uint32_t>(m_random()); }
    uint64_t below(uint64_t n) { return (uint64_t{random()} << 32 | random()) % n; }
    bool chance(double p) { return p > 0 && random() < p * 4294967296.0; }

    // Shown each datagram as it is sent, with its number from 0; true loses it.
    std::function<bool(unsigned long number, const Host &from, Tq4_bytes)> lose;
    unsigned long datagrams() const { return m_datagrams; }

    // What has happened, as one number.
    uint64_t trace() const { return m_trace; }
    void note(const void *bytes, std::size_t size);
    template <class Number> void note(Number number) { note(&number, sizeof number); }

private:
    friend class Host;
    struct Event {
        Microseconds when;
        uint64_t serial;
        std::function<void()> what;
        bool operator<(const Event &other) const {
            return when != other.when ? when > other.when : serial > other.serial;
        }
    };

    int transmit(Host &from, Tq4_sockaddr to, Tq4_bytes datagram);
    void travel(Host &from, Link &link, const std::string &to, std::string datagram);
    void arrive(const std::string &to, const std::string &sender, std::string datagram);
    void damage(std::string &datagram);

    Microseconds m_now = 0;
    uint64_t m_serial = 0;
    std::priority_queue<Event> m_events;
    std::mt19937 m_random;
    std::vector<std::unique_ptr<Host>> m_hosts;
    std::map<std::string, Host *> m_addresses; // "address:port" to who has it now
    std::map<std::pair<const Host *, const Host *>, Link> m_links;
    unsigned long m_datagrams = 0;
    uint64_t m_trace = 14695981039346656037u;
};

class Host {
public:
    Host(Simulator &simulator, Application &application, const Tq4_udcp_settings &settings, unsigned number)
        : m_simulator(simulator), m_application(application), m_number(number),
          m_engine(std::make_unique<Tq4_udcp_engine>(world(), settings)) {
        move("10.0." + std::to_string(number / 250) + "." + std::to_string(number % 250 + 1), 4000);
    }

    Simulator &simulator() { return m_simulator; }
    Tq4_udcp_engine &engine() { return *m_engine; }
    const std::string &address() const { return m_address; }
    int port() const { return m_port; }
    unsigned number() const { return m_number; }
    std::vector<std::string> logged; // kept when keep_log is set
    bool keep_log = false;
    unsigned long stopped_in_vain = 0; // timers that had ended already

    // What happens to a host.
    void move(const std::string &address, int port) {
        m_simulator.m_addresses.erase(key());
        m_address = address;
        m_port = port;
        m_simulator.m_addresses[key()] = this;
    }
    void step_clock(int64_t milliseconds) { m_clock_step += static_cast<uint64_t>(milliseconds); }
    void pause(Microseconds time) { m_paused_until = m_simulator.now() + time; }

    // What its application asks for. From a callback these wait until it is over, as in the module's loop.
    Tq4_id connect(const Host &to, void *user_data = nullptr) {
        Tq4_id id{};
        m_engine->Connect(to.m_address.c_str(), to.m_port, sockaddr_of(to.key()).get(), nullptr, user_data, &id);
        return id;
    }
    int send(const Tq4_id &id, const std::string &text, bool forced = false) {
        return m_engine->Send(id, string_of(text), forced);
    }
    int post(const Tq4_id &id, const std::string &text) { return m_engine->Post(id, string_of(text)); }
    void disconnect(const Tq4_id &id) { m_engine->DisConnect(id); }
    int receive(const std::string &sender, const std::string &datagram) {
        Tq4_string bytes = string_of(datagram);
        const int accepted = m_engine->Receive(&bytes, sockaddr_of(sender).get());
        if (bytes) Tq4_string_oitf->Delete(bytes);
        return accepted;
    }
    std::string key() const { return m_address + ":" + std::to_string(m_port); }

    static Tq4_own<Tq4_sockaddr> sockaddr_of(const std::string &key) {
        sockaddr_in raw{};
        const std::size_t colon = key.rfind(':');
        raw.sin_family = AF_INET;
        inet_pton(AF_INET, key.substr(0, colon).c_str(), &raw.sin_addr);
        raw.sin_port = htons(static_cast<uint16_t>(std::stoi(key.substr(colon + 1))));
        auto made = Tq4_make<Tq4_sockaddr>(Tq4_sockaddr_oitf);
        (*made)->Init2(made.get(), reinterpret_cast<sockaddr *>(&raw), sizeof raw);
        return made;
    }

private:
    friend class Simulator;
    struct Timer {
        Tq4_udcp_timer wanted;
        unsigned long fired = 0;
    };

    static Tq4_string string_of(const std::string &text) {
        const auto string = static_cast<Tq4_string>(Tq4_string_oitf->Create(nullptr));
        (*string)->Memcpy(string, text.data(), text.size());
        return string;
    }
    static Host &of(void *context) { return *static_cast<Host *>(context); }
    static Host &of(Tq4_udcp_info *info) { return *reinterpret_cast<Host *>(const_cast<Tq4_udcp_ **>(info->pair)); }

    // Runs what is for this host, later when it pauses.
    void run(const std::function<void()> &what) {
        if (m_simulator.now() >= m_paused_until) return what();
        m_simulator.at(m_paused_until, [this, what] { run(what); });
    }

    void start(const Tq4_udcp_timer &wanted, Tq4_id *id) {
        *id = {m_number, ++m_last_timer};
        m_timers[m_last_timer] = {wanted};
        fire_in(m_last_timer, wanted.ms);
    }
    // Timers have a tick of 10 ms.
    void fire_in(uint32_t timer, unsigned long milliseconds) {
        m_simulator.after(milliseconds * ms + m_simulator.below(10 * ms),
                          [this, timer] { run([this, timer] { fire(timer); }); });
    }
    void fire(uint32_t number) {
        const auto found = m_timers.find(number);
        if (found == m_timers.end()) return;
        Timer &timer = found->second;
        const Tq4_udcp_timer wanted = timer.wanted;
        const unsigned long n = ++timer.fired;
        const Tq4_id id{m_number, number};
        if (n == wanted.count)
            m_timers.erase(found);
        else
            fire_in(number, wanted.delta ? wanted.delta(&id, n, wanted.ms, nullptr) : wanted.ms);
        m_engine->OnTimer(id, wanted.connection, wanted.message, n);
    }

    Tq4_udcp_world world() {
        Tq4_udcp_world made{};
        made.context = this;
        made.pair = reinterpret_cast<Tq4_udcp>(this);
        made.now = [](void *c) { return 1700000000000u + of(c).m_simulator.now() / ms + of(c).m_clock_step; };
        made.send = [](void *c, Tq4_sockaddr to, Tq4_bytes bytes) {
            return of(c).m_simulator.transmit(of(c), to, bytes);
        };
        made.start_timer = [](void *c, const Tq4_udcp_timer &timer, Tq4_id *id) { of(c).start(timer, id); };
        made.stop_timer = [](void *c, const Tq4_id *id) { of(c).stopped_in_vain += !of(c).m_timers.erase(id->l); };
        made.secret = [](void *c) { return of(c).m_simulator.random(); };
        made.random = [](void *c) { return of(c).m_simulator.random() >> 1; };
        made.log = [](void *c, const char *format, va_list args) {
            char line[256];
            std::vsnprintf(line, sizeof line, format, args);
            if (of(c).keep_log) of(c).logged.emplace_back(line);
        };
        made.deliver = {
            .OnConnectOk = [](Tq4_udcp_info *i) { of(i).noted('k').m_application.on_ok(of(i), *i); },
            .OnConnectFailed = [](Tq4_udcp_info *i) { return of(i).noted('f').m_application.on_failed(of(i), *i); },
            .OnDisConnect = [](Tq4_udcp_info *i) { return of(i).noted('d').m_application.on_disconnect(of(i), *i); },
            .OnData = [](Tq4_udcp_info *i, Tq4_udcp_data *d) { of(i).noted('m').m_application.on_data(of(i), *i, *d); },
            .OnPost = [](Tq4_udcp_info *i, Tq4_udcp_data *d) { of(i).noted('p').m_application.on_post(of(i), *i, *d); },
            .OnSendQeueuStatus = [](Tq4_udcp_info *i, int busy) { of(i).m_application.on_status(of(i), *i, busy); },
            .OnSendError = [](Tq4_udcp_info *i, Tq4_udcp_data *d) { of(i).m_application.on_error(of(i), *i, *d); },
        };
        return made;
    }
    Host &noted(char what) {
        m_simulator.note(m_simulator.now());
        m_simulator.note(m_number);
        m_simulator.note(what);
        return *this;
    }

    Simulator &m_simulator;
    Application &m_application;
    const unsigned m_number;
    std::string m_address;
    int m_port = 0;
    uint64_t m_clock_step = 0;
    Microseconds m_paused_until = 0;
    std::map<uint32_t, Timer> m_timers;
    uint32_t m_last_timer = 0;
    std::unique_ptr<Tq4_udcp_engine> m_engine; // last: it uses the others
};

inline Simulator::~Simulator() = default;

inline Host &Simulator::add_host(Application &application, Tq4_udcp_settings settings) {
    m_hosts.push_back(std::make_unique<Host>(*this, application, settings, static_cast<unsigned>(m_hosts.size())));
    return *m_hosts.back();
}

inline void Simulator::each_link(const std::function<void(Link &)> &change) {
    for (const auto &from : m_hosts)
        for (const auto &to : m_hosts)
            if (from != to) change(link(*from, *to));
}

inline bool Simulator::run_until(Microseconds when) {
    bool any = false;
    while (!m_events.empty() && m_events.top().when <= when) {
        const std::function<void()> what = std::move(const_cast<Event &>(m_events.top()).what); // it goes at once
        m_now = m_events.top().when;
        m_events.pop();
        what();
        any = true;
    }
    m_now = when;
    return any;
}

inline void Simulator::note(const void *bytes, std::size_t size) {
    for (std::size_t i = 0; i < size; ++i)
        m_trace = (m_trace ^ static_cast<const uint8_t *>(bytes)[i]) * 1099511628211u;
}

inline int Simulator::transmit(Host &from, Tq4_sockaddr to, Tq4_bytes datagram) {
    note(m_now);
    note(datagram.data, datagram.size);
    const bool lost = lose && lose(m_datagrams, from, datagram);
    ++m_datagrams;
    const std::string key = std::string((*to)->ip(to)) + ":" + std::to_string((*to)->port(to));
    const auto found = m_addresses.find(key);
    if (lost || found == m_addresses.end()) return 1;
    Link &way = link(from, *found->second);
    if (way.in_burst ? chance(0.2) : chance(way.burst)) way.in_burst = !way.in_burst;
    if (way.cut || chance(way.in_burst ? 0.8 : way.loss)) return 1;
    std::string bytes(reinterpret_cast<const char *>(datagram.data), datagram.size);
    if (chance(way.duplicate)) travel(from, way, key, bytes);
    if (chance(way.damage)) damage(bytes);
    travel(from, way, key, std::move(bytes));
    return 1;
}

inline void Simulator::travel(Host &from, Link &way, const std::string &to, std::string datagram) {
    Microseconds leaves = m_now;
    if (way.bytes_a_second > 0) {
        const double waiting =
            way.busy_until > m_now ? static_cast<double>(way.busy_until - m_now) * way.bytes_a_second / 1e6 : 0;
        if (waiting > static_cast<double>(way.queue_limit)) return;
        way.busy_until = std::max(way.busy_until, m_now) +
                         static_cast<Microseconds>(static_cast<double>(datagram.size()) / way.bytes_a_second * 1e6);
        leaves = way.busy_until;
    }
    Microseconds arrival = leaves + way.delay + (way.jitter ? below(way.jitter) : 0);
    if (chance(way.late))
        arrival += 20 * (way.delay + way.jitter);
    else if (way.in_order)
        arrival = way.last_arrival = std::max(arrival, way.last_arrival);
    at(arrival, [this, to, sender = from.key(), bytes = std::move(datagram)] { arrive(to, sender, bytes); });
}

inline void Simulator::arrive(const std::string &to, const std::string &sender, std::string datagram) {
    const auto found = m_addresses.find(to);
    if (found == m_addresses.end() || datagram.size() < Tq4_upp_base_size) return; // as the module ignores it
    Host &host = *found->second;
    host.run([&host, sender, bytes = std::move(datagram)] { host.receive(sender, bytes); });
}

// Nothing in a datagram tells that it was damaged; that is the network's to find, by its checksum. What that lets pass
// has its codes damaged here, too, in the last eight bytes: otherwise nobody could know.
inline void Simulator::damage(std::string &datagram) {
    switch (random() % 4) {
    case 0:
        datagram.resize(below(datagram.size()));
        break;
    case 1:
        datagram += std::string(random() % 64, 'x');
        break;
    default:
        for (unsigned i = random() % 16; i; --i)
            datagram[below(datagram.size())] ^= static_cast<char>(1 << random() % 8);
    }
    if (datagram.size() >= Tq4_upp_base_size)
        for (std::size_t i = 1; i <= 8; ++i) datagram[datagram.size() - i] ^= static_cast<char>(1 + random() % 255);
}
