// conversion.hpp: what every character-set conversion takes and gives.
//
// A conversion is a pure function from a view of bytes to a block of room. It stops at the end of the input, before
// the first character that is malformed, cut short or has no counterpart, and before the first character that does not
// fit into the room; the caller gives more room and calls again until nothing more is consumed. What the room has
// beyond the output may be written over too.
#pragma once

#include <cstddef>
#include <cstdint>

struct Tq4_bytes {
    const uint8_t *data;
    std::size_t size;
};

struct Tq4_room {
    uint8_t *data;
    std::size_t size;
};

struct Tq4_converted {
    std::size_t consumed; // bytes of input
    std::size_t produced; // bytes of output
};
