// value_types.hpp: what the tags of values mean, once.
//
// A row for each tag: where the content is kept, the type of the number or element, and how Echo prints it: as which
// type and in which format. The widths on the wire follow from the element. What a module does with the types it writes
// as a template over the rows, and Tq4_value_rows makes its table of them.
#pragma once

#include <array>
#include <concepts>
#include <cstddef>
#include <type_traits>
#include <utility>

#include "tq4/value.h"

enum class Tq4_value_storage {
    none,    // nothing, and markers of ranges
    word,    // an integer, in the word
    address, // a pointer or a reference, in the word
    cell,    // a number of up to 16 bytes
    text,    // bytes
    packed,  // elements in host order, without gaps
    texts,   // a string array
    table
};

// X(tag, storage, element, printed as, format)
#define TQ4_VALUE_TYPES(X)                                                                                             \
    X(Unknown, none, void, void, "")                                                                                   \
    X(CHAR, word, signed char, unsigned char, "%c")                                                                    \
    X(UCHAR, word, unsigned char, unsigned char, "%c")                                                                 \
    X(SHORT, word, short, short, "%d")                                                                                 \
    X(USHORT, word, unsigned short, unsigned short, "%u")                                                              \
    X(INT, word, int, int, "%d")                                                                                       \
    X(UINT, word, unsigned, unsigned, "%u")                                                                            \
    X(LONG, word, long, long, "%ld")                                                                                   \
    X(ULONG, word, unsigned long, unsigned long, "%lu")                                                                \
    X(PTR, address, unsigned long, unsigned long, "%lx")                                                               \
    X(Ref, address, unsigned long, unsigned long, "%lx")                                                               \
    X(FloatStart, none, void, void, "")                                                                                \
    X(INT64, cell, long long, unsigned long long, "%llu") /* as unsigned, deliberately */                              \
    X(UINT64, cell, unsigned long long, unsigned long long, "%llu")                                                    \
    X(FLOAT, cell, float, double, "%f")                                                                                \
    X(DOUBLE, cell, double, double, "%lf")                                                                             \
    X(LDOUBLE, cell, long double, void, "")                                                                            \
    X(ArrayStart, none, void, void, "")                                                                                \
    X(STRING, text, char, void, "")                                                                                    \
    X(PCHAR, text, char, void, "")                                                                                     \
    X(PUCHAR, text, char, void, "")                                                                                    \
    X(PSHORT, packed, short, short, "%d")                                                                              \
    X(PUSHORT, packed, unsigned short, unsigned short, "%u")                                                           \
    X(PINT, packed, int, int, "%d")                                                                                    \
    X(PUINT, packed, unsigned, unsigned, "%u")                                                                         \
    X(PLONG, packed, long, long, "%ld")                                                                                \
    X(PULONG, packed, unsigned long, unsigned long, "%ul") /* 32 bits and a letter l, deliberately */                  \
    X(PFLOAT, packed, float, float, "%f")                                                                              \
    X(PDOUBLE, packed, double, double, "%f")                                                                           \
    X(PLDOUBLE, packed, long double, double, "%lf") /* as twice as many doubles, deliberately */                       \
    X(ArrayOtherObject, none, void, void, "")                                                                          \
    X(STRINGARRAY, texts, char, void, "")                                                                              \
    X(Table, table, void, void, "")                                                                                    \
    X(End, none, void, void, "")

inline constexpr std::size_t Tq4_value_tags = Tq4_value_End + 1;

template <class Element> constexpr std::size_t Tq4_element_width() {
    if constexpr (std::is_void_v<Element>)
        return 0;
    else
        return sizeof(Element);
}

template <std::size_t tag> struct Tq4_value_type_row;
#define TQ4_VALUE_TYPE_ROW(name, where, number, shown, how)                                                            \
    template <> struct Tq4_value_type_row<Tq4_value_##name> {                                                          \
        static constexpr Tq4_value_type tag = Tq4_value_##name;                                                        \
        static constexpr Tq4_value_storage storage = Tq4_value_storage::where;                                         \
        using Element = number;                                                                                        \
        using Printed = shown;                                                                                         \
        static constexpr std::size_t width = Tq4_element_width<Element>();                                             \
        static constexpr char format[] = how;                                                                          \
        /* Longs travel with a byte that tells their width. */                                                         \
        static constexpr bool has_width_byte = std::same_as<Element, long> || std::same_as<Element, unsigned long>;    \
        static constexpr bool is_floating = std::is_floating_point_v<Element>;                                         \
    };
TQ4_VALUE_TYPES(TQ4_VALUE_TYPE_ROW)
#undef TQ4_VALUE_TYPE_ROW

// A table indexed by tag, which every value's is in range of.
template <class Entry> using Tq4_value_table_of = std::array<Entry, Tq4_value_tags>;
// make(row) gives the entry of a row.
template <class Make> constexpr auto Tq4_value_rows(Make make) {
    return [&]<std::size_t... tag>(std::index_sequence<tag...>) {
        return std::array{make(Tq4_value_type_row<tag>{})...};
    }
    (std::make_index_sequence<Tq4_value_tags>{});
}
