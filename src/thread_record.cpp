// thread_record: made when a thread first writes to it, and ended with the thread-local objects of that thread.
#include "thread_record.hpp"

#include <cstdlib>
#include <new>

#include "assert.hpp"
#include "platform/multi_platform_pthread.hpp"

namespace {

constinit const Tq4_thread_record not_yet, no_more{.ended = true};

Tq4_thread_record *read_only(const Tq4_thread_record &record) { return const_cast<Tq4_thread_record *>(&record); }

void free_blocks(Tq4_thread_record &record) {
    for (auto &stack : record.of_size) {
        stack.room = 0;
        while (auto *block = stack.top) {
            stack.top = block->next;
            std::free(block);
        }
    }
}

// Where a thread of ours ends the whole process from inside its function, it stays known as that thread.
void end_record(void *of_this_thread) {
    auto *record = static_cast<Tq4_thread_record *>(of_this_thread);
    record->ended = true;
    free_blocks(*record);
    if (record->runs_here) return;
    Tq4_this_thread = read_only(no_more);
    std::free(record);
}

// A thread that is killed on the way loses the memory at most.
Tq4_thread_record *make_record() {
    void *memory = std::malloc(sizeof(Tq4_thread_record));
    TQ4_ASSERT(memory != nullptr);
    auto *record = new (memory) Tq4_thread_record;
    MP_THREAD_AtEnd(end_record, record);
    return Tq4_this_thread = record;
}

} // namespace

constinit thread_local Tq4_thread_record *Tq4_this_thread = const_cast<Tq4_thread_record *>(&not_yet);

Tq4_thread_record *Tq4_own_thread_record() {
    if (Tq4_this_thread->ended) return nullptr;
    return Tq4_this_thread == &not_yet ? make_record() : Tq4_this_thread;
}
