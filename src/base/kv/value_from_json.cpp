// value_from_json: values from JSON text, so that ToJson gives an equal document.
//
// The parser's events build a value of their own, which the caller's becomes when the text is complete. A container
// that is being filled stands on a stack. An array keeps its elements packed while they are of one kind, and becomes a
// table of entries without keys at the first that is not; so only the innermost array is ever packed. Numbers wait
// side by side until their array ends and its element is known.
#include <algorithm>
#include <charconv>
#include <climits>
#include <functional>
#include <vector>

#include "assert.hpp"
#include "base/kv/json_parser/json_parser.hpp"
#include "base/kv/json_utf8.hpp"
#include "base/kv/table.hpp"
#include "base/string/string.hpp"
#include "c_locale.hpp"

namespace {

using Value = Tq4_value_obj;

// A number of the text: an integer when it is written as one and fits 64 bits.
struct Number {
    enum Kind : uint8_t { negative, positive, floating } kind; // positive: 0 too
    union {
        int64_t integer;
        uint64_t word;
        double real;
    };

    // False when it is beyond all doubles.
    bool Read(const char *text, size_t length, bool is_integer) {
        const char *const end = text + length;
        kind = *text == '-' ? negative : positive;
        if (is_integer && kind == positive && std::from_chars(text, end, word).ec == std::errc()) return true;
        if (is_integer && kind == negative && std::from_chars(text, end, integer).ec == std::errc()) return true;
        kind = floating;
        if (std::from_chars(text, end, real).ec == std::errc()) return true;
        real = strtod_l(text, nullptr, Tq4_c_locale()); // too small to be anything but 0, or beyond
        return real > -1 && real < 1;
    }

    void Store(Value &v) const {
        if (kind == floating)
            v.SetDouble(real);
        else if (integer >= INT_MIN && integer <= INT_MAX && (kind == negative || word <= INT_MAX))
            v.SetScalar<Tq4_value_INT>(static_cast<int>(integer));
        else if (kind == negative || word <= LONG_MAX)
            v.SetScalar<Tq4_value_LONG>(static_cast<long>(integer));
        else
            v.SetScalar<Tq4_value_ULONG>(static_cast<unsigned long>(word));
    }
};

// The numbers of the innermost array.
class Numbers {
    std::vector<uint64_t> m_words;
    Number::Kind m_kind = Number::positive; // of all: floating, or integers of which some are negative
    uint64_t m_most = 0;                    // the largest that is not negative
    int64_t m_least = 0;

    template <Tq4_value_type tag, class Element> void Pack(Value &v) const {
        std::vector<Element> elements;
        elements.reserve(m_words.size());
        for (uint64_t word : m_words) elements.push_back(static_cast<Element>(word));
        v.SetBytes(tag, elements.data(), elements.size() * sizeof(Element));
    }

public:
    bool empty() const { return m_words.empty(); }
    void Clear() {
        m_words.clear();
        m_kind = Number::positive;
        m_most = 0;
        m_least = 0;
    }

    // False when one array cannot hold it beside those before.
    bool Add(const Number &number) {
        if (!empty() && (number.kind == Number::floating) != (m_kind == Number::floating)) return false;
        const int64_t least = number.kind == Number::negative ? std::min(m_least, number.integer) : m_least;
        const uint64_t most = number.kind == Number::positive ? std::max(m_most, number.word) : m_most;
        if (least < 0 && most > LONG_MAX) return false;
        m_least = least;
        m_most = most;
        if (empty() || number.kind == Number::negative) m_kind = number.kind;
        m_words.push_back(number.word);
        return true;
    }

    // The value becomes the narrowest array of them.
    void Store(Value &v) const {
        if (m_kind == Number::floating)
            v.SetBytes(Tq4_value_PDOUBLE, m_words.data(), m_words.size() * sizeof(double));
        else if (m_least >= INT_MIN && m_most <= INT_MAX)
            Pack<Tq4_value_PINT, int>(v);
        else
            v.SetBytes(m_most > LONG_MAX ? Tq4_value_PULONG : Tq4_value_PLONG, m_words.data(),
                       m_words.size() * sizeof(uint64_t));
    }

    template <class Each> void ForEach(Each each) const {
        for (uint64_t word : m_words) {
            Number number;
            number.word = word;
            number.kind = m_kind == Number::floating          ? m_kind
                          : number.integer < 0 && m_least < 0 ? Number::negative
                                                              : Number::positive;
            each(number);
        }
    }
};

struct Token {
    const char *text;
    size_t length;
    const uint8_t *bytes() const { return reinterpret_cast<const uint8_t *>(text); }
};

class Reader {
    struct Container {
        Value *value;               // borrowed
        Tq4_value_table_obj *table; // borrowed; null in an array that is packed
        bool array;
        std::size_t expected; // entries: as many as the container before it had
        std::size_t last = 1; // entries of the container in it that ended last
    };

    Value *const m_root;    // borrowed
    const Tq4_bytes m_text; // borrowed: all of it
    std::vector<Container> m_open;
    Numbers m_numbers;                  // of the innermost array
    Tq4_string_array m_texts = nullptr; // the innermost array itself, when it is one of texts; borrowed
    Tq4_bytes m_key = {};
    Tq4_string_obj m_key_aside{nullptr}; // the key, when it does not lie in the text as it is
    size_t m_refused = 0;                // the length of a number that is too large

public:
    Reader(Value &root, Tq4_bytes text) : m_root(&root), m_text(text) {}

    static int Event(void *self, int type, const char *text, size_t length) {
        return !(static_cast<Reader *>(self)->*handlers[type])({text, length});
    }
    // How far before the parser's position the fault is that it was told of.
    size_t refused() const { return m_refused; }

private:
    using Handler = bool (Reader::*)(Token);
    static const Handler handlers[JSON_NULL + 1];

    // How many bytes may be read where a text of the parser's begins.
    std::size_t Readable(Tq4_bytes text) const {
        const auto *end = m_text.data + m_text.size;
        const bool in_text = std::less_equal<>()(m_text.data, text.data) && std::less<>()(text.data, end);
        return in_text ? static_cast<std::size_t>(end - text.data) : text.size;
    }
    bool packed() const { return !m_open.empty() && !m_open.back().table; }

    // The value that comes next. In an array: a new entry. In an object: the pending key's, empty also when the key was
    // there before. Null when the host makes no table for it.
    Value *Next() {
        if (m_open.empty()) return m_root;
        const Container &container = m_open.back();
        Tq4_value_table_obj *table = container.table ? container.table : Unpack();
        if (!table) return nullptr;
        table->m_room.Foresee(container.expected);
        if (container.array) return &table->NewPairAtTail()->value();
        Value &member = table->DecodedMember(m_key, Readable(m_key));
        member.Reset();
        return &member;
    }
    template <class Store> bool StoreNext(Store store) {
        Value *v = Next();
        if (v) store(*v);
        return v;
    }

    // The innermost array becomes a table.
    Tq4_value_table_obj *Unpack() {
        Container &container = m_open.back();
        Value former;
        former.Swap(*container.value);
        container.table = container.value->make_table();
        if (!container.table) return nullptr;
        const auto element = [&]() -> Value & { return container.table->NewPairAtTail()->value(); };
        m_numbers.ForEach([&](const Number &number) { number.Store(element()); });
        const unsigned long texts = m_texts ? (*m_texts)->Size(m_texts) : 0;
        for (unsigned long i = 0; i < texts; ++i) {
            const Tq4_bytes text = Tq4_record<const Tq4_string_obj>((*m_texts)->At(m_texts, i))->view();
            element().SetBytes(Tq4_value_PCHAR, text.data, text.size);
        }
        Pack_anew();
        return container.table;
    }
    void Pack_anew() {
        m_numbers.Clear();
        m_texts = nullptr;
    }

    bool Nothing(Token) { return true; }

    bool Begin(bool array) {
        Value *v = Next();
        Tq4_value_table_obj *table = v && !array ? v->make_table() : nullptr;
        m_open.push_back({v, table, array, m_open.empty() ? 1 : m_open.back().last});
        return array ? v != nullptr : table != nullptr;
    }
    bool ObjectBegin(Token) { return Begin(false); }
    bool ArrayBegin(Token) {
        const bool begun = Begin(true);
        Pack_anew();
        return begun;
    }
    bool End(Token) {
        const Container container = m_open.back();
        m_open.pop_back();
        if (!container.table && !m_texts) m_numbers.Store(*container.value);
        if (!m_open.empty()) m_open.back().last = container.table ? container.table->Count() : 1;
        return true;
    }

    bool Numeral(Token token, bool is_integer) {
        Number number;
        if (!number.Read(token.text, token.length, is_integer)) return m_refused = token.length, false;
        if (packed() && !m_texts && m_numbers.Add(number)) return true;
        return StoreNext([&](Value &v) { number.Store(v); });
    }
    bool Integer(Token token) { return Numeral(token, true); }
    bool Floating(Token token) { return Numeral(token, false); }

    // As many texts of such a length as the encoding of a string array can tell.
    bool Text(Token token) {
        if (packed() && m_numbers.empty() && token.length <= UINT16_MAX) {
            Value &v = *m_open.back().value;
            if (!m_texts) v.Init(Tq4_value_STRINGARRAY);
            m_texts = v.m_data.array;
            if (!m_texts) return false;
            if ((*m_texts)->Size(m_texts) < UINT16_MAX) return (*m_texts)->Add(m_texts, token.text, token.length), true;
        }
        const Tq4_bytes text{token.bytes(), token.length};
        return StoreNext([&](Value &v) { v.FillBytes(Tq4_value_PCHAR, text, Readable(text)); });
    }

    bool Key(Token token) {
        m_key = {token.bytes(), token.length};
        if (Readable(m_key) > m_key.size) return true; // at least a quotation mark follows in the text
        m_key_aside.Memcpy(token.text, token.length);
        m_key = m_key_aside.view();
        return true;
    }

    bool True(Token) {
        return StoreNext([](Value &v) { v.SetTruth(true); });
    }
    bool False(Token) {
        return StoreNext([](Value &v) { v.SetTruth(false); });
    }
    bool Null(Token) { return Next(); }
};

const Reader::Handler Reader::handlers[JSON_NULL + 1] = {
    &Reader::Nothing,  &Reader::ArrayBegin, &Reader::ObjectBegin, &Reader::End,  &Reader::End,   &Reader::Integer,
    &Reader::Floating, &Reader::Text,       &Reader::Key,         &Reader::True, &Reader::False, &Reader::Null,
};

} // namespace

// A byte that is part of no character ends the text for the parser, which may find a fault before it.
int Tq4_value_obj::FromJson(const char *text, long len, long *error_at) {
    long none;
    long &at = error_at ? *error_at : none;
    at = 0;
    if (!text || len < -1) return 0;
    const Tq4_bytes whole = Tq4_text_bytes(text, static_cast<unsigned long>(len));
    const size_t characters = Tq4_json_characters(whole.data, whole.size);
    Value fresh;
    Reader reader(fresh, whole);
    json_parser parser;
    size_t taken = 0;
    int error = json_parser_init(&parser, nullptr, Reader::Event, &reader);
    if (!error) error = json_parser_string(&parser, text, characters, &taken);
    if (!error && characters == whole.size) error = json_parser_done(&parser);
    json_parser_free(&parser);
    at = static_cast<long>(taken - reader.refused());
    if (error || characters < whole.size) return 0;
    at = 0;
    Swap(fresh);
    return 1;
}
