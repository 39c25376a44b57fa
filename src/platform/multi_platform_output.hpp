// multi_platform_output: writing to a console whose reader may be slow, or may have stopped to read.
#pragma once

#include <cstddef>

// Writes all bytes to a descriptor. It waits for the reader at most ms milliseconds in all (negative: without limit),
// whatever signals come, and not at all once the end was asked for (MP_Events_Ending). From any thread. 1; 0 when some
// bytes were not written. Then the connection that the write was made on is ended in both directions, if it is one: a
// connection that took the descriptor's place meanwhile is left alone.
int MP_Output_Write(int descriptor, const void *bytes, std::size_t size, long ms);

// The same for a reader that is not ours to end: nothing is ended, and one that has gone raises no SIGPIPE.
int MP_Output_Tell(int descriptor, const void *bytes, std::size_t size, long ms);

// From now on no write to the descriptor waits, by this or any other function: what finds no room fails. A write to a
// pipe that waits already finds room, unless it is of a megabyte. Others who share a terminal or a pipe are not
// affected, unless it cannot be opened again. From any thread, or a signal handler.
void MP_Output_StopWaiting(int descriptor);

// How far the peer of a local connection is behind.
enum MP_Output_Backlog {
    MP_Output_follows,   // a write finds room
    MP_Output_is_behind, // a write that found no room goes on waiting
    MP_Output_is_full    // a write waits
};
MP_Output_Backlog MP_Output_GetBacklog(int socket);
