// The engine on threads: two loops with real timers and a wire in between that is a function call. What the protocol
// does is told elsewhere; here it is who runs what, and how it ends.
#include "support/test.hpp"
#include "udcp/handler.hpp"
#include "udcp/simulator.hpp"

namespace {

// One side. Its callbacks find it by the handle that stands for the module.
struct Side {
    std::string address;
    Side *peer = nullptr;
    std::atomic<unsigned> sent{0};
    unsigned lose_each = 0; // of the datagrams, one in so many; 0 for none
    std::atomic<bool> reachable{true};

    std::atomic<int> stands{0}, ended{0};
    std::atomic<unsigned long> heard{0}, wrong{0};
    std::atomic<bool> elsewhere{false}; // a callback ran on another thread than the loop's
    Tq4_id last{};
    std::function<void(Side &)> when_it_stands;
    std::unique_ptr<Tq4_udcp_handler> handler;

    explicit Side(std::string key) : address(std::move(key)) {
        handler = std::make_unique<Tq4_udcp_handler>(reinterpret_cast<Tq4_udcp>(this), callbacks(), Tq4_udcp_settings{},
                                                     Tq4_udcp_handler::Network{this, send, nullptr});
    }
    static Side &of(Tq4_udcp_info *info) {
        Side &side = *reinterpret_cast<Side *>(const_cast<Tq4_udcp_ **>(info->pair));
        if (!side.handler->OnOwnThread()) side.elsewhere = true;
        return side;
    }
    static Tq4_udcp_callback callbacks() {
        Tq4_udcp_callback made{};
        made.OnConnectOk = [](Tq4_udcp_info *info) {
            Side &side = of(info);
            side.last = *info->id;
            if (side.when_it_stands) side.when_it_stands(side);
            ++side.stands;
        };
        made.OnDisConnect = [](Tq4_udcp_info *info) { return ++of(info).ended, -1; };
        made.OnData = [](Tq4_udcp_info *info, Tq4_udcp_data *data) {
            Side &side = of(info);
            side.wrong += text_of(data->data) != std::to_string(side.heard);
            ++side.heard;
        };
        return made;
    }
    static int send(void *context, Tq4_sockaddr, Tq4_bytes bytes) {
        Side &side = *static_cast<Side *>(context);
        const unsigned number = ++side.sent;
        if (!side.reachable || (side.lose_each && number % side.lose_each == 0)) return 1;
        Tq4_string copy = string_of({reinterpret_cast<const char *>(bytes.data), bytes.size});
        side.peer->handler->OnDatagram(&copy, Host::sockaddr_of(side.address).get());
        Tq4_string_oitf->Delete(copy);
        return 1;
    }
    static Tq4_string string_of(const std::string &text) {
        const auto string = static_cast<Tq4_string>(Tq4_string_oitf->Create(nullptr));
        (*string)->Memcpy(string, text.data(), text.size());
        return string;
    }
    int connect(Tq4_id &id) {
        return handler->Connect("peer", 1, Host::sockaddr_of(peer->address).get(), nullptr, nullptr, &id);
    }
};

struct UdcpHandler : testing::Test {
    Side a{"10.0.0.1:1"}, b{"10.0.0.2:2"};
    UdcpHandler() {
        a.peer = &b;
        b.peer = &a;
        Tq4_debug_api->SetLog([](int, const char *, va_list) {});
    }
    ~UdcpHandler() override {
        a.handler->Stop();
        b.handler->Stop();
        Tq4_debug_api->SetLog(nullptr);
        EXPECT_FALSE(a.elsewhere || b.elsewhere);
    }
    void start() {
        ASSERT_EQ(a.handler->Start(), 1);
        ASSERT_EQ(b.handler->Start(), 1);
    }
    template <class Condition> static void await(Condition condition) {
        while (!condition()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
};

TEST_F(UdcpHandler, CarriesMessagesBetweenTwoLoops) {
    a.lose_each = 50;
    start();
    Tq4_id id{};
    ASSERT_EQ(a.connect(id), 1);
    for (int i = 0; i < 3000; ++i) ASSERT_EQ(a.handler->Send(&id, Side::string_of(std::to_string(i)), true), 1);
    await([&] { return b.heard == 3000; });
    for (int i = 0; i < 1000; ++i) b.handler->Send(&b.last, Side::string_of(std::to_string(i)), true);
    await([&] { return a.heard == 1000; });
    EXPECT_EQ(a.wrong + b.wrong, 0u);
    EXPECT_EQ(a.handler->DisConnect(&id), 1);
    await([&] { return a.ended == 1 && b.ended == 1; });
}

TEST_F(UdcpHandler, CallbacksMayConnectAndSendAndNotStop) {
    Tq4_id second_id{};
    a.when_it_stands = [&](Side &side) {
        side.handler->Stop();
        if (second_id.l == 0) { EXPECT_EQ(side.connect(second_id), 1); }
        side.handler->Send(&side.last, Side::string_of("0"), false);
    };
    start();
    Tq4_id id{};
    ASSERT_EQ(a.connect(id), 1);
    await([&] { return a.stands == 2 && b.heard == 2; });
}

TEST_F(UdcpHandler, StopTellsThePeersAndEndsEverything) {
    start();
    std::vector<Tq4_id> ids(20);
    for (Tq4_id &id : ids) ASSERT_EQ(a.connect(id), 1);
    await([&] { return b.stands == 20; });
    a.handler->Stop();
    EXPECT_EQ(a.ended, 20);
    await([&] { return b.ended == 20; });
    Tq4_id id{};
    EXPECT_EQ(a.connect(id), 0);
    EXPECT_EQ(a.handler->Send(&ids[0], Side::string_of("late"), true), 0);
    EXPECT_EQ(a.handler->DisConnect(&ids[0]), 0);
    a.handler->Stop();
}

TEST_F(UdcpHandler, EndsWithThreadsThatSendAndAPeerThatIsGone) {
    start();
    Tq4_id id{};
    ASSERT_EQ(a.connect(id), 1);
    await([&] { return b.stands == 1; });
    a.reachable = false;
    std::atomic<bool> over{false};
    const auto work = [&] {
        while (!over) {
            a.handler->Send(&id, Side::string_of("x"), false);
            a.handler->Post(&id, Side::string_of("y"));
        }
    };
    {
        Parallel one(work), two(work);
        await([&] { return a.sent > 2000; });
        a.handler->Stop();
        over = true;
    }
    EXPECT_EQ(a.ended, 1);
}

TEST_F(UdcpHandler, WithoutItsLoopItRefuses) {
    Tq4_id id{};
    EXPECT_EQ(a.connect(id), 0);
    EXPECT_EQ(a.handler->Send(&id, Side::string_of("early"), true), 0);
    EXPECT_EQ(a.handler->ChangeDestAddr(&id, "x", 1, Host::sockaddr_of(b.address).get()), 0);
    a.handler->Post(&id, Side::string_of("early"));
}

// The loop stands still in a callback: what may be lost is refused by its full queue, the rest waits.
TEST_F(UdcpHandler, FullQueueDropsWhatMayBeLostAndNothingElse) {
    static std::atomic<unsigned> busy;
    busy = 0;
    Tq4_debug_api->SetLog([](int, const char *format, va_list) { busy += std::string(format).starts_with("系统忙"); });
    std::atomic<bool> go_on{false};
    b.when_it_stands = [&](Side &) { await([&] { return go_on.load(); }); };
    start();
    Tq4_id id{};
    ASSERT_EQ(a.connect(id), 1);
    await([&] { return a.stands == 1; });
    const auto feed = [&](uint8_t code, int count) {
        std::string bytes(30, '\0');
        bytes[1] = static_cast<char>(0x80 | code);
        for (int i = 0; i < count; ++i) {
            Tq4_string datagram = Side::string_of(bytes);
            b.handler->OnDatagram(&datagram, Host::sockaddr_of("10.9.9.9:9").get());
            Tq4_string_oitf->Delete(datagram);
        }
    };
    feed(12, 4200);
    EXPECT_GT(busy, 0u);
    EXPECT_LE(busy, 100u);
    const unsigned before = busy;
    feed(28, 1000);
    feed(8, 1000);
    feed(7, 1000);
    EXPECT_EQ(busy, before);
    go_on = true;
    await([&] { return b.stands == 1; });
    Tq4_debug_api->SetLog([](int, const char *, va_list) {});
}

} // namespace
