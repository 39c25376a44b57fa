// http_client: the binding of requests (http_request) and replies (http_reply) to a connection of the socket service.
//
// The lock guards everything; it is free during callbacks, and during calls of the service that wait for its thread,
// which may need the lock for a callback of ours. So each answer is taken out of the client as a whole, under the lock,
// and told when the client is as before its request.
//
// Each connection that was asked for is a link, with a serial number. The client goes on with one at most; what comes
// through another is ignored, and that connection is closed. The service frees a link when its connection is gone; a
// request that still waits for it then is answered, whatever ended it. A client that was deleted goes when no link is
// left and nobody stays in it.
#include "tq4/http_client.h"

#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "base/string/string.hpp"
#include "identity.hpp"
#include "module.hpp"
#include "own.hpp"
#include "platform/multi_platform_system.hpp"
#include "socket/http_reply.hpp"
#include "socket/http_request.hpp"
#include "thread/brief_lock.hpp"
#include "thread/cancel.hpp"

namespace {

constexpr int Most_drops = 16; // in a row, while one request waits
constexpr int Reconnect_now = 0;
constexpr int No_reconnection = -1;
constexpr unsigned long Largest_spare = 64 * 1024; // capacity of a body that is kept for later replies

Tq4_hooked<Tq4_string> new_string() { return Tq4_make_hooked<Tq4_string>(Tq4_cxx_support->new_string); }
Tq4_hooked<Tq4_value_table> new_table() { return Tq4_make_hooked<Tq4_value_table>(Tq4_cxx_support->new_table); }

// What a table ignores the case of its keys by, in look-ups too, when this is appended.
Tq4_hooked<Tq4_value_table> new_caseless() {
    auto table = new_table();
    (*table)->CaseFlag(table.get(), 1);
    return table;
}

} // namespace

struct Tq4_http_client_obj : Tq4_identity {
    // --- Constant ---
    const Tq4_socket m_sock; // borrowed; may be null
    const Tq4_hooked<Tq4_value_table> m_caseless = new_caseless();

    // The service's user object: it leads from a connection to its client.
    struct Link {
        Tq4_http_client_obj *client;
        unsigned long serial;
        Tq4_own<Tq4_sockaddr> remote;
    };
    struct Live_link {
        unsigned long serial;
        Tq4_id socket; // zero until it is known
        bool stands;   // it was the client's connection, whose end is told
    };
    // A request that waits for its reply.
    struct Pending {
        std::string url;
        Tq4_hooked<Tq4_string> text; // as it is sent
        bool to_head = false;
        Tq4_http_client_responed on_response = nullptr;
    };
    // Where a reply goes. One that a callback has left is kept for a later reply.
    struct Room {
        Tq4_hooked<Tq4_value_table> header;
        Tq4_hooked<Tq4_string> data;
    };
    // A reply on its way to its callback.
    struct Answer {
        std::string url;
        int status = 0;
        Room room;
        Tq4_id session_id = {};
        Tq4_http_client_responed on_response = nullptr;
    };

    // --- Under the lock, which is held inside stays and with the kill gate shut ---
    Tq4_brief_lock m_lock;
    std::vector<Live_link> m_live TQ4_GUARDED_BY(m_lock); // links that the service has not freed, by serial
    unsigned long m_last_serial TQ4_GUARDED_BY(m_lock) = 0;
    unsigned long m_serial TQ4_GUARDED_BY(m_lock) = 0; // of the link that the client goes on with; 0 for none
    Tq4_id m_tcp TQ4_GUARDED_BY(m_lock) = {};          // its socket
    unsigned m_stays TQ4_GUARDED_BY(m_lock) = 0;
    unsigned m_frames TQ4_GUARDED_BY(m_lock) = 0;            // those stays that are callbacks of the service
    unsigned long m_frame_thread TQ4_GUARDED_BY(m_lock) = 0; // of the callbacks: one thread at a time
    bool m_is_deleted TQ4_GUARDED_BY(m_lock) = false;
    bool m_is_connected TQ4_GUARDED_BY(m_lock) = false;
    bool m_waits TQ4_GUARDED_BY(m_lock) = false; // m_pending does
    int m_drops TQ4_GUARDED_BY(m_lock) = 0;      // since it was sent first
    Pending m_pending TQ4_GUARDED_BY(m_lock);
    Tq4_http_reply m_reply TQ4_GUARDED_BY(m_lock);
    Room m_room TQ4_GUARDED_BY(m_lock);                    // of m_reply; empty while nothing was sent
    Room m_spare TQ4_GUARDED_BY(m_lock);                   // either may be null
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
    class Stay;
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

    bool MayRequest(std::string *host);
    int MakeConnection(Stay &stay, Link *link);
    Link *NewLink() TQ4_REQUIRES(m_lock);
    Live_link *Find(unsigned long serial) TQ4_REQUIRES(m_lock);
    void Drop(unsigned long serial) TQ4_REQUIRES(m_lock);
    bool NextSocket(unsigned long *serial, Tq4_id *socket);
    bool SendPending() TQ4_REQUIRES(m_lock);
    void MakeRoom() TQ4_REQUIRES(m_lock);
    void Keep(Room &room) TQ4_REQUIRES(m_lock);
    void Forget() TQ4_REQUIRES(m_lock);
    void LetGo() TQ4_REQUIRES(m_lock);
    Answer TakeAnswer() TQ4_REQUIRES(m_lock);
    bool IsDone() const TQ4_REQUIRES(m_lock) { return m_is_deleted && m_live.empty() && m_stays == 0; }
};

static void Delete_Tq4_http_client_obj(Tq4_http_client_obj *record);

// --- Stays ---

// The time that a thread spends in the client, which lives at least so long. A kill takes the thread only in what it is
// let in for, and ends the stay too.
class Tq4_http_client_obj::Stay {
    Tq4_cancel_held_around m_held;
    Answer m_told; // what the callback has at hand
    Tq4_http_client_callback m_response = {};

public:
    Tq4_http_client_obj &client;

    explicit Stay(Tq4_http_client_obj &of, bool is_frame = false) : client(of), m_is_frame(is_frame) {
        const Tq4_brief_guard guard(client.m_lock);
        ++client.m_stays;
        if (!m_is_frame) return;
        ++client.m_frames;
        client.m_frame_thread = MP_THREAD_GetCurrentId();
    }
    ~Stay() { End(); }
    Stay(const Stay &) = delete;
    Stay &operator=(const Stay &) = delete;

    // Does what may call a user's function.
    template <class Step> void Admit(Step step) {
        AdmitCall([](void *given) { (*static_cast<Step *>(given))(); }, &step);
    }
    void Tell(Answer answer);
    void TellDisConnect(Tq4_http_client_on_disconnect function) {
        if (function) Admit([&] { function(handle()); });
    }
    void CloseSocket(const Tq4_id &id) {
        Admit([&] { (*client.m_sock)->Close(client.m_sock, &id); });
    }

private:
    const bool m_is_frame; // a callback of the service

    Tq4_http_client handle() { return Tq4_handle_of<Tq4_http_client>(&client); }
    void AdmitCall(void (*call)(void *), void *step);
    static void Killed(void *stay);
    void TakeBack();
    void End();
};

// A callback of the service, on its thread.
class Tq4_http_client_obj::Frame : public Tq4_http_client_obj::Stay {
public:
    const unsigned long serial; // of its link

    explicit Frame(void *user_obj)
        : Stay(*static_cast<Link *>(user_obj)->client, true), serial(static_cast<Link *>(user_obj)->serial) {}
    void AnswerPending();
};

[[gnu::noinline]] void Tq4_http_client_obj::Stay::AdmitCall(void (*call)(void *), void *step) {
    pthread_cleanup_push(Killed, this);
    m_held.Admit([&] { call(step); });
    pthread_cleanup_pop(0);
}

void Tq4_http_client_obj::Stay::Killed(void *stay) {
    Tq4_forget_killed_frames();
    auto *ended = static_cast<Stay *>(stay);
    ended->TakeBack();
    ended->End();
}

void Tq4_http_client_obj::Stay::Tell(Answer answer) {
    m_told = std::move(answer);
    m_response = {m_told.url.c_str(), m_told.status, m_told.room.header.get(), m_told.room.data.get(),
                  &m_told.session_id};
    if (m_told.on_response) Admit([&] { m_told.on_response(handle(), &m_response); });
    TakeBack();
}

// What the callback has taken is its own.
void Tq4_http_client_obj::Stay::TakeBack() {
    Answer told = std::move(m_told);
    if (!m_response.header) static_cast<void>(told.room.header.release());
    if (!m_response.data) static_cast<void>(told.room.data.release());
    const Tq4_brief_guard guard(client.m_lock);
    client.Keep(told.room);
}

// The link is of no use any more: a request that waits for it ends with what came.
void Tq4_http_client_obj::Frame::AnswerPending() {
    Answer answer;
    {
        const Tq4_brief_guard guard(client.m_lock);
        if (client.m_serial != serial) return;
        client.LetGo();
        if (!client.m_waits) return;
        answer = client.TakeAnswer();
    }
    Tell(std::move(answer));
}

void Tq4_http_client_obj::Stay::End() {
    bool is_done;
    {
        const Tq4_brief_guard guard(client.m_lock);
        --client.m_stays;
        if (m_is_frame) --client.m_frames;
        is_done = client.IsDone();
    }
    if (is_done) Tq4_object_ops<Tq4_http_client_obj>::Destroy(&client, Delete_Tq4_http_client_obj);
}

// --- The operations ---

void Tq4_http_client_obj::SetHost(const char *host) {
    const Tq4_kill_gate_shut gate;
    const Tq4_brief_guard guard(m_lock);
    m_host = host ? host : "";
}

int Tq4_http_client_obj::Connect(const char *host, int port) {
    const Stay stay(*this);
    {
        const Tq4_brief_guard guard(m_lock);
        if (m_serial != 0) return 1;
    }
    auto remote = Tq4_make<Tq4_sockaddr>(Tq4_sockaddr_oitf);
    if (!host || !(*remote)->Init(remote.get(), host, port)) return 0;
    const Tq4_brief_guard guard(m_lock);
    if (m_serial != 0) return 1;
    m_remote = std::move(remote);
    if (m_host.empty()) m_host = host;
    return 1;
}

int Tq4_http_client_obj::IsConnect() {
    const Tq4_kill_gate_shut gate;
    const Tq4_brief_guard guard(m_lock);
    return m_is_connected;
}

void Tq4_http_client_obj::SetReqId(const Tq4_id *id) {
    const Tq4_kill_gate_shut gate;
    const Tq4_brief_guard guard(m_lock);
    m_session_id = id ? *id : Tq4_id{};
}

void Tq4_http_client_obj::SetOnDisConnect(Tq4_http_client_on_disconnect on_disconnect) {
    const Tq4_kill_gate_shut gate;
    const Tq4_brief_guard guard(m_lock);
    m_on_disconnect = on_disconnect;
}

// Every connection is closed, those let go too: whoever deletes the client waits thus for a callback that is running.
void Tq4_http_client_obj::Close() {
    Stay stay(*this);
    {
        const Tq4_brief_guard guard(m_lock);
        Forget();
        LetGo();
    }
    Tq4_id socket;
    for (unsigned long serial = 0; NextSocket(&serial, &socket);) stay.CloseSocket(socket);
}

// The first known socket of a link after the one with this serial.
bool Tq4_http_client_obj::NextSocket(unsigned long *serial, Tq4_id *socket) {
    const Tq4_brief_guard guard(m_lock);
    for (const Live_link &link : m_live) {
        if (link.serial <= *serial || link.socket.l == 0) continue;
        *serial = link.serial;
        *socket = link.socket;
        return true;
    }
    return false;
}

void Tq4_http_client_obj::Reset() { Close(); }

// A service that is being stopped closes nothing for us any more: its last callbacks are waited for here. While they
// are, the last of them must not destroy the client, so the wait is a stay of its own.
bool Tq4_http_client_obj::Retire() {
    Close();
    const Tq4_kill_gate_shut gate;
    for (bool stays = false;; stays = true, MP_Sleep(1)) {
        const Tq4_brief_guard guard(m_lock);
        m_is_deleted = true;
        if (!stays) ++m_stays;
        if (m_frames > 0 && m_frame_thread != MP_THREAD_GetCurrentId()) continue;
        --m_stays;
        return IsDone();
    }
}

int Tq4_http_client_obj::Request(const char *method, const char *url, Tq4_value_table headers, Tq4_string body,
                                 Tq4_http_client_responed on_response) {
    if (!m_sock || !method || !url) return 0;
    Stay stay(*this);
    std::string host;
    if (!MayRequest(&host)) return 0;
    Pending wanted{url, new_string(), std::strcmp(method, "HEAD") == 0, on_response};
    if (!Tq4_http_make_request(wanted.text.get(), {method, url, host.c_str(), headers, body})) return 0;
    Link *link;
    {
        const Tq4_brief_guard guard(m_lock);
        if (m_waits) return 0; // somebody was faster
        m_pending = std::move(wanted);
        m_waits = true;
        m_drops = 0;
        if (m_is_connected) {
            if (SendPending()) return 1;
            Forget();
            return 0;
        }
        link = NewLink();
    }
    return MakeConnection(stay, link);
}

bool Tq4_http_client_obj::MayRequest(std::string *host) {
    const Tq4_brief_guard guard(m_lock);
    *host = m_host;
    return m_remote && !m_waits;
}

Tq4_http_client_obj::Link *Tq4_http_client_obj::NewLink() {
    m_serial = ++m_last_serial;
    m_live.push_back({m_serial, {}, false});
    return new Link{this, m_serial, Tq4_own<Tq4_sockaddr>(static_cast<Tq4_sockaddr>(Tq4_object_Dup(m_remote.get())))};
}

// The callbacks of the connection may come before the service's Connect has returned; and somebody may have called
// Close meanwhile. A link that the service never had is ours to free.
int Tq4_http_client_obj::MakeConnection(Stay &stay, Link *link) {
    const unsigned long serial = link->serial;
    Tq4_socket_info info{};
    info.remote = link->remote.get();
    info.user_obj = link;
    info.del_userobj = DeleteLink;
    stay.Admit([&] { (*m_sock)->Connect(m_sock, &info, &callbacks); });
    {
        const Tq4_brief_guard guard(m_lock);
        Live_link *live = Find(serial);
        const bool never_was = live && info.id.l == 0;
        if (live) live->socket = info.id;
        if (never_was) {
            Drop(serial);
            delete link;
        }
        if (m_serial == serial) {
            if (!never_was) return 1;
            Forget();
            LetGo();
            return 0;
        }
    }
    if (info.id.l != 0) stay.CloseSocket(info.id);
    return 1;
}

Tq4_http_client_obj::Live_link *Tq4_http_client_obj::Find(unsigned long serial) {
    for (Live_link &each : m_live)
        if (each.serial == serial) return &each;
    return nullptr;
}

void Tq4_http_client_obj::Drop(unsigned long serial) {
    std::erase_if(m_live, [serial](const Live_link &each) { return each.serial == serial; });
}

bool Tq4_http_client_obj::SendPending() {
    MakeRoom();
    m_reply.Expect(m_pending.to_head, m_room.header.get(), m_room.data.get());
    const Tq4_bytes text = Tq4_record_of<Tq4_string_obj>(m_pending.text.get()).view();
    if ((*m_sock)->SendData(m_sock, &m_tcp, text.data, text.size)) return true;
    m_reply.GiveUp();
    return false;
}

// Empty again, whatever a callback has made of it.
void Tq4_http_client_obj::MakeRoom() {
    if (!m_room.header) m_room.header = m_spare.header ? std::move(m_spare.header) : new_table();
    if (!m_room.data) m_room.data = m_spare.data ? std::move(m_spare.data) : new_string();
    Tq4_value_table header = m_room.header.get();
    Tq4_object_of(header)->oitf->Reset(header);
    (*header)->Append(header, m_caseless.get());
    Tq4_object_of(m_room.data.get())->oitf->Reset(m_room.data.get());
}

void Tq4_http_client_obj::Keep(Room &room) {
    if (room.header && !m_spare.header) m_spare.header = std::move(room.header);
    const auto *data = Tq4_record<Tq4_string_obj>(room.data.get());
    if (data && !m_spare.data && data->m_buf.m_len <= Largest_spare) m_spare.data = std::move(room.data);
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

Tq4_http_client_obj::Answer Tq4_http_client_obj::TakeAnswer() {
    if (!m_room.header) MakeRoom(); // nothing was sent
    Answer answer{std::move(m_pending.url), m_reply.status(), std::move(m_room), m_session_id, m_pending.on_response};
    Forget();
    return answer;
}

// --- Callbacks of the service, on its thread ---

void Tq4_http_client_obj::OnConnectOk(Tq4_socket, Tq4_socket_info *info, int) {
    const Tq4_id id = info->id;
    Frame frame(info->user_obj);
    auto &client = frame.client;
    {
        const Tq4_brief_guard guard(client.m_lock);
        Live_link *link = client.Find(frame.serial);
        if (link && client.m_serial == frame.serial) {
            client.m_is_connected = link->stands = true;
            client.m_tcp = link->socket = id;
            if (client.m_waits) client.SendPending(); // refused when the service stops: the link's end tells
            return;
        }
    }
    frame.CloseSocket(id);
}

int Tq4_http_client_obj::OnDataOk(Tq4_socket, Tq4_socket_info *info, Tq4_string *data) {
    const Tq4_id id = info->id;
    Frame frame(info->user_obj);
    auto &client = frame.client;
    const Tq4_bytes block = Tq4_record_of<Tq4_string_obj>(*data).view();
    const auto *bytes = reinterpret_cast<const char *>(block.data);
    bool is_refused = false;
    for (std::size_t at = 0; at < block.size && !is_refused;) {
        Answer answer;
        {
            const Tq4_brief_guard guard(client.m_lock);
            if (client.m_serial != frame.serial) return 0;
            Tq4_http_reply &reply = client.m_reply;
            while (at < block.size && !reply.has_ended()) at += reply.Take(bytes + at, block.size - at);
            if (!reply.has_ended()) return 0;
            is_refused = reply.state() == Tq4_http_reply::State::Refused;
            answer = client.TakeAnswer();
            if (is_refused) client.LetGo();
        }
        frame.Tell(std::move(answer));
    }
    if (is_refused) frame.CloseSocket(id);
    return 0;
}

int Tq4_http_client_obj::OnConnectFaild(Tq4_socket, Tq4_socket_info *info, int) {
    Frame(info->user_obj).AnswerPending();
    return No_reconnection;
}

// A request stays until the user's function has returned, which may close the client, or be killed.
int Tq4_http_client_obj::OnDisConnect(Tq4_socket, Tq4_socket_info *info, int) {
    Frame frame(info->user_obj);
    auto &client = frame.client;
    int delay = No_reconnection;
    Tq4_http_client_on_disconnect told = nullptr;
    {
        const Tq4_brief_guard guard(client.m_lock);
        Live_link *link = client.Find(frame.serial);
        if (link && std::exchange(link->stands, false) && !client.m_is_deleted) told = client.m_on_disconnect;
        if (client.m_serial == frame.serial) {
            client.m_is_connected = false;
            client.m_reply.Disconnect();
            if (!client.m_waits)
                client.LetGo();
            else if (++client.m_drops < Most_drops)
                delay = Reconnect_now;
        }
    }
    frame.TellDisConnect(told);
    if (delay < 0) frame.AnswerPending();
    return delay;
}

// The connection is gone for good. When the service has ended it, which asks nobody, its request still waits.
void Tq4_http_client_obj::DeleteLink(void *given) {
    Frame frame(given);
    {
        const Tq4_brief_guard guard(frame.client.m_lock);
        frame.client.Drop(frame.serial);
    }
    delete static_cast<Link *>(given);
    frame.AnswerPending();
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
