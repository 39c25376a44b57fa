// thread: one detached system thread that runs one function once.
//
// The record belongs to its owner and to the body, the part that runs on the new thread. The body's end is one step
// under m_lock: m_alive is cleared there, so whoever holds the lock and sees it set may send to the thread. After that
// the body does one thing more with the record: it sets the end event, or, when the object was deleted meanwhile
// (m_destroy), it frees it. So the owner frees a record only when m_alive is clear, and after the end event. When the
// thread is still there, as after a kill that it does not obey, the owner leaves the record to the body.
//
// A quit is a mark of its own, m_quit, beside m_isRunning. A quit writes m_quit and then m_isRunning; the start writes
// m_isRunning and then reads m_quit. All threads see these in one order, so a quit is seen by the start or undoes it.
//
// The body can be cancelled only while it runs the user's function, and there at any instruction. Its end is a
// cleanup handler, which runs however the function ends: return, kill or pthread_exit.
#include "tq4/thread.h"

#include <atomic>
#include <csignal>
#include <cstring>

#include "computed_once.hpp"
#include "identity.hpp"
#include "module.hpp"
#include "own.hpp"
#include "platform/multi_platform_pthread.hpp"
#include "thread/lock.hpp"
#include "tq4/debug.h"
#include "tq4/event.h"

namespace {

constexpr unsigned long delete_wait_ms = 2000; // how long Delete waits before it kills
constexpr unsigned long kill_wait_ms = 200;    // how long a killed thread may take to be gone before it is let alone
constexpr char delete_mark = 'Z';

void set(const Tq4_own<Tq4_event> &event) { (*event)->Set(event.get()); }
int wait(const Tq4_own<Tq4_event> &event, unsigned long ms) { return (*event)->Wait(event.get(), ms); }
long seconds_now() { return static_cast<long>(MP_THREAD_GetTickCount() / 1000); }

} // namespace

struct Tq4_thread_obj : Tq4_identity {
    Tq4_thread_func m_func = nullptr; // set by Init under m_lock before the body exists, then constant
    void *m_param = nullptr;          // likewise; borrowed
    Tq4_thread_State m_state TQ4_GUARDED_BY(m_lock) = Tq4_thread_invalid;
    Tq4_own<Tq4_event> m_cs;    // the start gate
    Tq4_own<Tq4_event> m_event; // set at the body's end
    unsigned long m_thread_id TQ4_GUARDED_BY(m_lock) = 0;
    MP_THREAD_handle m_handle TQ4_GUARDED_BY(m_lock) = 0;
    Tq4_own<Tq4_lock> m_lock;
    char m_thrname[128]; // constant
    uint32_t m_exitStatus TQ4_GUARDED_BY(m_lock) = 0;
    std::atomic<bool> m_isRunning = false;
    char m_destroy TQ4_GUARDED_BY(m_lock) = 0;
    std::atomic<long> m_lastActiveTime;

    std::atomic<bool> m_quit = false;                // somebody asked to quit since Init
    bool m_alive TQ4_GUARDED_BY(m_lock) = false;     // the body has not ended: the system's handle is good
    bool m_killed TQ4_GUARDED_BY(m_lock) = false;    // m_exitStatus is the killer's
    bool m_announced TQ4_GUARDED_BY(m_lock) = false; // the end event is set, or is about to be
    Tq4_kill_gate m_gate;

    explicit Tq4_thread_obj(const char *name);
    void Duplicate(const Tq4_thread_obj &source) { std::memcpy(m_thrname, source.m_thrname, sizeof m_thrname); }
    bool Retire();

    unsigned long Init(Tq4_thread_func func, void *param);
    void InitWithStack(Tq4_thread_func, void *, void *, unsigned long) {}
    unsigned long GetCurrentId() { return MP_THREAD_GetCurrentId(); }
    unsigned long GetId();
    unsigned long GetHandle();
    unsigned long Suspend();
    unsigned long Resume();
    int WaitFor(unsigned long milliseconds);
    short Kill(unsigned long code);
    short IsRunning() const { return m_isRunning; }
    int GetPriority();
    int SetPriority(int priority);
    int GetExitCode(uint32_t *exit_code);
    unsigned long LastActiveTime() const { return static_cast<unsigned long>(m_lastActiveTime); }
    void NotifyQuit();

private:
    static void *Body(void *thread);
    bool Begin();
    void Run();
    static void NoLongerKillable();
    static void End(void *thread);
    bool LetGo() TQ4_REQUIRES(m_lock);
    void Cancel(unsigned long code) TQ4_REQUIRES(m_lock);
    void CancelIfAlive();
    void AwaitKilled();
    bool IsAlive();
    bool IsSelf() const;
};

static void Delete_Tq4_thread_obj(Tq4_thread_obj *record);

Tq4_thread_obj::Tq4_thread_obj(const char *name)
    : m_cs(Tq4_make<Tq4_event>(Tq4_event_oitf)), m_event(Tq4_make<Tq4_event>(Tq4_event_oitf)),
      m_lock(Tq4_make<Tq4_lock>(Tq4_lock_oitf)), m_lastActiveTime(seconds_now()) {
    if (!name) name = "anonymous";
    const std::size_t length = strnlen(name, sizeof m_thrname - 1);
    std::memcpy(m_thrname, name, length);
    std::memset(m_thrname + length, 0, sizeof m_thrname - length);
}

bool Tq4_thread_obj::IsSelf() const { return Tq4_this_thread->runs_here == this; }

// --- The owner's side ---

// A quit signal that arrives on one of our threads ends it, at once or as soon as it may be killed. Anywhere else it
// has its default effect.
static void on_quit_signal(int signal) {
    if (Tq4_this_thread->runs_here) {
        const bool may_be_sent = !Tq4_this_thread->kill_gate || Tq4_this_thread->kill_gate->Ask();
        if (may_be_sent && Tq4_this_thread->killable) MP_THREAD_OnSIGQUIT(signal);
        if (may_be_sent) MP_THREAD_KillThread(MP_THREAD_GetCurrentId(), 0);
        return;
    }
    MP_THREAD_Signal(signal, SIG_DFL);
    raise(signal);
}

static void install_quit_signal_once() {
    Tq4_computed_once([] {
        if (MP_THREAD_SignalIsDefault(SIGQUIT)) MP_THREAD_Signal(SIGQUIT, on_quit_signal);
        return true;
    });
}

unsigned long Tq4_thread_obj::Init(Tq4_thread_func func, void *param) {
    Tq4_guard guard(m_lock);
    if (m_func) return reinterpret_cast<unsigned long>(m_func);
    if (!func) return 0;
    install_quit_signal_once();
    m_func = func;
    m_param = param;
    m_quit = false;
    m_isRunning = false;
    m_alive = MP_THREAD_Create(Body, this, 1, &m_handle, &m_thread_id);
    m_state = m_alive ? Tq4_thread_Stop_State : Tq4_thread_invalid;
    if (!m_alive) m_func = nullptr;
    return m_alive;
}

unsigned long Tq4_thread_obj::GetId() {
    Tq4_guard guard(m_lock);
    return m_thread_id;
}

unsigned long Tq4_thread_obj::GetHandle() {
    Tq4_guard guard(m_lock);
    return m_handle;
}

unsigned long Tq4_thread_obj::Suspend() {
    Tq4_guard guard(m_lock);
    if (m_state != Tq4_thread_Running_State || !m_alive) return 0;
    m_state = Tq4_thread_Suspend_State;
    MP_THREAD_SuspendThread(m_handle);
    return 1;
}

unsigned long Tq4_thread_obj::Resume() {
    Tq4_guard guard(m_lock);
    return LetGo();
}

// Lets a thread go on that waits for its start or is suspended; false when there is none.
bool Tq4_thread_obj::LetGo() {
    if (m_state == Tq4_thread_Suspend_State) {
        if (m_alive) MP_THREAD_ResumeThread(m_handle);
    } else if (m_state == Tq4_thread_Stop_State) {
        set(m_cs);
    } else {
        return false;
    }
    m_state = Tq4_thread_Running_State;
    return true;
}

void Tq4_thread_obj::NotifyQuit() {
    m_quit = true;
    m_isRunning = false;
}

int Tq4_thread_obj::WaitFor(unsigned long milliseconds) {
    NotifyQuit();
    if (IsSelf()) return 0;
    {
        Tq4_guard guard(m_lock);
        if (m_state == Tq4_thread_invalid) return 0;
        LetGo();
    }
    if (!wait(m_event, milliseconds)) {
        CancelIfAlive();
        AwaitKilled();
    }
    Tq4_guard guard(m_lock);
    m_state = Tq4_thread_invalid;
    return 0;
}

void Tq4_thread_obj::CancelIfAlive() {
    Tq4_guard guard(m_lock);
    if (m_alive) Cancel(0);
}

void Tq4_thread_obj::Cancel(unsigned long code) {
    m_killed = true;
    m_exitStatus = static_cast<uint32_t>(code);
    if (m_alive && m_gate.Ask()) MP_THREAD_KillThread(m_handle, code);
}

short Tq4_thread_obj::Kill(unsigned long code) {
    Tq4_guard guard(m_lock);
    if (m_state == Tq4_thread_invalid) return 1;
    m_state = Tq4_thread_invalid;
    NotifyQuit();
    set(m_cs);      // a thread that was not started sees the quit at its start
    if (IsSelf()) { // it may never come back here, so others learn of its end now
        m_announced = true;
        set(m_event);
    }
    Cancel(code); // of itself: takes effect when the guard is gone
    return 1;
}

// Gives a killed thread time to be gone, so that what its function used can be freed.
void Tq4_thread_obj::AwaitKilled() {
    if (IsAlive()) wait(m_event, kill_wait_ms);
}

bool Tq4_thread_obj::IsAlive() {
    Tq4_guard guard(m_lock);
    return m_alive;
}

// Called by Delete: true when the record may be freed at once, false when the body will free it.
bool Tq4_thread_obj::Retire() {
    WaitFor(delete_wait_ms); // from inside, only the quit
    if (!IsSelf()) AwaitKilled();
    {
        Tq4_guard guard(m_lock);
        if (m_alive) {
            m_destroy = delete_mark;
            return false;
        }
        if (!m_announced) return true; // there never was a body
    }
    return wait(m_event, TQ4_ALL_ONES); // the body is about to set it, as the last thing it does here
}

int Tq4_thread_obj::GetPriority() {
    Tq4_guard guard(m_lock);
    return m_alive ? MP_THREAD_GetPriority(m_handle) : -1;
}

int Tq4_thread_obj::SetPriority(int priority) {
    Tq4_guard guard(m_lock);
    return m_alive ? MP_THREAD_SetPriority(m_handle, priority) : 0;
}

int Tq4_thread_obj::GetExitCode(uint32_t *exit_code) {
    Tq4_guard guard(m_lock);
    if (m_state != Tq4_thread_invalid || !exit_code) return 0;
    *exit_code = m_exitStatus;
    return 1;
}

// --- The body, on a thread that the platform has detached ---

void *Tq4_thread_obj::Body(void *thread) {
    MP_THREAD_ClearCancel();
    auto *self = static_cast<Tq4_thread_obj *>(thread);
    Tq4_own_thread_record()->runs_here = self;
    pthread_cleanup_push(End, self);
    if (self->Begin()) self->Run();
    pthread_cleanup_pop(1);
    return nullptr;
}

// Waits for the start; false when a quit came before it. Whoever opened the gate has set the state.
bool Tq4_thread_obj::Begin() {
    wait(m_cs, TQ4_ALL_ONES);
    Tq4_guard guard(m_lock);
    m_lastActiveTime = seconds_now();
    m_isRunning = true;
    if (m_quit) m_isRunning = false;
    return m_isRunning;
}

void Tq4_thread_obj::NoLongerKillable() {
    MP_THREAD_ClearCancel();
    Tq4_this_thread->killable = false;
    Tq4_this_thread->kill_gate = nullptr;
}

void Tq4_thread_obj::Run() {
    const auto id = static_cast<unsigned>(MP_THREAD_GetCurrentId());
    const int lwp = MP_THREAD_GetLWP();
    // "thead" and the three blanks are deliberate: operators' filters look for them.
    Tq4_debug_api->Printf(0, "thead[%x:%d   %s] begin \n", id, lwp, m_thrname);
    Tq4_this_thread->kill_gate = &m_gate;
    Tq4_this_thread->killable = true;
    MP_THREAD_SetCancel();
    const unsigned long result = m_func(m_param);
    NoLongerKillable();
    {
        Tq4_guard guard(m_lock);
        if (!m_killed) m_exitStatus = static_cast<uint32_t>(result);
    }
    Tq4_debug_api->Printf(0, "thead[%x:%d   %s] end \n", id, lwp, m_thrname);
}

// The end of the body, however it came. What follows the unlocking is the last that it does with the record.
void Tq4_thread_obj::End(void *thread) {
    Tq4_forget_killed_frames();
    NoLongerKillable();
    auto *self = static_cast<Tq4_thread_obj *>(thread);
    Tq4_event last = nullptr;
    bool abandoned;
    {
        Tq4_guard guard(self->m_lock);
        self->m_alive = false;
        abandoned = self->m_destroy == delete_mark;
        if (!self->m_announced) last = self->m_event.get();
        self->m_announced = true;
    }
    Tq4_this_thread->runs_here = nullptr;
    if (abandoned)
        Tq4_object_ops<Tq4_thread_obj>::Destroy(self, Delete_Tq4_thread_obj);
    else if (last)
        (*last)->Set(last);
}

// --- The table ---

static const char *Tq4_thread_itf_Name(Tq4_thread thread) {
    return thread ? Tq4_record<Tq4_thread_obj>(thread)->m_thrname : "";
}

const Tq4_thread_ Tq4_thread_itf = {
    .Init = Tq4_op<&Tq4_thread_obj::Init>,
    .InitWithStack = Tq4_op<&Tq4_thread_obj::InitWithStack>,
    .GetCurrentId = Tq4_op<&Tq4_thread_obj::GetCurrentId>,
    .GetId = Tq4_op<&Tq4_thread_obj::GetId>,
    .GetHandle = Tq4_op<&Tq4_thread_obj::GetHandle>,
    .Suspend = Tq4_op<&Tq4_thread_obj::Suspend>,
    .Resume = Tq4_op<&Tq4_thread_obj::Resume>,
    .WaitFor = Tq4_op<&Tq4_thread_obj::WaitFor>,
    .Kill = Tq4_op<&Tq4_thread_obj::Kill>,
    .IsRunning = Tq4_op<&Tq4_thread_obj::IsRunning>,
    .GetPriority = Tq4_op<&Tq4_thread_obj::GetPriority>,
    .SetPriority = Tq4_op<&Tq4_thread_obj::SetPriority>,
    .GetExitCode = Tq4_op<&Tq4_thread_obj::GetExitCode>,
    .Name = Tq4_thread_itf_Name,
    .LastActiveTime = Tq4_op<&Tq4_thread_obj::LastActiveTime>,
    .NotifyQuit = Tq4_op<&Tq4_thread_obj::NotifyQuit>,
};
TQ4_MODULE(thread)
