// cancel.hpp: keeping a forced kill out of the middle of things.
//
// The functions that users give to a thread run with asynchronous cancellation: a kill may take them at any
// instruction. While a Tq4_cancel_deferred lives, a kill takes the calling thread only where it waits in the system, so
// that the library's own locks and conditions are not left half-changed. What is held across such a wait needs a
// cleanup handler: a kill does not run destructors. On other threads it costs a look at a thread-local flag.
#pragma once

#include <atomic>
#include <cstddef>

#include "platform/multi_platform_pthread.hpp"
#include "sanitizers.hpp"
#include "thread_record.hpp"

class Tq4_cancel_deferred {
    const bool m_active = Tq4_this_thread->killable;
    const int m_before = m_active ? MP_THREAD_DeferCancel() : 0;

public:
    Tq4_cancel_deferred() {
        if (m_active) Tq4_this_thread->killable = false;
    }
    ~Tq4_cancel_deferred() {
        if (!m_active) return;
        Tq4_this_thread->killable = true;
        MP_THREAD_RestoreCancel(m_before);
    }
    Tq4_cancel_deferred(const Tq4_cancel_deferred &) = delete;
    Tq4_cancel_deferred &operator=(const Tq4_cancel_deferred &) = delete;
};

// Where a kill and its thread meet, so that a kill never strikes between them. The killer asks, and sends the kill only
// when nothing is held; the thread holds, and looks whether it was asked. Each writes its own part first and then reads
// the other's, so at least one of them sees the other. Left to the system alone, a kill that was sent in time may
// arrive later, in the middle of a write that has held it off.
// Writing first takes a fence on both sides. Threads hold millions of times a second and are hardly ever killed, so the
// killer fences for both where the system lets it.
struct Tq4_kill_gate {
    std::atomic<int> holds = 0; // how often the thread holds a kill off; written by itself
    std::atomic<bool> asked = false;
    const bool m_killer_fences = MP_THREAD_CanFenceOthers();

    // For the killer: true when the kill is to be sent, false when the thread will see to it.
    bool Ask() {
        asked = true;
        if (m_killer_fences) MP_THREAD_FenceOthers();
        return holds == 0;
    }
    // For the thread: adds to its holds; gives how many there were.
    int Add(int more) {
        if (!m_killer_fences) return holds.fetch_add(more);
        const int before = holds.load(std::memory_order_relaxed);
        holds.store(before + more, std::memory_order_relaxed);
        std::atomic_signal_fence(std::memory_order_seq_cst);
        return before;
    }
};

// While its gate is shut no kill is sent to the calling thread; one that was asked for meanwhile takes it when the gate
// opens. Shutting nests, and costs a few loads and stores each way on our threads, nothing elsewhere.
void Tq4_obey_kill();
inline void Tq4_shut_kill_gate() {
    Tq4_kill_gate *gate = Tq4_this_thread->kill_gate;
    if (!gate) return;
    const bool first = gate->Add(1) == 0;
    if (first && Tq4_this_thread->killable && gate->asked) Tq4_obey_kill(); // the kill was sent: nothing is held yet
}
inline void Tq4_open_kill_gate() {
    Tq4_kill_gate *gate = Tq4_this_thread->kill_gate;
    if (gate && gate->Add(-1) == 1 && gate->asked) Tq4_obey_kill();
}

// The same for a scope, for steps that hold nothing across a wait in the system: in such a wait a kill may still
// strike. It is one that was sent to the user's function, which had made cancellation deferred and so brought it along.
class Tq4_kill_gate_shut {
public:
    Tq4_kill_gate_shut() { Tq4_shut_kill_gate(); }
    ~Tq4_kill_gate_shut() { Tq4_open_kill_gate(); }
    Tq4_kill_gate_shut(const Tq4_kill_gate_shut &) = delete;
    Tq4_kill_gate_shut &operator=(const Tq4_kill_gate_shut &) = delete;
};

// Between the two a kill does not take the calling thread at all; one that was asked for takes it at the end. They
// nest, and cost some locked operations on a thread that may be killed at any instruction.
int Tq4_hold_off_kill();
void Tq4_admit_kill(int before);

// The same for a scope: what is held across a wait in the system is given back first.
class Tq4_cancel_held {
    const int m_before = Tq4_hold_off_kill();

public:
    Tq4_cancel_held() = default;
    ~Tq4_cancel_held() { Tq4_admit_kill(m_before); }
    Tq4_cancel_held(const Tq4_cancel_held &) = delete;
    Tq4_cancel_held &operator=(const Tq4_cancel_held &) = delete;
};

// The same for a module that calls users' functions between steps of its own: a kill takes the thread only inside
// Admit. Costs a look at a thread-local pointer on threads that cannot be killed.
class Tq4_cancel_held_around {
    const bool m_active = Tq4_this_thread->kill_gate != nullptr;
    int m_before = m_active ? Tq4_hold_off_kill() : 0;

public:
    Tq4_cancel_held_around() = default;
    ~Tq4_cancel_held_around() {
        if (m_active) Tq4_admit_kill(m_before);
    }
    Tq4_cancel_held_around(const Tq4_cancel_held_around &) = delete;
    Tq4_cancel_held_around &operator=(const Tq4_cancel_held_around &) = delete;

    // Gives what the callback gives.
    template <class Callback> auto Admit(Callback callback) {
        const Admitted admitted(*this);
        return callback();
    }

private:
    class Admitted {
        Tq4_cancel_held_around &m_held;

    public:
        explicit Admitted(Tq4_cancel_held_around &held) : m_held(held) {
            if (m_held.m_active) Tq4_admit_kill(m_held.m_before);
        }
        ~Admitted() {
            if (m_held.m_active) m_held.m_before = Tq4_hold_off_kill();
        }
        Admitted(const Admitted &) = delete;
        Admitted &operator=(const Admitted &) = delete;
    };
};

// The first line of a cleanup handler. The frames that a kill took away have left marks in the address sanitizer's map
// of the stack, for which the frames that come to lie there would be blamed. Without that sanitizer: nothing.
#ifdef TQ4_ADDRESS_SANITIZER
extern "C" void __asan_unpoison_memory_region(const volatile void *begin, std::size_t size);
[[gnu::always_inline]] inline void Tq4_forget_killed_frames() {
    constexpr std::size_t below = 256 * 1024, own = 2 * sizeof(void *);
    auto *frame = static_cast<const char *>(__builtin_frame_address(0));
    __asan_unpoison_memory_region(frame - below, below + own);
}
#else
inline void Tq4_forget_killed_frames() {}
#endif

// The same for a cleanup handler that goes on with what the kill has interrupted in a user's function. From here on the
// thread cannot be killed again, and its gate is shut as it was around that function.
[[gnu::always_inline]] inline void Tq4_outlive_kill() {
    Tq4_forget_killed_frames();
    MP_THREAD_ClearCancel();
    if (Tq4_this_thread->killable) Tq4_this_thread->killable = false;
    Tq4_shut_kill_gate();
}
