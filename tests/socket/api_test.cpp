// Socket calls between sockets of every family on this host.
#include <netdb.h>
#include <netinet/tcp.h>

#include "support/test.hpp"

namespace {

const Tq4_socket_api_ &api = *Tq4_sock_api;

struct Socket {
    int number;
    Socket(int opened) : number(opened) {
        EXPECT_GE(opened, 0) << api.Error();
        EXPECT_TRUE(fcntl(opened, F_GETFD) & FD_CLOEXEC);
    }
    Socket(const Socket &) = delete;
    ~Socket() { shut(); }
    operator int() const { return number; }
    void shut() { api.Close(std::exchange(number, -1)); }
};

struct SockApi : testing::TestWithParam<const char *> {
    Temp_dir directory;
    Tq4_own<Tq4_sockaddr> kept[3] = {make(), make(), make()};
    Tq4_sockaddr address = kept[0].get(), peer = kept[1].get(), other = kept[2].get();
    Tq4_own<Tq4_string> text = Tq4_make<Tq4_string>(Tq4_string_oitf);

    static Tq4_own<Tq4_sockaddr> make() { return Tq4_make<Tq4_sockaddr>(Tq4_sockaddr_oitf); }
    std::string host(const char *name) const { return *GetParam() ? GetParam() : directory / name; }
    bool local() const { return !*GetParam(); }
    // Sets an address to one that a socket of this family can be bound to.
    void bindable(Tq4_sockaddr to, const char *name) { EXPECT_EQ((*to)->Init(to, host(name).c_str(), 0), 1); }
    int receive(int socket, Tq4_sockaddr from) { return api.RecvFrom(socket, text.get(), from); }
    std::string received() const { return text_of(text.get()); }
    static int option(int socket, int level, int name) {
        int value = -1;
        socklen_t size = sizeof value;
        getsockopt(socket, level, name, &value, &size);
        return value;
    }
};
INSTANTIATE_TEST_SUITE_P(Family, SockApi, testing::Values("127.0.0.1", "::1", ""));

TEST_P(SockApi, StreamsConnectAndCarryBytes) {
    bindable(address, "listener");
    Socket listener = api.OpenTcp2(address, 1);
    EXPECT_EQ(option(listener, SOL_SOCKET, SO_REUSEADDR), 1);
    EXPECT_EQ(api.Listen(listener, 4), 0);
    EXPECT_EQ(api.GetLocalAddr(listener, address), 1);
    Socket near = api.Connect2(address, -1), far = api.Accept(listener, peer);
    EXPECT_EQ(api.GetRemoteAddr(near, other), 1);
    EXPECT_TRUE(Tq4_object_Equal(address, other));
    EXPECT_EQ(api.GetLocalAddr(near, other), 1);
    EXPECT_TRUE(Tq4_object_Equal(peer, other) || local()) << "an unbound local socket has no name";

    char room[16] = {};
    EXPECT_EQ(api.Wait(far, 0, Tq4_wait_read), 0);
    EXPECT_EQ(api.Write(near, "hello", TQ4_ALL_ONES), 5);
    EXPECT_EQ(api.Wait(far, TQ4_ALL_ONES, Tq4_wait_read), 1);
    EXPECT_EQ(api.Read(far, room, sizeof room), 5);
    EXPECT_STREQ(room, "hello");
    far.shut();
    EXPECT_EQ(api.Read(near, room, sizeof room), 0);
    while (api.Write(near, "x", 1) > 0) continue; // and no SIGPIPE
    EXPECT_EQ(api.Error(), EPIPE);
}

TEST_P(SockApi, DatagramsKeepTheirSizeAndTellTheirSender) {
    bindable(address, "one");
    bindable(peer, "two");
    Socket one = api.OpenUdp2(address, 1), two = api.OpenUdp2(peer, 1);
    api.GetLocalAddr(one, address);
    api.GetLocalAddr(two, peer);
    const std::string large(20000, 'z');
    for (const std::string &sent : {std::string("a\0b", 3), std::string(), large}) {
        EXPECT_EQ(api.Send(one, peer, sent.data(), sent.size()), static_cast<int>(sent.size()));
        EXPECT_EQ(receive(two, other), static_cast<int>(sent.size()));
        EXPECT_EQ(received(), sent);
        EXPECT_TRUE(Tq4_object_Equal(address, other));
    }
    Parallel waiter([&] { return receive(two, other); });
    waiter.interrupt();
    EXPECT_FALSE(waiter.done());
    EXPECT_EQ(api.Send(one, peer, "late", TQ4_ALL_ONES), 4);
    EXPECT_EQ(waiter.result(), 4) << "what came while it waited is whole";
    EXPECT_EQ(received(), "late");
    api.Block(two, 0);
    EXPECT_EQ(receive(two, other), -1);
    EXPECT_EQ(received(), "");
}

// A datagram begins with its length. Each reader asks how large the next one is, and another one takes it.
TEST_P(SockApi, SeveralReadersOfOneSocketGetWholeDatagrams) {
    bindable(peer, "shared");
    Socket shared = api.OpenUdp2(peer, 1), sending = api.OpenUdp2(peer, 0);
    api.GetLocalAddr(shared, peer);
    constexpr unsigned readers = 4, datagrams = 6000, most_on_the_way = 4;
    std::atomic<unsigned> taken = 0, cut = 0, ended = 0;
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < readers; ++i)
        threads.emplace_back([&] {
            const auto own = Tq4_make<Tq4_string>(Tq4_string_oitf);
            while (api.RecvFrom(shared, own.get(), nullptr) > 0) {
                const std::string got = text_of(own.get());
                if (got.size() != std::stoul(got)) ++cut;
                ++taken;
            }
            ++ended;
        });
    const std::size_t sizes[] = {10, 8000, 100, 3000};
    for (unsigned sent = 0; sent < datagrams; ++sent) {
        std::string datagram = std::to_string(sizes[sent % 4] + sent % 7) + " ";
        datagram.resize(std::stoul(datagram), '.');
        EXPECT_GT(api.Send(sending, peer, datagram.data(), datagram.size()), 0);
        while (sent >= taken + most_on_the_way) std::this_thread::yield();
    }
    while (taken < datagrams) std::this_thread::yield();
    for (unsigned i = 0; i < readers; ++i) api.Send(sending, peer, "", 0);
    for (std::thread &thread : threads) thread.join();
    EXPECT_EQ(cut, 0u);
    EXPECT_EQ(ended, readers);
}

TEST_P(SockApi, AFailedConnectClosesOnlyWhatItOpened) {
    bindable(address, "listener");
    Socket listener = api.OpenTcp2(address, 1);
    api.GetLocalAddr(listener, address);
    EXPECT_EQ(api.Connect2(address, -1), -1) << "bound and not listening";
    EXPECT_EQ(api.Error(), ECONNREFUSED);
    for (int blocking : {1, 0}) {
        Socket given = api.OpenTcp2(address, 0);
        api.Block(given, blocking);
        EXPECT_EQ(api.Connect2(address, given), -1);
        EXPECT_EQ(api.Error(), ECONNREFUSED);
        EXPECT_GE(fcntl(given, F_GETFD), 0) << "still open";
    }
    api.Listen(listener, 4);
    Socket given = api.OpenTcp2(address, 0);
    api.Block(given, 0);
    EXPECT_EQ(api.Connect2(address, given), given.number) << "waits in non-blocking mode too";
    EXPECT_EQ(api.OpenTcp2(address, 1), -1) << "taken";
    EXPECT_EQ(api.Error(), EADDRINUSE);
}

TEST_P(SockApi, TheWayToAnAddressOfThisHostStartsThere) {
    bindable(address, "nowhere");
    EXPECT_EQ(api.GetRoutingInf(address, other), !local());
    EXPECT_EQ((*other)->EqualIp(other, GetParam()), !local());
    EXPECT_EQ((*other)->port(other), 0);
}

TEST(SockApiCalls, OpenByHostAndPortAndSetOptions) {
    Socket tcp = api.OpenTcp("127.0.0.1", 0, 1), udp = api.OpenUdp2(nullptr, 1), udp6 = api.OpenUdp("::1", 0, 0);
    EXPECT_EQ(api.Listen(tcp, 1), 0);
    const auto own = SockApi::make();
    api.GetLocalAddr(tcp, own.get());
    Socket connected = api.Connect("127.0.0.1", (*own)->port(own.get())), bound = api.OpenUdp("127.0.0.1", 0, 1);
    EXPECT_EQ(api.OpenUdp("no such host", 1, 1) + api.Connect("no such host", 1) + api.OpenTcp2(nullptr, 0), -3);
    const std::tuple<void (*)(int, int), int, int, int> options[] = {
        {api.Reuse, udp, SOL_SOCKET, SO_REUSEADDR},       {api.BroadCast, udp, SOL_SOCKET, SO_BROADCAST},
        {api.AllError, udp, IPPROTO_IP, IP_RECVERR},      {api.AllError, udp6, IPPROTO_IP, IP_RECVERR},
        {api.AllError, udp6, IPPROTO_IPV6, IPV6_RECVERR}, {api.NoDelay, connected, IPPROTO_TCP, TCP_NODELAY},
    };
    for (int on : {7, 0}) {
        for (const auto &[set, socket, level, name] : options) {
            set(socket, on);
            EXPECT_EQ(SockApi::option(socket, level, name), on != 0) << name;
        }
        api.Block(connected, on);
        EXPECT_EQ((fcntl(connected, F_GETFL) & O_NONBLOCK) == 0, on != 0);
    }
}

TEST(SockApiCalls, ReadAndWritePipesTooAndFailWithoutASocket) {
    char room[5] = {};
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const Socket reading = ends[0], writing = ends[1];
    EXPECT_EQ(api.Write(writing, "pipes too", 5), 5);
    EXPECT_EQ(api.Read(reading, room, 4), 4);
    EXPECT_EQ(api.Read(-1, room, 4) + api.Write(-1, "x", 1) + api.Accept(-1, nullptr) + api.Wait(-1, 0, 0), -4);
    EXPECT_EQ(api.Error(), EBADF);
}

} // namespace
