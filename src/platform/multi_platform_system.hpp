// multi_platform_system: the clock, the calendar, the process, shared libraries and the system log.
#pragma once

#include <cstddef>
#include <sys/time.h>
#include <time.h>

// --- Time ---

// The wall clock. 0, or -1 on failure.
int MP_gettimeofday(timeval *now);
// a - b in microseconds.
double MP_difftimeval(const timeval *a, const timeval *b);
// *time as local calendar time in *result, which is returned. Without a result record, the C library's shared one is
// used and returned, and then the call is not safe beside others. Null for a null time or a year that does not fit.
tm *MP_localtime(const time_t *time, tm *result);
// The moment of a local calendar time, as C's mktime. Neither this nor MP_localtime is broken in a child that was
// forked while another thread was in them, or by a kill.
time_t MP_mktime(tm *fields);

// Returns after ms milliseconds, whatever signals come; at once when ms is 0 or negative.
void MP_Sleep(long ms);

// --- Chance ---

// Fills room with n bytes that nobody can guess. 1; 0 when the system has none to give.
int MP_GetRandom(void *room, std::size_t n);

// --- The process ---

unsigned long MP_GetCurrentProcessId();
// A variable of the environment; null when it is not set, and in a process that has more rights than its caller.
const char *MP_GetEnvironment(const char *name);
// Waits until another process has ended, at most ms milliseconds. 1 when it has, also when nobody has taken note of it,
// and when there is none of that id.
int MP_AwaitProcessEnd(long id, long ms);

// These fill buffer with a NUL-terminated text of at most size - 1 bytes; what is longer is cut. With size 0 the
// buffer is left alone. The text is empty when the system does not tell.

// The path of the running executable. Returns buffer.
char *MP_GetExeFullName(char *buffer, std::size_t size);
// Its directory, without the last '/'. Returns buffer.
char *MP_GetExePath(char *buffer, std::size_t size);
// Its name without the directory. The buffer receives the whole path; the result points at the name in it.
char *MP_GetExeBaseName(char *buffer, std::size_t size);
// The current working directory. Returns buffer.
char *MP_GetCurrentDir(char *buffer, std::size_t size);

// Writes up to size bytes to a descriptor. Returns how many were written, -1 on failure; a signal is no failure.
long MP_Write(int descriptor, const void *bytes, std::size_t size);
// Writes until all bytes are written or the system refuses more. Returns how many were; when not all, errno tells why.
std::size_t MP_WriteMost(int descriptor, const void *bytes, std::size_t size);
// The same; 1 for all of them, else 0.
int MP_WriteAll(int descriptor, const void *bytes, std::size_t size);

// --- Shared libraries ---

// Loads a library, binding its symbols as they are used. Null for a null path and on failure.
void *MP_LoadLibrary(const char *path);
// Null is ignored.
void MP_FreeLibrary(void *library);
// The address of a symbol; null when there is none, and for a null library or name.
void *MP_GetSymbol(void *library, const char *name);

// --- The system log: one per process, the C library's ---

// Opens it for messages of the user facility, each with the identity and the process id. The identity is borrowed
// until the log is closed.
void MP_OpenSystemLog(const char *identity);
void MP_CloseSystemLog();
// Writes one message with the system's number for facility and severity.
void MP_WriteSystemLog(int priority, const char *text);
