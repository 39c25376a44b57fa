// utf8.cpp: UTF-8, the classic rules with forms of up to six bytes.
//
// The number of leading one bits of the lead byte is the length of the form, so decoding needs no table. Overlong forms
// are rejected where the classic decoders reject them, in two, three and four bytes; longer ones decode by their value,
// deliberately. A form that the input cuts short lacks a continuation byte and is answered like a bad one.
#include "base/charset/utf8.hpp"

#include <bit>
#include <cstring>

namespace {

constexpr uint32_t first_beyond_units = 0x10000;

bool is_overlong(int length, uint32_t code_point) {
    return (length == 3 && code_point < 0x800) || (length == 4 && code_point < 0x10000);
}

} // namespace

int utf8_decode(Tq4_bytes in, uint32_t *code_point) {
    if (in.size == 0) return 0;
    const uint8_t lead = in.data[0];
    uint32_t value = lead;
    int length = 1;
    if (lead >= 0x80) {
        if (lead < 0xC2) return -1;
        length = std::countl_one(lead);
        if (length > 6) return -7;
        if (in.size < static_cast<std::size_t>(length)) return -length;
        value = lead & (0x7Fu >> length);
        for (int i = 1; i < length; ++i) {
            const uint32_t bits = in.data[i] ^ 0x80u;
            if (bits > 0x3F) return -length;
            value = value << 6 | bits;
        }
        if (is_overlong(length, value)) return -length;
    }
    if (code_point) *code_point = value;
    return length;
}

std::size_t utf8_encoded_size(uint32_t code_point) {
    if (code_point < 0x80) return 1;
    // Beyond two bytes a form of n bytes holds 5 n + 1 bits; 32 bits are cut to the 31 that six bytes hold.
    const int bits = std::bit_width(code_point & 0x7FFFFFFF);
    return bits <= 11 ? 2 : static_cast<std::size_t>(bits + 3) / 5;
}

std::size_t utf8_encode(uint32_t code_point, uint8_t *out) {
    const std::size_t length = utf8_encoded_size(code_point);
    if (length == 1) {
        out[0] = static_cast<uint8_t>(code_point);
        return 1;
    }
    for (std::size_t i = length; i-- > 1; code_point >>= 6) out[i] = static_cast<uint8_t>(0x80 | (code_point & 0x3F));
    out[0] = static_cast<uint8_t>(0xFF00u >> length | (code_point & (0x7Fu >> length)));
    return length;
}

std::size_t utf8_columns(Tq4_bytes text) {
    std::size_t columns = 0;
    for (std::size_t at = 0; at < text.size;) {
        const int length = text.data[at] < 0x80 ? 1 : utf8_decode({text.data + at, text.size - at}, nullptr);
        columns += length > 1 ? 2 : 1;
        at += length > 1 ? static_cast<std::size_t>(length) : 1;
    }
    return columns;
}

Tq4_converted utf8_to_units(Tq4_bytes in, Tq4_room out) {
    Tq4_converted done = {0, 0};
    while (out.size - done.produced >= sizeof(uint16_t)) {
        uint32_t code_point = 0;
        const int length = utf8_decode({in.data + done.consumed, in.size - done.consumed}, &code_point);
        if (length <= 0 || code_point >= first_beyond_units) break;
        const auto unit = static_cast<uint16_t>(code_point);
        std::memcpy(out.data + done.produced, &unit, sizeof unit);
        done.consumed += static_cast<std::size_t>(length);
        done.produced += sizeof unit;
    }
    return done;
}

Tq4_converted units_to_utf8(Tq4_bytes in, Tq4_room out) {
    Tq4_converted done = {0, 0};
    while (in.size - done.consumed >= sizeof(uint16_t)) {
        uint16_t unit;
        std::memcpy(&unit, in.data + done.consumed, sizeof unit);
        if (out.size - done.produced < utf8_encoded_size(unit)) break;
        done.produced += utf8_encode(unit, out.data + done.produced);
        done.consumed += sizeof unit;
    }
    return done;
}
