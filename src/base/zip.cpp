// zip: raw deflate and inflate streams that append what they produce to a string.
//
// Output is made in steps of fixed size: each step reserves its room at the end of the string, runs zlib once and gives
// back what was not used. Whether a step flushes is decided once a step from the bytes fed since the last forced
// flush, deliberately not per byte of input; the flush points are part of the compressed bytes that peers see.
#include "tq4/zip.h"

#include <algorithm>
#include <climits>
#include <cstring>

#include <zlib.h>

#include "module.hpp"

namespace {

// What tells the two directions apart.
struct Direction {
    uInt step;                  // bytes of output room a step
    unsigned long flush_from;   // bytes fed from which a step is flushed
    unsigned long flushed;      // bytes that a flush accounts for
    int (*run)(z_streamp, int); // deflate or inflate
    int (*end)(z_streamp);
    bool (*stops)(int result);
};

constexpr Direction compressing = {
    .step = 512,
    .flush_from = 1025,
    .flushed = 1024,
    .run = deflate,
    .end = deflateEnd,
    .stops = [](int result) { return result == Z_STREAM_ERROR; },
};
constexpr Direction decompressing = {
    .step = 1024,
    .flush_from = 33,
    .flushed = 32,
    .run = inflate,
    .end = inflateEnd,
    .stops =
        [](int result) {
            return result == Z_STREAM_ERROR || result == Z_DATA_ERROR || result == Z_MEM_ERROR ||
                   result == Z_STREAM_END || result == Z_NEED_DICT;
        },
};

constexpr int raw_deflate = -15; // window bits, negative for no header
constexpr int level = 9;
constexpr int memory_level = 9;

// One direction's stream with the string it appends to. Idle while zlib keeps no state for it.
template <const Direction &direction> struct Stream {
    z_stream strm{};
    Tq4_string buf = nullptr; // borrowed
    unsigned long fed = 0;    // bytes of input since the last forced flush

    ~Stream() { End(); }
    bool started() const { return strm.state != nullptr; }
    void Start(Tq4_string out) {
        End();
        strm = {};
        buf = out;
    }
    void End() {
        if (started()) direction.end(&strm);
        fed = 0;
    }
    void Forget() {
        End();
        buf = nullptr;
    }
    long OutputLength() const { return (*buf)->length(buf); }

    long Feed(const void *bytes, unsigned long len) {
        if (!started()) return 0;
        fed += len;
        auto *next = static_cast<const Bytef *>(bytes);
        do {
            const auto slice = static_cast<uInt>(std::min<unsigned long>(len, UINT_MAX));
            strm.next_in = const_cast<Bytef *>(next);
            strm.avail_in = slice;
            if (!RunSteps(Z_NO_FLUSH)) break;
            next += slice;
            len -= slice;
        } while (len);
        return OutputLength();
    }
    void Finish() {
        if (!started()) return;
        strm.next_in = nullptr;
        strm.avail_in = 0;
        RunSteps(Z_FINISH);
        End();
    }

private:
    // Runs zlib until it leaves room unused; false when the stream can take no more.
    bool RunSteps(int flush) {
        do {
            char *room = (*buf)->Extend(buf, direction.step);
            if (!room) return false;
            strm.next_out = reinterpret_cast<Bytef *>(room);
            strm.avail_out = direction.step;
            const int result = direction.run(&strm, flush == Z_FINISH ? Z_FINISH : FlushOfStep());
            (*buf)->truncate_tail(buf, strm.avail_out);
            if (direction.stops(result)) return false;
        } while (strm.avail_out == 0);
        return true;
    }
    int FlushOfStep() {
        if (fed < direction.flush_from) return Z_NO_FLUSH;
        fed -= direction.flushed;
        return Z_FULL_FLUSH;
    }
};

unsigned long input_length(const void *bytes, long len) {
    if (!bytes) return 0;
    return len < 0 ? std::strlen(static_cast<const char *>(bytes)) : static_cast<unsigned long>(len);
}

} // namespace

struct Tq4_zip_obj {
    Stream<compressing> m_zip;
    Stream<decompressing> m_unzip;

    void Reset() {
        m_zip.Forget();
        m_unzip.Forget();
    }
    void Copy(const Tq4_zip_obj *) {} // streams are not copied: a duplicate is idle
    bool Equal(const Tq4_zip_obj &other) const { return this == &other; }

    int zip_start(Tq4_string out) {
        if (!out) return Z_STREAM_ERROR;
        m_zip.Start(out);
        return deflateInit2(&m_zip.strm, level, Z_DEFLATED, raw_deflate, memory_level, Z_DEFAULT_STRATEGY);
    }
    long zip(const void *bytes, long len) { return m_zip.Feed(bytes, input_length(bytes, len)); }
    void zip_end() { m_zip.Finish(); }

    int unzip_start(Tq4_string out) {
        if (!out) return Z_STREAM_ERROR;
        m_unzip.Start(out);
        return inflateInit2(&m_unzip.strm, raw_deflate);
    }
    // Compressed bytes have no terminator: a negative length is none.
    long unzip(const void *bytes, long len) { return m_unzip.Feed(bytes, len < 0 ? 0 : input_length(bytes, len)); }
    void unzip_end() { m_unzip.End(); }
};

const Tq4_zip_ Tq4_zip_itf = {
    .zip_start = Tq4_op<&Tq4_zip_obj::zip_start>,
    .zip = Tq4_op<&Tq4_zip_obj::zip>,
    .zip_end = Tq4_op<&Tq4_zip_obj::zip_end>,
    .unzip_start = Tq4_op<&Tq4_zip_obj::unzip_start>,
    .unzip = Tq4_op<&Tq4_zip_obj::unzip>,
    .unzip_end = Tq4_op<&Tq4_zip_obj::unzip_end>,
};
TQ4_MODULE(zip)
