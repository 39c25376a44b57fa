// multi_platform_socket: waiting on a socket, connecting without waiting, and resolving names.
//
// Descriptors are borrowed. Results stand at each function; the reason of a failure is MP_SOCK_GetLastError().
#pragma once

#include <cstdint>
#include <netdb.h>
#include <sys/socket.h>

// The calling thread's system error number.
int MP_SOCK_GetLastError();
// Sets it. Returns the code.
int MP_SOCK_SetLastError(int code);

// Waits until the socket is writable (direction 1) or readable (any other), has an exception (urgent data), failed or
// was hung up, at most ms milliseconds; negative waits without limit. Any descriptor number will do. Returns how many
// of the conditions hold (1, or 2 with an exception), 0 on time-out, -1 on error. A signal does not end the wait.
int MP_SOCK_Wait(int socket, long ms, int direction);

// The addresses of a host for datagram sockets of any family, each with the port (host order). A null or empty host
// stands for the any-address of each family. Blocks while a name is looked up. Null on failure; the caller frees the
// list with freeaddrinfo.
addrinfo *MP_InitSockAddr(const char *host, uint16_t port);

// Makes the socket blocking (non-zero) or non-blocking (0). 1/0.
int MP_SOCK_Opt_Block(int socket, int blocking);

// Starts to connect a socket, which MP_SOCK_Opt_Block has made non-blocking. 1 when connected now, 0 when in progress
// (the socket becomes writable when it is decided), -1 when it failed.
int MP_SOCK_AnsyConnect(int socket, const sockaddr *address, socklen_t length);
