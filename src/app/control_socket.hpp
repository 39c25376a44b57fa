// control_socket.hpp: the local socket on which a daemon waits for shells.
#pragma once

#include <cstdint>

// Why there is no connection: no daemon is there, or that cannot be told and the system's error number is the reason.
enum Tq4_control_absence { Tq4_control_nobody = -1, Tq4_control_unknown = -2 };

// Connects to the daemon at the path. The descriptor, owned by the caller, or a Tq4_control_absence.
int Tq4_control_connect(const char *path);

enum class Tq4_control_failure { None = 0, Bind = -1, Listen = -2 };

// Which file it is, whatever stands at its path later.
struct Tq4_control_file {
    uint64_t device = 0, number = 0;
};

// Makes the socket at the path and the directories before it, usable by owner and group, and listens. What a dead
// daemon left at the path is removed first. *socket receives the descriptor, owned by the caller, and -1 on a failure;
// then the system's error number is the reason.
Tq4_control_failure Tq4_control_listen(const char *path, int *socket, Tq4_control_file *made);

// Removes the socket file at the path when it is the one that was made. Called while the socket still listens.
void Tq4_control_remove(const char *path, const Tq4_control_file &made);

// --- A daemon that has closed its socket and is still ending ---

// Lets others see, until the calling process ends, that it runs at the path.
void Tq4_control_occupy(const char *path);
// Waits for the end of the process that runs at the path, at most ms milliseconds. False when it still runs.
bool Tq4_control_await_end(const char *path, long ms);
