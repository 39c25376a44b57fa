// value_set: setters and appends.
//
// A setter keeps the storage when the tag already has the storage class it needs, and retags it; else the value is
// initialised anew. Text and elements may lie in the value itself: what is new is complete before what is old goes.
#include <utility>

#include "base/kv/value.hpp"
#include "base/string/string.hpp"

void Tq4_value_obj::Reset() {
    const Tq4_value_type type = std::exchange(m_type, Tq4_value_Unknown);
    m_truth = false;
    if (type >= Tq4_value_ArrayStart && type <= Tq4_value_ArrayOtherObject) {
        m_data.text.Release();
    } else if (void *held = type > Tq4_value_ArrayOtherObject ? m_data.object : nullptr) {
        m_data = {};
        return Tq4_cxx_support->delete_obj(held);
    }
    m_data = {};
}

// A tag that no reader knows would end what is read behind it.
void Tq4_value_obj::Init(Tq4_value_type type) {
    Reset();
    if (static_cast<unsigned>(type) > Tq4_value_End) return;
    if (type >= Tq4_value_ArrayStart && type <= Tq4_value_PLDOUBLE) return SetBytes(type, "", 0);
    m_type = type;
    if (is(Tq4_value_STRINGARRAY))
        m_data.object = Tq4_cxx_support->new_array();
    else if (is(Tq4_value_Table) && Tq4_value_hosts_tables())
        m_data.object = Tq4_cxx_support->new_table();
}

// ---- bytes

void Tq4_value_obj::SetBytes(Tq4_value_type tag, const void *bytes, unsigned long n) {
    n = Tq4_text_length(bytes, n);
    if (inline_word()) m_data = {}; // nothing lies there that anybody points to
    if (holds_string() || inline_word()) {
        m_data.text.Assign(bytes, n);
    } else { // what is held may hold the bytes
        Data fresh;
        fresh.text.Assign(bytes, n);
        Reset();
        m_data = fresh;
    }
    m_type = tag;
}

void Tq4_value_obj::AppendOwn(const void *bytes, unsigned long n) {
    m_data.text.Append(bytes, Tq4_text_length(bytes, n));
}

// The result is text of tag 19, deliberately not 18.
void Tq4_value_obj::SetString(const char *text, int len) {
    SetBytes(Tq4_value_PCHAR, text, static_cast<unsigned long>(static_cast<long>(len)));
}

void Tq4_value_obj::SetInt64(long long value) {
    if (!is(Tq4_value_INT64) && !is(Tq4_value_UINT64)) Init(Tq4_value_INT64);
    m_data.int64 = value;
}

void Tq4_value_obj::SetFloat(float value) {
    if (!is(Tq4_value_FLOAT)) Init(Tq4_value_FLOAT);
    m_data.single = value;
}

void Tq4_value_obj::SetDouble(double value) {
    if (!is(Tq4_value_DOUBLE)) Init(Tq4_value_DOUBLE);
    m_data.twofold = value;
}

void Tq4_value_obj::SetPtr(const void *pointer) { SetScalar<Tq4_value_PTR>(reinterpret_cast<uintptr_t>(pointer)); }
void Tq4_value_obj::SetRef(Tq4_value target) { SetScalar<Tq4_value_Ref>(reinterpret_cast<uintptr_t>(target)); }

namespace {

// Makes the value hold a deep copy of given: a copy of an object that lies in the value is made before the value lets
// go of it.
void hold_copy(Tq4_value_obj &value, Tq4_value_type tag, const void *given, Tq4_new_hook make) {
    if (value.is(tag) && value.m_data.object) {
        if (given && given != value.m_data.object) Tq4_object_of(given)->oitf->Copy(value.m_data.object, given);
        return;
    }
    void *fresh = make();
    if (given && fresh) Tq4_object_of(given)->oitf->Copy(fresh, given);
    value.Reset();
    value.m_type = tag;
    value.m_data.object = fresh;
}

} // namespace

void Tq4_value_obj::SetStringArray(Tq4_string_array array) {
    hold_copy(*this, Tq4_value_STRINGARRAY, array, Tq4_cxx_support->new_array);
}

void Tq4_value_obj::SetTable(Tq4_value_table table) {
    hold_copy(*this, Tq4_value_Table, table, Tq4_cxx_support->new_table);
}

// ---- appends; one that does not fit the type stores nothing, deliberately

// A tag without storing: bytes stay and are read as what the new tag says; anything else is released, so that no getter
// takes a number for bytes.
static void retag(Tq4_value_obj &value, Tq4_value_type tag) {
    if (!value.holds_string()) value.Reset();
    value.m_type = tag;
}

void Tq4_value_obj::AppendString(Tq4_string string) {
    if (!string) return;
    if (is(Tq4_value_STRINGARRAY)) {
        if (m_data.array) (*m_data.array)->AddString(m_data.array, string);
        return;
    }
    if (is_text()) AppendOwn((*string)->c_str(string), static_cast<unsigned long>((*string)->length(string)));
    retag(*this, Tq4_value_STRING);
}

void Tq4_value_obj::AppendStringArray(Tq4_string_array array) {
    if (is(Tq4_value_STRINGARRAY) && m_data.array) (*m_data.array)->Append(m_data.array, array);
}

void Tq4_value_obj::AppendBytes(const char *bytes, int len) {
    if (!bytes) return;
    const auto length = static_cast<unsigned long>(static_cast<long>(len));
    if (is(Tq4_value_STRINGARRAY)) {
        if (m_data.array) (*m_data.array)->Add(m_data.array, bytes, length);
    } else if (is_text()) {
        AppendOwn(bytes, length);
        m_type = Tq4_value_PUCHAR;
    }
}

void Tq4_value_append_packed(Tq4_value_obj &value, Tq4_value_type tag, bool fits, const void *element,
                             unsigned long width) {
    if (fits) value.AppendOwn(element, width);
    retag(value, tag);
}

void Tq4_value_obj::AppendFloat(float element) {
    if (is(Tq4_value_PFLOAT)) AppendOwn(&element, sizeof element);
}

void Tq4_value_obj::AppendDouble(double element) {
    if (is(Tq4_value_PDOUBLE)) AppendOwn(&element, sizeof element);
}
