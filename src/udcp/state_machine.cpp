// state_machine: the life of a connection: three packets open it, three close it, and each is repeated by a timer until
// it is answered. Only a master connects anew.
//
//     master   -> user_syn -> data_master -> reconnect? -> user_syn ...      lost, or never answered
//     slave    -> net_syn  -> data_slave  -> exit                            lost
//     any      -> user_rst -> exit_wait   -> exit                            this side closes
//     any      -> net_rst  -> reconnect?  -> user_syn or exit                the peer closes
//
// States and transitions are the two tables below; what they call comes first. An action may be called again for a
// packet that was repeated, so it does nothing that counts.
#include <algorithm>
#include <utility>

#include "udcp/engine.hpp"

namespace {

// The two sides of a packet of the handshake, and the line that tells of it.
void send_handshake(Tq4_udcp_item &item, Tq4_upp_command command, const char *format) {
    item.m_engine.Log(format, item.m_id.h, item.m_id.l, item.m_cbdata.addr, item.m_cbdata.port, item.m_auth.h,
                      item.m_auth.l);
    Tq4_upp_Send(item.m_engine, item, command);
}

void stop_looking(Tq4_udcp_item &item) {
    item.m_engine.StopTimer(item.m_a_timer);
    item.m_engine.Rest(item);
}

// --- Opening, on the side that asks ---

void Tq4_udcp_item_user_syn(Tq4_udcp_item &item) {
    Tq4_udcp_engine &obj = item.m_engine;
    if (obj.m_exit_flag) return;
    item.m_resyn_ms = -1;
    if (item.m_repeat == 0) { // another connection: what late packets of the one before say is not for it
        item.m_auth = {obj.Secret(), obj.Secret()};
        item.m_rid = {};
        item.m_timestamp = obj.m_clock;
    }
    obj.Log("[%08x:%08x] Send %d Sync to %s:%d, auth=(%x:%x)\n", item.m_id.h, item.m_id.l, item.m_repeat,
            item.m_cbdata.addr, item.m_cbdata.port, item.m_auth.h, item.m_auth.l);
    Tq4_upp_Send(obj, item, Tq4_upp_command::Sync);
}

void Tq4_udcp_item_syn_ack2(Tq4_udcp_item &item) {
    send_handshake(item, Tq4_upp_command::SynAck2, "[%08x:%08x] Send SynAck2 to %s:%d, auth=(%x:%x)\n");
}

void Tq4_udcp_item_enter_user_syn(Tq4_udcp_item &item) {
    const Tq4_udcp_timer_value &timer = *item.m_scheme->timer;
    item.m_engine.StartTimer(item, Tq4_udcp_msg_TIMER_syn, 16, timer._syn_ms, timer.syn_ms);
}

void Tq4_udcp_item_clear_timer_t(Tq4_udcp_item &item) { item.m_engine.StopTimer(item.m_t_timer); }

void Tq4_udcp_item_syn_err(Tq4_udcp_item &item) {
    item.m_t_timer = {};
    item.m_reconnect_ms = -1;
    item.m_repeat = 0;
    Tq4_udcp_engine &obj = item.m_engine;
    if (const auto failed = obj.m_world.deliver.OnConnectFailed) item.m_reconnect_ms = obj.Tell(failed, &item.m_cbdata);
}

// --- Opening, on the side that is asked. Until it is confirmed the other is a stranger. ---

void Tq4_udcp_item_syn_ack(Tq4_udcp_item &item) {
    if (item.m_engine.MayLogStranger())
        return send_handshake(item, Tq4_upp_command::SynAck, "[%08x:%08x] Send SynAck to %s:%d, auth=(%x:%x)\n");
    Tq4_upp_Send(item.m_engine, item, Tq4_upp_command::SynAck);
}

void Tq4_udcp_item_syn_ack_again(Tq4_udcp_item &item) {
    if (item.m_engine.m_half_open.m_count <= Tq4_udcp_crowd) Tq4_udcp_item_syn_ack(item);
}

void Tq4_udcp_item_enter_net_syn(Tq4_udcp_item &item) {
    item.m_half_open_due = item.m_engine.m_clock + item.m_scheme->timer->_syn_ms;
    item.m_engine.m_half_open.Append(&item.m_half_open);
    item.m_engine.StartTicks();
}

void Tq4_udcp_item_leave_net_syn(Tq4_udcp_item &item) { item.m_engine.m_half_open.Unlink(&item.m_half_open); }

// --- Standing ---

Tq4_own<Tq4_reorder> make_window(int size, void (*free_packet)(void *), uint32_t first) {
    auto window = Tq4_make<Tq4_reorder>(Tq4_reorder_oitf);
    (*window)->Init(window.get(), size, free_packet, 0);
    (*window)->SetFirstSeq(window.get(), first);
    return window;
}

void Tq4_udcp_item_syn_ok(Tq4_udcp_item &item) {
    Tq4_udcp_engine &obj = item.m_engine;
    obj.LeaveAddress(item);
    obj.Log("[%08x:%08x] %s:%d syn ok ,remoteid = [%08x:%08x]，time dalay=%u(ms),first(sendseq=%x:recvseq=%x),"
            "remote timestamp=%lu\n",
            item.m_id.h, item.m_id.l, item.m_cbdata.addr, item.m_cbdata.port, item.m_rid.h, item.m_rid.l,
            static_cast<unsigned>(obj.m_clock - item.m_timestamp_r.local), item.m_first_seq, item.m_expect_seq,
            item.m_timestamp_r.peer);
    item.m_recv_active = item.m_send_active = Tq4_udcp_lives;
    item.m_send = make_window(item.m_scheme->wnd->sendq_size, Delete_Tq4_ups_data, item.m_first_seq);
    item.m_recv = make_window(item.m_scheme->wnd->recvq_size, Delete_Tq4_up_data, item.m_expect_seq);
    if (const auto ok = obj.m_world.deliver.OnConnectOk) obj.Tell(ok, &item.m_cbdata);
    obj.StartTimer(item, Tq4_udcp_msg_TIMER_act, 0, item.m_scheme->timer->_act_ms);
    Tq4_upi_SendDataInqueue(obj, item);
}

void Tq4_udcp_item_syn_ok_slave(Tq4_udcp_item &item) {
    [[maybe_unused]] Tq4_udcp_item *pItem = &item;
    TQ4_ASSERT(pItem->m_cbdata.master == 0);
    Tq4_udcp_item_syn_ok(item);
}

// What was to be sent is lost with the connection. What the application sends once it knows is for the next one.
int lost(Tq4_udcp_item &item) {
    Tq4_udcp_engine &obj = item.m_engine;
    obj.Rest(item);
    item.ClearQueue();
    item.m_recv.reset();
    obj.m_strings.Free(item.m_fragment);
    item.m_fragment = nullptr;
    item.ShowDialed();
    const auto disconnected = obj.m_world.deliver.OnDisConnect;
    return disconnected ? obj.Tell(disconnected, &item.m_cbdata) : -1;
}

void Tq4_udcp_item_syn_lost_master(Tq4_udcp_item &item) { item.m_reconnect_ms = lost(item); }
void Tq4_udcp_item_syn_lost_slave(Tq4_udcp_item &item) { lost(item); }

// --- Closing ---

void Tq4_udcp_item_user_rst(Tq4_udcp_item &item) {
    send_handshake(item, Tq4_upp_command::Rst, "[%08x:%08x] Send  Rst to %s:%d, auth=(%x:%x)\n");
}

void Tq4_udcp_item_rst_ack(Tq4_udcp_item &item) {
    send_handshake(item, Tq4_upp_command::RstAck, "[%08x:%08x] Send RstAck to %s:%d, auth=(%x:%x)\n");
}

void Tq4_udcp_item_rst_ack2(Tq4_udcp_item &item) {
    send_handshake(item, Tq4_upp_command::RstAck2, "[%08x:%08x] Send  RstAck2 to %s:%d, auth=(%x:%x)\n");
}

void start_rst_timer(Tq4_udcp_item &item) {
    item.m_engine.StartTimer(item, Tq4_udcp_msg_TIMER_rst, 3, item.m_scheme->timer->_rst_ms);
}

void Tq4_udcp_item_enter_rst(Tq4_udcp_item &item) {
    stop_looking(item);
    start_rst_timer(item);
}

void Tq4_udcp_item_exit_wait(Tq4_udcp_item &item) {
    item.m_engine.StartTimer(item, Tq4_udcp_msg_TIMER_exit, 1, item.m_scheme->timer->_exit_ms);
}

// A Rst of the connection before, that comes while the next attempt is waited for, does not end that.
void Tq4_udcp_item_rst_wait(Tq4_udcp_item &item) {
    if (item.m_resyn_ms >= 0) item.m_reconnect_ms = std::exchange(item.m_resyn_ms, -1);
    start_rst_timer(item);
}

// --- Connecting anew, and the end ---

void Tq4_udcp_item_check_resyn(Tq4_udcp_item &item) {
    Tq4_udcp_engine &obj = item.m_engine;
    stop_looking(item);
    if (item.m_reconnect_ms < 0 || obj.m_exit_flag || item.asked_to_close())
        return obj.Drive(item, Tq4_udcp_msg_TIMER_rst, 0);
    item.m_resyn_ms = std::max(std::exchange(item.m_reconnect_ms, -1), Tq4_udcp_least_reconnect_ms);
    item.ClearConnection();
    Tq4_sockaddr_oitf->Copy(item.m_peer.get(), item.m_dialed.get());
    item.ShowDialed();
    item.m_first_seq = obj.Random();
    obj.StartTimer(item, Tq4_udcp_msg_TIMER_resyn, 1, static_cast<unsigned long>(item.m_resyn_ms));
}

void Tq4_udcp_item_exit(Tq4_udcp_item &item) {
    Tq4_udcp_engine &obj = item.m_engine;
    const bool known = item.m_cbdata.master || item.m_send;
    if (known || obj.MayLogStranger()) obj.Log("[ %x:%x] Tq4_udcp_item clean\n", item.m_id.h, item.m_id.l);
    obj.LeaveAddress(item);
    obj.StopTimer(item.m_t_timer);
    stop_looking(item);
    item.m_exited = true;
}

// --- The tables ---

// An action as the engine of machines calls it.
template <void (*Act)(Tq4_udcp_item &)>
void handler(Tq4_fsm_item, const Tq4_fsm_msg *message, Tq4_fsm_state, Tq4_fsm_state, Tq4_fsm_state) {
    Act(*static_cast<Tq4_udcp_item *>(message->params));
}

struct State {
    const char *name;
    Tq4_fsm_handler enter, exit, clean;
};

constexpr State states[] = {
    {"user_syn", handler<Tq4_udcp_item_enter_user_syn>, handler<Tq4_udcp_item_clear_timer_t>, nullptr},
    {"data_master", handler<Tq4_udcp_item_syn_ok>, handler<Tq4_udcp_item_syn_lost_master>, nullptr},
    {"data_slave", handler<Tq4_udcp_item_syn_ok_slave>, handler<Tq4_udcp_item_syn_lost_slave>, nullptr},
    {"net_syn", handler<Tq4_udcp_item_enter_net_syn>, handler<Tq4_udcp_item_leave_net_syn>, nullptr},
    {"user_rst", handler<Tq4_udcp_item_enter_rst>, handler<Tq4_udcp_item_clear_timer_t>, nullptr},
    {"exit_wait", handler<Tq4_udcp_item_exit_wait>, handler<Tq4_udcp_item_clear_timer_t>, nullptr},
    {"net_rst", handler<Tq4_udcp_item_rst_wait>, handler<Tq4_udcp_item_clear_timer_t>, nullptr},
    {"reconnect?", handler<Tq4_udcp_item_check_resyn>, nullptr, nullptr},
    {"exit", nullptr, nullptr, handler<Tq4_udcp_item_exit>},
};

constexpr const char *Initial = nullptr;
constexpr const char *Any_state = "";
constexpr const char *Stay = "";
constexpr long Any_value = -1;

struct Transition {
    const char *state;
    unsigned message;
    long value;
    Tq4_fsm_handler action;
    const char *next;
};

constexpr Transition transitions[] = {
    {Initial, Tq4_udcp_msg_USER, Tq4_udcp_user_connect, handler<Tq4_udcp_item_user_syn>, "user_syn"},
    {Initial, Tq4_udcp_msg_USER, Tq4_udcp_user_disconnect, nullptr, Stay},
    {Initial, Tq4_udcp_msg_FRAME, Tq4_udcp_submsg_Syn, handler<Tq4_udcp_item_syn_ack>, "net_syn"},
    {"user_syn", Tq4_udcp_msg_FRAME, Tq4_udcp_submsg_SynAck, handler<Tq4_udcp_item_syn_ack2>, "data_master"},
    {"user_syn", Tq4_udcp_msg_TIMER_syn, 16, handler<Tq4_udcp_item_syn_err>, "reconnect?"},
    {"user_syn", Tq4_udcp_msg_TIMER_syn, Any_value, handler<Tq4_udcp_item_user_syn>, Stay},
    {"data_master", Tq4_udcp_msg_FRAME, Tq4_udcp_submsg_SynAck, handler<Tq4_udcp_item_syn_ack2>, Stay},
    {"data_master", Tq4_udcp_msg_TIMER_err, 1, nullptr, "reconnect?"},
    {"data_slave", Tq4_udcp_msg_TIMER_err, 1, nullptr, "exit"},
    {"net_syn", Tq4_udcp_msg_FRAME, Tq4_udcp_submsg_Syn, handler<Tq4_udcp_item_syn_ack>, Stay},
    {"net_syn", Tq4_udcp_msg_FRAME, Tq4_udcp_submsg_SynAck2, nullptr, "data_slave"},
    {"net_syn", Tq4_udcp_msg_TIMER_syn, 15, nullptr, "exit"},
    {"net_syn", Tq4_udcp_msg_TIMER_syn, Any_value, handler<Tq4_udcp_item_syn_ack_again>, Stay},
    {Any_state, Tq4_udcp_msg_USER, Tq4_udcp_user_disconnect, handler<Tq4_udcp_item_user_rst>, "user_rst"},
    {"user_rst", Tq4_udcp_msg_FRAME, Tq4_udcp_submsg_RstAck, handler<Tq4_udcp_item_rst_ack2>, "exit_wait"},
    {"user_rst", Tq4_udcp_msg_TIMER_rst, 3, nullptr, "exit"},
    {"user_rst", Tq4_udcp_msg_TIMER_rst, Any_value, handler<Tq4_udcp_item_user_rst>, Stay},
    {"exit_wait", Tq4_udcp_msg_FRAME, Tq4_udcp_submsg_RstAck, handler<Tq4_udcp_item_rst_ack2>, Stay},
    {"exit_wait", Tq4_udcp_msg_FRAME, Tq4_udcp_submsg_RstAck2, nullptr, "exit"},
    {"exit_wait", Tq4_udcp_msg_TIMER_exit, 1, nullptr, "exit"},
    {Any_state, Tq4_udcp_msg_FRAME, Tq4_udcp_submsg_Rst, handler<Tq4_udcp_item_rst_ack>, "net_rst"},
    {Any_state, Tq4_udcp_msg_FRAME, Tq4_udcp_submsg_ReSyn, nullptr, "reconnect?"},
    {"net_rst", Tq4_udcp_msg_FRAME, Tq4_udcp_submsg_RstAck2, handler<Tq4_udcp_item_rst_ack2>, "reconnect?"},
    {"net_rst", Tq4_udcp_msg_TIMER_rst, 3, nullptr, "reconnect?"},
    {"net_rst", Tq4_udcp_msg_TIMER_rst, Any_value, handler<Tq4_udcp_item_rst_ack>, Stay},
    {"reconnect?", Tq4_udcp_msg_TIMER_resyn, 1, handler<Tq4_udcp_item_user_syn>, "user_syn"},
    {"reconnect?", Tq4_udcp_msg_TIMER_rst, 0, nullptr, "exit"},
};

} // namespace

int Tq4_udcp_InitFSM(Tq4_fsm machine) {
    for (const State &state : states) {
        const Tq4_fsm_state made = (*machine)->AddState(machine, state.name);
        (*made)->SetStateEnterHandler(made, state.enter);
        (*made)->SetStateExitHandler(made, state.exit);
        (*made)->SetStateCleanHandler(made, state.clean);
    }
    for (const Transition &rule : transitions) {
        const Tq4_fsm_state state = (*machine)->GetState(machine, rule.state); // null for any state
        if (!state)
            (*machine)->SetIntMsgHandle(machine, rule.message, rule.value, rule.action, rule.next);
        else if (rule.value == Any_value)
            (*state)->SetIntMsgHandleDefault(state, rule.message, rule.action, rule.next);
        else
            (*state)->SetIntMsgHandle(state, rule.message, rule.value, rule.action, rule.next);
    }
    return (*machine)->Inspect(machine);
}

// Whatever the peer sends is a sign of life; what this side sends by itself is one at each second look.
void On_Tq4_udcp_msg_TIMER_act(Tq4_udcp_engine &obj, Tq4_udcp_item &item) {
    if (!item.stands()) return obj.Log("[%08x:%08x] 激活定时检测触发,状态不符\n", item.m_id.h, item.m_id.l);
    --item.m_recv_active;
    --item.m_send_active;
    if (item.m_recv_active < 0) return obj.Drive(item, Tq4_udcp_msg_TIMER_err, 1);
    if (item.m_send_active > 2) return;
    item.m_send_active = Tq4_udcp_lives;
    Tq4_upp_Send(obj, item, Tq4_upp_command::Active);
}
