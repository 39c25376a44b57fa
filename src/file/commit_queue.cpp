// commit_queue: the entries form a chain from the leader to m_last. Entering is one exchange, leaving alone one
// compare-and-exchange; an entry is touched by others only until its state leaves Waiting.
#include "file/commit_queue.hpp"

#include <chrono>
#include <thread>

#include "platform/spin.hpp"

namespace {

using namespace std::chrono_literals;

// Sleeping and being woken costs tens of microseconds, a write about one.
constexpr auto Wait_for_turn = 5us;
constexpr auto Wait_for_company = 1us;

// Not at all where nobody else can run meanwhile.
template <class Condition> bool spin(std::chrono::nanoseconds limit, Condition holds) {
    return holds() || MP_THREAD_Spin(limit, 1, holds);
}

} // namespace

bool Tq4_commit_queue::Enter(Entry *entry) {
    if (Entry *ahead = m_last.exchange(entry, std::memory_order_acq_rel)) {
        ahead->behind.store(entry, std::memory_order_release);
        const auto is_over = [entry] { return entry->state.load(std::memory_order_acquire) != Waiting; };
        if (!spin(Wait_for_turn, is_over)) entry->state.wait(Waiting, std::memory_order_acquire);
        if (entry->state.load(std::memory_order_acquire) == Done) return false;
    }
    if (m_company > 1) Await_company(entry);
    return true;
}

void Tq4_commit_queue::Await_company(const Entry *first) const {
    const Entry *last = first;
    int present = 1;
    spin(Wait_for_company, [&] {
        for (const Entry *next; present < m_company && (next = Behind(last)); ++present) last = next;
        return present == m_company;
    });
}

// The entry behind the group; null, the queue being empty then, when there is none.
Tq4_commit_queue::Entry *Tq4_commit_queue::Successor(Entry *last) {
    if (Entry *behind = Behind(last)) return behind;
    Entry *expected = last;
    if (m_last.compare_exchange_strong(expected, nullptr, std::memory_order_acq_rel)) return nullptr;
    Entry *behind;
    while (!(behind = Behind(last))) std::this_thread::yield(); // somebody has entered and is about to say where
    return behind;
}

// From here on the entry belongs to its thread again and may be gone. The store must be seen by whoever goes to sleep
// before notify_one asks whether anybody sleeps: a weaker order would leave him there.
void Tq4_commit_queue::Wake(Entry *entry, State state) {
    entry->state.store(state, std::memory_order_seq_cst);
    entry->state.notify_one();
}

void Tq4_commit_queue::Leave(Entry *first, Entry *last) {
    // Others may lead as soon as there is a successor or none, so what the next leader reads is written before.
    int company = 1;
    for (const Entry *entry = first; entry != last; entry = Behind(entry)) ++company;
    m_company = company + (Behind(last) ? 1 : 0);
    if (Entry *next = Successor(last)) Wake(next, Leading);
    for (Entry *done = first; done != last;) {
        Entry *next = Behind(done);
        if (done != first) Wake(done, Done);
        done = next;
    }
    if (last != first) Wake(last, Done);
}

void Tq4_commit_queue::Forget_all() {
    m_last.store(nullptr, std::memory_order_relaxed);
    m_company = 1;
}
