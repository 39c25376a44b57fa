// base64.cpp: standard Base64, written in lines of 80 characters.
//
// The encoder writes whole lines of 60 bytes through a kernel and the rest group by group. The decoder lets a kernel
// run over plain groups and takes the groups that hold padding or a line break by themselves, one character at a time;
// so the rules stand once, and the cost is the kernel's for every usual text. The output never exceeds the announced
// room: a group is written only when its four characters have been read.
#include "base/charset/base64.hpp"

#include <array>

#include "base/charset/base64_kernels.hpp"
#include "base/charset/kernel_choice.hpp"
#include "computed_once.hpp"

namespace {

// What a character stands for: its six bits, or one of these. The low six bits of padding are 0: it fills its place in
// the group with zeros.
enum : uint8_t { invalid = 0x40, padding = 0x80, line_break = 0xC0 };

constexpr auto values = [] {
    std::array<uint8_t, 256> table{};
    table.fill(invalid);
    for (uint8_t value = 0; value < 64; ++value) table[static_cast<uint8_t>(base64_alphabet[value])] = value;
    table['='] = padding;
    table['\r'] = table['\n'] = line_break;
    return table;
}();

uint8_t *encode_group(uint32_t bits, uint8_t *out) {
    for (int shift = 18; shift >= 0; shift -= 6) *out++ = static_cast<uint8_t>(base64_alphabet[bits >> shift & 0x3F]);
    return out;
}

uint8_t *encode_groups(const uint8_t *in, std::size_t groups, uint8_t *out) {
    for (; groups > 0; --groups, in += 3)
        out = encode_group(static_cast<uint32_t>(in[0] << 16 | in[1] << 8 | in[2]), out);
    return out;
}

uint8_t *encode_rest(const uint8_t *in, std::size_t size, uint8_t *out) {
    if (size == 0) return out;
    out = encode_group(static_cast<uint32_t>(in[0] << 16 | (size == 2 ? in[1] << 8 : 0)), out);
    out[-1] = '=';
    if (size == 1) out[-2] = '=';
    return out;
}

void encode_lines(const uint8_t *in, std::size_t lines, uint8_t *out) {
    for (; lines > 0; --lines, in += base64_line_bytes) {
        out = encode_groups(in, base64_line_bytes / 3, out);
        *out++ = '\n';
    }
}

std::size_t decode_groups(const uint8_t *in, std::size_t groups, uint8_t *out) {
    for (std::size_t group = 0; group < groups; ++group, in += 4, out += 3) {
        const uint8_t a = values[in[0]], b = values[in[1]], c = values[in[2]], d = values[in[3]];
        if ((a | b | c | d) > 0x3F) return group;
        out[0] = static_cast<uint8_t>(a << 2 | b >> 4);
        out[1] = static_cast<uint8_t>(b << 4 | c >> 2);
        out[2] = static_cast<uint8_t>(c << 6 | d);
    }
    return groups;
}

struct Cursor {
    const uint8_t *in;
    const uint8_t *end;
    uint8_t *out;

    std::size_t left() const { return static_cast<std::size_t>(end - in); }
    bool at_line_break() const { return in != end && values[*in] == line_break; }
};

// Decodes plain groups and the line breaks between them up to anything else. Most texts have lines of one length, so
// the break is looked for first where the last line had its own: then nothing in a line waits for the outcome of the
// one before.
Cursor decode_lines(const Base64_kernel &kernel, Cursor cursor) {
    std::size_t line_length = cursor.left();
    for (;;) {
        const std::size_t left = cursor.left();
        const bool as_before = line_length < left && values[cursor.in[line_length]] == line_break;
        const std::size_t groups = kernel.decode_groups(cursor.in, (as_before ? line_length : left) / 4, cursor.out);
        cursor.in += groups * 4;
        cursor.out += groups * 3;
        if (!cursor.at_line_break()) return cursor;
        line_length = groups * 4;
        do ++cursor.in;
        while (cursor.at_line_break());
    }
}

// Decodes one group character by character; false at the end of the input or at an invalid character.
bool decode_group(Cursor &cursor) {
    uint8_t group[4];
    for (int have = 0; have < 4;) {
        if (cursor.in == cursor.end) return false;
        const uint8_t value = values[*cursor.in++];
        if (value == invalid) return false;
        if (value != line_break) group[have++] = value;
    }
    // Each byte after the first hangs on its own last character alone, so "AA=A" gives the first and the third.
    *cursor.out++ = static_cast<uint8_t>(group[0] << 2 | (group[1] & 0x3F) >> 4);
    if (group[2] != padding) *cursor.out++ = static_cast<uint8_t>(group[1] << 4 | group[2] >> 2);
    if (group[3] != padding) *cursor.out++ = static_cast<uint8_t>(group[2] << 6 | group[3]);
    return true;
}

constexpr const Base64_kernel *kernels[] = {
    &base64_portable,
#if defined(__x86_64__)
    &base64_avx2,
    &base64_avx512,
#endif
};

const Base64_kernel &fastest_kernel() {
    return *Tq4_computed_once([] { return fastest_supported(base64_kernels()); });
}

} // namespace

constinit const Base64_kernel base64_portable = {
    .name = "portable",
    .is_supported = [] { return true; },
    .encode_lines = encode_lines,
    .decode_groups = decode_groups,
};

std::span<const Base64_kernel *const> base64_kernels() { return kernels; }

std::size_t base64_encoded_size(std::size_t n) {
    const std::size_t line_feeds = n / base64_line_bytes;
    std::size_t size = 0;
    if (__builtin_mul_overflow(n / 3 + (n % 3 != 0), std::size_t{4}, &size) ||
        __builtin_add_overflow(size, line_feeds, &size))
        return static_cast<std::size_t>(-1);
    return size;
}

std::size_t base64_encode_by(const Base64_kernel &kernel, Tq4_bytes in, uint8_t *out) {
    const std::size_t lines = in.size / base64_line_bytes;
    kernel.encode_lines(in.data, lines, out);
    const uint8_t *rest = in.data + lines * base64_line_bytes;
    const std::size_t groups = in.size % base64_line_bytes / 3;
    uint8_t *at = encode_groups(rest, groups, out + lines * base64_line_characters);
    at = encode_rest(rest + groups * 3, in.size % 3, at);
    return static_cast<std::size_t>(at - out);
}

std::size_t base64_decode_by(const Base64_kernel &kernel, Tq4_bytes in, uint8_t *out) {
    Cursor cursor = {in.data, in.data + in.size, out};
    do cursor = decode_lines(kernel, cursor);
    while (decode_group(cursor));
    return static_cast<std::size_t>(cursor.out - out);
}

std::size_t base64_encode(Tq4_bytes in, uint8_t *out) { return base64_encode_by(fastest_kernel(), in, out); }

std::size_t base64_decode(Tq4_bytes in, uint8_t *out) { return base64_decode_by(fastest_kernel(), in, out); }
