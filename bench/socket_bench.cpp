// The socket service beside other event loops: 64-byte messages echoed on many connections, datagrams that arrive
// joined, and HTTP requests. The same generator of load, on a thread of its own, drives every server.
#include <benchmark/benchmark.h>

#include <arpa/inet.h>
#include <atomic>
#include <fcntl.h>
#include <functional>
#include <memory>
#include <netinet/tcp.h>
#include <netinet/udp.h>
#include <string>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "tq4/tq4.h"

#ifdef HAVE_LIBUV
#include <uv.h>
#endif
#ifdef HAVE_LIBEVENT
#include <event2/buffer.h>
#include <event2/bufferevent.h>
#include <event2/event.h>
#include <event2/listener.h>
#endif
#ifdef HAVE_ASIO
#include <asio.hpp>
#endif
#ifdef HAVE_LIBCURL
#include <curl/curl.h>
#endif

namespace {

constexpr std::size_t message_size = 64;

sockaddr_in loopback(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<uint16_t>(port));
    return address;
}

int listening_socket(int *port) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    sockaddr_in address = loopback(0);
    socklen_t size = sizeof address;
    bind(fd, reinterpret_cast<sockaddr *>(&address), size);
    listen(fd, 1024);
    getsockname(fd, reinterpret_cast<sockaddr *>(&address), &size);
    *port = ntohs(address.sin_port);
    return fd;
}

void no_delay(int fd) {
    const int on = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

// --- Servers that echo ---

class Tq4_server {
    Tq4_socket m_service = static_cast<Tq4_socket>(Tq4_socket_oitf->Create(nullptr));
    Tq4_sockaddr m_address = static_cast<Tq4_sockaddr>(Tq4_sockaddr_oitf->Create(nullptr));

    static int on_data(Tq4_socket s, Tq4_socket_info *info, Tq4_string *data) {
        return (*s)->SendString(s, &info->id, data);
    }
    static const Tq4_socket_callback *on_accept(Tq4_socket, Tq4_socket_info *, Tq4_socket_info *) {
        static constexpr Tq4_socket_callback callbacks = {.OnDataOk = on_data};
        return &callbacks;
    }

public:
    int port = 0;
    Tq4_server() {
        Tq4_debug_api->SetPrint([](int, const char *, va_list) {});
        (*m_service)->Start(m_service);
        (*m_address)->Init(m_address, "127.0.0.1", 0);
        static constexpr Tq4_listen_callback callbacks = {.OnAccept = on_accept};
        Tq4_socket_info info{};
        info.local = m_address;
        (*m_service)->Listen(m_service, &info, &callbacks);
        Tq4_sock_api->GetLocalAddr(info.fd, m_address);
        port = (*m_address)->port(m_address);
    }
    ~Tq4_server() {
        Tq4_socket_oitf->Delete(m_service);
        Tq4_sockaddr_oitf->Delete(m_address);
        Tq4_debug_api->SetPrint(nullptr);
    }
};

// The least that an event loop does.
class Bare_server {
public:
    int port = 0; // before the listener, which finds it

private:
    int m_listener, m_epoll = epoll_create1(EPOLL_CLOEXEC);
    std::atomic<bool> m_quit = false;
    std::thread m_thread;

    void watch(int fd) {
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.fd = fd;
        epoll_ctl(m_epoll, EPOLL_CTL_ADD, fd, &event);
    }
    void serve(int fd) {
        if (fd == m_listener) {
            const int accepted = accept4(fd, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
            if (accepted < 0) return;
            no_delay(accepted);
            return watch(accepted);
        }
        char room[2048];
        const ssize_t n = recv(fd, room, sizeof room, 0);
        if (n <= 0 || send(fd, room, static_cast<std::size_t>(n), MSG_NOSIGNAL) != n) close(fd);
    }
    void run() {
        while (!m_quit) {
            epoll_event events[128];
            const int count = epoll_wait(m_epoll, events, 128, 20);
            for (int i = 0; i < count; ++i) serve(events[i].data.fd);
        }
    }

public:
    Bare_server() : m_listener(listening_socket(&port)) {
        watch(m_listener);
        m_thread = std::thread([this] { run(); });
    }
    ~Bare_server() {
        m_quit = true;
        m_thread.join();
        close(m_listener);
        close(m_epoll);
    }
};

#ifdef HAVE_LIBUV
class Uv_server {
    uv_loop_t m_loop;
    uv_tcp_t m_listener;
    uv_async_t m_end;
    std::thread m_thread;

    struct Echo {
        uv_write_t request;
        char *bytes;
    };
    static void alloc(uv_handle_t *, std::size_t, uv_buf_t *buffer) { *buffer = uv_buf_init(new char[2048], 2048); }
    static void written(uv_write_t *request, int) {
        auto *echo = reinterpret_cast<Echo *>(request);
        delete[] echo->bytes;
        delete echo;
    }
    static void read(uv_stream_t *stream, ssize_t n, const uv_buf_t *buffer) {
        if (n <= 0) {
            delete[] buffer->base;
            if (n < 0)
                uv_close(reinterpret_cast<uv_handle_t *>(stream),
                         [](uv_handle_t *handle) { delete reinterpret_cast<uv_tcp_t *>(handle); });
            return;
        }
        auto *echo = new Echo{{}, buffer->base};
        uv_buf_t out = uv_buf_init(buffer->base, static_cast<unsigned>(n));
        uv_write(&echo->request, stream, &out, 1, written);
    }
    static void accept(uv_stream_t *listener, int) {
        auto *client = new uv_tcp_t;
        uv_tcp_init(listener->loop, client);
        uv_accept(listener, reinterpret_cast<uv_stream_t *>(client));
        uv_tcp_nodelay(client, 1);
        uv_read_start(reinterpret_cast<uv_stream_t *>(client), alloc, read);
    }

public:
    int port = 0;
    Uv_server() {
        uv_loop_init(&m_loop);
        uv_async_init(&m_loop, &m_end, [](uv_async_t *handle) { uv_stop(handle->loop); });
        uv_tcp_init(&m_loop, &m_listener);
        uv_tcp_open(&m_listener, listening_socket(&port));
        uv_listen(reinterpret_cast<uv_stream_t *>(&m_listener), 1024, accept);
        m_thread = std::thread([this] { uv_run(&m_loop, UV_RUN_DEFAULT); });
    }
    ~Uv_server() {
        uv_async_send(&m_end);
        m_thread.join();
        const auto end = [](uv_handle_t *handle, void *) {
            if (!uv_is_closing(handle)) uv_close(handle, nullptr);
        };
        uv_walk(&m_loop, end, nullptr);
        uv_run(&m_loop, UV_RUN_DEFAULT);
        uv_loop_close(&m_loop);
    }
};
#endif

#ifdef HAVE_LIBEVENT
class Libevent_server {
    event_base *m_base = event_base_new();
    evconnlistener *m_listener;
    std::atomic<bool> m_quit = false;
    std::thread m_thread;

    static void read(bufferevent *connection, void *) {
        bufferevent_write_buffer(connection, bufferevent_get_input(connection));
    }
    static void ended(bufferevent *connection, short, void *) { bufferevent_free(connection); }
    static void accept(evconnlistener *listener, evutil_socket_t fd, sockaddr *, int, void *) {
        no_delay(fd);
        bufferevent *connection = bufferevent_socket_new(evconnlistener_get_base(listener), fd, BEV_OPT_CLOSE_ON_FREE);
        bufferevent_setcb(connection, read, nullptr, ended, nullptr);
        bufferevent_enable(connection, EV_READ | EV_WRITE);
    }

public:
    int port = 0;
    Libevent_server() {
        m_listener = evconnlistener_new(m_base, accept, nullptr, LEV_OPT_CLOSE_ON_FREE, 0, listening_socket(&port));
        m_thread = std::thread([this] {
            const timeval turn{0, 20000};
            while (!m_quit) {
                event_base_loopexit(m_base, &turn);
                event_base_loop(m_base, 0);
            }
        });
    }
    ~Libevent_server() {
        m_quit = true;
        m_thread.join();
        evconnlistener_free(m_listener);
        event_base_free(m_base);
    }
};
#endif

#ifdef HAVE_ASIO
class Asio_server {
    struct Session : std::enable_shared_from_this<Session> {
        asio::ip::tcp::socket socket;
        char room[2048];
        explicit Session(asio::ip::tcp::socket accepted) : socket(std::move(accepted)) {}
        void read() {
            socket.async_read_some(asio::buffer(room),
                                   [self = shared_from_this()](const asio::error_code &error, std::size_t n) {
                                       if (!error) self->write(n);
                                   });
        }
        void write(std::size_t n) {
            asio::async_write(socket, asio::buffer(room, n),
                              [self = shared_from_this()](const asio::error_code &error, std::size_t) {
                                  if (!error) self->read();
                              });
        }
    };
    asio::io_context m_context{1};
    asio::ip::tcp::acceptor m_acceptor{m_context};
    std::thread m_thread;

    void accept() {
        m_acceptor.async_accept([this](const asio::error_code &error, asio::ip::tcp::socket socket) {
            if (error) return;
            socket.set_option(asio::ip::tcp::no_delay(true));
            std::make_shared<Session>(std::move(socket))->read();
            accept();
        });
    }

public:
    int port = 0;
    Asio_server() {
        m_acceptor.assign(asio::ip::tcp::v4(), listening_socket(&port));
        accept();
        m_thread = std::thread([this] { m_context.run(); });
    }
    ~Asio_server() {
        m_context.stop();
        m_thread.join();
    }
};
#endif

// --- The load ---

// Connections with messages in flight; each answer is sent back at once.
class Load {
    int m_epoll = epoll_create1(EPOLL_CLOEXEC);
    std::vector<int> m_connections;

public:
    Load(int port, int connections, int in_flight) {
        const std::string first(message_size * static_cast<std::size_t>(in_flight), 'x');
        const sockaddr_in address = loopback(port);
        for (int i = 0; i < connections; ++i) {
            const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
            if (connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) std::abort();
            no_delay(fd);
            epoll_event event{};
            event.events = EPOLLIN;
            event.data.fd = fd;
            epoll_ctl(m_epoll, EPOLL_CTL_ADD, fd, &event);
            if (send(fd, first.data(), first.size(), MSG_NOSIGNAL) < 0) std::abort();
            m_connections.push_back(fd);
        }
    }
    ~Load() {
        for (const int fd : m_connections) close(fd);
        close(m_epoll);
    }
    void exchange(std::size_t messages) {
        for (std::size_t bytes = messages * message_size; bytes > 0;) {
            epoll_event events[128];
            const int count = epoll_wait(m_epoll, events, 128, -1);
            for (int i = 0; i < count; ++i) {
                char room[16384];
                const ssize_t n = recv(events[i].data.fd, room, sizeof room, MSG_DONTWAIT);
                if (n <= 0) continue;
                if (send(events[i].data.fd, room, static_cast<std::size_t>(n), MSG_NOSIGNAL) != n) std::abort();
                bytes -= std::min(bytes, static_cast<std::size_t>(n));
            }
        }
    }
};

void allow_descriptors() {
    rlimit limit;
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

template <class Server> void echo(benchmark::State &state) {
    allow_descriptors();
    Server server;
    Load load(server.port, static_cast<int>(state.range(0)), static_cast<int>(state.range(1)));
    constexpr std::size_t messages = 20000;
    load.exchange(messages);
    for (auto _ : state) load.exchange(messages);
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(messages));
}

void shapes(benchmark::internal::Benchmark *benchmark) { benchmark->Args({50, 16})->Args({1000, 1})->UseRealTime(); }

BENCHMARK(echo<Tq4_server>)->Name("echo/tq4")->Apply(shapes);
BENCHMARK(echo<Bare_server>)->Name("echo/bare")->Apply(shapes);
#ifdef HAVE_LIBUV
BENCHMARK(echo<Uv_server>)->Name("echo/libuv")->Apply(shapes);
#endif
#ifdef HAVE_LIBEVENT
BENCHMARK(echo<Libevent_server>)->Name("echo/libevent")->Apply(shapes);
#endif
#ifdef HAVE_ASIO
BENCHMARK(echo<Asio_server>)->Name("echo/asio")->Apply(shapes);
#endif

// --- Datagrams that arrive joined ---

std::atomic<long> datagrams_received;

class Tq4_receiver {
    Tq4_socket m_service = static_cast<Tq4_socket>(Tq4_socket_oitf->Create(nullptr));
    Tq4_sockaddr m_address = static_cast<Tq4_sockaddr>(Tq4_sockaddr_oitf->Create(nullptr));

public:
    int port;
    explicit Tq4_receiver(int free_port) : port(free_port) {
        Tq4_debug_api->SetPrint([](int, const char *, va_list) {});
        (*m_service)->Start(m_service);
        (*m_address)->Init(m_address, "127.0.0.1", port);
        static constexpr Tq4_socket_callback callbacks = {.OnDataOk = [](Tq4_socket, Tq4_socket_info *, Tq4_string *) {
            return datagrams_received.fetch_add(1, std::memory_order_relaxed), 0;
        }};
        Tq4_socket_info info{};
        info.local = m_address;
        (*m_service)->Open(m_service, &info, &callbacks);
    }
    ~Tq4_receiver() {
        Tq4_socket_oitf->Delete(m_service);
        Tq4_sockaddr_oitf->Delete(m_address);
        Tq4_debug_api->SetPrint(nullptr);
    }
};

#ifdef HAVE_LIBUV
class Uv_receiver {
    uv_loop_t m_loop;
    uv_udp_t m_socket;
    uv_async_t m_end;
    std::thread m_thread;

public:
    int port;
    explicit Uv_receiver(int free_port) : port(free_port) {
        uv_loop_init(&m_loop);
        uv_async_init(&m_loop, &m_end, [](uv_async_t *handle) { uv_stop(handle->loop); });
        uv_udp_init(&m_loop, &m_socket);
        const sockaddr_in address = loopback(port);
        uv_udp_bind(&m_socket, reinterpret_cast<const sockaddr *>(&address), 0);
        uv_os_fd_t fd;
        const int asked = 4 << 20; // as the service asks for
        if (uv_fileno(reinterpret_cast<uv_handle_t *>(&m_socket), &fd) == 0)
            setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &asked, sizeof asked);
        uv_udp_recv_start(
            &m_socket,
            [](uv_handle_t *, std::size_t, uv_buf_t *buffer) {
                static char room[65536];
                *buffer = uv_buf_init(room, sizeof room);
            },
            [](uv_udp_t *, ssize_t, const uv_buf_t *, const sockaddr *from, unsigned) {
                if (from) datagrams_received.fetch_add(1, std::memory_order_relaxed);
            });
        m_thread = std::thread([this] { uv_run(&m_loop, UV_RUN_DEFAULT); });
    }
    ~Uv_receiver() {
        uv_async_send(&m_end);
        m_thread.join();
        uv_close(reinterpret_cast<uv_handle_t *>(&m_socket), nullptr);
        uv_close(reinterpret_cast<uv_handle_t *>(&m_end), nullptr);
        uv_run(&m_loop, UV_RUN_DEFAULT);
        uv_loop_close(&m_loop);
    }
};
#endif

// A sender that lets the system cut 64 datagrams out of one buffer, never far ahead of the receiver.
template <class Receiver> void joined(benchmark::State &state) {
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in own = loopback(0);
    socklen_t size = sizeof own;
    const int probe = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    bind(probe, reinterpret_cast<sockaddr *>(&own), size);
    getsockname(probe, reinterpret_cast<sockaddr *>(&own), &size);
    close(probe);
    Receiver receiver(ntohs(own.sin_port));
    const sockaddr_in to = loopback(receiver.port);
    constexpr int segment = 512, together = 64;
    setsockopt(fd, IPPROTO_UDP, UDP_SEGMENT, &segment, sizeof segment);
    const std::string bytes(static_cast<std::size_t>(segment * together), 'x');
    constexpr long a_round = 64 * 200;
    for (auto _ : state) {
        datagrams_received = 0;
        for (long sent = 0; sent < a_round; sent += together) {
            if (sendto(fd, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr *>(&to), sizeof to) < 0)
                std::abort();
            while (datagrams_received < sent - together) continue;
        }
        const auto begun = std::chrono::steady_clock::now();
        while (datagrams_received < a_round)
            if (std::chrono::steady_clock::now() - begun > std::chrono::seconds(2)) {
                state.SkipWithError("datagrams were lost");
                break;
            }
    }
    state.SetItemsProcessed(state.iterations() * a_round);
    close(fd);
}
BENCHMARK(joined<Tq4_receiver>)->Name("joined_datagrams/tq4")->UseRealTime();
#ifdef HAVE_LIBUV
BENCHMARK(joined<Uv_receiver>)->Name("joined_datagrams/libuv")->UseRealTime();
#endif

// --- HTTP requests: processor time of the client's thread, each sent from the callback of the one before ---

// Answers whatever comes with one small page.
class Page_server {
public:
    int port = 0; // before the listener, which finds it

private:
    int m_listener;
    std::atomic<bool> m_quit = false;
    std::thread m_thread;

    void serve(int fd) {
        static constexpr char page[] = "HTTP/1.1 200 OK\r\nServer: bench\r\nContent-Type: text/plain\r\n"
                                       "Content-Length: 12\r\n\r\nhello, world";
        char room[4096];
        while (recv(fd, room, sizeof room, 0) > 0) send(fd, page, sizeof page - 1, MSG_NOSIGNAL);
        close(fd);
    }

public:
    Page_server() : m_listener(listening_socket(&port)) {
        fcntl(m_listener, F_SETFL, 0);
        m_thread = std::thread([this] {
            for (int fd; (fd = accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC)) >= 0 && !m_quit;) {
                no_delay(fd);
                serve(fd);
            }
        });
    }
    ~Page_server() {
        m_quit = true;
        shutdown(m_listener, SHUT_RDWR);
        m_thread.join();
        close(m_listener);
    }
};

double thread_seconds() {
    timespec used;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &used);
    return static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) / 1e9;
}

constexpr int requests = 500; // of one iteration

struct Requests {
    int left;
    double begun, used;
    Tq4_event done;
} running;

void next_request(Tq4_http_client client) {
    (*client)->Request(client, "GET", "/page", nullptr, nullptr,
                       [](Tq4_http_client answered, Tq4_http_client_callback *response) {
                           if (response->status != 200) std::abort();
                           if (--running.left > 0) return next_request(answered);
                           running.used = thread_seconds() - running.begun;
                           (*running.done)->Set(running.done);
                       });
}

void http_tq4(benchmark::State &state) {
    Page_server server;
    Tq4_debug_api->SetPrint([](int, const char *, va_list) {});
    auto service = static_cast<Tq4_socket>(Tq4_socket_oitf->Create(nullptr));
    (*service)->Start(service);
    auto client = static_cast<Tq4_http_client>(Tq4_http_client_oitf->Create(service));
    (*client)->Connect(client, "127.0.0.1", server.port);
    running.done = static_cast<Tq4_event>(Tq4_event_oitf->Create(nullptr));
    for (auto _ : state) {
        running.left = requests;
        (*client)->Request(client, "GET", "/first", nullptr, nullptr,
                           [](Tq4_http_client answered, Tq4_http_client_callback *) {
                               running.begun = thread_seconds();
                               next_request(answered);
                           });
        (*running.done)->Wait(running.done, TQ4_ALL_ONES);
        state.SetIterationTime(running.used);
    }
    Tq4_http_client_oitf->Delete(client);
    Tq4_socket_oitf->Delete(service);
    Tq4_event_oitf->Delete(running.done);
    Tq4_debug_api->SetPrint(nullptr);
}
BENCHMARK(http_tq4)->Name("http_get/tq4")->UseManualTime();

#ifdef HAVE_LIBCURL
void http_libcurl(benchmark::State &state) {
    Page_server server;
    CURL *curl = curl_easy_init();
    std::string body;
    curl_easy_setopt(curl, CURLOPT_URL, ("http://127.0.0.1:" + std::to_string(server.port) + "/page").c_str());
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &body);
    curl_easy_setopt(
        curl, CURLOPT_WRITEFUNCTION, +[](char *bytes, std::size_t, std::size_t n, void *to) {
            static_cast<std::string *>(to)->append(bytes, n);
            return n;
        });
    curl_easy_perform(curl);
    for (auto _ : state) {
        const double begun = thread_seconds();
        for (int i = 0; i < requests; ++i) {
            body.clear();
            if (curl_easy_perform(curl) != CURLE_OK || body.empty()) std::abort();
        }
        state.SetIterationTime(thread_seconds() - begun);
    }
    curl_easy_cleanup(curl);
}
BENCHMARK(http_libcurl)->Name("http_get/libcurl")->UseManualTime();
#endif

} // namespace
