// faults: one row for each call. The linker sends a call of NAME to __wrap_NAME, which is defined here, and gives the
// system's own as __real_NAME; a name that is missing here or in CMakeLists.txt does not link.
#include "support/faults.hpp"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <netdb.h>
#include <poll.h>
#include <pthread.h>
#include <semaphore.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <sys/wait.h>
#include <unistd.h>

// clang-format off
// row(result, name, parameters, arguments, errors...): PLAIN fails by -1 or a null pointer and the system's error
// number. MOVE does too, and moves n bytes at most. DONE does what it is for and then fails. CODE returns the error.
// (open and its like are variadic in C. The argument that may be missing is passed on as any other.)
#define SYSTEM_CALLS(PLAIN, MOVE, DONE, CODE) \
    PLAIN(int, accept4, (int s, sockaddr *a, socklen_t *l, int f), (s, a, l, f), EMFILE, ECONNABORTED, EINTR) \
    PLAIN(int, bind, (int s, const sockaddr *a, socklen_t l), (s, a, l), EADDRINUSE, EACCES) \
    PLAIN(int, connect, (int s, const sockaddr *a, socklen_t l), (s, a, l), ECONNREFUSED, EACCES, EINTR) \
    PLAIN(int, dup2, (int from, int to), (from, to), EMFILE, EINTR) \
    PLAIN(int, epoll_create1, (int f), (f), EMFILE) \
    PLAIN(int, epoll_ctl, (int e, int o, int d, epoll_event *v), (e, o, d, v), ENOMEM, ENOSPC) \
    PLAIN(int, epoll_wait, (int e, epoll_event *v, int n, int ms), (e, v, n, ms), EINTR, EBADF) \
    PLAIN(int, eventfd, (unsigned count, int f), (count, f), EMFILE) \
    PLAIN(int, fchmod, (int d, mode_t m), (d, m), EPERM) \
    PLAIN(int, fchown, (int d, uid_t u, gid_t g), (d, u, g), EPERM) \
    PLAIN(int, fcntl, (int d, int c, long v), (d, c, v), EBADF) \
    PLAIN(DIR *, fdopendir, (int d), (d), ENOMEM) \
    PLAIN(int, fflush, (FILE *f), (f), EAGAIN) \
    PLAIN(int, fflush_unlocked, (FILE *f), (f), EAGAIN) \
    PLAIN(int, flock, (int d, int o), (d, o), ENOLCK, EINTR) \
    PLAIN(pid_t, fork, (), (), EAGAIN) \
    PLAIN(int, fstat, (int d, struct stat *s), (d, s), EIO) \
    PLAIN(int, fstatat, (int d, const char *p, struct stat *s, int f), (d, p, s, f), EACCES) \
    PLAIN(int, fsync, (int d), (d), EIO, EINTR) \
    PLAIN(int, ftruncate, (int d, off_t n), (d, n), EIO, EINTR) \
    PLAIN(char *, getcwd, (char *b, size_t n), (b, n), ENOENT) \
    PLAIN(int, getpeername, (int s, sockaddr *a, socklen_t *l), (s, a, l), ENOTCONN) \
    PLAIN(int, getsockname, (int s, sockaddr *a, socklen_t *l), (s, a, l), ENOBUFS) \
    PLAIN(int, getsockopt, (int s, int l, int o, void *v, socklen_t *n), (s, l, o, v, n), ENOBUFS) \
    PLAIN(int, ioctl, (int d, unsigned long r, void *a), (d, r, a), EIO) \
    PLAIN(int, isatty, (int d), (d), ENOTTY) \
    PLAIN(int, listen, (int s, int b), (s, b), EADDRINUSE) \
    PLAIN(off_t, lseek, (int d, off_t o, int w), (d, o, w), ESPIPE) \
    PLAIN(int, madvise, (void *a, size_t n, int v), (a, n, v), ENOMEM) \
    PLAIN(int, mkdir, (const char *p, mode_t m), (p, m), ENOSPC, EACCES) \
    PLAIN(int, mkostemp, (char *t, int f), (t, f), EACCES, EMFILE) \
    PLAIN(void *, mmap, (void *a, size_t n, int p, int f, int d, off_t o), (a, n, p, f, d, o), ENOMEM) \
    PLAIN(int, munmap, (void *a, size_t n), (a, n), EINVAL) \
    PLAIN(int, open, (const char *p, int f, mode_t m), (p, f, m), EMFILE, EACCES, EINTR) \
    PLAIN(int, openat, (int d, const char *p, int f, mode_t m), (d, p, f, m), EMFILE, EACCES, EINTR) \
    PLAIN(int, poll, (pollfd *p, nfds_t n, int ms), (p, n, ms), EINTR, ENOMEM) \
    PLAIN(int, ppoll, (pollfd *p, nfds_t n, const timespec *t, const sigset_t *s), (p, n, t, s), EINTR, ENOMEM) \
    PLAIN(dirent *, readdir, (DIR *d), (d), EIO) \
    PLAIN(ssize_t, readlink, (const char *p, char *b, size_t n), (p, b, n), EACCES) \
    PLAIN(char *, realpath, (const char *p, char *r), (p, r), ENOMEM, EACCES) \
    PLAIN(int, recvmmsg, (int s, mmsghdr *m, unsigned n, int f, timespec *t), (s, m, n, f, t), ECONNREFUSED, EINTR) \
    PLAIN(ssize_t, recvmsg, (int s, msghdr *m, int f), (s, m, f), ECONNRESET, EINTR) \
    PLAIN(int, rename, (const char *f, const char *t), (f, t), EBUSY, ENOSPC) \
    PLAIN(int, rmdir, (const char *p), (p), EBUSY) \
    PLAIN(ssize_t, sendmsg, (int s, const msghdr *m, int f), (s, m, f), ECONNRESET, ENOBUFS, EINTR) \
    PLAIN(pid_t, setsid, (), (), EPERM) \
    PLAIN(int, setsockopt, (int s, int l, int o, const void *v, socklen_t n), (s, l, o, v, n), ENOBUFS) \
    PLAIN(int, shutdown, (int s, int h), (s, h), ENOTCONN) \
    PLAIN(int, sigaction, (int n, const struct sigaction *a, struct sigaction *b), (n, a, b), EINVAL) \
    PLAIN(int, socket, (int f, int t, int p), (f, t, p), EMFILE) \
    PLAIN(int, stat, (const char *p, struct stat *s), (p, s), EACCES, ENOMEM) \
    PLAIN(int, statfs, (const char *p, struct statfs *s), (p, s), EIO) \
    PLAIN(int, unlink, (const char *p), (p), EACCES) \
    PLAIN(int, unlinkat, (int d, const char *p, int f), (d, p, f), EBUSY) \
    PLAIN(pid_t, waitpid, (pid_t p, int *s, int o), (p, s, o), EINTR) \
    MOVE(ssize_t, getrandom, (void *b, size_t n, unsigned f), (b, n, f), ENOSYS, EINTR) \
    MOVE(ssize_t, read, (int d, void *b, size_t n), (d, b, n), EIO, EINTR) \
    MOVE(ssize_t, recv, (int s, void *b, size_t n, int f), (s, b, n, f), ECONNRESET, EINTR) \
    MOVE(ssize_t, send, (int s, const void *b, size_t n, int f), (s, b, n, f), ENOBUFS, EINTR) \
    MOVE(ssize_t, sendto, (int s, const void *b, size_t n, int f, const sockaddr *a, socklen_t l), \
         (s, b, n, f, a, l), ENOBUFS, EINTR) \
    MOVE(ssize_t, write, (int d, const void *b, size_t n), (d, b, n), ENOSPC, EIO, EINTR) \
    DONE(int, close, (int d), (d), EIO) \
    DONE(int, closedir, (DIR *d), (d), EIO) \
    CODE(int, getaddrinfo, (const char *h, const char *s, const addrinfo *i, addrinfo **r), (h, s, i, r), EAI_AGAIN) \
    CODE(int, pthread_cond_init, (pthread_cond_t *c, const pthread_condattr_t *a), (c, a), ENOMEM) \
    CODE(int, pthread_create, (pthread_t *t, const pthread_attr_t *a, void *(*f)(void *), void *p), (t, a, f, p), \
         EAGAIN)
// clang-format on

namespace {

#define NAME(result, name, ...) name,
enum class Call { SYSTEM_CALLS(NAME, NAME, NAME, NAME) none };
#undef NAME

struct Row {
    const char *name;
    bool moves_bytes;
    std::vector<int> errors;
};

const std::vector<Row> &rows() {
#define STILL(result, name, parameters, arguments, ...) {#name, false, {__VA_ARGS__}},
#define MOVES(result, name, parameters, arguments, ...) {#name, true, {__VA_ARGS__}},
    static const std::vector<Row> all{SYSTEM_CALLS(STILL, MOVES, STILL, STILL)};
#undef STILL
#undef MOVES
    return all;
}

// Written while nothing is armed; what calls share is atomic.
struct {
    std::atomic<Call> call{Call::none};
    std::atomic<unsigned long> calls{0};
    std::atomic<bool> happened{false};
    unsigned long nth = 0;
    int error = 0;
    Fault_manner manner = Fault_manner::once;
    const char *report = nullptr; // the file to make when it happens; null: none
} armed;

Call call_of(const char *name) {
    for (std::size_t i = 0; i < rows().size(); ++i)
        if (std::strcmp(rows()[i].name, name) == 0) return static_cast<Call>(i);
    std::fprintf(stderr, "faults.cpp lists no call of the name \"%s\"\n", name);
    std::abort();
}

void arm(const Fault &fault, unsigned long nth) {
    armed.nth = nth;
    armed.error = fault.error;
    armed.manner = fault.manner;
    armed.calls = 0;
    armed.happened = false;
    armed.call = call_of(fault.call);
}

enum class Outcome { as_ever, fails, is_cut };

void tell_that_it_happened();

Outcome outcome_of(Call call) {
    if (armed.call.load(std::memory_order_acquire) != call) return Outcome::as_ever;
    const unsigned long number = ++armed.calls;
    const bool only_once = armed.manner == Fault_manner::once || armed.manner == Fault_manner::cut;
    if (number < armed.nth || (number > armed.nth && only_once)) return Outcome::as_ever;
    if (!armed.happened.exchange(true)) tell_that_it_happened();
    const bool cuts = armed.manner == Fault_manner::cut || armed.manner == Fault_manner::cut_then_fail;
    if (cuts && number == armed.nth) return Outcome::is_cut;
    errno = armed.error;
    return Outcome::fails;
}

template <class Result> Result failure() {
    if constexpr (std::is_same_v<Result, void *>)
        return MAP_FAILED;
    else if constexpr (std::is_pointer_v<Result>)
        return nullptr;
    else
        return -1;
}

// Calls that take an error for no failure at all (a moment's 0) would hide a fault; a cut transfer moves some byte.
size_t half_of(size_t n) { return n > 1 ? n / 2 : n; }

} // namespace

extern "C" {
#define PLAIN(result, name, parameters, arguments, ...)                                                                \
    result __real_##name parameters;                                                                                   \
    result __wrap_##name parameters;                                                                                   \
    result __wrap_##name parameters {                                                                                  \
        return outcome_of(Call::name) == Outcome::as_ever ? __real_##name arguments : failure<result>();               \
    }
#define MOVE(result, name, parameters, arguments, ...)                                                                 \
    result __real_##name parameters;                                                                                   \
    result __wrap_##name parameters;                                                                                   \
    result __wrap_##name parameters {                                                                                  \
        const Outcome outcome = outcome_of(Call::name);                                                                \
        if (outcome == Outcome::fails) return failure<result>();                                                       \
        if (outcome == Outcome::is_cut) n = half_of(n);                                                                \
        return __real_##name arguments;                                                                                \
    }
#define DONE(result, name, parameters, arguments, ...)                                                                 \
    result __real_##name parameters;                                                                                   \
    result __wrap_##name parameters;                                                                                   \
    result __wrap_##name parameters {                                                                                  \
        const Outcome outcome = outcome_of(Call::name);                                                                \
        const result done = __real_##name arguments;                                                                   \
        return outcome == Outcome::as_ever ? done : (errno = armed.error, failure<result>());                          \
    }
#define CODE(result, name, parameters, arguments, ...)                                                                 \
    result __real_##name parameters;                                                                                   \
    result __wrap_##name parameters;                                                                                   \
    result __wrap_##name parameters {                                                                                  \
        return outcome_of(Call::name) == Outcome::as_ever ? __real_##name arguments : armed.error;                     \
    }
SYSTEM_CALLS(PLAIN, MOVE, DONE, CODE)
}

namespace {

void tell_that_it_happened() {
    if (!armed.report) return;
    const int error = errno;
    __real_close(__real_open(armed.report, O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
    errno = error;
}

} // namespace

std::vector<Fault> possible_faults() {
    std::vector<Fault> faults;
    for (const Row &row : rows()) {
        for (int error : row.errors) faults.push_back({row.name, error, Fault_manner::once});
        if (row.errors[0] != EINTR) faults.push_back({row.name, row.errors[0], Fault_manner::from_then_on});
        if (!row.moves_bytes) continue;
        faults.push_back({row.name, row.errors[0], Fault_manner::cut});
        faults.push_back({row.name, row.errors[0], Fault_manner::cut_then_fail});
    }
    return faults;
}

namespace {

// For a whole program, before its main.
const bool armed_by_environment = [] {
    static char call[64], file[4096];
    unsigned long nth;
    int error, manner;
    const char *given = std::getenv("TQ4_FAULT");
    if (!given) return false;
    if (std::strcmp(given, "list") == 0) {
        for (const Fault &fault : possible_faults())
            std::printf("%s %d %d\n", fault.call, fault.error, static_cast<int>(fault.manner));
        std::exit(0);
    }
    if (std::sscanf(given, "%63s %lu %d %d %4095s", call, &nth, &error, &manner, file) != 5) std::abort();
    armed.report = file;
    arm({call, error, static_cast<Fault_manner>(manner)}, nth);
    return true;
}();

} // namespace

std::string name_of(const Fault &fault) {
    constexpr const char *manners[] = {"once", "from then on", "cut", "cut, then fails"};
    const char *error = strerrorname_np(fault.error); // null for one of getaddrinfo's own
    return std::string(fault.call) + " " + (error ? error : std::to_string(fault.error)) + " " +
           manners[static_cast<int>(fault.manner)];
}

Armed_fault::Armed_fault(const Fault &fault, unsigned long nth) { arm(fault, nth); }
Armed_fault::~Armed_fault() { armed.call = Call::none; }
bool Armed_fault::happened() const { return armed.happened; }
