// print_number: doubles as digits.
//
// %f of a value below 2^64 with at most 17 decimals, which is what programs print, is exact arithmetic in 128 bits: the
// value is m * 2^-s with m below 2^53, so its fraction times 10^17 is below 2^110. What is cut off is compared with one
// half, ties go to the even digit. Everything else is the standard library's exact conversion.
#include "base/print_number.hpp"

#include <charconv>

namespace {

constexpr int most_decimals = 17;
constexpr std::size_t longest_fixed = 20 + 1 + most_decimals;

struct Fixed {
    uint64_t integer;
    uint64_t fraction; // in units of 10^-decimals
};

Fixed split(double value, int decimals) {
    auto bits = std::bit_cast<uint64_t>(value);
    int exponent = static_cast<int>(bits >> 52);
    uint64_t mantissa = bits & ((uint64_t{1} << 52) - 1);
    exponent ? mantissa |= uint64_t{1} << 52 : exponent = 1;
    int shift = 1075 - exponent; // value = mantissa * 2^-shift
    if (shift <= 0) return {mantissa << -shift, 0};

    uint64_t integer = shift < 64 ? mantissa >> shift : 0;
    uint64_t rest = shift < 64 ? mantissa & ((uint64_t{1} << shift) - 1) : mantissa;
    unsigned __int128 scaled = static_cast<unsigned __int128>(rest) * Tq4_ten.power[decimals];
    if (shift > 111) return {integer, 0}; // below half of the last decimal
    auto fraction = static_cast<uint64_t>(scaled >> shift);
    unsigned __int128 cut = scaled & ((static_cast<unsigned __int128>(1) << shift) - 1);
    unsigned __int128 half = static_cast<unsigned __int128>(1) << (shift - 1);
    bool odd = (decimals ? fraction : integer) & 1;
    if (cut > half || (cut == half && odd)) ++fraction;
    if (fraction == Tq4_ten.power[decimals]) return {integer + 1, 0};
    return {integer, fraction};
}

std::size_t write_fixed(uint8_t *out, double value, int decimals) {
    Fixed fixed = split(value, decimals);
    std::size_t size = Tq4_decimal::digit_count(fixed.integer);
    Tq4_decimal::write_before(out + size, fixed.integer);
    if (decimals == 0) return size;
    out[size++] = '.';
    std::memset(out + size, '0', static_cast<std::size_t>(decimals));
    size += static_cast<std::size_t>(decimals);
    Tq4_decimal::write_before(out + size, fixed.fraction);
    return size;
}

std::chars_format form(char letter) {
    if (letter == 'e') return std::chars_format::scientific;
    return letter == 'f' ? std::chars_format::fixed : std::chars_format::general;
}

} // namespace

std::size_t Tq4_write_double(uint8_t *out, std::size_t room, double value, char letter, int precision) {
    if (letter == 'f' && value < 0x1p64 && precision <= most_decimals && room >= longest_fixed)
        return write_fixed(out, value, precision);
    auto *first = reinterpret_cast<char *>(out);
    auto [end, error] = std::to_chars(first, first + room, value, form(letter), precision);
    return error == std::errc() ? static_cast<std::size_t>(end - first) : 0;
}
