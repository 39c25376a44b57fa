// value_dump: the binary encoding of values, writing.
//
// A value is its tag byte and a payload, numbers big-endian. The encodings of nested tables follow in place. Of what is
// longer than its count or length can say, so much is written as that says, and a reader stays in step. Texts may
// lie in the buffer itself, as they are when their turn comes: room for the length before them is made before they are
// looked up, and so they stay.
#include <bit>

#include "base/byte_writer.hpp"
#include "base/key/key_wire.hpp"
#include "base/kv/table_walk.hpp"
#include "base/string/string.hpp"

namespace {

using Value = Tq4_value_obj;
using Writer = Tq4_byte_writer;

using Tq4_value_dump = void (*)(const Value &, Writer &);

Tq4_bytes bytes_of(Tq4_string string) {
    return string ? Tq4_record<const Tq4_string_obj>(string)->view() : Tq4_bytes{nullptr, 0};
}

void Tq4_value_dump_undefine(const Value &, Writer &) {}
void Tq4_value_dump_char(const Value &v, Writer &out) { out.Put(static_cast<uint8_t>(v.m_data.word)); }
void Tq4_value_dump_short(const Value &v, Writer &out) { out.Put(static_cast<uint16_t>(v.m_data.word)); }
void Tq4_value_dump_int(const Value &v, Writer &out) { out.Put(static_cast<uint32_t>(v.m_data.word)); }
// With a width byte, so that a peer may send longs of 4 bytes.
void Tq4_value_dump_long(const Value &v, Writer &out) {
    out.Put(static_cast<uint8_t>(sizeof v.m_data.word));
    out.Put(v.m_data.word);
}
void Tq4_value_dump_Int64(const Value &v, Writer &out) { out.Put(v.m_data.word); }
void Tq4_value_dump_Float(const Value &v, Writer &out) { out.Put(v.m_data.single); }
void Tq4_value_dump_Double(const Value &v, Writer &out) { out.Put(v.m_data.twofold); }
// 16 bytes, of which the last four, first on the wire, are zero.
void Tq4_value_dump_lDouble(const Value &v, Writer &out) {
    out.Put(uint32_t{0});
    uint8_t reversed[12];
    Tq4_reverse_copy(reversed, v.m_data.cell, sizeof reversed);
    out.PutBytes({reversed, sizeof reversed});
}

void Tq4_value_dump_string(const Value &v, Writer &out) {
    if (v.m_data.text.string()) out.Settle(sizeof(uint32_t));
    const Tq4_bytes bytes = v.bytes();
    const auto length = static_cast<uint32_t>(bytes.size);
    out.Put(length);
    out.PutBytes({bytes.data, length});
}

// A count, a width byte for longs, and every element reversed on its own.
template <unsigned width, bool with_width_byte> void Tq4_value_dump_packed(const Value &v, Writer &out) {
    const auto count = static_cast<uint32_t>(v.bytes().size / width);
    out.Put(count);
    if constexpr (with_width_byte) out.Put(static_cast<uint8_t>(width));
    uint8_t *room = out.Extend(uint64_t{count} * width);
    const uint8_t *elements = v.bytes().data; // looked up again: they may lie in the buffer, which may have moved
    for (uint64_t i = 0; room && i < count; ++i) Tq4_reverse_copy(room + i * width, elements + i * width, width);
}
// Counts and lengths of 16 bits.
void Tq4_value_dump_string_array(const Value &v, Writer &out) {
    Tq4_string_array array = v.m_data.array;
    const auto count = static_cast<uint16_t>(array ? (*array)->Size(array) : 0);
    out.Put(count);
    for (unsigned long i = 0; i < count; ++i) {
        out.Settle(sizeof(uint16_t));
        const Tq4_bytes bytes = bytes_of((*array)->At(array, i));
        const auto length = static_cast<uint16_t>(bytes.size);
        out.Put(length);
        out.PutBytes({bytes.data, length});
    }
}

void Tq4_value_dump_Table(const Value &v, Writer &out);

template <class Type> constexpr Tq4_value_dump dump_of() {
    using enum Tq4_value_storage;
    using Element = typename Type::Element;
    constexpr auto storage = Type::storage;
    if constexpr (Type::has_width_byte && storage != packed) return Tq4_value_dump_long; // pointers as their numbers
    if constexpr (storage == word && Type::width == 1) return Tq4_value_dump_char;
    if constexpr (storage == word && Type::width == 2) return Tq4_value_dump_short;
    if constexpr (storage == word) return Tq4_value_dump_int;
    if constexpr (storage == cell && std::is_same_v<Element, float>) return Tq4_value_dump_Float;
    if constexpr (storage == cell && std::is_same_v<Element, double>) return Tq4_value_dump_Double;
    if constexpr (storage == cell && std::is_same_v<Element, long double>) return Tq4_value_dump_lDouble;
    if constexpr (storage == cell) return Tq4_value_dump_Int64;
    if constexpr (storage == text) return Tq4_value_dump_string;
    if constexpr (storage == packed) return Tq4_value_dump_packed<Type::width, Type::has_width_byte>;
    if constexpr (storage == texts) return Tq4_value_dump_string_array;
    if constexpr (storage == table) return Tq4_value_dump_Table;
    return Tq4_value_dump_undefine;
}

constexpr Tq4_value_table_of<Tq4_value_dump> _g_Tq4_value_dump =
    Tq4_value_rows([](auto row) { return dump_of<decltype(row)>(); });

void dump_value(const Value &v, Writer &out) {
    out.Put(static_cast<uint8_t>(v.m_type));
    _g_Tq4_value_dump[v.m_type](v, out);
}

// ---- tables
//
// Most entries are short: the text of the key lies in its cell, and the value is a number or such a text. Runs of these
// are written as the rows above would, but with room asked for once an entry and by moves of fixed size.

// How a number of up to 64 bits is written; of other types, nothing.
struct Number {
    uint8_t before, width; // bytes: its tag, with the width byte of longs; and itself
    uint8_t shift;         // brings its bits to the top of a word
};
template <class Type> constexpr Number number_of() {
    using enum Tq4_value_storage;
    constexpr bool in_word = Type::storage == word || Type::storage == address;
    constexpr bool on_top = Type::storage == cell && std::endian::native == std::endian::big;
    if constexpr ((in_word || Type::storage == cell) && Type::width <= sizeof(uint64_t))
        return {1 + Type::has_width_byte, Type::width, on_top ? 0 : 64 - 8 * Type::width};
    else
        return {};
}
constexpr Tq4_value_table_of<Number> numbers = Tq4_value_rows([](auto row) { return number_of<decltype(row)>(); });

constexpr long short_value_most = 1 + sizeof(uint32_t) + sizeof(Tq4_text_cell);

// Returns the end of the value; null when it is not a short one.
uint8_t *put_short_value(uint8_t *room, const Value &v) {
    *room = static_cast<uint8_t>(v.m_type);
    if (v.is_text()) {
        const Tq4_text_cell *cell = v.m_data.text.inside();
        if (!cell) return nullptr;
        uint8_t *text = Writer::Store(room + 1, uint32_t{cell->size_inside()});
        std::memcpy(text, cell->raw(), sizeof *cell);
        return text + cell->size_inside();
    }
    const Number number = numbers[v.m_type];
    if (!number.width) return nullptr;
    room[1] = number.width; // the number itself overwrites it where no width byte is written
    Writer::Store(room + number.before, v.m_data.word << number.shift);
    return room + number.before + number.width;
}

// Writes the next entries of the innermost table, as long as they are short.
void put_short_entries(Tq4_table_walk &walk, Writer &out) {
    constexpr long most = Tq4_key_short_most + short_value_most;
    if (walk.done() || !out.Reserve(most)) return;
    out.Fill([&](uint8_t *room, const uint8_t *end) {
        walk.NextWhile([&](const Tq4_kv_pair &pair) {
            uint8_t *at = end - room < most ? nullptr : Tq4_key_put_short(room, pair.key());
            if (at) at = put_short_value(at, pair.value());
            if (at) room = at;
            return at != nullptr;
        });
        return room;
    });
}

void begin_table(const Tq4_value_table_obj &table, Writer &out) {
    out.Put(table.m_case);
    out.Put(static_cast<uint32_t>(table.Count()));
}

void dump_table(const Tq4_value_table_obj &outermost, Writer &out) {
    const auto next_entry = [&out](Tq4_table_walk &walk) {
        put_short_entries(walk, out);
        return walk.Next();
    };
    Tq4_table_walk walk(outermost);
    begin_table(outermost, out);
    do {
        while (const Tq4_kv_pair *pair = next_entry(walk)) {
            pair->key().DumpTo(out);
            const Tq4_value_table_obj *inner = Tq4_table_walk::TableIn(pair->value());
            if (!inner) {
                dump_value(pair->value(), out);
                continue;
            }
            out.Put(static_cast<uint8_t>(Tq4_value_Table));
            begin_table(*inner, out);
            walk.Enter(*inner);
        }
    } while (walk.Leave());
}

void Tq4_value_dump_Table(const Value &v, Writer &out) {
    if (const Tq4_value_table_obj *table = v.table_record()) dump_table(*table, out);
}

Tq4_wbuf *buffer_of(Tq4_string out) { return &Tq4_record<Tq4_string_obj>(out)->m_buf; }

} // namespace

long Tq4_value_obj::Dump(Tq4_string out) const {
    if (!out) return 0;
    Writer to(buffer_of(out));
    dump_value(*this, to);
    return to.Finish();
}

// 0 for an empty table, deliberately, although its header is written: callers take 0 to mean an empty table.
long Tq4_value_table_obj::Dump(Tq4_string out) const {
    if (!out) return 0;
    Writer to(buffer_of(out));
    dump_table(*this, to);
    const long written = to.Finish();
    return Count() ? written : 0;
}
