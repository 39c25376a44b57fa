// cancel: the marks of a thread that may be killed. Each thread sets them for itself.
#include "thread/cancel.hpp"

// A kill that was asked for takes effect here; or, when the user has disabled it, or the thread lets itself be taken
// only where it waits, later.
static void obey() { MP_THREAD_KillThread(MP_THREAD_GetCurrentId(), 0); }

int Tq4_hold_off_kill() {
    if (Tq4_kill_gate *gate = Tq4_this_thread->kill_gate) {
        const bool first = gate->holds.fetch_add(1) == 0;
        if (first && Tq4_this_thread->killable && gate->asked) obey(); // the kill was sent: nothing is held yet
    }
    return MP_THREAD_HoldCancel();
}

void Tq4_admit_kill(int before) {
    MP_THREAD_ReleaseCancel(before);
    Tq4_kill_gate *gate = Tq4_this_thread->kill_gate;
    if (gate && gate->holds.fetch_sub(1) == 1 && gate->asked) obey();
}
