// dispatch: starting, stopping and handing over.
#include "base/dispatch/dispatch.hpp"

#include "platform/multi_platform_system.hpp"
#include "thread/cancel.hpp"

namespace {

constexpr unsigned long most_posted = 4096;  // a Post that finds more waiting is refused
constexpr unsigned long stop_wait_ms = 2000; // how long a handler may take before it is killed
constexpr unsigned begin_wait_ms = 200;      // how long a thread may take to end that was killed before it began
constexpr int thread_has_ended = -1;         // as its priority

} // namespace

Tq4_dispatch_obj::Tq4_dispatch_obj(const void *)
    : m_consumer(new Tq4_dispatch_consumer(this)), name(Tq4_make_hooked<Tq4_string>(Tq4_cxx_support->new_string)) {}

Tq4_dispatch_obj::~Tq4_dispatch_obj() {
    Leavings leavings;
    if (m_working) Reap(leavings);
    leavings.closed = m_consumer;
}

// --- Starting and stopping ---

static void Delete_Tq4_dispatch_obj(Tq4_dispatch_obj *record);

bool Tq4_dispatch_obj::Leave() {
    if (m_users.fetch_sub(1, std::memory_order_acq_rel) != 1) return false;
    Tq4_object_ops<Tq4_dispatch_obj>::Destroy(this, Delete_Tq4_dispatch_obj);
    return true;
}

// Called by Delete: true when the record may be freed at once, false when its last user will free it.
bool Tq4_dispatch_obj::Retire() {
    const Tq4_kill_gate_shut gate;
    {
        Leavings leavings;
        Close(State::stopped, leavings);
        if (m_working && !IsInside()) Reap(leavings);
    }
    return m_users.fetch_sub(1, std::memory_order_acq_rel) == 1;
}

void Tq4_dispatch_obj::Reset() {
    const Tq4_kill_gate_shut gate;
    Leavings leavings;
    Close(State::fresh, leavings);
    if (m_working && !IsInside()) Reap(leavings);
    const Tq4_brief_guard guard(m_lock);
    (*name)->truncate(name.get(), 0);
}

void Tq4_dispatch_obj::Stop() {
    const Tq4_kill_gate_shut gate;
    if (!m_working) return;
    Leavings leavings;
    if (m_state == State::serving) Close(State::stopped, leavings);
    if (!IsInside()) Reap(leavings);
}

// On the thread of Start, which a stop does not wait for.
bool Tq4_dispatch_obj::IsInside() const { return m_working && IsSameThread(); }

// Ends what the consumer is there for: what waits is dropped, its senders get 0, and the next consumer begins empty.
void Tq4_dispatch_obj::Close(State state, Leavings &leavings) {
    Tq4_list senders;
    auto *next = new Tq4_dispatch_consumer(this), *closed = m_consumer;
    bool asleep;
    {
        const Tq4_brief_guard guard(m_lock);
        closed->m_stopped.store(true, std::memory_order_relaxed);
        asleep = closed->m_alarm.Ring(m_consumer_habit);
        m_consumer = next;
        m_state = state;
        m_left_seen = 0;
        m_tell_at = Tq4_dispatch_consumer::allowance;
        m_task.MoveTo(leavings.messages);
        senders.TakeAll(m_senders);
        Notify = nullptr;
        if (!closed->m_thread) handler_thread = 0;
    }
    if (asleep) MP_THREAD_WakeSleeper(closed->m_alarm.word());
    while (senders.m_count) {
        Tq4_list_node *first = senders.first();
        senders.Unlink(first);
        Tq4_reply::of(first)->Answer(0);
    }
    leavings.closed = closed;
}

// The end of a thread that was stopped. A kill or a request to quit may have come before the thread began: then it
// never serves, and leaves its consumer to us. It is sure not to only when it has ended.
void Tq4_dispatch_obj::Reap(Leavings &leavings) {
    Tq4_thread thread = m_working.get();
    (*thread)->WaitFor(thread, stop_wait_ms);
    const auto ended = [thread] { return (*thread)->GetPriority(thread) == thread_has_ended; };
    for (unsigned ms = 0; ms < begin_wait_ms && !m_served->m_entered && !ended(); ++ms) MP_Sleep(1);
    if (ended() && !m_served->m_entered) {
        m_served->Leave();
        m_users.fetch_sub(1, std::memory_order_relaxed);
    }
    m_working.reset();
    leavings.served = std::exchange(m_served, nullptr);
}

Tq4_thread Tq4_dispatch_obj::StartV(void *context, Tq4_msg_handler handler, const char *format, va_list args) {
    const Tq4_kill_gate_shut gate;
    if (m_working && m_state == State::serving) return m_working.get();
    if (!handler || m_consumer->m_current) return nullptr;
    Leavings leavings;
    if (m_working) Reap(leavings);
    auto given = Tq4_make_hooked<Tq4_string>(Tq4_cxx_support->new_string);
    (*given)->vSprintf(given.get(), format ? format : "", args);
    auto made = Tq4_make<Tq4_thread>(Tq4_thread_oitf, (*given)->c_str(given.get()));
    const Tq4_thread thread = made.get();
    if (!(*thread)->Init(thread, Serve, m_consumer)) return nullptr;
    m_consumer->Use(); // for the thread
    m_users.fetch_add(1, std::memory_order_relaxed);
    m_consumer->Use();
    m_served = m_consumer;
    {
        const Tq4_brief_guard guard(m_lock);
        name.swap(given);
        m_consumer->handler = handler;
        m_consumer->handler_obj = context;
        m_consumer->m_thread = thread;
        handler_thread = (*thread)->GetId(thread);
        Notify = nullptr;
        m_state = State::serving;
    }
    m_working = std::move(made);
    (*thread)->Resume(thread); // from here on its handler may have deleted us
    return thread;
}

void Tq4_dispatch_obj::Start2(void *context, unsigned long thread_id, Tq4_dispatch_notify notify,
                              Tq4_msg_handler handler) {
    const Tq4_kill_gate_shut gate;
    if (!handler || (m_working && m_state == State::serving)) return;
    Leavings leavings;
    if (m_working) Reap(leavings);
    auto given = Tq4_make_hooked<Tq4_string>(Tq4_cxx_support->new_string);
    (*given)->Sprintf(given.get(), "%lu", thread_id);
    bool waiting;
    {
        const Tq4_brief_guard guard(m_lock);
        name.swap(given);
        m_consumer->handler = handler;
        m_consumer->handler_obj = context;
        handler_thread = thread_id;
        Notify = notify;
        m_state = State::serving;
        waiting = m_task.count() + m_consumer->m_out.left() != 0;
    }
    if (waiting && notify) notify(context);
}

// --- Handing over ---

int Tq4_dispatch_obj::IsSameThread() const {
    return handler_thread.load(std::memory_order_relaxed) == MP_THREAD_GetCurrentId();
}

void Tq4_dispatch_obj::Queued::Tell() const {
    if (sleeper) MP_THREAD_WakeSleeper(sleeper);
    if (notify) notify(context);
}

Tq4_dispatch_obj::Queued Tq4_dispatch_obj::Queue(const Tq4_waiting_msg &message, Place place) {
    Tq4_dispatch_consumer &consumer = *m_consumer;
    place == Place::front ? m_task.PutFirst(message) : m_task.PutLast(message);
    if (message.reply) m_senders.Append(&message.reply->node);
    if (place == Place::front) consumer.m_front.store(true, std::memory_order_relaxed);
    if (m_task.count() >= m_tell_at && !consumer.m_grown.load(std::memory_order_relaxed))
        consumer.m_grown.store(true, std::memory_order_relaxed);
    const bool asleep = consumer.m_alarm.Ring(m_consumer_habit);
    return {asleep ? consumer.m_alarm.word() : nullptr, Notify, consumer.handler_obj};
}

// The consumer's own number is asked only where it matters: what was seen of it is at most too high.
bool Tq4_dispatch_obj::IsFull() {
    if (m_task.count() + m_left_seen <= most_posted) return false;
    m_left_seen = m_consumer->m_out.left();
    return m_task.count() + m_left_seen > most_posted;
}

long Tq4_dispatch_obj::Send(Tq4_waiting_msg &message, Place place) {
    const Tq4_kill_gate_shut gate;
    const bool may_look = m_sender_habit.pays(); // later this may be gone
    Tq4_reply reply(m_sender_habit);
    Queued queued{};
    Tq4_dispatch_consumer *own = nullptr;
    bool stopped;
    {
        const Tq4_brief_guard guard(m_lock);
        stopped = m_state == State::stopped;
        if (!stopped && m_state == State::serving && IsSameThread())
            own = m_consumer;
        else if (!stopped) {
            message.reply = &reply;
            queued = Queue(message, place);
        }
    }
    if (own) return own->m_thread || own->m_current ? HandleHere(*own, message) : SendAsGuest(*own, message);
    if (stopped) {
        message.FreeParams();
        return 0;
    }
    queued.Tell();
    reply.m_alarm.Await(may_look, TQ4_ALL_ONES);
    return reply.m_ret;
}

long Tq4_dispatch_obj::Post(const Tq4_waiting_msg &message, Place place) {
    const Tq4_kill_gate_shut gate;
    Queued queued{};
    bool full;
    {
        const Tq4_brief_guard guard(m_lock);
        full = IsFull();
        if (!full) queued = Queue(message, place);
    }
    if (full)
        message.FreeParams();
    else
        queued.Tell();
    return !full;
}

long Tq4_dispatch_obj::Push(const Tq4_waiting_msg &message, Place place) {
    const Tq4_kill_gate_shut gate;
    Queued queued;
    {
        const Tq4_brief_guard guard(m_lock);
        queued = Queue(message, place);
    }
    queued.Tell();
    return 1;
}

// --- The table ---

static Tq4_thread Tq4_dispatch_itf_StartV(Tq4_dispatch d, void *context, Tq4_msg_handler handler, const char *format,
                                          va_list args) {
    return d ? Tq4_record<Tq4_dispatch_obj>(d)->StartV(context, handler, format, args) : nullptr;
}

static Tq4_thread Tq4_dispatch_itf_Start(Tq4_dispatch d, void *context, Tq4_msg_handler handler, const char *format,
                                         ...) {
    va_list args;
    va_start(args, format);
    Tq4_thread thread = Tq4_dispatch_itf_StartV(d, context, handler, format, args);
    va_end(args);
    return thread;
}

// The six that hand over: how, with which type, where to.
template <auto Method, Tq4_msg_type type, Tq4_dispatch_obj::Place place>
static long hand_over(Tq4_dispatch d, Tq4_id *sender, Tq4_id *receiver, unsigned long msg, long submsg, void *params,
                      Tq4_msg_free free_params) {
    Tq4_waiting_msg message{type,
                            msg,
                            submsg,
                            params,
                            free_params,
                            Tq4_waiting_msg::party(type, sender),
                            Tq4_waiting_msg::party(type, receiver),
                            nullptr};
    if (d) return (Tq4_record<Tq4_dispatch_obj>(d)->*Method)(message, place);
    message.FreeParams();
    return 0;
}

using Tq4_place = Tq4_dispatch_obj::Place;

const Tq4_dispatch_ Tq4_dispatch_itf = {
    .Start = Tq4_dispatch_itf_Start,
    .StartV = Tq4_dispatch_itf_StartV,
    .Start2 = Tq4_op<&Tq4_dispatch_obj::Start2>,
    .Stop = Tq4_op<&Tq4_dispatch_obj::Stop>,
    .Send = hand_over<&Tq4_dispatch_obj::Send, Tq4_msg_type_send, Tq4_place::back>,
    .Post = hand_over<&Tq4_dispatch_obj::Post, Tq4_msg_type_post, Tq4_place::back>,
    .Push = hand_over<&Tq4_dispatch_obj::Push, Tq4_msg_type_push, Tq4_place::back>,
    .try_once = Tq4_op<&Tq4_dispatch_obj::try_once>,
    .SendFirst = hand_over<&Tq4_dispatch_obj::Send, Tq4_msg_type_send, Tq4_place::front>,
    .PostFirst = hand_over<&Tq4_dispatch_obj::Post, Tq4_msg_type_post, Tq4_place::front>,
    .PushFirst = hand_over<&Tq4_dispatch_obj::Push, Tq4_msg_type_push, Tq4_place::front>,
    .IsSameThread = Tq4_op<&Tq4_dispatch_obj::IsSameThread>,
};
TQ4_MODULE(dispatch)
