// multi_platform_system: the clock, the calendar, the process, shared libraries and the system log.
//
// The executable's path is what the kernel's link for this process names, asked anew by every call: it follows the
// file when that is renamed.
#include "platform/multi_platform_system.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/random.h>
#include <sys/syscall.h>
#include <syslog.h>
#include <unistd.h>

#include "platform/multi_platform_pthread.hpp"
#include "platform/restarted.hpp"
#include "thread_record.hpp"

int MP_gettimeofday(timeval *now) { return gettimeofday(now, nullptr); }

double MP_difftimeval(const timeval *a, const timeval *b) {
    // In doubles, where a negative difference of microseconds borrows its second by itself and nothing overflows.
    const double seconds = static_cast<double>(a->tv_sec) - static_cast<double>(b->tv_sec);
    const double microseconds = static_cast<double>(a->tv_usec) - static_cast<double>(b->tv_usec);
    return seconds * 1e6 + microseconds;
}

// --- The calendar ---

// The C library has a lock over its time zone. A child gets it as it was at the fork, and a thread that is killed while
// it holds the lock leaves it locked for everybody. So we hold one of our own around our calls, at forks and against
// kills. Registered before the other locks of the library that forks take, it is taken last.
static pthread_mutex_t time_zone_lock = PTHREAD_MUTEX_INITIALIZER;
static void lock_time_zone() { pthread_mutex_lock(&time_zone_lock); }
static void unlock_time_zone() { pthread_mutex_unlock(&time_zone_lock); }

[[gnu::constructor(200)]] static void rest_at_forks() {
    pthread_atfork(lock_time_zone, unlock_time_zone, unlock_time_zone);
}

template <class Function> static auto with_time_zone(Function function) {
    const bool killable = Tq4_this_thread->killable;
    const int before = killable ? MP_THREAD_DeferCancel() : 0;
    lock_time_zone();
    const auto result = function();
    unlock_time_zone();
    if (killable) MP_THREAD_RestoreCancel(before);
    return result;
}

tm *MP_localtime(const time_t *time, tm *result) {
    if (!time) return nullptr;
    return with_time_zone([=] { return result ? localtime_r(time, result) : localtime(time); });
}

time_t MP_mktime(tm *fields) {
    return with_time_zone([=] { return mktime(fields); });
}

void MP_Sleep(long ms) {
    if (ms <= 0) return;
    timespec left{ms / 1000, ms % 1000 * 1000000};
    while (clock_nanosleep(CLOCK_MONOTONIC, 0, &left, &left) == EINTR) continue;
}

// Fills what is left by a call that gives how many bytes it gave.
template <class Give> static bool fill(char *room, std::size_t n, Give give) {
    while (n > 0) {
        const long given = give(room, n);
        if (given < 0 && errno == EINTR) continue;
        if (given <= 0) return false;
        room += given;
        n -= static_cast<std::size_t>(given);
    }
    return true;
}

// The call may be forbidden where the device is not.
int MP_GetRandom(void *room, std::size_t n) {
    const auto bytes = static_cast<char *>(room);
    if (fill(bytes, n, [](char *at, std::size_t left) { return getrandom(at, left, 0); })) return 1;
    const int device = open("/dev/urandom", O_RDONLY | O_CLOEXEC);
    if (device < 0) return 0;
    const bool filled = fill(bytes, n, [=](char *at, std::size_t left) { return read(device, at, left); });
    close(device);
    return filled;
}

unsigned long MP_GetCurrentProcessId() { return static_cast<unsigned long>(getpid()); }

const char *MP_GetEnvironment(const char *name) { return secure_getenv(name); }
int MP_AwaitProcessEnd(long id, long ms) {
    const auto process =
        static_cast<int>(syscall(SYS_pidfd_open, static_cast<pid_t>(id), 0)); // glibc 2.36 has it for C alone
    if (process < 0) return errno == ESRCH;
    const auto end = MP_THREAD_GetMonotonicMs() + static_cast<uint64_t>(ms);
    int ended = -1;
    while (ended < 0) {
        const auto now = MP_THREAD_GetMonotonicMs();
        pollfd watched{process, POLLIN, 0};
        ended = poll(&watched, 1, now < end ? static_cast<int>(end - now) : 0);
        if (ended < 0 && errno != EINTR) break;
    }
    close(process);
    return ended > 0;
}

char *MP_GetExeFullName(char *buffer, std::size_t size) {
    if (size == 0) return buffer;
    char link[32];
    std::snprintf(link, sizeof link, "/proc/%d/exe", getpid());
    const ssize_t length = readlink(link, buffer, size - 1);
    buffer[length < 0 ? 0 : length] = 0;
    return buffer;
}

char *MP_GetExePath(char *buffer, std::size_t size) {
    char *name = MP_GetExeBaseName(buffer, size);
    if (name != buffer) name[-1] = 0;
    return buffer;
}

char *MP_GetExeBaseName(char *buffer, std::size_t size) {
    if (size == 0) return buffer;
    char *last = std::strrchr(MP_GetExeFullName(buffer, size), '/');
    return last ? last + 1 : buffer;
}

char *MP_GetCurrentDir(char *buffer, std::size_t size) {
    if (size == 0) return buffer;
    char *whole = getcwd(nullptr, 0); // owned
    const std::size_t length = whole ? std::min(std::strlen(whole), size - 1) : 0;
    if (whole) std::memcpy(buffer, whole, length);
    buffer[length] = 0;
    std::free(whole);
    return buffer;
}

long MP_Write(int descriptor, const void *bytes, std::size_t size) {
    return MP_Restarted([=] { return write(descriptor, bytes, size); });
}

std::size_t MP_WriteMost(int descriptor, const void *bytes, std::size_t size) {
    std::size_t all = 0;
    while (all < size) {
        const long written = MP_Write(descriptor, static_cast<const char *>(bytes) + all, size - all);
        if (written == 0) errno = EIO; // no system call should answer so
        if (written <= 0) break;
        all += static_cast<std::size_t>(written);
    }
    return all;
}

int MP_WriteAll(int descriptor, const void *bytes, std::size_t size) {
    return MP_WriteMost(descriptor, bytes, size) == size;
}

void *MP_LoadLibrary(const char *path) { return path ? dlopen(path, RTLD_LAZY) : nullptr; }

void MP_FreeLibrary(void *library) {
    if (library) dlclose(library);
}

void *MP_GetSymbol(void *library, const char *name) { return library && name ? dlsym(library, name) : nullptr; }

void MP_OpenSystemLog(const char *identity) { openlog(identity, LOG_PID, LOG_USER); }
void MP_CloseSystemLog() { closelog(); }
void MP_WriteSystemLog(int priority, const char *text) { syslog(priority, "%s", text); }
