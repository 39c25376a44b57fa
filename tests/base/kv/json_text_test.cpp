// What ToJson and FromJson promise: text that any program reads, read again as an equal document; and of everything
// else the byte where it goes wrong. json_documents_test.py compares random documents with Python's reading.
#include "base/kv/kv_fixture.hpp"

namespace {

struct JsonTextTest : testing::Test {
    Value v = new_value();
    String out = new_string();

    // Reads from a block of exactly these bytes. -1, or where it goes wrong.
    long read(const Bytes &text) {
        const std::vector<char> exact(text.begin(), text.end());
        long at = 77;
        const int done = (*v)->FromJson(v.get(), exact.data(), static_cast<long>(exact.size()), &at);
        EXPECT_EQ((*v)->FromJson(new_value().get(), exact.data(), static_cast<long>(exact.size()), nullptr), done);
        return done ? -1 : at;
    }
    Bytes written(int pretty = 0) {
        (*out)->Strcpy(out.get(), "before ");
        EXPECT_EQ((*v)->ToJson(v.get(), out.get(), pretty), 1);
        return text_of(out.get()).substr(7);
    }
    Bytes again(const Bytes &text) {
        EXPECT_EQ(read(text), -1) << text;
        return written();
    }
    int type() { return (*v)->Type(v.get()); }
};

TEST_F(JsonTextTest, DocumentsAreWrittenAsTheyWereRead) {
    for (const char *text : {"{}",
                             "[]",
                             "null",
                             "true",
                             "false",
                             "0",
                             "\"\"",
                             "[[],[[]],{},[{}],{\"a\":[]}]",
                             "{\"a\":{\"b\":{}},\"\":[]}",
                             "[1,2,-3]",
                             "[1,\"x\",2.5,null,true,[1],{\"k\":false}]",
                             "[\"a\",\"b\",3]",
                             "[1.5,2]",
                             "[1,1.5]",
                             "[true,1]",
                             "[1,true]",
                             "[null]",
                             "[\"a\",null]",
                             "[null,\"a\"]",
                             "[[1,2],3,[\"x\"],\"y\"]",
                             "{\"a\":null,\"b\":[null]}"})
        EXPECT_EQ(again(text), text);
    EXPECT_EQ(again(" \t\r\n[ 1 , { \"a\" : [ ] } ] "), "[1,{\"a\":[]}]");
    EXPECT_EQ(again("{\"a\":{\"x\":1},\"b\":2,\"a\":[3]}"), "{\"a\":[3],\"b\":2}") << "of equal keys the last";
    EXPECT_EQ(again("{\"a\":[1],\"a\":null}"), "{\"a\":null}");
    read("{\"a\":[1,{\"b\":\"x\"}],\"e\":[],\"o\":{},\"n\":[1,2]}");
    EXPECT_EQ(written(1), "{\n  \"a\": [\n    1,\n    {\n      \"b\": \"x\"\n    }\n  ],\n  \"e\": [],\n  \"o\": {},\n"
                          "  \"n\": [\n    1,\n    2\n  ]\n}");
}

TEST_F(JsonTextTest, NumbersKeepTheirKindAndRange) {
    const std::tuple<const char *, int, const char *> cases[] = {
        {"2147483647", Tq4_value_INT, "2147483647"},
        {"-2147483648", Tq4_value_INT, "-2147483648"},
        {"2147483648", Tq4_value_LONG, "2147483648"},
        {"-9223372036854775808", Tq4_value_LONG, "-9223372036854775808"},
        {"9223372036854775808", Tq4_value_ULONG, "9223372036854775808"},
        {"18446744073709551615", Tq4_value_ULONG, "18446744073709551615"},
        {"18446744073709551616", Tq4_value_DOUBLE, "18446744073709551616.0"},
        {"-9223372036854775809", Tq4_value_DOUBLE, "-9223372036854775808.0"},
        {"-0", Tq4_value_INT, "0"},
        {"0.1", Tq4_value_DOUBLE, "0.1"},
        {"-0.0", Tq4_value_DOUBLE, "-0.0"},
        {"1E2", Tq4_value_DOUBLE, "100.0"},
        {"5e-324", Tq4_value_DOUBLE, "5e-324"},
        {"1e-400", Tq4_value_DOUBLE, "0.0"},
        {"1.7976931348623157e308", Tq4_value_DOUBLE, "1.7976931348623157e+308"},
        {"[2147483647,-1]", Tq4_value_PINT, "[2147483647,-1]"},
        {"[2147483648,-1]", Tq4_value_PLONG, "[2147483648,-1]"},
        {"[9223372036854775808,0]", Tq4_value_PULONG, "[9223372036854775808,0]"},
        {"[9223372036854775808,-1]", Tq4_value_Table, "[9223372036854775808,-1]"},
        {"[-1,5,9223372036854775808]", Tq4_value_Table, "[-1,5,9223372036854775808]"},
        {"[0.5,1e30]", Tq4_value_PDOUBLE, "[0.5,1e+30]"},
        {"[1,36893488147419103232]", Tq4_value_Table, "[1,36893488147419103232.0]"},
        {"[]", Tq4_value_PINT, "[]"},
        {"[\"a\"]", Tq4_value_STRINGARRAY, "[\"a\"]"},
    };
    for (const auto &[text, tag, back] : cases) {
        EXPECT_EQ(again(text), back);
        EXPECT_EQ(type(), tag) << text;
    }
    EXPECT_EQ(read("[1,2,1e309]"), 5);
    EXPECT_EQ(read("-1e309"), 0);
}

TEST_F(JsonTextTest, TruthSurvivesCopiesAndEndsWithTheNumber) {
    read("[true,0]");
    EXPECT_EQ((*(*v)->At(v.get(), 0, nullptr))->GetInt((*v)->At(v.get(), 0, nullptr)), 1);
    const Value copy(static_cast<Tq4_value>(Tq4_object_Dup(v.get())));
    (*(*v)->At(v.get(), 0, nullptr))->SetInt((*v)->At(v.get(), 0, nullptr), 1);
    EXPECT_EQ(written(), "[1,0]");
    Tq4_value_oitf->Copy(v.get(), copy.get());
    EXPECT_EQ(written(), "[true,0]");
    EXPECT_EQ(import(v, dump(v)), 18);
    EXPECT_EQ(written(), "[1,0]") << "the encoding does not tell";
}

TEST_F(JsonTextTest, TextsOfAnyBytes) {
    const std::tuple<Bytes, Bytes> read_as[] = {
        {"\"\\\"\\\\\\/\\b\\f\\n\\r\\t\\u0001\x7f\"", "\"\\\"\\\\/\\b\\f\\n\\r\\t\\u0001\x7f\""},
        {"\"\\u0041\\u00e9\\u4e2d\\uD83D\\uDe00\"", "\"A\xc3\xa9\xe4\xb8\xad\xf0\x9f\x98\x80\""},
        {"\"a\\u0000b\"", "\"a\\u0000b\""},
        {"{\"a\\u0000\\n\\u00e9\":1,\"a\":2}", "{\"a\\u0000\\n\xc3\xa9\":1,\"a\":2}"},
        {"[\"\\u0000\",\"\\\"\"]", "[\"\\u0000\",\"\\\"\"]"},
    };
    for (const auto &[text, back] : read_as) EXPECT_EQ(again(text), back);
    const std::pair<const char *, int> bad[] = {{"\x80", 1},         {"\xff\xfe", 2},
                                                {"\xc0\xaf", 2},     {"\xe4\xb8", 1},
                                                {"\xe4\xb8x", 1},    {"\xf0\x9f\x98", 1},
                                                {"\xed\xa0\x80", 3}, {"\xf4\x90\x80\x80", 4},
                                                {"\xe0\x9f\xbf", 3}, {"\xf8\x88\x80\x80\x80", 5}};
    for (unsigned before = 0; before < 40; ++before) {
        const Bytes plain(before, 'p');
        for (const char *text : {"", "\"", "\\", "\n", "\x1f", "\xc3\xa9", "\xf4\x8f\xbf\xbf", "x", "\xed\x9f\xbf"}) {
            const Bytes whole = plain + text + "q";
            (*v)->SetString(v.get(), whole.data(), static_cast<int>(whole.size()));
            const Bytes json = written();
            EXPECT_EQ(again(json), json);
            EXPECT_EQ(text_of((*v)->GetString(v.get())), whole) << before;
        }
        for (const auto &[text, replacements] : bad) {
            const Bytes whole = plain + text;
            (*v)->SetString(v.get(), whole.data(), static_cast<int>(whole.size()));
            Bytes expected = '"' + plain;
            for (int i = 0; i < replacements; ++i) expected += "\xef\xbf\xbd";
            EXPECT_EQ(written(), expected + (whole.back() == 'x' ? "x\"" : "\"")) << before;
            EXPECT_EQ(read('"' + whole + '"'), static_cast<long>(before) + 1);
        }
    }
}

TEST_F(JsonTextTest, WhatIsNoJsonChangesNothing) {
    (*v)->SetString(v.get(), "kept", -1);
    const std::pair<Bytes, long> cases[] = {{"", 0},
                                            {"  ", 2},
                                            {"[1", 2},
                                            {"[1,]", 3},
                                            {"{\"a\"}", 4},
                                            {"{1:2}", 1},
                                            {"[1}", 2},
                                            {"[1] 2", 4},
                                            {"]", 0},
                                            {",", 0},
                                            {"01", 1},
                                            {"1.", 2},
                                            {"-", 1},
                                            {"tru", 3},
                                            {"trux", 3},
                                            {"\"a", 2},
                                            {"\"\t\"", 1},
                                            {"\"\\x\"", 2},
                                            {"\"\\ud83d\"", 7},
                                            {"\"\\ud83d\\u0041\"", 12},
                                            {"\"\\ude00\"", 6},
                                            {"[/**/]", 1},
                                            {"\xef\xbb\xbf"
                                             "1",
                                             0},
                                            {"[\"a\",\"\xff\"]", 6},
                                            {"[1}\xff", 2},
                                            {"nul\xff", 3},
                                            {Bytes("1\0", 2), 1},
                                            {"{\"a\":1,}", 7},
                                            {Bytes(512, '[') + Bytes(512, ']'), -1},
                                            {Bytes(513, '['), 512}};
    for (const auto &[text, at] : cases) EXPECT_EQ(read(text), at) << text;
    EXPECT_EQ(written().size(), 1024u) << "the one that was JSON";
    (*v)->SetString(v.get(), "[7", -1);
    EXPECT_EQ(read("{\"a\":[1,\"x\",{\"b\":2"), 18);
    EXPECT_EQ(written(), "\"[7\"");
    (*v)->SetString(v.get(), "[\"own text\"]", -1);
    EXPECT_EQ((*v)->FromJson(v.get(), (*v)->GetBytes(v.get(), nullptr), -1, nullptr), 1);
    EXPECT_EQ(written(), "[\"own text\"]");
    long at = 5;
    EXPECT_EQ((*v)->FromJson(v.get(), nullptr, 5, &at), 0);
    EXPECT_EQ((*v)->FromJson(v.get(), "1", -2, &at), 0);
    EXPECT_EQ(at, 0);
}

TEST_F(JsonTextTest, EveryTypeHasItsText) {
    const std::tuple<const char *, const char *> cases[] = {
        {"00", "null"},
        {"0b", "null"},
        {"1e", "null"},
        {"21", "null"},
        {"01 fe", "-2"},
        {"02 fe", "254"},
        {"03 fffe", "-2"},
        {"04 fffe", "65534"},
        {"05 fffffffe", "-2"},
        {"06 fffffffe", "4294967294"},
        {"07 08 fffffffffffffffe", "-2"},
        {"08 08 fffffffffffffffe", "18446744073709551614"},
        {"0c fffffffffffffffe", "-2"},
        {"0d fffffffffffffffe", "18446744073709551614"},
        {"0e 3dcccccd", "0.1"},
        {"0e 7fc00000", "null"},
        {"0f 3fb999999999999a", "0.1"},
        {"0f fff0000000000000", "null"},
        {"0f 4341c37937e08000", "1e+16"},
        {"10 00000000 00003fff8000000000000000", "1.0"},
        {"12 00000000", "\"\""},
        {"15 00000002 ffff 0002", "[-1,2]"},
        {"16 00000001 ffff", "[65535]"},
        {"18 00000001 ffffffff", "[4294967295]"},
        {"1a 00000001 08 ffffffffffffffff", "[18446744073709551615]"},
        {"1b 00000002 3dcccccd 7fc00000", "[0.1,null]"},
        {"1d 00000001 00000000 00003fff8000000000000000", "[1.0]"},
        {"1f 0000", "[]"},
        {"1f 0001 0001 22", "[\"\\\"\"]"},
        {"20 00 00000000", "{}"},
        {"20 00 00000002 00 05 00000001 64 0001 6b 00", "[1,null]"},
        {"20 00 00000007 11 00000007 00 12 08 ffffffffffffffff 00 13 00000002 00000001 00 64 0001 22 00"
         " 75 08 0000000200000000 0001 78 00 76 08 0000000300000002 0001 78 00 77 08 0000000200000001 0001 78 00",
         "{\"7\":null,\"18446744073709551615\":null,\"1_2\":null,\"\\\"\":null,\"x_2\":null,\"x_12884901890\":null,"
         "\"x_1_2\":null}"},
    };
    for (const auto &[encoded, text] : cases) {
        import(v, from_hex(encoded));
        EXPECT_EQ(written(), text) << encoded;
    }
    read("{\"a\":[1,{\"b\":2}]}");
    (*(*v)->InsertS(v.get(), "p"))->SetPtr((*v)->ValueS(v.get(), "p"), this);
    (*out)->Strcpy(out.get(), "kept");
    EXPECT_EQ((*v)->ToJson(v.get(), out.get(), 0), 0);
    EXPECT_EQ(text_of(out.get()), "kept") << "a pointer refuses the whole text";
    EXPECT_EQ((*v)->ToJson(v.get(), nullptr, 0), 0);
}

TEST_F(JsonTextTest, TextsTooManyForAStringArrayAreATable) {
    Bytes text = "[\"\"";
    for (int i = 1; i < 65535; ++i) text += ",\"\"";
    EXPECT_EQ(again(text + "]"), text + "]");
    EXPECT_EQ(type(), Tq4_value_STRINGARRAY);
    EXPECT_EQ(again(text + ",\"x\"]"), text + ",\"x\"]");
    EXPECT_EQ(type(), Tq4_value_Table);
    EXPECT_EQ((*v)->Count(v.get()), 65536u);
    again("[\"a\",\"" + Bytes(65536, 'x') + "\"]");
    EXPECT_EQ(type(), Tq4_value_Table);
}

TEST_F(JsonTextTest, OutputMayBeATextOfTheValueItself) {
    for (unsigned n = 1; n < 100; n += 7) {
        const Bytes text(n, 't');
        (*v)->SetString(v.get(), text.data(), static_cast<int>(n));
        Tq4_string own = (*v)->GetString(v.get());
        EXPECT_EQ((*v)->ToJson(v.get(), own, 0), 1);
        EXPECT_EQ(text_of(own), text + '"' + text + '"');
    }
}

// The text is as deep as the tables: no stack of calls.
TEST_F(JsonTextTest, TablesNestedByCallsAreWritten) {
    constexpr int depth = 600;
    Tq4_value inner = v.get();
    for (int i = 0; i < depth; ++i) inner = (*inner)->InsertAt(inner, 0);
    Bytes expected(depth, '[');
    EXPECT_EQ(written(), expected + "null" + Bytes(depth, ']'));
}

} // namespace
