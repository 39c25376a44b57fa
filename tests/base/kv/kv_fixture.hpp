// Verbs for tests of keys, values and tables: owned handles, bytes in and out.
#pragma once

#include "support/test.hpp"

using Bytes = std::string;
using String = Tq4_own<Tq4_string>;
using Key = Tq4_own<Tq4_key>;
using Value = Tq4_own<Tq4_value>;
using Table = Tq4_own<Tq4_value_table>;

inline String new_string() { return Tq4_make<Tq4_string>(Tq4_string_oitf); }
inline Key new_key() { return Tq4_make<Tq4_key>(Tq4_key_oitf); }
inline Value new_value() { return Tq4_make<Tq4_value>(Tq4_value_oitf); }
inline Table new_table() { return Tq4_make<Tq4_value_table>(Tq4_value_table_oitf); }

inline Bytes from_hex(const char *hex) {
    Bytes bytes;
    for (const char *p = hex; *p; ++p)
        if (*p != ' ') bytes += static_cast<char>(std::stoi(std::string(p, 2), nullptr, 16)), ++p;
    return bytes;
}

// The binary encoding; also that the result is what was appended (but for an empty table, whose result is 0).
template <class Own> Bytes dump(const Own &object) {
    String out = new_string();
    (*out)->Strcpy(out.get(), "before");
    const long appended = (*object)->Dump(object.get(), out.get());
    Bytes bytes = text_of(out.get()).substr(6);
    EXPECT_TRUE(appended == static_cast<long>(bytes.size()) || (appended == 0 && bytes.size() == 5));
    return bytes;
}

// Decodes from a block of exactly these bytes, so that an overrun shows.
template <class Own> int import(const Own &object, const Bytes &bytes) {
    std::unique_ptr<char[]> exact(new char[bytes.size()]);
    bytes.copy(exact.get(), bytes.size());
    return (*object)->Import(object.get(), exact.get(), static_cast<int>(bytes.size()));
}

template <class Own> Bytes json(const Own &object) {
    String out = new_string();
    return (*object)->Json_encode(object.get(), out.get());
}

// An output function that appends to the string given as context.
inline void append_to(void *string, const char *format, ...) {
    va_list args;
    va_start(args, format);
    auto s = static_cast<Tq4_string>(string);
    (*s)->vsprintf_append(s, format, args);
    va_end(args);
}

template <class Own> Bytes echoed(const Own &object, int compact) {
    String out = new_string();
    (*object)->Echo(object.get(), append_to, out.get(), compact);
    return text_of(out.get());
}

inline Value decoded(const Bytes &text) {
    Value v = new_value();
    EXPECT_EQ((*v)->Json_decode(v.get(), text.data(), static_cast<int>(text.size())), 1) << text;
    return v;
}
