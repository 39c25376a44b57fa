// The module on real sockets: two services on loopback, with a network between them that loses, repeats and reorders.
#include <poll.h>

#include "platform/multi_platform_socket.hpp"
#include "support/killed.hpp"
#include "support/test.hpp"

using namespace std::chrono_literals;

namespace {

sockaddr_in loopback(int port = 0) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

// A bound socket, and the port that the system chose.
struct Udp {
    int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    int port = 0;
    Udp() {
        sockaddr_in address = loopback();
        socklen_t size = sizeof address;
        bind(fd, reinterpret_cast<sockaddr *>(&address), size);
        getsockname(fd, reinterpret_cast<sockaddr *>(&address), &size);
        port = ntohs(address.sin_port);
    }
    ~Udp() { close(fd); }
    Udp(const Udp &) = delete;
    Udp &operator=(const Udp &) = delete;
};

// Carries datagrams between one server and whoever spoke to this port last.
class Lossy_network {
    Udp m_socket;
    const int m_server;
    std::mt19937 m_random{7};
    std::atomic<bool> m_over{false};
    std::string m_held; // a datagram that is overtaken
    sockaddr_in m_held_to{}, m_client = loopback();
    std::thread m_thread{[this] { Run(); }};

public:
    std::atomic<int> lose_percent{0}, hold_percent{0}, repeat_percent{0};
    std::atomic<long> carried{0}, lost{0};

    explicit Lossy_network(int server) : m_server(server) {}
    ~Lossy_network() {
        m_over = true;
        m_thread.join();
    }
    int port() const { return m_socket.port; }

private:
    bool Chance(int percent) { return static_cast<int>(m_random() % 100) < percent; }
    void Send(const std::string &bytes, const sockaddr_in &to) {
        sendto(m_socket.fd, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr *>(&to), sizeof to);
        ++carried;
    }
    void Carry(const std::string &bytes, const sockaddr_in &to) {
        if (Chance(lose_percent)) {
            ++lost;
        } else if (m_held.empty() && Chance(hold_percent)) {
            m_held = bytes;
            m_held_to = to;
        } else {
            Send(bytes, to);
            if (Chance(repeat_percent)) Send(bytes, to);
            if (!m_held.empty()) Send(std::exchange(m_held, ""), m_held_to);
        }
    }
    void Run() {
        std::string bytes;
        while (!m_over) {
            pollfd readable{m_socket.fd, POLLIN, 0};
            if (poll(&readable, 1, 20) <= 0) continue;
            sockaddr_in from{};
            socklen_t size = sizeof from;
            bytes.resize(65536);
            const ssize_t n =
                recvfrom(m_socket.fd, bytes.data(), bytes.size(), 0, reinterpret_cast<sockaddr *>(&from), &size);
            if (n < 0) continue;
            bytes.resize(static_cast<std::size_t>(n));
            const bool to_client = ntohs(from.sin_port) == m_server;
            if (!to_client) m_client = from;
            Carry(bytes, to_client ? m_client : loopback(m_server));
        }
    }
};

// One module object. Callbacks find it by the handle in their info.
struct Side {
    std::atomic<int> up{0}, down{0}, failed{0}, posts{0}, errors{0};
    std::atomic<unsigned long> heard{0}, bytes{0};
    std::function<void(Side &, Tq4_udcp_info *)> on_ok, on_down;
    std::function<void(Side &, Tq4_udcp_info *, Tq4_udcp_data *)> on_data;
    Tq4_udcp u;

    static std::map<Tq4_udcp, Side *> &all() {
        static std::map<Tq4_udcp, Side *> sides;
        return sides;
    }
    static Side &of(Tq4_udcp_info *info) { return *all().at(info->pair); }

    Side() : u(static_cast<Tq4_udcp>(Tq4_udcp_oitf->Create(&callbacks()))) { all()[u] = this; }
    ~Side() { Tq4_udcp_oitf->Delete(u); }
    Side(const Side &) = delete;
    Side &operator=(const Side &) = delete;

    static const Tq4_udcp_callback &callbacks() {
        static const Tq4_udcp_callback made = {
            .OnConnectOk =
                [](Tq4_udcp_info *info) {
                    Side &side = of(info);
                    if (side.on_ok) side.on_ok(side, info);
                    ++side.up;
                },
            .OnConnectFailed = [](Tq4_udcp_info *info) { return ++of(info).failed, -1; },
            .OnDisConnect =
                [](Tq4_udcp_info *info) {
                    Side &side = of(info);
                    if (side.on_down) side.on_down(side, info);
                    return ++side.down, -1;
                },
            .OnData =
                [](Tq4_udcp_info *info, Tq4_udcp_data *data) {
                    Side &side = of(info);
                    if (side.on_data) side.on_data(side, info, data);
                    ++side.heard;
                },
            .OnPost = [](Tq4_udcp_info *info, Tq4_udcp_data *) { ++of(info).posts; },
            .OnSendQeueuStatus = nullptr,
            .OnSendError = [](Tq4_udcp_info *info, Tq4_udcp_data *) { ++of(info).errors; },
        };
        return made;
    }
    Tq4_id connect(int port, void *user_data = nullptr, const char *host = "127.0.0.1") {
        Tq4_id id{};
        EXPECT_GT((*u)->Connect(u, host, port, &id, nullptr, user_data), 0);
        return id;
    }
    int send(const Tq4_id &id, const std::string &text, int flag = 1) {
        return (*u)->Send(u, &id, text.data(), text.size(), flag);
    }
};

template <class Condition> void await(Condition condition) {
    const auto patience = std::chrono::steady_clock::now() + 60s;
    while (!condition() && std::chrono::steady_clock::now() < patience) std::this_thread::sleep_for(1ms);
    EXPECT_TRUE(condition());
}

Tq4_string string_of(const std::string &text) {
    const auto string = static_cast<Tq4_string>(Tq4_string_oitf->Create(nullptr));
    (*string)->Memcpy(string, text.data(), text.size());
    return string;
}

struct Udcp : testing::Test {
    Tq4_own<Tq4_socket> socket = Tq4_make<Tq4_socket>(Tq4_socket_oitf);
    Side client, server;
    int port = 0;

    Udcp() {
        Tq4_debug_api->SetLog([](int, const char *, va_list) {});
        (*socket)->Start(socket.get());
        for (Side *side : {&client, &server}) (*side->u)->Init(side->u, socket.get(), 0);
    }
    ~Udcp() override {
        for (Side *side : {&client, &server}) (*side->u)->Stop(side->u);
        Tq4_debug_api->SetLog(nullptr);
    }
    // The port was free a moment ago.
    void start_server(const char *host = "127.0.0.1") {
        for (int attempt = 0; attempt < 20 && !port; ++attempt) {
            const int free_port = Udp().port;
            if ((*server.u)->Start(server.u, 0, host, free_port) > 0) port = free_port;
        }
        ASSERT_NE(port, 0);
    }
    void start_client(const char *host = nullptr) { ASSERT_GT((*client.u)->Start(client.u, 1, host, 0), 0); }
    void start() {
        start_server();
        start_client();
    }
};

std::string message_of(std::mt19937 &random) {
    const std::size_t sizes[] = {0, 1, 20, 700, 1441, 1442, 1443, 2884, 30000};
    std::string text(sizes[random() % std::size(sizes)], 0);
    for (char &c : text) c = static_cast<char>(random());
    return text;
}

TEST_F(Udcp, MessagesComeOnceWholeAndInOrderOverALossyNetwork) {
    constexpr unsigned long count = 600;
    std::mt19937 sent(1), expected(1), echoed(1);
    std::atomic<unsigned> wrong{0};
    server.on_data = [&](Side &, Tq4_udcp_info *info, Tq4_udcp_data *data) {
        wrong += text_of(data->data) != message_of(expected);
        (*info->pair)->SendString(info->pair, info->id, &data->data, data->safe_flag);
        EXPECT_EQ(data->data, nullptr);
    };
    client.on_data = [&](Side &, Tq4_udcp_info *, Tq4_udcp_data *data) {
        wrong += text_of(data->data) != message_of(echoed);
    };
    start();
    Lossy_network network(port);
    network.lose_percent = 5;
    network.hold_percent = 10;
    network.repeat_percent = 3;
    const Tq4_id id = client.connect(network.port());
    for (unsigned long i = 0; i < count; ++i) ASSERT_EQ(client.send(id, message_of(sent)), 1);
    await([&] { return client.heard == count; });
    EXPECT_EQ(server.heard, count);
    EXPECT_EQ(wrong, 0u);
    EXPECT_GT(network.lost, 0);
    (*client.u)->DisConnect(client.u, &id);
    await([&] { return client.down == 1 && server.down == 1; });
}

TEST_F(Udcp, CallbacksSeeTheConnectionAndSetItsUserFields) {
    int mine = 0;
    server.on_ok = [&](Side &, Tq4_udcp_info *info) {
        EXPECT_EQ(info->master, 0);
        EXPECT_STREQ(info->addr, "127.0.0.1");
        info->user_data = &mine;
        info->user_type = 5;
    };
    server.on_data = [&](Side &, Tq4_udcp_info *info, Tq4_udcp_data *data) {
        EXPECT_EQ(info->user_data, &mine);
        EXPECT_EQ(info->user_type, 5);
        EXPECT_EQ(data->safe_flag, text_of(data->data) == "safe");
    };
    client.on_ok = [&](Side &side, Tq4_udcp_info *info) {
        EXPECT_EQ(info->master, 1);
        EXPECT_EQ(info->port, port);
        EXPECT_EQ(info->user_id.l, 8u);
        EXPECT_EQ(info->user_data, &mine);
        (*side.u)->Stop(side.u); // neither does anything in a callback
        Tq4_udcp_oitf->Delete(side.u);
        side.send(*info->id, "plain", 0);
    };
    client.on_down = [](Side &, Tq4_udcp_info *info) { EXPECT_EQ(info->master & 0xff, 0x81); };
    start();
    const Tq4_id user{7, 8};
    Tq4_id id{};
    ASSERT_GT((*client.u)->Connect(client.u, "localhost", port, &id, &user, &mine), 0);
    EXPECT_EQ(client.send(id, "safe", 1), 1);
    await([&] { return server.heard == 2; });
    EXPECT_EQ((*client.u)->DisConnect(client.u, &id), 1);
    await([&] { return client.down == 1; });
}

TEST_F(Udcp, RefusesWhatIsTooLongAndWhatHasNoRunningThread) {
    const std::string post(TQ4_UDCP_MOST_POST + 1, 'p'), message(TQ4_UDCP_MOST_MESSAGE + 1, 'm');
    Tq4_id id{1, 1};
    const Tq4_udcp u = client.u;
    const auto all_refused = [&] {
        Tq4_string text = string_of("x");
        EXPECT_EQ((*u)->Connect(u, "127.0.0.1", 9, &id, nullptr, nullptr), 0);
        EXPECT_EQ((*u)->DisConnect(u, &id) + (*u)->ChangeDestAddr(u, &id, "127.0.0.1", 9), 0);
        EXPECT_EQ((*u)->Send(u, &id, "x", 1, 1) + (*u)->SendString(u, &id, &text, 1), 0);
        EXPECT_EQ(text, nullptr);
        text = string_of("x");
        (*u)->PostString(u, &id, &text);
        EXPECT_EQ(text, nullptr);
    };
    all_refused();
    start();
    const Tq4_id connection = client.connect(port);
    await([&] { return client.up == 1; });
    (*u)->Post(u, &connection, post.data(), post.size());
    EXPECT_EQ(client.send(connection, message), 0);
    Tq4_string long_text = string_of(message);
    EXPECT_EQ((*u)->SendString(u, &connection, &long_text, 1), 0);
    EXPECT_EQ(long_text, nullptr);
    (*u)->Post(u, &connection, post.data(), post.size() - 1);
    EXPECT_EQ((*u)->Send(u, &connection, "until the end", TQ4_ALL_ONES, 1), 1);
    await([&] { return server.posts == 1 && server.heard == 1; });
    EXPECT_EQ((*u)->Send(u, nullptr, "x", 1, 1), 0);
    EXPECT_EQ((*u)->Connect(u, "127.0.0.1", 0, &id, nullptr, nullptr), 0);
    EXPECT_EQ((*u)->Connect(u, "no.such.host.invalid", 9, &id, nullptr, nullptr), 0);
    EXPECT_EQ((*u)->Connect(u, "::1", 9, &id, nullptr, nullptr), 0); // the socket is one of IPv4
    (*u)->Stop(u);
    all_refused();
}

TEST_F(Udcp, StartsOnceUntilItIsStoppedAndOnlyWithASocket) {
    const Side idle;
    EXPECT_EQ((*idle.u)->Start(idle.u, 1, nullptr, 0), 0); // without Init
    start();
    EXPECT_EQ((*server.u)->Start(server.u, 0, "127.0.0.1", port), 0);
    (*client.u)->Stop(client.u);
    EXPECT_EQ((*client.u)->Start(client.u, 1, "127.0.0.1", port), 0); // taken
    EXPECT_EQ((*client.u)->Start(client.u, 1, "192.0.2.1", 0), 0);    // not ours
    EXPECT_EQ((*client.u)->Start(client.u, 1, "/a/path", 0), 0);
    EXPECT_EQ((*client.u)->Start(client.u, 1, "127.0.0.1", 65536), 0);
    for (int again = 0; again < 3; ++again) {
        start_client("127.0.0.1");
        const int before = server.up;
        client.connect(port);
        await([&] { return server.up == before + 1; });
        (*client.u)->Stop(client.u);
    }
    EXPECT_EQ(client.down, client.up);
}

TEST_F(Udcp, WorksOverIPv6) {
    if (::socket(AF_INET6, SOCK_DGRAM | SOCK_CLOEXEC, 0) < 0) GTEST_SKIP() << "no IPv6 here";
    start_server("::");
    start_client("::");
    client.connect(port, nullptr, "::1");
    client.connect(port, nullptr, "127.0.0.1"); // reached from there, too
    await([&] { return client.up == 2 && server.up == 2; });
}

TEST_F(Udcp, StringsComeFromTheHooksAndGoBack) {
    static std::atomic<long> made, freed;
    made = freed = 0;
    const auto make = []() -> void * { return ++made, Tq4_string_oitf->Create(nullptr); };
    const auto free_string = [](void *string) {
        ++freed;
        Tq4_string_oitf->Delete(string);
    };
    for (Side *side : {&client, &server}) {
        (*side->u)->SetNewString(side->u, make);
        (*side->u)->SetDelString(side->u, free_string);
    }
    std::atomic<long> kept{0};
    server.on_data = [&](Side &, Tq4_udcp_info *, Tq4_udcp_data *data) {
        Tq4_string_oitf->Delete(std::exchange(data->data, nullptr));
        ++kept;
    };
    start();
    const Tq4_id id = client.connect(port);
    for (int i = 0; i < 50; ++i) client.send(id, std::string(static_cast<std::size_t>(100 * i), 'x'));
    await([&] { return kept == 50; });
    (*client.u)->Stop(client.u);
    (*server.u)->Stop(server.u);
    // The socket's own strings are exchanged for those of the caches, so some of either kind end on the other side.
    EXPECT_GT(made, 50);
    EXPECT_GT(freed, 50);
}

TEST_F(Udcp, AThousandConnectionsShareOneSocket) {
    constexpr int count = 1000;
    server.on_data = [](Side &, Tq4_udcp_info *info, Tq4_udcp_data *data) {
        (*info->pair)->SendString(info->pair, info->id, &data->data, 1);
    };
    std::vector<int> heard(count);
    client.on_data = [&](Side &, Tq4_udcp_info *info, Tq4_udcp_data *data) {
        const auto own = reinterpret_cast<std::intptr_t>(info->user_data);
        heard[static_cast<std::size_t>(own)] += text_of(data->data) == std::to_string(own);
    };
    start();
    std::vector<Tq4_id> ids;
    for (std::intptr_t i = 0; i < count; ++i) {
        ids.push_back(client.connect(port, reinterpret_cast<void *>(i)));
        ASSERT_EQ(client.send(ids.back(), std::to_string(i)), 1);
    }
    await([&] { return client.heard == count; });
    (*client.u)->Stop(client.u);
    EXPECT_EQ(heard, std::vector<int>(count, 1));
    EXPECT_EQ(client.down, count);
    await([&] { return server.down == count; });
}

TEST_F(Udcp, EndsWhenItsServiceHasStoppedFirst) {
    start();
    client.connect(port);
    await([&] { return client.up == 1; });
    (*socket)->Stop(socket.get());
    (*client.u)->Stop(client.u); // nobody reads the answers: it takes what a closing takes
    EXPECT_EQ((*client.u)->Start(client.u, 1, nullptr, 0), 0);
}

TEST(UdcpKilled, CallbackThatDoesNotReturnIsKilledAndItsModuleEnds) {
    in_a_child([] {
        Tq4_debug_api->SetLog([](int, const char *, va_list) {});
        const auto socket = Tq4_make<Tq4_socket>(Tq4_socket_oitf);
        (*socket)->Start(socket.get());
        Side client;
        const Side server;
        std::atomic<bool> inside{false};
        client.on_data = [&](Side &, Tq4_udcp_info *, Tq4_udcp_data *) {
            inside = true;
            go_deaf();
        };
        server.all()[server.u]->on_ok = [](Side &side, Tq4_udcp_info *info) { side.send(*info->id, "hello"); };
        (*client.u)->Init(client.u, socket.get(), 0);
        (*server.u)->Init(server.u, socket.get(), 0);
        const int port = Udp().port;
        if ((*server.u)->Start(server.u, 0, "127.0.0.1", port) <= 0) return;
        (*client.u)->Start(client.u, 1, nullptr, 0);
        client.connect(port);
        await([&] { return inside.load(); });
        (*client.u)->Stop(client.u);
        EXPECT_GT((*client.u)->Start(client.u, 1, nullptr, 0), 0); // as new
        client.on_data = nullptr;
        client.connect(port);
        await([&] { return client.heard == 1; });
    });
}

// What the outbox stands on.
TEST(UdcpSocket, OneCallSendsARunThatArrivesAsDatagrams) {
    const Udp sender, receiver;
    const sockaddr_in to = loopback(receiver.port);
    const std::string run = std::string(1472, 'a') + std::string(1472, 'b') + "c";
    ASSERT_EQ(
        MP_SOCK_SendRun(sender.fd, run.data(), run.size(), 1472, reinterpret_cast<const sockaddr *>(&to), sizeof to),
        1);
    char room[4096];
    for (const ssize_t length : {1472, 1472, 1}) EXPECT_EQ(recv(receiver.fd, room, sizeof room, MSG_DONTWAIT), length);
    EXPECT_EQ(MP_SOCK_SendRun(-1, run.data(), run.size(), 1472, reinterpret_cast<const sockaddr *>(&to), sizeof to), 0);
}

TEST(UdcpNull, NullHandlesGiveNothing) {
    const auto owner = Tq4_make<Tq4_udcp>(Tq4_udcp_oitf);
    const Tq4_udcp_ &table = **owner;
    Tq4_id id{};
    Tq4_string text = string_of("x");
    EXPECT_EQ(table.Start(nullptr, 0, nullptr, 0) + table.Connect(nullptr, "", 0, &id, nullptr, nullptr), 0);
    EXPECT_EQ(table.Send(nullptr, &id, "", 0, 0) + table.DisConnect(nullptr, &id), 0);
    EXPECT_EQ(table.SendString(nullptr, &id, &text, 0), 0);
    Tq4_string_oitf->Delete(text);
}

} // namespace
