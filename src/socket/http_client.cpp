// http_client: the binding of requests (http_request) and replies (http_reply) to a connection of the socket service.
//
// The lock guards everything; it is free during callbacks, and during calls of the service that wait for its thread,
// which may need the lock for a callback of ours. So each answer is taken out of the client as a whole, under the lock,
// and told when the client is as before its request.
//
// Each connection that was asked for is a link, with a serial number. The client goes on with one at most; what comes
// through another is ignored, and that connection is closed. The service frees a link when its connection is gone. A
// client that was deleted goes when no link and no callback is left.
#include "tq4/http_client.h"

#include <string>
#include <utility>
#include <vector>

#include "base/string/string.hpp"
#include "identity.hpp"
#include "module.hpp"
#include "own.hpp"
#include "socket/http_reply.hpp"
#include "socket/http_request.hpp"
#include "thread/cancel.hpp"
#include "thread/lock.hpp"

namespace {

constexpr int Most_drops = 16; // in a row, while one request waits
constexpr int Reconnect_now = 0;
constexpr int No_reconnection = -1;

Tq4_hooked<Tq4_string> new_string() { return Tq4_make_hooked<Tq4_string>(Tq4_cxx_support->new_string); }

// A table that ignores the case of its keys, in look-ups too: that comes with what is appended, were it nothing.
Tq4_hooked<Tq4_value_table> new_header() {
    auto model = Tq4_make_hooked<Tq4_value_table>(Tq4_cxx_support->new_table);
    (*model)->CaseFlag(model.get(), 1);
    auto header = Tq4_make_hooked<Tq4_value_table>(Tq4_cxx_support->new_table);
    (*header)->Append(header.get(), model.get());
    return header;
}

} // namespace

struct Tq4_http_client_obj : Tq4_identity {
    // --- Constant ---
    const Tq4_socket m_sock; // borrowed; may be null
    const Tq4_own<Tq4_lock> m_lock = Tq4_make<Tq4_lock>(Tq4_lock_oitf);

    // The service's user object: it leads from a connection to its client.
    struct Link {
        Tq4_http_client_obj *client;
        unsigned long serial;
    };
    struct Live_link {
        unsigned long serial;
        Tq4_id socket; // zero until it is known
    };
    // A request that waits for its reply.
    struct Pending {
        std::string method, url, header_lines;
        Tq4_hooked<Tq4_string> body; // null for none
        Tq4_http_client_responed on_response = nullptr;
    };
    // A reply on its way to its callback.
    struct Answer {
        std::string url;
        int status = 0;
        Tq4_hooked<Tq4_value_table> header;
        Tq4_hooked<Tq4_string> data;
        Tq4_id session_id = {};
        Tq4_http_client_responed on_response = nullptr;
    };

    // --- Under the lock ---
    std::vector<Live_link> m_live TQ4_GUARDED_BY(m_lock); // links that the service has not freed
    unsigned long m_last_serial TQ4_GUARDED_BY(m_lock) = 0;
    unsigned long m_serial TQ4_GUARDED_BY(m_lock) = 0; // of the link that the client goes on with; 0 for none
    Tq4_id m_tcp TQ4_GUARDED_BY(m_lock) = {};          // its socket
    unsigned m_frames TQ4_GUARDED_BY(m_lock) = 0;      // callbacks of the service that are being handled
    bool m_is_deleted TQ4_GUARDED_BY(m_lock) = false;
    bool m_is_connected TQ4_GUARDED_BY(m_lock) = false;
    bool m_waits TQ4_GUARDED_BY(m_lock) = false; // m_pending does
    int m_drops TQ4_GUARDED_BY(m_lock) = 0;      // since it was sent first
    Pending m_pending TQ4_GUARDED_BY(m_lock);
    Tq4_http_reply m_reply TQ4_GUARDED_BY(m_lock);
    Tq4_hooked<Tq4_value_table> m_header TQ4_GUARDED_BY(m_lock) = new_header();
    Tq4_hooked<Tq4_string> m_data TQ4_GUARDED_BY(m_lock) = new_string();
    Tq4_own<Tq4_sockaddr> m_remote TQ4_GUARDED_BY(m_lock); // null: no server
    std::string m_host TQ4_GUARDED_BY(m_lock);
    Tq4_id m_session_id TQ4_GUARDED_BY(m_lock) = {};
    Tq4_http_client_on_disconnect m_on_disconnect TQ4_GUARDED_BY(m_lock) = nullptr;

    explicit Tq4_http_client_obj(const void *service) : m_sock(static_cast<Tq4_socket>(const_cast<void *>(service))) {}
    void Reset();
    bool Retire();
    const void *Params() const { return m_sock; }

    void SetHost(const char *host);
    int Connect(const char *host, int port);
    int IsConnect();
    void Close();
    void SetReqId(const Tq4_id *id);
    int Request(const char *method, const char *url, Tq4_value_table headers, Tq4_string body,
                Tq4_http_client_responed on_response);
    void SetOnDisConnect(Tq4_http_client_on_disconnect on_disconnect);

private:
    class Frame;
    static int OnDataOk(Tq4_socket, Tq4_socket_info *info, Tq4_string *data);
    static void OnConnectOk(Tq4_socket, Tq4_socket_info *info, int master);
    static int OnConnectFaild(Tq4_socket, Tq4_socket_info *info, int error);
    static int OnDisConnect(Tq4_socket, Tq4_socket_info *info, int master);
    static void DeleteLink(void *link);
    static constexpr Tq4_socket_callback callbacks = {
        .OnDataOk = OnDataOk,
        .OnConnectOk = OnConnectOk,
        .OnConnectFaild = OnConnectFaild,
        .OnDisConnect = OnDisConnect,
        .OnSendQueueEmpty = nullptr,
        .OnSendQueueFull = nullptr,
    };

    Tq4_http_client handle() { return Tq4_handle_of<Tq4_http_client>(this); }
    int MakeConnection(Link *link);
    bool SendPending() TQ4_REQUIRES(m_lock);
    void Forget() TQ4_REQUIRES(m_lock);
    void LetGo() TQ4_REQUIRES(m_lock);
    Answer TakeAnswer() TQ4_REQUIRES(m_lock);
    bool IsDone() const TQ4_REQUIRES(m_lock) { return m_is_deleted && m_live.empty() && m_frames == 0; }
    Live_link *Find(unsigned long serial) TQ4_REQUIRES(m_lock);
};

static void Delete_Tq4_http_client_obj(Tq4_http_client_obj *record);

// --- The operations ---

void Tq4_http_client_obj::SetHost(const char *host) {
    Tq4_guard guard(m_lock);
    m_host = host ? host : "";
}

int Tq4_http_client_obj::Connect(const char *host, int port) {
    auto remote = Tq4_make<Tq4_sockaddr>(Tq4_sockaddr_oitf);
    const bool found = (*remote)->Init(remote.get(), host, port);
    Tq4_guard guard(m_lock);
    if (m_serial != 0) return 1;
    if (!found) return 0;
    m_remote = std::move(remote);
    if (m_host.empty() && host) m_host = host;
    return 1;
}

int Tq4_http_client_obj::IsConnect() {
    Tq4_guard guard(m_lock);
    return m_is_connected;
}

void Tq4_http_client_obj::SetReqId(const Tq4_id *id) {
    Tq4_guard guard(m_lock);
    m_session_id = id ? *id : Tq4_id{};
}

void Tq4_http_client_obj::SetOnDisConnect(Tq4_http_client_on_disconnect on_disconnect) {
    Tq4_guard guard(m_lock);
    m_on_disconnect = on_disconnect;
}

// Every connection is closed, those let go too: whoever deletes the client waits thus for a callback that is running.
void Tq4_http_client_obj::Close() {
    std::vector<Live_link> live;
    {
        Tq4_guard guard(m_lock);
        Forget();
        LetGo();
        live = m_live;
    }
    for (const Live_link &link : live) (*m_sock)->Close(m_sock, &link.socket);
}

void Tq4_http_client_obj::Reset() { Close(); }

bool Tq4_http_client_obj::Retire() {
    Close();
    Tq4_guard guard(m_lock);
    m_is_deleted = true;
    return IsDone();
}

int Tq4_http_client_obj::Request(const char *method, const char *url, Tq4_value_table headers, Tq4_string body,
                                 Tq4_http_client_responed on_response) {
    if (!m_sock || !method || !url || !*method || !*url) return 0;
    if (!Tq4_http_fits_line(method) || !Tq4_http_fits_line(url)) return 0;
    auto lines = new_string();
    if (!Tq4_http_append_headers(lines.get(), headers)) return 0;
    Link *link;
    {
        Tq4_guard guard(m_lock);
        if (!m_remote || m_waits) return 0;
        m_pending = {method, url, (*lines)->c_str(lines.get()),
                     Tq4_hooked<Tq4_string>(static_cast<Tq4_string>(Tq4_object_Dup(body))), on_response};
        m_waits = true;
        m_drops = 0;
        if (m_is_connected) return SendPending();
        m_serial = ++m_last_serial;
        m_live.push_back({m_serial, {}});
        link = new Link{this, m_serial};
    }
    return MakeConnection(link);
}

// The callbacks of the connection may come before the service's Connect has returned; and somebody may have called
// Close meanwhile.
int Tq4_http_client_obj::MakeConnection(Link *link) {
    const unsigned long serial = link->serial;
    Tq4_socket_info info{};
    {
        Tq4_guard guard(m_lock);
        info.remote = m_remote.get(); // which stays while there is a link to go on with
    }
    info.user_obj = link;
    info.del_userobj = DeleteLink;
    (*m_sock)->Connect(m_sock, &info, &callbacks);
    {
        Tq4_guard guard(m_lock);
        Live_link *live = Find(serial);
        const bool never_was = live && info.id.l == 0;
        if (live) live->socket = info.id;
        if (never_was) {
            m_live.erase(m_live.begin() + (live - m_live.data()));
            delete link;
        }
        if (m_serial == serial) {
            if (never_was) Forget();
            if (never_was) LetGo();
            return !never_was;
        }
    }
    if (info.id.l != 0) (*m_sock)->Close(m_sock, &info.id);
    return 1;
}

Tq4_http_client_obj::Live_link *Tq4_http_client_obj::Find(unsigned long serial) {
    for (Live_link &each : m_live)
        if (each.serial == serial) return &each;
    return nullptr;
}

bool Tq4_http_client_obj::SendPending() {
    (*m_header)->RemoveAll(m_header.get());
    (*m_data)->Strcpy(m_data.get(), "");
    m_reply.Expect(m_pending.method == "HEAD", m_header.get(), m_data.get());
    auto text = new_string();
    Tq4_http_make_request(text.get(), m_pending.method.c_str(), m_pending.url.c_str(), m_host.c_str(),
                          m_pending.header_lines.c_str(), m_pending.body.get());
    Tq4_string given = text.release();
    const bool taken = (*m_sock)->SendString(m_sock, &m_tcp, &given);
    if (!taken) Forget();
    return taken;
}

// The request that waits, if one does.
void Tq4_http_client_obj::Forget() {
    m_waits = false;
    m_pending = {};
    m_reply.GiveUp();
}

// The connection.
void Tq4_http_client_obj::LetGo() {
    m_serial = 0;
    m_tcp = {};
    m_is_connected = false;
    m_reply.Disconnect();
}

// --- Callbacks of the service, on its thread ---

// A callback that is being handled: no kill comes into it but in the user's own functions, and the client stays.
class Tq4_http_client_obj::Frame {
    Tq4_cancel_held_around m_held;

public:
    Tq4_http_client_obj *const client;
    const unsigned long serial;

    explicit Frame(const Tq4_socket_info *info)
        : client(static_cast<Link *>(info->user_obj)->client), serial(static_cast<Link *>(info->user_obj)->serial) {
        Tq4_guard guard(client->m_lock);
        ++client->m_frames;
        if (Live_link *link = client->Find(serial)) link->socket = info->id;
    }
    ~Frame() {
        bool is_done;
        {
            Tq4_guard guard(client->m_lock);
            --client->m_frames;
            is_done = client->IsDone();
        }
        if (is_done) Tq4_object_ops<Tq4_http_client_obj>::Destroy(client, Delete_Tq4_http_client_obj);
    }
    Frame(const Frame &) = delete;
    Frame &operator=(const Frame &) = delete;

    template <class Function, class... Args> void Call(Function function, Args... args) {
        if (!function) return;
        m_held.Admit([&] { function(client->handle(), args...); });
    }
    void Tell(Answer answer);
};

Tq4_http_client_obj::Answer Tq4_http_client_obj::TakeAnswer() {
    Answer answer{std::move(m_pending.url), m_reply.status(), std::move(m_header),
                  std::move(m_data),        m_session_id,     m_pending.on_response};
    m_header = new_header();
    m_data = new_string();
    Forget();
    return answer;
}

// What the callback has taken is its own.
void Tq4_http_client_obj::Frame::Tell(Answer answer) {
    Tq4_http_client_callback response{answer.url.c_str(), answer.status, answer.header.get(), answer.data.get(),
                                      &answer.session_id};
    Call(answer.on_response, &response);
    if (!response.header) static_cast<void>(answer.header.release());
    if (!response.data) static_cast<void>(answer.data.release());
}

void Tq4_http_client_obj::OnConnectOk(Tq4_socket s, Tq4_socket_info *info, int) {
    Frame frame(info);
    auto &client = *frame.client;
    const Tq4_id id = info->id;
    {
        Tq4_guard guard(client.m_lock);
        if (client.m_serial == frame.serial) {
            client.m_is_connected = true;
            client.m_tcp = id;
            if (client.m_waits) client.SendPending();
            return;
        }
    }
    (*s)->Close(s, &id);
}

int Tq4_http_client_obj::OnDataOk(Tq4_socket s, Tq4_socket_info *info, Tq4_string *data) {
    Frame frame(info);
    auto &client = *frame.client;
    const Tq4_id id = info->id;
    const Tq4_bytes block = Tq4_record_of<Tq4_string_obj>(*data).view();
    for (std::size_t at = 0; at < block.size;) {
        Answer answer;
        bool is_refused;
        {
            Tq4_guard guard(client.m_lock);
            if (client.m_serial != frame.serial) return 0;
            Tq4_http_reply &reply = client.m_reply;
            do at += reply.Take(reinterpret_cast<const char *>(block.data) + at, block.size - at);
            while (at < block.size && !reply.has_ended());
            if (!reply.has_ended()) return 0;
            is_refused = reply.state() == Tq4_http_reply::State::Refused;
            answer = client.TakeAnswer();
        }
        frame.Tell(std::move(answer));
        if (is_refused) (*s)->Close(s, &id);
    }
    return 0;
}

int Tq4_http_client_obj::OnConnectFaild(Tq4_socket, Tq4_socket_info *info, int) {
    Frame frame(info);
    auto &client = *frame.client;
    Answer answer;
    {
        Tq4_guard guard(client.m_lock);
        if (client.m_serial != frame.serial) return No_reconnection;
        client.LetGo();
        if (client.m_waits) answer = client.TakeAnswer();
    }
    frame.Tell(std::move(answer));
    return No_reconnection;
}

int Tq4_http_client_obj::OnDisConnect(Tq4_socket, Tq4_socket_info *info, int) {
    Frame frame(info);
    auto &client = *frame.client;
    Answer answer;
    int delay = No_reconnection;
    Tq4_http_client_on_disconnect told;
    {
        Tq4_guard guard(client.m_lock);
        told = client.m_is_deleted ? nullptr : client.m_on_disconnect;
        if (client.m_serial == frame.serial) {
            client.m_is_connected = false;
            client.m_reply.Disconnect();
            if (client.m_waits && ++client.m_drops < Most_drops)
                delay = Reconnect_now;
            else
                client.LetGo();
            if (client.m_waits && delay < 0) answer = client.TakeAnswer();
        }
    }
    frame.Call(told);
    frame.Tell(std::move(answer));
    return delay;
}

void Tq4_http_client_obj::DeleteLink(void *given) {
    auto *link = static_cast<Link *>(given);
    Tq4_http_client_obj &client = *link->client;
    const Tq4_cancel_held held;
    bool is_done;
    {
        Tq4_guard guard(client.m_lock);
        std::erase_if(client.m_live, [link](const Live_link &each) { return each.serial == link->serial; });
        is_done = client.IsDone();
    }
    delete link;
    if (is_done) Tq4_object_ops<Tq4_http_client_obj>::Destroy(&client, Delete_Tq4_http_client_obj);
}

// --- The table ---

const Tq4_http_client_ Tq4_http_client_itf = {
    .SetHost = Tq4_op<&Tq4_http_client_obj::SetHost>,
    .Connect = Tq4_op<&Tq4_http_client_obj::Connect>,
    .IsConnect = Tq4_op<&Tq4_http_client_obj::IsConnect>,
    .Close = Tq4_op<&Tq4_http_client_obj::Close>,
    .SetReqId = Tq4_op<&Tq4_http_client_obj::SetReqId>,
    .Request = Tq4_op<&Tq4_http_client_obj::Request>,
    .SetOnDisConnect = Tq4_op<&Tq4_http_client_obj::SetOnDisConnect>,
};
TQ4_MODULE(http_client)
