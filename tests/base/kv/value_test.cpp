// What a value promises: types change as each setter says, getters never convert, and the encoding is exact to the
// byte.
#include "base/kv/kv_fixture.hpp"
#include "base/kv/value_check.hpp"
#include "support/heard.hpp"

namespace {

Tq4_checked check(const Bytes &bytes) {
    const std::vector<char> exact(bytes.begin(), bytes.end());
    return Tq4_value_check(exact.data(), static_cast<int>(exact.size()));
}

struct ValueTest : testing::Test {
    Value v = new_value(), other = new_value();
    String s = new_string();

    int type() { return (*v)->Type(v.get()); }
    bool equal() { return Tq4_object_Equal(v.get(), other.get()) != 0; }
    Bytes bytes() {
        unsigned long len = 77;
        const char *p = (*v)->GetBytes(v.get(), &len);
        return p ? Bytes(p, len) : "null" + std::to_string(len);
    }
};

TEST_F(ValueTest, GettersDoNotConvert) {
    (*v)->SetULong(v.get(), ULONG_MAX);
    EXPECT_EQ((*v)->GetInt64(v.get()), 0) << "of 64-bit types only";
    (*v)->SetUChar(v.get(), 200);
    EXPECT_EQ((*v)->GetInt(v.get()), 200);
    EXPECT_EQ((*v)->GetChar(v.get()), static_cast<char>(200)) << "narrowed to the type in the name";
    EXPECT_EQ((*v)->GetDouble(v.get()), 0.0);
    (*v)->SetDouble(v.get(), 2.5);
    EXPECT_EQ((*v)->GetFloat(v.get()), 2.5f);
    (*v)->SetPtr(v.get(), this);
    EXPECT_EQ((*v)->GetLong(v.get()), 0);
    EXPECT_EQ((*v)->ValueS(v.get(), "x"), nullptr);
}

TEST_F(ValueTest, TextRetagsAsItGrows) {
    (*v)->SetString(v.get(), "ab", -1);
    EXPECT_EQ(dump(v), from_hex("13 00000002 6162"));
    (*s)->Strcpy(s.get(), "cd");
    (*v)->AppendString(v.get(), s.get());
    EXPECT_EQ(dump(v), from_hex("12 00000004 61626364"));
    (*v)->AppendBytes(v.get(), "e\0", 2);
    EXPECT_EQ(dump(v), from_hex("14 00000006 616263646500"));
    (*v)->SetString(v.get(), (*v)->GetBytes(v.get(), nullptr), 3);
    EXPECT_EQ(bytes(), "abc") << "its own text";
    (*v)->SetSS(v.get(), (*v)->GetBytes(v.get(), nullptr), (*v)->GetBytes(v.get(), nullptr) + 1);
    Tq4_value inner = (*v)->ValueS(v.get(), "abc");
    (*inner)->AppendString(inner, (*inner)->GetString(inner));
    EXPECT_EQ(json(v), "{\"abc\":\"bcbc\"}") << "its own text as key and text of the table that replaces it";
    (*v)->SetInt(v.get(), 1);
    (*v)->AppendBytes(v.get(), "x", 1);
    EXPECT_EQ(type(), Tq4_value_INT);
    (*v)->AppendString(v.get(), s.get());
    EXPECT_EQ(type(), Tq4_value_STRING) << "retagged, nothing stored";
    EXPECT_EQ(bytes(), "null0");
}

TEST_F(ValueTest, ArraysAppendWhereTheyFitAndRetagWhereTheyDoNot) {
    (*v)->AppendInt(v.get(), 9);
    EXPECT_EQ(dump(v), from_hex("17 00000000")) << "nothing stored";
    const int two[] = {1, 2};
    (*v)->SetIntArray(v.get(), two, 2);
    (*v)->AppendUInt(v.get(), 3);
    (*v)->AppendFloat(v.get(), 1.0f); // floats never retag
    EXPECT_EQ(dump(v), from_hex("18 00000003 00000001 00000002 00000003"));
    const double d[] = {0.5};
    (*v)->SetDoubleArray(v.get(), d, 1);
    (*v)->AppendDouble(v.get(), 1.5);
    EXPECT_EQ(json(v), "[0.500000,1.500000]");
    EXPECT_EQ(reinterpret_cast<uintptr_t>((*v)->GetDoubleArray(v.get(), nullptr)) % alignof(double), 0u);
    EXPECT_EQ((*v)->GetFloatArray(v.get(), nullptr), nullptr);
    (*v)->SetLong(v.get(), 0x1234567);
    (*v)->AppendShort(v.get(), 1);
    EXPECT_EQ((*v)->GetShortArray(v.get(), nullptr), nullptr) << "no number is read as a pointer";
    (*v)->SetIntArray(v.get(), nullptr, 3);
    EXPECT_EQ(dump(v), from_hex("17 00000000"));
}

TEST_F(ValueTest, CopiesAreDeepAndMayComeFromInside) {
    const auto table_of = [](const Value &value) { return (*value)->GetValueTable(value.get()); };
    (*v)->SetSS(v.get(), "inner", "text");
    Tq4_value_oitf->Copy(other.get(), v.get());
    EXPECT_TRUE(equal());
    (*other)->SetSI(other.get(), "inner", 1);
    EXPECT_FALSE(equal());
    (*v)->SetTable(v.get(), table_of(v));
    Tq4_value inner = (*v)->SetSI(v.get(), "n", 5);
    (*inner)->SetTable(inner, table_of(v)); // a table into one of its own values
    Tq4_value_oitf->Copy(v.get(), inner);   // and a value onto the one that holds it
    Tq4_value_oitf->Copy(v.get(), nullptr);
    EXPECT_EQ(json(v), "{\"inner\":\"text\",\"n\":5}") << "as it was when it was copied; null does nothing";
    for (int tag : {11, 17, 30, 33, 18, 31, 16, 14, 34, 1000, -1}) {
        (*v)->Init(v.get(), static_cast<Tq4_value_type>(tag));
        Tq4_value_oitf->Copy(other.get(), v.get());
        EXPECT_EQ((*other)->Type(other.get()), tag < 0 || tag > 33 ? 0 : tag);
        EXPECT_EQ(equal(), tag == 30 || tag == 18 || tag == 31 || tag == 16 || tag == 14) << tag;
    }
    (*v)->SetFloat(v.get(), NAN);
    Tq4_value_oitf->Copy(other.get(), v.get());
    EXPECT_FALSE(equal());
    EXPECT_FALSE(Tq4_object_Equal(new_value().get(), new_value().get())) << "two empty values are not equal";
}

TEST_F(ValueTest, OutputMayGoIntoATextOfTheValueItself) {
    for (unsigned n = 1; n < 100; ++n) {
        const Bytes text(n, 't');
        (*v)->SetString(v.get(), text.data(), static_cast<int>(n));
        Tq4_string own = (*v)->GetString(v.get());
        EXPECT_EQ((*v)->Json_encode(v.get(), own), text + '"' + text + '"');
        (*v)->SetString(v.get(), text.data(), static_cast<int>(n));
        (*v)->Dump(v.get(), own);
        const char length[] = {'\x13', 0, 0, 0, static_cast<char>(n + 1)};
        EXPECT_EQ(text_of(own), text + Bytes(length, 5) + text + '\x13') << "its tag is there before the text is read";
    }
}

TEST_F(ValueTest, EncodesToTheByteAndBack) {
    static const short shorts[] = {1, 2};
    static const long longs[] = {-1};
    static const float floats[] = {1};
    const std::tuple<const char *, long, void (*)(Tq4_value)> cases[] = {
        {"00", 0, [](Tq4_value) {}},
        {"01 fe", -2, [](Tq4_value x) { (*x)->SetChar(x, -2); }},
        {"04 ffff", 65535, [](Tq4_value x) { (*x)->SetUShort(x, 65535); }},
        {"06 ffffffff", 4294967295, [](Tq4_value x) { (*x)->SetUInt(x, UINT_MAX); }},
        {"08 08 ffffffffffffffff", -1, [](Tq4_value x) { (*x)->SetULong(x, ULONG_MAX); }},
        {"0c 8000000000000000", LONG_MIN, [](Tq4_value x) { (*x)->SetInt64(x, LLONG_MIN); }},
        {"0d 0000000000000005", 5, [](Tq4_value x) { (*x)->Init(x, Tq4_value_UINT64), (*x)->SetInt64(x, 5); }},
        {"0e 3f800000", 0, [](Tq4_value x) { (*x)->SetFloat(x, 1.0f); }},
        {"0f 3ff0000000000000", 0, [](Tq4_value x) { (*x)->SetDouble(x, 1.0); }},
        {"15 00000002 0001 0002", 0, [](Tq4_value x) { (*x)->SetShortArray(x, shorts, 2); }},
        {"19 00000001 08 ffffffffffffffff", 0, [](Tq4_value x) { (*x)->SetLongArray(x, longs, 1); }},
        {"19 00000000 08", 0, [](Tq4_value x) { (*x)->SetLongArray(x, nullptr, 0); }},
        {"1b 00000001 3f800000", 0, [](Tq4_value x) { (*x)->SetFloatArray(x, floats, 1); }},
        {"1f 0002 0001 61 0000", 0, [](Tq4_value x) { (*x)->Json_decode(x, "[\"a\",\"\"]", -1); }},
        {"20 00 00000002 64 0001 6b 20 00 00000001 12 08 0000000000000007 07 08 ffffffffffffffff 64 0001 74 13 "
         "00000001 78",
         0,
         [](Tq4_value x) { (*(*x)->InsertS(x, "k"))->SetII((*x)->ValueS(x, "k"), 7, -1), (*x)->SetSS(x, "t", "x"); }},
        {"20 00 00000000", 0, [](Tq4_value x) { (*x)->Init(x, Tq4_value_Table); }},
        {"1e", 0, [](Tq4_value x) { (*x)->Init(x, Tq4_value_ArrayOtherObject); }},
    };
    for (const auto &[hex, word, set] : cases) {
        Value value = new_value(), back = new_value();
        set(value.get());
        const Bytes wire = from_hex(hex);
        EXPECT_EQ(dump(value), wire) << hex;
        EXPECT_EQ((*value)->Type(value.get()), wire[0]);
        EXPECT_EQ((*value)->GetLong(value.get()), word) << hex;
        const int back_length = import(back, wire + "rest");
        EXPECT_EQ(back_length, static_cast<int>(wire.size())) << hex;
        EXPECT_EQ(dump(back), wire) << hex;
        const Bytes with_rest = wire + "rest";
        EXPECT_EQ((*v)->Check(v.get(), with_rest.data(), static_cast<long>(with_rest.size())), back_length) << hex;
        for (std::size_t cut = 0; cut <= wire.size(); ++cut)
            EXPECT_EQ(check(wire.substr(0, cut)).complete, cut == wire.size()) << hex;
    }
    const Bytes extended = from_hex("10 00000000 00003fff8000000000000000");
    EXPECT_EQ(import(v, from_hex("10 ffffffff 00003fff8000000000000000")), 17);
    EXPECT_EQ(dump(v), extended) << "the last four bytes are zero on writing";
}

// ---- what comes from outside

struct ValueImport : ValueTest, Heard {
    int read(const char *hex) {
        printed.clear();
        logged.clear();
        return import(v, from_hex(hex));
    }
};

TEST_F(ValueImport, ReadsLongsOfOtherWidths) {
    const std::tuple<const char *, int, const char *, std::size_t> cases[] = {
        {"07 04 ffffffff", 6, "4294967295", 0},
        {"19 00000002 03 0000000000000000", 6, "[0,0]", 0}, // any other width takes nothing
        {"19 00000002 04 ffffffff 00000001 00000000", 14, "[4294967295,1]", 0},
        {"19 00000002 04 ffffffff 00000001", 10, "[4294967295,0]", 2}, // the test is for 8 bytes each
    };
    for (const auto &[hex, consumed, text, told] : cases) {
        EXPECT_EQ(read(hex), consumed) << hex;
        EXPECT_EQ(json(v), text);
        EXPECT_EQ(printed.size() + logged.size(), told) << hex;
    }
    unsigned long n = 0;
    EXPECT_EQ(read("19 ffffffff 03 0000000000000000"), 6);
    (*v)->GetLongArray(v.get(), &n);
    EXPECT_EQ(n, 32768u) << "but not memory without end";
    (*v)->SetString(v.get(), from_hex("13 00000002 6162").data(), 7);
    EXPECT_EQ((*v)->Import(v.get(), (*v)->GetBytes(v.get(), nullptr), 7), 7);
    EXPECT_EQ(bytes(), "ab") << "from its own bytes";
}

TEST_F(ValueImport, ReportsWhatIsCutShort) {
    const std::tuple<const char *, int, const char *> cases[] = {{"13 00000005 6162", 7, "STRING"},
                                                                 {"13 ffffffff 6162", 7, "STRING"},
                                                                 {"15 00000003 0001 00", 7, "PUSHORT"},
                                                                 {"17 00000002 00000001 0000", 9, "PUINT"},
                                                                 {"1a 00000001 08 00", 6, "PLONG"},
                                                                 {"1b ffffffff", 5, "PFLOAT"},
                                                                 {"1c 00000001 00", 5, "PDOUBLE"},
                                                                 {"1d 00000001 00", 5, "PLDOUBLE"},
                                                                 {"1f 0002 0001 61 0005 62", 8, "STRINGARRAY"},
                                                                 {"1f 00", 2, "STRINGARRAY"}};
    for (const auto &[hex, consumed, name] : cases) {
        EXPECT_EQ(read(hex), consumed) << hex;
        EXPECT_EQ(printed, Texts{Bytes("0 Tq4_value_Import() error Tq4_value_") + name + "\n"});
        EXPECT_EQ(logged, printed);
        EXPECT_FALSE(check(from_hex(hex)).complete) << hex;
    }
    read("15 00000003 0001 00");
    EXPECT_EQ(json(v), "[1,0,0]") << "what is missing stays zero";
}

// The fuzz target has a model of what is complete.
TEST(ValueCheck, NamesTheInnermostPlaceOfTheDamage) {
    for (auto [hex, at] : {std::pair{"20 00 00000001 64 0001 6b 05 000000", 10u},
                           {"20 00 00000002 00 20 00 00000001 00 ff 00 00", 14u},
                           {"19 00000002 04 ffffffff 00000001", 0u}})
        EXPECT_TRUE(!check(from_hex(hex)).complete && check(from_hex(hex)).at == at) << hex;
    Bytes deep = from_hex("00");
    for (int i = 0; i < 512; ++i) deep = from_hex("20 00 00000001 00") + deep;
    EXPECT_TRUE(check(deep).complete);
    EXPECT_EQ(check(from_hex("20 00 00000001 00") + deep).at, 7u * 512);
    const auto length = static_cast<long>(deep.size());
    const Value v = new_value();
    const Table t = new_table();
    EXPECT_EQ((*t)->Check(t.get(), deep.data() + 1, length - 1), length - 1);
    EXPECT_EQ((*t)->Check(t.get(), deep.data() + 1, length - 2), 0);
    for (long none : {0l, -1l, LONG_MIN}) EXPECT_EQ((*v)->Check(v.get(), deep.data(), none), 0);
    EXPECT_EQ((*v)->Check(v.get(), nullptr, 5), 0);
    EXPECT_EQ((*v)->Check(nullptr, deep.data(), length), 0);
}

TEST_F(ValueImport, PrintsTenLinesForACallAtMost) {
    Bytes arrays = from_hex("20 00 000003e8");
    for (int i = 0; i < 1000; ++i) arrays += from_hex("00 1f 0001 ffff");
    for (int call = 0; call < 2; ++call) {
        printed.clear();
        import(v, arrays + from_hex("00 00"));
        EXPECT_EQ(printed.size(), 10u);
    }
    EXPECT_EQ((*v)->Count(v.get()), 1000u) << "and goes on";
}

TEST_F(ValueTest, AKeyTooLongForItsLengthIsNotWritten) {
    const Bytes most(65535, 'k'), more(65536, 'k');
    (*(*v)->InsertS(v.get(), "inner"))->SetSI((*v)->ValueS(v.get(), "inner"), most.c_str(), 1);
    EXPECT_GT((*v)->Dump(v.get(), s.get()), 65535);
    const Bytes written = text_of(s.get());
    (*(*v)->ValueS(v.get(), "inner"))->SetSI((*v)->ValueS(v.get(), "inner"), more.c_str(), 2);
    (*v)->SetSS(v.get(), "behind", "it");
    Tq4_value_table table = (*v)->GetValueTable(v.get());
    EXPECT_EQ((*v)->Dump(v.get(), s.get()), 0);
    EXPECT_EQ((*table)->Dump(table, s.get()), 0);
    const Key k = new_key();
    (*k)->SetS(k.get(), more.data(), static_cast<int>(more.size()), 0);
    EXPECT_EQ((*k)->Dump(k.get(), s.get()), 0);
    EXPECT_EQ(text_of(s.get()), written) << "nothing is appended";
}

TEST_F(ValueImport, AnEntryOfNothingStopsTheProcess) {
    EXPECT_DEATH(read("20 00 00000001 64 0001 6b"), "len > 0") << "an entry that ends after its key";
}

} // namespace
