// keyed_hash.hpp: hashes that nobody outside the process can foresee.
//
// A stranger who chooses the keys of a table must not be able to choose where its index puts them. So each process
// draws the key of its hash from the kernel, before its first index begins. The hash multiplies 64 bits to 128 and
// folds the halves, once for every 8 bytes. It is never shown, sent or stored; buckets, which are visible, come from
// the hashes of key.h. Fuzz targets have a fixed key, so that what they found happens again.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstring>

#include "base/charset/conversion.hpp"

// Zeros before the first Tq4_draw_hash_key is over, constant from then on.
struct Tq4_hash_key {
    std::atomic<uint64_t> start, number, text;
};
extern constinit Tq4_hash_key Tq4_process_hash_key;
void Tq4_draw_hash_key();

inline uint64_t Tq4_fold_product(uint64_t a, uint64_t b) {
    const auto product = static_cast<unsigned __int128>(a) * b;
    return static_cast<uint64_t>(product) ^ static_cast<uint64_t>(product >> 64);
}

// What the hash of a text alone begins with.
inline uint64_t Tq4_keyed_start() { return Tq4_process_hash_key.start.load(std::memory_order_relaxed); }

// The hash of a number of some kind, a small number itself.
inline uint64_t Tq4_keyed_number(uint64_t kind, uint64_t number) {
    constexpr auto relaxed = std::memory_order_relaxed;
    return Tq4_fold_product(number ^ Tq4_process_hash_key.start.load(relaxed),
                            Tq4_process_hash_key.number.load(relaxed) + 2 * kind);
}

// Eight letters at once: those from A to Z in small.
inline uint64_t Tq4_lower_word(uint64_t word) {
    constexpr uint64_t each = 0x0101010101010101, high = 0x80 * each;
    const uint64_t low = word & ~high;
    const uint64_t from_a = low + (0x80 - 'A') * each, past_z = low + (0x80 - 'Z' - 1) * each;
    return word | ((from_a & ~past_z & ~word & high) >> 2);
}

// A hash continued over a text, inline where look-ups need it; when nocase says so, the same for texts that differ only
// in the case of ASCII letters.
template <bool nocase> [[gnu::always_inline]] inline uint64_t Tq4_keyed_text(uint64_t hash, Tq4_bytes text) {
    const auto piece = [](const uint8_t *at, auto width) {
        std::memcpy(&width, at, sizeof width);
        return uint64_t{width};
    };
    const uint64_t multiplier = Tq4_process_hash_key.text.load(std::memory_order_relaxed);
    const auto mixed = [&](uint64_t word) {
        return Tq4_fold_product(hash ^ (nocase ? Tq4_lower_word(word) : word), multiplier);
    };
    hash += text.size;
    const uint8_t *at = text.data, *const end = text.data + text.size;
    if (text.size >= sizeof(uint64_t)) {
        for (; end - at > static_cast<long>(sizeof(uint64_t)); at += sizeof(uint64_t))
            hash = mixed(piece(at, uint64_t{}));
        return mixed(piece(end - sizeof(uint64_t), uint64_t{}));
    }
    if (text.size >= sizeof(uint32_t))
        return mixed(piece(at, uint32_t{}) | piece(end - sizeof(uint32_t), uint32_t{}) << 32);
    if (text.size == 0) return mixed(0);
    return mixed(uint64_t{at[0]} | uint64_t{at[text.size / 2]} << 8 | uint64_t{end[-1]} << 16);
}

uint64_t Tq4_keyed_folded_text(uint64_t hash, Tq4_bytes text);

// What an index keeps of a hash.
inline uint32_t Tq4_index_hash(uint64_t hash) { return static_cast<uint32_t>(hash >> 32); }

// A hash that is computed when somebody asks for it.
class Tq4_hash_on_demand {
    mutable uint64_t m_hash = 0;
    mutable bool m_known = false;

public:
    template <class Compute> uint64_t Get(Compute compute) const {
        if (!m_known) m_hash = compute();
        m_known = true;
        return m_hash;
    }
};
