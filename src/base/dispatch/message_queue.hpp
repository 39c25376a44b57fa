// message_queue.hpp: the messages that wait for one handler: producers put them under a lock, the consumer takes them
// without.
//
// Messages lie one behind the other in chunks. The consumer takes all chunks in one step under the lock, as a batch of
// its own, and goes through them alone. So a producer and the consumer seldom meet, and a message costs neither memory
// nor a link. The few messages put at the front lie in a stack, at which the consumer looks before each message. Chunks
// that the consumer is done with serve again; what a burst has needed is given back to the system.
#pragma once

#include <atomic>
#include <cstdint>
#include <vector>

#include "base/dispatch/message.hpp"

struct Tq4_message_chunk {
    static constexpr unsigned size = 63; // messages: with the link 4096 bytes

    Tq4_message_chunk *next;
    Tq4_waiting_msg messages[size];
};

// A chain of chunks that have served.
struct Tq4_spare_chunks {
    static constexpr unsigned most = 4;

    Tq4_message_chunk *m_first = nullptr; // owned, with those behind it
    unsigned m_count = 0;

    Tq4_spare_chunks() = default;
    Tq4_spare_chunks(const Tq4_spare_chunks &) = delete;
    Tq4_spare_chunks &operator=(const Tq4_spare_chunks &) = delete;
    ~Tq4_spare_chunks() {
        while (m_first) delete Pop();
    }
    Tq4_message_chunk *Pop();                // null when there is none
    void Push(Tq4_message_chunk *chunk);     // frees it when there are enough
    void TakeSome(Tq4_spare_chunks &others); // as many as there is room for
};

// What the consumer has taken. Its own, but for left().
class Tq4_message_batch {
    friend class Tq4_message_queue;
    Tq4_message_chunk *m_chunk = nullptr; // owned; null when nothing is left
    unsigned m_next = 0;                  // the first one left
    std::atomic<uint64_t> m_left{0};      // written by the consumer
    Tq4_spare_chunks m_spare;

public:
    ~Tq4_message_batch() { Drop(); }
    uint64_t left() const { return m_left.load(std::memory_order_relaxed); } // any thread; it only falls
    // The first message, copied; there is one.
    void Take(Tq4_waiting_msg &to);
    // Frees the parameters of what is left.
    void Drop();
    void Check() const;
};

class Tq4_message_queue {
    Tq4_message_chunk *m_first = nullptr; // owned, with those behind it; null when empty
    Tq4_message_chunk *m_last = nullptr;
    unsigned m_filled = 0;                // messages in the last chunk; the others are full
    uint64_t m_back = 0;                  // messages in the chunks
    std::vector<Tq4_waiting_msg> m_stack; // the last is the next
    Tq4_spare_chunks m_spare;

    void AddChunk();
    const Tq4_waiting_msg *Ahead() const;

public:
    ~Tq4_message_queue();

    // Under the lock.
    void PutLast(const Tq4_waiting_msg &message);
    void PutFirst(const Tq4_waiting_msg &message);
    // Under the lock, for the consumer: the message in front, there is one; all others, to a batch that has none left.
    void TakeFirst(Tq4_waiting_msg &to);
    void TakeAll(Tq4_message_batch &to);
    // Under the lock: everything goes to an empty queue.
    void MoveTo(Tq4_message_queue &other);
    // Frees all parameters.
    void Drop();

    // Under the lock: the messages here, without those of the batch.
    uint64_t count() const { return m_back + m_stack.size(); }
    bool has_front() const { return !m_stack.empty(); }
    void Check() const;
};
