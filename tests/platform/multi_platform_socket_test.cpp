// Waiting gives select's answers for any descriptor and survives signals; connecting does not wait; names resolve.
#include "platform/multi_platform_socket.hpp"
#include "support/threads.hpp"

#include <arpa/inet.h>
#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <memory>
#include <sys/resource.h>
#include <sys/select.h>
#include <vector>

namespace {

class Descriptor {
public:
    explicit Descriptor(int number) : m_number(number) { EXPECT_GE(number, 0) << errno; }
    Descriptor(Descriptor &&other) : m_number(std::exchange(other.m_number, -1)) {}
    ~Descriptor() { shut(); }
    operator int() const { return m_number; }
    void shut() {
        if (m_number >= 0) close(std::exchange(m_number, -1));
    }

private:
    int m_number;
};

constexpr int read_direction = 0, write_direction = 1;

Descriptor stream_socket() { return Descriptor(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)); }

// A listening socket on the loopback, and a connection through it.
struct Connection : testing::Test {
    Descriptor listener = stream_socket();
    sockaddr_in address{};
    Descriptor near = stream_socket(), far;

    Connection() : far(connected()) {}
    int connected() {
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        EXPECT_EQ(bind(listener, raw(), length), 0);
        EXPECT_EQ(listen(listener, 4), 0);
        getsockname(listener, raw(), &length);
        EXPECT_EQ(connect(near, raw(), length), 0);
        return accept(listener, nullptr, nullptr);
    }
    sockaddr *raw() { return reinterpret_cast<sockaddr *>(&address); }
    static int select_one(int number, int direction) {
        fd_set wanted, exceptions;
        FD_ZERO(&wanted);
        FD_ZERO(&exceptions);
        FD_SET(number, &wanted);
        FD_SET(number, &exceptions);
        timeval none{};
        const bool write = direction == write_direction;
        return select(number + 1, write ? nullptr : &wanted, write ? &wanted : nullptr, &exceptions, &none);
    }
    // What waiting finds now for reading, and for writing, each compared with select.
    static std::pair<int, int> conditions(int number) {
        EXPECT_EQ(MP_SOCK_Wait(number, 0, read_direction), select_one(number, read_direction));
        EXPECT_EQ(MP_SOCK_Wait(number, 0, 2), select_one(number, read_direction)) << "2 means reading too";
        EXPECT_EQ(MP_SOCK_Wait(number, 0, write_direction), select_one(number, write_direction));
        return {MP_SOCK_Wait(number, 0, read_direction), MP_SOCK_Wait(number, 0, write_direction)};
    }
    void await_readable(int number) { EXPECT_GT(MP_SOCK_Wait(number, -1, read_direction), 0); }
    using Conditions = std::pair<int, int>;
};

TEST_F(Connection, AnIdleOneIsWritable) {
    EXPECT_EQ(conditions(near), Conditions(0, 1));
    EXPECT_EQ(conditions(listener), Conditions(0, 0));
    EXPECT_EQ(conditions(stream_socket()), Conditions(1, 1)) << "not connected: reading fails at once";
}

TEST_F(Connection, DataMakesItReadableAndAFullBufferUnwritable) {
    MP_SOCK_Opt_Block(far, 0);
    const std::vector<char> bytes(1 << 16);
    while (send(far, bytes.data(), bytes.size(), 0) > 0) continue;
    await_readable(near);
    EXPECT_EQ(conditions(near), Conditions(1, 1));
    EXPECT_EQ(conditions(far), Conditions(0, 0));
}

TEST_F(Connection, UrgentDataIsAnExceptionInBothDirections) {
    send(far, "!", 1, MSG_OOB);
    await_readable(near);
    EXPECT_EQ(conditions(near), Conditions(1, 2));
    send(far, "data", 4, 0);
    while (MP_SOCK_Wait(near, -1, read_direction) != 2) continue;
    EXPECT_EQ(conditions(near), Conditions(2, 2));
}

TEST_F(Connection, EveryEndIsReadable) {
    shutdown(far, SHUT_WR);
    await_readable(near);
    EXPECT_EQ(conditions(near), Conditions(1, 1));
    const linger at_once{1, 0};
    setsockopt(far, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
    far.shut();
    int error = 0;
    for (socklen_t length = sizeof error; !error;) getsockopt(near, SOL_SOCKET, SO_ERROR, &error, &length);
    EXPECT_EQ(conditions(near), Conditions(1, 1));
}

TEST_F(Connection, AWaitEndsAtItsTimeOut) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(MP_SOCK_Wait(near, 20, read_direction), 0);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(20));
}

TEST_F(Connection, AWaitGoesOnAfterASignal) {
    for (long ms : {600000l, LONG_MAX, -1l, LONG_MIN}) {
        Waiting_call waiter([&] { return MP_SOCK_Wait(near, ms, read_direction); });
        waiter.interrupt();
        EXPECT_FALSE(waiter.done()) << ms;
        char byte = 1;
        send(far, &byte, 1, 0);
        EXPECT_EQ(waiter.result(), 1) << ms;
        EXPECT_EQ(recv(near, &byte, 1, 0), 1);
    }
    const auto start = std::chrono::steady_clock::now();
    Waiting_call brief([&] { return MP_SOCK_Wait(near, 100, read_direction); });
    brief.interrupt();
    EXPECT_EQ(brief.result(), 0);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(100));
}

TEST_F(Connection, DescriptorsBeyondSelectsSetsWork) {
    rlimit before, raised;
    getrlimit(RLIMIT_NOFILE, &before);
    raised = {std::max<rlim_t>(before.rlim_cur, 3000), before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &raised), 0) << "needs a limit of 3000 descriptors";
    {
        Descriptor high(fcntl(near, F_DUPFD_CLOEXEC, 2000));
        EXPECT_EQ(MP_SOCK_Wait(high, 0, read_direction), 0);
        send(far, "x", 1, 0);
        EXPECT_EQ(MP_SOCK_Wait(high, -1, read_direction), 1);
        EXPECT_EQ(MP_SOCK_Wait(high, 0, write_direction), 1);
    }
    setrlimit(RLIMIT_NOFILE, &before);
}

TEST(SocketWait, ABadDescriptorIsAnErrorAtOnce) {
    Descriptor closed = stream_socket();
    const int number = closed;
    closed.shut();
    for (int bad : {-1, INT_MIN, number}) {
        EXPECT_EQ(MP_SOCK_SetLastError(0), 0);
        EXPECT_EQ(MP_SOCK_Wait(bad, -1, read_direction), -1);
        EXPECT_EQ(MP_SOCK_GetLastError(), EBADF);
    }
}

TEST_F(Connection, BlockingIsAFlagOfTheSocketAlone) {
    const int flags = fcntl(near, F_GETFL);
    EXPECT_EQ(MP_SOCK_Opt_Block(near, 0), 1);
    EXPECT_EQ(fcntl(near, F_GETFL), flags | O_NONBLOCK);
    EXPECT_EQ(MP_SOCK_Opt_Block(near, 5), 1);
    EXPECT_EQ(fcntl(near, F_GETFL), flags);
    EXPECT_EQ(MP_SOCK_Opt_Block(-1, 1), 0);
}

TEST_F(Connection, ConnectingReportsNowLaterOrFailed) {
    Descriptor later = stream_socket(), now = stream_socket();
    MP_SOCK_Opt_Block(later, 0);
    EXPECT_EQ(MP_SOCK_AnsyConnect(later, raw(), sizeof address), 0) << "the loopback answers after the call";
    EXPECT_EQ(MP_SOCK_Wait(later, -1, write_direction), 1);
    int error = -1;
    socklen_t length = sizeof error;
    getsockopt(later, SOL_SOCKET, SO_ERROR, &error, &length);
    EXPECT_EQ(error, 0);
    EXPECT_EQ(MP_SOCK_AnsyConnect(now, raw(), sizeof address), 1);

    listener.shut();
    EXPECT_EQ(MP_SOCK_AnsyConnect(stream_socket(), raw(), sizeof address), -1);
    EXPECT_EQ(MP_SOCK_GetLastError(), ECONNREFUSED);
    address.sin_family = AF_UNIX;
    EXPECT_EQ(MP_SOCK_AnsyConnect(stream_socket(), raw(), sizeof address), -1);
}

struct Resolved {
    std::unique_ptr<addrinfo, void (*)(addrinfo *)> list;
    Resolved(const char *host, uint16_t port)
        : list(MP_InitSockAddr(host, port), [](addrinfo *a) {
              if (a) freeaddrinfo(a);
          }) {}
    // "address port" of each result, in order of family.
    std::vector<std::string> texts() const {
        std::vector<std::string> found;
        for (addrinfo *each = list.get(); each; each = each->ai_next) {
            char host[NI_MAXHOST], port[NI_MAXSERV];
            getnameinfo(each->ai_addr, each->ai_addrlen, host, sizeof host, port, sizeof port,
                        NI_NUMERICHOST | NI_NUMERICSERV);
            EXPECT_EQ(each->ai_socktype, SOCK_DGRAM);
            found.push_back(std::string(host) + " " + port);
        }
        std::sort(found.begin(), found.end());
        return found;
    }
};

TEST(InitSockAddr, NoHostIsTheAnyAddressOfEachFamily) {
    const auto none = Resolved(nullptr, 65535).texts();
    EXPECT_EQ(std::count(none.begin(), none.end(), "0.0.0.0 65535"), 1);
    for (const auto &text : none) EXPECT_TRUE(text == "0.0.0.0 65535" || text == ":: 65535") << text;
    EXPECT_EQ(Resolved("", 65535).texts(), none);
}

TEST(InitSockAddr, HostsKeepTheirAddress) {
    using Texts = std::vector<std::string>;
    EXPECT_EQ(Resolved("127.0.0.9", 0).texts(), Texts{"127.0.0.9 0"});
    EXPECT_EQ(Resolved("::1", 80).texts(), Texts{"::1 80"});
    EXPECT_EQ(Resolved(std::string(300, 'x').c_str(), 80).texts(), Texts{}) << "no name is that long";
}

} // namespace
