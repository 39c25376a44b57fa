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
    Value *obj; // borrowed: the value being filled
    bool array_flag;
    std::size_t expected;                 // entries: as many as the container before it had
    uint64_t taken;                       // of the budget, when it was opened
    std::size_t last = 1;                 // entries of the container in it that ended last
    Tq4_value_table_obj *table = nullptr; // borrowed: what it holds, from its first entry on
    bool fresh = false;                   // the table was empty then, and ignores no case
};

struct Tq4_value_Json_decode_data {
    Value *root;    // borrowed
    Tq4_bytes text; // borrowed: all of it
    Tq4_decode_budget budget{Tq4_decode_budget::Allowance(text.size)};
    std::vector<Tq4_value_Json_Obj> chain;
    Value spare; // what is filled instead of an entry beyond the budget; the event that asks for it is the last
    Tq4_string_obj temp{nullptr}; // the pending key, when it does not lie in the text as it is
    Tq4_bytes key{};              // its bytes up to the first NUL

    // How many bytes may be read where a text of the parser's begins.
    std::size_t readable(Tq4_bytes token) const {
        const auto *end = text.data + text.size;
        const bool in_text = std::less_equal<>()(text.data, token.data) && std::less<>()(token.data, end);
        return in_text ? static_cast<std::size_t>(end - token.data) : token.size;
    }
    bool in_array() const { return !chain.empty() && chain.back().array_flag; }
    // The value that a new scalar or container goes to: of the pending member, or the root.
    Value &member() {
        if (chain.empty()) return *root;
        uint64_t cost;
        Tq4_value_table_obj *table = table_for_one_more(cost);
        if (!table) return spare;
        const unsigned long before = table->Count();
        Value &v = chain.back().fresh ? table->DecodedMember(key, readable(key)) : table->ValueOf(key, readable(key));
        if (table->Count() == before) return v;
        budget.Take(cost);
        budget.Bytes(key.size);
        return v;
    }
    // The value of a new unkeyed entry at the end of the array being filled.
    Value &element() {
        uint64_t cost;
        Tq4_value_table_obj *table = table_for_one_more(cost);
        if (!table) return spare;
        budget.Take(cost);
        return table->NewPairAtTail()->value();
    }
    // The table of the container being filled, with room for an entry more, and what that entry costs. Null when it is
    // too much, or the host makes no table: then nothing fits from now on.
    Tq4_value_table_obj *table_for_one_more(uint64_t &cost) {
        Tq4_value_Json_Obj &container = chain.back();
        if (!container.table || !container.obj->is(Tq4_value_Table)) begin_table(container);
        if (!container.table) return budget.Close(), nullptr;
        auto &room = container.table->m_room;
        const std::size_t rooms = room.NextBlock(container.expected);
        const bool indexed = !container.array_flag;
        cost = container.fresh ? Tq4_decode_budget::EntryCost(rooms) : Tq4_decode_budget::EntryCostAmong(indexed);
        if (container.fresh && indexed) cost += Tq4_decode_budget::IndexCost(container.table->Count(), rooms);
        if (!budget.Fits(cost)) return nullptr;
        room.Foresee(container.expected);
        return container.table;
    }
    void begin_table(Tq4_value_Json_Obj &container) {
        if (!container.obj->is(Tq4_value_Table)) budget.GiveBackTo(container.taken);
        if (!container.obj->made_table()) budget.Table();
        Tq4_value_table_obj *table = container.table = container.obj->make_table();
        container.fresh = table && table->Count() == 0 && !table->m_case && !table->m_index.case_flag();
    }
    Value &array(Tq4_value_type type) {
        Value &v = *chain.back().obj;
        if (!v.is(type)) {
            budget.GiveBackTo(chain.back().taken);
            v.Init(type);
            if (type == Tq4_value_STRINGARRAY) budget.Array();
        }
        return v;
    }
};

struct Token {
    const char *text;
    size_t length;

    const uint8_t *bytes() const { return reinterpret_cast<const uint8_t *>(text); }
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
    const uint64_t taken = data.budget.taken();
    if ((element || !array) && !v.is(Tq4_value_Table)) {
        if (Tq4_value_hosts_tables()) data.budget.Table();
        v.Init(Tq4_value_Table);
    }
    const std::size_t expected = data.chain.empty() ? 1 : data.chain.back().last;
    data.chain.push_back({&v, array, expected, taken});
}

void close(Decode &data, Token) {
    const Tq4_value_table_obj *table = data.chain.back().obj->table_record();
    data.chain.pop_back();
    if (!data.chain.empty()) data.chain.back().last = table ? table->Count() : 1;
}

// The array of such numbers that is filled, which has been charged for one more.
Value &numbers(Decode &data, Tq4_value_type type, std::size_t width) {
    Value &v = data.array(type);
    data.budget.Appended(v.bytes().size, width);
    return v;
}

void set_integer(Decode &data, int number) {
    if (data.in_array())
        numbers(data, Tq4_value_PINT, sizeof number).AppendElement<Tq4_value_PINT, Tq4_value_PUINT>(number);
    else
        data.member().SetScalar<Tq4_value_INT>(number);
}

void on_float(Decode &data, Token token) {
    if (data.in_array())
        numbers(data, Tq4_value_PFLOAT, sizeof(float)).AppendFloat(token.single());
    else
        data.member().SetFloat(token.single());
}

void on_string(Decode &data, Token token) {
    const std::size_t length = std::min<std::size_t>(token.length, INT_MAX);
    if (data.in_array()) {
        Value &texts = data.array(Tq4_value_STRINGARRAY);
        data.budget.Element(token.length);
        return texts.AppendBytes(token.text, static_cast<int>(length));
    }
    data.budget.Bytes(token.length);
    Value &v = data.member();
    if (v.is(Tq4_value_Unknown))
        v.FillBytes(Tq4_value_PCHAR, {token.bytes(), length}, data.readable({token.bytes(), length}));
    else
        v.SetBytes(Tq4_value_PCHAR, token.text, length);
}

void on_key(Decode &data, Token token) {
    data.key = {token.bytes(), token.length};
    if (data.readable(data.key) > token.length) return; // it lies in the text, where a quotation mark follows
    data.temp.Memcpy(token.text, strnlen(token.text, token.length));
    data.key = data.temp.view();
}

// By event.
using Handler = void (*)(Decode &, Token);
const Handler handlers[] = {
    [](Decode &, Token) {},
    [](Decode &data, Token) { open(data, true); },
    [](Decode &data, Token) { open(data, false); },
    close,
    close,
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
