// The module on real sockets of the loopback: who runs what, what is refused, and how it ends. What bad networks do to
// messages is told with the simulator.
#include "platform/multi_platform_socket.hpp"
#include "support/fault_sweep.hpp"
#include "support/killed.hpp"

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

// One module object. Callbacks find it by the handle in their info.
struct Side {
    using Hook = std::function<void(Side &, Tq4_udcp_info *)>;
    std::atomic<int> up{0}, down{0}, posts{0};
    std::atomic<unsigned long> heard{0};
    Hook on_ok, on_down;
    std::function<void(Side &, Tq4_udcp_info *, Tq4_udcp_data *)> on_data;
    Tq4_udcp u;

    static inline std::map<Tq4_udcp, Side *> all;
    static Side &of(Tq4_udcp_info *info) { return *all.at(info->pair); }

    Side() : u(static_cast<Tq4_udcp>(Tq4_udcp_oitf->Create(&callbacks()))) { all[u] = this; }
    ~Side() { Tq4_udcp_oitf->Delete(u); }
    Side(const Side &) = delete;
    Side &operator=(const Side &) = delete;

    static const Tq4_udcp_callback &callbacks() {
        static constexpr Tq4_udcp_callback made = {
            .OnConnectOk =
                [](Tq4_udcp_info *info) {
                    Side &side = of(info);
                    if (side.on_ok) side.on_ok(side, info);
                    ++side.up;
                },
            .OnConnectFailed = nullptr,
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
            .OnSendError = nullptr,
        };
        return made;
    }
    static void echo(Side &, Tq4_udcp_info *info, Tq4_udcp_data *data) {
        (*info->pair)->SendString(info->pair, info->id, &data->data, data->safe_flag);
        EXPECT_EQ(data->data, nullptr);
    }
    Tq4_id connect(int port, void *user_data = nullptr, const char *host = "127.0.0.1") {
        Tq4_id id{};
        EXPECT_GT((*u)->Connect(u, host, port, &id, nullptr, user_data), 0);
        return id;
    }
    int send(const Tq4_id &id, const std::string &text, int flag = 1) {
        return (*u)->Send(u, &id, text.data(), text.size(), flag);
    }
    int start(const char *host, int port = 0) { return (*u)->Start(u, port == 0, host, port); }
    void stop() { (*u)->Stop(u); }
};

template <class Condition> bool within(std::chrono::milliseconds patience, Condition condition) {
    const auto end = std::chrono::steady_clock::now() + patience;
    while (!condition() && std::chrono::steady_clock::now() < end) std::this_thread::sleep_for(1ms);
    return condition();
}
template <class Condition> void await(Condition condition) { EXPECT_TRUE(within(60s, condition)); }

Tq4_string string_of(const std::string &text) {
    const auto string = static_cast<Tq4_string>(Tq4_string_oitf->Create(nullptr));
    (*string)->Memcpy(string, text.data(), text.size());
    return string;
}

// Two modules on one service.
struct Sides {
    Tq4_own<Tq4_socket> socket = Tq4_make<Tq4_socket>(Tq4_socket_oitf);
    Side client, server;
    int port = 0;

    Sides() {
        Tq4_debug_api->SetLog([](int, const char *, va_list) {});
        (*socket)->Start(socket.get());
        server.on_data = Side::echo;
        for (Side *side : {&client, &server}) (*side->u)->Init(side->u, socket.get(), 0);
    }
    ~Sides() {
        stop();
        Tq4_debug_api->SetLog(nullptr);
    }
    void stop() {
        client.stop();
        server.stop();
    }
    bool start_at(int free_port, const char *local = nullptr) {
        port = free_port;
        return server.start(local, port) > 0 && client.start(local) > 0;
    }
    bool start(const char *local = nullptr) {
        for (int attempt = 0; attempt < 20; ++attempt) {
            const int free_port = Udp().port; // a moment ago
            if (start_at(free_port, local)) return true;
            stop();
        }
        return false;
    }
    // A new connection over which a message goes and comes back.
    bool serves(std::chrono::milliseconds patience) {
        const unsigned long before = client.heard;
        Tq4_id id{};
        return (*client.u)->Connect(client.u, "127.0.0.1", port, &id, nullptr, nullptr) > 0 &&
               client.send(id, "message") && within(patience, [&] { return client.heard > before; });
    }
};

struct Udcp : testing::Test, Sides {
    void start_both(const char *local = nullptr) { ASSERT_TRUE(start(local)); }
};

std::string message_of(std::mt19937 &random) {
    const std::size_t sizes[] = {0, 1, 20, 700, 1441, 1442, 1443, 2884, 30000};
    std::string text(sizes[random() % std::size(sizes)], 0);
    for (char &c : text) c = static_cast<char>(random());
    return text;
}

TEST_F(Udcp, MessagesComeOnceWholeAndInOrder) {
    constexpr unsigned long count = 600;
    std::mt19937 sent(1), expected(1), echoed(1);
    std::atomic<unsigned> wrong{0};
    server.on_data = [&](Side &side, Tq4_udcp_info *info, Tq4_udcp_data *data) {
        wrong += text_of(data->data) != message_of(expected);
        Side::echo(side, info, data);
    };
    client.on_data = [&](Side &, Tq4_udcp_info *, Tq4_udcp_data *data) {
        wrong += text_of(data->data) != message_of(echoed);
    };
    start_both();
    const Tq4_id id = client.connect(port);
    for (unsigned long i = 0; i < count; ++i) ASSERT_EQ(client.send(id, message_of(sent)), 1);
    await([&] { return client.heard == count; });
    EXPECT_EQ(server.heard, count);
    EXPECT_EQ(wrong, 0u);
    (*client.u)->DisConnect(client.u, &id);
    await([&] { return client.down == 1 && server.down == 1; });
}

TEST_F(Udcp, CallbacksSeeTheConnectionAndMayDoAllButStop) {
    int mine = 0;
    Tq4_id second{};
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
        EXPECT_EQ(info->user_id.l, second.l ? 0u : 8u);
        side.stop(); // neither does anything here
        Tq4_udcp_oitf->Delete(side.u);
        if (!second.l) second = side.connect(port);
        side.send(*info->id, "plain", 0);
    };
    client.on_down = [](Side &, Tq4_udcp_info *info) { EXPECT_EQ(info->master & 0xff, info->user_id.l ? 0x81 : 1); };
    start_both();
    const Tq4_id user{7, 8};
    Tq4_id id{};
    const auto named = Tq4_make<Tq4_sockaddr>(Tq4_sockaddr_oitf); // a machine without /etc/hosts may not know the name
    const char *host = (*named)->Init(named.get(), "localhost", port) ? "localhost" : "127.0.0.1";
    ASSERT_GT((*client.u)->Connect(client.u, host, port, &id, &user, nullptr), 0);
    EXPECT_EQ(client.send(id, "safe", 1), 1);
    await([&] { return server.heard == 3; });
    EXPECT_EQ((*client.u)->DisConnect(client.u, &id), 1);
    await([&] { return client.down == 1; });
}

TEST_F(Udcp, RefusesWhatIsTooLongAndWhatHasNoRunningThread) {
    const std::string post(TQ4_UDCP_MOST_POST + 1, 'p'), message(TQ4_UDCP_MOST_MESSAGE + 1, 'm');
    Tq4_id id{1, 1};
    const Tq4_udcp u = client.u;
    const auto all_refused = [&] {
        Tq4_string texts[] = {string_of("x"), string_of("x")};
        EXPECT_EQ((*u)->Connect(u, "127.0.0.1", 9, &id, nullptr, nullptr), 0);
        EXPECT_EQ((*u)->DisConnect(u, &id) + (*u)->ChangeDestAddr(u, &id, "127.0.0.1", 9), 0);
        EXPECT_EQ((*u)->Send(u, &id, "x", 1, 1) + (*u)->SendString(u, &id, &texts[0], 1), 0);
        (*u)->PostString(u, &id, &texts[1]);
        EXPECT_TRUE(!texts[0] && !texts[1]);
    };
    EXPECT_EQ(Side().start(nullptr), 0); // without Init
    all_refused();
    start_both();
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
    const std::pair<const char *, int> nowhere[] = {{"127.0.0.1", 0}, {"no.such.host.invalid", 9}, {"", 9}, {"::1", 9}};
    for (const auto &[host, at] : nowhere) EXPECT_EQ((*u)->Connect(u, host, at, &id, nullptr, nullptr), 0);
    EXPECT_EQ(client.start(nullptr), 0); // started
    client.stop();
    all_refused();
    const std::pair<const char *, int> not_ours[] = {{"127.0.0.1", port}, {"192.0.2.1", 0}, {"/a/path", 0}, {"::", -1}};
    for (const auto &[host, at] : not_ours) EXPECT_EQ(client.start(host, at), 0) << host;
}

TEST_F(Udcp, WorksOverIPv6AndFromThereOverIPv4) {
    if (!start("::")) GTEST_SKIP() << "no IPv6 here";
    for (const char *host : {"::1", "127.0.0.1", "::ffff:127.0.0.1"}) client.connect(port, nullptr, host);
    await([&] { return client.up == 3 && server.up == 3; });
}

// Strings come from the hooks and go back. The socket's own are exchanged for theirs, so some end on the other side.
TEST_F(Udcp, AThousandConnectionsShareOneSocketAndTheStringsOfTheHooks) {
    constexpr int count = 1000;
    static std::atomic<int> made, freed;
    made = freed = 0;
    for (Side *side : {&client, &server}) {
        (*side->u)->SetNewString(side->u, []() -> void * { return ++made, Tq4_string_oitf->Create(nullptr); });
        (*side->u)->SetDelString(side->u, [](void *string) { ++freed, Tq4_string_oitf->Delete(string); });
    }
    std::vector<int> heard(count);
    client.on_data = [&](Side &, Tq4_udcp_info *info, Tq4_udcp_data *data) {
        const auto own = reinterpret_cast<std::intptr_t>(info->user_data);
        heard[static_cast<std::size_t>(own)] += text_of(data->data) == std::to_string(own);
        Tq4_string_oitf->Delete(std::exchange(data->data, nullptr)); // kept
    };
    start_both();
    for (std::intptr_t i = 0; i < count; ++i)
        ASSERT_EQ(client.send(client.connect(port, reinterpret_cast<void *>(i)), std::to_string(i)), 1);
    await([&] { return client.heard == count; });
    client.stop();
    EXPECT_EQ(heard, std::vector<int>(count, 1));
    EXPECT_EQ(client.down, count);
    await([&] { return server.down == count; });
    EXPECT_TRUE(made > count && freed > count) << made << " and " << freed;
}

// --- The end ---

TEST_F(Udcp, StopsUnderThreadsThatAskForAllKindsOfThings) {
    start_both();
    std::atomic<bool> over{false};
    const auto work = [&, u = client.u] {
        Tq4_id id{};
        for (unsigned round = 0; !over; ++round) {
            if (round % 100 == 0) (*u)->Connect(u, "127.0.0.1", port, &id, nullptr, nullptr);
            (*u)->Send(u, &id, "x", 1, round % 2);
            (*u)->Post(u, &id, "y", 1);
            (*u)->ChangeDestAddr(u, &id, "127.0.0.1", port);
            if (round % 100 == 99) (*u)->DisConnect(u, &id);
            if (round % 20 == 0) std::this_thread::sleep_for(1ms);
        }
    };
    {
        Parallel one(work), two(work);
        for (int round = 0; round < 3; ++round) {
            const int before = client.up;
            await([&] { return client.up > before + 5; });
            client.stop();
            EXPECT_EQ(client.down, client.up);
            EXPECT_GT(client.start(nullptr), 0);
        }
        over = true;
    }
    EXPECT_TRUE(serves(60s));
}

TEST_F(Udcp, StopDoesNotWaitForMessagesThatNobodyHasTaken) {
    server.on_data = [](Side &, Tq4_udcp_info *, Tq4_udcp_data *) { std::this_thread::sleep_for(50ms); };
    start_both();
    const Tq4_id id = client.connect(port);
    for (int i = 0; i < 250; ++i) client.send(id, std::string(1442, 'x'));
    await([&] { return server.heard > 0; });
    server.stop();
    EXPECT_EQ(server.down, 1);
    await([&] { return client.down == 1; });
}

TEST_F(Udcp, EndsWhenItsServiceHasStoppedFirst) {
    start_both();
    EXPECT_TRUE(serves(60s));
    (*socket)->Stop(socket.get());
    client.stop(); // nobody reads the answers: it takes what a closing takes
    EXPECT_EQ(client.down, 1);
    EXPECT_EQ(client.start(nullptr), 0);
}

TEST(UdcpKilled, CallbackThatDoesNotReturnIsKilledAndItsModuleEnds) {
    in_a_child([] {
        Sides sides;
        std::atomic<bool> inside{false};
        sides.client.on_data = [&](Side &side, Tq4_udcp_info *, Tq4_udcp_data *) {
            side.connect(sides.port); // keeps kills off, and then no more
            inside = true;
            go_deaf();
        };
        EXPECT_TRUE(sides.start());
        sides.serves(0s);
        await([&] { return inside.load(); });
        sides.client.stop();
        sides.client.on_data = nullptr;
        EXPECT_GT(sides.client.start(nullptr), 0); // as new
        EXPECT_TRUE(sides.serves(60s));
    });
}

// --- Failures of the system ---

// What could not be sent is sent again; what could not start starts when the system has recovered.
TEST(UdcpFaults, WhatFailsIsMadeUpForAndNothingStays) {
    const std::set<std::string> calls{"sendto", "fcntl", "bind", "socket", "getaddrinfo", "pthread_create"};
    std::map<std::string, int> sends; // by their fault: two show what the others would
    sweep_faults(calls, [&](Fault_round &round) {
        const std::string name = round.name(), call = name.substr(0, name.find(' '));
        if (!calls.contains(call) || (call == "sendto" && ++sends[name.substr(0, name.find(','))] > 2)) return;
        const bool may_fail = call != "sendto" || name.find("once") == name.npos;
        Sides sides;
        const int free_port = Udp().port;
        const bool served =
            round([&] { return sides.start_at(free_port) && sides.serves(may_fail ? 100ms : 60000ms); });
        EXPECT_TRUE(served || may_fail);
        sides.stop();
        EXPECT_TRUE(sides.start() && sides.serves(60s));
    });
}

// What the outbox stands on.
TEST(UdcpSocket, OneCallSendsARunThatArrivesAsDatagrams) {
    const Udp sender, receiver;
    const sockaddr_in to = loopback(receiver.port);
    const auto send_run = [&to](int fd, const std::string &run) {
        return MP_SOCK_SendRun(fd, run.data(), run.size(), 1472, reinterpret_cast<const sockaddr *>(&to), sizeof to);
    };
    ASSERT_EQ(send_run(sender.fd, std::string(2 * 1472 + 1, 'a')), 1);
    char room[4096];
    for (const ssize_t length : {1472, 1472, 1}) EXPECT_EQ(recv(receiver.fd, room, sizeof room, MSG_DONTWAIT), length);
    EXPECT_EQ(send_run(-1, "a"), 0);
}

} // namespace
