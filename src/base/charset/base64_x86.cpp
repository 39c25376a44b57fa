// base64_x86.cpp: the inner loops of Base64 for AVX2 and for AVX-512 with byte permutations.
//
// Encoding spreads three bytes over a 32-bit lane, cuts them into four 6-bit values and maps those to characters.
// Decoding maps a vector of characters back and keeps the whole groups before the first one outside the alphabet. A
// line is two or three vectors either way. No load or store passes the end of either block.
#if defined(__x86_64__)

#include <immintrin.h>

#include <algorithm>
#include <bit>

#include "base/charset/base64_kernels.hpp"

#define TQ4_AVX2 __attribute__((target("avx2")))
#define TQ4_AVX512 __attribute__((target("avx512f,avx512bw,avx512vbmi")))

namespace {

// From lanes of bytes b, a, c, b (low to high) of each group a b c to four 6-bit values in order.
TQ4_AVX2 inline __m256i six_bits(__m256i spread) {
    const __m256i first_and_third =
        _mm256_mulhi_epu16(_mm256_and_si256(spread, _mm256_set1_epi32(0x0FC0FC00)), _mm256_set1_epi32(0x04000040));
    const __m256i second_and_fourth =
        _mm256_mullo_epi16(_mm256_and_si256(spread, _mm256_set1_epi32(0x003F03F0)), _mm256_set1_epi32(0x01000010));
    return _mm256_or_si256(first_and_third, second_and_fourth);
}

// A value's character is the value plus an offset that its range decides: 0..25, 26..51, each digit, '+' and '/' have
// an entry of their own.
TQ4_AVX2 inline __m256i characters_of(__m256i values) {
    const __m256i offsets = _mm256_broadcastsi128_si256(_mm_setr_epi8('a' - 26, '0' - 52, '0' - 52, '0' - 52, '0' - 52,
                                                                      '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52,
                                                                      '0' - 52, '+' - 62, '/' - 63, 'A', 0, 0));
    const __m256i beyond_letters = _mm256_subs_epu8(values, _mm256_set1_epi8(51));
    const __m256i capital = _mm256_and_si256(_mm256_cmpgt_epi8(_mm256_set1_epi8(26), values), _mm256_set1_epi8(13));
    return _mm256_add_epi8(values, _mm256_shuffle_epi8(offsets, _mm256_or_si256(beyond_letters, capital)));
}

TQ4_AVX2 inline __m256i encode_24(__m128i first_12, __m128i second_12) {
    const __m256i spread =
        _mm256_broadcastsi128_si256(_mm_setr_epi8(1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10));
    const __m256i bytes = _mm256_inserti128_si256(_mm256_castsi128_si256(first_12), second_12, 1);
    return characters_of(six_bits(_mm256_shuffle_epi8(bytes, spread)));
}

TQ4_AVX2 inline __m128i load_16(const uint8_t *at) { return _mm_loadu_si128(reinterpret_cast<const __m128i *>(at)); }
TQ4_AVX2 inline void store_16(uint8_t *at, __m128i value) { _mm_storeu_si128(reinterpret_cast<__m128i *>(at), value); }
TQ4_AVX2 inline void store_32(uint8_t *at, __m256i value) {
    _mm256_storeu_si256(reinterpret_cast<__m256i *>(at), value);
}

TQ4_AVX2 void encode_lines_avx2(const uint8_t *in, std::size_t lines, uint8_t *out) {
    for (; lines > 0; --lines, in += base64_line_bytes, out += base64_line_characters) {
        store_32(out, encode_24(load_16(in), load_16(in + 12)));
        store_32(out + 32, encode_24(load_16(in + 24), load_16(in + 36)));
        const __m128i last_12 = _mm_srli_si128(load_16(in + 44), 4);
        store_16(out + 64, _mm256_castsi256_si128(encode_24(last_12, last_12)));
        out[80] = '\n';
    }
}

// The alphabet by nibbles: a character is outside it when the entries of its two nibbles share a bit. Each bit stands
// for one set of high nibbles that have the same low nibbles in the alphabet.
struct Nibble_sets {
    alignas(16) uint8_t of_high[16];
    alignas(16) uint8_t of_low[16];
};

constexpr Nibble_sets foreign_sets = [] {
    constexpr uint8_t none = 0x10;
    Nibble_sets sets{};
    for (uint8_t &set : sets.of_high) set = none;
    sets.of_high[2] = 0x01;                   // '+' and '/'
    sets.of_high[3] = 0x02;                   // digits
    sets.of_high[4] = sets.of_high[6] = 0x04; // A to O
    sets.of_high[5] = sets.of_high[7] = 0x08; // P to Z
    for (uint8_t &set : sets.of_low) set = 0x1F;
    for (int i = 0; i < 64; ++i)
        sets.of_low[base64_alphabet[i] & 15] &= static_cast<uint8_t>(~sets.of_high[base64_alphabet[i] >> 4]);
    return sets;
}();

TQ4_AVX2 inline __m256i load_16_twice(const void *at) {
    return _mm256_broadcastsi128_si256(_mm_load_si128(static_cast<const __m128i *>(at)));
}

TQ4_AVX2 inline uint32_t foreign_characters(__m256i text, __m256i high_nibbles) {
    const __m256i low_nibbles = _mm256_and_si256(text, _mm256_set1_epi8(0x0F));
    const __m256i shared = _mm256_and_si256(_mm256_shuffle_epi8(load_16_twice(foreign_sets.of_high), high_nibbles),
                                            _mm256_shuffle_epi8(load_16_twice(foreign_sets.of_low), low_nibbles));
    return static_cast<uint32_t>(_mm256_movemask_epi8(_mm256_cmpgt_epi8(shared, _mm256_setzero_si256())));
}

// Packs four 6-bit values a lane into three bytes; the vector's first 24 bytes.
TQ4_AVX2 inline __m256i pack_24(__m256i values) {
    const __m256i pairs = _mm256_maddubs_epi16(values, _mm256_set1_epi32(0x01400140));
    const __m256i groups = _mm256_madd_epi16(pairs, _mm256_set1_epi32(0x00011000));
    const __m256i order =
        _mm256_broadcastsi128_si256(_mm_setr_epi8(2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1));
    return _mm256_permutevar8x32_epi32(_mm256_shuffle_epi8(groups, order), _mm256_setr_epi32(0, 1, 2, 4, 5, 6, -1, -1));
}

// Decodes 32 characters to 24 bytes; returns the bits of the foreign ones.
TQ4_AVX2 inline uint32_t decode_32(const uint8_t *in, uint8_t *out) {
    // By high nibble, but '/' has the entry below the one it would share with '+'.
    alignas(16) static constexpr char offsets[16] = {0, 63 - '/', 62 - '+', 52 - '0', -'A', -'A', 26 - 'a', 26 - 'a',
                                                     0, 0,        0,        0,        0,    0,    0,        0};
    const __m256i text = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(in));
    const __m256i high_nibbles = _mm256_and_si256(_mm256_srli_epi32(text, 4), _mm256_set1_epi8(0x0F));
    const __m256i is_slash = _mm256_cmpeq_epi8(text, _mm256_set1_epi8('/'));
    const __m256i offset = _mm256_shuffle_epi8(load_16_twice(offsets), _mm256_add_epi8(high_nibbles, is_slash));
    const __m256i bytes = pack_24(_mm256_add_epi8(text, offset));
    store_16(out, _mm256_castsi256_si128(bytes));
    _mm_storel_epi64(reinterpret_cast<__m128i *>(out + 16), _mm256_extracti128_si256(bytes, 1));
    return foreign_characters(text, high_nibbles);
}

TQ4_AVX2 std::size_t decode_groups_avx2(const uint8_t *in, std::size_t groups, uint8_t *out) {
    if (groups < 8) return base64_portable.decode_groups(in, groups, out);
    for (std::size_t done = 0; done < groups; done += 8) {
        done = std::min(done, groups - 8); // the last vector overlaps the one before
        const uint32_t foreign = decode_32(in + done * 4, out + done * 3);
        if (foreign) return done + static_cast<unsigned>(std::countr_zero(foreign)) / 4;
    }
    return groups;
}

// Index lists of byte permutations, one byte a position.
struct alignas(64) Positions {
    uint8_t at[64];
};

constexpr Positions spread_groups = [] { // b, a, c, b of each group of three
    Positions positions{};
    constexpr uint8_t in_group[4] = {1, 0, 2, 1};
    for (int i = 0; i < 64; ++i) positions.at[i] = static_cast<uint8_t>(i / 4 * 3 + in_group[i % 4]);
    return positions;
}();
constexpr Positions join_groups = [] { // the lowest three bytes of each lane, highest first
    Positions positions{};
    for (int i = 0; i < 48; ++i) positions.at[i] = static_cast<uint8_t>(i / 3 * 4 + 2 - i % 3);
    return positions;
}();

// The values of the characters 0..63 and 64..127; the top bit marks a foreign one.
constexpr Positions values_from(int first) {
    Positions values{};
    for (uint8_t &value : values.at) value = 0x80;
    for (int value = 0; value < 64; ++value) {
        const int position = base64_alphabet[value] - first;
        if (position >= 0 && position < 64) values.at[position] = static_cast<uint8_t>(value);
    }
    return values;
}
constexpr Positions low_values = values_from(0);
constexpr Positions high_values = values_from(64);

TQ4_AVX512 inline __m512i load_64(const void *at) { return _mm512_load_si512(at); }

// With an explicit mask of all ones, which costs nothing: without one g++ 12 sees an uninitialised operand.
TQ4_AVX512 inline __m512i permuted(__m512i positions, __m512i bytes) {
    return _mm512_maskz_permutexvar_epi8(~0ULL, positions, bytes);
}

TQ4_AVX512 inline __m512i encode_48(__m512i spread) {
    const __m512i shifts = _mm512_set1_epi64(0x3036242A1016040A);
    const __m512i six_bits = _mm512_maskz_multishift_epi64_epi8(~0ULL, shifts, spread);
    return permuted(six_bits, load_64(base64_alphabet)); // which looks at the low six bits only
}

TQ4_AVX512 void encode_lines_avx512(const uint8_t *in, std::size_t lines, uint8_t *out) {
    constexpr __mmask64 line_feed = 1ULL << 16, rest_of_line = (1ULL << 17) - 1, whole_line = ~0ULL >> 4;
    const __m512i first = load_64(spread_groups.at);
    const __m512i second = _mm512_add_epi8(first, _mm512_set1_epi8(48));
    for (; lines > 0; --lines, in += base64_line_bytes, out += base64_line_characters) {
        const __m512i bytes = _mm512_maskz_loadu_epi8(whole_line, in);
        _mm512_storeu_si512(out, encode_48(permuted(first, bytes)));
        const __m512i rest = encode_48(permuted(second, bytes));
        _mm512_mask_storeu_epi8(out + 64, rest_of_line, _mm512_mask_set1_epi8(rest, line_feed, '\n'));
    }
}

// Decodes 64 characters to 48 bytes; returns the bits of the foreign ones.
TQ4_AVX512 inline uint64_t decode_64(const uint8_t *in, uint8_t *out) {
    const __m512i text = _mm512_loadu_si512(in);
    const __m512i values = _mm512_permutex2var_epi8(load_64(low_values.at), text, load_64(high_values.at));
    const __m512i pairs = _mm512_maddubs_epi16(values, _mm512_set1_epi32(0x01400140));
    const __m512i groups = _mm512_madd_epi16(pairs, _mm512_set1_epi32(0x00011000));
    const __m512i bytes = permuted(load_64(join_groups.at), groups);
    _mm512_mask_storeu_epi32(out, 0x0FFF, bytes);
    return _mm512_movepi8_mask(_mm512_or_si512(values, text));
}

TQ4_AVX512 std::size_t decode_groups_avx512(const uint8_t *in, std::size_t groups, uint8_t *out) {
    if (groups < 16) return decode_groups_avx2(in, groups, out);
    for (std::size_t done = 0; done < groups; done += 16) {
        done = std::min(done, groups - 16); // the last vector overlaps the one before
        const uint64_t foreign = decode_64(in + done * 4, out + done * 3);
        if (foreign) return done + static_cast<unsigned>(std::countr_zero(foreign)) / 4;
    }
    return groups;
}

} // namespace

constinit const Base64_kernel base64_avx2 = {
    .name = "avx2",
    .is_supported = [] { return __builtin_cpu_supports("avx2") != 0; },
    .encode_lines = encode_lines_avx2,
    .decode_groups = decode_groups_avx2,
};

constinit const Base64_kernel base64_avx512 = {
    .name = "avx512",
    .is_supported = [] { return __builtin_cpu_supports("avx512vbmi") && __builtin_cpu_supports("avx512bw"); },
    .encode_lines = encode_lines_avx512,
    .decode_groups = decode_groups_avx512,
};

#endif
