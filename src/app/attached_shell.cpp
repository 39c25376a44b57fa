// attached_shell: the thread looks at the connection at intervals, which costs a shell that reads nothing. A semaphore
// is what it waits for meanwhile, since a service that is out of descriptors is to serve shells as well.
//
// Where the system gives no thread, each write to the connection may wait on its own for as long as a print may.
#include "app/attached_shell.hpp"

#include <csignal>
#include <utility>

#include "platform/multi_platform_console.hpp"
#include "tq4/sock_api.h"

namespace {

constexpr unsigned long interval = 100;
constexpr uint64_t patience = 1000, patience_at_the_end = 300; // milliseconds

} // namespace

bool Tq4_shell_patience::Over(uint64_t now, MP_Output_Backlog found, bool ending) {
    const bool waiting = found == MP_Output_is_full || (found == MP_Output_is_behind && m_waiting);
    if (!std::exchange(m_waiting, waiting)) m_since = now;
    return waiting && now - m_since >= (ending ? patience_at_the_end : patience);
}

Tq4_attached_shell::Tq4_attached_shell(int connection) : m_connection(connection) {
    MP_THREAD_Semaphore_init(&m_leave, 0, 1, nullptr);
    MP_THREAD_Semaphore_init(&m_left, 0, 1, nullptr);
    m_watched = MP_THREAD_Create(Watch, this, 1, nullptr, nullptr);
    if (!m_watched) MP_SOCK_SendTimeout(connection, Print_wait);
    MP_AttachStandardDescriptors(connection);
}

Tq4_attached_shell::~Tq4_attached_shell() {
    MP_FlushStandardOutput();
    MP_DetachStandardDescriptors();
    MP_SOCK_Shutdown(m_connection, MP_Direction_both);
    MP_THREAD_Semaphore_post(&m_leave, 1);
    if (m_watched) MP_THREAD_Semaphore_wait(&m_left, TQ4_ALL_ONES);
    MP_THREAD_Semaphore_destroy(&m_leave);
    MP_THREAD_Semaphore_destroy(&m_left);
    Tq4_sock_api->Close(m_connection);
}

void *Tq4_attached_shell::Watch(void *shell) {
    auto *self = static_cast<Tq4_attached_shell *>(shell);
    for (int signal : {SIGTERM, SIGINT, SIGHUP}) MP_THREAD_Sigmask(SIG_BLOCK, signal); // they interrupt the main thread
    Tq4_shell_patience shells;
    while (MP_THREAD_Semaphore_wait(&self->m_leave, interval) != 0)
        if (shells.Over(MP_THREAD_GetMonotonicMs(), MP_Output_GetBacklog(self->m_connection), MP_Events_Ending()))
            MP_SOCK_Shutdown(self->m_connection, MP_Direction_both);
    MP_THREAD_Semaphore_post(&self->m_left, 1);
    return nullptr;
}
