// Waiting gives select's answers for any descriptor and survives signals; connecting does not wait; names resolve.
#include "platform/multi_platform_socket.hpp"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <fcntl.h>
#include <memory>
#include <netinet/in.h>
#include <string>
#include <sys/resource.h>
#include <sys/select.h>
#include <vector>

#include <gtest/gtest.h>

#include "support/threads.hpp"

namespace {

constexpr int reading = 0, writing = 1;

struct Socket {
    int number;
    explicit Socket(int open = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) : number(open) { EXPECT_GE(open, 0); }
    Socket(const Socket &) = delete;
    ~Socket() { shut(); }
    operator int() const { return number; }
    void shut() {
        if (number >= 0) close(std::exchange(number, -1));
    }
};

// A connection through a listening socket on the loopback.
struct PlatformSocket : testing::Test {
    Socket listener, near, far;
    sockaddr_in address{};
    sockaddr *raw = reinterpret_cast<sockaddr *>(&address);
    socklen_t length = sizeof address;

    PlatformSocket() : far(0) {
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(bind(listener, raw, length), 0);
        EXPECT_EQ(listen(listener, 4), 0);
        getsockname(listener, raw, &length);
        EXPECT_EQ(connect(near, raw, length), 0);
        far.number = accept(listener, nullptr, nullptr);
    }
    static int select_one(int number, int direction) {
        fd_set wanted, exceptions;
        FD_ZERO(&wanted);
        FD_SET(number, &wanted);
        exceptions = wanted;
        timeval none{};
        return direction == writing ? select(number + 1, nullptr, &wanted, &exceptions, &none)
                                    : select(number + 1, &wanted, nullptr, &exceptions, &none);
    }
    // What waiting finds now for reading and for writing, each compared with select.
    static std::string conditions(int number) {
        const int read = MP_SOCK_Wait(number, 0, reading), write = MP_SOCK_Wait(number, 0, writing);
        EXPECT_EQ(read, select_one(number, reading));
        EXPECT_EQ(write, select_one(number, writing));
        EXPECT_EQ(MP_SOCK_Wait(number, 0, 2), read) << "every other direction reads";
        return std::to_string(read) + std::to_string(write);
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
    while (send(far, bytes.data(), bytes.size(), 0) > 0) continue;
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
        EXPECT_EQ(MP_SOCK_SetLastError(5), 5);
        EXPECT_EQ(MP_SOCK_Wait(bad, -1, reading), -1);
        EXPECT_EQ(MP_SOCK_GetLastError(), EBADF);
        EXPECT_EQ(MP_SOCK_Opt_Block(bad, 1), 0);
    }
}

TEST_F(PlatformSocket, ConnectingReportsNowLaterOrFailed) {
    Socket later, now;
    const int flags = fcntl(later, F_GETFL);
    EXPECT_EQ(MP_SOCK_AnsyConnect(now, raw, length), 1);
    EXPECT_EQ(MP_SOCK_Opt_Block(later, 0), 1);
    EXPECT_EQ(fcntl(later, F_GETFL), flags | O_NONBLOCK);
    EXPECT_EQ(MP_SOCK_AnsyConnect(later, raw, length), 0) << "the loopback answers after the call";
    EXPECT_EQ(MP_SOCK_Wait(later, -1, writing), 1);
    EXPECT_EQ(MP_SOCK_Opt_Block(later, 5), 1);
    EXPECT_EQ(fcntl(later, F_GETFL), flags);
    listener.shut();
    EXPECT_EQ(MP_SOCK_AnsyConnect(Socket(), raw, length), -1);
    EXPECT_EQ(MP_SOCK_GetLastError(), ECONNREFUSED);
}

// "address port" of each address found.
std::vector<std::string> resolve(const std::string &host, const char *given) {
    const std::unique_ptr<addrinfo, void (*)(addrinfo *)> list(MP_InitSockAddr(given, 65535), [](addrinfo *addresses) {
        if (addresses) freeaddrinfo(addresses);
    });
    std::vector<std::string> found;
    for (addrinfo *each = list.get(); each; each = each->ai_next) {
        char name[NI_MAXHOST], port[NI_MAXSERV];
        getnameinfo(each->ai_addr, each->ai_addrlen, name, sizeof name, port, sizeof port,
                    NI_NUMERICHOST | NI_NUMERICSERV);
        EXPECT_EQ(each->ai_socktype, SOCK_DGRAM) << host;
        found.push_back(std::string(name) + " " + port);
    }
    return found;
}

TEST(PlatformInitSockAddr, ResolvesHostsAndTheAnyAddressForNone) {
    using Found = std::vector<std::string>;
    EXPECT_EQ(resolve("IPv4", "127.0.0.9"), Found{"127.0.0.9 65535"});
    EXPECT_EQ(resolve("IPv6", "::1"), Found{"::1 65535"});
    EXPECT_EQ(resolve("no name is that long", std::string(300, 'x').c_str()), Found{});
    const Found none = resolve("null", nullptr);
    EXPECT_EQ(std::count(none.begin(), none.end(), "0.0.0.0 65535"), 1);
    for (const auto &text : none) EXPECT_TRUE(text == "0.0.0.0 65535" || text == ":: 65535") << text;
    EXPECT_EQ(resolve("empty", ""), none);
}

} // namespace
