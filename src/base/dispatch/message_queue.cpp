// message_queue: putting, taking and dropping.
#include "base/dispatch/message_queue.hpp"

#include "assert.hpp"

namespace {

constexpr unsigned messages_ahead = 8;         // twice the speed of none where cores are far from each other
constexpr std::size_t most_kept_in_stack = 64; // room that a burst at the front leaves behind

} // namespace

Tq4_message_chunk *Tq4_spare_chunks::Pop() {
    Tq4_message_chunk *chunk = m_first;
    if (!chunk) return nullptr;
    m_first = chunk->next;
    --m_count;
    return chunk;
}

void Tq4_spare_chunks::Push(Tq4_message_chunk *chunk) {
    if (m_count == most) {
        delete chunk;
        return;
    }
    chunk->next = m_first;
    m_first = chunk;
    ++m_count;
}

void Tq4_spare_chunks::TakeSome(Tq4_spare_chunks &others) {
    while (m_count < most && others.m_first) Push(others.Pop());
}

void Tq4_message_batch::Take(Tq4_waiting_msg &to) {
    to = m_chunk->messages[m_next];
    const uint64_t left_after = left() - 1;
    if (++m_next == Tq4_message_chunk::size || left_after == 0) {
        Tq4_message_chunk *done = m_chunk;
        m_chunk = left_after ? done->next : nullptr;
        m_next = 0;
        m_spare.Push(done);
    }
    m_left.store(left_after, std::memory_order_relaxed);
    Check();
}

void Tq4_message_batch::Drop() {
    for (Tq4_waiting_msg dropped; left();) {
        Take(dropped);
        dropped.FreeParams();
    }
}

void Tq4_message_batch::Check() const {
    TQ4_CHECK(!m_chunk == (left() == 0));
    TQ4_CHECK(m_next < Tq4_message_chunk::size);
    TQ4_CHECK(!m_chunk || m_chunk->next || m_next + left() <= Tq4_message_chunk::size);
    TQ4_CHECK(m_spare.m_count <= Tq4_spare_chunks::most && !m_spare.m_first == (m_spare.m_count == 0));
}

Tq4_message_queue::~Tq4_message_queue() { Drop(); }

void Tq4_message_queue::AddChunk() {
    Tq4_message_chunk *chunk = m_spare.Pop();
    if (!chunk) chunk = new Tq4_message_chunk;
    chunk->next = nullptr;
    (m_last ? m_last->next : m_first) = chunk;
    m_last = chunk;
    m_filled = 0;
}

// The room of a message that comes some messages later; null when it is not known yet.
const Tq4_waiting_msg *Tq4_message_queue::Ahead() const {
    const unsigned place = m_filled + messages_ahead;
    if (place < Tq4_message_chunk::size) return &m_last->messages[place];
    return m_spare.m_first ? &m_spare.m_first->messages[place - Tq4_message_chunk::size] : nullptr;
}

// A chunk that has served is still in the consumer's cache. Its lines take longer to come back than all else here, and
// the unlocking waits for them, so they are asked for beforehand.
void Tq4_message_queue::PutLast(const Tq4_waiting_msg &message) {
    if (!m_last || m_filled == Tq4_message_chunk::size) AddChunk();
    if (const Tq4_waiting_msg *ahead = Ahead()) MP_PrefetchToWrite(ahead);
    m_last->messages[m_filled++] = message;
    ++m_back;
    Check();
}

void Tq4_message_queue::PutFirst(const Tq4_waiting_msg &message) {
    m_stack.push_back(message);
    Check();
}

void Tq4_message_queue::TakeFirst(Tq4_waiting_msg &to) {
    to = m_stack.back();
    m_stack.pop_back();
    if (m_stack.empty() && m_stack.capacity() > most_kept_in_stack) m_stack.shrink_to_fit();
    Check();
}

void Tq4_message_queue::TakeAll(Tq4_message_batch &to) {
    TQ4_CHECK(!to.m_chunk);
    m_spare.TakeSome(to.m_spare);
    to.m_chunk = std::exchange(m_first, nullptr);
    m_last = nullptr;
    to.m_left.store(std::exchange(m_back, 0), std::memory_order_relaxed);
    to.Check();
    Check();
}

void Tq4_message_queue::MoveTo(Tq4_message_queue &other) {
    TQ4_CHECK(other.count() == 0);
    other.m_first = std::exchange(m_first, nullptr);
    other.m_last = std::exchange(m_last, nullptr);
    other.m_filled = m_filled;
    other.m_back = std::exchange(m_back, 0);
    other.m_stack.swap(m_stack);
    other.Check();
    Check();
}

void Tq4_message_queue::Drop() {
    for (Tq4_waiting_msg dropped; has_front();) {
        TakeFirst(dropped);
        dropped.FreeParams();
    }
    Tq4_message_batch batch; // drops what is in it
    TakeAll(batch);
}

void Tq4_message_queue::Check() const {
    TQ4_CHECK(!m_first == (m_back == 0) && !m_last == !m_first);
    TQ4_CHECK(!m_first || (!m_last->next && m_filled <= Tq4_message_chunk::size));
    TQ4_CHECK(!m_first || m_first != m_last || m_back == m_filled);
}
