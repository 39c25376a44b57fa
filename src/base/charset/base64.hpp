// base64.hpp: standard Base64, written in lines of 80 characters.
#pragma once

#include "base/charset/conversion.hpp"

// The exact size of the encoding of n bytes: four characters a group of three bytes or fewer, and a line feed after
// every 60 bytes. All ones when it cannot be represented.
std::size_t base64_encoded_size(std::size_t n);
// Encodes all of in to out, which has base64_encoded_size(in.size) bytes and does not overlap it. A line feed follows
// every 20 whole groups, also when the text ends there; a padded group ends the text without one. Returns the bytes
// written.
std::size_t base64_encode(Tq4_bytes in, uint8_t *out);

// At most this many bytes come out of n characters.
inline std::size_t base64_decoded_max(std::size_t n) { return n / 4 * 3; }
// Decodes until the input ends or a character outside the alphabet; carriage returns and line feeds are skipped
// anywhere. Every four other characters are a group, '=' among them: it fills its place with zero bits, and as third or
// fourth character it suppresses the second or third byte; it does not end the decoding. An incomplete last group is
// dropped. out has base64_decoded_max(in.size) bytes and does not overlap in. Returns the bytes written.
std::size_t base64_decode(Tq4_bytes in, uint8_t *out);
