// cancel: the marks of a thread that may be killed. Each thread sets them for itself.
#include "thread/cancel.hpp"

constinit thread_local bool Tq4_killable = false;
constinit thread_local Tq4_kill_gate *Tq4_own_kill_gate = nullptr;

// It takes effect here; or, when the user has disabled it, or the thread lets itself be taken only where it waits,
// later.
void Tq4_obey_kill() { MP_THREAD_KillThread(MP_THREAD_GetCurrentId(), 0); }

int Tq4_hold_off_kill() {
    Tq4_shut_kill_gate();
    return MP_THREAD_HoldCancel();
}

void Tq4_admit_kill(int before) {
    MP_THREAD_ReleaseCancel(before);
    Tq4_open_kill_gate();
}
