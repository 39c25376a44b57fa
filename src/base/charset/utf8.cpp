// utf8.cpp: UTF-8, the classic rules with forms of up to six bytes.
//
// The lead byte tells the length of the form, and the loop over a form is unrolled for each length. A form that the
// input cuts short lacks a continuation byte and is answered like one with a bad one.
//
// The conversions alternate: a kernel takes all it can at vector speed, then a few characters are done one by one,
// which takes the text past what stopped the kernel or ends the conversion.
#include "base/charset/utf8.hpp"

#include <algorithm>
#include <cstring>

#include "base/charset/kernel_choice.hpp"
#include "base/charset/utf8_kernels.hpp"
#include "computed_once.hpp"

namespace {

constexpr uint32_t first_beyond_units = 0x10000;
constexpr int characters_between_kernels = 4;

// A code point below this is overlong in a form of the length and rejected. Overlong forms of two bytes have lead bytes
// of their own; those of five and six decode by their value, deliberately.
template <int Length> constexpr uint32_t least = Length == 3 ? 0x800 : Length == 4 ? 0x10000 : 0;

template <int Length> inline int decode_form(Tq4_bytes in, uint32_t *code_point) {
    if (in.size < Length) return -Length;
    uint32_t value = in.data[0] & (0x7Fu >> Length), foreign = 0;
#pragma GCC unroll 6
    for (int i = 1; i < Length; ++i) {
        const uint32_t bits = in.data[i] ^ 0x80u;
        foreign |= bits & 0xC0;
        value = value << 6 | (bits & 0x3F);
    }
    if (foreign || value < least<Length>) return -Length;
    if (code_point) *code_point = value;
    return Length;
}

inline __attribute__((always_inline)) int decode(Tq4_bytes in, uint32_t *code_point) {
    if (in.size == 0) return 0;
    const uint8_t lead = in.data[0];
    if (lead < 0x80) {
        if (code_point) *code_point = lead;
        return 1;
    }
    if (lead < 0xC2) return -1;
    if (lead < 0xE0) return decode_form<2>(in, code_point);
    if (lead < 0xF0) return decode_form<3>(in, code_point);
    if (lead < 0xF8) return decode_form<4>(in, code_point);
    if (lead < 0xFC) return decode_form<5>(in, code_point);
    return lead < 0xFE ? decode_form<6>(in, code_point) : -7;
}

template <int Length> inline std::size_t encode_form(uint32_t code_point, uint8_t *out) {
#pragma GCC unroll 6
    for (int i = Length - 1; i > 0; --i, code_point >>= 6) out[i] = static_cast<uint8_t>(0x80 | (code_point & 0x3F));
    out[0] = static_cast<uint8_t>(Length == 1 ? code_point : (0xFF00u >> Length | (code_point & (0x7Fu >> Length))));
    return Length;
}

Tq4_bytes rest(Tq4_bytes in, Tq4_converted done) { return {in.data + done.consumed, in.size - done.consumed}; }
Tq4_room rest(Tq4_room out, Tq4_converted done) { return {out.data + done.produced, out.size - done.produced}; }

bool is_ascii(const uint8_t *eight_bytes) {
    uint64_t eight;
    std::memcpy(&eight, eight_bytes, sizeof eight);
    return (eight & 0x8080808080808080) == 0;
}

Tq4_converted ascii_to_units(Tq4_bytes in, Tq4_room out) {
    const std::size_t units = std::min(in.size, out.size / sizeof(uint16_t));
    std::size_t done = 0;
    for (; units - done >= 8 && is_ascii(in.data + done); done += 8) {
        uint16_t eight[8];
        for (int i = 0; i < 8; ++i) eight[i] = in.data[done + i];
        std::memcpy(out.data + done * sizeof(uint16_t), eight, sizeof eight);
    }
    return {done, done * sizeof(uint16_t)};
}

Tq4_converted ascii_columns(Tq4_bytes text) {
    std::size_t done = 0;
    while (text.size - done >= 8 && is_ascii(text.data + done)) done += 8;
    return {done, done};
}

Tq4_converted ascii_from_units(Tq4_bytes in, Tq4_room out) {
    const std::size_t units = std::min(in.size / sizeof(uint16_t), out.size);
    std::size_t done = 0;
    for (; units - done >= 8; done += 8) {
        uint16_t eight[8], joined = 0;
        std::memcpy(eight, in.data + done * sizeof(uint16_t), sizeof eight);
        for (uint16_t unit : eight) joined |= unit;
        if (joined >= 0x80) break;
        for (int i = 0; i < 8; ++i) out.data[done + i] = static_cast<uint8_t>(eight[i]);
    }
    return {done * sizeof(uint16_t), done};
}

constexpr const Utf8_kernel *kernels[] = {
    &utf8_portable,
#if defined(__x86_64__)
    &utf8_sse4,
    &utf8_avx512,
#endif
};

const Utf8_kernel &fastest_kernel() {
    return *Tq4_computed_once([] { return fastest_supported(utf8_kernels()); });
}

// One character; false when the conversion ends here.
bool character_to_unit(Tq4_bytes in, Tq4_room out, Tq4_converted &done) {
    uint32_t code_point = 0;
    const int length = decode(rest(in, done), &code_point);
    if (length <= 0 || code_point >= first_beyond_units) return false;
    const auto unit = static_cast<uint16_t>(code_point);
    if (out.size - done.produced < sizeof unit) return false;
    std::memcpy(out.data + done.produced, &unit, sizeof unit);
    done.consumed += static_cast<std::size_t>(length);
    done.produced += sizeof unit;
    return true;
}

template <int Length> inline bool append_form(uint16_t unit, Tq4_room out, Tq4_converted &done) {
    if (out.size - done.produced < Length) return false;
    done.produced += encode_form<Length>(unit, out.data + done.produced);
    done.consumed += sizeof unit;
    return true;
}

bool character_from_unit(Tq4_bytes in, Tq4_room out, Tq4_converted &done) {
    uint16_t unit;
    if (in.size - done.consumed < sizeof unit) return false;
    std::memcpy(&unit, in.data + done.consumed, sizeof unit);
    if (unit < 0x80) return append_form<1>(unit, out, done);
    return unit < 0x800 ? append_form<2>(unit, out, done) : append_form<3>(unit, out, done);
}

bool character_columns(Tq4_bytes text, Tq4_converted &done) {
    if (done.consumed == text.size) return false;
    const int length = decode(rest(text, done), nullptr);
    done.consumed += length > 1 ? static_cast<std::size_t>(length) : 1;
    done.produced += length > 1 ? 2 : 1;
    return true;
}

// Runs the kernel from where the work is done, then some characters, until a character ends it.
template <class Kernel, class Character> Tq4_converted alternate(Kernel kernel, Character character) {
    Tq4_converted done = {0, 0};
    for (;;) {
        const Tq4_converted part = kernel(done);
        done = {done.consumed + part.consumed, done.produced + part.produced};
        for (int i = 0; i < characters_between_kernels; ++i)
            if (!character(done)) return done;
    }
}

} // namespace

constinit const Utf8_kernel utf8_portable = {
    .name = "portable",
    .is_supported = [] { return true; },
    .to_units = ascii_to_units,
    .from_units = ascii_from_units,
    .columns = ascii_columns,
};

std::span<const Utf8_kernel *const> utf8_kernels() { return kernels; }

int utf8_decode(Tq4_bytes in, uint32_t *code_point) { return decode(in, code_point); }

std::size_t utf8_encoded_size(uint32_t code_point) {
    if (code_point < 0x80) return 1;
    if (code_point < 0x800) return 2;
    if (code_point < 0x10000) return 3;
    if (code_point < 0x200000) return 4;
    return code_point < 0x4000000 ? 5 : 6;
}

std::size_t utf8_encode(uint32_t code_point, uint8_t *out) {
    if (code_point < 0x80) return encode_form<1>(code_point, out);
    if (code_point < 0x800) return encode_form<2>(code_point, out);
    if (code_point < 0x10000) return encode_form<3>(code_point, out);
    if (code_point < 0x200000) return encode_form<4>(code_point, out);
    return code_point < 0x4000000 ? encode_form<5>(code_point, out) : encode_form<6>(code_point, out);
}

Tq4_converted utf8_to_units_by(const Utf8_kernel &kernel, Tq4_bytes in, Tq4_room out) {
    return alternate([&](Tq4_converted done) { return kernel.to_units(rest(in, done), rest(out, done)); },
                     [&](Tq4_converted &done) { return character_to_unit(in, out, done); });
}

Tq4_converted units_to_utf8_by(const Utf8_kernel &kernel, Tq4_bytes in, Tq4_room out) {
    return alternate([&](Tq4_converted done) { return kernel.from_units(rest(in, done), rest(out, done)); },
                     [&](Tq4_converted &done) { return character_from_unit(in, out, done); });
}

std::size_t utf8_columns_by(const Utf8_kernel &kernel, Tq4_bytes text) {
    return alternate([&](Tq4_converted done) { return kernel.columns(rest(text, done)); },
                     [&](Tq4_converted &done) { return character_columns(text, done); })
        .produced;
}

std::size_t utf8_columns(Tq4_bytes text) { return utf8_columns_by(fastest_kernel(), text); }

Tq4_converted utf8_to_units(Tq4_bytes in, Tq4_room out) { return utf8_to_units_by(fastest_kernel(), in, out); }

Tq4_converted units_to_utf8(Tq4_bytes in, Tq4_room out) { return units_to_utf8_by(fastest_kernel(), in, out); }
