/* sock_api.h: socket calls on descriptors and addresses.
 *
 * Descriptors are plain numbers that the caller owns and closes; those made here are close-on-exec. After a failure
 * Error tells why, unless a name was not found or an address is null. A signal never ends a call: it goes on, where
 * there is a time-out with the time that is left. Writing to a peer that has gone fails and never raises SIGPIPE.
 *
 * Calls that move bytes take at most 2147483647 at once and return how many they moved.
 *
 * Threads: every operation may be called from any thread; addresses and strings given must not be in use elsewhere.
 */
#ifndef TQ4_SOCK_API_H
#define TQ4_SOCK_API_H

#include "tq4/sockaddr.h"
#include "tq4/string.h"

TQ4_BEGIN_DECLS

/* What Wait waits for: Tq4_wait_write, or to read with any other value. */
enum { Tq4_wait_read = 0, Tq4_wait_write = 1 };

typedef struct Tq4_socket_api_ {
    /* Starts what the platform needs for sockets; nothing on Linux, and not required. */
    void (*Init)(void);
    /* The system's error number of the calling thread's last failure. */
    int (*Error)(void);
    void (*SetError)(int code);

    /* As OpenUdp2, OpenTcp2 and Connect2 (with a new socket) on an address made by Tq4_sockaddr's Init of host and
     * port. -1 also when that fails. */
    int (*OpenUdp)(const char *host, int port, int bind);
    int (*OpenTcp)(const char *host, int port, int bind);
    int (*Connect)(const char *host, int port);

    /* Opens a datagram socket of the address's family, of IPv4 without an address. With bind non-zero, binds it to the
     * address, if there is one. Returns the descriptor, -1 on failure. */
    int (*OpenUdp2)(Tq4_sockaddr address, int bind);
    /* Opens a stream socket of the address's family. With bind non-zero, allows the address to be reused and binds to
     * it; a local address makes its socket file, and fails while that exists. Returns the descriptor, -1 on failure
     * and for a null address. */
    int (*OpenTcp2)(Tq4_sockaddr address, int bind);
    /* Connects the descriptor, a negative one: a new unbound stream socket, and waits until that is decided, for a
     * descriptor in non-blocking mode too. Returns the descriptor; -1 on failure, where only a socket opened here is
     * closed. */
    int (*Connect2)(Tq4_sockaddr address, int descriptor);
    /* listen(2): 0, or -1 on failure. */
    int (*Listen)(int descriptor, int backlog);
    /* Takes the next connection, waiting for it unless the descriptor is in non-blocking mode, and sets the address to
     * the peer's (null: not wanted). Returns the new descriptor, in blocking mode, or -1. */
    int (*Accept)(int descriptor, Tq4_sockaddr address);
    void (*Close)(int descriptor);

    /* Waits until the descriptor can be read, with direction 1 written to, was hung up or has failed, or has urgent
     * data, at most that long (all ones: without limit, 0: not at all). Any descriptor number will do. Returns how
     * many of the two (readable or writable; urgent data) hold, 0 on time-out, -1 on error. */
    int (*Wait)(int descriptor, unsigned long milliseconds, int direction);
    /* Writes up to length bytes (all ones: up to the NUL) to a socket or another descriptor. Returns how many the
     * system took, which may be fewer; -1 on failure. */
    int (*Write)(int descriptor, const void *bytes, unsigned long length);
    /* Sends one datagram to the address, without one to the peer that the socket is connected to. length as for Write.
     * Returns its length or -1. */
    int (*Send)(int descriptor, Tq4_sockaddr address, const void *bytes, unsigned long length);
    /* Reads up to length bytes. Returns how many came, 0 at the end of the data, -1 on failure. */
    int (*Read)(int descriptor, void *buffer, unsigned long length);
    /* Receives the next datagram, waiting for it unless the descriptor is in non-blocking mode: replaces the string's
     * text by it, whole whatever its size and however many threads receive on the descriptor, and sets the address to
     * the sender's (null: not wanted; without a family when the sender has no name). Returns its length, 0 for an empty
     * one, which is taken too; -1 on failure, and then the string is empty. A null string gives 0 and nothing is
     * received. */
    int (*RecvFrom)(int descriptor, Tq4_string string, Tq4_sockaddr address);

    /* Options of the socket, on when the second argument is non-zero: reuse of addresses, sending to broadcast
     * addresses, sending at once (TCP), reporting of all errors (of IPv4, on a socket of IPv6 of both),
     * blocking mode. */
    void (*Reuse)(int descriptor, int on);
    void (*BroadCast)(int descriptor, int on);
    void (*NoDelay)(int descriptor, int on);
    void (*AllError)(int descriptor, int on);
    void (*Block)(int descriptor, int on);

    /* Sets local to the address of this host, with port 0, from which datagrams to the destination leave; nothing is
     * sent. 1; 0 when there is no socket or no way there, and then local is as it was. */
    int (*GetRoutingInf)(Tq4_sockaddr destination, Tq4_sockaddr local);
    /* Set the address to the socket's own, or its peer's. 1; 0 on failure, and then the address is as it was. */
    int (*GetLocalAddr)(int descriptor, Tq4_sockaddr address);
    int (*GetRemoteAddr)(int descriptor, Tq4_sockaddr address);
} Tq4_socket_api_;

extern TQ4_API const Tq4_socket_api_ *const Tq4_sock_api;

TQ4_END_DECLS

#endif
