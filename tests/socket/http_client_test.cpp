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
    // The next so many are these; with all, nothing else has come.
    void expect(const Texts &texts, bool all = true) {
        for (const std::string &text : texts) EXPECT_EQ(next(), text);
        std::lock_guard guard(m_mutex);
        EXPECT_TRUE(!all || m_texts.empty()) << testing::PrintToString(m_texts);
    }
};

const std::string reply = "HTTP/1.1 203 Fine\r\nTransfer-Encoding: chunked\r\n\r\n4\r\nabcd\r\n2\r\nef\r\n0\r\n\r\n";

bool put(int fd, std::string_view text) {
    return ::send(fd, text.data(), text.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(text.size());
}

class Server {
    using Answer = std::function<bool(int fd, int connection)>; // false ends the connection
    const int m_listener = Tq4_sock_api->OpenTcp("127.0.0.1", 0, 1);
    std::mutex m_mutex, m_answering;
    std::vector<int> m_descriptors;
    std::vector<std::thread> m_connections;
    std::thread m_accepting;
    Answer m_answer = [](int fd, int) { return put(fd, reply); };

    // A request is one block.
    void serve(int fd, int connection) {
        char block[4096];
        for (ssize_t n; (n = recv(fd, block, sizeof block, 0)) > 0;) {
            seen.tell({block, static_cast<std::size_t>(n)});
            std::lock_guard guard(m_answering);
            if (!m_answer(fd, connection)) break;
        }
        shutdown(fd, SHUT_RDWR);
    }
    void accept_all() {
        for (int fd, count = 0; (fd = accept(m_listener, nullptr, nullptr)) >= 0; ++count) {
            Tq4_sock_api->NoDelay(fd, 1);
            m_descriptors.push_back(fd);
            m_connections.emplace_back([this, fd, count] { serve(fd, count); });
        }
    }

public:
    int port;
    Told seen; // requests

    Server() {
        auto address = Tq4_make<Tq4_sockaddr>(Tq4_sockaddr_oitf);
        Tq4_sock_api->GetLocalAddr(m_listener, address.get());
        port = (*address)->port(address.get());
        Tq4_sock_api->Listen(m_listener, 128);
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
    // What comes after each request from now on. It keeps copies of what it uses.
    void answers(Answer answer) {
        std::lock_guard guard(m_answering);
        m_answer = std::move(answer);
    }
};

struct HttpClient : testing::Test {
    static HttpClient *now;
    Told told;
    std::function<void(Tq4_http_client_callback *)> then = [](auto) {}; // in the callback
    Server server;
    Tq4_own<Tq4_socket> service = Tq4_make<Tq4_socket>(Tq4_socket_oitf);
    Tq4_socket s = service.get();
    Tq4_own<Tq4_http_client> owned;
    Tq4_http_client c;

    HttpClient() {
        now = this;
        Tq4_debug_api->SetPrint([](int, const char *, va_list) {}); // of threads that begin and end
        begin();
    }
    ~HttpClient() {
        owned.reset();
        service.reset();
        Tq4_debug_api->SetPrint(nullptr);
    }
    void begin() {
        (*s)->Start(s);
        owned = Tq4_make<Tq4_http_client>(Tq4_http_client_oitf, s);
        c = owned.get();
        (*c)->SetOnDisConnect(c, [](Tq4_http_client) { now->told.tell("down"); });
        EXPECT_EQ((*c)->Connect(c, "127.0.0.1", server.port), 1);
    }
    static void on_response(Tq4_http_client, Tq4_http_client_callback *response) {
        const std::string text = std::to_string(response->status) + " " + text_of(response->data);
        now->then(response);
        now->told.tell(text);
    }
    static int request(Tq4_http_client client, const char *method, const char *url, Tq4_value_table headers = nullptr,
                       Tq4_string body = nullptr) {
        return (*client)->Request(client, method, url, headers, body, on_response);
    }
    int get(const char *url = "/") { return request(c, "GET", url); }
};
HttpClient *HttpClient::now;

TEST_F(HttpClient, SendsRequestsToTheByte) {
    auto headers = Tq4_make_hooked<Tq4_value_table>(Tq4_cxx_support->new_table);
    Tq4_value_table h = headers.get();
    (*h)->SetSS(h, "Accept", "text/*");
    (*h)->SetSInt64(h, "N", -7);
    Tq4_value value = (*h)->InsertS(h, "Large");
    (*value)->SetDouble(value, 1e20);
    auto body = Tq4_make_hooked<Tq4_string>(Tq4_cxx_support->new_string);
    (*body)->Memcpy(body.get(), "a\0\r\n", 4);
    EXPECT_EQ(request(c, "POST", "/a?b", h, body.get()), 1);
    server.seen.expect({"POST /a?b HTTP/1.1\r\nhost: 127.0.0.1\r\nAccept: text/*\r\nN: -7\r\nLarge: 1" +
                        std::string(20, '0') + "\r\nConnecting: keep-alive\r\nContent-Length: 4\r\n\r\na\0\r\n"s});
    told.expect({"203 abcdef"});
    (*body)->Strcpy(body.get(), "");
    (*c)->SetHost(c, "other:80");
    EXPECT_EQ(request(c, "GET", "/", nullptr, body.get()), 1);
    server.seen.expect({"GET / HTTP/1.1\r\nhost: other:80\r\nConnecting: keep-alive\r\n\r\n"});
    told.expect({"203 abcdef"});
}

TEST_F(HttpClient, RefusesWhatCannotBeSent) {
    const struct {
        const char *method, *url, *host, *name;
        std::string value;
    } cases[] = {
        {nullptr, "/", "h", "A", ""},     {"GET", nullptr, "h", "A", ""},     {"GE\rT", "/", "h", "A", ""},
        {"GET", "/\nX: y", "h", "A", ""}, {"GET", "/", "h\r\nX: y", "A", ""}, {"GET", "/", "h", "A\n", ""},
        {"GET", "/", "h", "A", "b\rc"},   {"GET", "/", "h", "A", "b\0c"s},    {"GET", "/", "h", "", "no name"},
    };
    for (const auto &[method, url, host, name, value] : cases) {
        auto headers = Tq4_make_hooked<Tq4_value_table>(Tq4_cxx_support->new_table);
        Tq4_value header = (*headers)->InsertS(headers.get(), name);
        (*header)->SetString(header, value.data(), static_cast<int>(value.size()));
        (*c)->SetHost(c, host);
        EXPECT_EQ(request(c, method, url, headers.get()), 0) << (method ? method : "") << (url ? url : "") << host;
    }
    static Told go;
    server.answers([](int fd, int) { return go.next(), put(fd, reply); });
    EXPECT_EQ(get(), 1);
    EXPECT_EQ(get(), 0) << "while one waits";
    go.tell("");
    told.expect({"203 abcdef"});
    auto other = Tq4_make<Tq4_http_client>(Tq4_http_client_oitf, s);
    EXPECT_EQ(request(other.get(), "GET", "/"), 0) << "without a server";
    EXPECT_EQ((*other)->Connect(other.get(), "no such host.invalid", 80), 0);
    EXPECT_EQ((*other)->Connect(other.get(), nullptr, 80), 0);
}

TEST_F(HttpClient, TellsWhatCameAndLetsItBeTaken) {
    server.answers([](int fd, int) {
        return put(fd, "HTTP/1.1 200 OK\r\nX-Name: 1\r\nx-nAME:  2 \r\nContent-Length: 3\r\n\r\na\0b"sv);
    });
    Tq4_own<Tq4_value_table> header;
    Tq4_own<Tq4_string> data;
    then = [&](Tq4_http_client_callback *response) {
        EXPECT_STREQ(response->url, header ? "/second" : "/first");
        EXPECT_EQ(response->session_id->l, header ? 8u : 0u);
        Tq4_value value = (*response->header)->ValueS(response->header, "X-NAME");
        EXPECT_EQ(text_of((*value)->GetString(value)), "2");
        EXPECT_EQ((*response->header)->Count(response->header), 2u);
        if (header) return;
        header.reset(std::exchange(response->header, nullptr));
        data.reset(std::exchange(response->data, nullptr));
        const Tq4_id id{7, 8};
        (*c)->SetReqId(c, &id);
        EXPECT_EQ(get("/second"), 1) << "the client is free for the next one";
    };
    get("/first");
    told.expect({"200 a\0b"s, "200 a\0b"s});
    EXPECT_EQ(text_of(data.get()), "a\0b"s);
}

TEST_F(HttpClient, AChainOfRequestsSharesOneConnection) {
    server.answers([](int fd, int connection) {
        for (const char byte : reply)
            if (!put(fd, {&byte, 1})) return false;
        return connection == 0;
    });
    int left = 20;
    then = [&](auto) { --left > 0 && get(); };
    EXPECT_EQ(get(), 1);
    told.expect(Texts(20, "203 abcdef"));
    EXPECT_EQ((*c)->Connect(c, "no such host.invalid", 1), 1) << "nothing, while connected";
    Tq4_own<Tq4_http_client> second(static_cast<Tq4_http_client>(Tq4_object_Dup(c))); // of the same service
    (*second)->Connect(second.get(), "127.0.0.1", server.port);
    EXPECT_EQ(request(second.get(), "GET", "/"), 1);
    told.expect({"203 abcdef"}); // and the server ends that connection, of which nobody is told
    EXPECT_EQ(request(c, "HEAD", "/"), 1);
    told.expect({"203 "});
    EXPECT_EQ((*c)->IsConnect(c), 1);
}

TEST_F(HttpClient, ADropAnywhereSendsTheRequestAgain) {
    for (std::size_t cut = 0; cut < reply.size() - 2; ++cut) { // at the empty line nothing is missed any more
        server.answers([cut](int fd, int connection) {
            put(fd, std::string_view(reply).substr(0, connection % 2 ? std::string::npos : cut));
            return false;
        });
        EXPECT_EQ(get(), 1);
        told.expect({"down", "203 abcdef", "down"});
        EXPECT_EQ(server.seen.next(), server.seen.next());
    }
    server.seen.expect({});
}

TEST_F(HttpClient, WhatNeverComesWholeIsAnsweredWithWhatCame) {
    server.answers([](int fd, int) { return put(fd, "HTTP/1.1 201 OK\r\nContent-Length: 9\r\n\r\nabc") && false; });
    get();
    told.expect(Texts(16, "down"), false);
    told.expect({"201 abc"});
    // More than a client takes: the connection is given up, and the next request has one of its own.
    const std::string excess = "HTTP/1.1 202 OK\r\nTransfer-Encoding: chunked\r\n\r\n1\r\na\r\nffffffff\r\n";
    server.answers([=](int fd, int connection) { return put(fd, connection < 17 ? excess : reply); });
    int left = 1;
    then = [&](auto) {
        EXPECT_EQ((*c)->IsConnect(c), left == 0);
        if (left-- > 0) get();
    };
    get();
    told.expect({"202 a", "down", "203 abcdef"});
    (*c)->Close(c);
    told.expect({"down"});
    (*c)->Connect(c, "127.0.0.1", [] { return Server().port; }());
    get();
    told.expect({"0 "}); // nobody listens any more
}

// A request that waits, and one whose callback runs, when somebody ends it: from this thread, or in the callback.
TEST_F(HttpClient, EndsByItsOwnersWill) {
    const struct {
        std::function<void()> end;
        Texts when_waiting, in_callback; // what is told
    } ways[] = {
        {[&] { (*c)->Close(c); }, {"down"}, {"down", "203 abcdef"}},
        {[&] { Tq4_http_client_oitf->Delete(owned.release()); }, {"down"}, {"down", "203 abcdef"}},
        {[&] { (*s)->Stop(s); }, {"down", "0 "}, {"203 abcdef", "down"}},
    };
    for (const auto &[end, when_waiting, in_callback] : ways)
        for (const bool inside : {false, true}) {
            begin();
            server.answers([inside](int fd, int) { return !inside || put(fd, reply); });
            then = [&, end = end](auto) { inside ? end() : void(); };
            get();
            server.seen.next();
            if (!inside) end();
            told.expect(inside ? in_callback : when_waiting);
            (*s)->Stop(s);
            EXPECT_EQ(owned ? get() : 0, 0) << "a service that is stopped takes nothing";
        }
}

// Requests from several threads, while others close: those that are taken are answered or forgotten, and nothing hangs.
TEST_F(HttpClient, ServesAnyThread) {
    std::atomic<int> answered = 0;
    then = [&](auto) { ++answered; };
    {
        std::vector<std::unique_ptr<Parallel>> threads;
        for (int t = 0; t < 4; ++t)
            threads.push_back(std::make_unique<Parallel>([&, t] {
                for (int i = 0; answered < 100; ++i) {
                    get();
                    (*c)->SetHost(c, t ? "a host" : "another, with a longer name");
                    if (i % 5000 == 1000 * t) (*c)->Close(c);
                    (*c)->Connect(c, "127.0.0.1", server.port);
                }
            }));
    }
    (*c)->Close(c); // after which no callback of theirs comes
    answered = 0;
    EXPECT_EQ(get(), 1);
    while (answered == 0) std::this_thread::yield();
}

#ifndef TQ4_THREAD_SANITIZER // which takes what a killed thread has done for unordered
TEST_F(HttpClient, AKilledCallbackLeavesTheClientUsable) {
    const auto hang = [](Tq4_http_client, Tq4_http_client_callback *) {
        now->told.tell("hangs");
        for (;;) pause();
    };
    EXPECT_EQ((*c)->Request(c, "GET", "/", nullptr, nullptr, hang), 1);
    told.expect({"hangs"});
    (*s)->Stop(s);
    told.expect({"down"});
    (*s)->Start(s);
    EXPECT_EQ(get(), 1);
    told.expect({"203 abcdef"});
}
#endif

} // namespace
