/* socket.h: Tq4_socket, one thread that owns the sockets of a service: datagram sockets, listeners with the connections
 * they accept, and client connections that are made again by themselves.
 *
 * Threads. Start makes the service thread, named "Tq4_socket". It alone touches sockets and runs every callback,
 * del_userobj included. Every operation may be called from any thread. On the service thread, thus in callbacks, it
 * runs at once and gives its own result; from elsewhere Open, Listen, Connect and Close wait until the service thread
 * has run it, and the send operations only hand their text over. Before Start and after Stop every operation gives 0 at
 * once. A callback must not throw, and must not wait for another thread that waits for the service.
 *
 * A callback may close any socket, its own too. After that its info must not be used any more.
 *
 * Sockets are known by their ids; an id that is stale, or was never given out, gives 0 and does nothing. At most 65536
 * sockets are open at once.
 *
 * The user's object. user_obj is the owner's; callbacks find it in the info. del_userobj, unless it is null, is called
 * with it exactly once, when the socket is gone: for each socket that was opened, and for each Connect that got a
 * record, whatever became of it. After an Open or Listen that failed, or when no record was free, the object stays the
 * caller's.
 *
 * Create ignores its parameter; Copy does nothing, Equal is identity, Dup gives a fresh service that is not started.
 * Reset stops. Delete stops first; in a callback, the service goes when that has returned. Null handles give 0 or null.
 */
#ifndef TQ4_SOCKET_H
#define TQ4_SOCKET_H

#include <stdarg.h>

#include "tq4/sockaddr.h"
#include "tq4/string.h"
#include "tq4/thread.h"

TQ4_BEGIN_DECLS

typedef struct Tq4_socket_ Tq4_socket_;
typedef const Tq4_socket_ **Tq4_socket; /* handle */

typedef enum Tq4_socket_type TQ4_INT {
    Tq4_socket_unknown = 0,
    Tq4_socket_tcp_client = 1, /* a connection, made or accepted */
    Tq4_socket_tcp_server = 2, /* a listener */
    Tq4_socket_udp = 3
} Tq4_socket_type;

/* A socket, as its owner describes it and as callbacks see it. What is given to an operation is used during the call
 * only, and addresses are copied; what a callback gets is the service's, valid until the socket is gone. */
typedef struct Tq4_socket_info {
    Tq4_socket_type type; /* written by the service */
    Tq4_id id;            /* written by the service: zero when there is no socket */
    int fd;               /* written by the service: the descriptor, which stays the service's, or -1 */
    Tq4_sockaddr local;   /* the address to bind to, or null; in callbacks, the socket's own address */
    Tq4_sockaddr remote;  /* the server to connect to; in callbacks the peer, of a datagram its sender */
    Tq4_id user_id;       /* the owner's, as are the next two */
    void *user_obj;
    void (*del_userobj)(void *user_obj);
} Tq4_socket_info;

/* What happens to a socket. Null functions are not called. */
typedef struct Tq4_socket_callback {
    /* Bytes of a connection, at most 2048, or one datagram, which may be empty. The callback may keep the string and
     * clear *data; then it deletes it. The result is ignored. */
    int (*OnDataOk)(Tq4_socket s, Tq4_socket_info *info, Tq4_string *data);
    /* A connection stands. master: 1 one that this side made, 0 an accepted one. */
    void (*OnConnectOk)(Tq4_socket s, Tq4_socket_info *info, int master);
    /* A connection was not made; error is the system's number. A result of 0 or more asks for another attempt after so
     * many milliseconds (10 at least), a negative one, or no function, ends it. When the attempt could not even begin
     * (no descriptor, an address that cannot be bound or has no way to it) the result is ignored: it ends. */
    int (*OnConnectFaild)(Tq4_socket s, Tq4_socket_info *info, int error);
    /* A connection has ended. master: 1 one that this side made, whose result is as for OnConnectFaild; 0 an accepted
     * one, or one that the owner closed. What waited to be sent is gone. */
    int (*OnDisConnect)(Tq4_socket s, Tq4_socket_info *info, int master);
    /* All that was given has been handed to the system. */
    void (*OnSendQueueEmpty)(Tq4_socket s, Tq4_socket_info *info);
    /* full 1: a send found more than 2048 texts waiting; told once. full 0: fewer than 1024 wait again. */
    void (*OnSendQueueFull)(Tq4_socket s, Tq4_socket_info *info, int full);
} Tq4_socket_callback;

/* What happens to a listener. Null functions are not called; without OnAccept every connection is refused. */
typedef struct Tq4_listen_callback {
    /* ok 1: the listener stands; 0: it failed, info is then the caller's. */
    void (*OnListenResult)(Tq4_socket s, Tq4_socket_info *info, int ok);
    /* A connection came. It may fill the user fields of child. Returns what the connection calls back, copied at once,
     * or null to refuse it: then it is closed, and nothing else is called for it but del_userobj. */
    const Tq4_socket_callback *(*OnAccept)(Tq4_socket s, Tq4_socket_info *info, Tq4_socket_info *child);
    /* An accepted connection has ended, after its OnDisConnect, while its listener lives. The result is ignored. */
    int (*OnChildClose)(Tq4_socket s, Tq4_socket_info *info, Tq4_socket_info *child);
} Tq4_listen_callback;

struct Tq4_socket_ {
    /* Starts the service and returns its thread, borrowed; when it runs already, that one. Null when the system refuses
     * a thread, or when it is called by a callback while Stop is on its way. */
    Tq4_thread (*Start)(Tq4_socket s);
    /* Stops it: every connection gets its OnDisConnect, every user's object is freed, on the calling thread, which is
     * the service thread meanwhile. What callbacks open then is refused. In a callback it returns at once and the
     * service thread does all this as its last act. A callback that does not return is waited for 2000 ms; then its
     * thread is killed inside it, and one that even this does not end is waited for. The service can be started again.
     */
    void (*Stop)(Tq4_socket s);
    /* Opens a datagram socket, bound to info->local if that is given and has a port. Only OnDataOk counts of the
     * callbacks. The outcome stands in info: id and fd. 0 always. The descriptor may be sent on by its owner, with
     * Tq4_sock_api; it waits for room, because the send buffer is as small as the system allows. */
    int (*Open)(Tq4_socket s, Tq4_socket_info *info, const Tq4_socket_callback *callback);
    /* Opens a listener on info->local. The outcome stands in info, as for Open, and OnListenResult tells it. 0 always.
     */
    int (*Listen)(Tq4_socket s, Tq4_socket_info *info, const Tq4_listen_callback *callback);
    /* Begins to connect to info->remote, from info->local if that is given. id and fd are written to info; the
     * callbacks tell the rest. A failure may be told before this returns. 0 always. */
    int (*Connect)(Tq4_socket s, Tq4_socket_info *info, const Tq4_socket_callback *callback);
    /* Closes a socket. A connection that stands gets its OnDisConnect with 0; one that waits for its next attempt makes
     * none. What waits to be sent is dropped. */
    void (*Close)(Tq4_socket s, const Tq4_id *id);
    /* Send on a connection, one text each: a formatted one (formats of Tq4_string's Sprintf), length bytes (all ones:
     * up to the NUL), or a string, which the service takes whatever it answers, clearing *text. While the connection is
     * being made, texts wait for it. 1: taken. 0: no such connection, or it waits for its next attempt, or more than
     * 2560 texts wait. From another thread 1 says that the text was handed over, 0 that the service has more than 4096
     * requests waiting. */
    int (*Printf)(Tq4_socket s, const Tq4_id *id, const char *format, ...);
    int (*vPrintf)(Tq4_socket s, const Tq4_id *id, const char *format, va_list args);
    int (*SendData)(Tq4_socket s, const Tq4_id *id, const void *bytes, unsigned long length);
    int (*SendString)(Tq4_socket s, const Tq4_id *id, Tq4_string *text);
};

extern TQ4_API const Tq4_object_itf *const Tq4_socket_oitf;

TQ4_END_DECLS

#endif
