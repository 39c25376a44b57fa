// crypto_quick.cpp: the keyed block scrambling.
//
// A block enters the chaining block byte-reversed; each byte of the chaining block is then mirrored bit by bit and
// masked with a constant and the round key, and the eight results are both the output and the next chaining block.
// Every step is its own inverse, so unscrambling runs the same steps backwards from the output, which it knows.
// A block is one word: its bytes never mix, so the host's byte order does not matter.
#include "base/charset/crypto_quick.hpp"

#include <cstring>

namespace {

using Block = uint64_t;

// The library's own constant, the first 64 bits of the fraction of the square root of two. Both ends share it: changing
// it makes every text scrambled so far unreadable.
constexpr uint8_t fixed_mask[sizeof(Block)] = {0x6A, 0x09, 0xE6, 0x67, 0xF3, 0xBC, 0xC9, 0x08};

inline Block load(const uint8_t *at) {
    Block block;
    std::memcpy(&block, at, sizeof block);
    return block;
}

inline void store(uint8_t *at, Block block) { std::memcpy(at, &block, sizeof block); }

inline Block reversed(Block block) { return __builtin_bswap64(block); }

// Each byte with its bits in the opposite order: nibbles change places, then pairs, then single bits.
inline Block mirrored(Block block) {
    block = (block >> 4 & 0x0F0F0F0F0F0F0F0F) | (block & 0x0F0F0F0F0F0F0F0F) << 4;
    block = (block >> 2 & 0x3333333333333333) | (block & 0x3333333333333333) << 2;
    return (block >> 1 & 0x5555555555555555) | (block & 0x5555555555555555) << 1;
}

} // namespace

void crypto_quick_init_key(crypto_quick_key_t *key, Tq4_bytes text) { crypto_quick_init_key(key, &text, 1); }

void crypto_quick_init_key(crypto_quick_key_t *key, const Tq4_bytes *pieces, std::size_t count) {
    uint8_t fold[sizeof key->rk] = {};
    std::size_t at = 0;
    for (std::size_t piece = 0; piece < count; ++piece)
        for (std::size_t i = 0; i < pieces[piece].size; ++i, ++at) fold[at % sizeof fold] ^= pieces[piece].data[i];

    uint8_t diagonal = 0;
    for (std::size_t m = 0; m < sizeof fold; ++m) diagonal |= static_cast<uint8_t>(fold[m] & 0x80 >> m);
    std::memset(key->iv, 0, sizeof key->iv);
    std::memset(key->rk, diagonal, sizeof key->rk);
}

std::size_t crypto_quick_enc(crypto_quick_key_t *key, Tq4_bytes in, uint8_t *out) {
    const Block mask = load(fixed_mask) ^ load(key->rk);
    Block chain = load(key->iv);
    std::size_t at = 0;
    for (; in.size - at >= sizeof(Block); at += sizeof(Block)) {
        chain = mirrored(chain ^ reversed(load(in.data + at))) ^ mask;
        store(out + at, chain);
    }
    if (at < in.size) {
        uint8_t last[sizeof(Block)] = {};
        std::memcpy(last, in.data + at, in.size - at);
        chain ^= reversed(load(last));
        store(out + at, mirrored(chain) ^ mask); // the chain does not take this result
        at += sizeof(Block);
    }
    store(key->iv, chain);
    return at;
}

std::size_t crypto_quick_dec(crypto_quick_key_t *key, Tq4_bytes in, uint8_t *out) {
    const Block mask = load(fixed_mask) ^ load(key->rk);
    Block chain = load(key->iv);
    std::size_t at = 0;
    for (; in.size - at >= sizeof(Block); at += sizeof(Block)) {
        const Block scrambled = load(in.data + at);
        store(out + at, reversed(chain ^ mirrored(scrambled ^ mask)));
        chain = scrambled;
    }
    store(key->iv, chain);
    return at;
}
