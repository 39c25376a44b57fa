// socket: the socket service: its operations, its thread, and what other threads ask of it.
//
// Turn by turn the thread waits for events, handles them, handles what other threads have queued, and writes on the
// connections that have something to send. What is queued is looked for in every turn, so a wake-up that is lost only
// delays it.
//
// An operation on the service thread runs at once. One on another thread enters m_callers before it looks whether the
// service runs, and goes through the dispatcher; Stop ends the thread, and then serves until nobody is left in there.
// So nobody waits for a service that has stopped.
#include "socket/service.hpp"

#include <iterator>

#include "base/dispatch/dispatch.hpp"
#include "base/string/string.hpp"
#include "module.hpp"
#include "platform/multi_platform_pthread.hpp"
#include "platform/multi_platform_system.hpp"
#include "socket/addr.hpp"
#include "thread/lock.hpp"
#include "tq4/sock_api.h"
#include "tq4/system.h"

namespace {

// Numbers of the epoll that no socket has: the low half of a socket's id is never 0.
constexpr uint64_t Write_epoll = 0;
constexpr uint64_t Wake_up = uint64_t{1} << 32;

Tq4_own<Tq4_pool> make_pool() {
    Tq4_pool_CreateParams params{};
    params.max_res = Tq4_socket_obj::Most_sockets;
    params.Create = [](void *) -> void * { return new Tq4_sock_item; };
    params.Delete = [](void *item) { delete static_cast<Tq4_sock_item *>(item); };
    params.Reset = [](void *item, unsigned long) { static_cast<Tq4_sock_item *>(item)->Reset(); };
    params.mask = static_cast<uint64_t>(Tq4_system_api->Random());
    return Tq4_make<Tq4_pool>(Tq4_pool_oitf, &params);
}

Tq4_sockaddr new_address() { return static_cast<Tq4_sockaddr>(Tq4_sockaddr_oitf->Create(nullptr)); }

void leave_zero(Tq4_socket_info *info) {
    info->id = {};
    info->fd = -1;
}

} // namespace

// --- Records ---

Tq4_sock_item::Tq4_sock_item() : info{.fd = -1, .local = new_address(), .remote = new_address()}, callback{} {}

Tq4_sock_item::~Tq4_sock_item() {
    Tq4_sockaddr_oitf->Delete(info.local);
    Tq4_sockaddr_oitf->Delete(info.remote);
}

void Tq4_sock_item::Reset() {
    Tq4_sockaddr_oitf->Reset(info.local);
    Tq4_sockaddr_oitf->Reset(info.remote);
    info = {.fd = -1, .local = info.local, .remote = info.remote};
    m_bind.reset();
    callback = {};
    tcp.reset();
}

void Tq4_sock_item::TakeUserFields(const Tq4_socket_info &given) {
    info.user_id = given.user_id;
    info.user_obj = given.user_obj;
    info.del_userobj = given.del_userobj;
}

Tq4_sock_item *Tq4_socket_obj::NewItem() {
    Tq4_id id;
    auto *item = m_opens ? static_cast<Tq4_sock_item *>((*m_resource)->Alloc(m_resource.get(), nullptr, &id)) : nullptr;
    if (item) item->info.id = id;
    return item;
}

Tq4_sock_item *Tq4_socket_obj::Find(Tq4_id id) {
    return static_cast<Tq4_sock_item *>((*m_resource)->Peek(m_resource.get(), &id));
}

void Tq4_socket_obj::CloseDescriptor(Tq4_sock_item *item) {
    const int fd = std::exchange(item->info.fd, -1);
    if (fd < 0) return;
    // A child of this process may hold the descriptor too: then closing it alone would leave it watched.
    MP_EPOLL_Forget(m_epfd_read, fd);
    if (item->tcp && std::exchange(item->tcp->m_awaits_room, false)) MP_EPOLL_Forget(m_epfd_write, fd);
    Tq4_sock_api->Close(fd);
}

void Tq4_socket_obj::Release(Tq4_sock_item *item) {
    const Tq4_id id = item->info.id;
    void *user_obj = item->info.user_obj;
    auto *del_userobj = item->info.del_userobj;
    CloseDescriptor(item);
    (*m_resource)->Recycle(m_resource.get(), &id);
    if (!del_userobj) return;
    m_held->Admit([&] { del_userobj(user_obj); });
}

void Tq4_socket_obj::TellData(Tq4_sock_item *item) {
    if (item->callback.OnDataOk) Call(item->callback.OnDataOk, &item->info, &m_buffer);
}

Tq4_string_obj &Tq4_socket_obj::Buffer() {
    if (!m_buffer) m_buffer = static_cast<Tq4_string>(Tq4_cxx_support->new_string());
    return Tq4_record_of<Tq4_string_obj>(m_buffer);
}

// --- What other threads ask for ---

// An operation of another thread, on its way; ok while the service runs, and then it is served.
class Tq4_socket_obj::Caller {
    const Tq4_cancel_held_around m_held; // killed meanwhile, the caller ends with the operation
    Tq4_socket_obj &m_service;

public:
    const bool ok;
    explicit Caller(Tq4_socket_obj &service)
        : m_service(service), ok((++service.m_callers, service.m_running.load())) {}
    ~Caller() { --m_service.m_callers; }
    Caller(const Caller &) = delete;
    Caller &operator=(const Caller &) = delete;
};

// Open, Listen and Connect: what the table carries under "info" and "callback".
template <class Callback> struct Tq4_socket_obj::Opening {
    Tq4_socket_info *info;
    const Callback *callback;

    explicit Opening(Tq4_value_table table)
        : info(static_cast<Tq4_socket_info *>((*table)->PtrS(table, "info"))),
          callback(static_cast<const Callback *>((*table)->PtrS(table, "callback"))) {}
};

long Tq4_socket_obj::HandleOpen(Tq4_msg *message) {
    const Opening<Tq4_socket_callback> wanted(static_cast<Tq4_value_table>(message->params));
    OpenDatagrams(wanted.info, wanted.callback);
    return 0;
}

long Tq4_socket_obj::HandleConnect(Tq4_msg *message) {
    const Opening<Tq4_socket_callback> wanted(static_cast<Tq4_value_table>(message->params));
    OpenConnection(wanted.info, wanted.callback);
    return 0;
}

long Tq4_socket_obj::HandleListen(Tq4_msg *message) {
    const Opening<Tq4_listen_callback> wanted(static_cast<Tq4_value_table>(message->params));
    OpenListener(wanted.info, wanted.callback);
    return 0;
}

long Tq4_socket_obj::HandleClose(Tq4_msg *message) {
    CloseNow(*message->receiver);
    return 0;
}

long Tq4_socket_obj::HandleSend(Tq4_msg *message) {
    auto text = static_cast<Tq4_string>(message->params);
    const long taken = Send(*message->receiver, text);
    if (taken) message->params = nullptr; // else it is freed with the message
    return taken;
}

long Tq4_socket_obj::HandleReConnect(Tq4_msg *message) {
    if (Tq4_sock_item *item = Find(*message->receiver)) ConnectAgain(item);
    return 0;
}

long Tq4_socket_obj::Handle(void *service, Tq4_msg *message) {
    using Handler = long (Tq4_socket_obj::*)(Tq4_msg *);
    static constexpr Handler handlers[] = {
        &Tq4_socket_obj::HandleOpen,  &Tq4_socket_obj::HandleConnect, &Tq4_socket_obj::HandleListen,
        &Tq4_socket_obj::HandleClose, &Tq4_socket_obj::HandleSend,    &Tq4_socket_obj::HandleReConnect,
    };
    if (message->msg >= std::size(handlers)) return 0;
    return (static_cast<Tq4_socket_obj *>(service)->*handlers[message->msg])(message);
}

// --- The operations ---

template <class Callback>
int Tq4_socket_obj::AskOpening(Tq4_socket_msg message,
                               void (Tq4_socket_obj::*open)(Tq4_socket_info *, const Callback *), Tq4_socket_info *info,
                               const Callback *callback) {
    if (!info) return 0;
    leave_zero(info);
    if (OnServiceThread()) {
        const Inside inside(*this);
        (this->*open)(info, callback);
        return 0;
    }
    Caller caller(*this);
    if (!caller.ok) return 0;
    auto *table = static_cast<Tq4_value_table>(Tq4_cxx_support->new_table());
    (*table)->SetPtrS(table, "info", info);
    (*table)->SetPtrS(table, "callback", const_cast<Callback *>(callback));
    return static_cast<int>(
        (*m_loop)->Send(m_loop.get(), nullptr, nullptr, message, 0, table, Tq4_cxx_support->delete_obj));
}

int Tq4_socket_obj::Open(Tq4_socket_info *info, const Tq4_socket_callback *callback) {
    return AskOpening(Tq4_socket_msg_Open, &Tq4_socket_obj::OpenDatagrams, info, callback);
}
int Tq4_socket_obj::Listen(Tq4_socket_info *info, const Tq4_listen_callback *callback) {
    return AskOpening(Tq4_socket_msg_Listen, &Tq4_socket_obj::OpenListener, info, callback);
}
int Tq4_socket_obj::Connect(Tq4_socket_info *info, const Tq4_socket_callback *callback) {
    return AskOpening(Tq4_socket_msg_Connect, &Tq4_socket_obj::OpenConnection, info, callback);
}

void Tq4_socket_obj::CloseNow(Tq4_id id) {
    Tq4_sock_item *item = Find(id);
    if (!item) return;
    if (item->tcp) item->tcp->master = 0;
    End(item);
}

void Tq4_socket_obj::Close(const Tq4_id *id) {
    if (!id) return;
    if (OnServiceThread()) {
        const Inside inside(*this);
        return CloseNow(*id);
    }
    Caller caller(*this);
    if (caller.ok)
        (*m_loop)->Send(m_loop.get(), nullptr, const_cast<Tq4_id *>(id), Tq4_socket_msg_Close, 0, nullptr, nullptr);
}

// The text is made, or taken over, where no kill strikes.
template <class Make> int Tq4_socket_obj::GiveText(const Tq4_id *id, Make make) {
    if (OnServiceThread()) {
        const Inside inside(*this);
        Tq4_hooked<Tq4_string> text = make();
        const int taken = id && text ? Send(*id, text.get()) : 0;
        if (taken) static_cast<void>(text.release());
        return taken;
    }
    Caller caller(*this);
    Tq4_hooked<Tq4_string> text = make();
    if (!caller.ok || !id || !text) return 0;
    return static_cast<int>((*m_loop)->Post(m_loop.get(), nullptr, const_cast<Tq4_id *>(id), Tq4_socket_msg_Send, 0,
                                            text.release(), Tq4_cxx_support->delete_obj));
}

int Tq4_socket_obj::SendString(const Tq4_id *id, Tq4_string *text) {
    if (!text) return 0;
    return GiveText(id, [&] { return Tq4_hooked<Tq4_string>(std::exchange(*text, nullptr)); });
}

int Tq4_socket_obj::SendData(const Tq4_id *id, const void *bytes, unsigned long length) {
    if (!bytes) return 0;
    return GiveText(id, [&] {
        auto text = Tq4_make_hooked<Tq4_string>(Tq4_cxx_support->new_string);
        (*text)->Memcpy(text.get(), bytes, length);
        return text;
    });
}

int Tq4_socket_obj::vPrintf(const Tq4_id *id, const char *format, va_list args) {
    if (!format) return 0;
    return GiveText(id, [&] {
        auto text = Tq4_make_hooked<Tq4_string>(Tq4_cxx_support->new_string);
        (*text)->vSprintf(text.get(), format, args);
        return text;
    });
}

// --- The thread ---

unsigned long Tq4_socket_obj::Body(void *service) {
    auto *self = static_cast<Tq4_socket_obj *>(service);
    Tq4_cancel_held_around held;
    self->m_held = &held;
    ++self->m_users;
    self->m_in_body = true;
    pthread_cleanup_push(EndBody, self);
    self->Run();
    pthread_cleanup_pop(1);
    return 0;
}

// Also after a kill, which takes the thread inside a callback alone.
void Tq4_socket_obj::EndBody(void *service) {
    Tq4_forget_killed_frames();
    auto *self = static_cast<Tq4_socket_obj *>(service);
    self->m_in_body = false;
    self->Leave();
}

// Somebody may have ended the thread by its handle: then the service stops too.
void Tq4_socket_obj::Run() {
    while ((*m_thread)->IsRunning(m_thread.get())) Turn();
    if (m_running.exchange(false)) m_self_stopped = true;
    if (m_self_stopped) Finish();
}

// What was queued while the thread was falling asleep is found by its last look.
void Tq4_socket_obj::Turn() {
    MP_EPOLL_event events[Most_events];
    m_wake_up.FallAsleep();
    const bool sleeps = !HandleMessages() && m_turns.empty() && (*m_thread)->IsRunning(m_thread.get());
    const int count = MP_EPOLL_Wait(m_epfd_read, events, Most_events, sleeps ? WaitMs() : 0);
    m_wake_up.Awake();
    if (count < 0) MP_Sleep(Pause_look_ms); // the system cannot tell: what is queued is served nevertheless
    for (int i = 0; i < count; ++i) HandleEvent(events[i].data.u64);
    HandleMessages();
    ResumeListeners();
    WriteTurns();
}

int Tq4_socket_obj::WaitMs() const { return m_paused.empty() ? Longest_wait_ms : Pause_look_ms; }

void Tq4_socket_obj::HandleEvent(uint64_t number) {
    if (number == Write_epoll) return HandleRoom();
    if (number == Wake_up) return m_wake_up.Read();
    Tq4_sock_item *item = Find(number);
    if (!item) return;
    static constexpr void (Tq4_socket_obj::*handlers[])(Tq4_sock_item *) = {
        nullptr, &Tq4_socket_obj::HandleConnection, &Tq4_socket_obj::Accept, &Tq4_socket_obj::ReadDatagrams};
    if (auto handler = handlers[item->info.type]) (this->*handler)(item);
}

// As many messages as there were when it began; those that are queued meanwhile have the next turn.
bool Tq4_socket_obj::HandleMessages() {
    unsigned long waiting = Tq4_record_of<Tq4_dispatch_obj>(m_loop.get()).Waiting();
    const bool any = waiting > 0;
    for (; waiting > 0; --waiting)
        if ((*m_loop)->try_once(m_loop.get(), 0) <= 0) break;
    return any;
}

void Tq4_socket_obj::HandleRoom() {
    MP_EPOLL_event events[Most_events];
    const int count = MP_EPOLL_Wait(m_epfd_write, events, Most_events, 0);
    for (int i = 0; i < count; ++i) {
        Tq4_sock_item *item = Find(events[i].data.u64);
        if (item && item->tcp && item->tcp->m_awaits_room) WriteOn(item);
    }
}

// What callbacks send meanwhile has the next turn.
void Tq4_socket_obj::WriteTurns() {
    m_turns_taken.clear();
    m_turns.swap(m_turns_taken);
    for (const uint64_t number : m_turns_taken) {
        Tq4_sock_item *item = Find(number);
        if (item && item->tcp && item->tcp->m_has_turn) WriteOn(item);
    }
}

// --- Start and stop ---

Tq4_socket_obj::Tq4_socket_obj()
    : m_loop(Tq4_make<Tq4_dispatch>(Tq4_dispatch_oitf)), m_timer(Tq4_make<Tq4_timer>(Tq4_timer_oitf)),
      m_epfd_read(MP_EPOLL_Create()), m_epfd_write(MP_EPOLL_Create()), m_life(Tq4_make<Tq4_lock>(Tq4_lock_oitf)),
      m_resource(make_pool()) {
    m_is_whole = m_wake_up.descriptor() >= 0 &&
                 MP_EPOLL_Watch(m_epfd_read, m_epfd_write, MP_EPOLL_Readable, Write_epoll) &&
                 MP_EPOLL_Watch(m_epfd_read, m_wake_up.descriptor(), MP_EPOLL_Readable, Wake_up);
}

Tq4_socket_obj::~Tq4_socket_obj() {
    Tq4_cxx_support->delete_obj(m_buffer);
    if (m_epfd_write >= 0) Tq4_sock_api->Close(m_epfd_write);
    if (m_epfd_read >= 0) Tq4_sock_api->Close(m_epfd_read);
}

Tq4_thread Tq4_socket_obj::Start() {
    if (OnServiceThread()) return m_running ? m_thread.get() : nullptr;
    const Stay stay(*this);
    Tq4_guard guard(m_life, Tq4_inside::callbacks);
    if (m_running) return m_thread.get();
    EndThread(); // one that a callback has stopped
    if (!m_is_whole) return nullptr;
    (*m_timer)->Start(m_timer.get(), "Tq4_socket(epoll)");
    m_thread = Tq4_make<Tq4_thread>(Tq4_thread_oitf, "Tq4_socket");
    if (!(*m_thread)->Init(m_thread.get(), Body, this)) {
        m_thread.reset();
        (*m_timer)->Stop(m_timer.get());
        return nullptr;
    }
    BecomeServiceThread((*m_thread)->GetId(m_thread.get()));
    m_opens = true;
    m_self_stopped = false;
    m_running = true;
    (*m_thread)->Resume(m_thread.get());
    return m_thread.get();
}

void Tq4_socket_obj::BecomeServiceThread(unsigned long id) {
    m_service_id = id;
    const auto notify = [](void *service) { static_cast<Tq4_socket_obj *>(service)->m_wake_up.Notify(); };
    (*m_loop)->Start2(m_loop.get(), this, id, notify, Handle);
}

void Tq4_socket_obj::Stop() {
    if (OnServiceThread()) {
        m_opens = false;
        if (m_running.exchange(false)) {
            m_self_stopped = true;
            (*m_thread)->NotifyQuit(m_thread.get());
        }
        return;
    }
    const Stay stay(*this);
    Tq4_guard guard(m_life, Tq4_inside::callbacks);
    m_running = false;
    EndThread();
}

static void Delete_Tq4_socket_obj(Tq4_socket_obj *record);

// Deleted by a callback, the service goes with the end of its thread, or of the Stop that it runs in.
bool Tq4_socket_obj::Retire() {
    Stop();
    return --m_users == 0;
}

void Tq4_socket_obj::Leave() {
    if (--m_users == 0) Tq4_object_ops<Tq4_socket_obj>::Destroy(this, Delete_Tq4_socket_obj);
}

// Ends the thread, and does what it has left undone. The caller holds m_life. A callback that even the kill does not
// end is waited for: what it returns to is ours.
void Tq4_socket_obj::EndThread() {
    if (!m_thread) return;
    (*m_thread)->NotifyQuit(m_thread.get());
    m_wake_up.Notify();
    (*m_thread)->WaitFor(m_thread.get(), Stop_wait_ms);
    while (m_in_body) MP_Sleep(1);
    BecomeServiceThread(MP_THREAD_GetCurrentId());
    {
        const Inside inside(*this);
        Finish();
    }
    m_thread.reset();
}

// On the service thread, after its last turn: ends every socket, and serves those who are on their way.
void Tq4_socket_obj::Finish() {
    m_opens = false;
    ReleaseAll();
    (*m_timer)->Stop(m_timer.get());
    for (bool anybody = true; anybody;) {
        anybody = m_callers > 0; // looked at first: whoever has left by then has queued before
        while ((*m_loop)->try_once(m_loop.get(), 0) > 0) continue;
        if (anybody) MP_Sleep(1);
    }
    m_turns.clear();
    m_paused.clear();
    m_service_id = 0;
}

// Connections first: their listeners are told.
void Tq4_socket_obj::ReleaseAll() {
    while (Tq4_sock_item *connection = AnyItem(true)) End(connection);
    while (Tq4_sock_item *item = AnyItem(false)) End(item);
}

Tq4_sock_item *Tq4_socket_obj::AnyItem(bool connections_only) {
    struct Search {
        bool connections_only;
        Tq4_sock_item *found;
    } search{connections_only, nullptr};
    const auto look = [](void *each, void *param) {
        auto *item = static_cast<Tq4_sock_item *>(each);
        auto *looking = static_cast<Search *>(param);
        if (item->tcp || !looking->connections_only) looking->found = item;
        return int{looking->found != nullptr};
    };
    (*m_resource)->each(m_resource.get(), look, &search);
    return search.found;
}

// --- The table ---

static int Tq4_socket_itf_Printf(Tq4_socket s, const Tq4_id *id, const char *format, ...) {
    if (!s) return 0;
    va_list args;
    va_start(args, format);
    const int result = Tq4_record_of<Tq4_socket_obj>(s).vPrintf(id, format, args);
    va_end(args);
    return result;
}

const Tq4_socket_ Tq4_socket_itf = {
    .Start = Tq4_op<&Tq4_socket_obj::Start>,
    .Stop = Tq4_op<&Tq4_socket_obj::Stop>,
    .Open = Tq4_op<&Tq4_socket_obj::Open>,
    .Listen = Tq4_op<&Tq4_socket_obj::Listen>,
    .Connect = Tq4_op<&Tq4_socket_obj::Connect>,
    .Close = Tq4_op<&Tq4_socket_obj::Close>,
    .Printf = Tq4_socket_itf_Printf,
    .vPrintf = Tq4_op<&Tq4_socket_obj::vPrintf>,
    .SendData = Tq4_op<&Tq4_socket_obj::SendData>,
    .SendString = Tq4_op<&Tq4_socket_obj::SendString>,
};
TQ4_MODULE(socket)
