// multi_platform_console: signals become bits of one atomic word, and a counter that can be polled (an eventfd) says
// that there are some. A handler does no more than that, so it may run on any thread at any moment; whoever waits polls
// the counter beside its own descriptor and takes all bits at once.
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

#include "platform/multi_platform_system.hpp"

namespace {

constexpr int standard_descriptors = 3;
constexpr const char *null_device = "/dev/null";

std::atomic<unsigned> raised{MP_Event_none};
std::atomic<int> counter{-1}; // owned; -1 when closed
static_assert(std::atomic<unsigned>::is_always_lock_free && std::atomic<int>::is_always_lock_free);

template <MP_Event Event> void on_signal(int) {
    const int error = errno;
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

void put_on_null_device(int descriptor, int flags) {
    const int null = open(null_device, flags | O_CLOEXEC);
    if (null < 0) return;
    if (null == descriptor) { // it was closed
        fcntl(descriptor, F_SETFD, 0);
        return;
    }
    dup2(null, descriptor);
    close(null);
}

} // namespace

void MP_OpenStandardDescriptors() {
    for (int descriptor = 0; descriptor < standard_descriptors; ++descriptor)
        if (fcntl(descriptor, F_GETFD) < 0) put_on_null_device(descriptor, descriptor == 0 ? O_RDONLY : O_RDWR);
}

void MP_DetachStandardDescriptors() {
    for (int descriptor = 0; descriptor < standard_descriptors; ++descriptor)
        put_on_null_device(descriptor, descriptor == 0 ? O_RDONLY : O_RDWR);
}

void MP_AttachStandardDescriptors(int descriptor) {
    for (int standard = 0; standard < standard_descriptors; ++standard) dup2(descriptor, standard);
}

int MP_FlushStandardOutput() {
    if (std::fflush(stdout) == 0) return 1;
    __fpurge(stdout);
    std::clearerr(stdout);
    return 0;
}

int MP_WriteAll(int descriptor, const void *bytes, std::size_t size) {
    const char *at = static_cast<const char *>(bytes);
    while (size > 0) {
        const long written = MP_Write(descriptor, at, size);
        if (written <= 0) return 0;
        at += written;
        size -= static_cast<std::size_t>(written);
    }
    return 1;
}

int MP_IsTerminal(int descriptor) { return isatty(descriptor); }

mode_t MP_SetFileMask(mode_t mask) { return umask(mask); }

int MP_EnterBackground() {
    std::fflush(nullptr); // what it holds would be written by every copy of the process
    const pid_t child = fork();
    if (child < 0) return 0;
    if (child > 0) { // tells the caller whether there is a second child, and leaves no dead one to others
        int status = 0;
        while (waitpid(child, &status, 0) < 0 && errno == EINTR) continue;
        _exit(WEXITSTATUS(status));
    }
    setsid();
    const pid_t grandchild = fork();
    if (grandchild > 0) _exit(0);
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
    counter = made;
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

void MP_Events_Raise(MP_Event event) {
    raised |= event;
    eventfd_write(counter, 1);
}

unsigned MP_Events_Wait(int descriptor, long ms, bool *readable) {
    pollfd watched[] = {{counter, POLLIN, 0}, {descriptor, POLLIN, 0}};
    // A signal that interrupts the wait without raising an event ends it early: callers wait in a loop anyway.
    const int ready = poll(watched, 2, ms < 0 ? -1 : static_cast<int>(ms));
    if (readable) *readable = ready > 0 && watched[1].revents != 0;
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
