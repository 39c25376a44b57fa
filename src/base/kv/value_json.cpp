// value_json: values from JSON text.
//
// The parser's events are turned into values as they come. A chain of containers leads from the value being decoded
// to the one being filled; in an object the value of the pending key is found or made, in an array scalars are appended
// to the array's own value, which is initialised anew whenever an element of another kind comes: of a mixed array the
// elements from the last change of kind on remain, deliberately. Objects and arrays in an array make it a table of
// entries without keys.
#include <charconv>
#include <climits>
#include <cstring>
#include <functional>
#include <vector>

#include "base/kv/decode_budget.hpp"
#include "base/kv/json_parser/json_parser.hpp"
#include "base/kv/table.hpp"
#include "base/string/string.hpp"
#include "c_locale.hpp"

namespace {

using Value = Tq4_value_obj;

// A container under way; its parent stands before it in the chain.
struct Tq4_value_Json_Obj {
    Value *obj;                 // borrowed: the value being filled
    Tq4_value_table_obj *table; // borrowed: what it holds, when that is a table
    bool array_flag;
};

struct Tq4_value_Json_decode_data {
    Value *root;    // borrowed
    Tq4_bytes text; // borrowed: all of it
    Tq4_decode_budget budget{Tq4_decode_budget::Whole(text.size)};
    std::vector<Tq4_value_Json_Obj> chain;
    Value spare; // what is filled instead of an entry beyond the budget; the event that asks for it is the last
    Tq4_string_obj temp{nullptr}; // the pending key, when it does not lie in the text as it is
    Tq4_bytes key{};              // its bytes up to the first NUL

    bool in_array() const { return !chain.empty() && chain.back().array_flag; }
    // The value that a new scalar or container goes to: of the pending member, or the root.
    Value &member() {
        if (chain.empty()) return *root;
        Tq4_value_table_obj &table = *chain.back().table;
        const unsigned long before = table.Count();
        if (!budget.Fits(Tq4_decode_budget::EntryCost(before))) return spare;
        Value &v = table.ValueOf(key);
        if (table.Count() != before) CountEntry(before, key.size);
        return v;
    }
    // The value of a new unkeyed entry at the end of the array being filled.
    Value &element() {
        Tq4_value_table_obj *table = chain.back().obj->make_table();
        if (!budget.Fits(Tq4_decode_budget::EntryCost(table->Count()))) return spare;
        CountEntry(table->Count(), 0);
        return table->NewPairAtTail()->value();
    }
    void CountEntry(unsigned long before, std::size_t key_size) {
        budget.Entry(before);
        budget.Bytes(key_size);
    }
    Value &array(Tq4_value_type type) {
        Value &v = *chain.back().obj;
        if (!v.is(type)) {
            v.Init(type);
            if (type == Tq4_value_STRINGARRAY) budget.Array();
        }
        return v;
    }
};

struct Token {
    const char *text;
    size_t length;

    // Numbers that do not fit saturate.
    int integer() const {
        int number = 0;
        if (std::from_chars(text, text + length, number).ec == std::errc::result_out_of_range)
            return *text == '-' ? INT_MIN : INT_MAX;
        return number;
    }
    // The decimal point is a point whatever the locale.
    float single() const {
        float number = 0;
        if (std::from_chars(text, text + length, number).ec == std::errc()) return number;
        return strtof_l(text, nullptr, Tq4_c_locale()); // infinite, or too small to be anything but 0
    }
};

using Decode = Tq4_value_Json_decode_data;

// An array takes the type of its elements as they come; as an element of another one it is an empty table until then.
void open(Decode &data, bool array) {
    const bool element = data.in_array();
    Value &v = element ? data.element() : data.member();
    if (element || !array) data.budget.Table();
    data.chain.push_back({&v, element || !array ? v.make_table() : nullptr, array});
}

void set_integer(Decode &data, int number) {
    if (data.in_array()) data.budget.Appended();
    if (data.in_array())
        data.array(Tq4_value_PINT).AppendElement<Tq4_value_PINT, Tq4_value_PUINT>(number);
    else
        data.member().SetScalar<Tq4_value_INT>(number);
}

void on_float(Decode &data, Token token) {
    if (data.in_array()) data.budget.Appended();
    if (data.in_array())
        data.array(Tq4_value_PFLOAT).AppendFloat(token.single());
    else
        data.member().SetFloat(token.single());
}

void on_string(Decode &data, Token token) {
    const int length = token.length > INT_MAX ? INT_MAX : static_cast<int>(token.length);
    data.in_array() ? data.budget.Element(token.length) : data.budget.Bytes(token.length);
    if (data.in_array())
        data.array(Tq4_value_STRINGARRAY).AppendBytes(token.text, length);
    else
        data.member().SetString(token.text, length);
}

void on_key(Decode &data, Token token) {
    const auto *bytes = reinterpret_cast<const uint8_t *>(token.text);
    const bool in_text =
        std::less_equal<>()(data.text.data, bytes) && std::less<>()(bytes, data.text.data + data.text.size);
    data.key = {bytes, token.length};
    if (in_text) return;
    data.temp.Memcpy(token.text, strnlen(token.text, token.length));
    data.key = data.temp.view();
}

// By event.
using Handler = void (*)(Decode &, Token);
const Handler handlers[] = {
    [](Decode &, Token) {},
    [](Decode &data, Token) { open(data, true); },
    [](Decode &data, Token) { open(data, false); },
    [](Decode &data, Token) { data.chain.pop_back(); },
    [](Decode &data, Token) { data.chain.pop_back(); },
    [](Decode &data, Token token) { set_integer(data, token.integer()); },
    on_float,
    on_string,
    on_key,
    [](Decode &data, Token) { set_integer(data, 1); },
    [](Decode &data, Token) { set_integer(data, 0); },
    [](Decode &, Token) {}, // a null member makes no entry
};
static_assert(std::size(handlers) == JSON_NULL + 1);

int on_event(void *userdata, int type, const char *text, size_t length) {
    auto &data = *static_cast<Decode *>(userdata);
    handlers[type](data, {text, length});
    return data.budget.exceeded();
}

} // namespace

// The text is copied first when it may lie in the value.
int Tq4_value_obj::Json_decode(const char *text, int len) {
    if (!text || len < -1) return 0;
    Tq4_bytes bytes = Tq4_text_bytes(text, static_cast<unsigned long>(static_cast<long>(len)));
    Tq4_string_obj copy(nullptr);
    if (m_type >= Tq4_value_ArrayStart) {
        copy.Memcpy(bytes.data, bytes.size);
        bytes = copy.view();
    }
    Decode data{.root = this, .text = bytes, .chain = {}, .spare = {}};
    json_parser parser;
    int error = json_parser_init(&parser, nullptr, on_event, &data);
    if (!error) error = json_parser_string(&parser, reinterpret_cast<const char *>(bytes.data), bytes.size, nullptr);
    if (!error) error = json_parser_done(&parser);
    json_parser_free(&parser);
    return error == 0;
}
