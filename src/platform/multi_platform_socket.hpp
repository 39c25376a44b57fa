// multi_platform_socket: socket calls, waiting on a socket, connecting without waiting, and resolving names.
//
// Descriptors are borrowed. Results stand at each function; the reason of a failure is MP_SOCK_GetLastError().
#pragma once

#include <cstddef>
#include <cstdint>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <sys/un.h>

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

// --- Socket calls. A signal does not end one, and a peer that has gone raises no SIGPIPE ---

// A new socket of a family and a type (SOCK_STREAM, SOCK_DGRAM), close-on-exec. Owned by the caller; -1 on failure.
int MP_SOCK_Open(int family, int type);
// Another descriptor of the same socket, close-on-exec. Owned by the caller; -1 on failure.
int MP_SOCK_Duplicate(int socket);
// 1/0.
int MP_SOCK_Bind(int socket, const sockaddr *address, socklen_t length);
// Connects and waits until that is decided, in non-blocking mode too. 1/0.
int MP_SOCK_Connect(int socket, const sockaddr *address, socklen_t length);
// 0, or -1 on failure.
int MP_SOCK_Listen(int socket, int backlog);
// The next connection, close-on-exec, and its peer's address, for which *length is the room and then the length. Owned
// by the caller; -1 on failure.
int MP_SOCK_Accept(int socket, sockaddr *peer, socklen_t *length);
// Sends up to n bytes to an address, null: to the peer that the socket is connected to. Returns how many, or -1.
long MP_SOCK_Send(int socket, const void *bytes, std::size_t n, const sockaddr *to, socklen_t length);
// Sends bytes to an address as datagrams of that length, the last one perhaps shorter: 64 datagrams and 65000 bytes at
// most. 1; 0 on failure, also where the system or the way there knows no such call, and then nothing was sent.
int MP_SOCK_SendRun(int socket, const void *bytes, std::size_t n, std::size_t datagram, const sockaddr *to,
                    socklen_t length);
// Receives into one room and, what it does not hold, into a second one, and the sender's address as for MP_SOCK_Accept.
// The rest of a datagram is lost. Returns how many bytes; -1 on failure, at once with EAGAIN when nothing is there.
struct MP_SOCK_Room {
    void *begin;
    std::size_t size;
};
long MP_SOCK_ReceiveNow(int socket, MP_SOCK_Room first, MP_SOCK_Room second, sockaddr *from, socklen_t *length);
// The length of the datagram that is next, unless another thread or process takes it first. When none is there, waits
// for it unless the socket is in non-blocking mode. Negative on failure.
long MP_SOCK_NextDatagram(int socket);
// The socket's own address, or its peer's, as for MP_SOCK_Accept. 1/0.
int MP_SOCK_LocalAddress(int socket, sockaddr *address, socklen_t *length);
int MP_SOCK_PeerAddress(int socket, sockaddr *address, socklen_t *length);

// Reads up to n bytes and never waits, whatever the mode of the socket: -1 with an error that MP_SOCK_WouldBlock knows
// when nothing is there.
long MP_SOCK_ReadNow(int socket, void *room, std::size_t n);
// The next connection in non-blocking mode, else as MP_SOCK_Accept.
int MP_SOCK_AcceptNow(int socket, sockaddr *peer, socklen_t *length);

// A block of bytes to write.
using MP_SOCK_Block = iovec;
// Writes blocks one behind the other without waiting. Returns how many bytes the system took, -1 on failure.
long MP_SOCK_WriteBlocks(int socket, const MP_SOCK_Block *blocks, std::size_t count);

// Datagrams as one call received them. The system may join datagrams of one sender and one length, the last one perhaps
// shorter: then segment is that length, else 0.
struct MP_SOCK_Arrival {
    static constexpr std::size_t Address_room = 128;
    static constexpr std::size_t Largest = 65536;
    alignas(8) char from[Address_room];
    socklen_t from_length;
    std::size_t length; // of bytes
    std::size_t segment;
    char *bytes; // room for Largest; the caller's
};
// Receives up to count arrivals without waiting. Returns how many, -1 on failure.
int MP_SOCK_ReceiveMany(int socket, MP_SOCK_Arrival *arrivals, int count);
// Asks the system to join datagrams. 1/0.
int MP_SOCK_JoinDatagrams(int socket);

// Asks for a buffer of so many bytes, beyond the system's limit where the process may. 1/0.
int MP_SOCK_SetReceiveBuffer(int socket, int bytes);
int MP_SOCK_SetSendBuffer(int socket, int bytes);
// Takes the error that waits at the socket, as the end of a connect; 0 when there is none. When it cannot be asked, the
// system error.
int MP_SOCK_TakeError(int socket);

// Whether a system error only says that nothing is there now, or that there is no room now.
bool MP_SOCK_WouldBlock(int error);
// Whether a system error says that a connection has ended.
bool MP_SOCK_IsEnd(int error);
// Whether a system error says that no descriptor, or no memory for one, is left.
bool MP_SOCK_OutOfDescriptors(int error);

enum MP_SOCK_Option { MP_SOCK_Reuse, MP_SOCK_Broadcast, MP_SOCK_NoDelay, MP_SOCK_AllErrors };
// Turns an option on (non-zero) or off. 1/0.
int MP_SOCK_SetOption(int socket, MP_SOCK_Option option, int on);

// The bytes of a host address of IPv4 or IPv6 as text, "" for another family or too little room. Returns text.
const char *MP_SOCK_HostText(int family, const void *host, char *text, std::size_t room);
