// shadow.hpp: an application on many hosts that knows what was sent, and finds what was lost, doubled, reordered or
// altered on the way.
//
// A stream is what one side of one connection sends from one OnConnectOk to the end. Each message names its stream and
// its number in it, and the rest follows from these; so a receiver judges a message by itself and asks the model only
// which number comes next. Each side of a connection hears OnConnectOk and OnDisConnect in turn, and messages only in
// between.
#pragma once

#include "udcp/simulator.hpp"

class Shadow : public Application {
public:
    // How a host's application behaves.
    struct Habit {
        bool active = true;              // sends at all
        Microseconds pause = 2 * second; // between bursts of messages, about
        unsigned burst = 8;              // messages in one, at most
        std::size_t largest = 5000;      // bytes of a message, at most
        double closes = 0;               // how likely it closes a connection instead of sending
        int again = 1000;                // after a lost connection
    };

    explicit Shadow(Simulator &simulator) : m_simulator(simulator) {}

    // Connects and sends until quiet() says stop.
    void open(Host &from, Host &to, const Habit &habit) {
        m_habits[&from] = habit;
        const Tq4_id id = from.connect(to);
        start(from, id, true);
    }
    void set_habit(Host &host, const Habit &habit) { m_habits[&host] = habit; }
    void stop_sending() { m_quiet = true; }

    // After a quiet time on a network that loses nothing: every message of each connection that stands has arrived.
    void expect_all_arrived() {
        for (const auto &[key, end] : m_ends)
            if (end.stands && key.first->engine().Find(key.second))
                expect_arrived(*key.first, end);
            else if (end.stands)
                fault(*key.first, key.second, "stands, and the engine does not know it");
    }

    std::vector<std::string> faults; // what was wrong
    Microseconds stood = 0;          // connections that ended, in sum
    unsigned long sent = 0, received = 0, posts = 0, opened = 0, closed = 0, failed = 0, refused = 0, complete = 0;

private:
    struct Id_less {
        bool operator()(const std::pair<Host *, Tq4_id> &a, const std::pair<Host *, Tq4_id> &b) const {
            return std::tuple(a.first->number(), a.second.h, a.second.l) <
                   std::tuple(b.first->number(), b.second.h, b.second.l);
        }
    };
    // One side of a connection.
    struct End {
        uint32_t stream = 0; // what it sends
        uint32_t next = 0;
        uint32_t heard_stream = 0; // what it hears; 0 before the first message
        uint32_t heard_next = 0;
        bool stands = false;
        bool sending = false; // a burst is planned
        Microseconds since = 0;
    };
    struct Stream {
        uint32_t sent = 0;
        uint32_t heard = 0;
        bool claimed = false; // somebody hears it
    };
    using Key = std::pair<Host *, Tq4_id>;

    void fault(Host &host, const Tq4_id &id, const std::string &what) {
        char place[80];
        std::snprintf(place, sizeof place, "%.3f s, host %u [%08x:%08x]: ",
                      static_cast<double>(m_simulator.now()) / static_cast<double>(second), host.number(), id.h, id.l);
        if (faults.size() < 20) faults.push_back(place + what);
    }
    End &end_of(Host &host, const Tq4_id &id) { return m_ends[{&host, id}]; }

    void begin_stream(End &end) {
        m_streams.emplace_back();
        end.stream = static_cast<uint32_t>(m_streams.size());
        end.next = end.heard_stream = end.heard_next = 0;
    }
    void start(Host &host, const Tq4_id &id, bool early) {
        End &end = end_of(host, id);
        if (early) begin_stream(end);
        plan(host, id);
    }

    // --- Messages ---

    static std::string message(uint32_t stream, uint32_t number, std::size_t size) {
        const uint32_t head[3] = {stream, number, static_cast<uint32_t>(size)};
        std::string text(reinterpret_cast<const char *>(head), sizeof head);
        uint32_t state = stream * 2654435761u ^ number * 40503u ^ 0x9e3779b9u;
        while (text.size() < size + sizeof head) {
            state = state * 1664525u + 1013904223u;
            text.push_back(static_cast<char>(state >> 24));
        }
        return text;
    }
    // What the message claims to be; false when it is not what it claims.
    static bool read(const std::string &text, uint32_t (&head)[3]) {
        if (text.size() < sizeof head) return false;
        std::memcpy(head, text.data(), sizeof head);
        return head[2] == text.size() - sizeof head && text == message(head[0], head[1], head[2]);
    }

    void plan(Host &host, const Tq4_id &id) {
        const Habit &habit = m_habits[&host];
        End &end = end_of(host, id);
        if (end.sending || !habit.active) return;
        end.sending = true;
        m_simulator.after(m_simulator.below(2 * habit.pause), [this, &host, id] {
            End &then = end_of(host, id);
            then.sending = false;
            if (m_quiet || !host.engine().Find(id)) return;
            speak(host, id, then);
            plan(host, id);
        });
    }
    void speak(Host &host, const Tq4_id &id, End &end) {
        const Habit &habit = m_habits[&host];
        if (end.stands && m_simulator.chance(habit.closes)) return host.disconnect(id);
        for (uint64_t n = m_simulator.below(habit.burst) + 1; n; --n) {
            const bool small = m_simulator.chance(0.7);
            const std::size_t size = m_simulator.below((small ? 100 : habit.largest) + 1);
            const std::string text = message(end.stream, end.next, size);
            if (end.stands && m_simulator.chance(0.05)) {
                if (text.size() <= Tq4_upp_most_payload) host.post(id, text);
                continue;
            }
            if (!host.send(id, text, m_simulator.chance(0.3))) continue;
            ++end.next;
            ++m_streams[end.stream - 1].sent;
            ++sent;
        }
    }

    // --- What is heard ---

    void on_ok(Host &host, Tq4_udcp_info &info) override {
        End &end = end_of(host, *info.id);
        if (end.stands) fault(host, *info.id, "stands already");
        if (end.stream == 0) begin_stream(end);
        end.since = m_simulator.now();
        end.heard_stream = end.heard_next = 0;
        end.stands = true;
        ++opened;
        plan(host, *info.id);
    }
    int on_failed(Host &host, Tq4_udcp_info &info) override {
        End &end = end_of(host, *info.id);
        if (end.stands) fault(host, *info.id, "failed while it stood");
        ++failed; // what waits goes on waiting
        return m_habits[&host].again;
    }
    int on_disconnect(Host &host, Tq4_udcp_info &info) override {
        End &end = end_of(host, *info.id);
        if (!end.stands) fault(host, *info.id, "ended without standing");
        end.stands = false;
        if (info.master & 1) stood += m_simulator.now() - end.since;
        begin_stream(end); // what was not heard is lost
        ++closed;
        return m_habits[&host].again;
    }
    void on_data(Host &host, Tq4_udcp_info &info, Tq4_udcp_data &data) override {
        End &end = end_of(host, *info.id);
        uint32_t head[3];
        if (!end.stands) return fault(host, *info.id, "a message outside a connection");
        if (!read(text_of(data.data), head)) return fault(host, *info.id, "a message that is altered");
        Stream &stream = m_streams[head[0] - 1];
        if (end.heard_stream == 0 && !stream.claimed) {
            end.heard_stream = head[0];
            stream.claimed = true;
        }
        if (head[0] != end.heard_stream) return fault(host, *info.id, "a message of another connection");
        if (head[1] != end.heard_next)
            return fault(host, *info.id,
                         "message " + std::to_string(head[1]) + " instead of " + std::to_string(end.heard_next));
        ++end.heard_next;
        ++stream.heard;
        ++received;
    }
    void on_post(Host &host, Tq4_udcp_info &info, Tq4_udcp_data &data) override {
        uint32_t head[3];
        ++posts;
        if (!end_of(host, *info.id).stands) fault(host, *info.id, "a post outside a connection");
        if (!read(text_of(data.data), head)) fault(host, *info.id, "a post that is altered");
    }
    void on_error(Host &, Tq4_udcp_info &, Tq4_udcp_data &) override { ++refused; }

    void expect_arrived(Host &host, const End &end) {
        const Stream &stream = m_streams[end.stream - 1];
        if (stream.heard != stream.sent)
            fault(host, {},
                  "of stream " + std::to_string(end.stream) + " " + std::to_string(stream.heard) +
                      " messages came of " + std::to_string(stream.sent));
        ++complete;
    }

    Simulator &m_simulator;
    std::map<Host *, Habit> m_habits;
    std::map<Key, End, Id_less> m_ends;
    std::vector<Stream> m_streams;
    bool m_quiet = false;
};
