// byte_runs.hpp: how many of the bytes at hand need no look at the grammar: blanks, plain bytes of a string, digits.
//
// Sixteen bytes at a time where the processor can; runs are short, so the first sixteen mostly settle it.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

inline bool Tq4_json_is_blank(char byte) { return byte == ' ' || byte == '\n' || byte == '\r' || byte == '\t'; }
inline bool Tq4_json_is_space(char byte) { return byte == ' '; }
inline bool Tq4_json_is_plain(char byte) {
    return static_cast<unsigned char>(byte) >= 0x20 && byte != '"' && byte != '\\';
}

// The bytes up to the first that does not belong: differs(sixteen bytes) has a bit for each such byte.
template <class Belongs, class Differs> [[gnu::always_inline]] inline std::size_t
Tq4_json_run(const char *bytes, std::size_t n, Belongs belongs, [[maybe_unused]] Differs differs) {
    std::size_t at = 0;
#ifdef __SSE2__
    for (; n - at >= sizeof(__m128i); at += sizeof(__m128i))
        if (const unsigned others = differs(_mm_loadu_si128(reinterpret_cast<const __m128i *>(bytes + at))))
            return at + static_cast<std::size_t>(std::countr_zero(others));
#endif
    while (at < n && belongs(bytes[at])) ++at;
    return at;
}

#ifdef __SSE2__
inline __m128i Tq4_json_equal(__m128i bytes, char byte) { return _mm_cmpeq_epi8(bytes, _mm_set1_epi8(byte)); }

inline unsigned Tq4_json_not_space(__m128i bytes) {
    return static_cast<unsigned>(_mm_movemask_epi8(Tq4_json_equal(bytes, ' '))) ^ 0xFFFF;
}
inline unsigned Tq4_json_not_blank(__m128i bytes) {
    const __m128i blank = _mm_or_si128(_mm_or_si128(Tq4_json_equal(bytes, ' '), Tq4_json_equal(bytes, '\n')),
                                       _mm_or_si128(Tq4_json_equal(bytes, '\r'), Tq4_json_equal(bytes, '\t')));
    return static_cast<unsigned>(_mm_movemask_epi8(blank)) ^ 0xFFFF;
}
inline unsigned Tq4_json_not_plain(__m128i bytes) {
    const __m128i control = _mm_cmpeq_epi8(_mm_min_epu8(bytes, _mm_set1_epi8(0x1F)), bytes);
    const __m128i marks = _mm_or_si128(Tq4_json_equal(bytes, '"'), Tq4_json_equal(bytes, '\\'));
    return static_cast<unsigned>(_mm_movemask_epi8(_mm_or_si128(control, marks)));
}
#else
inline constexpr int Tq4_json_not_space = 0, Tq4_json_not_blank = 0, Tq4_json_not_plain = 0;
#endif

// Mostly one, or the end of a line and spaces.
inline std::size_t Tq4_json_blanks(const char *bytes, std::size_t n) {
    if (n == 0 || !Tq4_json_is_blank(*bytes)) return 0;
    if (n > 1 && static_cast<unsigned char>(bytes[1]) > ' ') return 1;
    const std::size_t spaces = 1 + Tq4_json_run(bytes + 1, n - 1, Tq4_json_is_space, Tq4_json_not_space);
    if (spaces == n || !Tq4_json_is_blank(bytes[spaces])) return spaces;
    return spaces + Tq4_json_run(bytes + spaces, n - spaces, Tq4_json_is_blank, Tq4_json_not_blank);
}
inline std::size_t Tq4_json_plain(const char *bytes, std::size_t n) {
    return Tq4_json_run(bytes, n, Tq4_json_is_plain, Tq4_json_not_plain);
}
inline std::size_t Tq4_json_digits(const char *bytes, std::size_t n) {
    std::size_t at = 0;
    while (at < n && bytes[at] >= '0' && bytes[at] <= '9') ++at;
    return at;
}
