// item: the beginning and the end of connections, and of what they hold.
#include "udcp/item.hpp"

#include <algorithm>
#include <cstring>

#include "udcp/engine.hpp"

unsigned long Tq4_udcp_SendItem::pieces() const {
    return std::max(1ul, (len - offset + Tq4_upp_most_payload - 1) / Tq4_upp_most_payload);
}

Tq4_bytes Tq4_ups_data::bytes() const { return Tq4_udcp_bytes(data); }

void Delete_Tq4_ups_data(void *data) {
    auto *packet = static_cast<Tq4_ups_data *>(data);
    packet->strings.Free(packet->data);
    delete packet;
}

Tq4_up_data *Create_Tq4_up_data(const Tq4_udcp_strings &strings, Tq4_string string, bool safe) {
    auto *packet = new Tq4_up_data{strings, {}, Tq4_up_type::Whole, 0, 0, 0};
    std::memset(&packet->info, 0, sizeof packet->info); // applications may compare records as bytes
    packet->info.data = string;
    packet->info.safe_flag = safe;
    return packet;
}

void Delete_Tq4_up_data(void *data) {
    auto *packet = static_cast<Tq4_up_data *>(data);
    packet->strings.Free(packet->info.data);
    delete packet;
}

Tq4_udcp_item::Tq4_udcp_item(Tq4_udcp_engine &engine) : m_engine(engine) {
    m_fragment = nullptr;
    Clear();
}

void Tq4_udcp_item::Clear() {
    TQ4_CHECK(m_events == 0 && !m_working.linked() && !m_half_open.linked());
    ClearQueue();
    ClearConnection();
    Tq4_fsm_item_oitf->Reset(m_fsm.get());
    m_exited = false;
    std::memset(&m_cbdata, 0, sizeof m_cbdata); // the application may compare records as bytes
    m_id = m_t_timer = m_a_timer = {};
    m_auth = {};
    m_dialed.reset();
    m_addr.clear();
    m_port = 0;
    m_key = {};
    m_scheme = &Tq4_udcp_scheme_of(0);
    m_first_seq = 0;
    m_t_firings = 0;
    m_half_open_due = 0;
    m_reconnect_ms = m_resyn_ms = -1;
    m_timestamp = 0;
}

void Tq4_udcp_item::ClearQueue() {
    for (Tq4_udcp_SendItem &message : m_sendq) m_engine.m_strings.Free(message.data);
    m_sendq = {};
    m_waiting = 0;
    m_full_notify = m_renewing = false;
}

void Tq4_udcp_item::ClearConnection() {
    m_send.reset();
    m_next_due = UINT64_MAX;
    m_recv.reset();
    m_engine.m_strings.Free(m_fragment);
    m_fragment = nullptr;
    m_rid = {};
    m_asked = m_expect_seq = 0;
    m_confirmed = true;
    m_unack_count = m_unnok_count = m_repeat = 0;
    m_send_active = m_recv_active = 0;
    m_timestamp_r = {};
}

void Tq4_udcp_item::Follow(Tq4_sockaddr sender) {
    if (Tq4_sockaddr_oitf->Equal(m_peer.get(), sender) && m_cbdata.addr == (*m_peer)->ip(m_peer.get())) return;
    Tq4_sockaddr_oitf->Copy(m_peer.get(), sender);
    ShowPeer();
}

void Tq4_udcp_item::ShowPeer() {
    m_cbdata.addr = (*m_peer)->ip(m_peer.get());
    m_cbdata.port = (*m_peer)->port(m_peer.get());
}

void Tq4_udcp_item::ShowDialed() {
    if (!m_dialed) return;
    m_cbdata.addr = m_addr.c_str();
    m_cbdata.port = m_port;
}

void Tq4_udcp_item::Check() const {
    TQ4_CHECK(m_waiting >= m_sendq.size() && (m_waiting == 0) == m_sendq.empty());
    TQ4_CHECK(stands() || !m_fragment);
    TQ4_CHECK(!m_full_notify || m_waiting > 0);
    TQ4_CHECK(m_recv_active <= Tq4_udcp_lives && m_send_active <= Tq4_udcp_lives);
}
