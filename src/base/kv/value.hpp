// value.hpp: the value's record, and the tables of what each type does.
//
// A value is a tag and its data. Tags 1 to 10 keep a word, 11 to 16 a cell of up to 16 bytes, 17 to 29 the bytes of a
// text or a packed array of host-order elements (value_text.hpp), 31 a string array, 32 a table. Strings, arrays and
// tables are owned and made and deleted through the hooks. An empty table is null until somebody asks for it. Where the
// host would see it made or deleted, it is made at once.
#pragma once

#include <atomic>
#include <cstdint>

#include "base/kv/value_text.hpp"
#include "base/kv/value_types.hpp"
#include "module.hpp"
#include "tq4/value_table.h"

struct Tq4_value_table_obj;
struct Tq4_import_call; // value_import.cpp: a call of Import under way

struct Tq4_value_obj {
    Tq4_value_type m_type = Tq4_value_Unknown;
    bool m_truth = false;         // of an INT: it was read as true or false
    uint16_t m_lines_between = 0; // of a table's entry: cache lines between its two parts (pair.hpp)
    union Data {
        Tq4_value_text text = {}; // tags 17 to 29
        uint64_t word;            // inline numbers, extended to 64 bits
        void *pointer;            // tag 9, borrowed
        Tq4_value target;         // tag 10, borrowed
        int64_t int64;            // tags 11 to 13
        float single;
        double twofold;
        unsigned char cell[16];
        Tq4_string_array array; // tag 31; owned
        Tq4_value_table table;  // tag 32; owned
        void *object;           // either
    } m_data;

    Tq4_value_obj() = default;
    ~Tq4_value_obj() {
        if (m_type > Tq4_value_ArrayOtherObject || (m_type >= Tq4_value_ArrayStart && m_data.text.owns_memory()))
            Reset();
    }
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
    bool is_truth() const { return m_truth && is(Tq4_value_INT); }

    // Encoding.
    long Dump(Tq4_string out) const;
    int Import(const char *buf, int len);
    void ImportFrom(Tq4_import_call &from); // a part of a call's input, into an empty value

    // Setting.
    Tq4_value_type Type() const { return m_type; }
    void Init(Tq4_value_type type);
    void SetString(const char *text, int len);
    template <Tq4_value_type tag, class Scalar> void SetScalar(Scalar value);
    void SetTruth(bool truth) { // the number 1 or 0 that JSON text has as true or false
        SetScalar<Tq4_value_INT>(int{truth});
        m_truth = true;
    }
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
    template <class As> As GetIntegerAs() const { return static_cast<As>(GetInteger()); }
    float GetFloat() const;
    double GetDouble() const;
    long GetInt64() const;
    void *GetPtr() const { return is(Tq4_value_PTR) ? m_data.pointer : nullptr; }
    char *GetBytes(unsigned long *len) const;
    template <Tq4_value_type first, Tq4_value_type last, class Element>
    const Element *GetArray(unsigned long *count) const;
    Tq4_string GetString() { return is_text() && has_bytes() ? m_data.text.own_string() : nullptr; }
    Tq4_string_array GetStringArray() const { return is(Tq4_value_STRINGARRAY) ? m_data.array : nullptr; }
    Tq4_value_table GetValueTable() const { return is(Tq4_value_Table) ? table_handle() : nullptr; }
    Tq4_value GetRef() const { return is(Tq4_value_Ref) ? m_data.target : nullptr; }

    // Text.
    void Echo(Tq4_echo echo, void *context, int compact) const;
    void Print() const;
    const char *Json_encode(Tq4_string out) const;
    int Json_decode(const char *text, int len);
    int ToJson(Tq4_string out, int pretty) const;
    int FromJson(const char *text, long len, long *error_at);

    // The nested table's record to be read, null when the value is not a table. One that is not made yet is the same
    // empty one for all values.
    const Tq4_value_table_obj *table_record() const;
    // The nested table itself, made when there is none: null when the value is not a table, or the host makes none.
    Tq4_value_table_obj *own_table() const;
    // The same after the value has become a table.
    Tq4_value_table_obj *make_table();
    Tq4_value_table make_table_handle() {
        if (!is(Tq4_value_Table)) Init(Tq4_value_Table);
        if (!m_data.table) m_data.object = Tq4_cxx_support->new_table();
        return m_data.table;
    }
    // The table as far as it is made: null also for an empty one that nobody asked for.
    Tq4_value_table made_table() const {
        return is(Tq4_value_Table) ? std::atomic_ref(const_cast<Tq4_value_table &>(m_data.table)).load() : nullptr;
    }

    // The bytes of tags 17 to 29; null data when there are none.
    bool has_bytes() const { return static_cast<bool>(m_data.text); }
    Tq4_bytes bytes() const { return m_data.text.view(); }
    const char *c_str() const { return m_data.text.c_str(); } // "" when there are none
    // They become these, which may be its own, and the tag another; what the value held is released unless it is
    // bytes.
    void SetBytes(Tq4_value_type tag, const void *bytes, unsigned long n);
    // The same in an empty value. From the first of them on, `readable` bytes may be read.
    void FillBytes(Tq4_value_type tag, Tq4_bytes bytes, std::size_t readable) {
        m_data.text.Fill(bytes, readable);
        m_type = tag;
    }
    void AppendOwn(const void *bytes, unsigned long n);

private:
    // Readers ask side by side: the first one's table stays.
    Tq4_value_table table_handle() const {
        Tq4_value_table made = made_table();
        return made ? made : MakeTable();
    }
    Tq4_value_table MakeTable() const;
};

// Whether tables are shown to the host when they are made or deleted.
inline bool Tq4_value_hosts_tables() {
    return Tq4_cxx_support->new_table != Tq4_cxx_defaults.new_table ||
           Tq4_cxx_support->delete_obj != Tq4_cxx_defaults.delete_obj;
}

// What a type does, indexed by its tag.
using Tq4_value_equalf = bool (*)(const Tq4_value_obj &, const Tq4_value_obj &);
using Tq4_value_copy = void (*)(Tq4_value_obj &destination, const Tq4_value_obj &source);
extern const Tq4_value_table_of<Tq4_value_equalf> _g_Tq4_value_equal;
extern const Tq4_value_table_of<Tq4_value_copy> _g_Tq4_value_copy;

// ---- the families

template <Tq4_value_type tag, class Scalar> void Tq4_value_obj::SetScalar(Scalar value) {
    if (!inline_word()) Reset();
    m_type = tag;
    m_truth = false;
    m_data = {};
    m_data.word = static_cast<uint64_t>(static_cast<int64_t>(value)); // extended as its type: by sign or by zeros
}

// Appends one element to the held string; for a value of another type, only the tag.
void Tq4_value_append_packed(Tq4_value_obj &value, Tq4_value_type tag, bool fits, const void *element,
                             unsigned long width);

template <Tq4_value_type tag, class Element> void Tq4_value_obj::SetArray(const Element *elements, int count) {
    const unsigned long n = elements && count > 0 ? static_cast<unsigned long>(count) : 0;
    SetBytes(tag, elements, n * sizeof(Element));
}

template <Tq4_value_type tag, Tq4_value_type sibling, class Element>
void Tq4_value_obj::AppendElement(Element element) {
    Tq4_value_append_packed(*this, tag, is(tag) || is(sibling), &element, sizeof element);
}

template <Tq4_value_type first, Tq4_value_type last, class Element>
const Element *Tq4_value_obj::GetArray(unsigned long *count) const {
    if (count) *count = 0;
    if (m_type < first || m_type > last || !has_bytes()) return nullptr;
    if (count) *count = bytes().size / sizeof(Element);
    return reinterpret_cast<const Element *>(c_str());
}

// Json_encode as a function, for code that has no table of operations at hand; null for a null value.
const char *Tq4_value_itf_Json(Tq4_value v, Tq4_string out);

extern const Tq4_value_ Tq4_value_itf;
extern const Tq4_object_itf Tq4_value_obj_itf;
