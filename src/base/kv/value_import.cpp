// value_import: the binary encoding of values, reading; a row for each tag.
//
// Bytes from outside: every row reads through a bounds-checked reader. What is cut short or too long is told through
// the debug interface and ends the value at the point reached; scalars that are cut short are taken as absent. An
// encoding that names nothing at all inside a table stops the process. Tables within tables beyond the nesting limit
// are taken as a damaged value: the rest of the input is consumed.
#include <algorithm>
#include <cstring>
#include <type_traits>

#include "assert.hpp"
#include "base/byte_reader.hpp"
#include "base/kv/limits.hpp"
#include "base/kv/table.hpp"
#include "base/string/string.hpp"
#include "tq4/debug.h"

namespace {

using Value = Tq4_value_obj;

// The bytes after the tag, and how deep in tables they lie.
struct Input {
    Tq4_byte_reader in;
    int depth;

    void ConsumeAll() { in.Take(in.left()); }
};

// A row reads the payload into a value that has its tag and nothing else.
using Tq4_value_import = void (*)(Value &, Input &);

void report(const char *message) {
    Tq4_debug_api->Printf(0, "%s", message);
    Tq4_debug_api->log(0, "%s", message);
}

void Tq4_value_import_undefine(Value &, Input &) {}

// Numbers kept in the word, extended by sign, or by zeros for the unsigned type of the width.
template <class Signed, Tq4_value_type unsigned_tag> void import_scalar(Value &v, Input &from) {
    Signed number{};
    if (!from.in.Read(number)) return from.ConsumeAll();
    v.m_data.word = static_cast<uint64_t>(int64_t{number});
    if (v.is(unsigned_tag)) v.m_data.word = static_cast<std::make_unsigned_t<Signed>>(number);
}
constexpr Tq4_value_import Tq4_value_import_char = import_scalar<int8_t, Tq4_value_UCHAR>;
constexpr Tq4_value_import Tq4_value_import_short = import_scalar<int16_t, Tq4_value_USHORT>;
constexpr Tq4_value_import Tq4_value_import_int = import_scalar<int32_t, Tq4_value_UINT>;

// A width byte of 8 or 4; 4 bytes are zero-extended also for signed longs, deliberately. Any other width is consumed
// alone and gives 0.
void Tq4_value_import_long(Value &v, Input &from) {
    uint8_t width = 0;
    uint32_t narrow = 0;
    from.in.Read(width);
    if (width == sizeof v.m_data.word) {
        if (!from.in.Read(v.m_data.word)) from.ConsumeAll();
    } else if (width == sizeof narrow) {
        if (from.in.Read(narrow))
            v.m_data.word = narrow;
        else
            from.ConsumeAll();
    }
}

template <class As, As Value::Data::*cell> void import_cell(Value &v, Input &from) {
    if (!from.in.Read(v.m_data.*cell)) from.ConsumeAll();
}

void Tq4_value_import_lDouble(Value &v, Input &from) {
    const Tq4_bytes bytes = from.in.Take(sizeof v.m_data.cell);
    if (bytes.data)
        Tq4_reverse_copy(v.m_data.cell, bytes.data, bytes.size);
    else
        from.ConsumeAll();
}

void Tq4_value_import_string(Value &v, Input &from) {
    uint32_t length = 0;
    if (from.in.Read(length) && from.in.left() >= length) {
        const Tq4_bytes bytes = from.in.Take(length);
        return v.SetBytes(v.m_type, bytes.data ? bytes.data : reinterpret_cast<const uint8_t *>(""), bytes.size);
    }
    v.SetBytes(v.m_type, "", 0);
    report("Tq4_value_Import() error Tq4_value_STRING\n");
    from.ConsumeAll();
}

// Zeroed room for the elements that a count announces, those that the input does not hold among them, but for no more
// bytes than given. Null when there are none.
uint8_t *packed_room(Value &v, uint64_t bytes, uint64_t most) {
    Tq4_string string = v.own_string();
    bytes = std::min(bytes, most);
    auto *room = bytes ? reinterpret_cast<uint8_t *>((*string)->Extend(string, bytes)) : nullptr;
    if (room) std::memset(room, 0, bytes);
    return room;
}

// The message for tags whose elements ran out does not always name the tag, deliberately.
template <unsigned width, const char *message> void import_packed(Value &v, Input &from) {
    uint32_t count = 0;
    if (!from.in.Read(count)) {
        report(message);
        return from.ConsumeAll();
    }
    const uint64_t whole = std::min<uint64_t>(count, from.in.left() / width);
    uint8_t *room = packed_room(v, uint64_t{count} * width, whole * width + Tq4_value_missing_bytes_limit);
    const Tq4_bytes bytes = from.in.Take(whole * width);
    for (uint64_t i = 0; room && i < whole; ++i) Tq4_reverse_copy(room + i * width, bytes.data + i * width, width);
    if (whole < count) report(message);
}

// Longs travel in 8 bytes or, zero-extended here, in 4; in any other width they take no bytes and are 0. The room left
// is always tested for 8 bytes, deliberately.
template <const char *message> void import_packed_long(Value &v, Input &from) {
    constexpr uint64_t kept = sizeof(uint64_t);
    uint32_t count = 0;
    uint8_t width = 0;
    if (!from.in.Read(count) || !from.in.Read(width)) {
        report(message);
        return from.ConsumeAll();
    }
    const uint64_t taken = width == 8 || width == 4 ? width : 0;
    const uint64_t left = from.in.left();
    const uint64_t fitting = left < kept ? 0 : taken == 0 ? count : (left - kept) / taken + 1;
    const uint64_t whole = std::min<uint64_t>(count, fitting);
    uint8_t *room = packed_room(v, count * kept,
                                taken ? whole * kept + Tq4_value_missing_bytes_limit : Tq4_value_widthless_bytes_limit);
    for (uint64_t i = 0; taken && i < whole; ++i) {
        uint64_t element = 0;
        uint32_t narrow = 0;
        if (taken == sizeof element)
            from.in.Read(element);
        else if (from.in.Read(narrow))
            element = narrow;
        if (room) std::memcpy(room + i * kept, &element, kept);
    }
    if (whole < count) report(message);
}

#define TQ4_IMPORT_MESSAGE(name) constexpr char message_##name[] = "Tq4_value_Import() error Tq4_value_" #name "\n";
TQ4_IMPORT_MESSAGE(PUSHORT)
TQ4_IMPORT_MESSAGE(PUINT)
TQ4_IMPORT_MESSAGE(PLONG)
TQ4_IMPORT_MESSAGE(PFLOAT)
TQ4_IMPORT_MESSAGE(PDOUBLE)
TQ4_IMPORT_MESSAGE(PLDOUBLE)
TQ4_IMPORT_MESSAGE(STRINGARRAY)
#undef TQ4_IMPORT_MESSAGE

// Cut inside an element's bytes, it ends after that element's length; cut inside a length or the count, all is
// consumed.
void Tq4_value_import_string_array(Value &v, Input &from) {
    v.m_data.object = Tq4_cxx_support->new_array();
    Tq4_string_array array = v.m_data.array;
    uint16_t count = 0, length = 0;
    bool complete = from.in.Read(count);
    if (!complete) from.ConsumeAll();
    for (; complete && count; --count) {
        complete = from.in.Read(length);
        if (!complete) {
            from.ConsumeAll();
            break;
        }
        const Tq4_bytes bytes = from.in.Take(length);
        complete = bytes.data != nullptr;
        if (complete && array) (*array)->Add(array, reinterpret_cast<const char *>(bytes.data), length);
    }
    if (!complete) report(message_STRINGARRAY);
}

void Tq4_value_import_Table(Value &v, Input &from) {
    v.m_data.object = Tq4_cxx_support->new_table();
    if (from.depth >= Tq4_value_nesting_limit) return from.ConsumeAll();
    Tq4_value_table_obj *table = v.table_record();
    if (!table) return;
    const int len =
        table->ImportAt(reinterpret_cast<const char *>(from.in.at()), static_cast<int>(from.in.left()), from.depth + 1);
    TQ4_ASSERT(len >= 0);
    from.in.Take(static_cast<std::size_t>(len));
}

constexpr Tq4_value_import Tq4_value_import_Int64 = import_cell<int64_t, &Value::Data::int64>;
constexpr Tq4_value_import Tq4_value_import_Float = import_cell<float, &Value::Data::single>;
constexpr Tq4_value_import Tq4_value_import_Double = import_cell<double, &Value::Data::twofold>;
constexpr Tq4_value_import Tq4_value_import_pshort = import_packed<2, message_PUSHORT>;
constexpr Tq4_value_import Tq4_value_import_pint = import_packed<4, message_PUINT>;
constexpr Tq4_value_import Tq4_value_import_plong = import_packed_long<message_PLONG>;
constexpr Tq4_value_import Tq4_value_import_pfloat = import_packed<4, message_PFLOAT>;
constexpr Tq4_value_import Tq4_value_import_pdouble = import_packed<8, message_PDOUBLE>;
constexpr Tq4_value_import Tq4_value_import_pldouble = import_packed<16, message_PLDOUBLE>;

const Tq4_value_import _g_Tq4_value_import[Tq4_value_tags] = {
    Tq4_value_import_undefine,     // 0
    Tq4_value_import_char,         // 1: CHAR
    Tq4_value_import_char,         // 2: UCHAR
    Tq4_value_import_short,        // 3: SHORT
    Tq4_value_import_short,        // 4: USHORT
    Tq4_value_import_int,          // 5: INT
    Tq4_value_import_int,          // 6: UINT
    Tq4_value_import_long,         // 7: LONG
    Tq4_value_import_long,         // 8: ULONG
    Tq4_value_import_long,         // 9: PTR arrives as a bare number
    Tq4_value_import_long,         // 10: Ref likewise
    Tq4_value_import_undefine,     // 11
    Tq4_value_import_Int64,        // 12: INT64
    Tq4_value_import_Int64,        // 13: UINT64
    Tq4_value_import_Float,        // 14
    Tq4_value_import_Double,       // 15
    Tq4_value_import_lDouble,      // 16
    Tq4_value_import_undefine,     // 17
    Tq4_value_import_string,       // 18: STRING
    Tq4_value_import_string,       // 19: PCHAR
    Tq4_value_import_string,       // 20: PUCHAR
    Tq4_value_import_pshort,       // 21: PSHORT
    Tq4_value_import_pshort,       // 22: PUSHORT
    Tq4_value_import_pint,         // 23: PINT
    Tq4_value_import_pint,         // 24: PUINT
    Tq4_value_import_plong,        // 25: PLONG
    Tq4_value_import_plong,        // 26: PULONG
    Tq4_value_import_pfloat,       // 27
    Tq4_value_import_pdouble,      // 28
    Tq4_value_import_pldouble,     // 29
    Tq4_value_import_undefine,     // 30
    Tq4_value_import_string_array, // 31
    Tq4_value_import_Table,        // 32
    Tq4_value_import_undefine,     // 33
};

// An entry of a table is at least one byte of key and one of value; one that names nothing stops the process.
int imported(int len) {
    TQ4_ASSERT(len > 0);
    return len;
}

} // namespace

// The bytes may lie in what the value held: it goes last.
int Tq4_value_obj::Import(const char *buf, int len) {
    Tq4_value_obj fresh;
    const int consumed = fresh.ImportAt(buf, len, 0);
    Swap(fresh);
    return consumed;
}

int Tq4_value_obj::ImportAt(const char *buf, int len, int depth) {
    if (m_type != Tq4_value_Unknown) Reset();
    Input from{Tq4_byte_reader(buf, len), depth};
    int8_t tag = 0;
    if (!from.in.Read(tag)) return 0;
    if (tag == Tq4_value_Unknown) return 1;
    if (tag < 0 || tag > Tq4_value_End) return len;
    m_type = static_cast<Tq4_value_type>(tag);
    Tq4_value_row(_g_Tq4_value_import, m_type)(*this, from);
    return len - static_cast<int>(from.in.left());
}

int Tq4_value_table_obj::Import(const char *buf, int len) { return ImportAt(buf, len, 1); }

int Tq4_value_table_obj::ImportAt(const char *buf, int len, int depth) {
    Tq4_byte_reader header(buf, len);
    uint8_t case_flag = 0;
    uint32_t count = 0;
    if (header.left() < sizeof case_flag + sizeof count) return 0;
    header.Read(case_flag);
    header.Read(count);
    Tq4_list former; // goes last: the bytes may lie in it
    Detach(former);
    m_case = case_flag;
    m_index.CaseFlag(case_flag);
    int at = len - static_cast<int>(header.left());
    for (; count && at < len; --count) {
        Tq4_kv_pair *pair = NewPairAtTail();
        at += imported(pair->key().Import(buf + at, len - at));
        at += imported(pair->value().ImportAt(buf + at, len - at, depth));
        m_index.EnterLater(pair);
    }
    DeleteEntries(former);
    return at;
}
