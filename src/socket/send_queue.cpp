// send_queue: a chain of units, each with the text that it owns and how much of that is written.
#include "socket/send_queue.hpp"

#include <utility>

#include "assert.hpp"
#include "base/string/string.hpp"

namespace {
Tq4_bytes bytes_of(const Tq4_hooked<Tq4_string> &text) { return Tq4_record_of<Tq4_string_obj>(text.get()).view(); }
} // namespace

bool Tq4_send_queue::BecomesFull() { return m_count > Full && !std::exchange(m_full_notify, true); }

bool Tq4_send_queue::HasDrained() { return m_count < Drained && std::exchange(m_full_notify, false); }

void Tq4_send_queue::Append(Tq4_hooked<Tq4_string> text) {
    auto *unit = new (Tq4_object_memory(sizeof(Tq4_tcp_data))) Tq4_tcp_data{std::move(text), 0, nullptr};
    (m_tail ? m_tail->next : m_head) = unit;
    m_tail = unit;
    ++m_count;
    Check();
}

std::size_t Tq4_send_queue::Blocks(MP_SOCK_Block (&blocks)[Most_blocks]) const {
    std::size_t count = 0, bytes = 0;
    for (auto *unit = m_head; unit && count < Most_blocks && bytes < Most_bytes; unit = unit->next) {
        const Tq4_bytes text = bytes_of(unit->data);
        blocks[count] = {const_cast<uint8_t *>(text.data) + unit->offset, text.size - unit->offset};
        bytes += blocks[count++].iov_len;
    }
    return count;
}

void Tq4_send_queue::Written(std::size_t bytes) {
    while (m_head) {
        const std::size_t left = bytes_of(m_head->data).size - m_head->offset;
        if (bytes < left) {
            m_head->offset += bytes;
            return;
        }
        bytes -= left;
        DropHead();
    }
}

void Tq4_send_queue::DropHead() {
    Tq4_tcp_data *unit = m_head;
    m_head = unit->next;
    if (!m_head) m_tail = nullptr;
    --m_count;
    unit->~Tq4_tcp_data();
    Tq4_object_memory_free(unit, sizeof *unit);
    Check();
}

void Tq4_send_queue::Check() const {
    TQ4_CHECK((m_count == 0) == (m_head == nullptr) && (m_count == 0) == (m_tail == nullptr));
    TQ4_CHECK(!m_tail || !m_tail->next);
    TQ4_CHECK(m_count != 1 || m_head == m_tail);
    TQ4_CHECK(!m_head || m_head->offset <= bytes_of(m_head->data).size);
    TQ4_CHECK(m_count <= Most + 2); // one more for a send whose notice of fullness filled the queue
}

void Tq4_send_queue::Clear() {
    while (m_head) DropHead();
    m_full_notify = false;
}
