// base64.hpp: standard Base64, written in lines of 80 characters.
#pragma once

#include "base/charset/conversion.hpp"

// The exact size of the encoding of n bytes: four characters a group of three, and a line feed after every 80
// characters. All ones when it cannot be represented.
std::size_t base64_encoded_size(std::size_t n);
// Encodes all of in to out, which has base64_encoded_size(in.size) bytes. Returns the bytes written.
std::size_t base64_encode(Tq4_bytes in, uint8_t *out);

// At most this many bytes come out of n characters.
inline std::size_t base64_decoded_max(std::size_t n) { return n / 4 * 3; }
// Decodes until the input ends or a character outside the alphabet; carriage returns and line feeds are skipped. '='
// is padding inside a group and does not end the decoding by itself; an incomplete last group is dropped. out has
// base64_decoded_max(in.size) bytes. Returns the bytes written.
std::size_t base64_decode(Tq4_bytes in, uint8_t *out);
