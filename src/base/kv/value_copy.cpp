// value_copy: comparing and copying, a row for each tag.
#include <cstring>
#include <utility>

#include "base/kv/key.hpp"
#include "base/kv/value.hpp"
#include "base/string/string.hpp"

namespace {

using Value = Tq4_value_obj;

// Two empty values are not equal, deliberately.
bool Tq4_value_equal_undefine(const Value &, const Value &) { return false; }
bool Tq4_value_equal_BaseValue(const Value &a, const Value &b) { return a.m_data.word == b.m_data.word; }
bool Tq4_value_equal_Int64(const Value &a, const Value &b) { return a.m_data.int64 == b.m_data.int64; }
bool Tq4_value_equal_Float(const Value &a, const Value &b) { return a.m_data.single == b.m_data.single; }
bool Tq4_value_equal_Double(const Value &a, const Value &b) { return a.m_data.twofold == b.m_data.twofold; }
long double extended_of(const Value &v) {
    long double number;
    std::memcpy(&number, v.m_data.cell, sizeof number);
    return number;
}
bool Tq4_value_equal_lDouble(const Value &a, const Value &b) { return extended_of(a) == extended_of(b); }
// Strings are also told apart by their quotes, of which bytes that never became a string have none.
bool Tq4_value_equal_Array(const Value &a, const Value &b) {
    if (a.m_string && b.m_string) return Tq4_object_Equal(a.m_string, b.m_string);
    for (Tq4_string string : {a.m_string, b.m_string})
        if (string && (*string)->GetQuote(string).open) return false;
    const Tq4_bytes left = a.bytes(), right = b.bytes();
    return Tq4_key_obj::same_text(left, right, false);
}
bool Tq4_value_equal_object(const Value &a, const Value &b) {
    return Tq4_object_Equal(a.m_data.object, b.m_data.object);
}
constexpr auto Tq4_value_equal_StringArray = Tq4_value_equal_object;
constexpr auto Tq4_value_equal_Table = Tq4_value_equal_object;

// The destination is empty but for the tag. Tags below 11 share the word, the other undefined ones nothing.
void Tq4_value_copy_undefine(Value &to, const Value &from) {
    if (from.m_type < Tq4_value_FloatStart) to.m_data.word = from.m_data.word;
}
void Tq4_value_copy_cell(Value &to, const Value &from) { to.m_data = from.m_data; }
constexpr auto Tq4_value_copy_Int64 = Tq4_value_copy_cell;
constexpr auto Tq4_value_copy_Float = Tq4_value_copy_cell;
constexpr auto Tq4_value_copy_Double = Tq4_value_copy_cell;
void Tq4_value_copy_lDouble(Value &to, const Value &from) { std::memcpy(to.m_data.cell, from.m_data.cell, 12); }

template <Tq4_new_hook Tq4_cxx_support_::*hook> void copy_object(Value &to, const Value &from) {
    to.m_data.object = (Tq4_cxx_support->*hook)();
    if (!to.m_data.object || !from.m_data.object) return;
    Tq4_object_of(from.m_data.object)->oitf->Copy(to.m_data.object, from.m_data.object);
}
void Tq4_value_copy_Array(Value &to, const Value &from) {
    if (from.m_string) {
        to.m_string = static_cast<Tq4_string>(Tq4_cxx_support->new_string());
        Tq4_object_of(from.m_string)->oitf->Copy(to.m_string, from.m_string);
        return;
    }
    const Tq4_bytes bytes = from.bytes();
    to.SetBytes(to.m_type, bytes.data ? bytes.data : reinterpret_cast<const uint8_t *>(""), bytes.size);
}
constexpr auto Tq4_value_copy_StringArray = copy_object<&Tq4_cxx_support_::new_array>;
constexpr auto Tq4_value_copy_Table = copy_object<&Tq4_cxx_support_::new_table>;

} // namespace

const Tq4_value_equalf _g_Tq4_value_equal[Tq4_value_tags] = {
    Tq4_value_equal_undefine,    // 0
    Tq4_value_equal_BaseValue,   // 1: CHAR
    Tq4_value_equal_BaseValue,   // 2: UCHAR
    Tq4_value_equal_BaseValue,   // 3: SHORT
    Tq4_value_equal_BaseValue,   // 4: USHORT
    Tq4_value_equal_BaseValue,   // 5: INT
    Tq4_value_equal_BaseValue,   // 6: UINT
    Tq4_value_equal_BaseValue,   // 7: LONG
    Tq4_value_equal_BaseValue,   // 8: ULONG
    Tq4_value_equal_BaseValue,   // 9: PTR
    Tq4_value_equal_BaseValue,   // 10: Ref
    Tq4_value_equal_undefine,    // 11
    Tq4_value_equal_Int64,       // 12: INT64
    Tq4_value_equal_Int64,       // 13: UINT64
    Tq4_value_equal_Float,       // 14
    Tq4_value_equal_Double,      // 15
    Tq4_value_equal_lDouble,     // 16
    Tq4_value_equal_undefine,    // 17
    Tq4_value_equal_Array,       // 18: STRING
    Tq4_value_equal_Array,       // 19: PCHAR
    Tq4_value_equal_Array,       // 20: PUCHAR
    Tq4_value_equal_Array,       // 21: PSHORT
    Tq4_value_equal_Array,       // 22: PUSHORT
    Tq4_value_equal_Array,       // 23: PINT
    Tq4_value_equal_Array,       // 24: PUINT
    Tq4_value_equal_Array,       // 25: PLONG
    Tq4_value_equal_Array,       // 26: PULONG
    Tq4_value_equal_Array,       // 27: PFLOAT
    Tq4_value_equal_Array,       // 28: PDOUBLE
    Tq4_value_equal_Array,       // 29: PLDOUBLE
    Tq4_value_equal_Array,       // 30: nothing equals nothing
    Tq4_value_equal_StringArray, // 31
    Tq4_value_equal_Table,       // 32
    Tq4_value_equal_undefine,    // 33
};

const Tq4_value_copy _g_Tq4_value_copy[Tq4_value_tags] = {
    Tq4_value_copy_undefine, // 0
    Tq4_value_copy_undefine, // 1 to 10: the word is the value
    Tq4_value_copy_undefine,    Tq4_value_copy_undefine, Tq4_value_copy_undefine,
    Tq4_value_copy_undefine,    Tq4_value_copy_undefine, Tq4_value_copy_undefine,
    Tq4_value_copy_undefine,    Tq4_value_copy_undefine, Tq4_value_copy_undefine,
    Tq4_value_copy_undefine,    // 11
    Tq4_value_copy_Int64,       // 12: INT64
    Tq4_value_copy_Int64,       // 13: UINT64
    Tq4_value_copy_Float,       // 14
    Tq4_value_copy_Double,      // 15
    Tq4_value_copy_lDouble,     // 16
    Tq4_value_copy_undefine,    // 17
    Tq4_value_copy_Array,       // 18: STRING
    Tq4_value_copy_Array,       // 19: PCHAR
    Tq4_value_copy_Array,       // 20: PUCHAR
    Tq4_value_copy_Array,       // 21: PSHORT
    Tq4_value_copy_Array,       // 22: PUSHORT
    Tq4_value_copy_Array,       // 23: PINT
    Tq4_value_copy_Array,       // 24: PUINT
    Tq4_value_copy_Array,       // 25: PLONG
    Tq4_value_copy_Array,       // 26: PULONG
    Tq4_value_copy_Array,       // 27: PFLOAT
    Tq4_value_copy_Array,       // 28: PDOUBLE
    Tq4_value_copy_Array,       // 29: PLDOUBLE
    Tq4_value_copy_undefine,    // 30
    Tq4_value_copy_StringArray, // 31
    Tq4_value_copy_Table,       // 32
    Tq4_value_copy_undefine,    // 33
};

// The copy is complete before the old content goes: the source may lie in it.
void Tq4_value_obj::Copy(const Tq4_value_obj *source) {
    if (!source || source == this) return;
    Tq4_value_obj copy;
    copy.m_type = source->m_type;
    copy.m_truth = source->m_truth;
    Tq4_value_row(_g_Tq4_value_copy, source->m_type)(copy, *source);
    Swap(copy);
}

void Tq4_value_obj::Swap(Tq4_value_obj &other) {
    std::swap(m_type, other.m_type);
    std::swap(m_truth, other.m_truth);
    std::swap(m_string, other.m_string);
    std::swap(m_data, other.m_data);
}

bool Tq4_value_obj::Equal(const Tq4_value_obj &other) const {
    return m_type == other.m_type && Tq4_value_row(_g_Tq4_value_equal, m_type)(*this, other);
}
