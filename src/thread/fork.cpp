// fork: the list of members and its lock, which is held from before a fork until after it. A kill of the thread that
// forks waits as long.
#include "thread/fork.hpp"

#include <mutex>

#include "thread/cancel.hpp"

namespace {

constinit std::mutex lock;
constinit Tq4_fork_member *members = nullptr; // borrowed; under lock
constinit int kill_before = 0;                // under lock, during a fork

} // namespace

void Tq4_fork_tell_all(Tq4_fork_moment moment) {
    for (Tq4_fork_member *each = members; each; each = each->m_next) each->m_at_fork(each->m_owner, moment);
}

namespace {

void before_fork() {
    const int before = Tq4_hold_off_kill();
    lock.lock();
    kill_before = before;
    Tq4_fork_tell_all(Tq4_fork_moment::before);
}

template <Tq4_fork_moment Moment> void after_fork() {
    Tq4_fork_tell_all(Moment);
    const int before = kill_before;
    lock.unlock();
    Tq4_admit_kill(before);
}

} // namespace

// When the library is loaded: a thread that registered later would itself meet forks on the way.
[[maybe_unused]] const int called =
    MP_THREAD_AtFork(before_fork, after_fork<Tq4_fork_moment::in_parent>, after_fork<Tq4_fork_moment::in_child>);

Tq4_no_fork::Tq4_no_fork() : m_before(Tq4_hold_off_kill()) { lock.lock(); }

Tq4_no_fork::~Tq4_no_fork() {
    lock.unlock();
    Tq4_admit_kill(m_before);
}

Tq4_fork_member::Tq4_fork_member(void *owner, At_fork at_fork) : m_owner(owner), m_at_fork(at_fork) {
    const Tq4_no_fork held;
    m_next = members;
    m_link = &members;
    if (m_next) m_next->m_link = &m_next;
    members = this;
}

Tq4_fork_member::~Tq4_fork_member() {
    const Tq4_no_fork held;
    *m_link = m_next;
    if (m_next) m_next->m_link = m_link;
}
