// short_members.hpp: the members of objects in compact JSON text, most of which are alike.
//
// The key is a text, so is the value, and both lie in their cells. A run of these is written without anything being
// looked at twice: room is asked for once a member, and cells are copied by moves of fixed size.
#pragma once

#include "base/byte_writer.hpp"
#include "base/kv/table_walk.hpp"

inline bool Tq4_is_short_member(const Tq4_key_obj &key, const Tq4_value_obj &v) {
    return key.m_type == Tq4_key_type_String && key.sid.inside() && v.is_text() && v.m_data.text.inside();
}

// Writes the next members of the innermost table as long as they are such. put(room, cell) writes a text to where the
// whole cell finds room and returns its end; null when it has to be written in another way, as a whole member is then.
template <class Put> void Tq4_put_short_members(Tq4_byte_writer &to, Tq4_table_walk &walk, Put put) {
    constexpr long most = 2 * sizeof(Tq4_text_cell) + 8; // with all that stands around two texts
    if (walk.done() || !to.Reserve(most)) return;
    to.Fill([&](uint8_t *room, const uint8_t *end) {
        const char *before = walk.begun() ? ",\"" : "{\"";
        walk.NextWhile([&](const Tq4_kv_pair &pair) {
            const Tq4_key_obj &key = pair.key();
            const Tq4_value_obj &v = pair.value();
            if (end - room < most || !Tq4_is_short_member(key, v)) return false;
            std::memcpy(room, before, 2);
            uint8_t *at = put(room + 2, key.sid);
            if (!at) return false;
            std::memcpy(at, "\":\"", 4); // with the NUL: one move
            at = put(at + 3, *v.m_data.text.inside());
            if (!at) return false;
            *at = '"';
            room = at + 1;
            before = ",\"";
            return true;
        });
        return room;
    });
}
