// string: a growable byte string over a write buffer.
//
// The text is m_data .. m_ptr of the buffer, which starts in 16 bytes inside the record, so that a short string costs
// the one allocation of its object. No NUL is kept behind the text; c_str() puts one there when it is asked for.
//
// Every change goes through few primitives: reserve makes room or fails with nothing changed; assign, the buffer's
// memcat and open_gap move each byte once, straight into its place. Bytes given to an operation may lie inside the
// string's own storage: Tq4_operand copies those, the ordinary case pays one comparison. Formatted texts and dates,
// whose arguments cannot be looked through, are made aside.
//
// The operations are in edit.cpp, format.cpp, search.cpp, date.cpp, number.cpp, convert.cpp and line.cpp.
#include "base/string/string.hpp"

#include <algorithm>

Tq4_string_obj::Tq4_string_obj(const char *text) {
    Tq4_wbuf_InitFixed(&m_buf, m_first, sizeof m_first);
    m_buf.fflush = Tq4_wbuf_flush_nothing;
    if (text) Strcpy(text);
}

Tq4_string_obj::~Tq4_string_obj() {
    if (m_buf.m_data != m_first) Tq4_wbuf_Release(&m_buf);
}

void Tq4_string_obj::Reset() {
    Tq4_wbuf_Reset(&m_buf);
    m_quote = {};
}

// Deliberate: the quote does not travel with a copy, only with a duplicate.
void Tq4_string_obj::Copy(const Tq4_string_obj *source) {
    source ? void(assign(source->begin(), source->size())) : Reset();
}

void Tq4_string_obj::Duplicate(const Tq4_string_obj &source) {
    Copy(&source);
    m_quote = source.m_quote;
}

bool Tq4_string_obj::Equal(const Tq4_string_obj &other) const {
    return has_quote_of(other) && size() == other.size() && std::memcmp(begin(), other.begin(), size()) == 0;
}

void Tq4_operand::copy() {
    m_copy = std::make_unique_for_overwrite<uint8_t[]>(size);
    data = static_cast<const uint8_t *>(std::memcpy(m_copy.get(), data, size));
}

void Tq4_string_obj::set_size(unsigned long n) {
    m_buf.m_ptr = m_buf.m_data + n;
    m_buf.m_cnt = m_buf.m_len - n;
    Tq4_wbuf_check(&m_buf);
}

// All that the allocation holds: room is made as often as the storage doubles.
bool Tq4_string_obj::make_room(unsigned long n) {
    if (Tq4_wbuf_space(&m_buf, n) < n) return false;
    m_buf.m_cnt += m_buf.m_room - m_buf.m_len;
    m_buf.m_len = m_buf.m_room;
    Tq4_wbuf_check(&m_buf);
    return true;
}

// The bytes may be the string's own, which move when room is made.
[[gnu::noinline]] void Tq4_string_obj::append(const void *bytes, unsigned long len) {
    const unsigned long n = Tq4_text_length(bytes, len);
    const auto offset = reinterpret_cast<uintptr_t>(bytes) - reinterpret_cast<uintptr_t>(begin());
    const bool own = offset < m_buf.m_len;
    if (n == 0 || !reserve(n)) return;
    std::memmove(end(), own ? begin() + offset : bytes, n);
    set_size(size() + n);
}

bool Tq4_string_obj::assign(const void *bytes, unsigned long n) {
    if (n > size() && !reserve(n - size())) return false;
    // Bytes inside this string never need more room than there is, so they have not moved.
    if (n) std::memmove(begin(), bytes, n);
    set_size(n);
    m_quote = {};
    return true;
}

uint8_t *Tq4_string_obj::open_gap(unsigned long position, unsigned long n) {
    if (!reserve(n)) return nullptr;
    uint8_t *gap = begin() + std::min(position, size());
    std::memmove(gap + n, gap, static_cast<size_t>(end() - gap));
    set_size(size() + n);
    return gap;
}

void Tq4_string_obj::fill_gap(unsigned long position, unsigned long n, char c) {
    if (uint8_t *gap = open_gap(position, n)) std::memset(gap, c, n);
}

namespace {

Tq4_string_obj *record(Tq4_string s) { return Tq4_record<Tq4_string_obj>(s); }

// A null string equals only null.
int EqualCase(Tq4_string s, Tq4_string other) {
    if (!s || !other) return s == other;
    return record(s)->EqualCase(*record(other));
}

int EqualStr(Tq4_string s, const char *text, int ignore_case) {
    if (!s || !text) return !s && !text;
    return record(s)->EqualStr(text, ignore_case);
}

// A null string only measures.
int utf8_2_unicode_onece(Tq4_string s, const char *bytes, unsigned long len) {
    return s ? record(s)->utf8_2_unicode_onece(bytes, len) : Tq4_string_obj::measure_utf8(bytes, len);
}

// The usual ways in which a text grows by pieces need no frame: the other ways are a call at the end.
[[gnu::noinline]] Tq4_string append_to(Tq4_string s, const void *bytes, unsigned long len) {
    if (s) record(s)->append(bytes, len);
    return s;
}
Tq4_string Memcat(Tq4_string s, const void *bytes, unsigned long len) {
    return s && record(s)->append_short(bytes, len) ? s : append_to(s, bytes, len);
}
Tq4_string Strncat(Tq4_string s, const char *text, unsigned long len) { return Memcat(s, text, len); }
[[gnu::noinline]] Tq4_string add_to(Tq4_string s, char c) {
    if (s) record(s)->addnch(c, 1);
    return s;
}
Tq4_string addch(Tq4_string s, char c) { return s && record(s)->add_short(c) ? s : add_to(s, c); }

// The variadic slots: the same operation with the arguments as a list.
template <auto Method> long format_to(Tq4_string s, const char *format, ...) {
    if (!s) return 0;
    va_list args;
    va_start(args, format);
    long written = (record(s)->*Method)(format, args);
    va_end(args);
    return written;
}

Tq4_string insert(Tq4_string s, unsigned long position, const char *format, ...) {
    if (!s) return nullptr;
    va_list args;
    va_start(args, format);
    record(s)->vinsert(position, format, args);
    va_end(args);
    return s;
}

} // namespace

template <auto Method> inline constexpr auto op = Tq4_op<Method>;
using S = Tq4_string_obj;

constinit const Tq4_string_ Tq4_string_itf = {
    .EqualCase = EqualCase,
    .EqualStr = EqualStr,
    .truncate = op<&S::truncate>,
    .truncate_tail = op<&S::truncate_tail>,
    .Strncpy = op<&S::Memcpy>,
    .Strcpy = op<&S::Strcpy>,
    .Strncat = Strncat,
    .Strcat = op<&S::Strcat>,
    .Sprintf = format_to<&S::vSprintf>,
    .Sprintf_append = format_to<&S::vsprintf_append>,
    .vSprintf = op<&S::vSprintf>,
    .vsprintf_append = op<&S::vsprintf_append>,
    .Memcpy = op<&S::Memcpy>,
    .Memcat = Memcat,
    .insert = insert,
    .vinsert = op<&S::vinsert>,
    .insert_char = op<&S::insert_char>,
    .insert_str = op<&S::insert_str>,
    .del = op<&S::del>,
    .Replace = op<&S::Replace>,
    .addch = addch,
    .addnch = op<&S::addnch>,
    .resize = op<&S::resize>,
    .Extend = op<&S::Extend>,
    .c_str = op<&S::c_str>,
    .length = op<&S::length>,
    .TrimLeft = op<&S::TrimLeft>,
    .TrimRight = op<&S::TrimRight>,
    .Trim = op<&S::Trim>,
    .FindLastChar = op<&S::FindLastChar>,
    .Find = op<&S::Find>,
    .FindLast = op<&S::FindLast>,
    .MatchBrack = op<&S::MatchBrack>,
    .Upper = op<&S::Upper>,
    .Lower = op<&S::Lower>,
    .GetAt = op<&S::GetAt>,
    .SetAt = op<&S::SetAt>,
    .Reverse = op<&S::Reverse>,
    .GetQuote = op<&S::GetQuote>,
    .SetQuote = op<&S::SetQuote>,
    .host2net = op<&S::host2net>,
    .Align = op<&S::Align>,
    .FormatDate = op<&S::FormatDate>,
    .Append_FormatDate = op<&S::Append_FormatDate>,
    .ToTime = op<&S::ToTime>,
    .ToInt = op<&S::ToInt>,
    .ToFloat = op<&S::ToFloat>,
    .ToChar = op<&S::ToChar>,
    .GetTimePeriod = S::GetTimePeriod,
    .Base64Encode = op<&S::Base64Encode>,
    .Base64Decode = op<&S::Base64Decode>,
    .utf8_2_unicode_onece = utf8_2_unicode_onece,
    .utf8_2_unicode = op<&S::utf8_2_unicode>,
    .unicode_2_utf8 = op<&S::unicode_2_utf8>,
    .utf8_2_gb18030 = op<&S::utf8_2_gb18030>,
    .gb18030_2_utf8 = op<&S::gb18030_2_utf8>,
    .unicode_2_gb18030 = op<&S::unicode_2_gb18030>,
    .gb18030_2_unicode = op<&S::gb18030_2_unicode>,
    .enc = op<&S::enc>,
    .dec = op<&S::dec>,
};
TQ4_MODULE(string)
