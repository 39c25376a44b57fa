// key_wire.hpp: the first byte of a key's encoding, and the encoding of keys that are nothing but a short text.
#pragma once

#include "base/key/key.hpp"

enum Tq4_key_flags : unsigned {
    Tq4_key_kind_mask = 0x0F,
    Tq4_key_has_number = 0x10,
    Tq4_key_has_string = 0x20,
    Tq4_key_has_bytes = 0x40,
    Tq4_key_ignores_case = 0x80
};

// Room for what Tq4_key_put_short writes, beyond its end too: flags, a length of 16 bits and a cell.
inline constexpr long Tq4_key_short_most = 1 + 2 + sizeof(Tq4_text_cell);

// Encodes a key without a number whose text lies in its cell, as most do, by moves of fixed size. Returns its end; null
// for another key.
inline uint8_t *Tq4_key_put_short(uint8_t *room, const Tq4_key_obj &key) {
    if (!key.sid.inside() || key.iid.id) return nullptr;
    const uint8_t size = key.sid.size_inside();
    if (!size) return nullptr;
    room[0] = static_cast<uint8_t>((key.m_type & Tq4_key_kind_mask) | Tq4_key_has_string | Tq4_key_has_bytes |
                                   (key.cf ? Tq4_key_ignores_case : 0u));
    room[1] = 0;
    room[2] = size;
    std::memcpy(room + 3, key.sid.raw(), sizeof key.sid);
    return room + 3 + size;
}
