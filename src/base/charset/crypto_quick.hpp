// crypto_quick.hpp: the keyed block scrambling. It hides bytes from a casual reader and is no encryption.
#pragma once

#include "base/charset/conversion.hpp"

struct crypto_quick_key_t {
    uint8_t iv[8]; // chaining block
    uint8_t rk[8]; // round key; all eight bytes are equal, deliberately
};

// Set-up from a text, and from any folded sequence of bytes given in pieces.
void crypto_quick_init_key(crypto_quick_key_t *key, Tq4_bytes text);

// Scrambles in into out, whole 8-byte blocks: out has in.size rounded up to a multiple of 8. Returns that size.
std::size_t crypto_quick_enc(crypto_quick_key_t *key, Tq4_bytes in, uint8_t *out);
// The inverse over whole blocks; a last part of fewer than 8 bytes is left out. Returns the bytes written.
std::size_t crypto_quick_dec(crypto_quick_key_t *key, Tq4_bytes in, uint8_t *out);
