// file_receiver: relay receive. Everything happens in the callbacks of the connections, on one thread.
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>

#include "../object.hpp"
#include "transfer.hpp"

namespace {

namespace fs = std::filesystem;

// A file on its way in.
class Incoming {
public:
    // Goes on behind what is there already.
    Incoming(fs::path place, fs::path part, uint64_t size, std::string checksum)
        : m_place(std::move(place)), m_part(std::move(part)), m_size(size), m_checksum(std::move(checksum)) {
        std::string room(1 << 20, 0);
        std::ifstream there(m_part, std::ios::binary);
        while (there.read(room.data(), static_cast<std::streamsize>(room.size())) || there.gcount()) {
            m_sum.Add(room.data(), static_cast<std::size_t>(there.gcount()));
            m_have += static_cast<uint64_t>(there.gcount());
        }
        m_told = m_have;
        m_file.open(m_part, std::ios::binary | std::ios::app);
    }
    const fs::path &part() const { return m_part; }
    bool IsWhole() const { return m_have >= m_size; }
    // What the sender is told after a piece; "" for nothing.
    std::string Add(const char *bytes, std::size_t n) {
        m_file.write(bytes, static_cast<std::streamsize>(n));
        m_sum.Add(bytes, n);
        m_have += n;
        if (IsWhole()) return Finish();
        if (!m_file) return Error();
        return m_have - m_told >= told_each ? Have() : "";
    }
    std::string Have() {
        m_told = m_have;
        return "have " + std::to_string(m_have);
    }
    std::string Finish() {
        m_file.close();
        if (!m_file) return Error();
        std::error_code failed;
        if (m_have != m_size || m_sum.Text() != m_checksum) {
            fs::remove(m_part, failed);
            return "error the checksum differs";
        }
        fs::rename(m_part, m_place, failed);
        if (failed) return "error " + failed.message();
        std::printf("%s: %lu bytes, checksum %s\n", m_place.c_str(), m_size, m_checksum.c_str());
        std::fflush(stdout);
        return "done";
    }

private:
    std::string Error() const { return std::string("error ") + std::strerror(errno); }

    const fs::path m_place, m_part;
    const uint64_t m_size;
    const std::string m_checksum;
    std::ofstream m_file;
    Checksum m_sum;
    uint64_t m_have = 0, m_told = 0;
};

// Names come from strangers: one component, that is not hidden and not too long.
bool is_plain(const std::string &name) {
    return !name.empty() && name.size() <= 200 && name[0] != '.' && name.find('/') == std::string::npos &&
           name.find('\0') == std::string::npos;
}

class Receiver {
public:
    explicit Receiver(fs::path directory) : m_directory(std::move(directory)) { the = this; }
    bool Start(int port) {
        m_socket->Start(m_socket);
        m_udcp->Init(m_udcp, m_socket, 0);
        return m_udcp->Start(m_udcp, 0, nullptr, port) > 0;
    }
    void Stop() { m_udcp->Stop(m_udcp); }

private:
    static void OnData(Tq4_udcp_info *info, Tq4_udcp_data *message) {
        const Tq4_string text = message->data;
        const char *bytes = (*text)->c_str(text);
        const auto size = static_cast<std::size_t>((*text)->length(text));
        const std::string answer =
            size && bytes[0] == 'D' ? the->Piece(info, bytes + 1, size - 1) : the->Offer(info, {bytes, size});
        if (!answer.empty()) send_line(info->pair, info->id, answer);
    }
    static int OnDisConnect(Tq4_udcp_info *info) {
        the->m_incoming.erase(info->user_data);
        return -1;
    }
    std::string Piece(Tq4_udcp_info *info, const char *bytes, std::size_t n) {
        const auto at = m_incoming.find(info->user_data);
        if (at == m_incoming.end()) return ""; // of a file that goes on over another connection, or has ended
        const std::string answer = at->second->Add(bytes, n);
        if (answer == "done" || answer.starts_with("error ")) m_incoming.erase(at);
        return answer;
    }
    // The same file on another connection: that one was broken, and its sender has not waited until we knew.
    std::string Offer(Tq4_udcp_info *info, const std::string &line) {
        std::istringstream words(line);
        std::string offer, checksum, name;
        uint64_t size = 0;
        if (!(words >> offer >> size >> checksum) || offer != "offer" || checksum.size() != 16 ||
            checksum.find_first_not_of("0123456789abcdef") != std::string::npos || words.get() != ' ' ||
            !std::getline(words, name, '\0') || !is_plain(name))
            return "error this is no offer of a file";
        const fs::path part = m_directory / ("." + checksum + "-" + std::to_string(size) + "-" + name + ".part");
        std::erase_if(m_incoming, [&](const auto &each) { return each.second->part() == part; });
        auto incoming = std::make_unique<Incoming>(m_directory / name, part, size, checksum);
        if (incoming->IsWhole()) return incoming->Finish();
        const std::string answer = incoming->Have();
        m_incoming.erase(info->user_data);
        info->user_data = reinterpret_cast<void *>(++m_serial);
        m_incoming[info->user_data] = std::move(incoming);
        return answer;
    }

    static constexpr Tq4_udcp_callback callbacks = {.OnConnectOk = nullptr,
                                                    .OnConnectFailed = nullptr,
                                                    .OnDisConnect = OnDisConnect,
                                                    .OnData = OnData,
                                                    .OnPost = nullptr,
                                                    .OnSendQeueuStatus = nullptr,
                                                    .OnSendError = nullptr};
    static inline Receiver *the = nullptr; // the callbacks' one
    const fs::path m_directory;
    std::map<void *, std::unique_ptr<Incoming>> m_incoming; // by the user data of its connection
    std::uintptr_t m_serial = 0;
    Object<Tq4_socket> m_socket{Tq4_socket_oitf};
    Object<Tq4_udcp> m_udcp{Tq4_udcp_oitf, &callbacks};
};

} // namespace

int receive_files(const char *directory, const char *port) {
    sigset_t ends;
    sigemptyset(&ends);
    sigaddset(&ends, SIGTERM);
    sigaddset(&ends, SIGINT);
    pthread_sigmask(SIG_BLOCK, &ends, nullptr); // for the threads too, which begin later
    be_quiet();
    Receiver receiver(directory);
    if (!fs::is_directory(directory) || !receiver.Start(std::atoi(port))) {
        std::fprintf(stderr, "relay: cannot receive into %s at port %s\n", directory, port);
        return 1;
    }
    std::printf("receives into %s at port %s\n", directory, port);
    std::fflush(stdout);
    int signal;
    sigwait(&ends, &signal);
    receiver.Stop();
    return 0;
}
