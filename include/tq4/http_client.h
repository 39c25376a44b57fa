/* http_client.h: Tq4_http_client, HTTP/1.1 requests to one server over one connection that is kept alive.
 *
 * One request at a time: Request sends it, connecting first when there is no connection, and the reply comes to the
 * response callback, whole, on the thread of the socket service. The client is ready for the next request when the
 * callback begins, so that one may be sent from there, and from any other thread.
 *
 * A reply ends with its Content-Length, with its last chunk, or with its header when it has neither, or a length that
 * is no positive number, and in answer to HEAD. What a server sends while no request waits is dropped. A connection
 * that drops while a request waits is made again at once and the request is sent again, as a whole. The request ends
 * with what was parsed, its status 0 when none was, when a connection cannot be made, at the 16th drop in a row, when
 * the service stops, and when a server sends more than a client should take: a line of more than 64 KiB, more than
 * 1,000 header lines, a chunk of more than 2147483647 bytes, a body of more than 1 GiB. A body may then be shorter than
 * its Content-Length.
 *
 * Create takes the handle of the socket service (Tq4_socket), which is borrowed and outlives the client; without one
 * nothing can be sent. Reset and Delete close first. No callback runs after Delete, unless it was called inside one.
 * Copy does nothing, Equal is identity, Dup gives a fresh client of the same service.
 *
 * Null handles give 0. Threads: every operation from any thread; callbacks run on the thread of the socket service,
 * with no lock held. Delete once, from any thread, in callbacks too; elsewhere it waits for a callback that runs.
 */
#ifndef TQ4_HTTP_CLIENT_H
#define TQ4_HTTP_CLIENT_H

#include "tq4/socket.h"
#include "tq4/value_table.h"

TQ4_BEGIN_DECLS

typedef struct Tq4_http_client_ Tq4_http_client_;
typedef const Tq4_http_client_ **Tq4_http_client; /* handle */

/* A reply, with all that it points to valid until the callback returns. */
typedef struct Tq4_http_client_callback {
    const char *url;        /* of the request */
    int status;             /* of the reply; 0 when none came */
    Tq4_value_table header; /* texts by name, whose case is ignored; of a name that came more than once, the last. The
                             * callback may keep it and set this to null; then it deletes it. */
    Tq4_string data;        /* the body, likewise */
    Tq4_id *session_id;     /* what SetReqId gave before the request ended, else zero */
} Tq4_http_client_callback;

typedef void (*Tq4_http_client_responed)(Tq4_http_client client, Tq4_http_client_callback *response);
typedef void (*Tq4_http_client_on_disconnect)(Tq4_http_client client);

struct Tq4_http_client_ {
    /* Sets the value of the host line of requests to come; null empties it. */
    void (*SetHost)(Tq4_http_client client, const char *host);
    /* Remembers the server, whose name is resolved here, on the calling thread, which may block. The host text becomes
     * the host line when none is set. The connection is made by the first request. Nothing happens while connected. 1;
     * 0 when there is no such host. */
    int (*Connect)(Tq4_http_client client, const char *host, int port);
    /* 1 while the connection stands. */
    int (*IsConnect)(Tq4_http_client client);
    /* Closes the connection and forgets a request that waits, without its callback. The disconnect function is called
     * when there was a connection. The server, the host line and the id stay. */
    void (*Close)(Tq4_http_client client);
    /* Sets the id that responses carry; null: zero. */
    void (*SetReqId)(Tq4_http_client client, const Tq4_id *id);
    /* Sends a request; everything is copied. headers, or null: names by text, values that are texts or numbers, the
     * latter in decimal; they come before the lines of the client's own, "Connecting: keep-alive" and the length of the
     * body. body: null or empty for none. on_response may be null. 1: the callback will be called, unless Close or
     * Delete comes first; it may have been called already. 0, and nothing happens: without a server, while a request
     * waits, when method, url, host line or a header holds CR, LF or NUL, when a header is neither text nor number,
     * without method or url, and when the socket service does not run. */
    int (*Request)(Tq4_http_client client, const char *method, const char *url, Tq4_value_table headers,
                   Tq4_string body, Tq4_http_client_responed on_response);
    /* Sets the function that is called each time that the connection has dropped or was closed, before the callback of
     * a request that ends with it; null: none. */
    void (*SetOnDisConnect)(Tq4_http_client client, Tq4_http_client_on_disconnect on_disconnect);
};

extern TQ4_API const Tq4_object_itf *const Tq4_http_client_oitf;

TQ4_END_DECLS

#endif
