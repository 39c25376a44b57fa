// string.hpp: the string's record, for the modules in src/ that keep or fill strings.
#pragma once

#include <cstring>
#include <memory>
#include <utility>

#include "base/charset/conversion.hpp"
#include "base/charset/crypto_quick.hpp"
#include "base/short_copy.hpp"
#include "base/wbuf.hpp"
#include "module.hpp"
#include "tq4/string.h"

struct Tq4_rbuf;

constexpr uint8_t Tq4_ascii_lower(uint8_t c) { return c >= 'A' && c <= 'Z' ? uint8_t(c + 32) : c; }
constexpr uint8_t Tq4_ascii_upper(uint8_t c) { return c >= 'a' && c <= 'z' ? uint8_t(c - 32) : c; }

// Length arguments: null has none, all ones means up to the NUL.
inline unsigned long Tq4_text_length(const void *bytes, unsigned long len = TQ4_ALL_ONES) {
    if (!bytes) return 0;
    return len == TQ4_ALL_ONES ? std::strlen(static_cast<const char *>(bytes)) : len;
}
inline Tq4_bytes Tq4_text_bytes(const char *text, unsigned long len = TQ4_ALL_ONES) {
    return {reinterpret_cast<const uint8_t *>(text), Tq4_text_length(text, len)};
}

struct Tq4_string_obj {
    static constexpr unsigned long first_capacity = 16;

    Tq4_wbuf m_buf; // the text is m_data .. m_ptr
    // The first storage of m_buf: a short string is one allocation. Aligned for the numbers that values keep in
    // strings.
    alignas(uint64_t) uint8_t m_first[first_capacity];
    Tq4_quote m_quote = {};

    explicit Tq4_string_obj(const char *text);
    ~Tq4_string_obj();
    Tq4_string_obj(const Tq4_string_obj &) = delete;
    Tq4_string_obj &operator=(const Tq4_string_obj &) = delete;

    void Reset();
    void Copy(const Tq4_string_obj *source); // null empties
    void Duplicate(const Tq4_string_obj &source);
    bool Equal(const Tq4_string_obj &other) const;

    // What the operations stand on. What finds no room changes nothing and says false or null.
    uint8_t *begin() const { return m_buf.m_data; }
    uint8_t *end() const { return m_buf.m_ptr; }
    unsigned long size() const { return static_cast<unsigned long>(end() - begin()); }
    Tq4_bytes view() const { return {begin(), size()}; }
    void set_size(unsigned long n); // n <= capacity
    bool reserve(unsigned long n) { return n <= m_buf.m_cnt || make_room(n); }
    bool make_room(unsigned long n);
    bool assign(const void *bytes, unsigned long n);
    void append(const void *bytes, unsigned long len);
    // The same where nothing need be called: a few bytes of known number, for which there is room.
    bool append_short(const void *bytes, unsigned long len) {
        const uint64_t room = m_buf.m_cnt;
        if (len > Tq4_short_copy_most || len > room || !bytes) return false;
        m_buf.m_cnt = room - len;
        Tq4_short_copy(std::exchange(m_buf.m_ptr, m_buf.m_ptr + len), static_cast<const uint8_t *>(bytes), len);
        return true;
    }
    bool add_short(char c) {
        const uint64_t room = m_buf.m_cnt;
        if (room == 0) return false;
        m_buf.m_cnt = room - 1;
        *m_buf.m_ptr++ = static_cast<uint8_t>(c);
        return true;
    }
    // n unset bytes before position, at the end when that is past it.
    uint8_t *open_gap(unsigned long position, unsigned long n);
    void fill_gap(unsigned long position, unsigned long n, char c);

    // Editing.
    void truncate(unsigned long n);
    void truncate_tail(unsigned long n);
    void Memcpy(const void *bytes, unsigned long len);
    void Memcat(const void *bytes, unsigned long len) {
        if (!append_short(bytes, len)) append(bytes, len);
    }
    void Strcpy(const char *text) { Memcpy(text, TQ4_ALL_ONES); }
    void Strcat(const char *text) { Memcat(text, TQ4_ALL_ONES); }
    long vSprintf(const char *format, va_list args);
    long vsprintf_append(const char *format, va_list args);
    void vinsert(unsigned long position, const char *format, va_list args);
    void insert_char(unsigned long position, char c, unsigned long count);
    void insert_str(unsigned long position, const void *bytes, unsigned long len);
    void del(unsigned long position, unsigned long count);
    void Replace(char from, char to);
    void addch(char c) {
        if (!add_short(c)) addnch(c, 1);
    }
    void addnch(char c, unsigned long count);
    void resize(unsigned long length, int fill);
    char *Extend(unsigned long n);
    const char *c_str();
    long length() const { return static_cast<long>(size()); }
    void TrimLeft();
    void TrimRight();
    void Trim();
    void Upper();
    void Lower();
    short GetAt(unsigned long index) const;
    void SetAt(unsigned long index, char c);
    void Reverse();
    Tq4_quote GetQuote() const { return m_quote; }
    void SetQuote(Tq4_quote quote) { m_quote = quote; }
    void host2net(const void *bytes, unsigned long len);
    void Align(char mode, char pad, unsigned long width);

    // Comparing and searching.
    bool has_quote_of(const Tq4_string_obj &other) const {
        return m_quote.open == other.m_quote.open && m_quote.close == other.m_quote.close;
    }
    unsigned long index_of(unsigned long start, Tq4_bytes pattern) const;
    bool EqualCase(const Tq4_string_obj &other) const;
    bool EqualStr(const char *text, bool ignore_case) const;
    unsigned long FindLastChar(char c) const;
    const char *Find(unsigned long *position, const char *pattern, unsigned long len) const;
    const char *FindLast(unsigned long *position, const char *pattern, unsigned long len) const;
    const char *MatchBrack(unsigned long start, const char *open, const char *close, unsigned long *open_position,
                           unsigned long *close_position) const;

    // Dates and numbers.
    void FormatDate(long time, const char *pattern);
    void Append_FormatDate(long time, const char *pattern);
    long ToTime(const char *pattern) const;
    static long GetTimePeriod(const char *pattern);
    long ToInt(int base);
    double ToFloat();
    char ToChar();

    // Character sets and encodings; all append.
    using Conversion = Tq4_converted (*)(Tq4_bytes in, Tq4_room out);
    long convert(Conversion conversion, Tq4_bytes in); // bytes outside this string
    const char *Base64Encode(const void *bytes, unsigned long len);
    const char *Base64Decode(const char *text, unsigned long len);
    int utf8_2_unicode_onece(const char *bytes, unsigned long len);
    static int measure_utf8(const char *bytes, unsigned long len);
    long utf8_2_unicode(const char *text, unsigned long len);
    long unicode_2_utf8(const uint16_t *units, unsigned long bytes);
    long utf8_2_gb18030(const char *text, unsigned long len);
    long gb18030_2_utf8(const char *text, unsigned long len);
    long unicode_2_gb18030(const uint16_t *units, unsigned long bytes);
    long gb18030_2_unicode(const char *text, unsigned long len);
    long enc(const void *bytes, unsigned long len, const char *key);
    long dec(const void *bytes, unsigned long len, const char *key);
    // The same with a key that is set up already.
    long scramble(const void *bytes, unsigned long len, crypto_quick_key_t round_key);
    long unscramble(const void *bytes, unsigned long len, crypto_quick_key_t round_key);
};

// Bytes given to an operation, readable while the string changes: copied when they lie inside its storage.
struct Tq4_operand : Tq4_bytes {
    std::unique_ptr<uint8_t[]> m_copy;

    Tq4_operand(const Tq4_string_obj &string, const void *bytes, unsigned long len)
        : Tq4_bytes{static_cast<const uint8_t *>(bytes), Tq4_text_length(bytes, len)} {
        auto offset = reinterpret_cast<uintptr_t>(bytes) - reinterpret_cast<uintptr_t>(string.begin());
        if (offset < string.m_buf.m_len && size <= string.m_buf.m_len - offset) copy();
    }
    void copy();
};

// A text made aside, on the stack while it is short: for operations whose arguments may lie, unseen, inside the string
// that the text is for.
class Tq4_text_aside {
public:
    Tq4_text_aside() {
        Tq4_wbuf_InitFixed(&m_buf, m_first, sizeof m_first);
        m_buf.fflush = Tq4_wbuf_flush_nothing;
    }
    ~Tq4_text_aside() { Tq4_wbuf_Release(&m_buf); }
    Tq4_text_aside(const Tq4_text_aside &) = delete;
    Tq4_text_aside &operator=(const Tq4_text_aside &) = delete;

    Tq4_wbuf *buffer() { return &m_buf; }
    const uint8_t *data() const { return m_buf.m_data; }
    unsigned long size() const { return Tq4_wbuf_size(&m_buf); }

private:
    Tq4_wbuf m_buf;
    uint8_t m_first[512];
};

// Reads one line, up to and including its line feed, into s (replacing its text), refilling the buffer through its
// hook. With trim non-zero the line is trimmed on the right. Returns the text; null at the end of data with nothing
// read, or, when max > 0 and more than max bytes came without a line feed, with s emptied.
const char *Tq4_string_itf_Read_line(Tq4_string s, Tq4_rbuf *rbuf, int trim, unsigned long max);
