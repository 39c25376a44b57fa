// The socket service while the system fails: nobody is left waiting, and nothing stays behind.
#include "socket/service_story.hpp"
#include "support/fault_sweep.hpp"

namespace {

// A service from its making to its end: a connection over which two texts go and come back, and a datagram. Tells
// whether all of it went well; waits for the rest of it only as long as the patience lasts.
class Short_life {
    Story m_story;
    Owner m_client{m_story, "client"}, m_server{m_story, "server"}, m_listener{m_story, "listener"};
    Tq4_own<Tq4_socket> m_service = Tq4_make<Tq4_socket>(Tq4_socket_oitf);
    Tq4_socket s = m_service.get();
    Tq4_own<Tq4_sockaddr> m_address = Tq4_make<Tq4_sockaddr>(Tq4_sockaddr_oitf);
    std::string m_echoed;
    long m_opened = 0;

    bool Serve(std::chrono::milliseconds patience) {
        Tq4_sockaddr address = m_address.get();
        Tq4_socket_info udp{};
        udp.fd = -1;
        for (int tries = 0; tries < 5 && udp.fd < 0; ++tries) { // the listener's port may be somebody's for datagrams
            (*address)->Init(address, "127.0.0.1", 0);
            Tq4_socket_info listener = info_of(m_listener, address, nullptr);
            (*s)->Listen(s, &listener, &listening);
            m_opened += listener.id.l != 0;
            if (!Tq4_sock_api->GetLocalAddr(listener.fd, address)) return false;
            udp = info_of(m_server, address, nullptr);
            (*s)->Open(s, &udp, &callbacks);
            m_opened += udp.id.l != 0;
        }
        Tq4_socket_info client = info_of(m_client, nullptr, address);
        const bool sent = udp.fd >= 0 && Tq4_sock_api->Send(udp.fd, address, "datagram", 8) == 8;
        (*s)->Connect(s, &client, &callbacks);
        const bool came = sent && m_story.comes("datagram", 1, patience);
        const bool echoed = m_story.comes("echoed", 1, patience);
        (*s)->Close(s, &client.id);
        return came && echoed && m_story.comes("server down 0", 1, patience);
    }

public:
    Short_life() {
        m_listener.child = &m_server;
        m_client.then = [this](const std::string &event, Tq4_socket_info *info) {
            if (event == "up 1") (*s)->Printf(s, &info->id, "a"), (*s)->Printf(s, &info->id, "b");
        };
        m_client.on_data = [this](Tq4_string *data) {
            if ((m_echoed += text_of(*data)) == "ab") m_story.tell("echoed");
            return 0;
        };
        m_server.on_data = [this](Tq4_string *data) {
            if (text_of(*data) == "datagram") return m_story.tell("datagram"), 0;
            return (*s)->SendString(s, &m_server.last, data);
        };
    }
    bool run(std::chrono::milliseconds patience) {
        const bool started = (*s)->Start(s) != nullptr;
        const bool served = started && Serve(patience);
        (*s)->Stop(s);
        const long ups = m_story.count("client up 1"), tries = m_story.count("client freed");
        EXPECT_LE(tries, 1);
        EXPECT_GE(tries, ups);
        EXPECT_EQ(m_story.count("listener freed") + m_story.count("server freed"),
                  m_opened + m_story.count("listener asked"));
        m_service.reset();
        return served;
    }
};

TEST(SocketFaults, NobodyWaitsAndNothingStaysWhateverTheSystemRefuses) {
    Tq4_debug_api->SetPrint([](int, const char *, va_list) {});
    Tq4_debug_api->SetLog([](int, const char *, va_list) {});
    const std::set<std::string> calls{"accept4", "bind",   "connect",  "epoll_create1", "epoll_ctl",
                                      "fcntl",   "listen", "recv",     "epoll_wait",    "pthread_create",
                                      "send",    "socket", "recvmmsg", "sendmsg",       "setsockopt"};
    sweep_faults(calls, [](Fault_round &round) {
        if (round.is("pthread_cond_init")) return; // threads do not begin without it
        const bool served = round([&] { return Short_life().run(round.may_refuse() ? 50ms : 30s); });
        EXPECT_TRUE(served || round.may_refuse() || round.is("sendto")) << "half a datagram is another one";
    });
    Tq4_debug_api->SetLog(nullptr);
    Tq4_debug_api->SetPrint(nullptr);
}

} // namespace
