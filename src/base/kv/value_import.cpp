// value_import: the binary encoding of values, reading.
//
// Bytes from outside: every reader reads through a bounds-checked reader. What is cut short or too long is told through
// the debug interface and ends the value at the point reached; scalars that are cut short are taken as absent. An
// encoding that names nothing at all inside a table stops the process. Tables within tables beyond the nesting limit
// are taken as a damaged value: the rest of the input is consumed. So it is when what was built takes more memory than
// the input is good for.
#include <algorithm>
#include <cstring>
#include <type_traits>

#include "assert.hpp"
#include "base/byte_reader.hpp"
#include "base/kv/decode_budget.hpp"
#include "base/kv/table.hpp"
#include "base/string/string.hpp"
#include "tq4/debug.h"

// A call of Import under way.
struct Tq4_import_call {
    Tq4_byte_reader in; // what is left of the input
    Tq4_decode_budget budget{Tq4_decode_budget::Allowance(in.left())};
    int depth = 0; // of tables under way
    unsigned reports_left = Tq4_value_reports_limit;

    void ConsumeAll() { in.Take(in.left()); }
    void Report(const char *message) {
        if (!reports_left) return;
        --reports_left;
        Tq4_debug_api->Printf(0, "%s", message);
        Tq4_debug_api->log(0, "%s", message);
    }
};

namespace {

using Value = Tq4_value_obj;
using Input = Tq4_import_call;

// A row reads the payload, what lies behind the tag, into a value that has the tag and nothing else.
using Tq4_value_import = void (*)(Value &, Input &);

void Tq4_value_import_undefine(Value &, Input &) {}

// Numbers kept in the word, extended by sign, or by zeros when the type has none.
template <class Number> void Tq4_value_import_scalar(Value &v, Input &from) {
    Number number{};
    if (!from.in.Read(number)) return from.ConsumeAll();
    v.m_data.word = static_cast<uint64_t>(static_cast<int64_t>(number));
}

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
    if (from.in.Read(length) && from.in.left() >= length && from.budget.Bytes(length)) {
        const std::size_t readable = from.in.left();
        return v.FillBytes(v.m_type, from.in.Take(length), readable);
    }
    v.SetBytes(v.m_type, "", 0);
    from.Report("Tq4_value_Import() error Tq4_value_STRING\n");
    from.ConsumeAll();
}

// Room for elements that the input holds, and for as many of those missing as may be zeros. Null when there are none,
// or when they take more than the input is good for: then everything is consumed.
uint8_t *packed_room(Value &v, Input &from, uint64_t held, uint64_t missing) {
    const uint64_t bytes = held + from.budget.Zeros(missing);
    if (!from.budget.Bytes(held)) return from.ConsumeAll(), nullptr;
    return v.m_data.text.Zeros(bytes);
}

// The message for tags whose elements ran out does not always name the tag, deliberately.
template <unsigned width, const char *message> void import_packed(Value &v, Input &from) {
    uint32_t count = 0;
    if (!from.in.Read(count)) {
        from.Report(message);
        return from.ConsumeAll();
    }
    const uint64_t whole = std::min<uint64_t>(count, from.in.left() / width);
    uint8_t *room = packed_room(v, from, whole * width, (count - whole) * width);
    const Tq4_bytes bytes = from.in.Take(whole * width);
    for (uint64_t i = 0; room && bytes.data && i < whole; ++i)
        Tq4_reverse_copy(room + i * width, bytes.data + i * width, width);
    if (whole < count) from.Report(message);
}

// Longs travel in 8 bytes or, zero-extended here, in 4; in any other width they take no bytes and are 0. The room left
// is always tested for 8 bytes, deliberately.
template <const char *message> void import_packed_long(Value &v, Input &from) {
    constexpr uint64_t kept = sizeof(uint64_t);
    uint32_t count = 0;
    uint8_t width = 0;
    if (!from.in.Read(count) || !from.in.Read(width)) {
        from.Report(message);
        return from.ConsumeAll();
    }
    const uint64_t taken = width == 8 || width == 4 ? width : 0;
    const uint64_t left = from.in.left();
    const uint64_t fitting = left < kept ? 0 : taken == 0 ? count : (left - kept) / taken + 1;
    const uint64_t whole = std::min<uint64_t>(count, fitting);
    const uint64_t held = taken ? whole * kept : 0;
    uint8_t *room = packed_room(v, from, held, count * kept - held);
    for (uint64_t i = 0; taken && i < whole; ++i) {
        uint64_t element = 0;
        uint32_t narrow = 0;
        if (taken == sizeof element)
            from.in.Read(element);
        else if (from.in.Read(narrow))
            element = narrow;
        if (room) std::memcpy(room + i * kept, &element, kept);
    }
    if (whole < count) from.Report(message);
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

// Signed and unsigned elements alike.
template <class Element> constexpr Tq4_value_import import_array_of() {
    if constexpr (std::is_same_v<Element, float>) return import_packed<4, message_PFLOAT>;
    if constexpr (std::is_same_v<Element, double>) return import_packed<8, message_PDOUBLE>;
    if constexpr (std::is_same_v<Element, long double>) return import_packed<16, message_PLDOUBLE>;
    if constexpr (sizeof(Element) == 2) return import_packed<2, message_PUSHORT>;
    if constexpr (sizeof(Element) == 4) return import_packed<4, message_PUINT>;
    return import_packed_long<message_PLONG>;
}

// Cut inside an element's bytes, it ends after that element's length; cut inside a length or the count, all is
// consumed.
void Tq4_value_import_string_array(Value &v, Input &from) {
    if (!from.budget.Array()) return v.Reset(), from.ConsumeAll();
    v.m_data.object = Tq4_cxx_support->new_array();
    Tq4_string_array array = v.m_data.array;
    uint16_t count = 0, length = 0;
    bool complete = from.in.Read(count);
    if (!complete) from.ConsumeAll();
    for (; complete && count; --count) {
        complete = from.in.Read(length) && (length > from.in.left() || from.budget.Element(length));
        if (!complete) {
            from.ConsumeAll();
            break;
        }
        const Tq4_bytes bytes = from.in.Take(length);
        complete = bytes.data != nullptr;
        if (complete && array) (*array)->Add(array, reinterpret_cast<const char *>(bytes.data), length);
    }
    if (!complete) from.Report(message_STRINGARRAY);
}

// An empty table takes no memory unless the host makes tables. Nor does one beyond the nesting limit.
void Tq4_value_import_Table(Value &v, Input &from) {
    v.Init(Tq4_value_Table);
    if (from.depth >= Tq4_value_nesting_limit) return from.ConsumeAll();
    if (Tq4_decode_budget::NoTable({from.in.at(), from.in.left()}))
        return void(from.in.Take(Tq4_decode_budget::header));
    if (!from.budget.Table()) return v.Reset(), from.ConsumeAll();
    Tq4_value_table_obj *table = v.make_table();
    if (!table) return;
    ++from.depth;
    table->ImportFrom(from);
    --from.depth;
}

template <class Type> constexpr Tq4_value_import import_of() {
    using enum Tq4_value_storage;
    using Element = typename Type::Element;
    constexpr auto storage = Type::storage;
    if constexpr (storage == packed) return import_array_of<Element>();
    if constexpr (Type::has_width_byte) return Tq4_value_import_long;
    if constexpr (storage == word) return Tq4_value_import_scalar<Element>;
    if constexpr (storage == cell && std::is_same_v<Element, float>) return import_cell<float, &Value::Data::single>;
    if constexpr (storage == cell && std::is_same_v<Element, double>) return import_cell<double, &Value::Data::twofold>;
    if constexpr (storage == cell && std::is_same_v<Element, long double>) return Tq4_value_import_lDouble;
    if constexpr (storage == cell) return import_cell<int64_t, &Value::Data::int64>;
    if constexpr (storage == text) return Tq4_value_import_string;
    if constexpr (storage == texts) return Tq4_value_import_string_array;
    if constexpr (storage == table) return Tq4_value_import_Table;
    return Tq4_value_import_undefine;
}

constexpr Tq4_value_table_of<Tq4_value_import> _g_Tq4_value_import =
    Tq4_value_rows([](auto row) { return import_of<decltype(row)>(); });

} // namespace

// The bytes may lie in what the value held: it goes last.
int Tq4_value_obj::Import(const char *buf, int len) {
    Tq4_value_obj fresh;
    Input from{.in = {buf, len}};
    const std::size_t before = from.in.left();
    fresh.ImportFrom(from);
    Swap(fresh);
    return static_cast<int>(before - from.in.left());
}

void Tq4_value_obj::ImportFrom(Input &from) {
    uint8_t tag = 0;
    if (!from.in.Read(tag) || tag == Tq4_value_Unknown) return;
    if (tag > Tq4_value_End) return from.ConsumeAll();
    m_type = static_cast<Tq4_value_type>(tag);
    _g_Tq4_value_import[tag](*this, from);
}

int Tq4_value_table_obj::Import(const char *buf, int len) {
    Input from{.in = {buf, len}, .depth = 1};
    const std::size_t before = from.in.left();
    ImportFrom(from);
    return static_cast<int>(before - from.in.left());
}

// A header that is cut short is not consumed.
void Tq4_value_table_obj::ImportFrom(Input &from) {
    if (from.in.left() < Tq4_decode_budget::header) return;
    uint8_t case_flag = 0;
    uint32_t count = 0;
    from.in.Read(case_flag);
    from.in.Read(count);
    Entries former; // goes last: the bytes may lie in it
    Detach(former);
    m_case = case_flag;
    m_index.CaseFlag(case_flag);
    Tq4_decode_budget::Entries charged(count);
    for (; count && from.in.left(); --count) {
        if (!from.budget.Entry(charged)) {
            from.ConsumeAll();
            break;
        }
        m_room.Announce(count);
        ImportEntry(from);
    }
    DeleteEntries(former);
}

// At least a byte is left, for the key. An entry without a byte for its value stops the process.
void Tq4_value_table_obj::ImportEntry(Input &from) {
    Tq4_kv_pair *pair = NewPairAtTail();
    Tq4_key_obj &key = pair->key();
    const std::size_t before = from.in.left();
    key.ImportInEmpty(from.in);
    const std::size_t len = from.in.left();
    if (before - len > Tq4_text_cell::most_inside) from.budget.Bytes(key.text().size);
    TQ4_ASSERT(len > 0);
    pair->value().ImportFrom(from);
    m_index.EnterLater(pair);
}
