// number.hpp: numbers and characters as a configuration writes them, and back. Texts that are read are NUL-terminated.
#pragma once

#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <type_traits>

// Hexadecimal digits up to the first other character; an 'x' restarts the value at 0. Saturates.
uint64_t Tq4_config_hex(std::string_view text);

// A whole number narrowed to its type. Deliberate: a leading zero makes it hexadecimal, with or without an 'x'.
template <class Integer> Integer Tq4_config_integer(std::string_view text) {
    if (text.starts_with('0')) return static_cast<Integer>(Tq4_config_hex(text));
    if constexpr (std::is_same_v<Integer, unsigned long>)
        return std::strtoul(text.data(), nullptr, 10);
    else
        return static_cast<Integer>(std::strtol(text.data(), nullptr, 10));
}

// For float and double: the decimal number at the front, 0 when there is none.
template <class Float> Float Tq4_config_float(std::string_view text);
template <> float Tq4_config_float(std::string_view text);
template <> double Tq4_config_float(std::string_view text);
char Tq4_config_char(std::string_view text);

// Decimal, or with hex "0x" and the digits of an int's bits, for a long of all its bits. Deliberate: of an unsigned
// long the low 32 bits are written.
template <class Integer> std::string Tq4_config_integer_text(Integer value, bool hex) {
    if (!hex) return std::to_string(value);
    using Bits = std::conditional_t<std::is_same_v<Integer, long>, unsigned long, unsigned>;
    char digits[2 * sizeof(Bits)];
    return "0x" + std::string(digits, std::to_chars(digits, digits + sizeof digits, static_cast<Bits>(value), 16).ptr);
}

// Six decimals.
std::string Tq4_config_float_text(double value);
std::string Tq4_config_char_text(char value);
