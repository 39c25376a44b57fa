// value_dump: the binary encoding of values, writing; a row for each tag.
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
    if (v.m_string) out.Settle(sizeof(uint32_t));
    const Tq4_bytes bytes = v.bytes();
    const auto length = static_cast<uint32_t>(bytes.size);
    out.Put(length);
    out.PutBytes({bytes.data, length});
}

// A count, a width byte for longs, and every element reversed on its own.
template <unsigned width, bool with_width_byte = false> void dump_packed(const Value &v, Writer &out) {
    const auto count = static_cast<uint32_t>(v.bytes().size / width);
    out.Put(count);
    if constexpr (with_width_byte) out.Put(static_cast<uint8_t>(width));
    uint8_t *room = out.Extend(uint64_t{count} * width);
    const uint8_t *elements = v.bytes().data; // looked up again: they may lie in the buffer, which may have moved
    for (uint64_t i = 0; room && i < count; ++i) Tq4_reverse_copy(room + i * width, elements + i * width, width);
}
constexpr Tq4_value_dump Tq4_value_dump_pshort = dump_packed<2>;
constexpr Tq4_value_dump Tq4_value_dump_pint = dump_packed<4>;
constexpr Tq4_value_dump Tq4_value_dump_plong = dump_packed<8, true>;
constexpr Tq4_value_dump Tq4_value_dump_pfloat = dump_packed<4>;
constexpr Tq4_value_dump Tq4_value_dump_pdouble = dump_packed<8>;
constexpr Tq4_value_dump Tq4_value_dump_pldouble = dump_packed<16>;

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

const Tq4_value_dump _g_Tq4_value_dump[Tq4_value_tags] = {
    Tq4_value_dump_undefine,     // 0
    Tq4_value_dump_char,         // 1: CHAR
    Tq4_value_dump_char,         // 2: UCHAR
    Tq4_value_dump_short,        // 3: SHORT
    Tq4_value_dump_short,        // 4: USHORT
    Tq4_value_dump_int,          // 5: INT
    Tq4_value_dump_int,          // 6: UINT
    Tq4_value_dump_long,         // 7: LONG
    Tq4_value_dump_long,         // 8: ULONG
    Tq4_value_dump_long,         // 9: PTR travels as its number
    Tq4_value_dump_long,         // 10: Ref likewise
    Tq4_value_dump_undefine,     // 11
    Tq4_value_dump_Int64,        // 12: INT64
    Tq4_value_dump_Int64,        // 13: UINT64
    Tq4_value_dump_Float,        // 14
    Tq4_value_dump_Double,       // 15
    Tq4_value_dump_lDouble,      // 16
    Tq4_value_dump_undefine,     // 17
    Tq4_value_dump_string,       // 18: STRING
    Tq4_value_dump_string,       // 19: PCHAR
    Tq4_value_dump_string,       // 20: PUCHAR
    Tq4_value_dump_pshort,       // 21: PSHORT
    Tq4_value_dump_pshort,       // 22: PUSHORT
    Tq4_value_dump_pint,         // 23: PINT
    Tq4_value_dump_pint,         // 24: PUINT
    Tq4_value_dump_plong,        // 25: PLONG
    Tq4_value_dump_plong,        // 26: PULONG
    Tq4_value_dump_pfloat,       // 27
    Tq4_value_dump_pdouble,      // 28
    Tq4_value_dump_pldouble,     // 29
    Tq4_value_dump_undefine,     // 30
    Tq4_value_dump_string_array, // 31
    Tq4_value_dump_Table,        // 32
    Tq4_value_dump_undefine,     // 33
};

void dump_value(const Value &v, Writer &out) {
    out.Put(static_cast<uint8_t>(v.m_type));
    Tq4_value_row(_g_Tq4_value_dump, v.m_type)(v, out);
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

void dump_table(const Tq4_value_table_obj &table, Writer &out, int depth) {
    if (depth == Tq4_table_recursion_limit) return dump_deep_table(table, out);
    begin_table(table, out);
    table.EachPair([&](const Tq4_kv_pair &pair) {
        pair.key().DumpTo(out);
        if (const Tq4_value_table_obj *inner = pair.value().table_record()) {
            out.Put(static_cast<uint8_t>(Tq4_value_Table));
            dump_table(*inner, out, depth + 1);
        } else {
            dump_value(pair.value(), out);
        }
        return true;
    });
}

void Tq4_value_dump_Table(const Value &v, Writer &out) {
    if (const Tq4_value_table_obj *table = v.table_record()) dump_table(*table, out, 0);
}

Tq4_wbuf *buffer_of(Tq4_string out) { return &Tq4_record<Tq4_string_obj>(out)->m_buf; }

} // namespace

long Tq4_value_obj::Dump(Tq4_string out) const {
    if (!out) return 0;
    Writer to(buffer_of(out));
    dump_value(*this, to);
    return to.written();
}

// 0 for an empty table, deliberately, although its header is written: callers take 0 to mean an empty table.
long Tq4_value_table_obj::Dump(Tq4_string out) const {
    if (!out) return 0;
    Writer to(buffer_of(out));
    dump_table(*this, to, 0);
    return Count() ? to.written() : 0;
}
