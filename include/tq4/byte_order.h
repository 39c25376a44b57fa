/* byte_order.h: byte orders and the exchange between them. */
#ifndef TQ4_BYTE_ORDER_H
#define TQ4_BYTE_ORDER_H

#include "tq4/api.h"

TQ4_BEGIN_DECLS

typedef enum Tq4_ByteOrder {
    ByteOrder_SameHost = 0,
    ByteOrder_BigEndians = 1,
    ByteOrder_LittleEndians = 2,
    ByteOrder_MiddleEndians = 3
} Tq4_ByteOrder;

/* Copies n bytes from source to destination so that a number changes between host and network order: reversed on a
 * little-endian host, straight otherwise. The two must not overlap. Returns n; 0 when either is null. */
TQ4_API unsigned long host_net_exchange(const void *source, void *destination, unsigned long n);

TQ4_END_DECLS

#endif
