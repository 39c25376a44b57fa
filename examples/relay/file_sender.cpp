// file_sender: relay send. The main thread reads the file and shows how far it is; the connection's callbacks only note
// what the receiver says. When the connection breaks it is made again, and the receiver says where to go on.
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <mutex>
#include <unistd.h>
#include <utility>

#include "../object.hpp"
#include "transfer.hpp"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int again_ms = 500;                       // before the next attempt to connect
constexpr auto patience = std::chrono::seconds(60); // without a word of the receiver

// How far it is: a bar on a terminal, else a line each second.
class Progress {
    const uint64_t m_size;
    const bool m_bar = isatty(STDOUT_FILENO);
    const Clock::time_point m_begin = Clock::now();
    Clock::time_point m_shown = m_begin;
    uint64_t m_from = 0; // what the receiver had before

public:
    explicit Progress(uint64_t size) : m_size(size) {}
    void BeginAt(uint64_t from) { m_from = from; }
    void Show(uint64_t done, bool last = false) {
        const auto now = Clock::now();
        if (!last && now - m_shown < (m_bar ? std::chrono::milliseconds(100) : std::chrono::milliseconds(1000))) return;
        m_shown = now;
        const int percent = m_size ? static_cast<int>(done * 100 / m_size) : 100;
        if (m_bar)
            Bar(percent, done, std::chrono::duration<double>(now - m_begin).count());
        else
            std::printf("%d %%\n", percent);
        if (m_bar && last) std::printf("\n");
        std::fflush(stdout);
    }

private:
    void Bar(int percent, uint64_t done, double seconds) const {
        constexpr int width = 40;
        const std::string full(static_cast<std::size_t>(percent * width / 100), '#');
        const double rate = seconds > 0 && done > m_from ? static_cast<double>(done - m_from) / seconds : 0;
        const long left = rate > 0 ? static_cast<long>(static_cast<double>(m_size - done) / rate) : 0;
        std::printf("\r[%-*s] %3d %%  %7.1f MB/s  %ld:%02ld left ", width, full.c_str(), percent, rate / 1e6, left / 60,
                    left % 60);
    }
};

class Sender {
public:
    Sender(std::ifstream &file, const std::string &name, uint64_t size, const std::string &checksum)
        : m_file(file), m_size(size), m_offer("offer " + std::to_string(size) + " " + checksum + " " + name),
          m_progress(size) {}
    bool Run(const std::string &host, int port) {
        m_socket->Start(m_socket);
        m_udcp->Init(m_udcp, m_socket, 0);
        const char *any = host.find(':') == std::string::npos ? nullptr : "::";
        if (!m_udcp->Start(m_udcp, 1, any, 0)) return Fails("no socket");
        if (!m_udcp->Connect(m_udcp, host.c_str(), port, &m_id, nullptr, this)) return Fails("no such host: " + host);
        while (Step()) {}
        m_udcp->Stop(m_udcp);
        return m_outcome.empty() || Fails(m_outcome);
    }

private:
    // Sends a piece, or waits for the receiver. False at the end.
    bool Step() {
        std::unique_lock lock(m_mutex);
        m_news.wait_for(lock, std::chrono::milliseconds(100), [this] { return m_over || MaySend(); });
        m_progress.Show(m_confirmed, m_over && m_outcome.empty());
        if (m_over) return false;
        if (!MaySend()) return true;
        if (std::exchange(m_moved, false)) m_file.clear(), m_file.seekg(static_cast<std::streamoff>(m_sent));
        m_piece.resize(1 + std::min<uint64_t>(piece_size, m_size - m_sent));
        m_piece[0] = 'D';
        if (!m_file.read(m_piece.data() + 1, static_cast<std::streamsize>(m_piece.size() - 1))) {
            m_outcome = "the file cannot be read to its end";
            return false;
        }
        m_sent += m_piece.size() - 1;
        send_line(m_udcp, &m_id, m_piece);
        return true;
    }
    bool MaySend() const { return m_agreed && m_sent < m_size && m_sent - m_confirmed < most_under_way; }
    static bool Fails(const std::string &reason) {
        std::fprintf(stderr, "relay: %s\n", reason.c_str());
        return false;
    }

    // --- Callbacks, on the thread of the connection ---

    static Sender &of(Tq4_udcp_info *info) { return *static_cast<Sender *>(info->user_data); }
    static void OnConnectOk(Tq4_udcp_info *info) { send_line(info->pair, info->id, of(info).m_offer); }
    static int OnDisConnect(Tq4_udcp_info *info) { return of(info).Again("the receiver does not come back"); }
    static int OnConnectFailed(Tq4_udcp_info *info) { return of(info).Again("the receiver does not answer"); }
    static void OnData(Tq4_udcp_info *info, Tq4_udcp_data *message) { of(info).Hear(text_of(message)); }

    int Again(const char *otherwise) {
        const std::lock_guard guard(m_mutex);
        m_agreed = false;
        if (m_over) return -1;
        if (Clock::now() - m_heard < patience) return again_ms;
        End(otherwise);
        return -1;
    }
    void Hear(const std::string &line) {
        const std::lock_guard guard(m_mutex);
        if (line.starts_with("have "))
            Agree(std::strtoull(line.c_str() + 5, nullptr, 10));
        else if (line == "done")
            m_confirmed = m_size, End("");
        else if (line.starts_with("error "))
            End("the receiver says: " + line.substr(6));
        m_news.notify_all();
    }
    void Agree(uint64_t offset) {
        m_heard = Clock::now();
        m_confirmed = std::min(offset, m_size);
        if (m_agreed) return;
        m_agreed = m_moved = true;
        m_sent = m_confirmed;
        m_progress.BeginAt(m_sent);
    }
    void End(const std::string &outcome) {
        m_over = true;
        m_outcome = outcome;
        m_news.notify_all();
    }

    static constexpr Tq4_udcp_callback callbacks = {.OnConnectOk = OnConnectOk,
                                                    .OnConnectFailed = OnConnectFailed,
                                                    .OnDisConnect = OnDisConnect,
                                                    .OnData = OnData,
                                                    .OnPost = nullptr,
                                                    .OnSendQeueuStatus = nullptr,
                                                    .OnSendError = nullptr};
    std::ifstream &m_file;
    const uint64_t m_size;
    const std::string m_offer;
    std::string m_piece;
    std::mutex m_mutex; // of what follows, up to the objects
    std::condition_variable m_news;
    Progress m_progress;
    std::string m_outcome; // what went wrong
    bool m_over = false;
    bool m_agreed = false;                    // the receiver of this connection has said where to begin
    bool m_moved = false;                     // the file is to be read from m_sent
    Clock::time_point m_heard = Clock::now(); // the receiver
    uint64_t m_sent = 0, m_confirmed = 0;
    Tq4_id m_id = {};
    Object<Tq4_socket> m_socket{Tq4_socket_oitf};
    Object<Tq4_udcp> m_udcp{Tq4_udcp_oitf, &callbacks};
};

std::string checksum_of(std::ifstream &file, uint64_t &size) {
    Checksum checksum;
    std::string room(1 << 20, 0);
    while (file.read(room.data(), static_cast<std::streamsize>(room.size())) || file.gcount()) {
        checksum.Add(room.data(), static_cast<std::size_t>(file.gcount()));
        size += static_cast<uint64_t>(file.gcount());
    }
    return checksum.Text();
}

} // namespace

int send_file(const char *path, const char *host_and_port) {
    const std::string target = host_and_port, whole = path;
    const std::size_t colon = target.rfind(':');
    const int port = colon == std::string::npos ? 0 : std::atoi(target.c_str() + colon + 1);
    std::ifstream file(path, std::ios::binary);
    if (port <= 0 || port > 65535 || !file) {
        std::fprintf(stderr, port > 0 ? "relay: cannot read %s\n" : "relay: %s: HOST:PORT is wanted\n",
                     port > 0 ? path : host_and_port);
        return 1;
    }
    std::string host = target.substr(0, colon);
    if (host.size() > 2 && host.front() == '[' && host.back() == ']') host = host.substr(1, host.size() - 2);
    uint64_t size = 0;
    const std::string checksum = checksum_of(file, size);
    be_quiet();
    const bool sent = Sender(file, whole.substr(whole.rfind('/') + 1), size, checksum).Run(host, port);
    if (sent) std::printf("%s: %lu bytes, checksum %s, the same there\n", path, size, checksum.c_str());
    return !sent;
}
