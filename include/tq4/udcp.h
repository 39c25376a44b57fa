/* udcp.h: Tq4_udcp, reliable messages over one UDP socket.
 *
 * A connection carries messages of any size up to 32 MiB, each once, whole and in the order in which they were sent,
 * over a network that loses, repeats, reorders and delays datagrams. A module object has one UDP socket and up to 65536
 * connections on it. The side that calls Connect is the connection's master, the other its slave; apart from that both
 * do the same. A connection outlives a change of the peer's address. It ends when either side closes it, or when
 * nothing has come from the peer for five periods of the tuning; a master may then ask to connect anew.
 *
 *     Tq4_udcp u = Tq4_udcp_oitf->Create(&callbacks);
 *     (*u)->Init(u, socket, 0);
 *     (*u)->Start(u, 1, NULL, 0);
 *     (*u)->Connect(u, "192.0.2.1", 4000, &id, NULL, NULL);
 *     (*u)->Send(u, &id, "hello", 5, 0);          may be called at once: it leaves when the connection stands
 *
 * Nothing is encrypted. Each side draws a code for a connection and takes only datagrams that carry it, so that who
 * does not see the datagrams can neither read nor break a connection.
 *
 * Object-level: Create takes a Tq4_udcp_callback (copied) or null for none. Delete and Reset stop first. Copy does
 * nothing, a module object equals only itself, Dup gives a fresh one with the same callbacks.
 *
 * Addresses. Connect and ChangeDestAddr take the first address of a host that the socket can reach: on a socket of
 * IPv4, the default, only those of IPv4; on one of IPv6 ("::" for any) those of both. Ports are 1 to 65535.
 *
 * Threads: every operation may be called from any thread, but Init, Start, Stop and Delete from one at a time. All
 * callbacks run on the module's own thread, "Tq4_udcp_handler", one at a time; a callback that takes long delays all
 * connections. Callbacks may call every operation; Stop, Reset and Delete do nothing there. A callback that has not
 * returned 7 seconds after Stop began is killed, and then peers that were not told yet learn nothing of the end. A
 * callback must not throw. Null handles and null ids give 0. */
#ifndef TQ4_UDCP_H
#define TQ4_UDCP_H

#include "tq4/cxx_support.h"
#include "tq4/object.h"
#include "tq4/socket.h"
#include "tq4/string.h"

TQ4_BEGIN_DECLS

typedef struct Tq4_udcp_ Tq4_udcp_;
typedef const Tq4_udcp_ **Tq4_udcp; /* handle */

#define TQ4_UDCP_MOST_MESSAGE 33554432ul /* bytes of a message, at most */
#define TQ4_UDCP_MOST_POST 1442ul        /* bytes of a post, at most */

/* A connection, as callbacks see it; valid until the connection has ended. */
typedef struct Tq4_udcp_info {
    Tq4_udcp pair;    /* the module object */
    Tq4_id *id;       /* the connection's; not to be changed */
    const char *addr; /* the peer's address; before the first answer, what was given to Connect */
    int port;
    int byte_order; /* the peer's (Tq4_ByteOrder); 0 when it is this host's */
    char master;    /* 1 on the side that called Connect, else 0; with 0x80 when this side has asked to disconnect */
    /* The application's own. Connect sets user_id and user_data; a callback may set all three. */
    int user_type;
    Tq4_id user_id;
    void *user_data;
} Tq4_udcp_info;

/* A message that has come; valid during the callback. */
typedef struct Tq4_udcp_data {
    Tq4_string data; /* a callback that sets it to null keeps the string, and deletes it */
    unsigned delay;  /* milliseconds: how long it was on its way, more or less */
    char safe_flag;  /* 1 when it was sent with the flag, else 0 */
} Tq4_udcp_data;

/* What a module object tells the application. Any of them may be null. */
typedef struct Tq4_udcp_callback {
    /* The connection stands, on either side. */
    void (*OnConnectOk)(Tq4_udcp_info *info);
    /* The peer did not answer Connect, or a later attempt. The result is how many milliseconds to wait before the next
     * attempt (at least 200 are waited); negative, and without a callback: the connection ends. */
    int (*OnConnectFailed)(Tq4_udcp_info *info);
    /* The connection stands no longer: closed by either side, or lost. On the master the result is as that of
     * OnConnectFailed, unless this side has asked for the end; on the slave it means nothing. */
    int (*OnDisConnect)(Tq4_udcp_info *info);
    /* A message, in order. */
    void (*OnData)(Tq4_udcp_info *info, Tq4_udcp_data *data);
    /* A post, whenever it came. */
    void (*OnPost)(Tq4_udcp_info *info, Tq4_udcp_data *data);
    /* Messages wait: busy is 1 when there are more than 1024, and 0 when that is over. */
    void (*OnSendQeueuStatus)(Tq4_udcp_info *info, int busy);
    /* A message was refused: too many wait, or the connection is closing. */
    void (*OnSendError)(Tq4_udcp_info *info, Tq4_udcp_data *data);
} Tq4_udcp_callback;

struct Tq4_udcp_ {
    /* Binds the module object to a socket service, which is borrowed until Stop and started by its owner. Sets the
     * tuning: 0 for fast networks, 1 for many connections, 2 for slow ones; others count as 2. A connection takes the
     * higher one of its two sides. Ignored while started. */
    void (*Init)(Tq4_udcp u, Tq4_socket socket, int scheme);
    /* Opens the UDP socket, on a local address (null: any of IPv4) and a port (0: any free one), and starts the
     * module's thread. With client_only not 0, nobody can connect to it. Positive; 0 without a running socket service,
     * when the socket cannot be opened, and while started. After Stop it may be started again. */
    int (*Start)(Tq4_udcp u, int client_only, const char *addr, int port);
    /* Closes all connections, giving them 5000 ms to tell their peers, and ends the thread. Every connection that stood
     * gets its OnDisConnect. Other operations give 0 from the beginning. Ignored in a callback. */
    void (*Stop)(Tq4_udcp u);
    /* Begins a connection. The address is a numeric one or a host name, whose look-up blocks the caller. Its id is
     * written to *out. user_id and user_data are for the callbacks and may be null. Positive; 0 without a running
     * thread, for an address that cannot be found, and when there are 65536 connections. */
    int (*Connect)(Tq4_udcp u, const char *addr, int port, Tq4_id *out, const Tq4_id *user_id, void *user_data);
    /* Closes a connection. What was not sent yet is lost. 1; 0 without a running thread. */
    int (*DisConnect)(Tq4_udcp u, const Tq4_id *id);
    /* Sends up to TQ4_UDCP_MOST_POST bytes in one datagram, which may be lost, doubled or late. It is dropped while the
     * connection does not stand. Here and in Send a length of all ones means: up to the NUL. */
    void (*Post)(Tq4_udcp u, const Tq4_id *id, const void *bytes, unsigned long length);
    /* Sends a message of up to TQ4_UDCP_MOST_MESSAGE bytes. With the flag it is safe data: neither this side's queues
     * nor the peer's refuse it. 1 when it was handed over; 0 when it is too long, the module's queue is full or there
     * is no running thread. What is refused later, OnSendError tells. */
    int (*Send)(Tq4_udcp u, const Tq4_id *id, const void *bytes, unsigned long length, int flag);
    /* The same without copying. The string becomes the module's, whatever the result; *string is set to null. */
    void (*PostString)(Tq4_udcp u, const Tq4_id *id, Tq4_string *string);
    int (*SendString)(Tq4_udcp u, const Tq4_id *id, Tq4_string *string, int flag);
    /* Changes where a connection's datagrams go. A name is looked up on the calling thread. 1; 0 without a running
     * thread, and for an address that cannot be found. */
    int (*ChangeDestAddr)(Tq4_udcp u, const Tq4_id *id, const char *addr, int port);
    /* Replace how strings are made and freed; null: as cxx_support.h has it. To be set before Start. */
    void (*SetNewString)(Tq4_udcp u, Tq4_new_hook make);
    void (*SetDelString)(Tq4_udcp u, Tq4_delete_hook free_string);
};

extern TQ4_API const Tq4_object_itf *const Tq4_udcp_oitf;

TQ4_END_DECLS

#endif
