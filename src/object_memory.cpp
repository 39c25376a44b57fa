// object_memory: per-thread stacks of freed blocks, one for each small size.
//
// A stack takes no more than a fixed number of blocks, so a thread keeps two megabytes at most; what is freed
// beyond goes, a whole stack at a time, to a depot that all threads share, for threads whose stacks are empty: objects
// that one thread makes and another one deletes thus go round without malloc. What the depot cannot take goes to
// malloc. Nobody waits for the depot: a thread that finds it locked, for a moment or by a thread that was killed there,
// does without. A stack has no room until its thread first frees a block of its size. What is freed after the stacks
// were emptied at the thread's end, by destructors of other thread-local objects, goes straight to malloc. Under the
// sanitizers nothing is kept, so that they see every block's end.
#include "object_memory.hpp"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <iterator>
#include <utility>

#include "assert.hpp"
#include "sanitizers.hpp"

namespace {

#if defined(TQ4_ADDRESS_SANITIZER) || defined(TQ4_THREAD_SANITIZER)
constexpr bool keeps_blocks = false;
#else
constexpr bool keeps_blocks = true;
#endif

// Full stacks of one size: chains of most_kept blocks.
class Depot {
    static constexpr unsigned long bytes_kept = 131072; // or one stack, whichever is more
    std::atomic_flag m_locked;
    std::atomic<unsigned> m_count = 0; // changed under the lock; read without it, to see that there is nothing to do
    Tq4_object_memory_block *m_stacks[32] = {}; // owned

    template <class Use> bool Try(Use use) {
        if (m_locked.test_and_set(std::memory_order_acquire)) return false;
        const bool used = use();
        m_locked.clear(std::memory_order_release);
        return used;
    }

public:
    bool Put(Tq4_object_memory_block *stack, std::size_t block_size) {
        const unsigned long most = bytes_kept / (block_size * Tq4_thread_record::most_kept) + 1;
        const unsigned long places = std::min(most, std::size(m_stacks));
        const auto full = [&] { return m_count.load(std::memory_order_relaxed) >= places; };
        if (full()) return false;
        return Try([&] {
            if (full()) return false;
            m_stacks[m_count.fetch_add(1, std::memory_order_relaxed)] = stack;
            return true;
        });
    }
    Tq4_object_memory_block *Take() {
        Tq4_object_memory_block *stack = nullptr;
        const auto empty = [&] { return m_count.load(std::memory_order_relaxed) == 0; };
        if (empty()) return nullptr;
        Try([&] {
            if (!empty()) stack = m_stacks[m_count.fetch_sub(1, std::memory_order_relaxed) - 1];
            return stack != nullptr;
        });
        return stack;
    }
};
constexpr std::size_t sizes = Tq4_thread_record::largest / Tq4_thread_record::step + 1;
constinit Depot depots[sizes];

constexpr std::size_t class_of(std::size_t size) {
    return (size + Tq4_thread_record::step - 1) / Tq4_thread_record::step;
}

Tq4_thread_record *keeper_of(std::size_t size) {
    return keeps_blocks && size <= Tq4_thread_record::largest ? Tq4_own_thread_record() : nullptr;
}

// The chain leaves the stack before others can have it. False when the depot has no place, and the stack is as it was.
bool pass_on(Tq4_thread_record::Stack &stack, std::size_t size) {
    Tq4_object_memory_block *chain = std::exchange(stack.top, nullptr);
    std::atomic_signal_fence(std::memory_order_release);
    if (!chain || depots[class_of(size)].Put(chain, class_of(size) * Tq4_thread_record::step)) return true;
    stack.top = chain;
    return false;
}

} // namespace

void *Tq4_object_memory_new(std::size_t size) {
    if (Tq4_thread_record *own = keeper_of(size)) {
        if (Tq4_object_memory_block *block = depots[class_of(size)].Take()) {
            own->stack_of(size) = {block->next, 1};
            return block;
        }
    }
    void *memory = std::malloc(class_of(size) * Tq4_thread_record::step);
    TQ4_ASSERT(memory != nullptr);
    return memory;
}

void Tq4_object_memory_overflow(void *memory, std::size_t size) {
    Tq4_thread_record *own = keeper_of(size);
    if (!own || !pass_on(own->stack_of(size), size)) return std::free(memory);
    auto *block = static_cast<Tq4_object_memory_block *>(memory);
    block->next = nullptr;
    std::atomic_signal_fence(std::memory_order_release);
    own->stack_of(size) = {block, Tq4_thread_record::most_kept - 1};
}
