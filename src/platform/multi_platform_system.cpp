// multi_platform_system: the clock, the calendar and the running executable.
//
// The executable's path is what the kernel's link for this process names, asked anew by every call: it follows the
// file when that is renamed.
#include "platform/multi_platform_system.hpp"

#include <cstdio>
#include <cstring>
#include <unistd.h>

int MP_gettimeofday(timeval *now) { return gettimeofday(now, nullptr); }

double MP_difftimeval(const timeval *a, const timeval *b) {
    // In doubles, where a negative difference of microseconds borrows its second by itself and nothing overflows.
    const double seconds = static_cast<double>(a->tv_sec) - static_cast<double>(b->tv_sec);
    const double microseconds = static_cast<double>(a->tv_usec) - static_cast<double>(b->tv_usec);
    return seconds * 1e6 + microseconds;
}

tm *MP_localtime(const time_t *time, tm *result) {
    if (!time) return nullptr;
    return result ? localtime_r(time, result) : localtime(time);
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
