// multi_platform_console: what a console program and a daemon need of the system: the standard descriptors, the way
// into the background, signals that can be waited for, and the supervisor.
//
// Results are 1/0 unless a function says otherwise.
#pragma once

#include <cstddef>
#include <sys/types.h>

// --- Descriptors 0 to 2 ---

inline constexpr int MP_standard_input = 0, MP_standard_output = 1, MP_standard_error = 2;

// Opens those that are closed on the null device, so that no file or socket gets their numbers.
void MP_OpenStandardDescriptors();
// Opens what the next function needs, so that it does not fail when no descriptor is free later on.
int MP_PrepareToDetach();
// Puts all three on the null device: 0 for reading, 1 and 2 for reading and writing. They are open at any moment.
void MP_DetachStandardDescriptors();
// Puts all three on the descriptor, which stays open.
void MP_AttachStandardDescriptors(int descriptor);
// A descriptor that leads nowhere, owned by the caller: closed when no other is free, it makes room for one. -1 when
// the system gives none.
int MP_OpenSpareDescriptor();
// Hands what the C library holds for standard output to the system. 0 when that refuses some, which is dropped, and
// when the end was asked for while another thread prints.
int MP_FlushStandardOutput();
// 1 when the descriptor is a terminal.
int MP_IsTerminal(int descriptor);

// --- The background ---

// Sets the mask of permission bits that new files do not get; returns the mask before.
mode_t MP_SetFileMask(mode_t mask);
// Goes on as a child of a child: without a terminal, in a session of its own that it does not lead. The processes left
// behind end without running what is registered for their exit. The first one ends with code 0, when there is a second
// child. 0 when the system gives no process: no child, and the caller is as it was; or no second one, and the first
// child is the caller, whose exit code the first process takes over.
int MP_EnterBackground();

// --- A connection whose peer may not read ---

// From now on a write to the socket fails when the peer has not made room for it within ms milliseconds.
int MP_SOCK_SendTimeout(int socket, long ms);
// Ends a connection in one direction, so that the peer meets the end, or in both. The descriptor stays open.
enum MP_Direction { MP_Direction_out = 1, MP_Direction_both = 2 };
void MP_SOCK_Shutdown(int socket, MP_Direction direction);

// --- Events: signals, and what threads tell the main thread ---

enum MP_Event : unsigned {
    MP_Event_none = 0,
    MP_Event_stop = 1,   // SIGTERM or SIGINT
    MP_Event_reopen = 2, // SIGHUP
    MP_Event_ended = 4,  // these two are raised by the program alone
    MP_Event_answered = 8
};

// Lets SIGTERM, SIGINT and SIGHUP raise events instead of ending the process, and SIGPIPE do nothing. What was
// installed before is kept for MP_Events_Close. Programs that the process starts are not affected. 0 when the system
// has no descriptor for it: then nothing is installed, and the system's error number is the reason.
int MP_Events_Open();
// Installs again what was there before; events not yet taken are forgotten.
void MP_Events_Close();
// Raises an event. From any thread, or a signal handler.
void MP_Events_Raise(MP_Event event);
// Whether SIGTERM or SIGINT has come since MP_Events_Open: from then on nothing waits for a reader, and descriptors 1
// and 2 take what finds room. From any thread, or a signal handler.
bool MP_Events_Ending();
// Waits until an event is raised or one of two descriptors (-1: none) can be read without waiting, is at its end or
// failed, at most ms milliseconds (negative: without limit). Takes the events and returns them, joined. *readable and
// *other_readable tell about the descriptors, also when there are events.
unsigned MP_Events_Wait(long ms, int descriptor, bool *readable, int other, bool *other_readable);

// --- The supervisor ---

// Sends one datagram to a local socket: a path, or a name in the abstract space when it starts with '@'. Never waits.
int MP_SendToSupervisor(const char *socket, const char *text);
