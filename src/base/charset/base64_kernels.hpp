// base64_kernels.hpp: the inner loops of Base64, one row for each set of processor instructions.
//
// A kernel does only the regular part of the work, whole lines and plain groups; everything else stands once in
// base64.cpp. The rows go from the slowest, which every processor runs, to the fastest.
#pragma once

#include <span>

#include "base/charset/base64.hpp"

alignas(64) inline constexpr char base64_alphabet[] =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

inline constexpr std::size_t base64_line_bytes = 60;
inline constexpr std::size_t base64_line_characters = 81; // with the line feed

struct Base64_kernel {
    const char *name;
    bool (*is_supported)(); // by this processor
    // Encodes whole lines of base64_line_bytes to base64_line_characters each.
    void (*encode_lines)(const uint8_t *in, std::size_t lines, uint8_t *out);
    // Decodes groups of four characters to three bytes each, up to the first group with a character outside the
    // alphabet (padding and line breaks are outside too). Returns how many; may write over the room of the others.
    std::size_t (*decode_groups)(const uint8_t *in, std::size_t groups, uint8_t *out);
};

// All kernels of this build, in order. base64_encode and base64_decode use the last one that the processor supports.
std::span<const Base64_kernel *const> base64_kernels();

std::size_t base64_encode_by(const Base64_kernel &kernel, Tq4_bytes in, uint8_t *out);
std::size_t base64_decode_by(const Base64_kernel &kernel, Tq4_bytes in, uint8_t *out);

extern const Base64_kernel base64_portable;
extern const Base64_kernel base64_avx2;
extern const Base64_kernel base64_avx512;
