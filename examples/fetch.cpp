// fetch: gets a page with the HTTP client and tells how that went.
//
//   fetch URL [FILE]      http://host[:port][/path]; the body goes to FILE, or to standard output
//
// The reply comes whole, so there is no progress to show. On standard error: the status, how many bytes the body has,
// how long it took and the rate. Exit status: 0 when the server said that all is well (2xx), 1 when it did not, when
// nothing came, or less than was announced, which is not written; 2 for a call that makes no sense.
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <tq4/tq4.h>

#include "object.hpp"

namespace {

struct Url {
    std::string server, host, path; // server: host and port as they are written
    long port = 80;

    // False when it is none that can be fetched.
    bool Parse(const std::string &text) {
        constexpr char scheme[] = "http://";
        if (text.rfind(scheme, 0) != 0) return false;
        const std::size_t begin = sizeof scheme - 1, end = std::min(text.find_first_of("/?#", begin), text.size());
        server = text.substr(begin, end - begin);
        path = text.substr(end, text.find('#', end) - end); // what follows # is not the server's
        if (path.empty() || path[0] != '/') path.insert(path.begin(), '/');
        const bool bracketed = !server.empty() && server[0] == '[';
        const std::size_t colon = server.find(':', bracketed ? server.find(']') : 0);
        host = bracketed ? server.substr(1, server.find(']') - 1) : server.substr(0, colon);
        char *rest = nullptr;
        if (colon != std::string::npos) port = std::strtol(server.c_str() + colon + 1, &rest, 10);
        return !host.empty() && (!rest || !*rest) && port > 0 && port < 65536;
    }
};

// What the callback leaves for the main thread.
struct Answer {
    Object<Tq4_event> came{Tq4_event_oitf};
    int status = 0;
    bool is_whole = false;
    Tq4_string body = nullptr; // owned
    ~Answer() { Tq4_string_oitf->Delete(body); }
};
Answer *answer = nullptr;

// A connection that ends too early gives a body that is shorter than its header says.
bool is_whole(const Tq4_http_client_callback &response) {
    Tq4_value length = (*response.header)->ValueS(response.header, "Content-Length");
    Tq4_string text = length ? (*length)->GetString(length) : nullptr;
    return !text || (*response.data)->length(response.data) >= std::strtol((*text)->c_str(text), nullptr, 10);
}

// On the thread of the socket service.
void on_response(Tq4_http_client, Tq4_http_client_callback *response) {
    answer->status = response->status;
    answer->is_whole = is_whole(*response);
    answer->body = response->data;
    response->data = nullptr; // it is ours now
    answer->came->Set(answer->came);
}

bool write_body(Tq4_string body, const char *file) {
    std::FILE *out = file ? std::fopen(file, "wb") : stdout;
    if (!out) return false;
    const auto size = static_cast<std::size_t>((*body)->length(body));
    const bool written = std::fwrite((*body)->c_str(body), 1, size, out) == size;
    return (file ? std::fclose(out) : std::fflush(out)) == 0 && written;
}

int fetch(const Url &url, const char *file) {
    Answer received;
    answer = &received;
    Object<Tq4_socket> service(Tq4_socket_oitf);
    Object<Tq4_http_client> client(Tq4_http_client_oitf, static_cast<Tq4_socket>(service));
    if (!service->Start(service) || !client->Connect(client, url.host.c_str(), static_cast<int>(url.port))) {
        std::fprintf(stderr, "fetch: no such host: %s\n", url.host.c_str());
        return 1;
    }
    client->SetHost(client, url.server.c_str());
    const auto begun = std::chrono::steady_clock::now();
    if (!client->Request(client, "GET", url.path.c_str(), nullptr, nullptr, on_response)) {
        std::fprintf(stderr, "fetch: the request cannot be sent: %s\n", url.path.c_str());
        return 1;
    }
    received.came->Wait(received.came, TQ4_ALL_ONES);
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begun;
    if (received.status == 0) {
        std::fprintf(stderr, "fetch: no reply from %s port %ld\n", url.host.c_str(), url.port);
        return 1;
    }
    const long size = (*received.body)->length(received.body);
    std::fprintf(stderr, "status %d, %ld bytes in %.1f ms, %.1f MB/s\n", received.status, size, took.count() * 1e3,
                 static_cast<double>(size) / took.count() / 1e6);
    if (!received.is_whole) {
        std::fprintf(stderr, "fetch: the reply was cut short\n");
        return 1;
    }
    if (!write_body(received.body, file)) {
        std::fprintf(stderr, "fetch: %s: %s\n", file ? file : "standard output", std::strerror(errno));
        return 1;
    }
    return received.status / 100 == 2 ? 0 : 1;
}

// Standard output is for the body: what the library prints goes where its other messages go.
void print_to_standard_error(int, const char *format, va_list args) {
    Object<Tq4_string> text(Tq4_string_oitf);
    text->vSprintf(text, format, args);
    std::fputs(text->c_str(text), stderr);
}

void ignore(int, const char *, va_list) {}

} // namespace

int main(int argc, char **argv) {
    Url url;
    if (argc < 2 || argc > 3 || !url.Parse(argv[1])) {
        std::fprintf(stderr, "fetch http://HOST[:PORT][/PATH] [FILE]\n");
        return 2;
    }
    const bool verbose = std::getenv("FETCH_VERBOSE") != nullptr;
    Tq4_debug_api->SetPrint(verbose ? print_to_standard_error : ignore);
    return fetch(url, argc == 3 ? argv[2] : nullptr);
}
