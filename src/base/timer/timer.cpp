// timer: the wheel on its thread.
//
// A kill may strike while a function of the user runs, and nowhere else in the handler. The kill gate
// (thread/cancel.hpp) is shut for the handler, and the wheel opens it around those functions.
#include "base/timer/timer.hpp"

#include <cstdio>
#include <iterator>
#include <type_traits>

#include "base/timer/tick_pacer.hpp"
#include "module.hpp"
#include "platform/multi_platform_pthread.hpp"
#include "platform/multi_platform_system.hpp"
#include "thread/cancel.hpp"
#include "tq4/debug.h"
#include "tq4/system.h"

static void Delete_Tq4_timer_obj(Tq4_timer_obj *record);

static constexpr unsigned long tick_thread_wait_ms = 2000; // it ends within a tick, when it gets a processor

Tq4_timer_obj::Tq4_timer_obj()
    : m_wheel(Tq4_handle_of<Tq4_timer>(this), static_cast<uint64_t>(Tq4_system_api->Random())),
      m_handler(Tq4_make<Tq4_dispatch>(Tq4_dispatch_oitf)) {}

// --- Starting and stopping ---

int Tq4_timer_obj::Start(const char *name) {
    const Tq4_kill_gate_shut gate;
    if (m_state != State::stopped) return m_state == State::running;
    if (!(*m_handler)->Start(m_handler.get(), this, Tq4_timer_handler, "Tq4_timer_handler")) return 0;
    char thread_name[128];
    std::snprintf(thread_name, sizeof thread_name, "Tq4_TimerTickThread(%s)", name ? name : "");
    m_thread_tick = Tq4_make<Tq4_thread>(Tq4_thread_oitf, thread_name);
    const Tq4_thread thread = m_thread_tick.get();
    m_state = State::running;
    if ((*thread)->Init(thread, TickLoop, this)) return static_cast<int>((*thread)->Resume(thread));
    Stop();
    return 0;
}

int Tq4_timer_obj::Stop() {
    const Tq4_kill_gate_shut gate;
    State running = State::running;
    if (!m_state.compare_exchange_strong(running, State::stopping)) return 1;
    const auto from = IsInside() ? Tq4_timer_wheel::From::function : Tq4_timer_wheel::From::outside;
    const Tq4_thread thread = m_thread_tick.get();
    (*thread)->NotifyQuit(thread);
    m_wheel.Interrupt();
    (*m_handler)->Stop(m_handler.get());
    (*thread)->WaitFor(thread, tick_thread_wait_ms); // it may only now begin, and looks for itself here
    m_thread_tick.reset();
    m_inside = 0;
    ++m_users; // a free function may delete the timer object
    pthread_cleanup_push(KilledInStop, this);
    m_wheel.ReleaseAll(from);
    pthread_cleanup_pop(0);
    EndStop();
    return 1;
}

// The others' free functions are still to be called.
void Tq4_timer_obj::KilledInStop(void *stopped) {
    Tq4_outlive_kill();
    auto *timer = static_cast<Tq4_timer_obj *>(stopped);
    timer->m_wheel.ReleaseAll(Tq4_timer_wheel::From::outside);
    timer->EndStop();
}

void Tq4_timer_obj::EndStop() {
    State stopping = State::stopping;
    m_state.compare_exchange_strong(stopping, State::stopped);
    Leave();
}

bool Tq4_timer_obj::Retire() {
    Stop();
    m_state = State::deleted;
    return m_users.fetch_sub(1) == 1;
}

// --- The thread that ticks ---

// Ticks go in front: requests that wait do not delay them.
unsigned long Tq4_timer_obj::TickLoop(void *param) {
    auto *timer = static_cast<Tq4_timer_obj *>(param);
    const Tq4_thread self = timer->m_thread_tick.get();
    const Tq4_dispatch handler = timer->m_handler.get();
    const auto push = [handler](long ticks) {
        (*handler)->PushFirst(handler, nullptr, nullptr, Tq4_timer_obj_msg_tick, ticks, nullptr, nullptr);
    };
    Tq4_tick_pacer pacer(MP_THREAD_GetMonotonicMs);
    while ((*self)->IsRunning(self)) {
        MP_Sleep(Tq4_tick_pacer::tick_ms);
        push(1);
        if (const long missed = pacer.Missed()) push(missed);
    }
    return 0;
}

// --- Requests ---

bool Tq4_timer_obj::IsInside() const { return m_inside.load(std::memory_order_relaxed) == MP_THREAD_GetCurrentId(); }

long Tq4_timer_obj::Send(Tq4_msg message) {
    return (*m_handler)
        ->Send(m_handler.get(), message.sender, message.receiver, message.msg, message.submsg, message.params, nullptr);
}

int Tq4_timer_obj::SetTimer(const Tq4_timer_SetParams &params, Tq4_id *id) {
    if (IsInside()) return SetHere(params, id);
    return static_cast<int>(
        Send({.msg = Tq4_timer_obj_msg_set, .sender = id, .params = const_cast<Tq4_timer_SetParams *>(&params)}));
}

int Tq4_timer_obj::ResetTimer(const Tq4_id *id, unsigned long ms) {
    if (IsInside()) return ResetHere(id, ms);
    return static_cast<int>(Send({.msg = Tq4_timer_obj_msg_reset,
                                  .receiver = const_cast<Tq4_id *>(id),
                                  .params = reinterpret_cast<void *>(ms)}));
}

uint64_t Tq4_timer_obj::StopWatch(const Tq4_id *id, int clear) {
    uint64_t ms = 0;
    if (IsInside())
        WatchHere(id, clear, &ms);
    else
        Send({.msg = Tq4_timer_obj_msg_watch, .submsg = clear, .receiver = const_cast<Tq4_id *>(id), .params = &ms});
    return ms;
}

int Tq4_timer_obj::ClearTimer(const Tq4_id *id) {
    if (IsInside())
        ClearHere(id);
    else
        (*m_handler)
            ->PushFirst(m_handler.get(), nullptr, const_cast<Tq4_id *>(id), Tq4_timer_obj_msg_clear, 0, nullptr,
                        nullptr);
    return 1;
}

// --- The handler ---

// By Tq4_timer_obj_msg_list.
long Tq4_timer_obj::Handle(const Tq4_msg &message) {
    using Handler = long (*)(Tq4_timer_obj &, const Tq4_msg &);
    static constexpr Handler handlers[] = {
        [](Tq4_timer_obj &, const Tq4_msg &) { return 0l; },
        [](Tq4_timer_obj &t, const Tq4_msg &m) { return t.m_wheel.Tick(m.submsg), 1l; },
        [](Tq4_timer_obj &t, const Tq4_msg &m) {
            return long{t.SetHere(*static_cast<const Tq4_timer_SetParams *>(m.params), m.sender)};
        },
        [](Tq4_timer_obj &t, const Tq4_msg &m) {
            return long{t.ResetHere(m.receiver, reinterpret_cast<unsigned long>(m.params))};
        },
        [](Tq4_timer_obj &t, const Tq4_msg &m) { return long{t.ClearHere(m.receiver)}; },
        [](Tq4_timer_obj &t, const Tq4_msg &m) {
            return long{t.WatchHere(m.receiver, m.submsg, static_cast<uint64_t *>(m.params))};
        },
    };
    return message.msg < std::size(handlers) ? handlers[message.msg](*this, message) : 0;
}

long Tq4_timer_obj::Tq4_timer_handler(void *context, Tq4_msg *message) {
    const Tq4_kill_gate_shut gate;
    auto *timer = static_cast<Tq4_timer_obj *>(context);
    ++timer->m_users;
    timer->m_inside = MP_THREAD_GetCurrentId();
    long result;
    pthread_cleanup_push(Killed, timer);
    result = timer->Handle(*message);
    pthread_cleanup_pop(0);
    timer->LeaveHandler();
    return result;
}

void Tq4_timer_obj::Killed(void *timer) {
    Tq4_forget_killed_frames();
    static_cast<Tq4_timer_obj *>(timer)->LeaveHandler();
}

void Tq4_timer_obj::LeaveHandler() {
    unsigned long self = MP_THREAD_GetCurrentId();
    m_inside.compare_exchange_strong(self, 0);
    Leave();
}

void Tq4_timer_obj::Leave() {
    if (m_users.fetch_sub(1) == 1) Tq4_object_ops<Tq4_timer_obj>::Destroy(this, Delete_Tq4_timer_obj);
}

// The log may wait in the system.
static void tell_not_found(const char *format, const Tq4_id *id) {
    const Tq4_cancel_held held;
    const Tq4_id told = id ? *id : Tq4_id{};
    Tq4_debug_api->log(-1, format, told.h, told.l);
}

int Tq4_timer_obj::SetHere(const Tq4_timer_SetParams &params, Tq4_id *id) {
    const Tq4_kill_gate_shut gate;
    return m_wheel.Set(params, id);
}

int Tq4_timer_obj::ResetHere(const Tq4_id *id, unsigned long ms) {
    const Tq4_kill_gate_shut gate;
    if (m_wheel.Reset(id, ms)) return 1;
    tell_not_found("!!ResetTimer Error: [0x%08x:0x%08x] not found", id);
    return 0;
}

int Tq4_timer_obj::ClearHere(const Tq4_id *id) {
    const Tq4_kill_gate_shut gate;
    if (m_wheel.Clear(id)) return 1;
    tell_not_found("ClearTimer Error: [0x%08x:0x%08x] not found", id);
    return -1;
}

int Tq4_timer_obj::WatchHere(const Tq4_id *id, long clear, uint64_t *ms) {
    const Tq4_kill_gate_shut gate;
    if (m_wheel.StopWatch(id, clear != 0, ms)) return 1;
    tell_not_found("!!StopWatch Error: [0x%08x:0x%08x] not found", id);
    return 0;
}

// --- The table: the nine ways to set a timer are one ---

static int set_delta(Tq4_timer t, unsigned long count, unsigned long ms, Tq4_timer_OnTimer callback,
                     Tq4_timer_delta delta, Tq4_id *id, void *data, Tq4_timer_free free_data) {
    if (!t) return 0;
    return Tq4_record<Tq4_timer_obj>(t)->SetTimer({ms, count, callback, delta, data, free_data}, id);
}

static int set_repeat(Tq4_timer t, unsigned long count, unsigned long ms, Tq4_timer_OnTimer callback, Tq4_id *id,
                      void *data, Tq4_timer_free free_data) {
    return set_delta(t, count, ms, callback, nullptr, id, data, free_data);
}

static int set_once(Tq4_timer t, unsigned long ms, Tq4_timer_OnTimer callback, Tq4_id *id, void *data,
                    Tq4_timer_free free_data) {
    return set_delta(t, 1, ms, callback, nullptr, id, data, free_data);
}

// A short form: without the user data and its function, and, when the arguments end before it, without the id.
template <auto Whole, class... Args> static int without_data(Tq4_timer t, Args... args) {
    if constexpr (std::is_invocable_v<decltype(Whole), Tq4_timer, Args..., void *, Tq4_timer_free>)
        return Whole(t, args..., nullptr, nullptr);
    else
        return Whole(t, args..., nullptr, nullptr, nullptr);
}

const Tq4_timer_ Tq4_timer_itf = {
    .Start = Tq4_op<&Tq4_timer_obj::Start>,
    .Stop = Tq4_op<&Tq4_timer_obj::Stop>,
    .SetTimer = set_once,
    .SetRepeatTimer = set_repeat,
    .SetRepeatTimerDelta = set_delta,
    .ClearTimer = Tq4_op<&Tq4_timer_obj::ClearTimer>,
    .ResetTimer = Tq4_op<&Tq4_timer_obj::ResetTimer>,
    .StopWatch = Tq4_op<&Tq4_timer_obj::StopWatch>,
    .SetTimer0 = without_data<set_once>,
    .SetTimer1 = without_data<set_once>,
    .SetTimer2 = set_once,
    .SetRepeatTimer0 = without_data<set_repeat>,
    .SetRepeatTimer1 = without_data<set_repeat>,
    .SetRepeatTimer2 = set_repeat,
    .SetRepeatTimerDelta0 = without_data<set_delta>,
    .SetRepeatTimerDelta1 = without_data<set_delta>,
    .SetRepeatTimerDelta2 = set_delta,
};
TQ4_MODULE(timer)
