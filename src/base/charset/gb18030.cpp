// gb18030.cpp: GB18030 to and from UTF-8 and 16-bit units, for every processor.
//
// A conversion alternates between a run, a tight loop over the characters that make up nearly every text (ASCII in
// blocks, two-byte codes by one table access each), and single steps through a whole code point for all others and for
// the last bytes of input and room. A run stays off the ends so far that it may read and write whole words; a step is
// exact. So a text costs the run's loop, and what it costs to leave it at each rare character.
#include "base/charset/gb18030_kernels.hpp"

#include <algorithm>
#include <bit>
#include <cstring>

#include "base/charset/gb18030_tables.hpp"
#include "base/charset/kernel_choice.hpp"
#include "base/charset/utf8.hpp"
#include "computed_once.hpp"

namespace {

// The words of both encodings have their first byte low, on every host.
template <class Word> Word little(Word word) {
    if constexpr (std::endian::native == std::endian::little)
        return word;
    else if constexpr (sizeof(Word) == 2)
        return __builtin_bswap16(word);
    else if constexpr (sizeof(Word) == 4)
        return __builtin_bswap32(word);
    else
        return __builtin_bswap64(word);
}

template <class Word> Word load(const uint8_t *from) {
    Word word;
    std::memcpy(&word, from, sizeof word);
    return little(word);
}

template <class Word> void store(uint8_t *to, Word word) {
    word = little(word);
    std::memcpy(to, &word, sizeof word);
}

// Where the tables by code have a code; gb18030_ascii_index or more for a first byte below 80.
inline unsigned index_of(const uint8_t *code) { return __builtin_bswap16(load<uint16_t>(code)) ^ 0x8000u; }

// ---------------------------------------------------------------------------------------------------------- Characters

struct Character {
    uint32_t code_point;
    std::size_t size; // bytes of its form; 0: malformed, cut short or nothing assigned
};

constexpr Character no_character = {0, 0};

struct Units {
    static Character decode(Tq4_bytes in) {
        if (in.size < sizeof(uint16_t)) return no_character;
        uint16_t unit;
        std::memcpy(&unit, in.data, sizeof unit);
        return {unit, sizeof unit};
    }
    static std::size_t encode(uint32_t code_point, uint8_t *out) {
        if (code_point > 0xFFFF) return 0;
        const auto unit = static_cast<uint16_t>(code_point);
        std::memcpy(out, &unit, sizeof unit);
        return sizeof unit;
    }
};

struct Utf8 {
    static Character decode(Tq4_bytes in) {
        uint32_t code_point = 0;
        const int size = utf8_decode(in, &code_point);
        return size > 0 ? Character{code_point, static_cast<std::size_t>(size)} : no_character;
    }
    static std::size_t encode(uint32_t code_point, uint8_t *out) { return utf8_encode(code_point, out); }
};

struct Gb18030 {
    static Character decode(Tq4_bytes in) {
        if (in.size == 0) return no_character;
        if (in.data[0] < 0x80) return {in.data[0], 1};
        if (in.size < 2) return no_character;
        if (in.data[1] < gb18030_first_trail) return decode_four(in);
        const char16_t code_point = gb18030_code_points[index_of(in.data)];
        return code_point ? Character{code_point, 2} : no_character;
    }

    static std::size_t encode(uint32_t code_point, uint8_t *out) {
        if (code_point < 0x80) {
            out[0] = static_cast<uint8_t>(code_point);
            return 1;
        }
        if (code_point > 0x10FFFF) return 0;
        if (code_point > 0xFFFF) return encode_four(gb18030_first_supplementary + (code_point - 0x10000), out);
        if (const uint16_t code = gb18030_codes[code_point]) {
            store(out, code);
            return sizeof code;
        }
        const uint16_t number = gb18030_numbers[code_point];
        return number == gb18030_no_number ? 0 : encode_four(number, out);
    }

private:
    static Character decode_four(Tq4_bytes in) {
        if (in.size < 4) return no_character;
        const unsigned a = in.data[0] - gb18030_first_lead, b = in.data[1] - '0';
        const unsigned c = in.data[2] - gb18030_first_lead, d = in.data[3] - '0';
        if (a >= gb18030_leads || b >= 10 || c >= gb18030_leads || d >= 10) return no_character;
        const unsigned number = ((a * 10 + b) * gb18030_leads + c) * 10 + d;
        if (number < gb18030_plane_codes) return {gb18030_four_byte[number], 4};
        const unsigned beyond = number - gb18030_first_supplementary; // wraps for what lies between
        return beyond < gb18030_supplementary_codes ? Character{beyond + 0x10000, 4} : no_character;
    }

    static std::size_t encode_four(unsigned number, uint8_t *out) {
        const unsigned high = number / (gb18030_leads * 10), low = number % (gb18030_leads * 10);
        store(out, (high / 10 + gb18030_first_lead) | (high % 10 + '0') << 8 | (low / 10 + gb18030_first_lead) << 16 |
                       (low % 10 + '0') << 24);
        return 4;
    }
};

// Converts one character. Returns the bytes of the longer one of its two forms; 0 if that is not possible.
template <class From, class To> std::size_t step(Gb18030_cursor &at) {
    const Character character = From::decode({at.in, at.left()});
    if (character.size == 0) return 0;
    uint8_t form[8];
    uint8_t *const to = at.room() < sizeof form ? form : at.out;
    const std::size_t size = To::encode(character.code_point, to);
    if (size == 0 || size > at.room()) return 0;
    if (to == form) std::memcpy(at.out, form, size);
    at.advance(character.size, size);
    return std::max(character.size, size);
}

// ---------------------------------------------------------------------------------------------------------------- Runs

constexpr uint64_t high_bits = 0x8080808080808080;

// Copies ASCII up to the next other character, or as far as whole words of input and room go.
inline Gb18030_cursor copy_ascii(Gb18030_cursor at) {
    while (at.has(sizeof(uint64_t), sizeof(uint64_t))) {
        const uint64_t word = load<uint64_t>(at.in), others = word & high_bits;
        store(at.out, word);
        const auto characters = static_cast<std::size_t>(std::countr_zero(others)) / 8;
        at.advance(characters, characters);
        if (others) break;
        while (at.has(4 * sizeof word, 4 * sizeof word)) {
            uint64_t words[4];
            for (int i = 0; i < 4; ++i) words[i] = load<uint64_t>(at.in + 8 * i);
            if ((words[0] | words[1] | words[2] | words[3]) & high_bits) break;
            for (int i = 0; i < 4; ++i) store(at.out + 8 * i, words[i]);
            at.advance(4 * sizeof word, 4 * sizeof word);
        }
    }
    return at;
}

inline Gb18030_cursor two_byte_to_utf8(Gb18030_cursor at) {
    if (at.room() == 0) return at;
    for (std::size_t count = std::min(at.left() / 2, (at.room() - 1) / 3); count; --count) {
        const unsigned index = index_of(at.in);
        if (index >= gb18030_ascii_index) break;
        const uint32_t entry = gb18030_utf8[index];
        if (!entry) break;
        store(at.out, entry);
        at.advance(2, entry >> 24);
    }
    return at;
}

// The code of a three-byte form, in the low three bytes; 0 for an overlong one or none.
inline uint32_t code_of(uint64_t form) {
    const uint64_t code_point = (form & 0xF) << 12 | (form >> 2 & 0xFC0) | (form >> 16 & 0x3F);
    return code_point < 0x800 ? 0 : gb18030_codes[code_point];
}

// Three-byte forms by twos, in the low six bytes of a word; then a last one.
inline Gb18030_cursor three_byte_to_gb18030(Gb18030_cursor at) {
    constexpr uint64_t marks = 0xC0C0F0C0C0F0, forms = 0x8080E08080E0;
    for (std::size_t count = std::min(at.left() / 8, at.room() / 4); count; --count) {
        const uint64_t word = load<uint64_t>(at.in);
        if ((word & marks) != forms) break;
        const uint32_t first = code_of(word), second = code_of(word >> 24);
        if (!first || !second) break;
        store(at.out, first | second << 16);
        at.advance(6, 4);
    }
    if (!at.has(4, 2)) return at;
    const uint32_t word = load<uint32_t>(at.in);
    const uint32_t code = (word & 0xC0C0F0) == 0x8080E0 ? code_of(word) : 0;
    if (!code) return at;
    store(at.out, static_cast<uint16_t>(code));
    at.advance(3, 2);
    return at;
}

// Greek, Cyrillic and a few signs.
inline Gb18030_cursor two_byte_to_gb18030(Gb18030_cursor at) {
    for (std::size_t count = std::min(at.left(), at.room()) / 2; count; --count) {
        const unsigned word = load<uint16_t>(at.in);
        const uint16_t code = gb18030_codes[(word & 0x1F) << 6 | (word >> 8 & 0x3F)];
        if ((word & 0xC0E0) != 0x80C0 || !code) break;
        store(at.out, code);
        at.advance(2, 2);
    }
    return at;
}

inline Gb18030_cursor run_utf8_to_gb18030(Gb18030_cursor at) {
    for (const uint8_t *start = nullptr; start != at.in;) {
        start = at.in;
        at = two_byte_to_gb18030(three_byte_to_gb18030(copy_ascii(at)));
    }
    return at;
}

inline Gb18030_cursor run_gb18030_to_utf8(Gb18030_cursor at) {
    for (const uint8_t *start = nullptr; start != at.in;) {
        start = at.in;
        at = two_byte_to_utf8(copy_ascii(at));
    }
    return at;
}

inline Gb18030_cursor run_units_to_gb18030(Gb18030_cursor at) {
    for (std::size_t count = std::min(at.left(), at.room()) / 2; count; --count) {
        uint16_t unit;
        std::memcpy(&unit, at.in, sizeof unit);
        const uint16_t code = unit < 0x80 ? unit : gb18030_codes[unit];
        if (!code && unit) break;
        store(at.out, code);
        at.advance(2, unit < 0x80 ? 1 : 2);
    }
    return at;
}

inline Gb18030_cursor run_gb18030_to_units(Gb18030_cursor at) {
    for (std::size_t count = std::min(at.left(), at.room()) / 2; count; --count) {
        char16_t unit = at.in[0];
        std::size_t size = 1;
        if (unit >= 0x80) {
            unit = gb18030_code_points[index_of(at.in)];
            if (!unit) break;
            size = 2;
        }
        std::memcpy(at.out, &unit, sizeof unit);
        at.advance(size, sizeof unit);
    }
    return at;
}

template <class From, class To, Gb18030_cursor (*run)(Gb18030_cursor)>
Tq4_converted convert(Tq4_bytes in, Tq4_room out) {
    Gb18030_cursor at(in, out);
    std::size_t longest = 0;
    do {
        at = run(at);
        do longest = step<From, To>(at);
        while (longest == 4); // rare characters come in words
    } while (longest);
    return {in.size - at.left(), out.size - at.room()};
}

constexpr const Gb18030_kernel *kernels[] = {
    &gb18030_portable,
#if defined(__x86_64__)
    &gb18030_avx512,
#endif
};

const Gb18030_kernel &fastest_kernel() {
    return *Tq4_computed_once([] { return fastest_supported(gb18030_kernels()); });
}

} // namespace

const Gb18030_kernel gb18030_portable = {
    .name = "portable",
    .is_supported = [] { return true; },
    .utf8_to_gb18030 = convert<Utf8, Gb18030, run_utf8_to_gb18030>,
    .gb18030_to_utf8 = convert<Gb18030, Utf8, run_gb18030_to_utf8>,
    .units_to_gb18030 = convert<Units, Gb18030, run_units_to_gb18030>,
    .gb18030_to_units = convert<Gb18030, Units, run_gb18030_to_units>,
};

std::span<const Gb18030_kernel *const> gb18030_kernels() { return kernels; }

Tq4_converted utf8_to_gb18030(Tq4_bytes in, Tq4_room out) { return fastest_kernel().utf8_to_gb18030(in, out); }
Tq4_converted gb18030_to_utf8(Tq4_bytes in, Tq4_room out) { return fastest_kernel().gb18030_to_utf8(in, out); }
Tq4_converted units_to_gb18030(Tq4_bytes in, Tq4_room out) { return fastest_kernel().units_to_gb18030(in, out); }
Tq4_converted gb18030_to_units(Tq4_bytes in, Tq4_room out) { return fastest_kernel().gb18030_to_units(in, out); }
