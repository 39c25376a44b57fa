// engine: how connections come and go, and what drives them: datagrams, timers, and the application.
#include "udcp/engine.hpp"

#include <vector>

#include "base/fsm/item.hpp"
#include "tq4/cxx_support.h"

namespace {

Tq4_own<Tq4_pool> make_pool(const Tq4_udcp_world &world) {
    Tq4_pool_CreateParams params{};
    params.max_res = Tq4_udcp_most_connections;
    params.Create = [](void *owner) -> void * { return new Tq4_udcp_item(*static_cast<Tq4_udcp_engine *>(owner)); };
    params.Delete = [](void *item) { delete static_cast<Tq4_udcp_item *>(item); };
    params.Reset = [](void *item, unsigned long) { static_cast<Tq4_udcp_item *>(item)->Clear(); };
    params.mask = world.secret(world.context);
    return Tq4_make<Tq4_pool>(Tq4_pool_oitf, &params);
}

bool none(const Tq4_id &id) { return id.h == 0 && id.l == 0; }

} // namespace

Tq4_udcp_strings Tq4_udcp_or_default(Tq4_udcp_strings strings) {
    if (!strings.make) strings.make = Tq4_cxx_support->new_string;
    if (!strings.free) strings.free = Tq4_cxx_support->delete_obj;
    return strings;
}

Tq4_udcp_engine::Tq4_udcp_engine(const Tq4_udcp_world &world, const Tq4_udcp_settings &settings)
    : m_world(world), m_scheme(Tq4_udcp_scheme_of(settings.scheme)), m_order(settings.order),
      m_strings(Tq4_udcp_or_default(settings.strings)), m_items(make_pool(world)),
      m_fsm(Tq4_make<Tq4_fsm>(Tq4_fsm_oitf)), m_scratch(m_strings.Make()) {
    if (settings.listens) m_addresses = Tq4_make<Tq4_strmap>(Tq4_strmap_oitf);
    [[maybe_unused]] const int faults = Tq4_udcp_InitFSM(m_fsm.get());
    TQ4_CHECK(faults == 0);
    m_clock = m_read = m_world.now(m_world.context);
}

Tq4_udcp_engine::~Tq4_udcp_engine() {
    EndExit();
    m_strings.Free(m_scratch);
}

void Tq4_udcp_engine::ReadClock() {
    const uint64_t now = m_world.now(m_world.context);
    if (now > m_read) m_clock += now - m_read;
    m_read = now;
}

void Tq4_udcp_engine::Log(const char *format, ...) {
    va_list args;
    va_start(args, format);
    m_world.log(m_world.context, format, args);
    va_end(args);
}

void Tq4_udcp_engine::LogStranger(const char *format, ...) {
    if (!MayLogStranger()) return;
    va_list args;
    va_start(args, format);
    m_world.log(m_world.context, format, args);
    va_end(args);
}

bool Tq4_udcp_engine::MayLogStranger() {
    if (!m_stranger_log.Admits(m_clock)) return false;
    if (const unsigned long left_out = m_stranger_log.LeftOut())
        Log("udcp 省略了 %lu 条关于陌生数据包的日志\n", left_out);
    return true;
}

// --- What comes in ---

int Tq4_udcp_engine::Receive(Tq4_string *datagram, Tq4_sockaddr sender) {
    ReadClock();
    const int accepted = Tq4_udcp_doFrame(*this, datagram, sender);
    if (!accepted) ++m_dropped;
    return accepted;
}

// A timer that was stopped, or set anew, may still have a firing on its way.
void Tq4_udcp_engine::OnTimer(const Tq4_id &timer, const Tq4_id &connection, unsigned message, unsigned long n) {
    if (message == Tq4_udcp_msg_TIMER_resend) {
        if (Tq4_id_Equal(&timer, &m_tick)) Tick();
        return;
    }
    Tq4_udcp_item *item = Find(connection);
    if (!item || m_exit_flag == 2) return;
    ReadClock();
    if (message == Tq4_udcp_msg_TIMER_act) {
        if (Tq4_id_Equal(&timer, &item->m_a_timer)) On_Tq4_udcp_msg_TIMER_act(*this, *item);
        return;
    }
    if (!Tq4_id_Equal(&timer, &item->m_t_timer)) return;
    if (n >= item->m_t_firings) item->m_t_timer = {};
    if (message == Tq4_udcp_msg_TIMER_syn) item->m_repeat = static_cast<uint16_t>(n);
    Drive(*item, message, static_cast<long>(n));
}

void Tq4_udcp_engine::Tick() {
    ReadClock();
    m_idle_ticks = m_working.m_count || m_half_open.m_count ? 0 : m_idle_ticks + 1;
    if (m_idle_ticks >= Tq4_udcp_idle_ticks) return StopTimer(m_tick);
    LookAtHalfOpen();
    for (Tq4_list_node *node = m_working.first(), *next; node != m_working.end(); node = next) {
        next = node->next;
        Tq4_udcp_item &item = Tq4_udcp_item::Link::item_of(node);
        Tq4_udcp_resenddata(*this, item);
        Tq4_upi_Acknowledge(*this, item);
        if (item.m_confirmed && item.m_unnok_count == 0 && (*item.m_send)->IsEmpty(item.m_send.get())) Rest(item);
    }
}

// Strangers begin these as fast as they can send. A timer of the service for each would cost two turns of its thread.
void Tq4_udcp_engine::LookAtHalfOpen() {
    for (Tq4_list_node *node = m_half_open.first(), *next; node != m_half_open.end(); node = next) {
        next = node->next;
        Tq4_udcp_item &item = Tq4_udcp_item::Link::item_of(node);
        if (item.m_half_open_due > m_clock) continue;
        const Tq4_udcp_timer_value &timer = *item.m_scheme->timer;
        ++item.m_repeat;
        item.m_half_open_due += timer.syn_ms(&item.m_id, item.m_repeat, timer._syn_ms, nullptr);
        Drive(item, Tq4_udcp_msg_TIMER_syn, item.m_repeat);
    }
}

void Tq4_udcp_engine::Work(Tq4_udcp_item &item) {
    if (item.m_working.linked()) return;
    m_working.Append(&item.m_working);
    StartTicks();
}

void Tq4_udcp_engine::StartTicks() {
    m_idle_ticks = 0;
    if (!none(m_tick)) return;
    m_world.start_timer(m_world.context, {{}, Tq4_udcp_msg_TIMER_resend, 0, Tq4_udcp_tick_ms, nullptr}, &m_tick);
}

void Tq4_udcp_engine::Rest(Tq4_udcp_item &item) {
    if (item.m_working.linked()) m_working.Unlink(&item.m_working);
}

// --- Connections ---

Tq4_udcp_item *Tq4_udcp_engine::Begin(bool master) {
    Tq4_id id;
    auto *item = static_cast<Tq4_udcp_item *>((*m_items)->Alloc(m_items.get(), this, &id));
    if (!item) return nullptr;
    item->m_id = id;
    item->m_cbdata.pair = m_world.pair;
    item->m_cbdata.id = &item->m_id;
    item->m_cbdata.master = master;
    item->m_auth = {Secret(), Secret()};
    item->m_timestamp = m_clock;
    item->m_scheme = &m_scheme;
    item->m_first_seq = Random();
    return item;
}

void Tq4_udcp_engine::Drive(Tq4_udcp_item &item, unsigned long message, long submessage) {
    ++item.m_events;
    (*m_fsm)->HandleIntMsg(m_fsm.get(), item.m_fsm.get(), message, submessage, &item);
    item.Check();
    if (--item.m_events > 0 || !item.m_exited) return;
    const Tq4_id id = item.m_id;
    (*m_items)->Recycle(m_items.get(), &id);
    if (m_exit_flag == 1 && connections() == 0) m_exit_flag = 2;
}

bool Tq4_udcp_engine::In(const Tq4_udcp_item &item, const char *state) const {
    const Tq4_fsm_state there = (*m_fsm)->GetState(m_fsm.get(), state);
    auto &record = Tq4_record_of<Tq4_fsm_item_obj>(item.m_fsm.get());
    return record.m_CurrentState && record.m_CurrentState->handle() == there;
}

void Tq4_udcp_engine::EnterAddress(Tq4_udcp_item &item) {
    item.m_key = Tq4_udcp_address_key(item.m_cbdata.addr, item.m_cbdata.port);
    (*m_addresses)->SetAtS(m_addresses.get(), &item, item.m_key.c_str());
}

// Another connection from the same address may have taken the place.
void Tq4_udcp_engine::LeaveAddress(Tq4_udcp_item &item) {
    if (item.m_key.empty()) return;
    if ((*m_addresses)->LookupS(m_addresses.get(), item.m_key.c_str()) == &item)
        (*m_addresses)->RemoveS(m_addresses.get(), item.m_key.c_str());
    item.m_key = {};
}

void Tq4_udcp_engine::StartTimer(Tq4_udcp_item &item, unsigned message, unsigned long count, unsigned long ms,
                                 Tq4_timer_delta delta) {
    const bool looks = message == Tq4_udcp_msg_TIMER_act;
    Tq4_id &timer = looks ? item.m_a_timer : item.m_t_timer;
    StopTimer(timer);
    if (!looks) item.m_t_firings = count;
    m_world.start_timer(m_world.context, {item.m_id, message, count, ms, delta}, &timer);
}

void Tq4_udcp_engine::StopTimer(Tq4_id &timer) {
    if (!none(timer)) m_world.stop_timer(m_world.context, &timer);
    timer = {};
}

// --- What the application asks for ---

int Tq4_udcp_engine::Connect(const char *addr, int port, Tq4_sockaddr resolved, const Tq4_id *user_id, void *user_data,
                             Tq4_id *out) {
    ReadClock();
    Tq4_udcp_item *item = m_exit_flag ? nullptr : Begin(true);
    if (!item) {
        Log("创建到[%s:%u]连接失败,资源不足\n", addr, port);
        return 0;
    }
    item->m_addr = addr;
    item->m_port = port;
    Tq4_sockaddr_oitf->Copy(item->m_peer.get(), resolved);
    item->m_dialed.reset(static_cast<Tq4_sockaddr>(Tq4_sockaddr_oitf->Dup(resolved)));
    item->m_cbdata.addr = item->m_addr.c_str();
    item->m_cbdata.port = port;
    if (user_id) item->m_cbdata.user_id = *user_id;
    item->m_cbdata.user_data = user_data;
    if (out) *out = item->m_id;
    Log("[%08x:%08x] 启动同步请求，时间戳=%lu\n", item->m_id.h, item->m_id.l, item->m_timestamp);
    Drive(*item, Tq4_udcp_msg_USER, Tq4_udcp_user_connect);
    return 1;
}

void Tq4_udcp_engine::DisConnect(const Tq4_id &id) {
    Tq4_udcp_item *item = Find(id);
    if (!item) return;
    ReadClock();
    item->m_cbdata.master = static_cast<char>(item->m_cbdata.master | 0x80);
    Drive(*item, Tq4_udcp_msg_USER, Tq4_udcp_user_disconnect);
}

int Tq4_udcp_engine::Post(const Tq4_id &id, Tq4_string string) {
    ReadClock();
    Tq4_udcp_item *item = Find(id);
    const int sent = item ? Tq4_udcp_item_PostData(*this, *item, string) : 0;
    m_strings.Free(string);
    return sent;
}

int Tq4_udcp_engine::Send(const Tq4_id &id, Tq4_string string, bool forced) {
    ReadClock();
    Tq4_udcp_item *item = Find(id);
    if (item) return Tq4_udcp_item_SendData(*this, *item, string, forced);
    m_strings.Free(string);
    return 0;
}

void Tq4_udcp_engine::ChangeDestAddr(const Tq4_id &id, const char *addr, int port, Tq4_sockaddr resolved) {
    Tq4_udcp_item *item = Find(id);
    if (!item) return;
    item->m_addr = addr;
    item->m_port = port;
    if (item->m_dialed) Tq4_sockaddr_oitf->Copy(item->m_dialed.get(), resolved);
    Tq4_sockaddr_oitf->Copy(item->m_peer.get(), resolved);
    item->ShowPeer();
}

// --- The end ---

void Tq4_udcp_engine::BeginExit() {
    if (m_exit_flag) return;
    ReadClock();
    m_exit_flag = connections() ? 1 : 2;
    std::vector<Tq4_id> all;
    (*m_items)->each(
        m_items.get(),
        [](void *item, void *ids) {
            static_cast<std::vector<Tq4_id> *>(ids)->push_back(static_cast<Tq4_udcp_item *>(item)->m_id);
            return 0;
        },
        &all);
    for (const Tq4_id &id : all)
        if (Tq4_udcp_item *item = Find(id)) Drive(*item, Tq4_udcp_msg_USER, Tq4_udcp_user_disconnect);
}

void Tq4_udcp_engine::EndExit() {
    m_exit_flag = 2;
    (*m_items)->each(
        m_items.get(),
        [](void *payload, void *engine) {
            auto &item = *static_cast<Tq4_udcp_item *>(payload);
            auto &obj = *static_cast<Tq4_udcp_engine *>(engine);
            item.m_events = 0; // a killed callback has left its own behind
            obj.Rest(item);
            if (item.m_half_open.linked()) obj.m_half_open.Unlink(&item.m_half_open);
            obj.LeaveAddress(item);
            obj.StopTimer(item.m_t_timer);
            obj.StopTimer(item.m_a_timer);
            return 0;
        },
        this);
    (*m_items)->RecycleAll(m_items.get());
    StopTimer(m_tick);
}
