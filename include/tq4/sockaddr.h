/* sockaddr.h: Tq4_sockaddr, one socket address of any family: IPv4, IPv6, or local (a path in the file system), with
 * its text and its port.
 *
 * Create ignores its parameter and gives an address without a family: its text is "", its port 0, its record has
 * family 0 and length 0. Reset returns it to that. Copy takes over the source's address; a null source resets. Equal
 * is 1 for the same family, host (with the scope of IPv6) and port, for local addresses the same path.
 *
 * Null handles: operations that return a text or a record give null, all others 0. Texts returned are borrowed and
 * valid until the address is next changed or deleted.
 *
 * Threads: an address belongs to one thread at a time.
 */
#ifndef TQ4_SOCKADDR_H
#define TQ4_SOCKADDR_H

#include "tq4/object.h"

TQ4_BEGIN_DECLS

struct addrinfo; /* the system's, of <netdb.h> */
struct sockaddr; /* the system's, of <sys/socket.h> */

typedef struct Tq4_sockaddr_ Tq4_sockaddr_;
typedef const Tq4_sockaddr_ **Tq4_sockaddr; /* handle */

struct Tq4_sockaddr_ {
    /* 1 when the text names the same host, whatever the port, else 0. A text that starts with '/' is compared with the
     * path of a local address. Any other text is resolved as Init does it, which may block, and names each address of
     * the same family that it resolves to. */
    int (*EqualIp)(Tq4_sockaddr a, const char *text);
    /* Swaps the two addresses. A null other is ignored. */
    void (*Exchange)(Tq4_sockaddr a, Tq4_sockaddr other);
    /* Sets the address. A text that starts with '/' is the path of a local address, which has no port: it must fit the
     * system's record (107 bytes) and is never cut. Any other text is a numeric address or a host name, whose look-up
     * blocks; the first address found counts. Null and "" stand for the any-address of IPv4. The port is taken modulo
     * 65536. Returns 1; 0 when the path is too long or nothing is found, and then the address is as it was. */
    int (*Init)(Tq4_sockaddr a, const char *text, int port);
    /* Takes over (copies) an address in the system's form, of length bytes, at most 128 of which count. An address of
     * another family than the three is kept without text and port. Returns 1; 0 when raw is null or too short for its
     * family, and then the address is as it was. */
    int (*Init2)(Tq4_sockaddr a, const struct sockaddr *raw, unsigned long length);
    /* Refreshes family, text and port from the system's form, after a caller wrote that through Info. Returns 1; 0
     * when what it finds there is too short for its family, and then text and port are as they were. */
    int (*ReInit)(Tq4_sockaddr a);
    /* The numeric address, or the path. A local address without a path has "". */
    const char *(*ip)(Tq4_sockaddr a);
    /* The port in host order; 0 for a local address. */
    int (*port)(Tq4_sockaddr a);
    /* The address as the socket calls take it: ai_family, ai_socktype (datagram, for a local address stream),
     * ai_addrlen and ai_addr, which has room for 128 bytes. Borrowed: it lives as long as the address. */
    struct addrinfo *(*Info)(Tq4_sockaddr a);
    /* The IPv4 address as a number, in host order when host_order is non-zero, else in network order; 0 for other
     * families. */
    unsigned long (*sin_addr)(Tq4_sockaddr a, int host_order);
    /* The port, in host order when host_order is non-zero, else in network order. */
    int (*sin_port)(Tq4_sockaddr a, int host_order);
};

extern TQ4_API const Tq4_object_itf *const Tq4_sockaddr_oitf;

TQ4_END_DECLS

#endif
