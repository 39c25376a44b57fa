// value_text: the bytes of a value, in a cell or in a string object.
#include "base/kv/value_text.hpp"

#include <utility>

#include "base/string/string.hpp"
#include "module.hpp"

Tq4_bytes Tq4_value_text::view() const {
    return m_string ? Tq4_record_of<const Tq4_string_obj>(m_string).view() : m_cell.view();
}

const char *Tq4_value_text::c_str() const {
    if (m_string) return (*m_string)->c_str(m_string);
    const char *text = reinterpret_cast<const char *>(m_cell.view().data);
    return text ? text : "";
}

Tq4_string Tq4_value_text::own_string() {
    if (m_string) return m_string;
    m_string = static_cast<Tq4_string>(Tq4_cxx_support->new_string());
    const Tq4_bytes text = m_cell.view();
    if (text.size) (*m_string)->Memcpy(m_string, text.data, text.size);
    return m_string;
}

void Tq4_value_text::Assign(const void *bytes, unsigned long n) {
    if (!m_string && !hosts_strings()) return m_cell.Assign(bytes, n);
    own_string();
    (*m_string)->Memcpy(m_string, bytes, n);
    m_cell.Release();
}

void Tq4_value_text::Append(const void *bytes, unsigned long n) {
    if (!m_string && m_cell.AppendInside(bytes, n)) return;
    own_string();
    (*m_string)->Memcat(m_string, bytes, n);
}

uint8_t *Tq4_value_text::Zeros(unsigned long n) {
    if (!hosts_strings()) {
        uint8_t *room = m_cell.Zeros(n);
        return n ? room : nullptr;
    }
    own_string();
    auto *room = n ? reinterpret_cast<uint8_t *>((*m_string)->Extend(m_string, n)) : nullptr;
    if (room) std::memset(room, 0, n);
    return room;
}

void Tq4_value_text::Copy(const Tq4_value_text &source) {
    if (source.m_string) {
        m_string = static_cast<Tq4_string>(Tq4_cxx_support->new_string());
        Tq4_object_of(source.m_string)->oitf->Copy(m_string, source.m_string);
        return;
    }
    const Tq4_bytes bytes = source.m_cell.view();
    Assign(bytes.data ? bytes.data : reinterpret_cast<const uint8_t *>(""), bytes.size);
}

// Strings are also told apart by their quotes, of which bytes that never became a string have none.
bool Tq4_value_text::Equal(const Tq4_value_text &other) const {
    if (m_string && other.m_string) return Tq4_object_Equal(m_string, other.m_string);
    for (Tq4_string string : {m_string, other.m_string})
        if (string && (*string)->GetQuote(string).open) return false;
    const Tq4_bytes mine = view(), theirs = other.view();
    if (!mine.data || !theirs.data) return mine.data == theirs.data;
    return mine.size == theirs.size && std::memcmp(mine.data, theirs.data, mine.size) == 0;
}

void Tq4_value_text::Release() {
    m_cell.Release();
    if (Tq4_string string = std::exchange(m_string, nullptr)) Tq4_cxx_support->delete_obj(string);
}
