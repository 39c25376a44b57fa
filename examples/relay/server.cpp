#include "server.hpp"

namespace {

constexpr std::size_t longest_line = 64 * 1024;
constexpr unsigned long most_keys = 65536;

// Cuts the first word off a text.
std::string first_word(std::string &text) {
    const std::size_t end = text.find(' ');
    const std::string word = text.substr(0, end);
    text.erase(0, end == std::string::npos ? end : end + 1);
    return word;
}

} // namespace

const Tq4_listen_callback Server::listening = {.OnListenResult = nullptr, .OnAccept = Accept, .OnChildClose = nullptr};

const Tq4_socket_callback Server::connected = {.OnDataOk = Receive,
                                               .OnConnectOk = nullptr,
                                               .OnConnectFaild = nullptr,
                                               .OnDisConnect = nullptr,
                                               .OnSendQueueEmpty = nullptr,
                                               .OnSendQueueFull = nullptr};

int Server::Listen(int port) {
    const Object<Tq4_sockaddr> address(Tq4_sockaddr_oitf);
    if (!address->Init(address, "127.0.0.1", port) || !m_service->Start(m_service)) return 0;
    Tq4_socket_info info{};
    info.local = address;
    info.user_obj = this;
    m_service->Listen(m_service, &info, &listening);
    return Tq4_sock_api->GetLocalAddr(info.fd, address) ? address->port(address) : 0;
}

const Tq4_socket_callback *Server::Accept(Tq4_socket, Tq4_socket_info *listener, Tq4_socket_info *child) {
    auto &server = *static_cast<Server *>(listener->user_obj);
    server.m_counters.Add("connections");
    child->user_obj = new Peer{server, {}};
    child->del_userobj = [](void *peer) { delete static_cast<Peer *>(peer); };
    return &connected;
}

int Server::Receive(Tq4_socket s, Tq4_socket_info *info, Tq4_string *data) {
    auto &peer = *static_cast<Peer *>(info->user_obj);
    Server &server = peer.server;
    const Tq4_id id = info->id;
    const auto length = static_cast<std::size_t>((**data)->length(*data));
    server.m_counters.Add("bytes", static_cast<long>(length));
    if (server.Take(peer, id, {(**data)->c_str(*data), length})) return 0;
    server.m_counters.Add("errors");
    (*s)->Close(s, &id); // the peer is gone with it
    return 0;
}

// Answers the lines that end in the text. False when the peer is to be sent away.
bool Server::Take(Peer &peer, const Tq4_id &id, std::string_view text) {
    for (std::size_t end; (end = text.find('\n')) != text.npos; text.remove_prefix(end + 1)) {
        peer.line += text.substr(0, end);
        if (!peer.line.empty() && peer.line.back() == '\r') peer.line.pop_back();
        if (!Answer(id, AnswerTo(std::move(peer.line)))) return false;
        peer.line.clear();
    }
    peer.line += text;
    return peer.line.size() <= longest_line;
}

// False when the peer has thousands of answers to read already.
bool Server::Answer(const Tq4_id &id, const std::string &line) {
    m_counters.Add("bytes", static_cast<long>(line.size()));
    return m_service->SendData(m_service, &id, line.data(), line.size());
}

std::string Server::AnswerTo(std::string line) {
    const bool is_text = line.find('\0') == line.npos;
    const std::string command = first_word(line);
    if (is_text && command == "STATUS" && line.empty()) return "OK " + m_counters.Json() + "\n";
    const std::string key = first_word(line);
    if (is_text && command == "GET" && !key.empty() && line.empty()) return Get(key);
    if (is_text && command == "SET" && !key.empty()) return Set(key, line);
    m_counters.Add("errors");
    return "ERROR: GET KEY, SET KEY VALUE or STATUS\n";
}

std::string Server::Get(const std::string &key) {
    const Tq4_value value = m_table->ValueS(m_table, key.c_str());
    if (!value) return "NONE\n";
    const Tq4_string text = (*value)->GetString(value);
    return "OK " + std::string((*text)->c_str(text)) + "\n";
}

std::string Server::Set(const std::string &key, const std::string &value) {
    if (m_table->Count(m_table) >= most_keys && !m_table->ValueS(m_table, key.c_str())) {
        m_counters.Add("errors");
        return "ERROR: there are too many keys\n";
    }
    m_table->SetSS(m_table, key.c_str(), value.c_str());
    return "OK\n";
}
