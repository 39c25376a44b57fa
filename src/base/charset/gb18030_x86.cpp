// gb18030_x86.cpp: GB18030 by blocks of 64 bytes, for AVX-512 with byte compression (VBMI2).
//
// A block is a mix of ASCII and of two-byte codes (or of UTF-8 forms of up to three bytes) without a branch on which is
// which: masks tell where characters start, compression moves the starts and the bytes behind them into equal lanes,
// the direct-index tables give each lane its form, and a second compression closes the gaps between forms of unequal
// length. The look-ups are plain loads, which outrun the processors' gather instructions. As one block is a long chain
// of dependent steps, the start of the next one is worked out before the look-ups of this one.
//
// A block ends before the first character that is none of these. That one, the neighbours that share its 32 bytes, and
// the ends of input and room go through the portable conversion, which also decides what is malformed.
#if defined(__x86_64__)

// GCC 12 takes the lanes left undefined on purpose inside its own intrinsics for an oversight.
#if !defined(__clang__)
#pragma GCC diagnostic ignored "-Wuninitialized"
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#include <immintrin.h>

#include <algorithm>
#include <bit>

#include "base/charset/gb18030_kernels.hpp"
#include "base/charset/gb18030_tables.hpp"

#define TQ4_AVX512 __attribute__((target("avx512f,avx512bw,avx512vl,avx512vbmi,avx512vbmi2,bmi,bmi2,popcnt")))
#define TQ4_AVX512_INLINE TQ4_AVX512 __attribute__((always_inline)) inline

namespace {

constexpr std::size_t width = sizeof(__m512i);

// ----------------------------------------------------------------------------------------------------- Bits and tables

TQ4_AVX512_INLINE __m512i bytes_of(int value) { return _mm512_set1_epi8(static_cast<char>(value)); }
TQ4_AVX512_INLINE __m512i lanes_of(int value) { return _mm512_set1_epi16(static_cast<short>(value)); }

TQ4_AVX512_INLINE unsigned ones_in(uint64_t mask) { return static_cast<unsigned>(_mm_popcnt_u64(mask)); }

// The position of the n-th one, from 0; 64 where there are fewer.
TQ4_AVX512_INLINE unsigned position_of(unsigned n, uint64_t mask) {
    return static_cast<unsigned>(_tzcnt_u64(_pdep_u64(uint64_t{1} << n, mask)));
}

// The first 32 of the chosen bytes, each in a lane of 16 bits.
TQ4_AVX512_INLINE __m512i widen(uint64_t chosen, __m512i bytes) {
    return _mm512_cvtepu8_epi16(_mm512_castsi512_si256(_mm512_maskz_compress_epi8(chosen, bytes)));
}

// Copies a whole vector of ASCII.
TQ4_AVX512_INLINE void copy_ascii(Gb18030_cursor &at, __m512i bytes) {
    _mm512_storeu_si512(at.out, bytes);
    at.advance(width, width);
}

// Writes the chosen bytes side by side; stores a whole vector.
TQ4_AVX512_INLINE void put(uint8_t *&out, uint64_t chosen, __m512i bytes) {
    _mm512_storeu_si512(out, _mm512_maskz_compress_epi8(chosen, bytes));
    out += ones_in(chosen);
}

// Four lanes of an index, and one of them.
TQ4_AVX512_INLINE uint64_t quarter(__m256i index, int n) {
    const __m128i half = n < 2 ? _mm256_castsi256_si128(index) : _mm256_extracti128_si256(index, 1);
    return static_cast<uint64_t>(n % 2 ? _mm_extract_epi64(half, 1) : _mm_cvtsi128_si64(half));
}
TQ4_AVX512_INLINE uint16_t lane(uint64_t four, int n) { return static_cast<uint16_t>(four >> 16 * n); }

TQ4_AVX512_INLINE __m128i look_up_4(const uint32_t *table, uint64_t a) {
    const auto entry = [=](uint16_t index) { return static_cast<int>(table[index]); };
    return _mm_setr_epi32(entry(lane(a, 0)), entry(lane(a, 1)), entry(lane(a, 2)), entry(lane(a, 3)));
}

TQ4_AVX512_INLINE __m512i look_up_16(const uint32_t *table, __m256i index) {
    const __m256i low = _mm256_set_m128i(look_up_4(table, quarter(index, 1)), look_up_4(table, quarter(index, 0)));
    const __m256i high = _mm256_set_m128i(look_up_4(table, quarter(index, 3)), look_up_4(table, quarter(index, 2)));
    return _mm512_inserti64x4(_mm512_castsi256_si512(low), high, 1);
}

TQ4_AVX512_INLINE __m128i look_up_8(const uint16_t *table, uint64_t a, uint64_t b) {
    const auto entry = [=](uint16_t index) { return static_cast<short>(table[index]); };
    return _mm_setr_epi16(entry(lane(a, 0)), entry(lane(a, 1)), entry(lane(a, 2)), entry(lane(a, 3)), entry(lane(b, 0)),
                          entry(lane(b, 1)), entry(lane(b, 2)), entry(lane(b, 3)));
}

TQ4_AVX512_INLINE __m128i look_up_8(const uint16_t *table, __m256i index, int half) {
    return look_up_8(table, quarter(index, half * 2), quarter(index, half * 2 + 1));
}

// The last 8 lanes of 32 only if they are in use, which in Chinese UTF-8 text they seldom are.
TQ4_AVX512_INLINE __m512i look_up_32(const uint16_t *table, __m512i index, unsigned used) {
    const __m256i front = _mm512_castsi512_si256(index), back = _mm512_extracti64x4_epi64(index, 1);
    const __m256i low = _mm256_set_m128i(look_up_8(table, front, 1), look_up_8(table, front, 0));
    __m256i high = _mm256_castsi128_si256(look_up_8(table, back, 0));
    if (used > 24) high = _mm256_inserti128_si256(high, look_up_8(table, back, 1), 1);
    return _mm512_inserti64x4(_mm512_castsi256_si512(low), high, 1);
}

// -------------------------------------------------------------------------------------------------------- From GB18030

// The 32 characters from in on, of one or two bytes: they lie within 64 bytes and one more.
struct Two_byte_block {
    static constexpr std::size_t window = width + 1;
    __m512i bytes, index; // the input; of each character, into the tables by code
    uint64_t high, starts, leads;

    TQ4_AVX512_INLINE explicit Two_byte_block(const uint8_t *in) {
        bytes = _mm512_loadu_si512(in);
        high = _mm512_movepi8_mask(bytes);
        // In a run of bytes of 80 and more, leads and trails alternate, and the byte behind a last lead is a trail too.
        // Subtracting the run from the alternating pattern lets the borrow tell where each run began.
        constexpr uint64_t odd = 0xAAAAAAAAAAAAAAAA;
        const uint64_t alternating = ((high << 1 | odd) - high) ^ odd;
        starts = ~(alternating ^ high);
        leads = alternating & high;
        const __m512i first = widen(starts, _mm512_maskz_mov_epi8(leads, bytes));
        const __m512i second = widen(starts, _mm512_mask_mov_epi8(bytes, leads, _mm512_loadu_si512(in + 1)));
        index = _mm512_ternarylogic_epi64(_mm512_slli_epi16(first, 8), second, lanes_of(0x8000), 0x56); // (a | b) ^ c
    }
    TQ4_AVX512_INLINE bool is_ascii() const { return !high; }
    TQ4_AVX512_INLINE unsigned count() const { return 32; }
    // The bytes of the first n characters.
    TQ4_AVX512_INLINE unsigned size(unsigned n) const {
        if (n == 0) return 0;
        const unsigned last = position_of(n - 1, starts);
        return last + 1 + (leads >> last & 1);
    }
};

// Writing a block returns how many characters it has converted, and may store whole vectors in its window.
struct To_utf8 {
    static constexpr std::size_t window = 48 + width;
    TQ4_AVX512_INLINE static void write_ascii(const Two_byte_block &block, Gb18030_cursor &at) {
        copy_ascii(at, block.bytes);
    }
    TQ4_AVX512_INLINE static unsigned write(const Two_byte_block &block, uint8_t *&out) {
        const __m512i a = look_up_16(gb18030_utf8.data(), _mm512_castsi512_si256(block.index));
        const __m512i b = look_up_16(gb18030_utf8.data(), _mm512_extracti64x4_epi64(block.index, 1));
        const uint32_t none = _mm512_testn_epi32_mask(a, a) | _mm512_testn_epi32_mask(b, b) << 16;
        constexpr uint64_t first_bytes = 0x1111111111111111; // chosen even if NUL
        const __m512i form = _mm512_set1_epi32(0xFFFFFF);
        uint64_t of_a = _mm512_test_epi8_mask(a, form) | first_bytes;
        uint64_t of_b = _mm512_test_epi8_mask(b, form) | first_bytes;
        const unsigned count = static_cast<unsigned>(std::countr_zero(none));
        if (none) {
            of_a = _bzhi_u64(of_a, std::min(count, 16u) * 4);
            of_b = _bzhi_u64(of_b, std::max(count, 16u) * 4 - 64);
        }
        put(out, of_a, a);
        put(out, of_b, b);
        return count;
    }
};

struct To_units {
    static constexpr std::size_t window = 2 * width;
    TQ4_AVX512_INLINE static void write_ascii(const Two_byte_block &block, Gb18030_cursor &at) {
        _mm512_storeu_si512(at.out, _mm512_cvtepu8_epi16(_mm512_castsi512_si256(block.bytes)));
        _mm512_storeu_si512(at.out + width, _mm512_cvtepu8_epi16(_mm512_extracti64x4_epi64(block.bytes, 1)));
        at.advance(width, 2 * width);
    }
    TQ4_AVX512_INLINE static unsigned write(const Two_byte_block &block, uint8_t *&out) {
        const auto *table = reinterpret_cast<const uint16_t *>(gb18030_code_points.data());
        const __m512i units = look_up_32(table, block.index, block.count());
        const uint32_t none = _mm512_mask_cmpneq_epu16_mask(_mm512_testn_epi16_mask(units, units), block.index,
                                                            lanes_of(gb18030_ascii_index)); // but NUL
        const unsigned count = static_cast<unsigned>(std::countr_zero(none));
        _mm512_storeu_si512(out, units);
        out += count * sizeof(uint16_t);
        return count;
    }
};

// ---------------------------------------------------------------------------------------------------------- To GB18030

// 32 units.
struct Unit_block {
    static constexpr std::size_t window = width;
    __m512i code_points;
    uint32_t ascii;

    TQ4_AVX512_INLINE explicit Unit_block(const uint8_t *in) {
        code_points = _mm512_loadu_si512(in);
        ascii = _mm512_cmplt_epu16_mask(code_points, lanes_of(0x80));
    }
    TQ4_AVX512_INLINE bool is_ascii() const { return ascii == 0xFFFFFFFF; }
    TQ4_AVX512_INLINE unsigned count() const { return 32; }
    TQ4_AVX512_INLINE unsigned size(unsigned n) const { return n * 2; }
};

// The characters of one to three bytes that lie within 64 bytes, 32 at most, without the last one, which may be cut
// short, and up to the first malformed one.
struct Utf8_block {
    static constexpr std::size_t window = width + 2;
    __m512i bytes, code_points; // the input; 0 for a three-byte form that is overlong
    uint64_t high, starts;
    uint32_t ascii;
    unsigned characters;

    TQ4_AVX512_INLINE explicit Utf8_block(const uint8_t *in) {
        bytes = _mm512_loadu_si512(in);
        high = _mm512_movepi8_mask(bytes);
        const uint64_t two = _mm512_cmpge_epu8_mask(bytes, bytes_of(0xC0));
        const uint64_t three = _mm512_cmpge_epu8_mask(bytes, bytes_of(0xE0));
        const uint64_t four = _mm512_cmpge_epu8_mask(bytes, bytes_of(0xF0));
        starts = ~high | two;
        const uint64_t wrong = (~starts ^ (two << 1 | three << 2)) | four;
        const unsigned started = ones_in(starts & (wrong - 1) & ~wrong);
        characters = std::min(std::max(started, 1u) - 1, 32u);

        const __m512i first = widen(starts, bytes), tail = lanes_of(0x3F);
        const __m512i second = _mm512_and_si512(widen(starts, _mm512_loadu_si512(in + 1)), tail);
        const __m512i third = _mm512_and_si512(widen(starts, _mm512_loadu_si512(in + 2)), tail);
        ascii = _mm512_cmplt_epu16_mask(first, lanes_of(0x80));
        const uint32_t of_three = _mm512_cmpge_epu16_mask(first, lanes_of(0xE0));
        const __m512i of_two = _mm512_or_si512(_mm512_slli_epi16(_mm512_and_si512(first, lanes_of(0x1F)), 6), second);
        // The marks of a three-byte lead leave the lane on the left.
        const __m512i of_all = _mm512_or_si512(_mm512_slli_epi16(of_two, 6), third);
        const uint32_t plain = _mm512_mask_cmpge_epu16_mask(of_three, of_all, lanes_of(0x800));
        code_points = _mm512_mask_mov_epi16(_mm512_maskz_mov_epi16(~of_three, of_two), plain, of_all);
        code_points = _mm512_mask_mov_epi16(code_points, ascii, first);
    }
    TQ4_AVX512_INLINE bool is_ascii() const { return !high; }
    TQ4_AVX512_INLINE unsigned count() const { return characters; }
    TQ4_AVX512_INLINE unsigned size(unsigned n) const { return n == 0 ? 0 : position_of(n, starts); }
};

struct To_gb18030 {
    static constexpr std::size_t window = width;
    TQ4_AVX512_INLINE static void write_ascii(const Utf8_block &block, Gb18030_cursor &at) {
        copy_ascii(at, block.bytes);
    }
    TQ4_AVX512_INLINE static void write_ascii(const Unit_block &block, Gb18030_cursor &at) {
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(at.out), _mm512_cvtepi16_epi8(block.code_points));
        at.advance(width, width / 2);
    }
    template <class Block> TQ4_AVX512_INLINE static unsigned write(const Block &block, uint8_t *&out) {
        const __m512i looked_up = look_up_32(gb18030_codes.data(), block.code_points, block.count());
        const __m512i codes = _mm512_mask_mov_epi16(looked_up, block.ascii, block.code_points);
        const uint32_t none = _mm512_testn_epi16_mask(codes, codes) & ~block.ascii;
        const unsigned count = std::min(block.count(), static_cast<unsigned>(std::countr_zero(none)));
        constexpr uint64_t first_bytes = 0x5555555555555555; // chosen even if NUL
        put(out, _bzhi_u64(_mm512_test_epi8_mask(codes, codes) | first_bytes, count * 2), codes);
        return count;
    }
};

// -------------------------------------------------------------------------------------------------------- Conversions

// Converts blocks while their windows fit into input and room; stops before a character for the portable conversion.
template <class From, class To> TQ4_AVX512_INLINE void convert_blocks(Gb18030_cursor &at) {
    while (at.has(From::window, To::window)) {
        From block(at.in);
        if (block.is_ascii()) {
            To::write_ascii(block, at);
            continue;
        }
        for (bool more = true; more;) {
            const unsigned size = block.size(block.count());
            more = at.has(2 * From::window, 2 * To::window);
            const From next = more ? From(at.in + size) : block;
            const unsigned written = To::write(block, at.out);
            if (written == 0 || written != block.count()) {
                at.in += block.size(written);
                return;
            }
            at.in += size;
            if (next.is_ascii()) break;
            block = next;
        }
    }
}

// Where blocks make little way, among many characters that are not for them, the portable conversion takes ever more.
template <class From, class To, Gb18030_conversion *Gb18030_kernel::*portable>
TQ4_AVX512 Tq4_converted convert(Tq4_bytes in, Tq4_room out) {
    constexpr std::size_t few = 32, many = 1024;
    Gb18030_cursor at(in, out);
    for (std::size_t neighbours = few;; neighbours = std::min(neighbours * 2, many)) {
        const uint8_t *const start = at.in;
        convert_blocks<From, To>(at);
        if (at.in - start > static_cast<std::ptrdiff_t>(2 * width)) neighbours = few;
        const bool last = !at.has(From::window, To::window);
        const Tq4_converted part = (gb18030_portable.*portable)(
            {at.in, last ? at.left() : std::min(at.left(), neighbours)}, {at.out, at.room()});
        at.advance(part.consumed, part.produced);
        if (last || part.consumed == 0) return {in.size - at.left(), out.size - at.room()};
    }
}

bool is_supported() {
    return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
           __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512vbmi") &&
           __builtin_cpu_supports("avx512vbmi2") && __builtin_cpu_supports("bmi") && __builtin_cpu_supports("bmi2") &&
           __builtin_cpu_supports("popcnt");
}

} // namespace

const Gb18030_kernel gb18030_avx512 = {
    .name = "avx512",
    .is_supported = is_supported,
    .utf8_to_gb18030 = convert<Utf8_block, To_gb18030, &Gb18030_kernel::utf8_to_gb18030>,
    .gb18030_to_utf8 = convert<Two_byte_block, To_utf8, &Gb18030_kernel::gb18030_to_utf8>,
    .units_to_gb18030 = convert<Unit_block, To_gb18030, &Gb18030_kernel::units_to_gb18030>,
    .gb18030_to_units = convert<Two_byte_block, To_units, &Gb18030_kernel::gb18030_to_units>,
};

#endif
