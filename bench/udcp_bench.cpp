// Reliable datagrams beside ENet, on loopback: how much goes through, how long a small message takes there and back,
// and how late messages are when the network loses datagrams. Both sides of a pair live in this process.
//
// Two benchmarks have no peer. They tell what many idle connections cost (counters: percent of a core and KiB for each,
// both sides together), and how many of a hundred honest connects succeed while strangers invent senders.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <arpa/inet.h>
#include <atomic>
#include <chrono>
#include <cstring>
#include <fstream>
#include <functional>
#include <netinet/in.h>
#include <poll.h>
#include <random>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "tq4/tq4.h"

#ifdef HAVE_ENET
#include <enet/enet.h>
#endif

namespace {

using Clock = std::chrono::steady_clock;

// What a receiver does with a message, on the receiver's thread.
using Receive = std::function<void(const char *bytes, std::size_t size)>;

sockaddr_in loopback(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<uint16_t>(port));
    return address;
}

int bound_socket(int *port) {
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = loopback(0);
    socklen_t size = sizeof address;
    bind(fd, reinterpret_cast<sockaddr *>(&address), size);
    getsockname(fd, reinterpret_cast<sockaddr *>(&address), &size);
    *port = ntohs(address.sin_port);
    return fd;
}

// --- The two libraries: a sender, a receiver that may answer, and connections from one to the other ---
//
// One thread drives the sender. wait() gives the library that thread's time, or sleeps; what is to be received is said
// before messages go.

class Tq4_pair {
    const Tq4_socket m_socket = static_cast<Tq4_socket>(Tq4_socket_oitf->Create(nullptr));
    const Tq4_udcp m_server = make(), m_client = make();
    std::atomic<int> m_standing{0};
    std::vector<Tq4_id> m_ids;

    static inline Tq4_pair *the = nullptr; // the callbacks'
    static Tq4_udcp make() {
        static constexpr Tq4_udcp_callback callbacks = {
            .OnConnectOk = [](Tq4_udcp_info *info) { the->m_standing += info->master; },
            .OnConnectFailed = nullptr,
            .OnDisConnect = nullptr,
            .OnData = OnData,
            .OnPost = nullptr,
            .OnSendQeueuStatus = nullptr,
            .OnSendError = nullptr,
        };
        return static_cast<Tq4_udcp>(Tq4_udcp_oitf->Create(&callbacks));
    }
    static void OnData(Tq4_udcp_info *info, Tq4_udcp_data *data) {
        const char *bytes = (*data->data)->c_str(data->data);
        const auto size = static_cast<std::size_t>((*data->data)->length(data->data));
        if (info->master) return the->on_client(bytes, size);
        the->on_server(bytes, size);
        if (the->echoes) (*info->pair)->SendString(info->pair, info->id, &data->data, 1);
    }

public:
    Receive on_server = [](const char *, std::size_t) {}, on_client = on_server;
    bool echoes = false;
    int port = 0;

    Tq4_pair() {
        the = this;
        Tq4_debug_api->SetPrint([](int, const char *, va_list) {});
        Tq4_debug_api->SetLog([](int, const char *, va_list) {});
        (*m_socket)->Start(m_socket);
        (*m_server)->Init(m_server, m_socket, 0);
        (*m_client)->Init(m_client, m_socket, 0);
        do close(bound_socket(&port));
        while ((*m_server)->Start(m_server, 0, "127.0.0.1", port) <= 0);
        (*m_client)->Start(m_client, 1, "127.0.0.1", 0);
    }
    ~Tq4_pair() {
        Tq4_udcp_oitf->Delete(m_client);
        Tq4_udcp_oitf->Delete(m_server);
        Tq4_socket_oitf->Delete(m_socket);
    }
    void connect(int count, int to_port) {
        m_ids.resize(static_cast<std::size_t>(count));
        for (Tq4_id &id : m_ids) (*m_client)->Connect(m_client, "127.0.0.1", to_port, &id, nullptr, nullptr);
        while (m_standing < count) wait();
    }
    int standing() const { return m_standing; }
    void begin(int to_port) {
        Tq4_id id;
        (*m_client)->Connect(m_client, "127.0.0.1", to_port, &id, nullptr, nullptr);
    }
    void send(int connection, const char *bytes, std::size_t size) {
        (*m_client)->Send(m_client, &m_ids[static_cast<std::size_t>(connection)], bytes, size, 1);
    }
    void flush() {}
    void wait() { std::this_thread::sleep_for(std::chrono::microseconds(50)); }
};

#ifdef HAVE_ENET
class Enet_pair {
    ENetHost *m_server, *m_client;
    std::vector<ENetPeer *> m_peers;
    int m_standing = 0;
    std::atomic<bool> m_over{false};
    std::thread m_thread;

    static ENetPacket *packet(const void *bytes, std::size_t size) {
        return enet_packet_create(bytes, size, ENET_PACKET_FLAG_RELIABLE);
    }
    static ENetAddress address_of(int port) {
        ENetAddress address;
        enet_address_set_host_ip(&address, "127.0.0.1");
        address.port = static_cast<enet_uint16>(port);
        return address;
    }
    // All events that are there, after waiting for one.
    void handle(ENetHost *host, enet_uint32 ms, const Receive &receive) {
        ENetEvent event;
        for (int more = enet_host_service(host, &event, ms); more > 0; more = enet_host_check_events(host, &event)) {
            if (event.type == ENET_EVENT_TYPE_CONNECT && host == m_client) ++m_standing;
            if (event.type != ENET_EVENT_TYPE_RECEIVE) continue;
            receive(reinterpret_cast<const char *>(event.packet->data), event.packet->dataLength);
            if (host == m_server && echoes) {
                enet_peer_send(event.peer, 0, packet(event.packet->data, event.packet->dataLength));
                enet_host_flush(m_server);
            }
            enet_packet_destroy(event.packet);
        }
    }

public:
    Receive on_server = [](const char *, std::size_t) {}, on_client = on_server;
    bool echoes = false;
    int port = 0;

    Enet_pair() {
        enet_initialize();
        do {
            close(bound_socket(&port));
            const ENetAddress address = address_of(port);
            m_server = enet_host_create(&address, 256, 1, 0, 0);
        } while (!m_server);
        m_client = enet_host_create(nullptr, 256, 1, 0, 0);
    }
    ~Enet_pair() {
        m_over = true;
        m_thread.join();
        enet_host_destroy(m_client);
        enet_host_destroy(m_server);
    }
    void connect(int count, int to_port) {
        m_thread = std::thread([this] {
            while (!m_over) handle(m_server, 10, on_server);
        });
        const ENetAddress address = address_of(to_port);
        for (int i = 0; i < count; ++i) m_peers.push_back(enet_host_connect(m_client, &address, 1, 0));
        while (m_standing < count) wait();
    }
    void send(int connection, const char *bytes, std::size_t size) {
        enet_peer_send(m_peers[static_cast<std::size_t>(connection)], 0, packet(bytes, size));
    }
    void flush() { enet_host_flush(m_client); }
    void wait() { handle(m_client, 1, on_client); }
};
#endif

// --- How much goes through ---

// Never more than so many messages ahead of the receiver, so that neither library fills memory.
template <class Pair> void stream(benchmark::State &state) {
    constexpr long count = 20000, ahead = 2000;
    const std::string message(static_cast<std::size_t>(state.range(0)), 'x');
    std::atomic<long> received{0};
    Pair pair;
    pair.on_server = [&](const char *, std::size_t) { received.fetch_add(1, std::memory_order_relaxed); };
    pair.connect(1, pair.port);
    for (auto _ : state) {
        received = 0;
        for (long sent = 0; sent < count; ++sent) {
            while (sent - received >= ahead) pair.wait();
            pair.send(0, message.data(), message.size());
        }
        while (received < count) pair.wait();
    }
    state.SetBytesProcessed(state.iterations() * count * state.range(0));
}

// --- There and back ---

template <class Pair> void round_trip(benchmark::State &state) {
    constexpr long count = 1000;
    const std::string message(64, 'x');
    std::atomic<long> back{0};
    Pair pair;
    const auto send = [&] {
        pair.send(0, message.data(), message.size());
        pair.flush();
    };
    pair.echoes = true;
    pair.on_client = [&](const char *, std::size_t) {
        if (++back < count) send();
    };
    pair.connect(1, pair.port);
    for (auto _ : state) {
        back = 0;
        send();
        while (back < count) pair.wait();
    }
    state.SetItemsProcessed(state.iterations() * count);
}

// --- With loss ---

// Carries datagrams between a receiver's port and one sender, and drops some.
class Lossy_network {
    int m_port = 0;
    const int m_fd = bound_socket(&m_port);
    const int m_receiver;
    const double m_loss;
    std::atomic<bool> m_over{false};
    std::thread m_thread;

    void run() {
        std::mt19937 random(5);
        std::uniform_real_distribution<double> chance;
        sockaddr_in sender{}, from{};
        std::vector<char> room(65536);
        while (!m_over) {
            pollfd readable{m_fd, POLLIN, 0};
            if (poll(&readable, 1, 20) <= 0) continue;
            socklen_t size = sizeof from;
            const ssize_t n = recvfrom(m_fd, room.data(), room.size(), 0, reinterpret_cast<sockaddr *>(&from), &size);
            const bool back = ntohs(from.sin_port) == m_receiver;
            if (!back) sender = from;
            if (n < 0 || chance(random) < m_loss) continue;
            const sockaddr_in to = back ? sender : loopback(m_receiver);
            sendto(m_fd, room.data(), static_cast<std::size_t>(n), 0, reinterpret_cast<const sockaddr *>(&to),
                   sizeof to);
        }
    }

public:
    Lossy_network(int receiver, double loss) : m_receiver(receiver), m_loss(loss) {
        m_thread = std::thread([this] { run(); });
    }
    ~Lossy_network() {
        m_over = true;
        m_thread.join();
        close(m_fd);
    }
    int port() const { return m_port; }
};

// 50 messages a second on each of many connections. The time is the 99th percentile of how long they are on their way.
template <class Pair> void delivery(benchmark::State &state) {
    constexpr int connections = 40, rounds = 100;
    constexpr auto pause = std::chrono::milliseconds(20);
    std::vector<double> late(connections * rounds);
    std::atomic<std::size_t> came{0};
    Pair pair;
    const Lossy_network network(pair.port, static_cast<double>(state.range(0)) / 100);
    pair.on_server = [&](const char *bytes, std::size_t) {
        Clock::time_point sent;
        std::memcpy(&sent, bytes, sizeof sent);
        late[came] = std::chrono::duration<double>(Clock::now() - sent).count();
        ++came;
    };
    pair.connect(connections, network.port());
    for (auto _ : state) {
        came = 0;
        const auto begin = Clock::now();
        for (int round = 0; round < rounds; ++round) {
            while (Clock::now() < begin + round * pause) pair.wait();
            for (int i = 0; i < connections; ++i) {
                char message[64] = {};
                const auto now = Clock::now();
                std::memcpy(message, &now, sizeof now);
                pair.send(i, message, sizeof message);
            }
            pair.flush();
        }
        while (came < late.size()) pair.wait();
        const auto percentile = late.begin() + static_cast<long>(late.size()) * 99 / 100;
        std::nth_element(late.begin(), percentile, late.end());
        state.SetIterationTime(*percentile);
    }
}

// --- Many connections, and strangers ---

double processor_seconds() {
    timespec used{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &used);
    return static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) / 1e9;
}

double resident_kib() {
    std::ifstream pages("/proc/self/statm");
    double size = 0, resident = 0;
    pages >> size >> resident;
    return resident * static_cast<double>(sysconf(_SC_PAGESIZE)) / 1024;
}

void idle(benchmark::State &state) {
    const auto count = static_cast<int>(state.range(0));
    constexpr auto watched = std::chrono::seconds(10);
    const double empty = resident_kib();
    Tq4_pair pair;
    pair.connect(count, pair.port);
    for (auto _ : state) {
        const double before = processor_seconds();
        std::this_thread::sleep_for(watched);
        const double used = processor_seconds() - before;
        state.SetIterationTime(used);
        state.counters["percent"] = 100 * used / std::chrono::duration<double>(watched).count();
        state.counters["KiB"] = (resident_kib() - empty) / count;
    }
}

// Sends Syncs, each from an address of its own, as fast as it is told.
class Strangers {
    const int m_port, m_a_second;
    std::atomic<bool> m_over{false};
    std::atomic<long> m_sent{0};
    std::thread m_thread{[this] { run(); }};

    void send(int fd, std::mt19937 &random) {
        unsigned char sync[40];
        for (unsigned char &byte : sync) byte = static_cast<unsigned char>(random());
        sync[8] = sync[9] = 0;         // tuning and attempt
        sync[10] = 1, sync[11] = 0x81; // version; a Sync, little-endian
        sockaddr_in to = loopback(m_port);
        alignas(cmsghdr) char room[CMSG_SPACE(sizeof(in_pktinfo))] = {};
        iovec bytes{sync, sizeof sync};
        msghdr message{&to, sizeof to, &bytes, 1, room, sizeof room, 0};
        cmsghdr *control = CMSG_FIRSTHDR(&message);
        *control = {CMSG_LEN(sizeof(in_pktinfo)), IPPROTO_IP, IP_PKTINFO};
        in_pktinfo from{};
        from.ipi_spec_dst.s_addr = htonl(0x7f000000 | (random() & 0xffffff));
        std::memcpy(CMSG_DATA(control), &from, sizeof from);
        m_sent += sendmsg(fd, &message, 0) > 0;
    }
    void run() {
        const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        std::mt19937 random(3);
        const auto begin = Clock::now();
        for (long sent = 0; !m_over; ++sent) {
            while (Clock::now() < begin + sent * std::chrono::nanoseconds(1'000'000'000 / m_a_second) && !m_over)
                std::this_thread::sleep_for(std::chrono::microseconds(200));
            send(fd, random);
        }
        close(fd);
    }

public:
    Strangers(int port, int a_second) : m_port(port), m_a_second(a_second) {}
    ~Strangers() {
        m_over = true;
        m_thread.join();
    }
    long sent() const { return m_sent; }
};

void spoofed(benchmark::State &state) {
    constexpr int honest = 1000;
    Tq4_pair pair;
    for (auto _ : state) {
        Strangers strangers(pair.port, static_cast<int>(state.range(0)));
        const int before = pair.standing();
        const auto begin = Clock::now();
        for (int i = 0; i < honest; ++i) {
            pair.begin(pair.port);
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        std::this_thread::sleep_for(std::chrono::seconds(2));
        const double seconds = std::chrono::duration<double>(Clock::now() - begin).count();
        state.SetIterationTime(seconds);
        state.counters["strangers_a_second"] = static_cast<double>(strangers.sent()) / seconds;
        state.counters["honest_percent"] = 100.0 * (pair.standing() - before) / honest;
    }
}

void sizes(benchmark::internal::Benchmark *each) { each->Arg(1442)->Arg(64)->UseRealTime(); }
void losses(benchmark::internal::Benchmark *each) { each->Arg(1)->Arg(5)->UseManualTime()->Iterations(1); }

BENCHMARK(stream<Tq4_pair>)->Name("udcp_stream/tq4")->Apply(sizes);
BENCHMARK(round_trip<Tq4_pair>)->Name("udcp_round_trip/tq4")->UseRealTime();
BENCHMARK(delivery<Tq4_pair>)->Name("udcp_delivery/tq4")->Apply(losses);
BENCHMARK(idle)->Name("udcp_idle/tq4")->Arg(10000)->UseManualTime()->Iterations(1)->Repetitions(1);
BENCHMARK(spoofed)->Name("udcp_spoofed/tq4")->Arg(50000)->UseManualTime()->Iterations(1)->Repetitions(1);
#ifdef HAVE_ENET
BENCHMARK(stream<Enet_pair>)->Name("udcp_stream/enet")->Apply(sizes);
BENCHMARK(round_trip<Enet_pair>)->Name("udcp_round_trip/enet")->UseRealTime();
BENCHMARK(delivery<Enet_pair>)->Name("udcp_delivery/enet")->Apply(losses);
#endif

} // namespace
