// byte_order.hpp: what the buffers know about the order of bytes: the host's own, the reversal, the number types.
#pragma once

#include <cfloat>
#include <cstdint>
#include <cstring>

// The numbers that buffers read and write, X(name, type): one typed writer and reader each.
#define TQ4_NUMBER_TYPES(X)                                                                                            \
    X(short, short)                                                                                                    \
    X(ushort, unsigned short)                                                                                          \
    X(int, int)                                                                                                        \
    X(uint, unsigned)                                                                                                  \
    X(float, float)                                                                                                    \
    X(long, long)                                                                                                      \
    X(ulong, unsigned long)                                                                                            \
    X(double, double)                                                                                                  \
    X(ldouble, long double)

// 1 on a big-endian host, 0 on a little-endian one: whether 0x3931 starts with its '9' in memory.
inline uint8_t Tq4_host_order() {
    const uint16_t scratch = 0x3931;
    uint8_t first;
    std::memcpy(&first, &scratch, 1);
    return first == '9';
}

// Copies n bytes in reverse order; the two must not overlap. A constant 2, 4 or 8 becomes one load, swap and store.
inline void Tq4_reverse_copy(void *destination, const void *source, unsigned long n) {
    auto *to = static_cast<uint8_t *>(destination);
    auto *from = static_cast<const uint8_t *>(source);
    if (n == 8) {
        uint64_t v;
        std::memcpy(&v, from, 8);
        v = __builtin_bswap64(v);
        std::memcpy(to, &v, 8);
    } else if (n == 4) {
        uint32_t v;
        std::memcpy(&v, from, 4);
        v = __builtin_bswap32(v);
        std::memcpy(to, &v, 4);
    } else {
        for (unsigned long i = 0; i < n; ++i) to[i] = from[n - 1 - i];
    }
}

// The whole storage of a number as bytes in host order. What the extended format leaves unused is zero, so that
// nothing of the caller's stack goes out with it.
template <class Number> void Tq4_number_storage(Number value, uint8_t (&raw)[sizeof(Number)]) {
    constexpr bool padded = sizeof(Number) == 16 && LDBL_MANT_DIG == 64;
    constexpr unsigned long used = padded ? 10 : sizeof(Number);
    std::memcpy(raw, &value, used);
    if constexpr (padded) std::memset(raw + used, 0, sizeof(Number) - used);
}
