// value_dump: the binary encoding of values, writing.
//
// A value is its tag byte and a payload, numbers big-endian. The encodings of nested tables follow in place. Of what is
// longer than its count or length can say, so much is written as that says, and a reader stays in step. Texts may
// lie in the buffer itself, as they are when their turn comes: room for the length before them is made before they are
// looked up, and so they stay.
#include <vector>

#include "base/byte_writer.hpp"
#include "base/kv/limits.hpp"
#include "base/kv/table.hpp"
#include "base/string/string.hpp"

namespace {

using Value = Tq4_value_obj;

struct Writer : Tq4_byte_writer {
    using Tq4_byte_writer::Tq4_byte_writer;
    int depth = 0; // tables that hold what is written
};

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
    if (v.m_string) out.Settle(sizeof(uint32_t));
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

// A place among the entries of a table.
struct Place {
    const Tq4_value_table_obj *table;
    const Tq4_list_node *next;
};

Place begin_table(const Tq4_value_table_obj &table, Writer &out) {
    out.Put(table.m_case);
    out.Put(static_cast<uint32_t>(table.Count()));
    return {&table, table.m_list.first()};
}

// As dump_table, for tables that are nested deeper than it goes.
void dump_deep_table(const Tq4_value_table_obj &table, Writer &out) {
    std::vector<Place> open{begin_table(table, out)}; // the table that is written, behind those that hold it
    while (!open.empty()) {
        if (open.back().next == open.back().table->m_list.end()) {
            open.pop_back();
            continue;
        }
        const auto &pair = *static_cast<const Tq4_kv_pair *>(open.back().next);
        open.back().next = pair.next;
        pair.key().DumpTo(out);
        if (const Tq4_value_table_obj *inner = pair.value().table_record()) {
            out.Put(static_cast<uint8_t>(Tq4_value_Table));
            open.push_back(begin_table(*inner, out));
        } else {
            dump_value(pair.value(), out);
        }
    }
}

void dump_table(const Tq4_value_table_obj &table, Writer &out) {
    begin_table(table, out);
    table.EachPair([&](const Tq4_kv_pair &pair) {
        pair.key().DumpTo(out);
        dump_value(pair.value(), out);
        return true;
    });
}

void Tq4_value_dump_Table(const Value &v, Writer &out) {
    const Tq4_value_table_obj *table = v.table_record();
    if (!table) return;
    if (out.depth == Tq4_table_recursion_limit) return dump_deep_table(*table, out);
    ++out.depth;
    dump_table(*table, out);
    --out.depth;
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
