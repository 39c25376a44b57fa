// convert.cpp: character sets, Base64 and scrambling, appended to the text.
//
// The work is done by pure functions from bytes to room; here stands only where the room comes from. A conversion is
// run in rounds, each with room for as many bytes as there are left to convert: no conversion writes more than twice
// what it reads, so the rounds are few, and the buffer grows no further than the text needs.
#include <algorithm>

#include "base/charset/base64.hpp"
#include "base/charset/crypto_quick.hpp"
#include "base/charset/gb18030.hpp"
#include "base/charset/utf8.hpp"
#include "base/string/string.hpp"

namespace {

constexpr unsigned long longest_character = 8; // in bytes, in any of the sets
constexpr unsigned long scrambled_block = 8;

// The size in bytes of 16-bit units, which may be unaligned; with bytes all ones up to a unit of zero.
unsigned long size_of_units(const uint16_t *units, unsigned long bytes) {
    if (!units || bytes != TQ4_ALL_ONES) return units ? bytes : 0;
    auto *at = reinterpret_cast<const uint8_t *>(units);
    unsigned long n = 0;
    while (at[n] || at[n + 1]) n += 2;
    return n;
}

crypto_quick_key_t key_of(const char *text) {
    crypto_quick_key_t key;
    crypto_quick_init_key(&key, Tq4_text_bytes(text));
    return key;
}

} // namespace

long Tq4_string_obj::convert(Conversion conversion, Tq4_bytes in) {
    unsigned long before = size();
    for (Tq4_converted done; in.size; in = {in.data + done.consumed, in.size - done.consumed}) {
        if (in.size > Tq4_wbuf_ceiling || !reserve(in.size + longest_character)) {
            set_size(before);
            break;
        }
        done = conversion(in, {end(), m_buf.m_cnt});
        if (!done.consumed) break;
        set_size(size() + done.produced);
    }
    return static_cast<long>(size() - before);
}

long Tq4_string_obj::utf8_2_unicode(const char *text, unsigned long len) {
    return convert(utf8_to_units, Tq4_operand(*this, text, len)) / 2;
}
long Tq4_string_obj::unicode_2_utf8(const uint16_t *units, unsigned long bytes) {
    return convert(units_to_utf8, Tq4_operand(*this, units, size_of_units(units, bytes)));
}
long Tq4_string_obj::utf8_2_gb18030(const char *text, unsigned long len) {
    return convert(utf8_to_gb18030, Tq4_operand(*this, text, len));
}
long Tq4_string_obj::gb18030_2_utf8(const char *text, unsigned long len) {
    return convert(gb18030_to_utf8, Tq4_operand(*this, text, len));
}
long Tq4_string_obj::unicode_2_gb18030(const uint16_t *units, unsigned long bytes) {
    return convert(units_to_gb18030, Tq4_operand(*this, units, size_of_units(units, bytes)));
}
long Tq4_string_obj::gb18030_2_unicode(const char *text, unsigned long len) {
    return convert(gb18030_to_units, Tq4_operand(*this, text, len));
}

int Tq4_string_obj::measure_utf8(const char *bytes, unsigned long len) {
    return utf8_decode(Tq4_text_bytes(bytes, len), nullptr);
}

int Tq4_string_obj::utf8_2_unicode_onece(const char *bytes, unsigned long len) {
    uint32_t code_point = 0;
    int consumed = utf8_decode(Tq4_text_bytes(bytes, len), &code_point);
    if (consumed <= 0) return consumed;
    if (code_point > 0xffff) return -consumed; // has no 16-bit unit
    auto unit = static_cast<uint16_t>(code_point);
    Tq4_wbuf_memcat(&m_buf, &unit, sizeof unit);
    return consumed;
}

const char *Tq4_string_obj::Base64Encode(const void *bytes, unsigned long len) {
    Tq4_operand in(*this, bytes, len);
    uint8_t *out = open_gap(TQ4_ALL_ONES, base64_encoded_size(in.size));
    if (out) base64_encode(in, out);
    return c_str();
}

const char *Tq4_string_obj::Base64Decode(const char *text, unsigned long len) {
    Tq4_operand in(*this, text, len);
    if (reserve(base64_decoded_max(in.size))) set_size(size() + base64_decode(in, end()));
    return c_str();
}

// Whole blocks; when the last one was filled up, a byte that says by how much follows.
long Tq4_string_obj::enc(const void *bytes, unsigned long len, const char *key) {
    return key ? scramble(bytes, len, key_of(key)) : 0;
}

long Tq4_string_obj::scramble(const void *bytes, unsigned long len, crypto_quick_key_t round_key) {
    Tq4_operand in(*this, bytes, len);
    if (!in.size || in.size > Tq4_wbuf_ceiling) return 0;
    unsigned long padding = (scrambled_block - in.size % scrambled_block) % scrambled_block;
    uint8_t *out = open_gap(TQ4_ALL_ONES, in.size + padding + (padding != 0));
    if (!out) return 0;
    unsigned long blocks = crypto_quick_enc(&round_key, in, out);
    if (padding) out[blocks] = static_cast<uint8_t>(padding);
    return length();
}

long Tq4_string_obj::dec(const void *bytes, unsigned long len, const char *key) {
    return key ? unscramble(bytes, len, key_of(key)) : 0;
}

long Tq4_string_obj::unscramble(const void *bytes, unsigned long len, crypto_quick_key_t round_key) {
    Tq4_operand in(*this, bytes, len);
    if (!in.size || !reserve(in.size)) return 0;
    unsigned long blocks = crypto_quick_dec(&round_key, in, end());
    unsigned long padding = in.size % scrambled_block ? in.data[in.size - 1] : 0;
    set_size(size() + blocks - std::min(padding, blocks)); // a false count takes nothing that was there before
    return length();
}
