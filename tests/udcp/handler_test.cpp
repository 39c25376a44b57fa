// The engine on threads whose loop stands still for a while: two loops, and a wire in between that is a function call.
#include "support/test.hpp"
#include "udcp/handler.hpp"
#include "udcp/simulator.hpp"

namespace {

template <class Condition> void await(Condition condition) {
    while (!condition()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

Tq4_string string_of(const std::string &text) {
    const auto string = static_cast<Tq4_string>(Tq4_string_oitf->Create(nullptr));
    (*string)->Memcpy(string, text.data(), text.size());
    return string;
}

// One side. Its callbacks find it by the handle that stands for the module.
struct Side {
    Side *peer = nullptr;
    std::atomic<int> up{0};
    std::function<bool(Tq4_bytes)> carries = [](Tq4_bytes) { return true; }; // or loses, on the loop's thread
    std::function<void()> on_ok = [] {};
    Tq4_udcp_handler handler{reinterpret_cast<Tq4_udcp>(this), callbacks(), {}, {this, send, nullptr}};

    ~Side() { handler.Stop(); }
    static Tq4_udcp_callback callbacks() {
        Tq4_udcp_callback made{};
        made.OnConnectOk = [](Tq4_udcp_info *info) {
            Side &side = *reinterpret_cast<Side *>(const_cast<Tq4_udcp_ **>(info->pair));
            EXPECT_TRUE(side.handler.OnOwnThread());
            side.on_ok();
            ++side.up;
        };
        return made;
    }
    void hear(const std::string &bytes, const char *from) {
        Tq4_string datagram = string_of(bytes);
        handler.OnDatagram(&datagram, Host::sockaddr_of(from).get());
        Tq4_string_oitf->Delete(datagram);
    }
    static int send(void *context, Tq4_sockaddr, Tq4_bytes bytes) {
        Side &side = *static_cast<Side *>(context);
        if (side.carries(bytes))
            side.peer->hear({reinterpret_cast<const char *>(bytes.data), bytes.size}, "10.0.0.1:1");
        return 1;
    }
    int connect(Tq4_id &id) {
        return handler.Connect("peer", 1, Host::sockaddr_of("10.0.0.1:1").get(), nullptr, nullptr, &id);
    }
};

struct UdcpHandler : testing::Test {
    static inline std::atomic<unsigned> busy = 0; // lines of the log
    Side a, b;
    Tq4_id id{};
    std::atomic<bool> stands_still{false}, go_on{false};
    std::atomic<int> messages{0}, before_sync{0};

    UdcpHandler() {
        a.peer = &b;
        b.peer = &a;
        busy = 0;
        Tq4_debug_api->SetLog(
            [](int, const char *format, va_list) { busy += std::string(format).starts_with("系统忙"); });
        EXPECT_TRUE(a.handler.Start() && b.handler.Start());
    }
    ~UdcpHandler() override {
        go_on = true;
        for (Side *side : {&a, &b}) side->handler.Stop();
        Tq4_debug_api->SetLog(nullptr);
    }
    void stand_still() {
        stands_still = true;
        await([this] { return go_on.load(); });
    }
};

TEST_F(UdcpHandler, FullQueueDropsWhatMayBeLostAndNothingElse) {
    b.on_ok = [this] { stand_still(); };
    ASSERT_EQ(a.connect(id), 1);
    await([this] { return a.up && stands_still; });
    const auto feed = [this](int code, int count) {
        std::string bytes(30, '\0');
        bytes[1] = static_cast<char>(0x80 | code);
        for (int i = 0; i < count; ++i) b.hear(bytes, "10.9.9.9:9");
    };
    feed(12, 4200);
    EXPECT_GT(busy, 0u);
    EXPECT_LE(busy, 100u);
    const unsigned before = busy;
    for (const int forced : {28, 8, 7}) feed(forced, 1000);
    EXPECT_EQ(busy, before);
    go_on = true;
    await([this] { return b.up == 1; });
}

// Each tick sends again what is late. Those that passed meanwhile would do so in a row.
TEST_F(UdcpHandler, ALoopThatStoodStillSendsALatePacketAgainOnce) {
    a.carries = [this](Tq4_bytes bytes) {
        constexpr std::size_t message = 31, sync = 40;
        if (bytes.size == sync) before_sync = messages.load();
        if (bytes.size == message && ++messages == 2) stand_still();
        return bytes.size != message;
    };
    ASSERT_EQ(a.connect(id), 1);
    await([this] { return a.up == 1; });
    EXPECT_EQ(a.handler.Send(&id, string_of("x"), true), 1);
    await([this] { return stands_still.load(); });
    std::this_thread::sleep_for(std::chrono::milliseconds(600));
    Parallel connecting([this] { return a.connect(id); }); // behind the ticks
    connecting.await_sleep();
    go_on = true;
    EXPECT_EQ(connecting.result(), 1);
    EXPECT_LE(before_sync, 3);
}

} // namespace
