// value_get: what a value gives. Text is never converted to a number or a number to text: a getter that does not fit
// the type gives the zero of its result.
#include "base/kv/value.hpp"

// Serves every integer getter: each narrows the word to its type.
long Tq4_value_obj::GetInteger() const {
    if (m_type <= Tq4_value_ULONG) return static_cast<long>(m_data.word);
    return GetInt64();
}

long Tq4_value_obj::GetInt64() const { return is(Tq4_value_INT64) || is(Tq4_value_UINT64) ? m_data.int64 : 0; }

float Tq4_value_obj::GetFloat() const { return is(Tq4_value_FLOAT) ? m_data.single : static_cast<float>(GetDouble()); }

double Tq4_value_obj::GetDouble() const {
    if (is(Tq4_value_FLOAT)) return static_cast<double>(m_data.single);
    return is(Tq4_value_DOUBLE) ? m_data.twofold : 0.0;
}

char *Tq4_value_obj::GetBytes(unsigned long *len) const {
    if (len) *len = 0;
    if (!is_text() || !has_bytes()) return nullptr;
    if (len) *len = bytes().size;
    return const_cast<char *>(c_str());
}
