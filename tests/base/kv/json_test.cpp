// What the JSON side promises: RFC 8259 in, the documented shapes out, and an error for everything else.
#include "base/kv/json_parser/json_parser.hpp"
#include "base/kv/kv_fixture.hpp"

namespace {

// The events of a text, fed in pieces of the given size; an error ends the list as "!code".
Bytes events(const Bytes &text, std::size_t piece = 1000000, const json_config *config = nullptr) {
    Bytes seen;
    json_parser parser;
    const auto keep = [](void *out, int type, const char *token, size_t length) {
        static const char names[] = ".[{]}ifsktFn";
        *static_cast<Bytes *>(out) += names[type] + (token ? Bytes(token, length) : "") + " ";
        return 0;
    };
    int error = json_parser_init(&parser, config, keep, &seen);
    for (std::size_t at = 0; at < text.size() && !error; at += piece) {
        const Bytes part = text.substr(at, piece);
        error = json_parser_string(&parser, part.data(), part.size(), nullptr);
    }
    if (!error) error = json_parser_done(&parser);
    json_parser_free(&parser);
    return error ? seen + "!" + std::to_string(error) : seen;
}

TEST(JsonParser, TellsWhatItReads) {
    const std::tuple<Bytes, Bytes> cases[] = {
        {"{\"a\":[1,-2.5e+3,true,false,null],\"b\":{}}", "{ ka [ i1 f-2.5e+3 t F n ] kb { } } "},
        {"-0.0", "f-0.0 "},
        {"\"\\\"\\\\\\/\\b\\f\\n\\r\\t\"", "s\"\\/\b\f\n\r\t "},
        {"\"\\u0041\\u00e9\\u4e2d\\uD83D\\uDe00\"", "sA\xc3\xa9\xe4\xb8\xad\xf0\x9f\x98\x80 "},
        {"\"\\u0000\"", Bytes("s\0 ", 3)},
        {"\"\xe4\xb8\xad/*#\"", "s\xe4\xb8\xad/*# "},
        {"[1", "[ i1 !8"},
        {"[1,]", "[ i1 !8"},
        {"{\"a\"}", "{ ka !8"},
        {"{1:2}", "{ !8"},
        {"[1}", "[ i1 !4"},
        {"[1] 2", "[ i1 ] !8"},
        {"[/*c*/1]", "[ !7"},
    };
    const std::pair<const char *, std::vector<const char *>> refused[] = {
        {"!2", {"\"a\x01\""}},
        {"!3", {"]"}},
        {"!8", {"", "01", "1.", "-", "tru", "\"\t\"", "\"\r\"", "\"\\x\""}},
        {"!9", {"\"\\ud83d\"", "\"\\ud83d\\u0041\""}},
        {"!10", {"\"\\ude00\""}},
        {"!11", {","}},
    };
    for (std::size_t piece : {1, 3, 1000}) {
        for (const auto &[text, told] : cases) EXPECT_EQ(events(text, piece), told) << text;
        for (const auto &[error, texts] : refused)
            for (const char *text : texts) EXPECT_EQ(events(text, piece), error) << text;
    }
}

TEST(JsonParser, HasLimitsAndComments) {
    json_config config{};
    config.allow_c_comments = config.allow_yaml_comments = 1;
    EXPECT_EQ(events("/* a **/[1,# x\n2/**/]#end", 1, &config), "[ i1 i2 ] ");
    EXPECT_EQ(events("[/*", 1, &config), "[ !8");
    config.max_nesting = 2;
    config.max_data = 4;
    EXPECT_EQ(events("[[1]]", 1, &config), "[ [ i1 ] ] ");
    EXPECT_EQ(events("[[[", 1, &config), "[ [ !5");
    EXPECT_EQ(events("\"1234\"", 1, &config), "s1234 ");
    EXPECT_EQ(events("\"12345\"", 100, &config), "!6");
    EXPECT_EQ(events(Bytes(513, '['), 100).substr(512 * 2), "!5") << "512 by default";
    json_parser parser;
    const auto refuse = [](void *, int, const char *, size_t) { return 1; };
    json_parser_init(&parser, nullptr, refuse, nullptr);
    size_t processed = 99;
    EXPECT_EQ(json_parser_string(&parser, " 1 ", 3, &processed), JSON_ERROR_CALLBACK);
    EXPECT_EQ(processed, 2u);
    json_parser_free(&parser);
}

TEST(JsonDecode, BuildsValuesAndPrintsThemBack) {
    const std::tuple<const char *, const char *> cases[] = {
        {"{\"a\":1,\"b\":\"x\",\"c\":{\"d\":[1,2]}}", "{\"a\":1,\"b\":\"x\",\"c\":{\"d\":[1,2]}}"},
        {"[1,true,false]", "[1,1,0]"},
        {"[0.5,2e0]", "[0.500000,2.000000]"},
        {"[1,2,\"x\"]", "[\"x\"]"},
        {"[{\"a\":1},{\"a\":2}]", "[{\"a\":1},{\"a\":2}]"},
        {"[[1],[2,3],[],[[4]]]", "[[1],[2,3],{},[[4]]]"},
        {"{\"n\":null,\"t\":true}", "{\"t\":1}"},
        {"{\"e\":[],\"o\":{}}", "{\"e\":,\"o\":{}}"},
        {"{\"a\":1,\"a\":\"z\"}", "{\"a\":\"z\"}"},
        {"{\"a\":[1],\"a\":[2],\"b\":{\"c\":1},\"b\":{\"d\":2}}", "{\"a\":[1,2],\"b\":{\"c\":1,\"d\":2}}"},
        {"[1e38,-1e400,1e-400]", "[99999996802856924650656260769173209088.000000,-inf,0.000000]"},
        {"99999999999", "2147483647"},
        {"-99999999999", "-2147483648"},
    };
    for (const auto &[text, printed] : cases) EXPECT_EQ(json(decoded(text)), printed) << text;
    Value v = decoded("[]");
    EXPECT_EQ((*v)->Type(v.get()), Tq4_value_Unknown);
    EXPECT_EQ((*v)->Json_decode(v.get(), "{\"kept\":1,", -1), 0) << "text that ends early";
    EXPECT_EQ((*v)->BaseS(v.get(), "kept"), 1u) << "what was built stays";
    (*v)->SetString(v.get(), "[7]", -1);
    EXPECT_EQ((*v)->Json_decode(v.get(), (*v)->GetBytes(v.get(), nullptr), -1), 1) << "its own text";
    EXPECT_EQ(json(v), "[7]");
    EXPECT_EQ((*v)->Json_decode(v.get(), nullptr, 3), 0);
    const char unterminated[] = {'7', ' ', ' '};
    EXPECT_EQ((*v)->Json_decode(new_value().get(), unterminated, -2), 0) << "no length";
}

TEST(JsonEncode, PrintsEveryTypeAsItIs) {
    const std::tuple<const char *, const char *> cases[] = {
        {"00", ""},
        {"01 41", "A"},
        {"05 fffffffe", "-2"},
        {"06 fffffffe", "4294967294"},
        {"07 08 ffffffffffffffff", "-1"},
        {"08 08 ffffffffffffffff", "18446744073709551615"},
        {"09 08 0000000000000abc", "abc"},
        {"0c ffffffffffffffff", "18446744073709551615"},
        {"0e c0200000", "-2.500000"},
        {"0f c004000000000000", "-2.500000"},
        {"10 00000000 00003fff8000000000000000", ""},
        {"12 00000003 226109", "\"\"a\t\""},
        {"14 00000003 610062", "\"a\""},
        {"15 00000002 ffff 0002", "[-1,2]"},
        {"17 00000001 ffffffff", "[-1]"},
        {"18 00000001 ffffffff", "[4294967295]"},
        {"19 00000001 08 ffffffffffffffff", "[-1]"},
        {"1a 00000002 08 0000000000000001 0000000100000002", "[1l,2l]"},
        {"1c 00000001 3ff8000000000000", "[1.500000]"},
        {"1d 00000001 3ff8000000000000 4000000000000000", "[2.000000,1.500000]"},
        {"1f 0002 0001 61 0001 62", "[\"a\",\"b\"]"},
        {"1e", ""},
    };
    Value v = new_value();
    for (const auto &[encoded, compact] : cases) {
        import(v, from_hex(encoded));
        EXPECT_EQ(json(v), compact) << encoded;
        EXPECT_EQ(echoed(v, 1), compact) << encoded;
    }
    import(v, from_hex("15 00000002 ffff 0002"));
    EXPECT_EQ(echoed(v, 0), "\t[\n\t-1,\n\t2\n\t]");
    import(v, from_hex("1f 0002 0001 61 0001 62"));
    EXPECT_EQ(echoed(v, 0), "\n\t[\n\t\"a\",\n\t\"b\"\n\t]");
}

// A document: a number, a text or a table, whose members have no keys in an array.
struct Node {
    enum { number, text, table } kind = number;
    long n = 0;
    Bytes bytes;
    bool array = false;
    std::vector<Node> members;
    Bytes key = {}; // of the member that it is
};

Bytes some_text(std::mt19937 &random, bool plain) {
    Bytes text(random() % 40, 'a');
    for (char &c : text) c = static_cast<char>('a' + random() % 26);
    if (!plain && random() % 4 == 0) text.insert(random() % (text.size() + 1), 1, "\0\"\n"[random() % 3]);
    return text;
}

// With tables in one another to the given depth, and others behind each.
Node some_table(std::mt19937 &random, int depth, bool plain) {
    Node node{Node::table, 0, "", random() % 3 == 0, {}};
    if (depth) node.members.push_back(some_table(random, depth - 1, plain));
    if (depth) node.members.back().key = "in";
    for (unsigned long i = random() % 5; i--;) {
        Node member{
            random() % 3 ? Node::text : Node::number, static_cast<int>(random()), some_text(random, plain), false, {}};
        if (depth && random() % 4 == 0) member = some_table(random, static_cast<int>(random() % 2), plain);
        const unsigned long at = random() % (node.members.size() + 1);
        member.key = std::to_string(node.members.size()) + some_text(random, true);
        node.members.insert(node.members.begin() + static_cast<long>(at), member);
    }
    return node;
}

void build(Tq4_value v, const Node &node) {
    if (node.kind == Node::number) return (*v)->SetLong(v, node.n), void();
    if (node.kind == Node::text)
        return (*v)->SetString(v, node.bytes.data(), static_cast<int>(node.bytes.size())), void();
    (*v)->Init(v, Tq4_value_Table);
    int at = 0;
    for (const Node &member : node.members)
        build(node.array ? (*v)->InsertAt(v, at++) : (*v)->InsertS(v, member.key.c_str()), member);
}

// The text that is printed, told level by level.
Bytes shown(const Node &node, std::size_t indent, bool compact) {
    if (node.kind == Node::number) return std::to_string(node.n);
    if (node.kind == Node::text) return '"' + Bytes(node.bytes.c_str()) + '"';
    const bool array = node.array && !node.members.empty();
    const Bytes tabs = compact ? "" : Bytes(indent, '\t'), line = compact ? "" : "\n" + tabs;
    Bytes text = line + (array ? "[" : "{"), comma;
    for (const Node &member : node.members) {
        text += comma + (array && member.kind == Node::table ? tabs : line);
        text += (array ? "" : '"' + member.key + "\":") + shown(member, indent + 1, compact);
        comma = ",";
    }
    return text + line + (array ? "]" : "}");
}

TEST(JsonEncode, PrintsRandomDocumentsAsALevelByLevelPrinterDoes) {
    std::mt19937 random(7);
    for (int round = 0; round < 400; ++round) {
        const bool plain = round % 2;
        const Node node = some_table(random, round % 14, plain);
        Value v = new_value();
        build(v.get(), node);
        const Bytes compact = shown(node, 1, true);
        ASSERT_EQ(json(v), compact);
        ASSERT_EQ(echoed(v, 1), compact);
        ASSERT_EQ(echoed(v, 0), shown(node, 1, false));
        String out = new_string();
        if (plain) {
            ASSERT_EQ((*v)->ToJson(v.get(), out.get(), 0), 1);
            ASSERT_EQ(text_of(out.get()), compact) << "the same where no text needs an escape";
        }
        (*out)->truncate(out.get(), 0);
        (*out)->resize(out.get(), static_cast<unsigned long>(round), 'x');
        (*v)->Json_encode(v.get(), out.get());
        ASSERT_EQ(text_of(out.get()), Bytes(static_cast<std::size_t>(round), 'x') + compact)
            << "whatever room there is";
    }
}

} // namespace
