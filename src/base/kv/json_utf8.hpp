// json_utf8.hpp: UTF-8 as JSON text has it: code points up to 10FFFF but surrogates, each in its shortest form.
//
// Most bytes are ASCII. They are passed sixteen at a time where the processor can.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

// The bytes of the character at the start of n bytes, one or more. Negative when these are no character: minus the
// number of bytes that one replacement stands for.
inline int Tq4_json_character(const uint8_t *bytes, std::size_t n) {
    const uint8_t lead = bytes[0];
    if (lead < 0x80) return 1;
    if (lead < 0xC2 || lead > 0xF4) return -1;
    const int length = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    // The second byte rules out longer forms, surrogates and what is beyond the last code point.
    const uint8_t least = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
    const uint8_t most = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
    if (n < 2 || bytes[1] < least || bytes[1] > most) return -1;
    for (int at = 2; at < length; ++at)
        if (static_cast<std::size_t>(at) == n || (bytes[at] & 0xC0) != 0x80) return -at;
    return length;
}

// How many of n bytes come before the first that is part of no character: n when there is none.
inline std::size_t Tq4_json_characters(const uint8_t *bytes, std::size_t n) {
    std::size_t at = 0;
    while (at < n) {
#ifdef __SSE2__
        for (; n - at >= sizeof(__m128i); at += sizeof(__m128i)) {
            const __m128i these = _mm_loadu_si128(reinterpret_cast<const __m128i *>(bytes + at));
            if (const auto others = static_cast<unsigned>(_mm_movemask_epi8(these))) {
                at += static_cast<std::size_t>(std::countr_zero(others));
                break;
            }
        }
        if (at == n) break;
#endif
        const int length = Tq4_json_character(bytes + at, n - at);
        if (length < 0) return at;
        at += static_cast<std::size_t>(length);
    }
    return at;
}
