// timer.hpp: the record of a timer object: a wheel, the dispatcher whose thread has it, and the thread that ticks.
//
// Only the dispatcher's thread, the handler, touches the wheel, and whoever stops once that thread is gone. Its
// requests are messages; on the handler's own thread they are met at once.
//
// The record has users: its owner, and the handler and Stop while they are inside. The last one destroys it. So a
// callback or a free function may delete its timer object. A handler that outlasts even its kill comes back to a record
// that is still there, and finds that its life of the wheel is over.
#pragma once

#include <atomic>

#include "base/timer/wheel.hpp"
#include "identity.hpp"
#include "tq4/dispatch.h"
#include "tq4/thread.h"

// The codes of messages to the handler.
enum Tq4_timer_obj_msg_list {
    Tq4_timer_obj_msg_tick = 1,  // submsg: how many
    Tq4_timer_obj_msg_set = 2,   // sender: where the id goes; params: Tq4_timer_SetParams
    Tq4_timer_obj_msg_reset = 3, // receiver: the timer, here and below; params: the milliseconds
    Tq4_timer_obj_msg_clear = 4,
    Tq4_timer_obj_msg_watch = 5 // submsg: whether to clear; params: where the uint64_t goes
};

struct Tq4_timer_obj : Tq4_identity {
    enum class State { stopped, running, stopping, deleted };

    Tq4_timer_wheel m_wheel;
    const Tq4_own<Tq4_dispatch> m_handler;
    Tq4_own<Tq4_thread> m_thread_tick; // of whoever starts and stops
    std::atomic<State> m_state{State::stopped};
    std::atomic<unsigned long> m_inside{0}; // the id of the thread in the handler; 0: none
    std::atomic<int> m_users{1};

    Tq4_timer_obj();
    bool Retire();
    void Reset() { Stop(); }

    int Start(const char *name);
    int Stop();
    int SetTimer(const Tq4_timer_SetParams &params, Tq4_id *id);
    int ClearTimer(const Tq4_id *id);
    int ResetTimer(const Tq4_id *id, unsigned long ms);
    uint64_t StopWatch(const Tq4_id *id, int clear);

private:
    static unsigned long TickLoop(void *timer);
    static long Tq4_timer_handler(void *timer, Tq4_msg *message);
    static void Killed(void *timer);
    static void KilledInStop(void *timer);
    void EndStop();
    void LeaveHandler();
    void Leave();

    bool IsInside() const;
    long Send(Tq4_msg message);
    long Handle(const Tq4_msg &message);
    // On the handler's thread.
    int SetHere(const Tq4_timer_SetParams &params, Tq4_id *id);
    int ResetHere(const Tq4_id *id, unsigned long ms);
    int ClearHere(const Tq4_id *id);
    int WatchHere(const Tq4_id *id, long clear, uint64_t *ms);
};
