// value.hpp: the value's record, and the tables of what each type does.
//
// A value is a tag and its data. Tags 1 to 10 keep a word, 11 to 16 a cell of up to 16 bytes, 17 to 29 a string that
// serves as text or as a packed array of host-order elements, 31 a string array, 32 a table. Cells lie in the record;
// strings, arrays and tables are owned and made and deleted through the hooks. A byte-string tag may hold no string
// (null): it counts as empty.
#pragma once

#include <cstdint>

#include "own.hpp"
#include "tq4/value_table.h"

struct Tq4_value_table_obj;

struct Tq4_value_obj {
    Tq4_value_type m_type = Tq4_value_Unknown;
    union Data {
        uint64_t word = 0; // inline numbers, extended to 64 bits
        void *pointer;     // tag 9, borrowed
        Tq4_value target;  // tag 10, borrowed
        int64_t int64;     // tags 11 to 13
        float single;
        double twofold;
        long double extended;
        Tq4_string string;      // tags 17 to 29; owned, or null
        Tq4_string_array array; // tag 31; owned
        Tq4_value_table table;  // tag 32; owned
        void *object;           // any of the three
        unsigned char cell[16];
    } m_data;

    Tq4_value_obj() = default;
    ~Tq4_value_obj() { Reset(); }
    Tq4_value_obj(const Tq4_value_obj &) = delete;
    Tq4_value_obj &operator=(const Tq4_value_obj &) = delete;

    void Reset();
    void Copy(const Tq4_value_obj *source); // null does nothing
    bool Equal(const Tq4_value_obj &other) const;
    void Swap(Tq4_value_obj &other);

    // What kind of storage the tag names.
    bool inline_word() const { return m_type < Tq4_value_INT64; }
    bool holds_string() const { return m_type >= Tq4_value_ArrayStart && m_type <= Tq4_value_PLDOUBLE; }
    bool is_text() const { return m_type >= Tq4_value_STRING && m_type <= Tq4_value_PUCHAR; }
    bool is(Tq4_value_type type) const { return m_type == type; }

    // Encoding.
    long Dump(Tq4_string out) const;
    int Import(const char *buf, int len);
    // The same inside so many tables. Returns the bytes consumed.
    int ImportAt(const char *buf, int len, int depth);

    // Setting.
    Tq4_value_type Type() const { return m_type; }
    void Init(Tq4_value_type type);
    void SetString(const char *text, int len);
    template <Tq4_value_type tag, class Scalar> void SetScalar(Scalar value);
    void SetInt64(long long value);
    void SetFloat(float value);
    void SetDouble(double value);
    template <Tq4_value_type tag, class Element> void SetArray(const Element *elements, int count);
    void SetStringArray(Tq4_string_array array);
    void SetTable(Tq4_value_table table);
    void SetPtr(const void *pointer);
    void SetRef(Tq4_value target);
    void AppendString(Tq4_string string);
    void AppendStringArray(Tq4_string_array array);
    template <Tq4_value_type tag, Tq4_value_type sibling, class Element> void AppendElement(Element element);
    void AppendFloat(float element);
    void AppendDouble(double element);
    void AppendBytes(const char *bytes, int len);

    // Getting.
    long GetInteger() const;
    float GetFloat() const;
    double GetDouble() const;
    long GetInt64() const;
    void *GetPtr() const { return is(Tq4_value_PTR) ? m_data.pointer : nullptr; }
    char *GetBytes(unsigned long *len) const;
    template <Tq4_value_type first, Tq4_value_type last, class Element> Element *GetArray(unsigned long *count) const;
    Tq4_string GetString() const { return is_text() ? m_data.string : nullptr; }
    Tq4_string_array GetStringArray() const { return is(Tq4_value_STRINGARRAY) ? m_data.array : nullptr; }
    Tq4_value_table GetValueTable() const { return is(Tq4_value_Table) ? m_data.table : nullptr; }
    Tq4_value GetRef() const { return is(Tq4_value_Ref) ? m_data.target : nullptr; }

    // Text.
    void Echo(Tq4_echo echo, void *context, int compact) const;
    void Print() const;
    const char *Json_encode(Tq4_string out) const;
    int Json_decode(const char *text, int len);

    // The nested table's record: null when the value is not a table; made when a table operation needs one.
    Tq4_value_table_obj *table_record() const;
    Tq4_value_table_obj *make_table();
    Tq4_value_table make_table_handle() {
        if (!is(Tq4_value_Table)) Init(Tq4_value_Table);
        return m_data.table;
    }

    // For what fills values: a string to write into, made when there is none.
    Tq4_string own_string();
};

// What a type does, indexed by its tag; a tag beyond the last counts as one that does nothing.
inline constexpr int Tq4_value_tags = Tq4_value_End + 1;
using Tq4_value_equalf = bool (*)(const Tq4_value_obj &, const Tq4_value_obj &);
using Tq4_value_copy = void (*)(Tq4_value_obj &destination, const Tq4_value_obj &source);
extern const Tq4_value_equalf _g_Tq4_value_equal[Tq4_value_tags];
extern const Tq4_value_copy _g_Tq4_value_copy[Tq4_value_tags];

// ---- the families

template <Tq4_value_type tag, class Scalar> void Tq4_value_obj::SetScalar(Scalar value) {
    if (!inline_word()) Reset();
    m_type = tag;
    m_data = {};
    m_data.word = static_cast<uint64_t>(static_cast<int64_t>(value)); // extended as its type: by sign or by zeros
}

// Makes the value hold a string with exactly these bytes under the tag.
void Tq4_value_set_packed(Tq4_value_obj &value, Tq4_value_type tag, const void *elements, unsigned long bytes);
// Appends one element to the held string; for a value of another type, only the tag.
void Tq4_value_append_packed(Tq4_value_obj &value, Tq4_value_type tag, bool fits, const void *element,
                             unsigned long width);

template <Tq4_value_type tag, class Element> void Tq4_value_obj::SetArray(const Element *elements, int count) {
    const unsigned long n = elements && count > 0 ? static_cast<unsigned long>(count) : 0;
    Tq4_value_set_packed(*this, tag, elements, n * sizeof(Element));
}

template <Tq4_value_type tag, Tq4_value_type sibling, class Element>
void Tq4_value_obj::AppendElement(Element element) {
    Tq4_value_append_packed(*this, tag, is(tag) || is(sibling), &element, sizeof element);
}

template <Tq4_value_type first, Tq4_value_type last, class Element>
Element *Tq4_value_obj::GetArray(unsigned long *count) const {
    if (count) *count = 0;
    if (m_type < first || m_type > last || !m_data.string) return nullptr;
    if (count) *count = static_cast<unsigned long>((*m_data.string)->length(m_data.string)) / sizeof(Element);
    return reinterpret_cast<Element *>(const_cast<char *>((*m_data.string)->c_str(m_data.string)));
}

template <class Row> const Row &Tq4_value_row(const Row (&rows)[Tq4_value_tags], Tq4_value_type type) {
    const auto tag = static_cast<unsigned>(type);
    return rows[tag < Tq4_value_tags ? tag : 0];
}

// Json_encode as a function; null for a null value.
const char *Tq4_value_itf_Json(Tq4_value v, Tq4_string out);
