// crypto_quick.hpp: the keyed block scrambling. It hides bytes from a casual reader and is no encryption.
//
// Both directions work on a key that carries the chaining block along: a text is scrambled by one call from a fresh
// key, or by several calls over whole blocks. in and out do not overlap.
#pragma once

#include "base/charset/conversion.hpp"

struct crypto_quick_key_t {
    uint8_t iv[8]; // chaining block
    uint8_t rk[8]; // round key; all eight bytes are equal, deliberately
};

// Sets the key up from a text; an empty text is a key too.
void crypto_quick_init_key(crypto_quick_key_t *key, Tq4_bytes text);
// Sets the key up from the bytes of the pieces one after the other, such as a number in network order and a text.
void crypto_quick_init_key(crypto_quick_key_t *key, const Tq4_bytes *pieces, std::size_t count);

// Scrambles in into out by blocks of 8 bytes. A last part of fewer than 8 is filled up with zeros and ends the chain;
// out has in.size rounded up to a multiple of 8 bytes. Returns that size.
std::size_t crypto_quick_enc(crypto_quick_key_t *key, Tq4_bytes in, uint8_t *out);
// The inverse over whole blocks; a last part of fewer than 8 bytes is left out. Returns the bytes written.
std::size_t crypto_quick_dec(crypto_quick_key_t *key, Tq4_bytes in, uint8_t *out);
