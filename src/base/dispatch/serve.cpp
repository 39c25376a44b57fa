// serve: the handler's thread takes messages and has them handled, one by one.
#include <string>

#include "base/dispatch/dispatch.hpp"
#include "thread/cancel.hpp"
#include "tq4/debug.h"

namespace {

constexpr unsigned long busy_step = 4096;     // a multiple of it waiting is logged
constexpr unsigned long look_again_ms = 1000; // how often an idle thread looks whether it is to go on

// The time that a thread spends with a consumer and its dispatcher, which live until its end. A kill ends it too.
struct Stay {
    Tq4_dispatch_consumer *const consumer;
    Tq4_dispatch_obj *const dispatch = consumer->m_owner;
    const Tq4_dispatch_frame *const outside = consumer->m_current;

    // Called by a user, or while there is one for certain.
    void Begin() const {
        consumer->Use();
        dispatch->m_users.fetch_add(1, std::memory_order_relaxed);
    }
    // True: the dispatcher is gone.
    bool End() const {
        consumer->Leave();
        return dispatch->Leave();
    }
    bool EndServing() const {
        unsigned long self = MP_THREAD_GetCurrentId();
        dispatch->handler_thread.compare_exchange_strong(self, 0);
        return End();
    }

    static void Killed(void *stay) { Clear(stay)->End(); }
    static void KilledServing(void *stay) { Clear(stay)->EndServing(); }
    static const Stay *Clear(void *stay) {
        Tq4_outlive_kill();
        auto *ended = static_cast<const Stay *>(stay);
        ended->consumer->Abandon(ended->outside);
        return ended;
    }
};

} // namespace

// The users were counted when the thread was made.
unsigned long Tq4_dispatch_obj::Serve(void *param) {
    auto *consumer = static_cast<Tq4_dispatch_consumer *>(param);
    const Tq4_kill_gate_shut gate;
    Stay stay{consumer};
    consumer->m_entered = true;
    const Tq4_thread thread = consumer->m_thread;
    pthread_cleanup_push(Stay::KilledServing, &stay);
    while ((*thread)->IsRunning(thread) && stay.dispatch->TakeAndHandle(*consumer, look_again_ms) >= 0) continue;
    if (consumer->m_stopped) consumer->m_out.Drop();
    pthread_cleanup_pop(0);
    stay.EndServing();
    return 0;
}

uint64_t Tq4_dispatch_obj::Waiting() {
    const Tq4_brief_guard guard(m_lock);
    return m_task.count() + m_consumer->m_out.left();
}

// A thread of Start takes for itself alone; inside a handler a stay is under way already.
int Tq4_dispatch_obj::try_once(unsigned long milliseconds) {
    const Tq4_kill_gate_shut gate;
    Tq4_dispatch_consumer *consumer;
    {
        const Tq4_brief_guard guard(m_lock);
        if (m_state != State::serving) return m_state == State::stopped ? -1 : 0;
        if (m_consumer->m_thread && !IsSameThread()) return 0;
        consumer = m_consumer;
    }
    const bool within_stay = consumer->m_thread || consumer->m_current;
    return within_stay ? TakeAndHandle(*consumer, milliseconds) : TryOnceAsGuest(*consumer, milliseconds);
}

[[gnu::noinline]] int Tq4_dispatch_obj::TryOnceAsGuest(Tq4_dispatch_consumer &consumer, unsigned long milliseconds) {
    Stay stay{&consumer};
    stay.Begin();
    int result;
    pthread_cleanup_push(Stay::Killed, &stay);
    result = TakeAndHandle(consumer, milliseconds);
    pthread_cleanup_pop(0);
    return stay.End() ? -1 : result;
}

[[gnu::noinline]] long Tq4_dispatch_obj::SendAsGuest(Tq4_dispatch_consumer &consumer, const Tq4_waiting_msg &message) {
    Stay stay{&consumer};
    stay.Begin();
    long result;
    pthread_cleanup_push(Stay::Killed, &stay);
    result = HandleHere(consumer, message);
    pthread_cleanup_pop(0);
    stay.End();
    return result;
}

int Tq4_dispatch_obj::TakeAndHandle(Tq4_dispatch_consumer &consumer, unsigned long milliseconds) {
    Tq4_waiting_msg message;
    Taken taken = Take(consumer, message);
    if (taken == Taken::nothing && milliseconds) taken = Await(consumer, message, milliseconds);
    if (taken != Taken::message) return taken == Taken::nothing ? 0 : -1;
    consumer.Enter(message);
    if (consumer.MayWait(busy_step)) TellIfBusy(consumer);
    consumer.Handle();
    return 1;
}

long Tq4_dispatch_obj::HandleHere(Tq4_dispatch_consumer &consumer, const Tq4_waiting_msg &message) {
    consumer.Enter(message);
    return consumer.Handle();
}

Tq4_dispatch_obj::Taken Tq4_dispatch_obj::Await(Tq4_dispatch_consumer &consumer, Tq4_waiting_msg &to,
                                                unsigned long milliseconds) {
    const bool may_look = m_consumer_habit.pays();
    if (!may_look) consumer.m_stream = 0;
    if (!consumer.m_alarm.Await(may_look, milliseconds)) return Taken::nothing;
    return Take(consumer, to);
}

// The usual cases need no lock: nothing came since the alarm was armed; or the batch has a message that nobody awaits
// the answer of.
Tq4_dispatch_obj::Taken Tq4_dispatch_obj::Take(Tq4_dispatch_consumer &consumer, Tq4_waiting_msg &to) {
    if (consumer.m_stopped.load(std::memory_order_relaxed)) return Taken::stopped;
    const bool batch = consumer.m_out.left() != 0;
    if (!batch && !consumer.m_alarm.rung()) return Taken::nothing;
    if (!batch) consumer.GatherInStream();
    if (!batch || consumer.m_front.load(std::memory_order_relaxed)) return TakeLocked(consumer, to);
    consumer.m_out.Take(to);
    return to.reply ? Claim(consumer, to) : Taken::message;
}

Tq4_dispatch_obj::Taken Tq4_dispatch_obj::TakeLocked(Tq4_dispatch_consumer &consumer, Tq4_waiting_msg &to) {
    const Tq4_brief_guard guard(m_lock);
    if (consumer.m_stopped.load(std::memory_order_relaxed)) return Taken::stopped;
    if (m_task.has_front()) {
        m_task.TakeFirst(to);
        consumer.m_front.store(m_task.has_front(), std::memory_order_relaxed);
    } else {
        if (consumer.m_out.left() == 0) m_task.TakeAll(consumer.m_out);
        m_left_seen = consumer.m_out.left();
        if (m_left_seen == 0) {
            consumer.m_alarm.Arm();
            return Taken::nothing;
        }
        consumer.m_out.Take(to);
        consumer.m_stream = to.reply ? 0 : consumer.m_stream + 1;
    }
    NoteBehind(consumer);
    if (to.reply) m_senders.Unlink(&to.reply->node);
    return Taken::message;
}

void Tq4_dispatch_obj::NoteBehind(Tq4_dispatch_consumer &consumer) {
    consumer.m_behind = m_task.count();
    consumer.m_grown.store(false, std::memory_order_relaxed);
    m_tell_at = consumer.m_behind + Tq4_dispatch_consumer::allowance;
}

// The sender of a message from the batch: a stop may have sent it away meanwhile.
Tq4_dispatch_obj::Taken Tq4_dispatch_obj::Claim(Tq4_dispatch_consumer &consumer, Tq4_waiting_msg &message) {
    {
        const Tq4_brief_guard guard(m_lock);
        if (!consumer.m_stopped.load(std::memory_order_relaxed)) {
            m_senders.Unlink(&message.reply->node);
            return Taken::message;
        }
    }
    message.FreeParams();
    return Taken::stopped;
}

// The name is copied: a thread that outlasts its stop in the log must not read that of the next start.
void Tq4_dispatch_obj::TellIfBusy(Tq4_dispatch_consumer &consumer) {
    std::string named;
    uint64_t waiting;
    {
        const Tq4_brief_guard guard(m_lock);
        if (consumer.m_stopped.load(std::memory_order_relaxed)) return;
        NoteBehind(consumer);
        waiting = consumer.m_behind + consumer.m_out.left();
        if (waiting == 0 || waiting % busy_step != 0) return;
        named = (*name)->c_str(name.get());
    }
    const Tq4_cancel_held held; // the log may wait in the system
    Tq4_debug_api->log(0, "%s busy queue=%d\n", named.c_str(), static_cast<int>(waiting));
}
