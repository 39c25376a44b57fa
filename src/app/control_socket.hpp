// control_socket.hpp: the local socket on which a daemon waits for shells.
#pragma once

// Connects to the daemon at the path. The descriptor, owned by the caller, or -1: nobody is there.
int Tq4_control_connect(const char *path);

enum class Tq4_control_failure { None = 0, Bind = -1, Listen = -2 };

// Makes the socket at the path and the directories before it, usable by owner and group, and listens. What a dead
// daemon left at the path is removed first. *socket receives the descriptor, owned by the caller, and -1 on a failure.
Tq4_control_failure Tq4_control_listen(const char *path, int *socket);
