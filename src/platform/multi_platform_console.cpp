// multi_platform_console: signals become bits of one atomic word, and a counter that can be polled (an eventfd) says
// that there are some. A handler may run on any thread at any moment; whoever waits polls the counter beside its own
// descriptors and takes all bits at once. The handler of a signal that asks for the end also sees to it that nobody
// waits for a reader any more. A write that it interrupts is begun again by the system, and finds that out.
#include "platform/multi_platform_console.hpp"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <stdio_ext.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/multi_platform_output.hpp"
#include "platform/multi_platform_system.hpp"
#include "platform/restarted.hpp"

namespace {

constexpr int standard_descriptors = 3;
constexpr const char *null_device = "/dev/null";

std::atomic<unsigned> raised{MP_Event_none};
std::atomic<bool> ending{false};
std::atomic<int> counter{-1};  // owned; -1 when closed
std::atomic<pid_t> catcher{0}; // the process whose descriptors the handlers may touch: not one that it has forked
static_assert(std::atomic<unsigned>::is_always_lock_free && std::atomic<int>::is_always_lock_free &&
              std::atomic<bool>::is_always_lock_free);

template <MP_Event Event> void on_signal(int) {
    const int error = errno;
    if (Event == MP_Event_stop && catcher == getpid()) {
        ending = true;
        MP_Output_StopWaiting(MP_standard_output);
        MP_Output_StopWaiting(MP_standard_error);
    }
    MP_Events_Raise(Event);
    errno = error;
}

struct Caught {
    int signal;
    void (*handler)(int);
    struct sigaction before;
};
// A handler that does nothing, unlike ignoring the signal, is not inherited by programs that the process starts.
Caught caught[] = {
    {SIGTERM, on_signal<MP_Event_stop>, {}},
    {SIGINT, on_signal<MP_Event_stop>, {}},
    {SIGHUP, on_signal<MP_Event_reopen>, {}},
    {SIGPIPE, [](int) {}, {}},
};

int null_flags(int descriptor) { return descriptor == 0 ? O_RDONLY : O_RDWR; }

// What descriptors 0, and 1 and 2, go back to when no descriptor is free. Owned; -1 when not yet opened.
int reserve[] = {-1, -1};

int open_reserve(int descriptor) {
    int &kept = reserve[descriptor != 0];
    if (kept < 0) kept = MP_Restarted([=] { return open(null_device, null_flags(descriptor) | O_CLOEXEC); });
    return kept;
}

// Takes the lock of the C library's standard output. False when the end was asked for while another thread has it,
// which may wait in a write for as long as nobody reads.
bool lock_standard_output() {
    while (ftrylockfile(stdout) != 0) {
        if (ending) return false;
        MP_Sleep(1);
    }
    return true;
}

} // namespace

void MP_OpenStandardDescriptors() {
    for (int descriptor = 0; descriptor < standard_descriptors; ++descriptor) {
        if (fcntl(descriptor, F_GETFD) >= 0) continue;
        // Gets the lowest number that is free: this one.
        const int null = MP_Restarted([=] { return open(null_device, null_flags(descriptor)); });
        if (null < 0 || null == descriptor) continue;
        dup2(null, descriptor); // another thread was quicker
        close(null);
    }
}

int MP_PrepareToDetach() { return open_reserve(0) >= 0 && open_reserve(MP_standard_output) >= 0; }

int MP_OpenSpareDescriptor() {
    return MP_Restarted([] { return open(null_device, O_RDONLY | O_CLOEXEC); });
}

void MP_DetachStandardDescriptors() {
    for (int descriptor = 0; descriptor < standard_descriptors; ++descriptor)
        dup2(open_reserve(descriptor), descriptor);
}

void MP_AttachStandardDescriptors(int descriptor) {
    for (int standard = 0; standard < standard_descriptors; ++standard) dup2(descriptor, standard);
}

int MP_FlushStandardOutput() {
    if (!lock_standard_output()) return 0;
    const int done = fflush_unlocked(stdout) == 0;
    if (!done) {
        __fpurge(stdout);
        clearerr_unlocked(stdout);
    }
    funlockfile(stdout);
    return done;
}

int MP_IsTerminal(int descriptor) { return isatty(descriptor); }

mode_t MP_SetFileMask(mode_t mask) { return umask(mask); }

int MP_EnterBackground() {
    std::fflush(nullptr); // what it holds would be written by every copy of the process
    const pid_t child = fork();
    if (child < 0) return 0;
    if (child > 0) { // tells the caller whether there is a second child, and leaves no dead one to others
        int status = 0;
        MP_Restarted([&] { return waitpid(child, &status, 0); });
        _exit(WEXITSTATUS(status));
    }
    setsid();
    const pid_t grandchild = fork();
    if (grandchild > 0) _exit(0);
    if (catcher) catcher = getpid();
    return grandchild == 0;
}

int MP_SOCK_SendTimeout(int socket, long ms) {
    const timeval timeout{ms / 1000, ms % 1000 * 1000};
    return setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout) == 0;
}

static_assert(MP_Direction_out == int{SHUT_WR} && MP_Direction_both == int{SHUT_RDWR});
void MP_SOCK_Shutdown(int socket, MP_Direction direction) { shutdown(socket, direction); }

int MP_Events_Open() {
    const int made = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (made < 0) return 0;
    raised = MP_Event_none;
    ending = false;
    counter = made;
    catcher = getpid();
    for (Caught &each : caught) {
        struct sigaction action {};
        action.sa_handler = each.handler;
        action.sa_flags = SA_RESTART;
        sigemptyset(&action.sa_mask);
        sigaction(each.signal, &action, &each.before);
    }
    return 1;
}

void MP_Events_Close() {
    if (counter < 0) return;
    for (Caught &each : caught) sigaction(each.signal, &each.before, nullptr);
    close(counter.exchange(-1));
}

bool MP_Events_Ending() { return ending; }

void MP_Events_Raise(MP_Event event) {
    raised |= event;
    eventfd_write(counter, 1);
}

unsigned MP_Events_Wait(long ms, int descriptor, bool *readable, int other, bool *other_readable) {
    pollfd watched[] = {{counter, POLLIN, 0}, {descriptor, POLLIN, 0}, {other, POLLIN, 0}};
    // A signal that interrupts the wait without raising an event ends it early: callers wait in a loop anyway.
    const int ready = poll(watched, 3, ms < 0 ? -1 : static_cast<int>(ms));
    *readable = ready > 0 && watched[1].revents != 0;
    *other_readable = ready > 0 && watched[2].revents != 0;
    eventfd_t count;
    if (ready > 0 && watched[0].revents) eventfd_read(counter, &count);
    return raised.exchange(MP_Event_none);
}

int MP_SendToSupervisor(const char *socket_name, const char *text) {
    sockaddr_un address{};
    const std::size_t length = std::strlen(socket_name);
    const bool abstract = socket_name[0] == '@';
    if (length < 2 || (!abstract && socket_name[0] != '/') || length >= sizeof address.sun_path) return 0;
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, socket_name, length);
    if (abstract) address.sun_path[0] = 0;
    const int sender = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (sender < 0) return 0;
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + length + !abstract);
    const std::size_t bytes = std::strlen(text);
    const ssize_t sent = sendto(sender, text, bytes, MSG_NOSIGNAL, reinterpret_cast<const sockaddr *>(&address), size);
    close(sender);
    return sent == static_cast<ssize_t>(bytes);
}
