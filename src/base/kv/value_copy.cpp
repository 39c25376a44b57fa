// value_copy: comparing and copying, by the storage of each tag.
#include <cstring>
#include <utility>

#include "base/kv/table.hpp"

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
bool Tq4_value_equal_Array(const Value &a, const Value &b) { return a.m_data.text.Equal(b.m_data.text); }
bool Tq4_value_equal_object(const Value &a, const Value &b) {
    return Tq4_object_Equal(a.m_data.object, b.m_data.object);
}
constexpr auto Tq4_value_equal_StringArray = Tq4_value_equal_object;
bool Tq4_value_equal_Table(const Value &a, const Value &b) {
    if (a.made_table() && b.made_table()) return Tq4_value_equal_object(a, b);
    return a.table_record()->Count() == b.table_record()->Count(); // one of them is empty
}

// The destination is empty but for the tag. Tags below 11 share the word, the other undefined ones nothing.
void Tq4_value_copy_undefine(Value &to, const Value &from) {
    if (from.m_type < Tq4_value_FloatStart) to.m_data.word = from.m_data.word;
}
void Tq4_value_copy_cell(Value &to, const Value &from) { to.m_data = from.m_data; }
void Tq4_value_copy_lDouble(Value &to, const Value &from) { std::memcpy(to.m_data.cell, from.m_data.cell, 12); }

template <Tq4_new_hook Tq4_cxx_support_::*hook> void copy_object(Value &to, const Value &from) {
    to.m_data.object = (Tq4_cxx_support->*hook)();
    if (!to.m_data.object || !from.m_data.object) return;
    Tq4_object_of(from.m_data.object)->oitf->Copy(to.m_data.object, from.m_data.object);
}
void Tq4_value_copy_Array(Value &to, const Value &from) { to.m_data.text.Copy(from.m_data.text); }
constexpr Tq4_value_copy Tq4_value_copy_StringArray = copy_object<&Tq4_cxx_support_::new_array>;
void Tq4_value_copy_Table(Value &to, const Value &from) {
    if (from.made_table() || Tq4_value_hosts_tables()) copy_object<&Tq4_cxx_support_::new_table>(to, from);
}

template <class Type> constexpr Tq4_value_equalf equal_of() {
    using enum Tq4_value_storage;
    using Element = typename Type::Element;
    constexpr auto storage = Type::storage;
    if constexpr (storage == word || storage == address) return Tq4_value_equal_BaseValue;
    if constexpr (storage == cell && std::is_same_v<Element, float>) return Tq4_value_equal_Float;
    if constexpr (storage == cell && std::is_same_v<Element, double>) return Tq4_value_equal_Double;
    if constexpr (storage == cell && std::is_same_v<Element, long double>) return Tq4_value_equal_lDouble;
    if constexpr (storage == cell) return Tq4_value_equal_Int64;
    if constexpr (storage == text || storage == packed) return Tq4_value_equal_Array;
    if constexpr (storage == texts) return Tq4_value_equal_StringArray;
    if constexpr (storage == table) return Tq4_value_equal_Table;
    // The marker behind the arrays counts as one of them, of nothing.
    return Type::tag == Tq4_value_ArrayOtherObject ? Tq4_value_equal_Array : Tq4_value_equal_undefine;
}

template <class Type> constexpr Tq4_value_copy copy_of() {
    using enum Tq4_value_storage;
    constexpr auto storage = Type::storage;
    if constexpr (storage == cell && std::is_same_v<typename Type::Element, long double>) return Tq4_value_copy_lDouble;
    if constexpr (storage == cell) return Tq4_value_copy_cell;
    if constexpr (storage == text || storage == packed) return Tq4_value_copy_Array;
    if constexpr (storage == texts) return Tq4_value_copy_StringArray;
    if constexpr (storage == table) return Tq4_value_copy_Table;
    return Tq4_value_copy_undefine;
}

} // namespace

const Tq4_value_table_of<Tq4_value_equalf> _g_Tq4_value_equal =
    Tq4_value_rows([](auto row) { return equal_of<decltype(row)>(); });
const Tq4_value_table_of<Tq4_value_copy> _g_Tq4_value_copy =
    Tq4_value_rows([](auto row) { return copy_of<decltype(row)>(); });

// The copy is complete before the old content goes: the source may lie in it.
void Tq4_value_obj::Copy(const Tq4_value_obj *source) {
    if (!source || source == this) return;
    Tq4_value_obj copy;
    copy.m_type = source->m_type;
    copy.m_truth = source->m_truth;
    _g_Tq4_value_copy[source->m_type](copy, *source);
    Swap(copy);
}

void Tq4_value_obj::Swap(Tq4_value_obj &other) {
    std::swap(m_type, other.m_type);
    std::swap(m_truth, other.m_truth);
    std::swap(m_data, other.m_data);
}

bool Tq4_value_obj::Equal(const Tq4_value_obj &other) const {
    return m_type == other.m_type && _g_Tq4_value_equal[m_type](*this, other);
}
