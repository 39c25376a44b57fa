// The HTTP client beside a server of this test, which answers as it is told: what is sent, what comes back, and what
// becomes of a request however its connection ends.
#include <condition_variable>
#include <mutex>
#include <netinet/tcp.h>

#include "sanitizers.hpp"
#include "support/test.hpp"

using namespace std::literals;

namespace {

// What other threads tell, in its order.
class Told {
    std::mutex m_mutex;
    std::condition_variable m_more;
    std::deque<std::string> m_texts;

public:
    void tell(std::string text) {
        std::lock_guard guard(m_mutex);
        m_texts.push_back(std::move(text));
        m_more.notify_all();
    }
    std::string next() {
        std::unique_lock guard(m_mutex);
        if (!m_more.wait_for(guard, 60s, [&] { return !m_texts.empty(); })) return "(nothing came)";
        std::string text = std::move(m_texts.front());
        m_texts.pop_front();
        return text;
    }
    std::string rest() {
        std::lock_guard guard(m_mutex);
        return testing::PrintToString(std::exchange(m_texts, {}));
    }
};

class Server {
    int m_listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    std::mutex m_mutex;
    std::vector<int> m_descriptors;
    std::vector<std::thread> m_connections;
    std::thread m_accepting;
    std::mutex m_answering;
    std::function<bool(int fd, int connection)> m_answer = [](int fd, int) {
        return send(fd, "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok");
    };

    static std::string request(int fd) {
        std::string text;
        std::size_t length = std::string::npos;
        for (char c; text.size() < length && recv(fd, &c, 1, 0) == 1;) {
            text += c;
            if (length != std::string::npos || !text.ends_with("\r\n\r\n")) continue;
            const std::size_t at = text.find("Content-Length: ");
            length = text.size() + (at == std::string::npos ? 0 : std::stoul(text.substr(at + 16)));
        }
        return text;
    }
    void serve(int fd, int connection) {
        for (std::string text; !(text = request(fd)).empty();) {
            seen.tell(text);
            std::lock_guard guard(m_answering);
            if (!m_answer(fd, connection)) break;
        }
        shutdown(fd, SHUT_RDWR);
    }
    void accept_all() {
        for (int fd, count = 0; (fd = accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC)) >= 0; ++count) {
            const int on = 1;
            setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
            std::lock_guard guard(m_mutex);
            m_descriptors.push_back(fd);
            m_connections.emplace_back([this, fd, count] { serve(fd, count); });
        }
    }

public:
    int port;
    Told seen; // requests

    // What comes after a request, until it is said anew; a false ends the connection. It keeps copies of what it uses.
    void answers(std::function<bool(int fd, int connection)> answer) {
        std::lock_guard guard(m_answering);
        m_answer = std::move(answer);
    }
    static bool send(int fd, std::string_view text) {
        return ::send(fd, text.data(), text.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(text.size());
    }
    Server() {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        bind(m_listener, reinterpret_cast<sockaddr *>(&address), size);
        getsockname(m_listener, reinterpret_cast<sockaddr *>(&address), &size);
        port = ntohs(address.sin_port);
        listen(m_listener, 128);
        m_accepting = std::thread([this] { accept_all(); });
    }
    ~Server() {
        shutdown(m_listener, SHUT_RDWR);
        m_accepting.join();
        for (const int fd : m_descriptors) shutdown(fd, SHUT_RDWR);
        for (std::thread &connection : m_connections) connection.join();
        for (const int fd : m_descriptors) close(fd);
        close(m_listener);
    }
};

struct HttpClient : testing::Test {
    static HttpClient *now;
    Told told;
    std::function<void(Tq4_http_client, Tq4_http_client_callback *)> then = [](auto, auto) {}; // in the callback
    Server server;
    Tq4_own<Tq4_socket> service = Tq4_make<Tq4_socket>(Tq4_socket_oitf);
    Tq4_socket s = service.get();
    Tq4_own<Tq4_http_client> owned = Tq4_make<Tq4_http_client>(Tq4_http_client_oitf, s);
    Tq4_http_client c = owned.get();

    HttpClient() {
        now = this;
        Tq4_debug_api->SetPrint([](int, const char *, va_list) {}); // of threads that begin and end
        (*s)->Start(s);
        (*c)->SetOnDisConnect(c, [](Tq4_http_client) { now->told.tell("down"); });
        EXPECT_EQ((*c)->Connect(c, "127.0.0.1", server.port), 1);
    }
    ~HttpClient() {
        owned.reset();
        service.reset();
        Tq4_debug_api->SetPrint(nullptr);
    }
    static void on_response(Tq4_http_client client, Tq4_http_client_callback *response) {
        const std::string text = std::to_string(response->status) + " " + text_of(response->data);
        now->then(client, response);
        now->told.tell(text);
    }
    int get(const char *url = "/") { return (*c)->Request(c, "GET", url, nullptr, nullptr, on_response); }
};
HttpClient *HttpClient::now;

const std::string reply = "HTTP/1.1 203 Fine\r\nTransfer-Encoding: chunked\r\n\r\n4\r\nabcd\r\n2\r\nef\r\n0\r\n\r\n";

TEST_F(HttpClient, SendsRequestsToTheByte) {
    const std::string host = "127.0.0.1", end = "Connecting: keep-alive\r\n";
    auto headers = Tq4_make_hooked<Tq4_value_table>(Tq4_cxx_support->new_table);
    Tq4_value_table h = headers.get();
    (*h)->SetSS(h, "Accept", "text/*");
    (*h)->SetSInt64(h, "N", -7);
    Tq4_value value = (*h)->InsertS(h, "Large");
    (*value)->SetDouble(value, 1e20);
    auto body = Tq4_make_hooked<Tq4_string>(Tq4_cxx_support->new_string);
    (*body)->Memcpy(body.get(), "a\0\r\n", 4);
    EXPECT_EQ((*c)->Request(c, "POST", "/a?b", h, body.get(), on_response), 1);
    EXPECT_EQ(server.seen.next(), "POST /a?b HTTP/1.1\r\nhost: " + host +
                                      "\r\nAccept: text/*\r\nN: -7\r\nLarge: 100000000000000000000\r\n" + end +
                                      "Content-Length: 4\r\n\r\na\0\r\n"s);
    EXPECT_EQ(told.next(), "200 ok");
    (*body)->Strcpy(body.get(), "");
    (*c)->SetHost(c, "other:80");
    EXPECT_EQ((*c)->Request(c, "GET", "/", nullptr, body.get(), on_response), 1);
    EXPECT_EQ(server.seen.next(), "GET / HTTP/1.1\r\nhost: other:80\r\n" + end + "\r\n");
    EXPECT_EQ(told.next(), "200 ok");
    EXPECT_EQ(told.rest() + server.seen.rest(), "{}{}");
}

TEST_F(HttpClient, RefusesWhatCannotBeSent) {
    using Change = std::function<void(Tq4_value_table)>;
    const auto text = [](const char *name, const char *bytes, int n) {
        return [=](Tq4_value_table t) {
            Tq4_value value = (*t)->InsertS(t, name);
            (*value)->SetString(value, bytes, n);
        };
    };
    const struct {
        const char *method, *url, *host;
        Change header;
    } cases[] = {
        {nullptr, "/", "h", text("A", "", 0)},
        {"GET", nullptr, "h", text("A", "", 0)},
        {"GE\rT", "/", "h", text("A", "", 0)},
        {"GET", "/\nX: y", "h", text("A", "", 0)},
        {"GET", "/", "h\r\nX: y", text("A", "", 0)},
        {"GET", "/", "h", text("A\n", "", 0)},
        {"GET", "/", "h", text("A", "b\rc", 3)},
        {"GET", "/", "h", text("A", "b\0c", 3)},
        {"GET", "/", "h", [](auto t) { (*t)->SetIS(t, 5, "text"); }},
        {"GET", "/", "h", [](auto t) { (*t)->InsertTableS(t, "A"); }},
    };
    for (const auto &[method, url, host, header] : cases) {
        auto headers = Tq4_make_hooked<Tq4_value_table>(Tq4_cxx_support->new_table);
        header(headers.get());
        (*c)->SetHost(c, host);
        EXPECT_EQ((*c)->Request(c, method, url, headers.get(), nullptr, on_response), 0) << &header - &cases[0].header;
    }
    static Told go;
    server.answers([](int fd, int) { return go.next(), Server::send(fd, reply); });
    (*c)->SetHost(c, "h");
    EXPECT_EQ(get(), 1);
    EXPECT_EQ(get(), 0) << "while one waits";
    go.tell("");
    EXPECT_EQ(told.next(), "203 abcdef");
    EXPECT_TRUE(server.seen.next().starts_with("GET / HTTP/1.1\r\nhost: h\r\n"));
    EXPECT_EQ(server.seen.rest(), "{}");
    auto other = Tq4_make<Tq4_http_client>(Tq4_http_client_oitf, s);
    EXPECT_EQ((*other)->Request(other.get(), "GET", "/", nullptr, nullptr, on_response), 0) << "without a server";
    EXPECT_EQ((*other)->Connect(other.get(), "no such host.invalid", 80), 0);
    EXPECT_EQ((*other)->Connect(other.get(), nullptr, 80), 0);
}

TEST_F(HttpClient, TellsWhatCameAndLetsItBeTaken) {
    server.answers([](int fd, int) {
        return Server::send(fd, "HTTP/1.1 200 OK\r\nX-Name: 1\r\nx-nAME:  2 \r\nContent-Length: 3\r\n\r\na\0b"sv);
    });
    const Tq4_id id{7, 8};
    Tq4_own<Tq4_value_table> header;
    Tq4_own<Tq4_string> data;
    then = [&](Tq4_http_client client, Tq4_http_client_callback *response) {
        EXPECT_EQ(client, c);
        EXPECT_STREQ(response->url, header ? "/second" : "/first");
        EXPECT_EQ(response->session_id->l, header ? 8u : 0u);
        Tq4_value value = (*response->header)->ValueS(response->header, "X-NAME");
        EXPECT_EQ(text_of((*value)->GetString(value)), "2");
        EXPECT_EQ((*response->header)->Count(response->header), 2u);
        (*response->header)->RemoveAll(response->header);
        if (header) return;
        header.reset(std::exchange(response->header, nullptr));
        data.reset(std::exchange(response->data, nullptr));
        (*c)->SetReqId(c, &id);
        EXPECT_EQ(get("/second"), 1) << "the client is free for the next one";
    };
    get("/first");
    for (int i = 0; i < 2; ++i) EXPECT_EQ(told.next(), "200 a\0b"s);
    EXPECT_EQ(text_of(data.get()), "a\0b"s);
}

TEST_F(HttpClient, AChainOfRequestsSharesOneConnection) {
    server.answers([](int fd, int connection) {
        for (const char byte : reply)
            if (!Server::send(fd, {&byte, 1})) return false;
        return connection == 0;
    });
    int left = 20;
    then = [&](auto, auto) { --left > 0 && get(); };
    Tq4_own<Tq4_http_client> second(static_cast<Tq4_http_client>(Tq4_object_Dup(c))); // of the same service
    EXPECT_EQ(get(), 1);
    for (int i = 0; i < 20; ++i) EXPECT_EQ(told.next(), "203 abcdef");
    EXPECT_EQ((*c)->IsConnect(c), 1);
    EXPECT_EQ((*second)->IsConnect(second.get()), 0);
    (*second)->Connect(second.get(), "127.0.0.1", server.port);
    EXPECT_EQ((*second)->Request(second.get(), "GET", "/", nullptr, nullptr, on_response), 1);
    EXPECT_EQ(told.next(), "203 abcdef"); // and the server ends that connection, of which nobody is told
    EXPECT_EQ((*c)->Connect(c, "no such host.invalid", 1), 1) << "nothing, while connected";
    EXPECT_EQ((*c)->Request(c, "HEAD", "/", nullptr, nullptr, on_response), 1);
    EXPECT_EQ(told.next(), "203 ") << "what follows is dropped";
}

TEST_F(HttpClient, ADropAnywhereSendsTheRequestAgain) {
    const std::size_t complete = reply.size() - 2; // behind the last chunk's line nothing is missed
    for (std::size_t cut = 0; cut < complete; ++cut) {
        server.answers([cut](int fd, int connection) {
            Server::send(fd, std::string_view(reply).substr(0, connection % 2 ? std::string::npos : cut));
            return false;
        });
        EXPECT_EQ(get(), 1);
        for (const char *what : {"down", "203 abcdef", "down"}) EXPECT_EQ(told.next(), what) << cut;
        for (int i = 0; i < 2; ++i) EXPECT_TRUE(server.seen.next().starts_with("GET / "));
    }
    EXPECT_EQ(server.seen.rest(), "{}");
}

TEST_F(HttpClient, WhatNeverComesWholeIsAnsweredWithWhatCame) {
    const auto all_down = [&](int times) {
        for (int i = 0; i < times; ++i) EXPECT_EQ(told.next(), "down");
    };
    server.answers([](int fd, int) {
        Server::send(fd, "HTTP/1.1 201 OK\r\nContent-Length: 9\r\n\r\nabc");
        return false;
    });
    get();
    all_down(16);
    EXPECT_EQ(told.next(), "201 abc");
    EXPECT_EQ((*c)->IsConnect(c), 0);
    // More than a client takes: the connection is given up, and the next request has one of its own.
    const std::string excess = "HTTP/1.1 202 OK\r\nTransfer-Encoding: chunked\r\n\r\n1\r\na\r\nffffffff\r\n";
    server.answers([=](int fd, int connection) { return Server::send(fd, connection < 17 ? excess : reply); });
    int left = 1;
    then = [&](auto, auto) {
        EXPECT_EQ((*c)->IsConnect(c), left == 0);
        if (left-- > 0) get();
    };
    get();
    EXPECT_EQ(told.next(), "202 a");
    all_down(1);
    EXPECT_EQ(told.next(), "203 abcdef");
    (*c)->Close(c);
    all_down(1);
    EXPECT_EQ((*c)->IsConnect(c), 0);
    const int free_port = [] { return Server().port; }();
    EXPECT_EQ((*c)->Connect(c, "127.0.0.1", free_port), 1);
    get();
    EXPECT_EQ(told.next(), "0 ") << "nobody listens";
    EXPECT_EQ(told.rest(), "{}");
}

// A request that waits, and one whose callback runs, when somebody ends it: from this thread, or in the callback.
TEST_F(HttpClient, EndsByItsOwnersWill) {
    const struct {
        const char *name;
        std::function<void()> end;
        std::string when_waiting, in_callback; // what is told
    } ways[] = {
        {"close", [&] { (*c)->Close(c); }, "{ \"down\" }", "{ \"down\", \"203 abcdef\" }"},
        {"delete", [&] { Tq4_http_client_oitf->Delete(owned.release()); }, "{ \"down\" }",
         "{ \"down\", \"203 abcdef\" }"},
        {"stop", [&] { (*s)->Stop(s); }, "{ \"down\", \"0 \" }", "{ \"203 abcdef\", \"down\" }"},
    };
    Told waits;
    for (const auto &[name, end, when_waiting, in_callback] : ways) {
        for (const bool inside : {false, true}) {
            (*s)->Start(s);
            owned = Tq4_make<Tq4_http_client>(Tq4_http_client_oitf, s);
            c = owned.get();
            (*c)->SetOnDisConnect(c, [](Tq4_http_client) { now->told.tell("down"); });
            (*c)->Connect(c, "127.0.0.1", server.port);
            server.answers([inside](int fd, int) { return !inside || Server::send(fd, reply); });
            then = [&](auto, auto) { inside ? end() : void(); };
            get();
            server.seen.next();
            if (!inside) end();
            const std::string expected = inside ? in_callback : when_waiting;
            std::string all;
            for (std::size_t i = 0, n = std::count(expected.begin(), expected.end(), '"') / 2; i < n; ++i)
                all += (i ? ", \"" : "{ \"") + told.next() + "\"";
            EXPECT_EQ(all + " }", expected) << name << inside;
            (*s)->Stop(s);
            EXPECT_EQ(owned ? get() : 0, 0) << "a service that is stopped takes nothing";
            EXPECT_EQ(told.rest(), "{}") << name << inside;
        }
    }
}

// Requests from several threads, while others close: each that was taken is answered or forgotten, and nothing hangs.
TEST_F(HttpClient, ServesAnyThread) {
    std::atomic<int> answered = 0;
    then = [&](auto, auto) { ++answered; };
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            for (int i = 0; answered < 100; ++i) {
                get();
                (*c)->SetHost(c, t ? "a host" : "another, with a longer name");
                if (i % 5000 == 1000 * t) (*c)->Close(c);
                (*c)->Connect(c, "127.0.0.1", server.port);
            }
        });
    for (std::thread &thread : threads) thread.join();
    (*c)->Close(c);
    told.rest();
    EXPECT_EQ(get(), 1);
    EXPECT_EQ(told.next(), "200 ok");
}

#ifndef TQ4_THREAD_SANITIZER // which takes what a killed thread has done for unordered
TEST_F(HttpClient, AKilledCallbackLeavesTheClientUsable) {
    const auto hang = [](Tq4_http_client, Tq4_http_client_callback *) {
        now->told.tell("hangs");
        for (;;) pause();
    };
    EXPECT_EQ((*c)->Request(c, "GET", "/", nullptr, nullptr, hang), 1);
    EXPECT_EQ(told.next(), "hangs");
    (*s)->Stop(s);
    EXPECT_EQ(told.next(), "down");
    (*s)->Start(s);
    EXPECT_EQ(get(), 1);
    EXPECT_EQ(told.next(), "200 ok");
}
#endif

} // namespace
