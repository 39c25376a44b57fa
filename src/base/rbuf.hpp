// rbuf.hpp: the ring-shaped read buffer.
//
// Unread data is a first segment m_read .. m_cache1 followed by a wrapped second segment m_data .. m_cache2; the
// second one is used only while the first reaches the end of storage. Numbers are read as network order unless
// m_order_flag is 0.
#pragma once

#include <cstdint>

struct Tq4_rbuf {
    uint8_t *m_data = nullptr;
    int32_t m_len = 0;                      // capacity in bytes
    uint8_t *m_read = nullptr;              // read cursor inside the first segment
    uint8_t *m_cache1 = nullptr;            // end of the first segment
    uint8_t *m_cache2 = nullptr;            // end of the second segment, which starts at m_data
    int32_t m_order = 0;                    // 1 on a big-endian host
    int32_t m_order_flag = 0;               // 1: numbers are network order; 0: host order
    int (*get_ready)(Tq4_rbuf *) = nullptr; // no unread byte remains: > 0 data was added, 0 end of data, < 0 error
};
