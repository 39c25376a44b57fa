// print_number.hpp: numbers as digits, without sign, width or precision of integers, which are the engine's.
//
// Integers are written backwards from the end of a place whose size digit_count tells; they are inline because they
// are most of what a log line costs.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

// The digits of 00 to 99, two bytes each.
struct Tq4_digit_pairs {
    char text[200];
    constexpr Tq4_digit_pairs() : text() {
        for (int i = 0; i < 100; ++i) {
            text[2 * i] = static_cast<char>('0' + i / 10);
            text[2 * i + 1] = static_cast<char>('0' + i % 10);
        }
    }
};
inline constexpr Tq4_digit_pairs Tq4_digit_pairs_table;

struct Tq4_powers_of_ten {
    uint64_t power[20];
    constexpr Tq4_powers_of_ten() : power() {
        power[0] = 1;
        for (int i = 1; i < 20; ++i) power[i] = power[i - 1] * 10;
    }
};
inline constexpr Tq4_powers_of_ten Tq4_ten;

struct Tq4_decimal {
    static unsigned digit_count(uint64_t value) {
        if (value < 100) return value < 10 ? 1 : 2;
        unsigned at_least = static_cast<unsigned>(std::bit_width(value)) * 1233 >> 12; // log10(2) is 1233 / 4096
        return at_least + (value >= Tq4_ten.power[at_least]);
    }
    static void write_before(uint8_t *end, uint64_t value) {
        for (; value >= 100; value /= 100) std::memcpy(end -= 2, &Tq4_digit_pairs_table.text[value % 100 * 2], 2);
        if (value >= 10)
            std::memcpy(end - 2, &Tq4_digit_pairs_table.text[value * 2], 2);
        else
            end[-1] = static_cast<uint8_t>('0' + value);
    }
};

// A radix that is a power of two.
struct Tq4_binary_radix {
    unsigned bits; // of one digit
    const char *digits;

    unsigned digit_count(uint64_t value) const {
        return (static_cast<unsigned>(std::bit_width(value | 1)) + bits - 1) / bits;
    }
    void write_before(uint8_t *end, uint64_t value) const {
        do *--end = static_cast<uint8_t>(digits[value & ((1u << bits) - 1)]);
        while (value >>= bits);
    }
};

// Writes a finite value that is not negative as %e, %f or %g (letter) with the given precision writes it, into at most
// `room` bytes. Returns the bytes, or 0 when they do not fit.
std::size_t Tq4_write_double(uint8_t *out, std::size_t room, double value, char letter, int precision);
