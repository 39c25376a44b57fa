// message_queue: putting, taking and dropping.
#include "base/dispatch/message_queue.hpp"

#include "assert.hpp"

namespace {

constexpr std::size_t most_kept_in_stack = 64; // room that a burst at the front leaves behind

// A counter with one writer at a time.
void add(std::atomic<uint64_t> &counter, uint64_t n) {
    counter.store(counter.load(std::memory_order_relaxed) + n, std::memory_order_relaxed);
}

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

void Tq4_message_batch::Take(Tq4_msg_obj &to) {
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
    for (Tq4_msg_obj dropped; left();) {
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
    (m_first ? m_last->next : m_first) = chunk;
    m_last = chunk;
    m_filled = 0;
}

Tq4_msg_obj &Tq4_message_queue::PutLast() {
    if (!m_first || m_filled == Tq4_message_chunk::size) AddChunk();
    add(m_back, 1);
    Tq4_msg_obj &room = m_last->messages[m_filled++];
    Check();
    return room;
}

Tq4_msg_obj &Tq4_message_queue::PutFirst() {
    add(m_front, 1);
    m_stack.emplace_back();
    Check();
    return m_stack.back();
}

void Tq4_message_queue::TakeFirst(Tq4_msg_obj &to) {
    to = m_stack.back();
    m_stack.pop_back();
    if (m_stack.empty() && m_stack.capacity() > most_kept_in_stack) m_stack.shrink_to_fit();
    add(m_front, -1ul);
    Check();
}

void Tq4_message_queue::TakeAll(Tq4_message_batch &to) {
    TQ4_CHECK(!to.m_chunk);
    m_spare.TakeSome(to.m_spare);
    to.m_chunk = std::exchange(m_first, nullptr);
    to.m_left.store(m_back.exchange(0, std::memory_order_relaxed), std::memory_order_relaxed);
    to.Check();
    Check();
}

void Tq4_message_queue::MoveTo(Tq4_message_queue &other) {
    TQ4_CHECK(other.count() == 0);
    other.m_first = std::exchange(m_first, nullptr);
    other.m_last = m_last;
    other.m_filled = m_filled;
    other.m_back.store(m_back.exchange(0, std::memory_order_relaxed), std::memory_order_relaxed);
    other.m_front.store(m_front.exchange(0, std::memory_order_relaxed), std::memory_order_relaxed);
    other.m_stack.swap(m_stack);
    other.Check();
    Check();
}

void Tq4_message_queue::Drop() {
    for (Tq4_msg_obj dropped; has_front();) {
        TakeFirst(dropped);
        dropped.FreeParams();
    }
    Tq4_message_batch batch; // drops what is in it
    TakeAll(batch);
}

void Tq4_message_queue::Check() const {
    TQ4_CHECK(m_stack.size() == m_front.load(std::memory_order_relaxed));
    TQ4_CHECK(!m_first == (m_back.load(std::memory_order_relaxed) == 0));
    TQ4_CHECK(!m_first || (!m_last->next && m_filled <= Tq4_message_chunk::size));
    TQ4_CHECK(!m_first || m_first != m_last || m_back.load(std::memory_order_relaxed) == m_filled);
}
