// thread_record.hpp: what the library keeps for each thread, behind its one thread-local variable.
//
// Static thread-local memory is scarce in a process that loads libraries while it runs, so the library takes a pointer
// of it and nothing else. A thread's record is made when something is first written to it, and goes at the thread's
// end. Before, all threads share an empty one, after it another, and both are read only: a reader needs no look whether
// there is a record.
#pragma once

#include <cstddef>

struct Tq4_kill_gate;
struct Tq4_thread_obj;

struct Tq4_object_memory_block {
    Tq4_object_memory_block *next;
};

struct Tq4_thread_record {
    static constexpr std::size_t step = 16;      // sizes are rounded up to a multiple of it
    static constexpr std::size_t largest = 1024; // that is kept
    static constexpr unsigned most_kept = 64;    // blocks of one size

    bool ended = false;                        // the thread's end has begun: it keeps no more blocks
    bool killable = false;                     // it may be killed at the very instruction it is at (thread/cancel.hpp)
    int kernel_id = 0;                         // 0: not asked yet
    Tq4_kill_gate *kill_gate = nullptr;        // borrowed; null unless it runs a user's function on a thread of ours
    const Tq4_thread_obj *runs_here = nullptr; // borrowed: the thread object whose body this is; null on other threads

    // Freed blocks, a stack for each size rounded up (object_memory.hpp).
    struct Stack {
        Tq4_object_memory_block *top;
        unsigned room; // how many more it takes; 0 until the thread first frees a block of the size
    };
    Stack of_size[largest / step + 1] = {};

    Stack &stack_of(std::size_t size) { return of_size[(size + step - 1) / step]; }
};

// The calling thread's, to be read only.
[[gnu::tls_model("initial-exec")]] extern constinit thread_local Tq4_thread_record *Tq4_this_thread;

// The calling thread's own record, made when there is none; null once its end has begun.
Tq4_thread_record *Tq4_own_thread_record();
