// The socket service between real sockets of this host: every callback and its order, sends and their limits, ends of
// every kind, and what is left of it all.
#include <condition_variable>
#include <mutex>
#include <netinet/udp.h>
#include <numeric>

#include "support/test.hpp"

namespace {

using namespace std::chrono_literals;

// What happened, told by any thread and awaited by the test.
class Story {
    std::mutex m_mutex;
    std::condition_variable m_more;
    Texts m_told;

public:
    void tell(std::string what) {
        std::lock_guard guard(m_mutex);
        m_told.push_back(std::move(what));
        m_more.notify_all();
    }
    // The first so many tellings of it have come.
    bool await(const std::string &what, long times = 1) {
        std::unique_lock guard(m_mutex);
        const auto came = [&] { return std::count(m_told.begin(), m_told.end(), what) >= times; };
        const bool ok = m_more.wait_for(guard, 30s, came);
        if (!ok) ADD_FAILURE() << what << " did not come, but:" << testing::PrintToString(m_told);
        return ok;
    }
    long count(const std::string &what) {
        std::lock_guard guard(m_mutex);
        return std::count(m_told.begin(), m_told.end(), what);
    }
    Texts take() {
        std::lock_guard guard(m_mutex);
        return std::exchange(m_told, {});
    }
};

// The owner of a socket: tells what happens to it, and does what a test wants done there.
struct Owner {
    Story &story;
    std::string name;
    std::function<void(const std::string &event, Tq4_socket_info *)> then = [](auto &, auto) {};
    std::function<int(Tq4_string *)> on_data = nullptr; // instead of telling the text
    int after_failure = -1, after_end = -1;
    Owner *child = nullptr; // of the connections a listener accepts; null refuses them
    Tq4_id last = {};       // the socket of the last event

    void tell(const std::string &event, Tq4_socket_info *info) {
        last = info->id;
        story.tell(name + " " + event);
        then(event, info);
    }
};

Owner &owner(Tq4_socket_info *info) { return *static_cast<Owner *>(info->user_obj); }
void freed(void *who) { static_cast<Owner *>(who)->story.tell(static_cast<Owner *>(who)->name + " freed"); }

const Tq4_socket_callback callbacks = {
    .OnDataOk =
        [](Tq4_socket, Tq4_socket_info *info, Tq4_string *data) {
            if (owner(info).on_data) return owner(info).on_data(data);
            owner(info).tell("got " + text_of(*data), info);
            return 0;
        },
    .OnConnectOk = [](Tq4_socket, Tq4_socket_info *info,
                      int master) { owner(info).tell("up " + std::to_string(master), info); },
    .OnConnectFaild =
        [](Tq4_socket, Tq4_socket_info *info, int error) {
            const int result = owner(info).after_failure;
            owner(info).tell(error == ECONNREFUSED ? "refused" : "failed " + std::to_string(error), info);
            return result;
        },
    .OnDisConnect =
        [](Tq4_socket, Tq4_socket_info *info, int master) {
            const int result = owner(info).after_end;
            owner(info).tell("down " + std::to_string(master), info);
            return result;
        },
    .OnSendQueueEmpty = [](Tq4_socket, Tq4_socket_info *info) { owner(info).tell("empty", info); },
    .OnSendQueueFull = [](Tq4_socket, Tq4_socket_info *info,
                          int full) { owner(info).tell("full " + std::to_string(full), info); },
};

const Tq4_listen_callback listening = {
    .OnListenResult = [](Tq4_socket, Tq4_socket_info *info,
                         int ok) { owner(info).tell("listens " + std::to_string(ok), info); },
    .OnAccept = [](Tq4_socket, Tq4_socket_info *info, Tq4_socket_info *child) -> const Tq4_socket_callback * {
        owner(info).tell("asked", info);
        if (!owner(info).child) return nullptr;
        child->user_obj = owner(info).child;
        child->del_userobj = freed;
        return &callbacks;
    },
    .OnChildClose =
        [](Tq4_socket, Tq4_socket_info *info, Tq4_socket_info *child) {
            owner(info).tell("lost " + owner(child).name, info);
            return 0;
        },
};

int descriptors() {
    int count = 0;
    for ([[maybe_unused]] const auto &each : fs::directory_iterator("/proc/self/fd")) ++count;
    return count;
}

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

    static Tq4_socket_info info_of(Owner &who, Tq4_sockaddr local, Tq4_sockaddr remote) {
        Tq4_socket_info info{};
        info.local = local;
        info.remote = remote;
        info.user_obj = &who;
        info.del_userobj = freed;
        return info;
    }
    // Opens a listener; from then on `address` is where it listens.
    Tq4_socket_info listen() {
        Tq4_socket_info info = info_of(listener, address, nullptr);
        EXPECT_EQ((*s)->Listen(s, &info, &listening), 0);
        EXPECT_TRUE(story.await("listener listens 1"));
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
    const auto before = descriptors();
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
    EXPECT_EQ(descriptors(), before);
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

TEST_F(SocketService, EveryCallbackMayStopItAndItStartsAgain) {
    for (const char *event :
         {"up 1", "up 0", "got ping", "empty", "down 1", "down 0", "listens 1", "asked", "lost server"}) {
        story.take();
        (*address)->Init(address, "127.0.0.1", 0);
        const auto stop = [&, event](const std::string &told, Tq4_socket_info *) {
            if (told != event) return;
            Tq4_socket_info inside = info_of(client, nullptr, address);
            (*s)->Stop(s);
            (*s)->Connect(s, &inside, &callbacks);
            story.tell("stopped");
        };
        client.then = server.then = listener.then = stop;
        Tq4_socket_info at = info_of(listener, address, nullptr);
        (*s)->Listen(s, &at, &listening);
        if (at.fd >= 0) Tq4_sock_api->GetLocalAddr(at.fd, address);
        const Tq4_socket_info info = connect(client);
        const std::string awaited = event;
        if (awaited.starts_with("down") || awaited.starts_with("lost")) story.await("server up 0");
        if (awaited == "down 1")
            (*s)->Close(s, &server.last);
        else if (awaited.starts_with("down") || awaited.starts_with("lost"))
            (*s)->Close(s, &info.id);
        else
            send(info.id, "ping");
        story.await("stopped");
        EXPECT_NE((*s)->Start(s), nullptr) << event;
        EXPECT_EQ(story.count("listener freed"), 1) << event;
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
    const auto before = descriptors();
    server.on_data = [&](Tq4_string *data) { return send(server.last, text_of(*data)), 0; };
    for (int round = 0; round < 3; ++round) {
        std::vector<Tq4_socket_info> infos;
        for (int i = 0; i < 300; ++i) infos.push_back(connect(client));
        story.await("client up 1", 300);
        story.await("server up 0", 300);
        for (const auto &info : infos) EXPECT_EQ(send(info.id, "x"), 1);
        for (const auto &info : infos) (*s)->Close(s, &info.id);
        story.await("server freed", 300);
        EXPECT_EQ(story.count("client freed"), 300);
        story.take();
    }
    EXPECT_LE(descriptors(), before);
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
