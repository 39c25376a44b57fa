// What a value promises: types change as each setter says, getters never convert, and the encoding is exact to the
// byte.
#include "base/kv/kv_fixture.hpp"

#include <climits>
#include <cmath>
#include <cstring>
#include <vector>

#include "base/kv/value_check.hpp"
#include "tq4/debug.h"

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
    std::vector<int> ints() {
        unsigned long n = 77;
        const int *p = (*v)->GetIntArray(v.get(), &n);
        return p ? std::vector<int>(p, p + n) : std::vector<int>{-static_cast<int>(n)};
    }
};

TEST_F(ValueTest, ScalarsAreExtendedAsTheirTypeAndReadAsTheWholeWord) {
    (*v)->SetChar(v.get(), -2);
    EXPECT_EQ(type(), Tq4_value_CHAR);
    EXPECT_EQ((*v)->GetULong(v.get()), -2);
    (*v)->SetUChar(v.get(), 200);
    EXPECT_EQ((*v)->GetChar(v.get()), 200) << "one function serves all integer getters";
    (*v)->SetUInt(v.get(), UINT_MAX);
    EXPECT_EQ((*v)->GetLong(v.get()), 0xffffffffl);
    (*v)->SetULong(v.get(), ULONG_MAX);
    EXPECT_EQ((*v)->GetLong(v.get()), -1);
    EXPECT_EQ((*v)->GetInt64(v.get()), 0) << "of 64-bit types only";
    (*v)->SetInt64(v.get(), LLONG_MIN);
    EXPECT_EQ((*v)->GetLong(v.get()), LONG_MIN);
    (*v)->Init(v.get(), Tq4_value_UINT64);
    (*v)->SetInt64(v.get(), 5);
    EXPECT_EQ(type(), Tq4_value_UINT64) << "stays unsigned";
    (*v)->SetDouble(v.get(), 2.5);
    EXPECT_EQ((*v)->GetFloat(v.get()), 2.5f);
    EXPECT_EQ((*v)->GetLong(v.get()), 0);
    (*v)->SetInt(v.get(), 3);
    EXPECT_EQ((*v)->GetDouble(v.get()), 0.0);
    int target;
    (*v)->SetPtr(v.get(), &target);
    EXPECT_EQ((*v)->GetPtr(v.get()), &target);
    EXPECT_EQ((*v)->GetLong(v.get()), 0);
    (*v)->SetRef(v.get(), other.get());
    EXPECT_EQ((*v)->GetRef(v.get()), other.get());
}

TEST_F(ValueTest, TextRetagsAsItGrows) {
    (*v)->SetString(v.get(), "ab", -1);
    EXPECT_EQ(type(), Tq4_value_PCHAR);
    (*s)->Strcpy(s.get(), "cd");
    (*v)->AppendString(v.get(), s.get());
    EXPECT_EQ(type(), Tq4_value_STRING);
    (*v)->AppendBytes(v.get(), "e\0", 2);
    EXPECT_EQ(type(), Tq4_value_PUCHAR);
    EXPECT_EQ(bytes(), Bytes("abcde\0", 6));
    (*v)->SetString(v.get(), (*v)->GetBytes(v.get(), nullptr), 3);
    EXPECT_EQ(bytes(), "abc") << "its own text";
    (*v)->SetSS(v.get(), (*v)->GetBytes(v.get(), nullptr), (*v)->GetBytes(v.get(), nullptr) + 1);
    (*v)->AppendString((*v)->ValueS(v.get(), "abc"),
                       (*(*v)->ValueS(v.get(), "abc"))->GetString((*v)->ValueS(v.get(), "abc")));
    EXPECT_EQ(json(v), "{\"abc\":\"bcbc\"}") << "its own text as key and text of the table that replaces it";
    (*v)->SetInt(v.get(), 1);
    (*v)->AppendString(v.get(), s.get());
    EXPECT_EQ(type(), Tq4_value_STRING) << "retagged, nothing stored";
    EXPECT_EQ(bytes(), "null0");
    (*v)->SetInt(v.get(), 1);
    (*v)->AppendBytes(v.get(), "x", 1);
    EXPECT_EQ(type(), Tq4_value_INT);
}

TEST_F(ValueTest, ArraysAppendWhereTheyFitAndRetagWhereTheyDoNot) {
    (*v)->AppendInt(v.get(), 9);
    EXPECT_EQ(type(), Tq4_value_PINT);
    EXPECT_EQ(ints(), std::vector<int>{0}) << "nothing stored";
    const int two[] = {1, 2};
    (*v)->SetIntArray(v.get(), two, 2);
    (*v)->AppendUInt(v.get(), 3);
    EXPECT_EQ(type(), Tq4_value_PUINT);
    EXPECT_EQ(ints(), (std::vector<int>{1, 2, 3}));
    (*v)->AppendFloat(v.get(), 1.0f);
    EXPECT_EQ(type(), Tq4_value_PUINT) << "floats never retag";
    const double d[] = {0.5};
    (*v)->SetDoubleArray(v.get(), d, 1);
    (*v)->AppendDouble(v.get(), 1.5);
    unsigned long n = 0;
    EXPECT_EQ((*v)->GetDoubleArray(v.get(), &n)[1], 1.5);
    EXPECT_EQ(reinterpret_cast<uintptr_t>((*v)->GetDoubleArray(v.get(), &n)) % alignof(double), 0u);
    EXPECT_EQ(n, 2u);
    EXPECT_EQ((*v)->GetFloatArray(v.get(), nullptr), nullptr);
    (*v)->SetLong(v.get(), 0x1234567);
    (*v)->AppendShort(v.get(), 1);
    EXPECT_EQ((*v)->GetShortArray(v.get(), &n), nullptr) << "no number is read as a pointer";
    (*v)->SetIntArray(v.get(), nullptr, 3);
    EXPECT_EQ(ints(), std::vector<int>{});
}

TEST_F(ValueTest, CopiesAreDeepAndMayComeFromInside) {
    const auto table_of = [](const Value &value) { return (*value)->GetValueTable(value.get()); };
    (*v)->SetSS(v.get(), "inner", "text");
    Tq4_value_oitf->Copy(other.get(), v.get());
    EXPECT_TRUE(equal());
    (*other)->SetSI(other.get(), "inner", 1);
    EXPECT_FALSE(equal());
    (*v)->SetTable(v.get(), table_of(v));
    EXPECT_EQ((*v)->Count(v.get()), 1u);
    Tq4_value inner = (*v)->SetSI(v.get(), "n", 5);
    (*inner)->SetTable(inner, table_of(v)); // a table into one of its own values
    EXPECT_EQ((*inner)->Count(inner), 2u);
    Tq4_value_oitf->Copy(v.get(), inner); // and a value onto the one that holds it
    EXPECT_EQ((*v)->Count(v.get()), 2u);
    EXPECT_EQ((*v)->BaseS(v.get(), "n"), 5u) << "as it was when it was copied";
    Tq4_value_oitf->Copy(v.get(), nullptr);
    EXPECT_EQ((*v)->Count(v.get()), 2u) << "copying null does nothing";
    for (int tag : {11, 17, 30, 33, 18, 31, 16, 14}) {
        (*v)->Init(v.get(), static_cast<Tq4_value_type>(tag));
        Tq4_value_oitf->Copy(other.get(), v.get());
        EXPECT_EQ((*other)->Type(other.get()), tag);
        EXPECT_EQ(equal(), tag != 11 && tag != 17 && tag != 33) << tag;
    }
    (*v)->SetFloat(v.get(), NAN);
    Tq4_value_oitf->Copy(other.get(), v.get());
    EXPECT_FALSE(equal());
    EXPECT_FALSE(Tq4_object_Equal(new_value().get(), new_value().get())) << "two empty values are not equal";
}

TEST_F(ValueTest, TableOperationsMakeATableOrDoNothing) {
    (*v)->SetInt(v.get(), 3);
    EXPECT_EQ((*v)->ValueS(v.get(), "x"), nullptr);
    EXPECT_EQ((*v)->Count(v.get()), 0u);
    (*v)->RemoveAll(v.get());
    EXPECT_EQ(type(), Tq4_value_INT);
    (*v)->SetII(v.get(), 7, -1);
    EXPECT_EQ(type(), Tq4_value_Table);
    EXPECT_EQ((*v)->BaseI(v.get(), 7), ~0ul);
    Tq4_key key = nullptr;
    EXPECT_NE((*v)->At(v.get(), 0, &key), nullptr);
    EXPECT_EQ((*key)->GetL(key), 7u);
    EXPECT_EQ((*v)->GetLong(nullptr), 0);
    EXPECT_EQ((*v)->SetSS(nullptr, "a", "b"), nullptr);
}

TEST(ValueOutput, MayGoIntoATextOfTheValueItself) {
    for (unsigned n = 1; n < 100; ++n) {
        const Bytes text(n, 't');
        Value v = new_value(), list = new_value();
        (*v)->SetString(v.get(), text.data(), static_cast<int>(n));
        Tq4_string own = (*v)->GetString(v.get());
        EXPECT_EQ((*v)->Json_encode(v.get(), own), text + '"' + text + '"');
        (*v)->SetString(v.get(), text.data(), static_cast<int>(n));
        (*v)->Dump(v.get(), own);
        const char length[] = {'\x13', 0, 0, 0, static_cast<char>(n + 1)};
        EXPECT_EQ(text_of(own), text + Bytes(length, 5) + text + '\x13') << "its tag is there before the text is read";

        (*list)->Init(list.get(), Tq4_value_STRINGARRAY);
        (*list)->AppendBytes(list.get(), "first", 5);
        (*list)->AppendString(list.get(), own);
        const Bytes element = text_of(own);
        Tq4_string_array array = (*list)->GetStringArray(list.get());
        (*list)->Dump(list.get(), (*array)->At(array, 1));
        EXPECT_EQ(text_of((*array)->At(array, 1)).substr(0, n), text);
        (*list)->Json_encode(list.get(), (*array)->At(array, 1));
        EXPECT_EQ(text_of((*array)->At(array, 1)).substr(0, element.size()), element);
    }
}

TEST_F(ValueTest, EncodesToTheByteAndBack) {
    const struct {
        const char *hex;
        void (*set)(Tq4_value);
    } cases[] = {
        {"00", [](Tq4_value) {}},
        {"01 fe", [](Tq4_value x) { (*x)->SetChar(x, -2); }},
        {"04 ffff", [](Tq4_value x) { (*x)->SetUShort(x, 65535); }},
        {"05 fffffffe", [](Tq4_value x) { (*x)->SetInt(x, -2); }},
        {"07 08 0000000000000001", [](Tq4_value x) { (*x)->SetLong(x, 1); }},
        {"0c 0000000000000001", [](Tq4_value x) { (*x)->SetInt64(x, 1); }},
        {"0e 3f800000", [](Tq4_value x) { (*x)->SetFloat(x, 1.0f); }},
        {"0f 3ff0000000000000", [](Tq4_value x) { (*x)->SetDouble(x, 1.0); }},
        {"13 00000002 6162", [](Tq4_value x) { (*x)->SetString(x, "ab", -1); }},
        {"15 00000002 0001 0002",
         [](Tq4_value x) {
             const short e[] = {1, 2};
             (*x)->SetShortArray(x, e, 2);
         }},
        {"19 00000001 08 ffffffffffffffff",
         [](Tq4_value x) {
             const long e[] = {-1};
             (*x)->SetLongArray(x, e, 1);
         }},
        {"19 00000000 08", [](Tq4_value x) { (*x)->SetLongArray(x, nullptr, 0); }},
        {"1b 00000001 3f800000",
         [](Tq4_value x) {
             const float e[] = {1};
             (*x)->SetFloatArray(x, e, 1);
         }},
        {"1f 0002 0001 61 0000",
         [](Tq4_value x) {
             (*x)->Init(x, Tq4_value_STRINGARRAY);
             (*x)->AppendBytes(x, "a", 1);
             (*x)->AppendBytes(x, "", 0);
         }},
        {"20 00 00000001 64 0001 6b 05 00000003",
         [](Tq4_value x) {
             Tq4_value e = (*x)->SetSI(x, "k", 0);
             (*e)->SetInt(e, 3);
         }},
        {"20 00 00000000", [](Tq4_value x) { (*x)->Init(x, Tq4_value_Table); }},
        {"1e", [](Tq4_value x) { (*x)->Init(x, Tq4_value_ArrayOtherObject); }},
    };
    for (const auto &c : cases) {
        Value value = new_value(), back = new_value();
        c.set(value.get());
        const Bytes wire = from_hex(c.hex);
        EXPECT_EQ(dump(value), wire) << c.hex;
        EXPECT_EQ(import(back, wire + "rest"), static_cast<int>(wire.size())) << c.hex;
        EXPECT_EQ((*back)->Type(back.get()), (*value)->Type(value.get()));
        EXPECT_EQ(dump(back), wire) << c.hex;
        EXPECT_TRUE(check(wire + "rest").complete) << c.hex;
        EXPECT_EQ(check(wire + "rest").at, wire.size()) << c.hex;
        for (std::size_t cut = 0; cut < wire.size(); ++cut) EXPECT_FALSE(check(wire.substr(0, cut)).complete) << c.hex;
    }
    (*v)->Init(v.get(), Tq4_value_LDOUBLE);
    const Bytes extended = from_hex("10 00000000 00003fff8000000000000000");
    EXPECT_EQ(import(v, extended), 17);
    EXPECT_EQ(dump(v), extended);
    EXPECT_EQ(import(v, from_hex("10 ffffffff 00003fff8000000000000000")), 17);
    EXPECT_EQ(dump(v), extended) << "the last four bytes are zero on writing";
}

// ---- what comes from outside

std::vector<Bytes> *reports = nullptr;
void keep_report(int, const char *, va_list args) { reports->push_back(va_arg(args, const char *)); }

struct ValueImport : ValueTest {
    std::vector<Bytes> printed;
    ValueImport() {
        reports = &printed;
        Tq4_debug_api->SetPrint(keep_report);
        Tq4_debug_api->SetLog(keep_report);
    }
    ~ValueImport() override {
        Tq4_debug_api->SetPrint(nullptr);
        Tq4_debug_api->SetLog(nullptr);
    }
    int read(const char *hex) {
        printed.clear();
        return import(v, from_hex(hex));
    }
};

TEST_F(ValueImport, ReadsLongsOfOtherWidths) {
    EXPECT_EQ(read("07 04 ffffffff"), 6);
    EXPECT_EQ((*v)->GetLong(v.get()), 4294967295l);
    EXPECT_EQ(read("07 05 ffffffff"), 2);
    EXPECT_EQ((*v)->GetLong(v.get()), 0);
    unsigned long n = 0;
    EXPECT_EQ(read("19 00000002 04 ffffffff 00000001 00000000"), 14);
    const long *longs = (*v)->GetLongArray(v.get(), &n);
    EXPECT_EQ(n, 2u);
    EXPECT_EQ(longs[0], 4294967295l);
    EXPECT_EQ(longs[1], 1);
    EXPECT_EQ(read("19 00000002 04 ffffffff 00000001"), 10) << "the test is for 8 bytes each";
    EXPECT_EQ(printed.size(), 2u) << "printed and logged";
    EXPECT_EQ(read("19 00000002 03 0000000000000000"), 6) << "any other width takes nothing";
    EXPECT_TRUE(printed.empty());
    (*v)->GetLongArray(v.get(), &n);
    EXPECT_EQ(n, 2u);
    EXPECT_EQ(read("19 ffffffff 03 0000000000000000"), 6);
    (*v)->GetLongArray(v.get(), &n);
    EXPECT_EQ(n, 512u) << "but not memory without end";
    EXPECT_FALSE(check(from_hex("19 ffffffff 03 0000000000000000")).complete);
    const Bytes own = from_hex("13 00000002 6162");
    (*v)->SetString(v.get(), own.data(), static_cast<int>(own.size()));
    EXPECT_EQ((*v)->Import(v.get(), (*v)->GetBytes(v.get(), nullptr), static_cast<int>(own.size())), 7);
    EXPECT_EQ(bytes(), "ab") << "from its own bytes";
}

TEST_F(ValueImport, ReportsWhatIsCutShort) {
    const struct {
        const char *hex;
        int consumed;
        const char *message;
    } cases[] = {
        {"13 00000005 6162", 7, "Tq4_value_Import() error Tq4_value_STRING\n"},
        {"13 ffffffff 6162", 7, "Tq4_value_Import() error Tq4_value_STRING\n"},
        {"15 00000003 0001 00", 7, "Tq4_value_Import() error Tq4_value_PUSHORT\n"},
        {"17 00000002 00000001 0000", 9, "Tq4_value_Import() error Tq4_value_PUINT\n"},
        {"1a 00000001 08 00", 6, "Tq4_value_Import() error Tq4_value_PLONG\n"},
        {"1b ffffffff", 5, "Tq4_value_Import() error Tq4_value_PFLOAT\n"},
        {"1c 00000001 00", 5, "Tq4_value_Import() error Tq4_value_PDOUBLE\n"},
        {"1d 00000001 00", 5, "Tq4_value_Import() error Tq4_value_PLDOUBLE\n"},
        {"1f 0002 0001 61 0005 62", 8, "Tq4_value_Import() error Tq4_value_STRINGARRAY\n"},
        {"1f 00", 2, "Tq4_value_Import() error Tq4_value_STRINGARRAY\n"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(read(c.hex), c.consumed) << c.hex;
        EXPECT_EQ(printed, (std::vector<Bytes>{c.message, c.message})) << c.hex;
        EXPECT_FALSE(check(from_hex(c.hex)).complete) << c.hex;
    }
    EXPECT_EQ(read("15 00000003 0001 00"), 7);
    unsigned long n = 0;
    const short *shorts = (*v)->GetShortArray(v.get(), &n);
    EXPECT_EQ(n, 3u) << "what is missing stays zero";
    EXPECT_EQ(shorts[0], 1);
    EXPECT_EQ(shorts[2], 0);
}

TEST_F(ValueImport, TakesWrongTagsAndNestingBeyondTheLimitAsTheWholeInput) {
    EXPECT_EQ(read("22 00 00"), 3);
    EXPECT_EQ(read("80 00"), 2);
    EXPECT_EQ(type(), Tq4_value_Unknown);
    EXPECT_EQ((*v)->Import(v.get(), "x", 0), 0);
    EXPECT_EQ((*v)->Import(v.get(), nullptr, 9), 0);
    Bytes deep;
    for (int i = 0; i < 100000; ++i) deep += from_hex("20 00 00000001 00");
    EXPECT_EQ(import(v, deep), static_cast<int>(deep.size()));
    EXPECT_EQ(type(), Tq4_value_Table);
}

TEST(ValueCheck, NamesTheInnermostPlaceOfTheDamage) {
    const struct {
        const char *hex;
        std::size_t at;
    } cases[] = {
        {"", 0},
        {"22", 0},
        {"80", 0},
        {"20 00 000000", 1},
        {"20 00 00000001", 6},
        {"20 00 00000001 64 0001", 6},
        {"20 00 00000001 64 0001 6b", 10},
        {"20 00 00000001 64 0001 6b 05 000000", 10},
        {"20 00 00000002 00 01 00", 9},
        {"20 00 00000002 00 20 00 00000001 00 ff 00 00", 14},
        {"19 00000002 04 ffffffff 00000001", 0},
    };
    for (const auto &c : cases) {
        const Tq4_checked checked = check(from_hex(c.hex));
        EXPECT_FALSE(checked.complete) << c.hex;
        EXPECT_EQ(checked.at, c.at) << c.hex;
    }
    Bytes deep = from_hex("00");
    for (int i = 0; i < 512; ++i) deep = from_hex("20 00 00000001 00") + deep;
    EXPECT_TRUE(check(deep).complete);
    EXPECT_EQ(check(from_hex("20 00 00000001 00") + deep).at, 7u * 512);
    EXPECT_FALSE(Tq4_value_check(nullptr, 5).complete);
    EXPECT_TRUE(Tq4_value_table_check(deep.data() + 1, static_cast<int>(deep.size()) - 1).complete);
    EXPECT_EQ(Tq4_value_table_check("\0\0\0\0", 4).at, 0u);
}

TEST_F(ValueImport, AnEntryOfNothingStopsTheProcess) {
    EXPECT_DEATH(read("20 00 00000001 64 0001 6b"), "len > 0") << "an entry that ends after its key";
}

} // namespace
