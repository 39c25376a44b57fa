// value_set: setters and appends.
//
// A setter keeps the storage when the tag already has the storage class it needs, and retags it; else the value is
// initialised anew. Text and elements may lie in the value itself: what is new is complete before what is old goes.
#include <cstring>

#include "base/kv/value.hpp"
#include "base/string/string.hpp"

void Tq4_value_obj::Reset() {
    void *held = m_type >= Tq4_value_ArrayStart ? m_data.object : nullptr;
    m_type = Tq4_value_Unknown;
    m_data = {};
    if (held) Tq4_cxx_support->delete_obj(held);
}

void Tq4_value_obj::Init(Tq4_value_type type) {
    Reset();
    m_type = type;
    if (holds_string())
        m_data.object = Tq4_cxx_support->new_string();
    else if (is(Tq4_value_STRINGARRAY))
        m_data.object = Tq4_cxx_support->new_array();
    else if (is(Tq4_value_Table))
        m_data.object = Tq4_cxx_support->new_table();
}

Tq4_string Tq4_value_obj::own_string() {
    if (!m_data.string) m_data.object = Tq4_cxx_support->new_string();
    return m_data.string;
}

// The result is text of tag 19, deliberately not 18.
void Tq4_value_obj::SetString(const char *text, int len) {
    const auto length = static_cast<unsigned long>(static_cast<long>(len));
    if (m_type >= Tq4_value_STRING && m_type <= Tq4_value_PLDOUBLE) {
        Tq4_string held = own_string();
        (*held)->Memcpy(held, text, length);
    } else {
        auto fresh = Tq4_make_hooked<Tq4_string>(Tq4_cxx_support->new_string);
        (*fresh)->Memcpy(fresh.get(), text, length);
        Reset();
        m_data.string = fresh.release();
    }
    m_type = Tq4_value_PCHAR;
}

void Tq4_value_set_packed(Tq4_value_obj &value, Tq4_value_type tag, const void *elements, unsigned long bytes) {
    if (value.m_type >= Tq4_value_ArrayStart && value.m_type <= Tq4_value_ArrayOtherObject) {
        Tq4_string held = value.own_string();
        (*held)->Memcpy(held, elements, bytes);
    } else {
        auto fresh = Tq4_make_hooked<Tq4_string>(Tq4_cxx_support->new_string);
        (*fresh)->Memcpy(fresh.get(), elements, bytes);
        value.Reset();
        value.m_data.string = fresh.release();
    }
    value.m_type = tag;
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

static void append(Tq4_value_obj &value, const void *element, unsigned long width) {
    Tq4_string held = value.own_string();
    (*held)->Memcat(held, element, width);
}

// A tag without storing: a held string stays and is read as what the new tag says; anything else is released, so that
// no getter takes a number for a string.
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
    if (is_text()) {
        Tq4_string held = own_string();
        (*held)->Memcat(held, (*string)->c_str(string), static_cast<unsigned long>((*string)->length(string)));
    }
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
        Tq4_string held = own_string();
        (*held)->Memcat(held, bytes, length);
        m_type = Tq4_value_PUCHAR;
    }
}

void Tq4_value_append_packed(Tq4_value_obj &value, Tq4_value_type tag, bool fits, const void *element,
                             unsigned long width) {
    if (fits) append(value, element, width);
    retag(value, tag);
}

void Tq4_value_obj::AppendFloat(float element) {
    if (is(Tq4_value_PFLOAT)) append(*this, &element, sizeof element);
}

void Tq4_value_obj::AppendDouble(double element) {
    if (is(Tq4_value_PDOUBLE)) append(*this, &element, sizeof element);
}
