// crypto_quick.cpp: the keyed block scrambling.
//
// A block enters the chaining block byte-reversed; each byte of the chaining block is then mirrored bit by bit and
// masked with a constant and the round key, and the eight results are both the output and the next chaining block.
// Every step is its own inverse, so unscrambling runs the same steps backwards from the output, which it knows.
// Output byte i depends on byte 7 - i of this block and byte i of the one before: eight chains side by side.
#include "base/charset/crypto_quick.hpp"

#include <cstring>

namespace {

constexpr std::size_t block_size = 8;

// The library's own constant, the first 64 bits of the fraction of the square root of two. Both ends share it: changing
// it makes every text scrambled so far unreadable.
constexpr uint8_t fixed_mask[block_size] = {0x6A, 0x09, 0xE6, 0x67, 0xF3, 0xBC, 0xC9, 0x08};

constexpr uint8_t mirrored_nibble[16] = {0x0, 0x8, 0x4, 0xC, 0x2, 0xA, 0x6, 0xE,
                                         0x1, 0x9, 0x5, 0xD, 0x3, 0xB, 0x7, 0xF};

inline uint8_t mirrored(uint8_t byte) {
    return static_cast<uint8_t>(mirrored_nibble[byte & 15] << 4 | mirrored_nibble[byte >> 4]);
}

void enter_reversed(crypto_quick_key_t *key, const uint8_t *in, std::size_t size) {
    for (std::size_t i = 0; i < size; ++i) key->iv[block_size - 1 - i] ^= in[i];
}

void emit_block(const crypto_quick_key_t *key, uint8_t *out) {
    for (std::size_t i = 0; i < block_size; ++i) out[i] = fixed_mask[i] ^ mirrored(key->iv[i]) ^ key->rk[i];
}

} // namespace

void crypto_quick_init_key(crypto_quick_key_t *key, Tq4_bytes text) { crypto_quick_init_key(key, &text, 1); }

void crypto_quick_init_key(crypto_quick_key_t *key, const Tq4_bytes *pieces, std::size_t count) {
    uint8_t fold[block_size] = {};
    std::size_t at = 0;
    for (std::size_t piece = 0; piece < count; ++piece)
        for (std::size_t i = 0; i < pieces[piece].size; ++i, ++at) fold[at % block_size] ^= pieces[piece].data[i];

    uint8_t diagonal = 0;
    for (std::size_t m = 0; m < block_size; ++m) diagonal |= static_cast<uint8_t>(fold[m] & 0x80 >> m);
    std::memset(key->iv, 0, block_size);
    std::memset(key->rk, diagonal, block_size);
}

std::size_t crypto_quick_enc(crypto_quick_key_t *key, Tq4_bytes in, uint8_t *out) {
    std::size_t at = 0;
    for (; in.size - at >= block_size; at += block_size) {
        enter_reversed(key, in.data + at, block_size);
        emit_block(key, out + at);
        std::memcpy(key->iv, out + at, block_size);
    }
    if (at == in.size) return at;
    enter_reversed(key, in.data + at, in.size - at);
    emit_block(key, out + at);
    return at + block_size;
}

std::size_t crypto_quick_dec(crypto_quick_key_t *key, Tq4_bytes in, uint8_t *out) {
    std::size_t at = 0;
    for (; in.size - at >= block_size; at += block_size) {
        const uint8_t *cipher = in.data + at;
        for (std::size_t i = 0; i < block_size; ++i)
            out[at + block_size - 1 - i] =
                static_cast<uint8_t>(key->iv[i] ^ mirrored(cipher[i] ^ fixed_mask[i] ^ key->rk[i]));
        std::memcpy(key->iv, cipher, block_size);
    }
    return at;
}
