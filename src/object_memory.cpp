// object_memory: per-thread stacks of freed blocks, one for each small size.
//
// A stack takes no more than a fixed number of blocks, so a thread keeps two megabytes at most; what is freed
// beyond goes, a whole stack at a time, to a depot that all threads share, for threads whose stacks are empty: objects
// that one thread makes and another one deletes thus go round without malloc. What the depot cannot take goes to
// malloc. Nobody waits for the depot: a thread that finds it locked, for a moment or by a thread that was killed there,
// does without. A stack has no room until its thread first frees a block of its size; then the thread also arranges
// that its stacks are emptied at its end. What is freed later still, by destructors of other thread-local objects, goes
// straight to malloc. Under the sanitizers nothing is kept, so that they see every block's end.
#include "object_memory.hpp"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <iterator>

#include "assert.hpp"

constinit thread_local Tq4_object_memory_stacks Tq4_object_stacks{};

namespace {

#ifndef __has_feature
#define __has_feature(feature) 0
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || __has_feature(address_sanitizer) ||               \
    __has_feature(thread_sanitizer)
constexpr bool keeps_blocks = false;
#else
constexpr bool keeps_blocks = true;
#endif

constinit thread_local bool thread_ended = false;

// Full stacks of one size: chains of most_kept blocks.
class Depot {
    static constexpr unsigned long bytes_kept = 131072; // or one stack, whichever is more
    std::atomic_flag m_locked;
    unsigned m_count = 0;
    Tq4_object_memory_block *m_stacks[32] = {}; // owned

    template <class Use> bool Try(Use use) {
        if (m_locked.test_and_set(std::memory_order_acquire)) return false;
        const bool used = use();
        m_locked.clear(std::memory_order_release);
        return used;
    }

public:
    bool Put(Tq4_object_memory_block *stack, std::size_t block_size) {
        const unsigned long most = bytes_kept / (block_size * Tq4_object_memory_stacks::most_kept) + 1;
        return Try([&] {
            if (m_count >= std::min(most, std::size(m_stacks))) return false;
            m_stacks[m_count++] = stack;
            return true;
        });
    }
    Tq4_object_memory_block *Take() {
        Tq4_object_memory_block *stack = nullptr;
        Try([&] { return m_count > 0 && (stack = m_stacks[--m_count]); });
        return stack;
    }
};
constexpr std::size_t sizes = Tq4_object_memory_stacks::largest / Tq4_object_memory_stacks::step + 1;
constinit Depot depots[sizes];

constexpr std::size_t class_of(std::size_t size) {
    return (size + Tq4_object_memory_stacks::step - 1) / Tq4_object_memory_stacks::step;
}

// Empties the stacks at the end of the thread, and leaves them without room.
struct Emptier {
    ~Emptier() {
        thread_ended = true;
        for (auto &stack : Tq4_object_stacks.of_size) {
            stack.room = 0;
            while (auto *block = stack.top) {
                stack.top = block->next;
                std::free(block);
            }
        }
    }
    void Arrange() {}
};
thread_local Emptier emptier;

} // namespace

void *Tq4_object_memory_new(std::size_t size) {
    if (keeps_blocks && size <= Tq4_object_memory_stacks::largest && !thread_ended) {
        if (Tq4_object_memory_block *block = depots[class_of(size)].Take()) {
            emptier.Arrange();
            Tq4_object_stacks.stack_of(size) = {block->next, 1};
            return block;
        }
    }
    void *memory = std::malloc(class_of(size) * Tq4_object_memory_stacks::step);
    TQ4_ASSERT(memory != nullptr);
    return memory;
}

void Tq4_object_memory_overflow(void *memory, std::size_t size) {
    if (!keeps_blocks || size > Tq4_object_memory_stacks::largest || thread_ended) return std::free(memory);
    auto &stack = Tq4_object_stacks.stack_of(size);
    if (stack.top && !depots[class_of(size)].Put(stack.top, class_of(size) * Tq4_object_memory_stacks::step))
        return std::free(memory);
    emptier.Arrange();
    stack = {static_cast<Tq4_object_memory_block *>(memory), Tq4_object_memory_stacks::most_kept - 1};
    stack.top->next = nullptr;
}
