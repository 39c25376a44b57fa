// multi_platform_system: the clock, the calendar and the running executable.
#pragma once

#include <cstddef>
#include <sys/time.h>
#include <time.h>

// The wall clock. 0, or -1 on failure.
int MP_gettimeofday(timeval *now);
// a - b in microseconds.
double MP_difftimeval(const timeval *a, const timeval *b);
// *time as local calendar time in *result, which is returned. Without a result record, the C library's shared one is
// used and returned, and then the call is not safe beside others. Null for a null time or a year that does not fit.
tm *MP_localtime(const time_t *time, tm *result);

// These fill buffer with a NUL-terminated text of at most size - 1 bytes; what is longer is cut. With size 0 the
// buffer is left alone. The text is empty when the system does not tell.

// The path of the running executable. Returns buffer.
char *MP_GetExeFullName(char *buffer, std::size_t size);
// Its directory, without the last '/'. Returns buffer.
char *MP_GetExePath(char *buffer, std::size_t size);
// Its name without the directory. The buffer receives the whole path; the result points at the name in it.
char *MP_GetExeBaseName(char *buffer, std::size_t size);
