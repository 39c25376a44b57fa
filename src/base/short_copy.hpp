// short_copy.hpp: copies of a few dozen bytes, without a call.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

constexpr std::size_t Tq4_short_copy_most = 64;

// Copies n bytes, at least one block and at most two, as its first and its last ones, which may overlap.
template <std::size_t block> void Tq4_copy_two_blocks(uint8_t *to, const uint8_t *from, std::size_t n) {
    struct Block {
        uint8_t bytes[block];
    } first, last;
    std::memcpy(&first, from, block);
    std::memcpy(&last, from + n - block, block);
    std::memcpy(to, &first, block);
    std::memcpy(to + n - block, &last, block);
}

// Copies n bytes, at most Tq4_short_copy_most; the two places may overlap.
inline void Tq4_short_copy(uint8_t *to, const uint8_t *from, std::size_t n) {
    if (n >= 32) return Tq4_copy_two_blocks<32>(to, from, n);
    if (n >= 16) return Tq4_copy_two_blocks<16>(to, from, n);
    if (n >= 8) return Tq4_copy_two_blocks<8>(to, from, n);
    if (n >= 4) return Tq4_copy_two_blocks<4>(to, from, n);
    if (n >= 2) return Tq4_copy_two_blocks<2>(to, from, n);
    if (n) *to = *from;
}
