// utf8.hpp: UTF-8, the classic rules with forms of up to six bytes.
#pragma once

#include "base/charset/conversion.hpp"

// Decodes one character into *code_point (may be null). Returns the bytes of its form, 1 to 6; 0 for an empty input;
// -1 for a lead byte 80..C1; minus the form's length for a bad continuation, an overlong three- or four-byte form or a
// form cut short; -7 for FE and FF. Surrogate code points decode.
int utf8_decode(Tq4_bytes in, uint32_t *code_point);

// The bytes of a code point's form, 1 to 6. Code points are below 2^31; the top bit is ignored. For callers that make
// room first: the library's own have room for the longest.
std::size_t utf8_encoded_size(uint32_t code_point);
// Encodes a code point into utf8_encoded_size(code_point) bytes at out and returns how many.
std::size_t utf8_encode(uint32_t code_point, uint8_t *out);

// Display columns of a text: a character of one byte counts one, a longer one two. Bytes that start no character count
// one each.
std::size_t utf8_columns(Tq4_bytes text);

// To and from 16-bit units in host order. A code point of 10000 (hex) or more ends utf8_to_units; units_to_utf8 encodes
// each unit by itself, without pairing, and ignores an odd last byte.
Tq4_converted utf8_to_units(Tq4_bytes in, Tq4_room out);
Tq4_converted units_to_utf8(Tq4_bytes in, Tq4_room out);
