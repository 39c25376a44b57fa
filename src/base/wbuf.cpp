// wbuf: the growable write buffer.
//
// Two sizes: m_len is the capacity that callers see, m_room what is really allocated. The capacity follows its rule of
// small steps; only when it passes m_room is the storage reallocated, to at least twice its size, so that n appended
// bytes cost about n moved bytes. First storage that is borrowed (m_fixed) is copied out of and never freed.
//
// Room that cannot exist, also because rounding would wrap or the ceiling is passed, and room that the allocator
// refuses leave the buffer exactly as it was.
#include "base/wbuf.hpp"

#include <algorithm>
#include <climits>
#include <cstdlib>

static constexpr uint64_t smallest_capacity = 8;
static constexpr uint64_t default_request = 64; // what the default put_ready asks for

static int clamped(uint64_t n) { return static_cast<int>(std::min<uint64_t>(n, INT_MAX)); }

static int default_put_ready(Tq4_wbuf *buffer) {
    return clamped(buffer->m_cnt ? buffer->m_cnt : Tq4_wbuf_space(buffer, default_request));
}

int Tq4_wbuf_flush_nothing(Tq4_wbuf *buffer) { return clamped(Tq4_wbuf_size(buffer)); }

// Moves the storage to an allocation of exactly room bytes, more than there are. Capacity and offsets stay.
static bool reallocate(Tq4_wbuf *buffer, uint64_t room) {
    bool borrowed = buffer->m_data == buffer->m_fixed;
    void *storage = std::realloc(borrowed ? nullptr : buffer->m_data, room);
    if (!storage) return false;
    if (borrowed && buffer->m_data) std::memcpy(storage, buffer->m_data, buffer->m_len);
    uint64_t written = Tq4_wbuf_size(buffer);
    buffer->m_data = static_cast<uint8_t *>(storage);
    buffer->m_ptr = buffer->m_data + written;
    buffer->m_room = room;
    Tq4_wbuf_check(buffer);
    return true;
}

static bool has_room(Tq4_wbuf *buffer, uint64_t capacity) {
    return capacity <= buffer->m_room || (capacity <= Tq4_wbuf_ceiling && reallocate(buffer, capacity));
}

static bool has_room_and_reserve(Tq4_wbuf *buffer, uint64_t capacity) {
    uint64_t twice = std::min(2 * buffer->m_room, Tq4_wbuf_ceiling);
    if (capacity > buffer->m_room && capacity < twice && reallocate(buffer, twice)) return true;
    return has_room(buffer, capacity);
}

static void start(Tq4_wbuf *buffer, uint64_t capacity) {
    buffer->m_len = capacity;
    buffer->m_order = Tq4_host_order();
    buffer->m_order_flag = 1;
    buffer->put_ready = default_put_ready;
    Tq4_wbuf_Reset(buffer);
}

Tq4_wbuf *Tq4_wbuf_Create(uint64_t size) {
    auto *buffer = new Tq4_wbuf{};
    Tq4_wbuf_Init(buffer, size);
    return buffer;
}

void Tq4_wbuf_Init(Tq4_wbuf *buffer, uint64_t size) {
    size = std::max(size, smallest_capacity);
    if (size > buffer->m_len && has_room(buffer, size)) start(buffer, size);
}

void Tq4_wbuf_InitFixed(Tq4_wbuf *buffer, void *storage, uint64_t size) {
    if (!storage || size == 0) return Tq4_wbuf_Init(buffer, size);
    buffer->m_data = buffer->m_fixed = static_cast<uint8_t *>(storage);
    buffer->m_room = size;
    start(buffer, size);
}

void Tq4_wbuf_Release(Tq4_wbuf *buffer) {
    if (!buffer) return;
    if (buffer->m_data != buffer->m_fixed) std::free(buffer->m_data);
    *buffer = {};
}

void Tq4_wbuf_Delete(Tq4_wbuf *buffer) {
    Tq4_wbuf_Release(buffer);
    delete buffer;
}

Tq4_wbuf *Tq4_wbuf_Dup(const Tq4_wbuf *buffer) {
    if (!buffer) return nullptr;
    Tq4_wbuf *duplicate = Tq4_wbuf_Create(buffer->m_len);
    Tq4_wbuf_Copy(duplicate, buffer);
    return duplicate;
}

void Tq4_wbuf_Copy(Tq4_wbuf *destination, const Tq4_wbuf *source) {
    if (!destination || !source || destination == source) return;
    if (!has_room(destination, source->m_len)) return;
    if (source->m_len) std::memcpy(destination->m_data, source->m_data, source->m_len);
    uint64_t written = Tq4_wbuf_size(source);
    destination->m_len = std::max(destination->m_len, source->m_len);
    destination->m_ptr = destination->m_data + written;
    destination->m_cnt = destination->m_len - written;
    destination->m_order = source->m_order;
    destination->m_order_flag = source->m_order_flag;
    destination->put_ready = source->put_ready;
}

void Tq4_wbuf_Reset(Tq4_wbuf *buffer) {
    buffer->m_ptr = buffer->m_data;
    buffer->m_cnt = buffer->m_len;
    if (buffer->m_data) *buffer->m_data = 0;
    Tq4_wbuf_check(buffer);
}

Tq4_wbuf *Tq4_wbuf_extend(Tq4_wbuf *buffer, uint64_t n) {
    if (n > Tq4_wbuf_ceiling) return nullptr;
    uint64_t step = buffer->m_len < 4096 ? 128 : 4096;
    uint64_t increment = (n + step - 1) / step * step;
    if (!has_room_and_reserve(buffer, buffer->m_len + increment)) return nullptr;
    buffer->m_len += increment;
    buffer->m_cnt += increment;
    Tq4_wbuf_check(buffer);
    return buffer;
}

uint64_t Tq4_wbuf_make_space(Tq4_wbuf *buffer, uint64_t n) {
    bool holds_data = buffer->m_ptr != buffer->m_data;
    if (holds_data && (!buffer->fflush || buffer->fflush(buffer) < 1)) return buffer->m_cnt;
    if (buffer->m_cnt < n) Tq4_wbuf_extend(buffer, n - buffer->m_cnt);
    return buffer->m_cnt;
}

uint64_t Tq4_wbuf_skip(Tq4_wbuf *buffer, uint64_t n) {
    if (n == ~uint64_t{0}) {
        const void *nul = buffer->m_cnt ? std::memchr(buffer->m_ptr, 0, buffer->m_cnt) : nullptr;
        n = nul ? static_cast<uint64_t>(static_cast<const uint8_t *>(nul) - buffer->m_ptr) : buffer->m_cnt;
    }
    n = std::min(n, buffer->m_cnt);
    buffer->m_ptr += n;
    buffer->m_cnt -= n;
    Tq4_wbuf_check(buffer);
    return n;
}

static int ask_put_ready(Tq4_wbuf *buffer) {
    int result = buffer->put_ready ? buffer->put_ready(buffer) : 0;
    return result > 0 && buffer->m_cnt == 0 ? 0 : result;
}

int Tq4_wbuf_put(Tq4_wbuf *buffer, int byte) {
    int ready = ask_put_ready(buffer);
    if (ready < 1) return ready == INT_MIN ? ready : ready - 1;
    return Tq4_wbuf_putch(buffer, byte);
}

namespace {

// Bytes to append, which may lie in the buffer itself: found again after its storage has moved.
class Source {
public:
    Source(const Tq4_wbuf *buffer, const void *bytes) : m_bytes(static_cast<const uint8_t *>(bytes)) {
        auto offset = reinterpret_cast<uintptr_t>(bytes) - reinterpret_cast<uintptr_t>(buffer->m_data);
        m_inside = offset < buffer->m_len;
        m_offset = offset;
    }
    // n bytes of the source from the given position on go to the cursor, where there is room for them.
    void append(Tq4_wbuf *buffer, uint64_t position, uint64_t n) const {
        if (n == 0) return;
        const uint8_t *from = m_inside ? buffer->m_data + m_offset : m_bytes;
        std::memmove(buffer->m_ptr, from + position, n);
        buffer->m_ptr += n;
        buffer->m_cnt -= n;
        Tq4_wbuf_check(buffer);
    }

private:
    const uint8_t *m_bytes; // borrowed
    bool m_inside;
    uint64_t m_offset;
};

} // namespace

void Tq4_wbuf_make_memcat(Tq4_wbuf *buffer, const void *bytes, uint64_t n) {
    if (!bytes) return;
    Source source(buffer, bytes);
    if (Tq4_wbuf_space(buffer, n) >= n) source.append(buffer, 0, n);
}

long Tq4_wbuf_Write(Tq4_wbuf *buffer, const void *bytes, uint64_t n) {
    if (!bytes) return -100;
    if (n == ~uint64_t{0}) n = std::strlen(static_cast<const char *>(bytes));
    Source source(buffer, bytes);
    for (uint64_t done = 0; done < n;) {
        int ready = buffer->m_cnt ? 1 : ask_put_ready(buffer);
        if (ready < 1) return ready;
        uint64_t chunk = std::min(n - done, buffer->m_cnt);
        source.append(buffer, done, chunk);
        done += chunk;
    }
    return static_cast<long>(n);
}

int Tq4_wbuf_put_value(Tq4_wbuf *buffer, const void *address, int width) {
    auto *bytes = static_cast<const uint8_t *>(address);
    bool reversed = buffer->m_order_flag && !buffer->m_order;
    for (int i = 0; i < width; ++i) {
        int byte = bytes[reversed ? width - 1 - i : i];
        if (Tq4_wbuf_putch(buffer, byte) != byte) return -1;
    }
    return width;
}
