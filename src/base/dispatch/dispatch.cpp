// dispatch: starting, stopping and handing over.
#include "base/dispatch/dispatch.hpp"

#include "thread/cancel.hpp"

namespace {

constexpr unsigned long most_posted = 4096;  // a Post that finds more waiting is refused
constexpr unsigned long crowd = 4096;        // so many waiting that the consumer is to look at their number
constexpr unsigned long stop_wait_ms = 2000; // a handler gets so long before it is killed
constexpr int thread_has_ended = -1;         // as its priority

} // namespace

Tq4_dispatch_obj::Tq4_dispatch_obj(const void *)
    : m_consumer(new Tq4_dispatch_consumer(this)), name(Tq4_make_hooked<Tq4_string>(Tq4_cxx_support->new_string)) {}

Tq4_dispatch_obj::~Tq4_dispatch_obj() {
    if (m_working) Reap();
    m_consumer->Leave();
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
    Close(State::stopped);
    if (m_working && !IsInside()) Reap();
    return m_users.fetch_sub(1, std::memory_order_acq_rel) == 1;
}

void Tq4_dispatch_obj::Reset() {
    const Tq4_kill_gate_shut gate;
    Close(State::fresh);
    if (m_working && !IsInside()) Reap();
    (*name)->truncate(name.get(), 0);
}

void Tq4_dispatch_obj::Stop() {
    const Tq4_kill_gate_shut gate;
    if (!m_working) return;
    if (m_state == State::serving) Close(State::stopped);
    if (!IsInside()) Reap();
}

// On the thread of Start, which a stop does not wait for.
bool Tq4_dispatch_obj::IsInside() const { return m_working && IsSameThread(); }

// Ends what the consumer is there for: what waits is dropped, its senders get 0, and the next consumer begins empty.
void Tq4_dispatch_obj::Close(State state) {
    Tq4_message_queue dropped;
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
        m_task.MoveTo(dropped);
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
    closed->Leave();
}

// The end of a thread that was stopped. A request to quit may have come before the thread began: then it never serves,
// and leaves its consumer to us.
void Tq4_dispatch_obj::Reap() {
    Tq4_thread thread = m_working.get();
    (*thread)->WaitFor(thread, stop_wait_ms);
    if (!m_served->m_entered && (*thread)->GetPriority(thread) == thread_has_ended) {
        m_served->Leave();
        m_users.fetch_sub(1, std::memory_order_relaxed);
    }
    m_working.reset();
    std::exchange(m_served, nullptr)->Leave();
}

Tq4_thread Tq4_dispatch_obj::StartV(void *context, Tq4_msg_handler handler, const char *format, va_list args) {
    const Tq4_kill_gate_shut gate;
    if (m_working && m_state == State::serving) return m_working.get();
    if (!handler || m_consumer->m_current) return nullptr;
    if (m_working) Reap();
    (*name)->vSprintf(name.get(), format ? format : "", args);
    auto thread = Tq4_make<Tq4_thread>(Tq4_thread_oitf, (*name)->c_str(name.get()));
    if (!(*thread)->Init(thread.get(), Serve, m_consumer)) return nullptr;
    m_consumer->Use(); // for the thread
    m_users.fetch_add(1, std::memory_order_relaxed);
    m_consumer->Use();
    m_served = m_consumer;
    {
        const Tq4_brief_guard guard(m_lock);
        m_consumer->handler = handler;
        m_consumer->handler_obj = context;
        m_consumer->m_thread = thread.get();
        handler_thread = (*thread)->GetId(thread.get());
        Notify = nullptr;
        m_state = State::serving;
    }
    m_working = std::move(thread);
    (*m_working)->Resume(m_working.get());
    return m_working.get();
}

void Tq4_dispatch_obj::Start2(void *context, unsigned long thread_id, Tq4_dispatch_notify notify,
                              Tq4_msg_handler handler) {
    const Tq4_kill_gate_shut gate;
    if (!handler || (m_working && m_state == State::serving)) return;
    if (m_working) Reap();
    (*name)->Sprintf(name.get(), "%lu", thread_id);
    bool waiting;
    {
        const Tq4_brief_guard guard(m_lock);
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

Tq4_dispatch_obj::Queued Tq4_dispatch_obj::Queue(const Handed &handed, Place place, Tq4_reply *reply) {
    Tq4_dispatch_consumer &consumer = *m_consumer;
    Tq4_msg_obj &queued = place == Place::front ? m_task.PutFirst() : m_task.PutLast();
    queued.message = handed.message;
    queued.del_data = handed.del_data;
    queued.reply = reply;
    if (reply)
        m_senders.Append(&reply->node);
    else
        queued.CopyIds();
    if (place == Place::front) consumer.m_front.store(true, std::memory_order_relaxed);
    if (m_task.count() + m_left_seen >= crowd && !consumer.m_crowded.load(std::memory_order_relaxed)) {
        m_left_seen = consumer.m_out.left();
        if (m_task.count() + m_left_seen >= crowd) consumer.m_crowded.store(true, std::memory_order_relaxed);
    }
    const bool asleep = consumer.m_alarm.Ring(m_consumer_habit);
    return {asleep ? consumer.m_alarm.word() : nullptr, Notify, consumer.handler_obj};
}

// The consumer's own number is asked only where it matters: what was seen of it is at most too high.
bool Tq4_dispatch_obj::IsFull() {
    if (m_task.count() + m_left_seen <= most_posted) return false;
    m_left_seen = m_consumer->m_out.left();
    return m_task.count() + m_left_seen > most_posted;
}

long Tq4_dispatch_obj::Send(const Handed &handed, Place place) {
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
        else if (!stopped)
            queued = Queue(handed, place, &reply);
    }
    if (own) return own->m_thread || own->m_current ? HandleHere(*own, handed) : SendAsGuest(*own, handed);
    if (stopped) {
        handed.FreeParams();
        return 0;
    }
    queued.Tell();
    reply.m_alarm.Await(may_look, TQ4_ALL_ONES);
    return reply.m_ret;
}

long Tq4_dispatch_obj::Post(const Handed &handed, Place place) {
    const Tq4_kill_gate_shut gate;
    Queued queued{};
    bool full;
    {
        const Tq4_brief_guard guard(m_lock);
        full = IsFull();
        if (!full) queued = Queue(handed, place, nullptr);
    }
    if (full)
        handed.FreeParams();
    else
        queued.Tell();
    return !full;
}

long Tq4_dispatch_obj::Push(const Handed &handed, Place place) {
    const Tq4_kill_gate_shut gate;
    Queued queued;
    {
        const Tq4_brief_guard guard(m_lock);
        queued = Queue(handed, place, nullptr);
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
    const Tq4_dispatch_obj::Handed handed{{type, msg, submsg, sender, receiver, params}, free_params};
    if (d) return (Tq4_record<Tq4_dispatch_obj>(d)->*Method)(handed, place);
    handed.FreeParams();
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
