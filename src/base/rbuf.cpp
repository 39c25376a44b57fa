// rbuf: the ring-shaped read buffer.
//
//      m_data     m_cache2        m_read          m_cache1
//      | second ->|    free       | first ------->|   (free behind the first only while there is no second)
//
// Invariant: m_data <= m_cache2 <= m_read <= m_cache1 <= end of storage, and when there is a second segment the first
// one reaches the end. So the cursor moves to the second segment exactly when it has run through the first.
//
// All operations cost the bytes they move; growing moves the smaller of the two segments, besides what the allocator
// moves. Sizes fit 31 bits: room beyond that cannot be had.
#include "base/rbuf.hpp"

#include <algorithm>
#include <climits>
#include <cstdlib>

#include "assert.hpp"

static constexpr long smallest_capacity = 256;

static int default_get_ready(Tq4_rbuf *) { return -1; }

static uint8_t *end_of(const Tq4_rbuf *buffer) { return buffer->m_data + buffer->m_len; }
static long first_size(const Tq4_rbuf *buffer) { return buffer->m_cache1 - buffer->m_read; }
static long second_size(const Tq4_rbuf *buffer) { return buffer->m_cache2 - buffer->m_data; }

// What always holds; called after each operation that moves a cursor.
static void check([[maybe_unused]] const Tq4_rbuf *buffer) {
    TQ4_CHECK(buffer->m_data <= buffer->m_cache2 && buffer->m_cache2 <= buffer->m_read);
    TQ4_CHECK(buffer->m_read <= buffer->m_cache1 && buffer->m_cache1 <= end_of(buffer));
    TQ4_CHECK(second_size(buffer) == 0 || buffer->m_cache1 == end_of(buffer));
}

// Gives the storage a new size, not below the present one; all cursors keep their offsets.
static bool reallocate(Tq4_rbuf *buffer, long size) {
    if (size > INT32_MAX) return false;
    long read = buffer->m_read - buffer->m_data;
    long cache1 = buffer->m_cache1 - buffer->m_data;
    long cache2 = second_size(buffer);
    void *storage = std::realloc(buffer->m_data, static_cast<unsigned long>(size));
    if (!storage) return false;
    buffer->m_data = static_cast<uint8_t *>(storage);
    buffer->m_len = static_cast<int32_t>(size);
    buffer->m_read = buffer->m_data + read;
    buffer->m_cache1 = buffer->m_data + cache1;
    buffer->m_cache2 = buffer->m_data + cache2;
    return true;
}

Tq4_rbuf *Tq4_rbuf_Create(long size) {
    auto *buffer = new Tq4_rbuf{};
    Tq4_rbuf_Init(buffer, size);
    return buffer;
}

void Tq4_rbuf_Init(Tq4_rbuf *buffer, long size) {
    size = std::max(size, smallest_capacity);
    if (size <= buffer->m_len || !reallocate(buffer, size)) return;
    Tq4_rbuf_Reset(buffer);
    *buffer->m_data = 0;
    buffer->m_order = Tq4_host_order();
    buffer->m_order_flag = 1;
    buffer->get_ready = default_get_ready;
}

void Tq4_rbuf_Release(Tq4_rbuf *buffer) {
    if (!buffer) return;
    std::free(buffer->m_data);
    *buffer = {};
}

void Tq4_rbuf_Delete(Tq4_rbuf *buffer) {
    Tq4_rbuf_Release(buffer);
    delete buffer;
}

Tq4_rbuf *Tq4_rbuf_dup(const Tq4_rbuf *buffer) {
    if (!buffer) return nullptr;
    Tq4_rbuf *duplicate = Tq4_rbuf_Create(buffer->m_len);
    Tq4_rbuf_Clone(duplicate, buffer);
    duplicate->m_order_flag = buffer->m_order; // deliberate: readers of duplicates expect host order
    return duplicate;
}

// The offsets are the source's, but in a larger storage a first segment with a second one behind it moves up to the
// end.
void Tq4_rbuf_Clone(Tq4_rbuf *destination, const Tq4_rbuf *source) {
    if (!destination || !source || destination == source) return;
    if (destination->m_len < source->m_len && !reallocate(destination, source->m_len)) return;
    bool wrapped = second_size(source) > 0;
    long moved = wrapped ? destination->m_len - source->m_len : 0;
    if (source->m_len) std::memcpy(destination->m_data, source->m_data, static_cast<unsigned long>(source->m_len));
    destination->m_read = destination->m_data + (source->m_read - source->m_data) + moved;
    destination->m_cache1 = destination->m_read + first_size(source);
    destination->m_cache2 = destination->m_data + second_size(source);
    if (moved) std::memcpy(destination->m_read, source->m_read, static_cast<unsigned long>(first_size(source)));
    destination->m_order = source->m_order;
    destination->m_order_flag = source->m_order_flag;
    destination->get_ready = source->get_ready;
    check(destination);
}

void Tq4_rbuf_Reset(Tq4_rbuf *buffer) { buffer->m_read = buffer->m_cache1 = buffer->m_cache2 = buffer->m_data; }

// The second segment becomes the first one, which has been read to its end.
static void go_to_second(Tq4_rbuf *buffer) {
    buffer->m_read = buffer->m_data;
    buffer->m_cache1 = buffer->m_cache2;
    buffer->m_cache2 = buffer->m_data;
    check(buffer);
}

// Makes the first segment non-empty: 1, or the hook's result below 1.
static int want_data(Tq4_rbuf *buffer) {
    if (first_size(buffer) > 0) return 1;
    if (second_size(buffer) == 0) {
        int ready = buffer->get_ready ? buffer->get_ready(buffer) : -1;
        if (ready < 1) return ready;
        if (Tq4_rbuf_data_size(buffer) == 0) return 0;
    }
    if (first_size(buffer) == 0) go_to_second(buffer);
    return 1;
}

int Tq4_rbuf_get(Tq4_rbuf *buffer) {
    int ready = want_data(buffer);
    if (ready < 1) return ready == INT_MIN ? ready : ready - 1;
    return *buffer->m_read++;
}

int Tq4_rbuf_ungetch(Tq4_rbuf *buffer, int byte) {
    if (buffer->m_read == buffer->m_data) {
        if (Tq4_rbuf_data_size(buffer) > 0 || buffer->m_len == 0) return 0;
        *buffer->m_cache1++ = static_cast<uint8_t>(byte);
        return *buffer->m_read;
    }
    if (second_size(buffer) > 0 && buffer->m_cache2 == buffer->m_read) return 0;
    return *--buffer->m_read;
}

int Tq4_rbuf_UnRead(Tq4_rbuf *buffer, int byte) { return Tq4_rbuf_ungetch(buffer, byte); }

// Consumes n bytes of the first segment, which holds as many.
static void consume(Tq4_rbuf *buffer, void *out, long n) {
    std::memcpy(out, buffer->m_read, static_cast<unsigned long>(n));
    buffer->m_read += n;
    check(buffer);
}

long Tq4_rbuf_Read_data(Tq4_rbuf *buffer, void *out, unsigned long n) {
    auto *to = static_cast<uint8_t *>(out);
    long wanted = n > LONG_MAX ? LONG_MAX : static_cast<long>(n);
    long done = 0;
    while (done < wanted) {
        int ready = want_data(buffer);
        if (ready < 1) return done ? done : ready;
        long chunk = std::min(wanted - done, first_size(buffer));
        consume(buffer, to + done, chunk);
        done += chunk;
    }
    return done;
}

int Tq4_rbuf_get_value(Tq4_rbuf *buffer, void *out, int width) {
    uint8_t raw[16];
    if (width < 0 || width > static_cast<int>(sizeof raw)) return -1;
    auto size = static_cast<unsigned long>(width);
    if (Tq4_rbuf_Read_data(buffer, raw, size) != width) return -1;
    if (buffer->m_order_flag && !buffer->m_order)
        Tq4_reverse_copy(out, raw, size);
    else
        std::memcpy(out, raw, size);
    return width;
}

int Tq4_rbuf_Read_uchar(Tq4_rbuf *buffer, unsigned char *out) {
    int byte = Tq4_rbuf_getch(buffer);
    if (byte < 0) return byte + 1;
    *out = static_cast<unsigned char>(byte);
    return 1;
}

int Tq4_rbuf_Read_char(Tq4_rbuf *buffer, char *out) {
    return Tq4_rbuf_Read_uchar(buffer, reinterpret_cast<unsigned char *>(out));
}

long Tq4_rbuf_skip(Tq4_rbuf *buffer, long n) {
    long unread = Tq4_rbuf_data_size(buffer);
    long skipped = n < 0 ? unread : std::min(n, unread);
    long in_second = skipped - first_size(buffer);
    if (in_second > 0) {
        go_to_second(buffer);
        buffer->m_read += in_second;
    } else {
        buffer->m_read += skipped;
    }
    check(buffer);
    return skipped;
}

// Storage has grown by increment behind a wrapped ring: the second segment goes after the first, or, when it is too
// long to fit there for sure, the first one moves up to the new end.
static void unwrap(Tq4_rbuf *buffer, long request, long increment) {
    long first = first_size(buffer), second = second_size(buffer);
    if (second > request) {
        std::memmove(buffer->m_read + increment, buffer->m_read, static_cast<unsigned long>(first));
        buffer->m_read += increment;
        buffer->m_cache1 += increment;
    } else {
        std::memcpy(buffer->m_cache1, buffer->m_data, static_cast<unsigned long>(second));
        buffer->m_cache1 += second;
        buffer->m_cache2 = buffer->m_data;
    }
}

long Tq4_rbuf_space(Tq4_rbuf *buffer, long n) {
    long unread = Tq4_rbuf_data_size(buffer);
    if (n <= buffer->m_len - unread) return buffer->m_len - unread;
    if (n > INT32_MAX) return 0;
    long request = std::max(n, std::min(first_size(buffer), second_size(buffer)));
    long step = buffer->m_len < 4096 ? 1024 : 4096;
    long increment = (request + step - 1) / step * step;
    if (!reallocate(buffer, buffer->m_len + increment)) return 0;
    if (second_size(buffer) > 0) unwrap(buffer, request, increment);
    check(buffer);
    return buffer->m_len - unread;
}

// The contiguous room at the producer's end of the ring: behind the first segment, or between the second and the
// cursor once the first reaches the end of storage.
static uint8_t *producer_room(const Tq4_rbuf *buffer, long *size) {
    bool behind_first = buffer->m_cache1 < end_of(buffer);
    *size = behind_first ? end_of(buffer) - buffer->m_cache1 : buffer->m_read - buffer->m_cache2;
    return behind_first ? buffer->m_cache1 : buffer->m_cache2;
}

uint8_t *Tq4_rbuf_buffer(Tq4_rbuf *buffer, long *size) {
    if (Tq4_rbuf_space(buffer, 1) > 0) return producer_room(buffer, size);
    *size = 0;
    return nullptr;
}

long Tq4_rbuf_fill(Tq4_rbuf *buffer, long n) {
    long size;
    uint8_t *room = producer_room(buffer, &size);
    if (n < 0 || n > size) return -1;
    (room == buffer->m_cache1 ? buffer->m_cache1 : buffer->m_cache2) += n;
    check(buffer);
    return Tq4_rbuf_data_size(buffer);
}
