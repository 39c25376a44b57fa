// value_to_json: values as JSON text that any program reads (RFC 8259).
//
// A walk goes through nested tables, so that a caller may nest them as deep as it likes. Texts are copied in runs of
// bytes that need no look; a short one, whose bytes lie in the value, is looked at and copied as a whole. A pointer has
// no JSON: it refuses the whole text, of which nothing stays.
#include <bit>
#include <charconv>
#include <cmath>
#include <cstring>
#include <string>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include "assert.hpp"
#include "base/kv/json_utf8.hpp"
#include "base/kv/short_members.hpp"
#include "base/kv/value_types.hpp"
#include "base/string/string.hpp"

namespace {

using Value = Tq4_value_obj;

// A byte that stands for itself between quotation marks, and is a character.
bool is_plain(uint8_t byte) { return byte >= 0x20 && byte < 0x80 && byte != '"' && byte != '\\'; }

#ifdef __SSE2__
// A bit for each of sixteen bytes that is not plain.
unsigned not_plain(const uint8_t *sixteen) {
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i *>(sixteen));
    const __m128i control = _mm_cmplt_epi8(bytes, _mm_set1_epi8(0x20)); // signed: from 80 on, too
    const __m128i marks =
        _mm_or_si128(_mm_cmpeq_epi8(bytes, _mm_set1_epi8('"')), _mm_cmpeq_epi8(bytes, _mm_set1_epi8('\\')));
    return static_cast<unsigned>(_mm_movemask_epi8(_mm_or_si128(control, marks)));
}
#endif

std::size_t plain_run(const uint8_t *bytes, std::size_t n) {
    std::size_t at = 0;
#ifdef __SSE2__
    for (; n - at >= sizeof(__m128i); at += sizeof(__m128i))
        if (const unsigned others = not_plain(bytes + at))
            return at + static_cast<std::size_t>(std::countr_zero(others));
#endif
    while (at < n && is_plain(bytes[at])) ++at;
    return at;
}

// Copies a text that lies in its cell and needs no escapes, with whatever the cell holds behind it, by moves of fixed
// size, and returns its end; null when it is another text.
struct Put_plain {
    [[gnu::always_inline]] uint8_t *operator()([[maybe_unused]] uint8_t *room,
                                               [[maybe_unused]] const Tq4_text_cell &cell) const {
#ifdef __SSE2__
        if (!cell.inside()) return nullptr;
        const uint8_t(&raw)[sizeof(Tq4_text_cell)] = cell.raw();
        constexpr std::size_t second = sizeof raw - sizeof(__m128i);
        const std::size_t size = cell.size_inside();
        const unsigned others = not_plain(raw) | not_plain(raw + second) << second;
        if (others & ((1u << size) - 1)) return nullptr;
        std::memcpy(room, raw, sizeof raw);
        return room + size;
#else
        return nullptr;
#endif
    }
};

class Json_text {
    using Row = void (Json_text::*)(const Value &);
    static const Tq4_value_table_of<Row> rows;

    Tq4_byte_writer &m_to;
    const bool m_pretty;
    std::size_t m_depth = 0; // of the lists that are open
    std::string m_aside;     // a text that lay in the buffer

public:
    Json_text(Tq4_byte_writer &to, bool pretty) : m_to(to), m_pretty(pretty) {}

    void Write(const Value &root) {
        if (const Tq4_value_table_obj *table = Tq4_table_walk::TableIn(root)) return Tables(*table);
        Put(root);
    }

private:
    void Put(const Value &v) {
        if (v.is_text()) return Text(v); // most are
        (this->*rows[v.m_type])(v);
    }

    template <class Type> static constexpr Row RowOf() {
        using enum Tq4_value_storage;
        constexpr auto storage = Type::storage;
        if constexpr (storage == word || storage == cell) return &Json_text::Scalar<typename Type::Element>;
        if constexpr (storage == address) return &Json_text::Refuse;
        if constexpr (storage == text) return &Json_text::Text;
        if constexpr (storage == packed) return &Json_text::Packed<typename Type::Element>;
        if constexpr (storage == texts) return &Json_text::Texts;
        if constexpr (storage == table) return &Json_text::Empty_table;
        return &Json_text::Null;
    }

    template <std::size_t n> void Literal(const char (&literal)[n]) {
        m_to.PutBytes({reinterpret_cast<const uint8_t *>(literal), n - 1});
    }
    void Character(char c) { m_to.Put(static_cast<uint8_t>(c)); }
    void Refuse(const Value &) { m_to.Refuse(); }
    void Null(const Value &) { Literal("null"); }

    // ---- containers

    void Tables(const Tq4_value_table_obj &outermost) {
        Tq4_table_walk walk(outermost);
        ++m_depth;
        do {
            while (const Tq4_kv_pair *pair = NextEntry(walk)) {
                if (!walk.array()) Key(pair->key());
                if (const Tq4_value_table_obj *inner = Tq4_table_walk::TableIn(pair->value())) {
                    walk.Enter(*inner);
                    ++m_depth;
                } else {
                    Put(pair->value());
                }
            }
            --m_depth;
            if (!walk.begun()) {
                Literal("{}");
                continue;
            }
            Line(m_depth);
            Character(walk.array() ? ']' : '}');
        } while (walk.Leave());
    }
    void Empty_table(const Value &) { Literal("{}"); }

    // The next entry that has to be looked at, and what stands before it; null at the end of the innermost table.
    const Tq4_kv_pair *NextEntry(Tq4_table_walk &walk) {
        if (!m_pretty && !walk.array()) Tq4_put_short_members(m_to, walk, Put_plain());
        const bool first = !walk.begun();
        const Tq4_kv_pair *pair = walk.Next();
        if (pair) Begin(first, walk.array());
        return pair;
    }
    // What stands before an element of the innermost list.
    void Begin(bool first, bool array) {
        Character(!first ? ',' : array ? '[' : '{');
        Line(m_depth);
    }
    void Line(std::size_t depth) {
        if (!m_pretty) return;
        Character('\n');
        while (depth--) Literal("  ");
    }

    // The elements of an array that is no table.
    template <class Element> void List(unsigned long count, Element element) {
        if (!count) return Literal("[]");
        for (unsigned long i = 0; i < count; ++i) {
            Character(i ? ',' : '[');
            Line(m_depth + 1);
            element(i);
        }
        Line(m_depth);
        Character(']');
    }

    template <class Element> void Packed(const Value &v) {
        List(Bytes(v).size / sizeof(Element), [&](unsigned long i) {
            Element element;
            std::memcpy(&element, v.bytes().data + i * sizeof element, sizeof element);
            Number(element);
        });
    }

    void Texts(const Value &v) {
        Tq4_string_array array = v.m_data.array;
        List(array ? (*array)->Size(array) : 0, [&](unsigned long i) { Quoted(Bytes((*array)->At(array, i))); });
    }

    // ---- numbers

    template <class As> void Scalar(const Value &v) {
        if (v.is_truth()) return v.m_data.word ? Literal("true") : Literal("false");
        As number;
        std::memcpy(&number, &v.m_data, sizeof number); // a word is kept in host order
        if constexpr (std::is_integral_v<As>) number = static_cast<As>(v.m_data.word);
        Number(number);
    }

    // The shortest digits that read back, with what tells that the number is no integer.
    template <class As> void Number(As number) {
        char digits[40];
        char *end = digits;
        if constexpr (std::is_same_v<As, long double>) {
            return Number(static_cast<double>(number));
        } else if constexpr (std::is_floating_point_v<As>) {
            if (!std::isfinite(number)) return Literal("null");
            end = std::to_chars(digits, std::end(digits), number).ptr;
            if (std::string_view(digits, static_cast<std::size_t>(end - digits)).find_first_of(".e") ==
                std::string::npos)
                end = std::copy_n(".0", 2, end);
        } else if constexpr (sizeof number == 1) {
            end = std::to_chars(digits, std::end(digits), int{number}).ptr;
        } else {
            end = std::to_chars(digits, std::end(digits), number).ptr;
        }
        m_to.PutBytes({reinterpret_cast<uint8_t *>(digits), static_cast<std::size_t>(end - digits)});
    }

    // ---- texts

    // Bytes that may lie in the buffer itself are complete there, and copied where they do: they would move.
    Tq4_bytes Settled(Tq4_bytes bytes) {
        if (!m_to.Holds(bytes.data)) return bytes;
        m_aside.assign(reinterpret_cast<const char *>(bytes.data), bytes.size);
        return {reinterpret_cast<const uint8_t *>(m_aside.data()), m_aside.size()};
    }
    Tq4_bytes Bytes(const Value &v) {
        if (!v.m_data.text.string()) return v.bytes();
        m_to.Settle(0);
        return Settled(v.bytes());
    }
    Tq4_bytes Bytes(Tq4_string string) {
        m_to.Settle(0);
        return string ? Settled(Tq4_record<const Tq4_string_obj>(string)->view()) : Tq4_bytes{nullptr, 0};
    }
    Tq4_bytes Bytes(const Tq4_key_obj &key) {
        if (key.sid.string()) m_to.Settle(0);
        return Settled(key.text());
    }

    void Text(const Value &v) {
        if (const Tq4_text_cell *cell = v.m_data.text.inside(); cell && QuotedInside(*cell, "")) return;
        Quoted(Bytes(v));
    }

    void Quoted(Tq4_bytes text) {
        Character('"');
        Escaped(text);
        Character('"');
    }

    // A text that lies in its cell and needs no escapes. False when it is another one.
    template <std::size_t n> bool QuotedInside(const Tq4_text_cell &cell, const char (&after)[n]) {
        if (!m_to.Reserve(sizeof cell + 2 + n)) return false;
        bool done = false;
        m_to.Fill([&](uint8_t *room, const uint8_t *) {
            *room = '"';
            uint8_t *end = Put_plain()(room + 1, cell);
            if (!end) return room;
            done = true;
            *end = '"';
            std::memcpy(end + 1, after, n - 1);
            return end + n;
        });
        return done;
    }

    void Escaped(Tq4_bytes text) {
        TQ4_CHECK(text.data || text.size == 0);
        const uint8_t *at = text.data;
        for (std::size_t left = text.size; left;) {
            std::size_t taken = plain_run(at, left);
            m_to.PutBytes({at, taken});
            if (taken < left && at[taken] < 0x80)
                Escape(at[taken++]);
            else if (taken < left)
                taken += Beyond_ascii(at + taken, left - taken);
            at += taken;
            left -= taken;
        }
    }

    void Escape(uint8_t byte) {
        static constexpr char named[] = "\"\"\\\\\bb\ff\nn\rr\tt";
        for (const char *name = named; *name; name += 2)
            if (static_cast<uint8_t>(*name) == byte) return Character('\\'), Character(name[1]);
        static constexpr char digits[] = "0123456789abcdef";
        const char code[] = {'\\', 'u', '0', '0', digits[byte >> 4], digits[byte & 15]};
        m_to.PutBytes({reinterpret_cast<const uint8_t *>(code), sizeof code});
    }

    // Characters up to the next ASCII one, or a replacement for bytes that are none. Returns the bytes taken.
    std::size_t Beyond_ascii(const uint8_t *bytes, std::size_t n) {
        std::size_t at = 0;
        while (at < n && bytes[at] >= 0x80) {
            const int length = Tq4_json_character(bytes + at, n - at);
            if (length < 0 && at) break;
            if (length < 0) return Literal("\xEF\xBF\xBD"), static_cast<std::size_t>(-length);
            at += static_cast<std::size_t>(length);
        }
        m_to.PutBytes({bytes, at});
        return at;
    }

    // ---- keys

    void Key(const Tq4_key_obj &key) {
        const bool is_text = key.m_type == Tq4_key_type_String;
        if (is_text && !m_pretty && QuotedInside(key.sid, ":")) return;
        Character('"');
        Name(key);
        m_pretty ? Literal("\": ") : Literal("\":");
    }

    void Name(const Tq4_key_obj &key) {
        switch (key.m_type) {
        case Tq4_key_type_I:
            return Number(key.GetIL());
        case Tq4_key_type_L:
            return Number(key.GetL());
        case Tq4_key_type_II:
            return Number(key.GetIH()), Character('_'), Number(key.GetIL());
        case Tq4_key_type_IS:
            return Escaped(Bytes(key)), Character('_'), Number(key.GetIL());
        case Tq4_key_type_LS:
            return Escaped(Bytes(key)), Character('_'), Number(key.GetL());
        case Tq4_key_type_IIS:
            return Escaped(Bytes(key)), Character('_'), Number(key.GetIH()), Character('_'), Number(key.GetIL());
        default:
            return Escaped(Bytes(key));
        }
    }
};

const Tq4_value_table_of<Json_text::Row> Json_text::rows =
    Tq4_value_rows([](auto row) { return RowOf<decltype(row)>(); });

} // namespace

int Tq4_value_obj::ToJson(Tq4_string out, int pretty) const {
    if (!out) return 0;
    Tq4_byte_writer to(&Tq4_record<Tq4_string_obj>(out)->m_buf);
    Json_text(to, pretty != 0).Write(*this);
    return to.Finish() > 0;
}
