// What a thread that is killed inside the memory of objects leaves behind: no block that two would own.
#include "object_memory.hpp"

#include <ucontext.h>

#include "sanitizers.hpp"
#include "support/test.hpp"

// Under the sanitizers nothing is kept; elsewhere a processor steps in another way.
#if defined(__x86_64__) && !defined(TQ4_ADDRESS_SANITIZER) && !defined(TQ4_THREAD_SANITIZER)

extern "C" const char __executable_start, etext; // this program's code: not the C library's, which holds locks

namespace {

constexpr std::size_t size = 64;
constexpr unsigned kept = Tq4_thread_record::most_kept;
std::atomic<int> steps_left;

// Called after each instruction. Ends the thread when its steps are used up.
void on_step(int, siginfo_t *, void *context) {
    const auto at = static_cast<ucontext_t *>(context)->uc_mcontext.gregs[REG_RIP];
    if (at < reinterpret_cast<greg_t>(&__executable_start) || at >= reinterpret_cast<greg_t>(&etext)) return;
    if (steps_left-- == 0) pthread_exit(nullptr);
}

// Begins or ends the steps by the processor's trap flag, which the thread goes on with after the signal.
void on_switch(int, siginfo_t *, void *context) {
    constexpr greg_t trap_flag = 0x100;
    static_cast<ucontext_t *>(context)->uc_mcontext.gregs[REG_EFL] ^= trap_flag;
}

void handle(int signal, void (*handler)(int, siginfo_t *, void *)) {
    struct sigaction action {};
    action.sa_sigaction = handler;
    action.sa_flags = SA_SIGINFO;
    sigaction(signal, &action, nullptr);
}

// Frees so many blocks that the last one meets a full stack, and takes and gives back one more, under steps.
void *pass_a_full_stack_on(void *blocks) {
    void **next = static_cast<void **>(blocks);
    for (unsigned i = 0; i < kept; ++i) Tq4_object_memory_free(*next++, size);
    raise(SIGUSR1);
    Tq4_object_memory_free(*next, size);
    void *again[2] = {Tq4_object_memory(size), Tq4_object_memory(size)}; // one from the stack, one from all threads'
    for (void *block : again) Tq4_object_memory_free(block, size);
    raise(SIGUSR1);
    return nullptr;
}

std::vector<void *> take(unsigned count) {
    std::vector<void *> blocks(count);
    for (void *&block : blocks) block = Tq4_object_memory(size);
    return blocks;
}

// Ends a thread after so many steps and takes what it has left. In a process of its own: a thread that ends inside what
// all threads share leaves it locked.
enum Outcome { sound, owned_twice, came_to_its_end };
Outcome end_after(int steps) {
    handle(SIGTRAP, on_step);
    handle(SIGUSR1, on_switch);
    std::vector<void *> blocks = take(kept + 1);
    steps_left = steps;
    pthread_t thread;
    pthread_create(&thread, nullptr, pass_a_full_stack_on, blocks.data());
    pthread_join(thread, nullptr);
    if (steps_left >= 0) return came_to_its_end;
    blocks = take(4 * kept);
    std::sort(blocks.begin(), blocks.end());
    return std::adjacent_find(blocks.begin(), blocks.end()) == blocks.end() ? sound : owned_twice;
}

int outcome_after(int steps) {
    const pid_t child = fork();
    if (child == 0) std::_Exit(end_after(steps));
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1; // a signal: the chain was no chain
}

TEST(ObjectMemory, OfAThreadThatEndsAtAnyInstructionHasOneOwner) {
    int steps = 0, outcome;
    while ((outcome = outcome_after(steps)) == sound) ++steps;
    EXPECT_EQ(outcome, came_to_its_end) << "after " << steps << " instructions";
    EXPECT_GT(steps, 60) << "there are more of them";
}

} // namespace

#endif
