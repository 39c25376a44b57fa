// value_print: values and tables as JSON-shaped text.
//
// One printer drives either of two outputs: a caller's printf-like function, which is given the formats below, and a
// string, which the pieces are appended to directly. Text is printed as it is, without escaping, deliberately. Tables
// may be nested to any depth: a walk goes through them. In compact text for a string, most members are short, and runs
// of them take a shorter way.
#include <bit>
#include <charconv>
#include <cstdarg>
#include <cstring>
#include <string>
#include <type_traits>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include "assert.hpp"
#include "base/kv/short_members.hpp"
#include "base/print.hpp"
#include "base/string/string.hpp"
#include "tq4/debug.h"

namespace {

using Value = Tq4_value_obj;

// A text as formats print it: up to its first NUL.
struct Text {
    const char *data = "";
    std::size_t size = 0;

    Text() = default;
    // Of n bytes with a NUL behind them; null has none.
    Text(const char *bytes, std::size_t n) {
        if (!bytes) return;
        data = bytes;
        size = strnlen(bytes, n);
    }
    explicit Text(const Value &v) : Text(v.c_str(), v.bytes().size) {}
    explicit Text(const Tq4_key_obj &key) : Text(key.GetS(), key.text().size) {}
    explicit Text(Tq4_string string)
        : Text(string ? (*string)->c_str(string) : nullptr,
               string ? static_cast<std::size_t>((*string)->length(string)) : 0) {}
};

// Copies a text that lies in its cell up to its first NUL, with whatever the cell holds behind it, and returns the end
// of the text. At once for all bytes where the processor can: how long a text is cannot be guessed, and a wrong guess
// costs more than the text. Inlined, because each member has two.
struct Put_cell {
    [[gnu::always_inline]] uint8_t *operator()(uint8_t *room, const Tq4_text_cell &cell) const {
        TQ4_CHECK(cell.inside());
        const uint8_t *bytes = cell.raw();
#ifdef __SSE2__
        constexpr std::size_t second = sizeof(Tq4_text_cell) - sizeof(__m128i);
        const auto move = [=](std::size_t at) {
            const __m128i these = _mm_loadu_si128(reinterpret_cast<const __m128i *>(bytes + at));
            _mm_storeu_si128(reinterpret_cast<__m128i *>(room + at), these);
            return static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(these, _mm_setzero_si128())));
        };
        const unsigned nuls = move(0) | move(second) << second;
        return room + std::countr_zero(nuls | 1u << sizeof(Tq4_text_cell));
#else
        std::memcpy(room, bytes, sizeof(Tq4_text_cell));
        return room + strnlen(reinterpret_cast<const char *>(bytes), sizeof(Tq4_text_cell));
#endif
    }
};

class Echo_output {
    const Tq4_echo m_echo;
    void *const m_context; // borrowed

public:
    Echo_output(Tq4_echo echo, void *context) : m_echo(echo), m_context(context) {}

    template <class From> static Text Of(const From &from) { return Text(from); }
    template <std::size_t n> void Literal(const char (&literal)[n]) { m_echo(m_context, literal); }
    void Quoted(Text text, const char *after) { m_echo(m_context, "\"%s\"%s", text.data, after); }
    void Quoted(Text text) { m_echo(m_context, "\"%s\"", text.data); }
    void Character(char c) {
        const char text[] = {c, '\0'};
        m_echo(m_context, text);
    }
    void ShortMembers(Tq4_table_walk &) {} // each piece is a call
    void QuotedInside(const Tq4_text_cell &cell) {
        Quoted(Text(reinterpret_cast<const char *>(cell.raw()), cell.most_inside));
    }
    template <class... Args> void Format(const char *format, Args... args) { m_echo(m_context, format, args...); }
};

// Appends to a string. The formats that make up most of a text are taken apart here.
class String_output {
    Tq4_byte_writer &m_to;
    std::string m_aside;

    void Print(const char *format, ...) {
        va_list args;
        va_start(args, format);
        m_to.WithBuffer([&](Tq4_wbuf *buffer) { Tq4_wbuf_print(buffer, format, args); });
        va_end(args);
    }

public:
    explicit String_output(Tq4_byte_writer &to) : m_to(to) {}

    // The text of a value, a key or a string, until the next is asked for. One that lies in the string that is written
    // to would move, and is copied.
    template <class From> Text Of(const From &from) {
        Text text;
        m_to.WithBuffer([&](Tq4_wbuf *) { text = Text(from); });
        if (!m_to.Holds(text.data)) return text;
        m_aside.assign(text.data, text.size);
        return {m_aside.c_str(), m_aside.size()};
    }
    template <std::size_t n> void Literal(const char (&literal)[n]) {
        if constexpr (n == 2)
            m_to.Put(static_cast<uint8_t>(literal[0]));
        else
            m_to.PutBytes({reinterpret_cast<const uint8_t *>(literal), n - 1});
    }
    void Quoted(Text text, const char *after = "") {
        uint8_t *room = m_to.Extend(text.size + 2);
        if (!room) return;
        room[0] = '"';
        std::memcpy(room + 1, text.data, text.size);
        room[text.size + 1] = '"';
        if (*after) m_to.PutBytes({reinterpret_cast<const uint8_t *>(after), std::strlen(after)});
    }
    void Character(char c) { m_to.Put(static_cast<uint8_t>(c)); }
    void QuotedInside(const Tq4_text_cell &cell) {
        if (!m_to.Reserve(sizeof cell + 2))
            return Quoted(Text(reinterpret_cast<const char *>(cell.raw()), cell.most_inside));
        m_to.Fill([&](uint8_t *room, const uint8_t *) {
            *room = '"';
            uint8_t *end = Put_cell()(room + 1, cell);
            *end = '"';
            return end + 1;
        });
    }
    void ShortMembers(Tq4_table_walk &walk) { Tq4_put_short_members(m_to, walk, Put_cell()); }
    template <class... Args> void Format(const char *format, Args... args) { Print(format, args...); }
    template <class Integer>
    requires std::is_integral_v<Integer>
    void Format(const char *format, Integer number) {
        const bool decimal = format[std::strlen(format) - 1] == 'd' || format[std::strlen(format) - 1] == 'u';
        if (!decimal) return Print(format, number);
        char digits[24];
        const char *end = std::to_chars(digits, digits + sizeof digits, number).ptr;
        m_to.PutBytes({reinterpret_cast<uint8_t *>(digits), static_cast<std::size_t>(end - digits)});
    }
};

template <class Output> class Printer {
    Output m_out;
    const bool m_compact;

public:
    Printer(Output out, bool compact) : m_out(out), m_compact(compact) {}

    void PrintTable(const Tq4_value_table_obj &outermost, int indent);
    void PrintValue(const Value &v, int indent);

private:
    using Row = void (Printer::*)(const Value &, int indent);
    static const Tq4_value_table_of<Row> rows;

    template <class Type> static constexpr Row RowOf() {
        using enum Tq4_value_storage;
        constexpr auto storage = Type::storage;
        if constexpr (storage == text) return &Printer::Quoted;
        if constexpr (storage == texts) return &Printer::Strings;
        if constexpr (storage == table) return &Printer::Nested;
        if constexpr (std::is_void_v<typename Type::Printed>)
            return &Printer::Nothing;
        else if constexpr (storage == packed)
            return &Printer::Packed<Type>;
        else if constexpr (storage == cell && Type::is_floating)
            return &Printer::Floating<Type>;
        else
            return &Printer::Word<Type>;
    }

    void Tabs(int count) {
        while (count-- > 0) m_out.Literal("\t");
    }
    void LineStart(int indent) {
        if (m_compact) return;
        m_out.Literal("\n");
        Tabs(indent);
    }
    const Tq4_kv_pair *BeginEntry(Tq4_table_walk &walk, int indent);
    void PrintKey(const Tq4_key_obj &key);

    void Nothing(const Value &, int) {}
    // The word narrowed to the type that the format prints; a format takes at least an int.
    template <class Type> void Word(const Value &v, int) {
        const auto number = static_cast<typename Type::Printed>(v.m_data.word);
        m_out.Format(Type::format, +number);
    }
    template <class Type> void Floating(const Value &v, int) {
        typename Type::Element number;
        std::memcpy(&number, v.m_data.cell, sizeof number);
        m_out.Format(Type::format, static_cast<double>(number));
    }
    void Quoted(const Value &v, int) {
        if (const Tq4_text_cell *cell = v.m_data.text.inside()) return m_out.QuotedInside(*cell);
        m_out.Quoted(m_out.Of(v));
    }
    template <class Type> void Packed(const Value &v, int indent);
    void Strings(const Value &v, int indent);
    void Nested(const Value &v, int indent) {
        if (const Tq4_value_table_obj *table = v.table_record()) PrintTable(*table, indent + 1);
    }

    // The layout of a bracketed list: open, then element(i) for each, then close.
    template <class Element> void List(unsigned long count, int indent, Element element);
};

// The marker behind the arrays, LDOUBLE and others without a format print nothing.
template <class Output> const Tq4_value_table_of<typename Printer<Output>::Row>
    Printer<Output>::rows = Tq4_value_rows([](auto row) { return RowOf<decltype(row)>(); });

template <class Output> void Printer<Output>::PrintValue(const Value &v, int indent) {
    if (v.is_text()) return Quoted(v, indent); // most are, and need no look into the rows
    (this->*rows[v.m_type])(v, indent);
}

template <class Output> template <class Element>
void Printer<Output>::List(unsigned long count, int indent, Element element) {
    const int inner = m_compact ? 0 : indent + 1;
    Tabs(inner);
    m_compact ? m_out.Literal("[") : m_out.Literal("[\n");
    for (unsigned long i = 0; i < count; ++i) {
        Tabs(inner);
        element(i);
        if (!m_compact) m_out.Literal("\n");
    }
    Tabs(inner);
    m_out.Literal("]");
}

template <class Output> template <class Type> void Printer<Output>::Packed(const Value &v, int indent) {
    using Element = typename Type::Printed;
    const unsigned long count = v.bytes().size / sizeof(Element);
    List(count, indent, [&](unsigned long i) {
        Element element;
        std::memcpy(&element, v.bytes().data + i * sizeof element, sizeof element);
        m_out.Format(Type::format, element);
        if (i + 1 < count) m_out.Literal(",");
    });
}

template <class Output> void Printer<Output>::Strings(const Value &v, int indent) {
    Tq4_string_array array = v.m_data.array;
    const unsigned long count = array ? (*array)->Size(array) : 0;
    if (!m_compact) m_out.Literal("\n");
    List(count, indent,
         [&](unsigned long i) { m_out.Quoted(m_out.Of((*array)->At(array, i)), i + 1 < count ? "," : ""); });
}

template <class Output> void Printer<Output>::PrintTable(const Tq4_value_table_obj &outermost, int indent) {
    Tq4_table_walk walk(outermost);
    LineStart(indent);
    do {
        while (const Tq4_kv_pair *pair = BeginEntry(walk, indent)) {
            if (const Tq4_value_table_obj *inner = Tq4_table_walk::TableIn(pair->value())) {
                walk.Enter(*inner);
                LineStart(++indent);
            } else {
                PrintValue(pair->value(), indent);
            }
        }
        if (!walk.begun()) m_out.Literal("{");
        LineStart(indent--);
        walk.array() ? m_out.Literal("]") : m_out.Literal("}");
    } while (walk.Leave());
}

// The next entry whose value is not printed yet, behind all that stands before the value; null at the end of the table.
template <class Output> const Tq4_kv_pair *Printer<Output>::BeginEntry(Tq4_table_walk &walk, int indent) {
    const bool array = walk.array();
    if (m_compact && !array) m_out.ShortMembers(walk);
    const char before = walk.begun() ? ',' : array ? '[' : '{';
    const Tq4_kv_pair *pair = walk.Next();
    if (!pair) return nullptr;
    m_out.Character(before);
    // In an array, strings and tables start their own line, after the tabs of this one.
    if (!m_compact && !(array && pair->value().m_type >= Tq4_value_ArrayOtherObject)) m_out.Literal("\n");
    if (!m_compact) Tabs(indent);
    if (array) return pair;
    PrintKey(pair->key());
    m_out.Literal(":");
    return pair;
}

template <class Output> void Printer<Output>::PrintKey(const Tq4_key_obj &key) {
    const unsigned number = key.m_type == Tq4_key_type_LS ? static_cast<unsigned>(key.GetL()) : key.GetIL();
    switch (key.m_type) {
    case Tq4_key_type_I:
        return m_out.Format("\"%u\"", key.GetIL());
    case Tq4_key_type_L:
        return m_out.Format("\"%lu\"", key.GetL());
    case Tq4_key_type_II:
        return m_out.Format("\"%u_%u\"", key.GetIH(), key.GetIL());
    case Tq4_key_type_IS:
    case Tq4_key_type_LS:
        return m_out.Format("\"%s_%u\"", m_out.Of(key).data, number);
    // With a colon of its own before the one that follows every key, deliberately.
    case Tq4_key_type_IIS:
        return m_out.Format("\"%s_%u\":", m_out.Of(key).data, number);
    default:
        return key.sid.inside() ? m_out.QuotedInside(key.sid) : m_out.Quoted(m_out.Of(key));
    }
}

void print_through_debug(void *, const char *format, ...) {
    va_list args;
    va_start(args, format);
    Tq4_debug_api->vPrintf(0, format, args);
    va_end(args);
}

} // namespace

void Tq4_value_obj::Echo(Tq4_echo echo, void *context, int compact) const {
    if (echo) Printer(Echo_output(echo, context), compact != 0).PrintValue(*this, 0);
}

void Tq4_value_obj::Print() const { Echo(print_through_debug, nullptr, 0); }

const char *Tq4_value_obj::Json_encode(Tq4_string out) const {
    if (!out) {
        Print();
        return "";
    }
    {
        Tq4_byte_writer to(&Tq4_record<Tq4_string_obj>(out)->m_buf);
        Printer(String_output(to), true).PrintValue(*this, 0);
    }
    return (*out)->c_str(out);
}

void Tq4_value_table_obj::Echo(Tq4_echo echo, void *context, int compact) const {
    if (echo) Printer(Echo_output(echo, context), compact != 0).PrintTable(*this, 0);
}

void Tq4_value_table_obj::Print() const { Echo(print_through_debug, nullptr, 0); }

const char *Tq4_value_table_obj::Json_encode(Tq4_string out) const {
    if (!out) {
        Print();
        return "";
    }
    {
        Tq4_byte_writer to(&Tq4_record<Tq4_string_obj>(out)->m_buf);
        Printer(String_output(to), true).PrintTable(*this, 0);
    }
    return (*out)->c_str(out);
}

const char *Tq4_value_itf_Json(Tq4_value v, Tq4_string out) {
    return v ? Tq4_record<Tq4_value_obj>(v)->Json_encode(out) : nullptr;
}
