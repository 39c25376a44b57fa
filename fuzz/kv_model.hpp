// kv_model.hpp: how far the readers of encoded keys, values and tables go, told a second time and simply, for any
// bytes; and what the targets of the data model share.
#pragma once

#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

#include "base/kv/limits.hpp"
#include "own.hpp"
#include "tq4/debug.h"
#include "tq4/value_table.h"

inline void require(bool condition) {
    if (!condition) std::abort();
}

// Damaged bytes are reported; nobody wants to see it here.
inline void silence() {
    static const bool done = [] {
        const auto nothing = [](int, const char *, va_list) {};
        Tq4_debug_api->SetPrint(nothing);
        Tq4_debug_api->SetLog(nothing);
        return true;
    }();
    (void)done;
}

inline std::string text_of(Tq4_string s) { return {(*s)->c_str(s), static_cast<std::size_t>((*s)->length(s))}; }

template <class Own> std::string dump_of(const Own &object) {
    const auto out = Tq4_make<Tq4_string>(Tq4_string_oitf);
    (*object)->Dump(object.get(), out.get());
    return text_of(out.get());
}

// Imports from a block of exactly these bytes, so that the sanitizer sees an overrun.
template <class Own> int import_exact(const Own &object, std::string_view bytes) {
    const std::unique_ptr<char[]> exact(new char[bytes.size()]);
    bytes.copy(exact.get(), bytes.size());
    return (*object)->Import(object.get(), exact.get(), static_cast<int>(bytes.size()));
}

// Compact text by Echo.
inline void append_piece(void *string, const char *format, ...) {
    va_list args;
    va_start(args, format);
    auto s = static_cast<Tq4_string>(string);
    (*s)->vsprintf_append(s, format, args);
    va_end(args);
}
template <class Own> std::string echoed(const Own &object, bool compact) {
    const auto out = Tq4_make<Tq4_string>(Tq4_string_oitf);
    (*object)->Echo(object.get(), append_piece, out.get(), compact);
    return text_of(out.get());
}

// Each function gives the position after what starts at a position.
class Kv_model {
    const std::string_view m_bytes;
    unsigned long zeros = 0; // bytes of elements that take none

public:
    bool damaged = false; // something was cut off, out of range or left out
    bool stops = false;   // an entry without a value: the process would stop

    explicit Kv_model(std::string_view bytes) : m_bytes(bytes) {}

    std::size_t key(std::size_t at) {
        if (!left(at)) return cut();
        const unsigned flags = number(at++, 1);
        const unsigned kind = flags & 15;
        if (flags & 0x10 && (kind == 1 || kind == 3)) {
            if (left(at) < (kind == 1 ? 4 : 8)) return cut();
            at += kind == 1 ? 4 : 8;
        } else if (flags & 0x10) {
            if (!left(at) || left(at) - 1 < number(at, 1)) return cut();
            const unsigned long width = number(at, 1);
            at += 1 + (width == 8 || width == 4 ? width : 0);
        }
        if ((flags & 0x60) != 0x60) return at;
        if (left(at) < 2 || left(at) - 2 < number(at, 2)) return cut();
        return at + 2 + number(at, 2);
    }

    std::size_t value(std::size_t at, int depth) {
        if (!left(at)) return cut();
        const unsigned long tag = number(at++, 1);
        static const unsigned char fixed[] = {0, 1, 1, 2, 2, 4, 4, 0, 0, 0, 0, 0, 8, 8, 4, 8, 16, 0};
        static const unsigned char element[] = {2, 2, 4, 4, 8, 8, 4, 8, 16};
        if (tag > 33) return cut();
        if (tag >= 7 && tag <= 10) return wide(at);
        if (tag < 18) return left(at) < fixed[tag] ? cut() : at + fixed[tag];
        if (tag < 21) return left(at) < 4 || left(at) - 4 < number(at, 4) ? cut() : at + 4 + number(at, 4);
        if (tag == 25 || tag == 26) return wide_array(at);
        if (tag < 30) return array(at, element[tag - 21]);
        if (tag == 31) return texts(at);
        if (tag != 32) return at;
        return depth >= Tq4_value_nesting_limit ? cut() : table(at, depth + 1);
    }

    std::size_t table(std::size_t at, int depth) {
        if (left(at) < 5) return damaged = true, at;
        unsigned long entries = number(at + 1, 4);
        for (at += 5; entries && left(at) && !stops; --entries) {
            at = key(at);
            stops = stops || !left(at);
            if (!stops) at = value(at, depth);
        }
        damaged = damaged || entries || stops;
        return at;
    }

private:
    std::size_t left(std::size_t at) const { return m_bytes.size() - at; }
    unsigned long number(std::size_t at, int width) const {
        unsigned long n = 0;
        while (width--) n = n << 8 | static_cast<unsigned char>(m_bytes[at++]);
        return n;
    }
    // Everything is consumed.
    std::size_t cut() { return damaged = true, m_bytes.size(); }

    std::size_t wide(std::size_t at) {
        if (!left(at)) return cut();
        const unsigned long width = number(at, 1);
        if (width != 8 && width != 4) return at + 1;
        return left(at) < 1 + width ? cut() : at + 1 + width;
    }
    std::size_t array(std::size_t at, unsigned width) {
        if (left(at) < 4) return cut();
        unsigned long count = number(at, 4);
        for (at += 4; count && left(at) >= width; --count) at += width;
        damaged = damaged || count;
        return at;
    }
    std::size_t wide_array(std::size_t at) {
        if (left(at) < 5) return cut();
        unsigned long count = number(at, 4), width = number(at + 4, 1);
        at += 5;
        if (width != 8 && width != 4) {
            if (left(at) >= 8) zeros += count * 8;
            damaged = damaged || (count && left(at) < 8) || zeros > Tq4_value_zero_bytes_limit;
            return at;
        }
        for (; count && left(at) >= 8; --count) at += width;
        damaged = damaged || count;
        return at;
    }
    std::size_t texts(std::size_t at) {
        if (left(at) < 2) return cut();
        unsigned long count = number(at, 2);
        for (at += 2; count; --count) {
            if (left(at) < 2) return cut();
            const unsigned long length = number(at, 2);
            at += 2;
            if (length > left(at)) return damaged = true, at;
            at += length;
        }
        return at;
    }
};
