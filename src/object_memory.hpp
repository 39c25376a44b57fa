// object_memory.hpp: where objects' memory comes from.
//
// Objects are small, alike and short-lived: a message is dozens of them. Each thread keeps a few freed blocks of each
// small size for its next objects, and passes full stacks of them on to other threads; the rest is malloc's. A block
// may be freed by another thread than made it, and callers that do not know its size free it with std::free.
//
// A thread may be killed at any instruction here. It then loses the block it is about to take or give back, or a whole
// stack of them; what it leaves behind is always a chain that nobody else owns. The order of the writes below and in
// the source is what makes this true, and the fences keep it for the compiler.
#pragma once

#include <atomic>
#include <cstddef>

#include "thread_record.hpp"

// What happens when a stack is empty, or full.
void *Tq4_object_memory_new(std::size_t size);
void Tq4_object_memory_overflow(void *memory, std::size_t size);

// Memory for size bytes, aligned for anything. Running out of it is fatal.
inline void *Tq4_object_memory(std::size_t size) {
    if (size > Tq4_thread_record::largest) return Tq4_object_memory_new(size);
    auto &stack = Tq4_this_thread->stack_of(size);
    Tq4_object_memory_block *block = stack.top;
    if (!block) return Tq4_object_memory_new(size);
    stack.top = block->next;
    if (stack.top) __builtin_prefetch(stack.top); // another thread may have had it last
    ++stack.room;
    return block;
}

// Gives it back; size as it was asked for.
inline void Tq4_object_memory_free(void *memory, std::size_t size) {
    if (size > Tq4_thread_record::largest) return Tq4_object_memory_overflow(memory, size);
    auto &stack = Tq4_this_thread->stack_of(size);
    if (stack.room == 0) return Tq4_object_memory_overflow(memory, size);
    auto *block = static_cast<Tq4_object_memory_block *>(memory);
    block->next = stack.top;
    std::atomic_signal_fence(std::memory_order_release);
    stack.top = block;
    --stack.room;
}
