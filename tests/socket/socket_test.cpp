// The socket service between real sockets of this host: every callback and its order, sends and their limits, ends of
// every kind, and what is left of it all.
#include <netinet/tcp.h>
#include <netinet/udp.h>
#include <numeric>

#include "socket/service_story.hpp"
#include "support/fault_sweep.hpp"

namespace {

struct SocketService : testing::Test {
    Story story;
    Owner client{story, "client"}, server{story, "server"}, listener{story, "listener"};
    Tq4_own<Tq4_sockaddr> kept[2] = {Tq4_make<Tq4_sockaddr>(Tq4_sockaddr_oitf),
                                     Tq4_make<Tq4_sockaddr>(Tq4_sockaddr_oitf)};
    Tq4_sockaddr address = kept[0].get(), nowhere = kept[1].get();
    Tq4_own<Tq4_socket> service = Tq4_make<Tq4_socket>(Tq4_socket_oitf);
    Tq4_socket s = service.get();

    SocketService() {
        Tq4_debug_api->SetPrint([](int, const char *, va_list) {}); // of threads that begin and end
        listener.child = &server;
        (*address)->Init(address, "127.0.0.1", 0);
        EXPECT_NE((*s)->Start(s), nullptr);
    }
    ~SocketService() {
        service.reset();
        Tq4_debug_api->SetPrint(nullptr);
    }

    // Opens a listener; from then on `address` is where it listens.
    Tq4_socket_info listen() {
        Tq4_socket_info info = info_of(listener, address, nullptr);
        EXPECT_EQ((*s)->Listen(s, &info, &listening), 0);
        story.await("listener listens 1");
        Tq4_sock_api->GetLocalAddr(info.fd, address);
        return info;
    }
    Tq4_socket_info connect(Owner &who) {
        Tq4_socket_info info = info_of(who, nullptr, address);
        EXPECT_EQ((*s)->Connect(s, &info, &callbacks), 0);
        return info;
    }
    Tq4_socket_info connected() {
        listen();
        Tq4_socket_info info = connect(client);
        story.await("client up 1");
        story.await("server up 0");
        story.take();
        return info;
    }
    int send(const Tq4_id &id, const std::string &text) { return (*s)->SendData(s, &id, text.data(), text.size()); }
};

TEST_F(SocketService, AConnectionTellsItsWholeLife) {
    const auto before = open_descriptors();
    const Tq4_socket_info at = listen();
    const Tq4_socket_info info = connect(client);
    EXPECT_NE(info.id.l, 0u);
    story.await("server up 0");
    story.await("client up 1");
    EXPECT_EQ(send(info.id, "hello"), 1);
    story.await("server got hello");
    story.await("client empty");
    EXPECT_EQ((*s)->Printf(s, &server.last, "%s %d", "bye", 7), 1);
    story.await("client got bye 7");
    (*s)->Close(s, &info.id);
    EXPECT_EQ((story.count("client down 0"), story.count("client freed")), 1) << "Close is done when it returns";
    story.await("server freed");
    const Texts told = story.take();
    const auto place = [&](const char *what) { return std::find(told.begin(), told.end(), what) - told.begin(); };
    EXPECT_LT(place("listener asked"), place("server up 0"));
    EXPECT_LT(place("client down 0"), place("client freed"));
    EXPECT_LT(place("server down 0"), place("listener lost server"));
    EXPECT_LT(place("listener lost server"), place("server freed"));
    EXPECT_EQ(send(info.id, "late"), 1) << "handed over, for nobody";
    (*s)->Close(s, &at.id);
    EXPECT_EQ(story.take(), Texts{"listener freed"});
    EXPECT_EQ(open_descriptors(), before);
}

TEST_F(SocketService, ARefusedConnectionIsClosedWithoutAWord) {
    listener.child = nullptr;
    listen();
    connect(client);
    story.await("client freed");
    EXPECT_EQ(story.count("client down 1"), 1);
    EXPECT_EQ(story.count("server freed"), 0);
}

TEST_F(SocketService, WhatFailsToOpenLeavesItsOwnersObjectAlone) {
    listen();
    Tq4_socket_info taken = info_of(client, address, nullptr);
    EXPECT_EQ((*s)->Listen(s, &taken, &listening), 0);
    EXPECT_EQ(story.count("client listens 0"), 1);
    EXPECT_EQ(taken.fd, -1);
    EXPECT_EQ(taken.id.l, 0u);
    (*nowhere)->Init(nowhere, "192.0.2.1", 5); // not an address of this host
    Tq4_socket_info datagrams = info_of(client, nowhere, nullptr);
    Tq4_debug_api->SetLog([](int, const char *, va_list) {});
    EXPECT_EQ((*s)->Open(s, &datagrams, &callbacks), 0);
    Tq4_debug_api->SetLog(nullptr);
    EXPECT_EQ(datagrams.fd, -1);
    Tq4_socket_info bound = info_of(client, nowhere, address);
    EXPECT_EQ(story.count("client freed"), 0);
    client.after_failure = 0; // is not asked when the attempt cannot begin
    EXPECT_EQ((*s)->Connect(s, &bound, &callbacks), 0);
    EXPECT_EQ(bound.id.l, 0u);
    EXPECT_EQ(story.count("client freed"), 1);
}

TEST_F(SocketService, AClientComesBackAsLongAsItIsAskedTo) {
    Tq4_socket_info at = listen();
    client.after_failure = client.after_end = 0;
    const Tq4_socket_info info = connect(client);
    for (int round = 0; round < 3; ++round) {
        story.await("server up 0");
        story.await("client up 1");
        story.take();
        (*s)->Close(s, &at.id);
        (*s)->Close(s, &server.last);
        story.await("client down 1");
        story.await("client refused", 2);
        EXPECT_EQ(send(info.id, "to nobody"), 1);
        at = info_of(listener, address, nullptr);
        (*s)->Listen(s, &at, &listening);
    }
    story.await("client up 1");
    (*s)->Close(s, &at.id);
    (*s)->Close(s, &server.last);
    story.await("client refused", 2);
    (*s)->Close(s, &info.id);
    EXPECT_EQ(story.count("client freed"), 1);
    const long attempts = story.count("client refused");
    std::this_thread::sleep_for(60ms); // in which several attempts would come
    EXPECT_EQ(story.count("client refused"), attempts);
}

TEST_F(SocketService, SendsAreCountedToTheUnit) {
    std::vector<int> results;
    client.then = [&](const std::string &event, Tq4_socket_info *info) {
        if (event != "up 1") return;
        const Tq4_id id = info->id;
        for (int i = 0; i < 2564; ++i) {
            results.push_back(send(id, "12345678"));
            EXPECT_EQ(story.count("client full 1"), i >= 2049);
        }
    };
    long received = 0;
    server.on_data = [&](Tq4_string *data) {
        received += (*(*data))->length(*data);
        if (received == 2561 * 8) story.tell("all");
        return 0;
    };
    Tq4_debug_api->SetLog([](int, const char *, va_list) {});
    listen();
    connect(client);
    story.await("client empty");
    story.await("all");
    Tq4_debug_api->SetLog(nullptr);
    EXPECT_EQ(std::accumulate(results.begin(), results.end(), 0), 2561);
    EXPECT_EQ(results[2560], 1);
    EXPECT_EQ(results[2561], 0);
    EXPECT_EQ(story.count("client full 1"), 1);
    EXPECT_EQ(story.count("client full 0"), 1);
    EXPECT_EQ(story.count("client empty"), 1);
}

TEST_F(SocketService, MuchGoesBothWaysUnchanged) {
    constexpr std::size_t size = 8 << 20;
    std::string text(size, 0);
    std::mt19937 random(11);
    for (char &c : text) c = static_cast<char>(random());
    const Tq4_socket_info info = connected();
    std::string got[2];
    Owner *const owners[] = {&client, &server};
    for (int side = 0; side < 2; ++side)
        owners[side]->on_data = [&, side](Tq4_string *data) {
            EXPECT_LE((*(*data))->length(*data), 2048);
            got[side] += text_of(*data);
            if (got[side].size() == size) story.tell("all");
            return 0;
        };
    const Tq4_id ids[] = {info.id, server.last};
    for (std::size_t at = 0; at < size;) {
        const std::size_t piece = std::min<std::size_t>(size - at, 1 + random() % 100000);
        for (const Tq4_id &id : ids) EXPECT_EQ(send(id, text.substr(at, piece)), 1);
        at += piece;
    }
    story.await("all", 2);
    EXPECT_TRUE(got[0] == text && got[1] == text);
}

TEST_F(SocketService, DatagramsComeOneByOneWhoeverJoinedThem) {
    Tq4_socket_info info = info_of(server, address, nullptr);
    (*address)->Init(address, "127.0.0.1", 0);
    Tq4_own<Tq4_sockaddr> any = Tq4_make<Tq4_sockaddr>(Tq4_sockaddr_oitf);
    { // a free port, since only an address with a port is bound
        const int probe = Tq4_sock_api->OpenUdp2(address, 1);
        Tq4_sock_api->GetLocalAddr(probe, address);
        Tq4_sock_api->Close(probe);
    }
    (*s)->Open(s, &info, &callbacks);
    ASSERT_GE(info.fd, 0);
    Tq4_own<Tq4_string> kept_text;
    server.then = [&](const std::string &, Tq4_socket_info *from) {
        story.tell(std::to_string((*from->remote)->port(from->remote)));
    };
    const int sender = Tq4_sock_api->OpenUdp2(nullptr, 0);
    Tq4_sock_api->Send(sender, address, "", 0);
    Tq4_sock_api->GetLocalAddr(sender, any.get());
    story.await("server got ");
    story.await(std::to_string((*any)->port(any.get())));
    const int segment = 3; // the system sends "aaabbbcc" as three datagrams, which may arrive as one
    if (setsockopt(sender, IPPROTO_UDP, UDP_SEGMENT, &segment, sizeof segment) == 0) {
        Tq4_sock_api->Send(sender, address, "aaabbbcc", TQ4_ALL_ONES);
        for (const char *text : {"server got aaa", "server got bbb", "server got cc"}) story.await(text);
    }
    server.on_data = [&](Tq4_string *data) {
        kept_text.reset(std::exchange(*data, nullptr)); // the service makes itself another one
        story.tell("kept");
        return 0;
    };
    Tq4_sock_api->Send(sender, address, "one", TQ4_ALL_ONES);
    story.await("kept");
    Tq4_sock_api->Send(sender, address, "two", TQ4_ALL_ONES);
    story.await("kept", 2);
    EXPECT_EQ(text_of(kept_text.get()), segment ? "two" : "");
    EXPECT_EQ(send(info.id, "by the service"), 1); // handed over, and refused there
    Tq4_sock_api->Close(sender);
}

TEST_F(SocketService, StoppedItAnswersNothingAndHoldsNobody) {
    const Tq4_socket_info info = connected();
    Parallel sender([&] {
        while (send(info.id, "x")) continue;
    });
    Parallel opener([&] {
        for (Tq4_socket_info opened; opened = connect(client), opened.id.l != 0;) (*s)->Close(s, &opened.id);
    });
    story.await("client up 1", 20);
    (*s)->Stop(s);
    EXPECT_GE(story.count("client down 1"), 1);
    EXPECT_EQ(story.count("server freed"), story.count("server up 0") + 1);
    EXPECT_EQ(story.count("listener freed"), 1);
    Tq4_socket_info late = info_of(client, nullptr, address);
    EXPECT_EQ((*s)->Connect(s, &late, &callbacks), 0);
    EXPECT_EQ(late.id.l, 0u);
    EXPECT_EQ(late.fd, -1);
    Tq4_string text = static_cast<Tq4_string>(Tq4_string_oitf->Create("taken"));
    EXPECT_EQ((*s)->SendString(s, &info.id, &text), 0);
    EXPECT_EQ(text, nullptr);
}

// What a callback did to the service or its own socket has been done to everything once, whichever callback it was.
TEST_F(SocketService, EveryCallbackMayStopItOrCloseItsSocket) {
    const Texts events{"up 1", "up 0", "got ping", "empty", "down 1", "down 0", "listens 1", "asked", "lost server"};
    for (const bool stops : {true, false})
        for (const std::string &event : events) {
            SCOPED_TRACE(event);
            story.take();
            (*address)->Init(address, "127.0.0.1", 0);
            client.then = server.then = listener.then = [&](const std::string &told, Tq4_socket_info *own) {
                if (told != event || story.count("did it") > 0) return;
                story.tell("did it");
                stops ? (*s)->Stop(s) : (*s)->Close(s, &own->id);
                Tq4_socket_info inside = info_of(client, nullptr, address);
                (*s)->Connect(s, &inside, &callbacks);
                EXPECT_EQ(inside.id.l != 0, !stops);
                (*s)->Close(s, &inside.id);
            };
            Tq4_socket_info at = info_of(listener, address, nullptr);
            (*s)->Listen(s, &at, &listening);
            if (at.fd >= 0) Tq4_sock_api->GetLocalAddr(at.fd, address);
            const Tq4_socket_info info = connect(client);
            if (event.starts_with("down") || event == "lost server") {
                story.await("server up 0");
                (*s)->Close(s, event == "down 1" ? &server.last : &info.id);
            } else {
                send(info.id, "ping");
            }
            story.await("did it");
            (*s)->Stop(s);
            EXPECT_EQ(story.count("listener freed"), 1);
            EXPECT_EQ(story.count("server freed"), story.count("listener asked"));
            const bool closed_early = !stops && event == "asked"; // and is not told of ends any more
            EXPECT_EQ(story.count("listener lost server"), closed_early ? 0 : story.count("server up 0"));
            EXPECT_NE((*s)->Start(s), nullptr);
        }
}

TEST_F(SocketService, ACallbackMayDeleteIt) {
    Tq4_socket deleted = service.release();
    server.then = [&](const std::string &event, Tq4_socket_info *) {
        if (event != "got ping") return;
        Tq4_socket_oitf->Delete(deleted);
        story.tell("deleted");
    };
    listen();
    const Tq4_socket_info info = connect(client);
    send(info.id, "ping");
    story.await("deleted");
    story.await("listener freed");
}

TEST_F(SocketService, ACallbackMayCloseAnySocket) {
    listen();
    client.then = [&](const std::string &event, Tq4_socket_info *info) {
        if (event == "up 1") (*s)->Close(s, &info->id);
        if (event == "down 0") (*s)->Close(s, &info->id);
    };
    connect(client);
    story.await("client freed");
    story.await("server freed");
    EXPECT_EQ(story.count("client down 0"), 1);
    client.then = [](auto &, auto) {};
    Owner second{story, "second"};
    server.then = [&](const std::string &event, Tq4_socket_info *) {
        if (event == "got x") (*s)->Close(s, &second.last);
    };
    connect(second);
    story.await("second up 1");
    story.await("server up 0", 2);
    send(second.last, "x");
    story.await("second freed");
    story.await("server freed", 2);
}

TEST_F(SocketService, HundredsComeAndGoWithoutATrace) {
    listen();
    const auto before = open_descriptors();
    server.on_data = [&](Tq4_string *data) { return send(server.last, text_of(*data)), 0; };
    for (int round = 0; round < 3; ++round) {
        std::vector<Tq4_socket_info> infos;
        infos.reserve(300);
        for (int i = 0; i < 300; ++i) infos.push_back(connect(client));
        story.await("client up 1", 300);
        story.await("server up 0", 300);
        for (const auto &info : infos) EXPECT_EQ(send(info.id, "x"), 1);
        for (const auto &info : infos) (*s)->Close(s, &info.id);
        story.await("server freed", 300);
        EXPECT_EQ(story.count("client freed"), 300);
        story.take();
    }
    EXPECT_LE(open_descriptors(), before);
}

TEST_F(SocketService, AListenerWithoutDescriptorsWaitsForOne) {
    listen();
    rlimit before;
    getrlimit(RLIMIT_NOFILE, &before);
    const int own = Tq4_sock_api->OpenTcp2(address, 0);
    const rlimit none{static_cast<rlim_t>(own + 1), before.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    EXPECT_EQ(Tq4_sock_api->Connect2(address, own), own);
    std::this_thread::sleep_for(150ms);
    EXPECT_EQ(story.count("listener asked"), 0);
    timespec used;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &used);
    std::this_thread::sleep_for(200ms);
    timespec later;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &later);
    EXPECT_LT((later.tv_sec - used.tv_sec) * 1000 + (later.tv_nsec - used.tv_nsec) / 1000000, 100)
        << "it does not spin";
    setrlimit(RLIMIT_NOFILE, &before);
    story.await("server up 0");
    Tq4_sock_api->Close(own);
    story.await("server freed");
}

TEST_F(SocketService, DescriptorsAreAsTheirKindNeeds) {
    std::atomic<int> accepted = -1;
    server.then = [&](const std::string &event, Tq4_socket_info *info) {
        if (event == "up 0") accepted = info->fd;
    };
    const Tq4_socket_info at = listen(), connection = connect(client);
    while (accepted < 0) std::this_thread::yield();
    Tq4_socket_info datagrams = info_of(client, nullptr, nullptr);
    (*s)->Open(s, &datagrams, &callbacks);
    for (const int fd : {at.fd, connection.fd, accepted.load(), datagrams.fd}) {
        EXPECT_TRUE(fcntl(fd, F_GETFD) & FD_CLOEXEC);
        EXPECT_EQ((fcntl(fd, F_GETFL) & O_NONBLOCK) != 0, fd != datagrams.fd);
    }
    const auto option = [&](int level, int name, int fd) {
        int value = 0;
        socklen_t size = sizeof value;
        getsockopt(fd, level, name, &value, &size);
        return value;
    };
    EXPECT_TRUE(option(IPPROTO_TCP, TCP_NODELAY, connection.fd) && option(IPPROTO_TCP, TCP_NODELAY, accepted));
    EXPECT_LT(option(SOL_SOCKET, SO_SNDBUF, datagrams.fd), 8192);
    EXPECT_GT(option(SOL_SOCKET, SO_RCVBUF, datagrams.fd), option(SOL_SOCKET, SO_RCVBUF, accepted));
}

TEST_F(SocketService, ABusyServiceIsNotWokenAndALostWakeUpStrandsNothing) {
    const Tq4_socket_info info = connected();
    std::atomic<bool> go_on = false;
    server.then = [&](const std::string &event, Tq4_socket_info *) {
        while (event == "got busy" && !go_on) std::this_thread::yield();
    };
    send(info.id, "busy");
    story.await("server got busy");
    {
        const Armed_fault wake_up({"sendto", ENOBUFS, Fault_manner::from_then_on}, 1);
        for (int i = 0; i < 1000; ++i) send(info.id, "");
        EXPECT_FALSE(wake_up.happened());
        go_on = true;
        story.await("client empty", 2);
        while (!wake_up.happened()) { // until it has fallen asleep
            std::this_thread::sleep_for(1ms);
            send(info.id, "");
        }
        send(info.id, "late");
        story.await("server got late");
    }
}

// Calls nothing, so that only a kill ends it; called through a pointer, so that the kill unwinds through its caller.
void be_deaf() {
    for (;;) asm volatile("" ::: "memory");
}
void (*volatile deaf)() = be_deaf;

// Whoever waits for the callback is let go, and the service goes on after its next start.
TEST_F(SocketService, ACallbackThatNeverReturnsIsKilledByStop) {
    static std::atomic<bool> inside;
    inside = false;
    Tq4_socket_callback never = callbacks;
    never.OnDisConnect = [](Tq4_socket, Tq4_socket_info *, int) { return inside = true, deaf(), 0; };
    listen();
    Tq4_socket_info info = info_of(client, nullptr, address);
    (*s)->Connect(s, &info, &never);
    story.await("client up 1");
    Parallel closer([&] { (*s)->Close(s, &info.id); });
    while (!inside) std::this_thread::yield();
    (*s)->Stop(s);
    EXPECT_EQ(story.count("client freed"), 1);
    EXPECT_EQ(story.count("listener freed"), 1);
    EXPECT_NE((*s)->Start(s), nullptr);
    (*address)->Init(address, "127.0.0.1", 0);
    story.take();
    send(connected().id, "on");
    story.await("server got on");
}

TEST_F(SocketService, APeerThatResetsInTheMiddleOfWritesEndsTheConnection) {
    listen();
    const int peer = Tq4_sock_api->Connect2(address, -1);
    story.await("server up 0");
    Tq4_debug_api->SetLog([](int, const char *, va_list) {});
    const std::string much(1 << 20, 'x');
    for (int i = 0; i < 20; ++i) send(server.last, much);
    const linger reset{1, 0};
    setsockopt(peer, SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
    Tq4_sock_api->Close(peer);
    story.await("server down 0");
    story.await("server freed");
    Tq4_debug_api->SetLog(nullptr);
}

} // namespace
