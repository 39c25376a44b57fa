// object_memory.hpp: where objects' memory comes from.
//
// Objects are small, alike and short-lived: a message is dozens of them. Each thread keeps a few freed blocks of each
// small size for its next objects, and passes full stacks of them on to other threads; the rest is malloc's. A block
// may be freed by another thread than made it, and with std::free by who does not know its size.
#pragma once

#include <cstddef>

struct Tq4_object_memory_block {
    Tq4_object_memory_block *next;
};

// One thread's stacks of freed blocks, one for each size rounded up. Zero at the start and without a destructor.
struct Tq4_object_memory_stacks {
    static constexpr std::size_t step = 16;      // sizes are rounded up to a multiple of it
    static constexpr std::size_t largest = 1024; // that is kept
    static constexpr unsigned most_kept = 64;    // blocks of one size

    struct Stack {
        Tq4_object_memory_block *top;
        unsigned room; // for so many more; 0 until the thread first frees a block of the size
    };
    Stack of_size[largest / step + 1];

    Stack &stack_of(std::size_t size) { return of_size[(size + step - 1) / step]; }
};
extern __attribute__((tls_model("initial-exec"))) constinit thread_local Tq4_object_memory_stacks Tq4_object_stacks;

// What happens when a stack is empty, or full.
void *Tq4_object_memory_new(std::size_t size);
void Tq4_object_memory_overflow(void *memory, std::size_t size);

// Memory for size bytes, aligned for anything. Running out of it is fatal.
inline void *Tq4_object_memory(std::size_t size) {
    if (size > Tq4_object_memory_stacks::largest) return Tq4_object_memory_new(size);
    auto &stack = Tq4_object_stacks.stack_of(size);
    Tq4_object_memory_block *block = stack.top;
    if (!block) return Tq4_object_memory_new(size);
    stack.top = block->next;
    __builtin_prefetch(stack.top); // another thread may have had it last
    ++stack.room;
    return block;
}

// Gives it back; size as it was asked for.
inline void Tq4_object_memory_free(void *memory, std::size_t size) {
    if (size > Tq4_object_memory_stacks::largest) return Tq4_object_memory_overflow(memory, size);
    auto &stack = Tq4_object_stacks.stack_of(size);
    if (stack.room == 0) return Tq4_object_memory_overflow(memory, size);
    auto *block = static_cast<Tq4_object_memory_block *>(memory);
    block->next = stack.top;
    stack.top = block;
    --stack.room;
}
