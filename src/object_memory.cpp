// object_memory: per-thread stacks of freed blocks, one for each small size.
//
// A stack takes no more than a fixed number of blocks, so a thread keeps some hundred kilobytes at most; what is freed
// beyond goes to malloc. A stack has no room until its thread first frees a block of its size; then the thread also
// arranges that its stacks are emptied at its end. What is freed later still, by destructors of other thread-local
// objects, goes straight to malloc. Under the sanitizers nothing is kept, so that they see every block's end.
#include "object_memory.hpp"

#include <cstdlib>

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
    constexpr std::size_t step = Tq4_object_memory_stacks::step;
    void *memory = std::malloc((size + step - 1) / step * step);
    TQ4_ASSERT(memory != nullptr);
    return memory;
}

void Tq4_object_memory_overflow(void *memory, std::size_t size) {
    std::free(memory);
    if (!keeps_blocks || size > Tq4_object_memory_stacks::largest || thread_ended) return;
    auto &stack = Tq4_object_stacks.stack_of(size);
    if (stack.top) return; // full
    emptier.Arrange();
    stack.room = Tq4_object_memory_stacks::most_kept;
}
