// byte_order: the exchange between host and network order.
//
// A marker number tells the host's order. On a little-endian host its bytes are 00 00 00 01: the first sixteen bits
// are zero and numbers are reversed. On a big-endian host its first byte is not zero and numbers are copied straight.
// On any other host nothing is done.
#include "base/byte_order.hpp"

#include "tq4/byte_order.h"

static const uint32_t order_marker = 0x01000000;

extern "C" unsigned long host_net_exchange(const void *source, void *destination, unsigned long n) {
    if (!source || !destination) return 0;
    uint8_t bytes[4];
    std::memcpy(bytes, &order_marker, sizeof bytes);
    if (bytes[0] == 0 && bytes[1] == 0) {
        Tq4_reverse_copy(destination, source, n);
        return n;
    }
    if (bytes[0] == 0) return 0;
    std::memcpy(destination, source, n);
    return n;
}
