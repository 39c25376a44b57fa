// short_copy.hpp: copies and comparisons of a few dozen bytes, without a call.
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

// Whether two texts of n bytes, at least one block and at most two, are the same.
template <class Block> bool Tq4_same_two_blocks(const uint8_t *a, const uint8_t *b, std::size_t n) {
    const auto block = [](const uint8_t *at) {
        Block bits;
        std::memcpy(&bits, at, sizeof bits);
        return bits;
    };
    const std::size_t last = n - sizeof(Block);
    return ((block(a) ^ block(b)) | (block(a + last) ^ block(b + last))) == 0;
}

constexpr std::size_t Tq4_short_same_most = 32;

// Whether n bytes, at most Tq4_short_same_most, are the same.
inline bool Tq4_short_same(const uint8_t *a, const uint8_t *b, std::size_t n) {
    if (n >= 16) return Tq4_same_two_blocks<unsigned __int128>(a, b, n);
    if (n >= 8) return Tq4_same_two_blocks<uint64_t>(a, b, n);
    if (n >= 4) return Tq4_same_two_blocks<uint32_t>(a, b, n);
    if (n >= 2) return Tq4_same_two_blocks<uint16_t>(a, b, n);
    return n == 0 || *a == *b;
}
