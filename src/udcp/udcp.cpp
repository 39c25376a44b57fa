// udcp: the reliable datagram protocol on a socket of the socket service.
//
// Each Start makes one running: a socket, and the engine with its threads on it. It belongs to the module object and to
// the socket's record, so the service's thread never finds it gone. Operations share it while they are on their way:
// Stop takes it from the object, and whoever leaves last destroys it.
//
// The service receives. The loop sends by itself, by a descriptor of its own: a service that is stopped first closes
// its own, whose number may be another socket's soon.
#include "tq4/udcp.h"

#include <cstring>
#include <memory>
#include <utility>

#include "identity.hpp"
#include "module.hpp"
#include "platform/multi_platform_socket.hpp"
#include "socket/addr.hpp"
#include "thread/brief_lock.hpp"
#include "thread/cancel.hpp"
#include "tq4/sock_api.h"
#include "udcp/handler.hpp"

namespace {

using Addresses = std::unique_ptr<addrinfo, decltype(&freeaddrinfo)>;

bool is_port(int port) { return port > 0 && port <= UINT16_MAX; }

unsigned long length_of(const void *bytes, unsigned long length) {
    if (!bytes) return 0;
    return length == TQ4_ALL_ONES ? std::strlen(static_cast<const char *>(bytes)) : length;
}

} // namespace

struct Tq4_udcp_running {
    const Tq4_socket service; // borrowed
    const int family;         // of the socket
    int fd = -1;              // the loop's, of the socket too
    Tq4_id socket = {};
    Tq4_udcp_handler handler;

    Tq4_udcp_running(Tq4_udcp pair, const Tq4_udcp_callback &callbacks, const Tq4_udcp_settings &settings,
                     Tq4_socket sockets, int local_family)
        : service(sockets), family(local_family), handler(pair, callbacks, settings, {this, Send, SendRun}) {}
    ~Tq4_udcp_running() {
        handler.Stop();
        if (fd >= 0) Tq4_sock_api->Close(fd);
    }
    Tq4_udcp_running(const Tq4_udcp_running &) = delete;
    Tq4_udcp_running &operator=(const Tq4_udcp_running &) = delete;

    using Shared = std::shared_ptr<Tq4_udcp_running>;
    static int Open(const Shared &self, Tq4_sockaddr local);
    Tq4_own<Tq4_sockaddr> Resolve(const char *host, int port) const;

private:
    static int OnDataOk(Tq4_socket, Tq4_socket_info *info, Tq4_string *data);
    static int Send(void *running, Tq4_sockaddr to, Tq4_bytes datagram);
    static int SendRun(void *running, Tq4_sockaddr to, Tq4_bytes run, std::size_t length);
};

// --- The socket ---

// A service binds only addresses with a port; without one the system chooses it here.
int Tq4_udcp_running::Open(const Shared &self, Tq4_sockaddr local) {
    Tq4_socket_callback callbacks{};
    callbacks.OnDataOk = OnDataOk;
    Tq4_socket_info info{};
    info.local = local;
    info.user_obj = new Shared(self);
    info.del_userobj = [](void *shared) { delete static_cast<Shared *>(shared); };
    (*self->service)->Open(self->service, &info, &callbacks);
    if (info.id.l == 0) {
        info.del_userobj(info.user_obj);
        return 0;
    }
    self->socket = info.id;
    auto &address = Tq4_record_of<Tq4_sockaddr_obj>(local);
    if (address.port() == 0 && !MP_SOCK_Bind(info.fd, address.raw(), address.Info()->ai_addrlen)) return 0;
    return (self->fd = MP_SOCK_Duplicate(info.fd)) >= 0;
}

int Tq4_udcp_running::OnDataOk(Tq4_socket, Tq4_socket_info *info, Tq4_string *data) {
    const Tq4_kill_gate_shut gate; // the service's thread may be killed in its callbacks
    (*static_cast<Shared *>(info->user_obj))->handler.OnDatagram(data, info->remote);
    return 0;
}

int Tq4_udcp_running::Send(void *running, Tq4_sockaddr to, Tq4_bytes datagram) {
    auto &address = Tq4_record_of<Tq4_sockaddr_obj>(to);
    const long sent = MP_SOCK_Send(static_cast<Tq4_udcp_running *>(running)->fd, datagram.data, datagram.size,
                                   address.raw(), address.Info()->ai_addrlen);
    return sent == static_cast<long>(datagram.size);
}

int Tq4_udcp_running::SendRun(void *running, Tq4_sockaddr to, Tq4_bytes run, std::size_t length) {
    auto &address = Tq4_record_of<Tq4_sockaddr_obj>(to);
    return MP_SOCK_SendRun(static_cast<Tq4_udcp_running *>(running)->fd, run.data, run.size, length, address.raw(),
                           address.Info()->ai_addrlen);
}

// The first address of a host that the socket reaches; null for none. One of IPv6 reaches those of IPv4, too.
Tq4_own<Tq4_sockaddr> Tq4_udcp_running::Resolve(const char *host, int port) const {
    if (!host || !*host || !is_port(port)) return nullptr;
    const Addresses all(MP_InitSockAddr(host, static_cast<uint16_t>(port)), freeaddrinfo);
    for (const addrinfo *each = all.get(); each; each = each->ai_next) {
        if (each->ai_family != AF_INET && each->ai_family != family) continue;
        auto address = Tq4_make<Tq4_sockaddr>(Tq4_sockaddr_oitf);
        if ((*address)->Init2(address.get(), each->ai_addr, each->ai_addrlen)) return address;
    }
    return nullptr;
}

// --- The module ---

struct Tq4_udcp_obj : Tq4_identity {
    using Shared = Tq4_udcp_running::Shared;

    // --- Constant ---
    const Tq4_udcp_callback m_callbacks;

    // --- Of the thread that starts and stops ---
    Tq4_socket m_socket = nullptr; // borrowed
    int m_scheme = 0;
    Tq4_udcp_strings m_strings = {}; // of the next start; nulls: as cxx_support.h has it

    // --- Of any thread ---
    Tq4_brief_lock m_lock; // held with the kill gate shut
    Shared m_running TQ4_GUARDED_BY(m_lock);

    explicit Tq4_udcp_obj(const Tq4_udcp_callback *callbacks)
        : m_callbacks(callbacks ? *callbacks : Tq4_udcp_callback{}) {}
    ~Tq4_udcp_obj() { Stop(); }
    void Reset() { Stop(); }
    bool Retire() { return !InCallback(); }
    const void *Params() const { return &m_callbacks; }

    void Init(Tq4_socket socket, int scheme);
    int Start(int client_only, const char *addr, int port);
    void Stop();
    int Connect(const char *addr, int port, Tq4_id *out, const Tq4_id *user_id, void *user_data);
    int DisConnect(const Tq4_id *id);
    void Post(const Tq4_id *id, const void *bytes, unsigned long length);
    int Send(const Tq4_id *id, const void *bytes, unsigned long length, int flag);
    void PostString(const Tq4_id *id, Tq4_string *string);
    int SendString(const Tq4_id *id, Tq4_string *string, int flag);
    int ChangeDestAddr(const Tq4_id *id, const char *addr, int port);
    void SetNewString(Tq4_new_hook make) { m_strings.make = make; }
    void SetDelString(Tq4_delete_hook free_string) { m_strings.free = free_string; }

private:
    class Caller;
    Shared Running() {
        const Tq4_brief_guard guard(m_lock);
        return m_running;
    }
    Shared Exchange(Shared running) {
        const Tq4_brief_guard guard(m_lock);
        return std::exchange(m_running, std::move(running));
    }
    bool InCallback();
    Tq4_string Taken(const Caller &caller, const Tq4_id *id, Tq4_string *string, unsigned long most);
};

// An operation on its way, which a kill does not interrupt, and what it works on; null when nothing runs.
class Tq4_udcp_obj::Caller {
    const Tq4_cancel_held_around m_held;
    const Shared m_running;

public:
    explicit Caller(Tq4_udcp_obj &obj) : m_running(obj.Running()) {}
    Caller(const Caller &) = delete;
    Caller &operator=(const Caller &) = delete;
    explicit operator bool() const { return m_running != nullptr; }
    Tq4_udcp_running *operator->() const { return m_running.get(); }
    // A string with these bytes and room for a header, as the running has its strings made.
    Tq4_string Copy(const void *bytes, unsigned long length) const {
        const Tq4_string string = m_running->handler.strings().Make();
        char *room = length ? (*string)->Extend(string, length + Tq4_upp_base_size) : nullptr; // its header follows
        if (!room) return string;
        std::memcpy(room, bytes, length);
        return (*string)->truncate(string, length);
    }
};

bool Tq4_udcp_obj::InCallback() {
    const Caller caller(*this);
    return caller && caller->handler.OnOwnThread();
}

void Tq4_udcp_obj::Init(Tq4_socket socket, int scheme) {
    if (const Caller caller(*this); caller) return;
    m_socket = socket;
    m_scheme = scheme;
}

int Tq4_udcp_obj::Start(int client_only, const char *addr, int port) {
    const Caller caller(*this);
    if (caller || !m_socket || port < 0 || port > UINT16_MAX) return 0;
    const auto local = Tq4_make<Tq4_sockaddr>(Tq4_sockaddr_oitf);
    if (!(*local)->Init(local.get(), addr, port)) return 0;
    const int family = (*local)->Info(local.get())->ai_family;
    if (family != AF_INET && family != AF_INET6) return 0;
    Tq4_udcp_settings settings;
    settings.scheme = static_cast<unsigned>(m_scheme);
    settings.listens = client_only == 0;
    settings.strings = m_strings;
    const auto running =
        std::make_shared<Tq4_udcp_running>(Tq4_handle_of<Tq4_udcp>(this), m_callbacks, settings, m_socket, family);
    Exchange(running); // callbacks may come before this returns
    if (Tq4_udcp_running::Open(running, local.get()) && running->handler.Start()) return 1;
    Stop();
    return 0;
}

// The socket closes when nothing more is sent.
void Tq4_udcp_obj::Stop() {
    const Caller caller(*this);
    if (!caller || caller->handler.OnOwnThread()) return;
    caller->handler.Stop();
    if (caller->socket.l != 0) (*caller->service)->Close(caller->service, &caller->socket);
    Exchange(nullptr);
}

// --- Connections ---

int Tq4_udcp_obj::Connect(const char *addr, int port, Tq4_id *out, const Tq4_id *user_id, void *user_data) {
    const Caller caller(*this);
    const auto resolved = caller ? caller->Resolve(addr, port) : nullptr;
    return resolved ? caller->handler.Connect(addr, port, resolved.get(), user_id, user_data, out) : 0;
}

int Tq4_udcp_obj::DisConnect(const Tq4_id *id) {
    const Caller caller(*this);
    return caller && id ? caller->handler.DisConnect(id) : 0;
}

int Tq4_udcp_obj::ChangeDestAddr(const Tq4_id *id, const char *addr, int port) {
    const Caller caller(*this);
    const auto resolved = caller && id ? caller->Resolve(addr, port) : nullptr;
    return resolved ? caller->handler.ChangeDestAddr(id, addr, port, resolved.get()) : 0;
}

// --- Messages ---

// The caller's string, when it may go on its way; one that may not is freed.
Tq4_string Tq4_udcp_obj::Taken(const Caller &caller, const Tq4_id *id, Tq4_string *string, unsigned long most) {
    const Tq4_string taken = string ? std::exchange(*string, nullptr) : nullptr;
    if (!taken || (caller && id && static_cast<unsigned long>((*taken)->length(taken)) <= most)) return taken;
    Tq4_udcp_or_default(m_strings).Free(taken);
    return nullptr;
}

void Tq4_udcp_obj::Post(const Tq4_id *id, const void *bytes, unsigned long length) {
    const Caller caller(*this);
    if (!caller || !id || (length = length_of(bytes, length)) > TQ4_UDCP_MOST_POST) return;
    caller->handler.Post(id, caller.Copy(bytes, length));
}

int Tq4_udcp_obj::Send(const Tq4_id *id, const void *bytes, unsigned long length, int flag) {
    const Caller caller(*this);
    if (!caller || !id || (length = length_of(bytes, length)) > TQ4_UDCP_MOST_MESSAGE) return 0;
    return caller->handler.Send(id, caller.Copy(bytes, length), flag != 0);
}

void Tq4_udcp_obj::PostString(const Tq4_id *id, Tq4_string *string) {
    const Caller caller(*this);
    if (const Tq4_string taken = Taken(caller, id, string, TQ4_UDCP_MOST_POST)) caller->handler.Post(id, taken);
}

int Tq4_udcp_obj::SendString(const Tq4_id *id, Tq4_string *string, int flag) {
    const Caller caller(*this);
    const Tq4_string taken = Taken(caller, id, string, TQ4_UDCP_MOST_MESSAGE);
    return taken ? caller->handler.Send(id, taken, flag != 0) : 0;
}

const Tq4_udcp_ Tq4_udcp_itf = {
    .Init = Tq4_op<&Tq4_udcp_obj::Init>,
    .Start = Tq4_op<&Tq4_udcp_obj::Start>,
    .Stop = Tq4_op<&Tq4_udcp_obj::Stop>,
    .Connect = Tq4_op<&Tq4_udcp_obj::Connect>,
    .DisConnect = Tq4_op<&Tq4_udcp_obj::DisConnect>,
    .Post = Tq4_op<&Tq4_udcp_obj::Post>,
    .Send = Tq4_op<&Tq4_udcp_obj::Send>,
    .PostString = Tq4_op<&Tq4_udcp_obj::PostString>,
    .SendString = Tq4_op<&Tq4_udcp_obj::SendString>,
    .ChangeDestAddr = Tq4_op<&Tq4_udcp_obj::ChangeDestAddr>,
    .SetNewString = Tq4_op<&Tq4_udcp_obj::SetNewString>,
    .SetDelString = Tq4_op<&Tq4_udcp_obj::SetDelString>,
};
TQ4_MODULE(udcp)
