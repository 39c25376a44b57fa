// Waiting gives select's answers for any descriptor and survives signals.
#include "platform/multi_platform_socket.hpp"
#include "support/test.hpp"

namespace {

constexpr int reading = 0, writing = 1;

struct Socket {
    int number;
    explicit Socket(int open = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) : number(open) { EXPECT_GE(open, 0); }
    Socket(const Socket &) = delete;
    ~Socket() { shut(); }
    operator int() const { return number; }
    void shut() { close(std::exchange(number, -1)); }
};

// A connection through a listening socket on the loopback.
struct PlatformSocket : testing::Test {
    Socket listener, near, far;

    PlatformSocket() : far(0) {
        sockaddr_in address{.sin_family = AF_INET, .sin_port = 0, .sin_addr = {htonl(INADDR_LOOPBACK)}, .sin_zero = {}};
        auto *raw = reinterpret_cast<sockaddr *>(&address);
        socklen_t length = sizeof address;
        EXPECT_EQ(bind(listener, raw, length) + listen(listener, 4), 0);
        getsockname(listener, raw, &length);
        EXPECT_EQ(connect(near, raw, length), 0);
        far.number = accept(listener, nullptr, nullptr);
    }
    // What waiting finds now for reading and for writing; every other direction reads.
    static std::string conditions(int number) {
        return std::to_string(MP_SOCK_Wait(number, 0, 2)) + std::to_string(MP_SOCK_Wait(number, 0, writing));
    }
};

TEST_F(PlatformSocket, WaitingAnswersAsSelectInEveryState) {
    EXPECT_EQ(conditions(near), "01") << "idle";
    EXPECT_EQ(conditions(listener), "00");
    EXPECT_EQ(conditions(Socket()), "11") << "not connected";
    send(far, "!", 1, MSG_OOB);
    EXPECT_EQ(MP_SOCK_Wait(near, -1, reading), 1) << "an exception alone";
    EXPECT_EQ(conditions(near), "12");

    MP_SOCK_Opt_Block(far, 0);
    const std::vector<char> bytes(1 << 16);
    do // until the system moves nothing more from its buffer to its peer's
        while (send(far, bytes.data(), bytes.size(), 0) > 0) continue;
    while (MP_SOCK_Wait(far, 50, writing) > 0);
    EXPECT_EQ(conditions(far), "00") << "its buffer is full";
    EXPECT_EQ(conditions(near), "22") << "urgent and other data";

    const linger reset{1, 0};
    setsockopt(far, SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
    far.shut();
    while (recv(near, const_cast<char *>(bytes.data()), bytes.size(), 0) > 0) continue;
    EXPECT_EQ(conditions(near), "11") << "reset by its peer";
}

TEST_F(PlatformSocket, AWaitGoesOnAfterSignalsForTheTimeThatIsLeft) {
    char byte = 1;
    for (long ms : {600000l, LONG_MAX, -1l, LONG_MIN}) {
        Parallel waiter([&] { return MP_SOCK_Wait(near, ms, reading); });
        waiter.interrupt();
        EXPECT_FALSE(waiter.done()) << ms;
        send(far, &byte, 1, 0);
        EXPECT_EQ(waiter.result(), 1) << ms;
        EXPECT_EQ(recv(near, &byte, 1, 0), 1);
    }
    const auto start = std::chrono::steady_clock::now();
    Parallel brief([&] { return MP_SOCK_Wait(near, 50, reading); });
    brief.interrupt();
    EXPECT_EQ(brief.result(), 0);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(50));
}

TEST_F(PlatformSocket, AnyDescriptorCanBeWaitedForAndNoneIsAnError) {
    rlimit before, raised;
    getrlimit(RLIMIT_NOFILE, &before);
    raised = {std::max<rlim_t>(before.rlim_cur, 3000), before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &raised), 0) << "needs a limit of 3000 descriptors";
    Socket high(fcntl(near, F_DUPFD_CLOEXEC, 2000));
    setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_EQ(MP_SOCK_Wait(high, 0, reading), 0) << "beyond select's sets";
    EXPECT_EQ(MP_SOCK_Wait(high, 0, writing), 1);

    const int closed = high;
    high.shut();
    for (int bad : {closed, -1, INT_MIN}) {
        MP_SOCK_SetLastError(5);
        EXPECT_EQ(MP_SOCK_Wait(bad, -1, reading), -1);
        EXPECT_EQ(MP_SOCK_GetLastError(), EBADF);
    }
}

} // namespace
