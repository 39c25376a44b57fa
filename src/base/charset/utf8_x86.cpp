// utf8_x86.cpp: the vector loops between UTF-8 and 16-bit units for SSE4.1 and for AVX-512 with byte compression.
//
// SSE4.1 takes runs of ASCII and runs of four three-byte characters, of which Chinese text consists. AVX-512 takes any
// mixture: decoding validates 64 bytes with bit masks, compresses the indices of the characters' last bytes and fetches
// the bytes of all characters side by side; encoding spreads each unit to the bytes of its form and compresses away
// those it does not have. Both check the room before they write.
#if defined(__x86_64__)

#include <immintrin.h>

#include <algorithm>
#include <array>
#include <bit>

#include "base/charset/utf8_kernels.hpp"

#define TQ4_SSE4 __attribute__((target("sse4.1")))
#define TQ4_AVX512 __attribute__((target("avx512f,avx512bw,avx512vbmi,avx512vbmi2,avx512vl,popcnt,lzcnt,bmi2")))

namespace {

TQ4_SSE4 inline __m128i load_16(const uint8_t *at) { return _mm_loadu_si128(reinterpret_cast<const __m128i *>(at)); }
TQ4_SSE4 inline void store_16(uint8_t *at, __m128i value) { _mm_storeu_si128(reinterpret_cast<__m128i *>(at), value); }

// With the whole vector told apart, so that in a long run the next step need not wait for the count.
TQ4_SSE4 inline std::size_t ascii_in_front(__m128i text) {
    const auto high = static_cast<uint32_t>(_mm_movemask_epi8(text));
    return high ? static_cast<std::size_t>(std::countr_zero(high)) : 16;
}

// Four three-byte characters to four units in the low half; false when one of them is anything else.
TQ4_SSE4 inline bool decode_four(__m128i text, __m128i &units) {
    const __m128i marks = _mm_setr_epi8(-16, -64, -64, -16, -64, -64, -16, -64, -64, -16, -64, -64, 0, 0, 0, 0);
    const __m128i forms = _mm_setr_epi8(-32, -128, -128, -32, -128, -128, -32, -128, -128, -32, -128, -128, 0, 0, 0, 0);
    if (_mm_movemask_epi8(_mm_cmpeq_epi8(_mm_and_si128(text, marks), forms)) != 0xFFFF) return false;
    const __m128i lanes = _mm_shuffle_epi8(_mm_andnot_si128(marks, text),
                                           _mm_setr_epi8(2, 1, 0, -1, 5, 4, 3, -1, 8, 7, 6, -1, 11, 10, 9, -1));
    const __m128i low_12 = _mm_maddubs_epi16(lanes, _mm_set1_epi32(0x00004001)); // third + second * 64
    const __m128i high_4 = _mm_slli_epi32(_mm_srli_epi32(lanes, 16), 12);
    units = _mm_packus_epi32(_mm_or_si128(_mm_and_si128(low_12, _mm_set1_epi32(0xFFFF)), high_4), _mm_setzero_si128());
    const __m128i overlong = _mm_cmpeq_epi16(_mm_srli_epi16(units, 11), _mm_setzero_si128());
    return _mm_cvtsi128_si64(overlong) == 0;
}

TQ4_SSE4 Tq4_converted to_units_sse4(Tq4_bytes in, Tq4_room out) {
    Tq4_converted done = {0, 0};
    while (in.size - done.consumed >= 16 && out.size - done.produced >= 32) {
        const __m128i text = load_16(in.data + done.consumed);
        uint8_t *to = out.data + done.produced;
        const std::size_t ascii = ascii_in_front(text);
        if (ascii > 0) {
            store_16(to, _mm_unpacklo_epi8(text, _mm_setzero_si128()));
            store_16(to + 16, _mm_unpackhi_epi8(text, _mm_setzero_si128()));
            done = {done.consumed + ascii, done.produced + ascii * 2};
            continue;
        }
        __m128i units;
        if (!decode_four(text, units)) break;
        _mm_storel_epi64(reinterpret_cast<__m128i *>(to), units);
        done = {done.consumed + 12, done.produced + 8};
    }
    return done;
}

TQ4_SSE4 Tq4_converted columns_sse4(Tq4_bytes text) {
    Tq4_converted done = {0, 0};
    while (text.size - done.consumed >= 16) {
        const __m128i next = load_16(text.data + done.consumed);
        __m128i units;
        if (const std::size_t ascii = ascii_in_front(next))
            done = {done.consumed + ascii, done.produced + ascii};
        else if (decode_four(next, units))
            done = {done.consumed + 12, done.produced + 8};
        else
            break;
    }
    return done;
}

TQ4_SSE4 Tq4_converted from_units_sse4(Tq4_bytes in, Tq4_room out) {
    const __m128i pack = _mm_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1);
    const __m128i six = _mm_set1_epi16(0x3F), mark = _mm_set1_epi16(0x80);
    Tq4_converted done = {0, 0};
    while (in.size - done.consumed >= 16 && out.size - done.produced >= 28) {
        const __m128i units = load_16(in.data + done.consumed);
        uint8_t *to = out.data + done.produced;
        if (_mm_testz_si128(units, _mm_set1_epi16(-0x80))) {
            _mm_storel_epi64(reinterpret_cast<__m128i *>(to), _mm_packus_epi16(units, units));
            done = {done.consumed + 16, done.produced + 8};
            continue;
        }
        if (_mm_movemask_epi8(_mm_cmpeq_epi16(_mm_srli_epi16(units, 11), _mm_setzero_si128()))) break;
        const __m128i first = _mm_or_si128(_mm_srli_epi16(units, 12), _mm_set1_epi16(0xE0));
        const __m128i second = _mm_or_si128(_mm_and_si128(_mm_srli_epi16(units, 6), six), mark);
        const __m128i third = _mm_or_si128(_mm_and_si128(units, six), mark);
        const __m128i front = _mm_or_si128(first, _mm_slli_epi16(second, 8));
        store_16(to, _mm_shuffle_epi8(_mm_unpacklo_epi16(front, third), pack));
        store_16(to + 12, _mm_shuffle_epi8(_mm_unpackhi_epi16(front, third), pack));
        done = {done.consumed + 16, done.produced + 24};
    }
    return done;
}

// The ones of a mask's first n bits.
TQ4_AVX512 inline uint64_t first_bits(std::size_t n) {
    return n >= 64 ? ~0ULL : _bzhi_u64(~0ULL, static_cast<unsigned>(n));
}

TQ4_AVX512 inline __m512i at_positions(__m512i positions, __m512i bytes) {
    // The mask of all ones costs nothing: without one g++ 12 sees an uninitialised operand.
    return _mm512_maskz_permutexvar_epi8(~0ULL, positions, bytes);
}

alignas(64) constexpr auto positions = [] {
    std::array<uint8_t, 64> each{};
    for (uint8_t i = 0; i < 64; ++i) each[i] = i;
    return each;
}();

// Decoding looks at the text through windows of 64 bytes. The first two only stand there for the characters that end
// behind them: so windows follow each other at a fixed step, and none waits for where a character of the last one
// ended.
constexpr unsigned look_back = 2, window_step = 64 - look_back;
constexpr uint64_t before_step = (1 << look_back) - 1;

struct Window {
    uint64_t ends;  // the last bytes of whole characters of one to three bytes, before the first malformed byte
    uint64_t wrong; // bytes that are malformed or belong to a longer form
};

// The window that steps off at in.data[at]. What it has beyond the text, on either side, is not read and is zero.
TQ4_AVX512 inline __m512i window_at(Tq4_bytes in, std::size_t at) {
    const uint64_t present = first_bits(in.size - at) << look_back | (at ? before_step : 0);
    return _mm512_maskz_loadu_epi8(present, in.data + at - look_back);
}

TQ4_AVX512 inline Window judged(__m512i window, std::size_t left) {
    const __m512i first_continuation_end = _mm512_set1_epi8(-64), first_lead = _mm512_set1_epi8(-62);
    const __m512i first_three = _mm512_set1_epi8(-32), first_four = _mm512_set1_epi8(-16);
    const uint64_t high = _mm512_movepi8_mask(window);
    const uint64_t continuation = _mm512_cmplt_epi8_mask(window, first_continuation_end);
    const uint64_t lead = high & ~continuation;
    const uint64_t three = _mm512_cmpge_epu8_mask(window, first_three);
    const uint64_t no_lead =
        lead & (_mm512_cmplt_epu8_mask(window, first_lead) | _mm512_cmpge_epu8_mask(window, first_four));
    const uint64_t overlong =
        _mm512_cmpeq_epi8_mask(window, first_three) << 1 & _mm512_cmplt_epu8_mask(window, _mm512_set1_epi8(-96));
    const uint64_t wrong = ((continuation ^ (lead << 1 | three << 2)) | no_lead | overlong) & ~before_step;
    const uint64_t before_wrong = (wrong & -wrong) - 1; // everything when nothing is wrong
    const uint64_t ends = ~high | (lead & ~three) << 1 | three << 2;
    return {ends & before_wrong & first_bits(left) << look_back, wrong};
}

template <int Half> TQ4_AVX512 inline __m512i widened(__m512i bytes) {
    return _mm512_cvtepu8_epi16(_mm512_maskz_extracti64x4_epi64(0xF, bytes, Half));
}

// The bytes of up to 64 characters side by side, in order.
struct Characters {
    __m512i last, middle, first; // without their marks; 0 where a form has none

    // The units of the first or second 32.
    template <int Half> TQ4_AVX512 inline __m512i units() const {
        const __m512i low = _mm512_or_si512(widened<Half>(last), _mm512_slli_epi16(widened<Half>(middle), 6));
        return _mm512_or_si512(low, _mm512_slli_epi16(widened<Half>(first), 12));
    }
};

TQ4_AVX512 inline Characters characters_ending_at(uint64_t ends, __m512i text) {
    const __m512i low_six = _mm512_set1_epi8(0x3F);
    const __m512i at_last = _mm512_maskz_compress_epi8(ends, _mm512_load_si512(positions.data()));
    const __m512i last = at_positions(at_last, text);
    const __m512i middle = at_positions(_mm512_add_epi8(at_last, _mm512_set1_epi8(-1)), text);
    const __m512i first = at_positions(_mm512_add_epi8(at_last, _mm512_set1_epi8(-2)), text);
    const __mmask64 longer = _mm512_movepi8_mask(last);
    const __mmask64 three = _mm512_mask_cmplt_epi8_mask(longer, middle, _mm512_set1_epi8(-64));
    return {
        .last = _mm512_and_si512(last, _mm512_mask_mov_epi8(_mm512_set1_epi8(0x7F), longer, low_six)),
        .middle = _mm512_and_si512(middle, _mm512_maskz_mov_epi8(longer, low_six)),
        .first = _mm512_and_si512(first, _mm512_maskz_set1_epi8(three, 0x0F)),
    };
}

TQ4_AVX512 inline bool is_ascii_64(Tq4_bytes in, std::size_t at) {
    return in.size - at >= 64 && _mm512_movepi8_mask(_mm512_loadu_si512(in.data + at)) == 0;
}

TQ4_AVX512 inline void widen_64(const uint8_t *in, uint8_t *out) {
    const auto *halves = reinterpret_cast<const __m256i *>(in);
    _mm512_storeu_si512(out, _mm512_maskz_cvtepu8_epi16(~0U, _mm256_loadu_si256(halves)));
    _mm512_storeu_si512(out + 64, _mm512_maskz_cvtepu8_epi16(~0U, _mm256_loadu_si256(halves + 1)));
}

TQ4_AVX512 Tq4_converted to_units_avx512(Tq4_bytes in, Tq4_room out) {
    Tq4_converted done = {0, 0};
    for (std::size_t at = 0; at < in.size;) {
        uint8_t *to = out.data + done.produced;
        const std::size_t room = (out.size - done.produced) / 2;
        if (done.consumed == at && room >= 64 && is_ascii_64(in, at)) {
            widen_64(in.data + at, to);
            at += 64;
            done = {at, done.produced + 128};
            continue;
        }
        const __m512i text = window_at(in, at);
        const Window window = judged(text, in.size - at);
        const auto units = static_cast<std::size_t>(std::popcount(window.ends));
        if (units == 0 || units > room) break;
        const Characters characters = characters_ending_at(window.ends, text);
        _mm512_mask_storeu_epi16(to, static_cast<__mmask32>(first_bits(units)), characters.units<0>());
        if (units > 32)
            _mm512_mask_storeu_epi16(to + 64, static_cast<__mmask32>(first_bits(units - 32)), characters.units<1>());
        done = {at + window_step - static_cast<std::size_t>(std::countl_zero(window.ends)), done.produced + units * 2};
        if (window.wrong) break;
        at += window_step;
    }
    return done;
}

TQ4_AVX512 Tq4_converted columns_avx512(Tq4_bytes text) {
    Tq4_converted done = {0, 0};
    for (std::size_t at = 0; at < text.size; at += window_step) {
        const __m512i bytes = window_at(text, at);
        const Window window = judged(bytes, text.size - at);
        if (window.ends == 0) break;
        const int columns = std::popcount(window.ends) + std::popcount(window.ends & _mm512_movepi8_mask(bytes));
        done.consumed = at + window_step - static_cast<std::size_t>(std::countl_zero(window.ends));
        done.produced += static_cast<std::size_t>(columns);
        if (window.wrong) break;
    }
    return done;
}

// The form of a unit in each 32-bit lane, from its low byte up.
TQ4_AVX512 inline __m512i forms_of(__m512i units, __mmask16 one, __mmask16 two) {
    const __m512i sixes = _mm512_maskz_multishift_epi64_epi8(~0ULL, _mm512_set1_epi64(0x0020262C0000060C), units);
    const __m512i three_bytes =
        _mm512_or_si512(_mm512_and_si512(sixes, _mm512_set1_epi32(0x003F3F0F)), _mm512_set1_epi32(0x008080E0));
    const __m512i from_second = _mm512_maskz_srli_epi32(0xFFFF, sixes, 8);
    const __m512i two_bytes =
        _mm512_or_si512(_mm512_and_si512(from_second, _mm512_set1_epi32(0x3F1F)), _mm512_set1_epi32(0x80C0));
    return _mm512_mask_mov_epi32(_mm512_mask_mov_epi32(three_bytes, two, two_bytes), one, units);
}

// The bytes that the forms have, as bits, four a lane.
TQ4_AVX512 inline uint64_t bytes_of_forms(__mmask16 one, __mmask16 two, __mmask16 present) {
    __m512i kept = _mm512_maskz_set1_epi32(present, 0x00808080);
    kept = _mm512_mask_set1_epi32(kept, two, 0x00008080);
    kept = _mm512_mask_set1_epi32(kept, one, 0x00000080);
    return _mm512_movepi8_mask(kept);
}

TQ4_AVX512 Tq4_converted from_units_avx512(Tq4_bytes in, Tq4_room out) {
    Tq4_converted done = {0, 0};
    for (;;) {
        const std::size_t left = (in.size - done.consumed) / 2;
        if (left >= 32 && out.size - done.produced >= 32) {
            const __m512i units = _mm512_loadu_si512(in.data + done.consumed);
            if (_mm512_test_epi16_mask(units, _mm512_set1_epi16(-0x80)) == 0) {
                _mm512_mask_cvtepi16_storeu_epi8(out.data + done.produced, ~0U, units);
                done = {done.consumed + 64, done.produced + 32};
                continue;
            }
        }
        const std::size_t count = std::min<std::size_t>(left, 16);
        const auto present = static_cast<__mmask16>(first_bits(count));
        const __m256i loaded = _mm256_maskz_loadu_epi16(present, in.data + done.consumed);
        const __m512i units = _mm512_maskz_cvtepu16_epi32(present, loaded);
        const __mmask16 one = _mm512_mask_cmplt_epu32_mask(present, units, _mm512_set1_epi32(0x80));
        const __mmask16 two = _mm512_mask_cmplt_epu32_mask(present, units, _mm512_set1_epi32(0x800));
        const __mmask64 kept = bytes_of_forms(one, two, present);
        const auto bytes = static_cast<std::size_t>(std::popcount(kept));
        if (count == 0 || bytes > out.size - done.produced) return done;
        const __m512i packed = _mm512_maskz_compress_epi8(kept, forms_of(units, one, two));
        _mm512_mask_storeu_epi8(out.data + done.produced, first_bits(bytes), packed);
        done = {done.consumed + count * 2, done.produced + bytes};
    }
}

} // namespace

constinit const Utf8_kernel utf8_sse4 = {
    .name = "sse4",
    .is_supported = [] { return __builtin_cpu_supports("sse4.1") != 0; },
    .to_units = to_units_sse4,
    .from_units = from_units_sse4,
    .columns = columns_sse4,
};

constinit const Utf8_kernel utf8_avx512 = {
    .name = "avx512",
    .is_supported =
        [] {
            return __builtin_cpu_supports("avx512vbmi2") && __builtin_cpu_supports("avx512vbmi") &&
                   __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512bw") &&
                   __builtin_cpu_supports("bmi2");
        },
    .to_units = to_units_avx512,
    .from_units = from_units_avx512,
    .columns = columns_avx512,
};

#endif
