// gb18030_kernels.hpp: the conversions of GB18030, one row for each set of processor instructions.
//
// All kernels give the same results; they differ in speed alone. The rows go from the slowest, which every processor
// runs, to the fastest.
#pragma once

#include <span>

#include "base/charset/gb18030.hpp"

// Where a conversion stands in its input and its room.
struct Gb18030_cursor {
    const uint8_t *in, *in_end;
    uint8_t *out, *out_end;

    Gb18030_cursor(Tq4_bytes bytes, Tq4_room room)
        : in(bytes.data), in_end(bytes.data + bytes.size), out(room.data), out_end(room.data + room.size) {}
    std::size_t left() const { return static_cast<std::size_t>(in_end - in); }
    std::size_t room() const { return static_cast<std::size_t>(out_end - out); }
    bool has(std::size_t left_bytes, std::size_t room_bytes) const {
        return left() >= left_bytes && room() >= room_bytes;
    }
    void advance(std::size_t consumed, std::size_t produced) {
        in += consumed;
        out += produced;
    }
};

using Gb18030_conversion = Tq4_converted(Tq4_bytes in, Tq4_room out);

struct Gb18030_kernel {
    const char *name;
    bool (*is_supported)(); // by this processor
    Gb18030_conversion *utf8_to_gb18030;
    Gb18030_conversion *gb18030_to_utf8;
    Gb18030_conversion *units_to_gb18030;
    Gb18030_conversion *gb18030_to_units;
};

// All kernels of this build, in order. The conversions use the last one that the processor supports.
std::span<const Gb18030_kernel *const> gb18030_kernels();

extern const Gb18030_kernel gb18030_portable;
extern const Gb18030_kernel gb18030_avx512;
