// The binary encoding of random nested tables, beside an encoder of its own that goes by the wire format alone.
#include "base/kv/kv_fixture.hpp"

namespace {

Bytes big_endian(unsigned long number, int width) {
    Bytes b;
    while (width--) b += static_cast<char>(number >> 8 * width);
    return b;
}

// Gives a value some content, and returns what its encoding has to be.
Bytes fill(Tq4_value v, std::mt19937 &random, int depth) {
    const int number = static_cast<int>(random());
    const Bytes text(random() % 40, static_cast<char>(number));
    const std::vector<int> elements(random() % 5, number);
    Bytes wire;
    switch (random() % (depth ? 6 : 4)) {
    case 0:
        (*v)->SetInt(v, number);
        return "\x05" + big_endian(number, 4);
    case 1:
        (*v)->SetLong(v, number * (1l << 31));
        return "\x07\x08" + big_endian(number * (1l << 31), 8);
    case 2:
        (*v)->SetString(v, text.data(), static_cast<int>(text.size()));
        return "\x13" + big_endian(text.size(), 4) + text;
    case 3:
        (*v)->SetIntArray(v, elements.data(), static_cast<int>(elements.size()));
        wire = "\x17" + big_endian(elements.size(), 4);
        for (int element : elements) wire += big_endian(element, 4);
        return wire;
    default:
        (*v)->Init(v, Tq4_value_Table);
        const unsigned long members = random() % 8;
        wire = Bytes("\x20\0", 2) + big_endian(members, 4);
        for (unsigned long i = 1; i <= members; ++i) {
            const Bytes name = std::to_string(i) + Bytes(random() % 30, 'x');
            const bool named = random() % 3;
            wire += named ? "\x64" + big_endian(name.size(), 2) + name : "\x12\x08" + big_endian(i, 8);
            wire += fill(named ? (*v)->InsertS(v, name.c_str()) : (*v)->InsertI(v, i), random, depth - 1);
        }
        return wire;
    }
}

TEST(Encoding, OfRandomNestedTablesIsWhatOthersWriteAndRead) {
    std::mt19937 random(11);
    for (int round = 0; round < 300; ++round) {
        Value v = new_value(), back = new_value();
        const Bytes wire = fill(v.get(), random, 4);
        ASSERT_EQ(dump(v), wire);
        ASSERT_EQ(import(back, wire), static_cast<int>(wire.size()));
        ASSERT_EQ(dump(back), wire);
        EXPECT_TRUE(Tq4_object_Equal(v.get(), back.get()));
    }
}

// Whatever shorter ways there are for common keys and values.
TEST(Encoding, OfEntriesIsThatOfTheirKeysAndValues) {
    const char *const values[] = {"00",
                                  "01 80",
                                  "02 ff",
                                  "03 8001",
                                  "04 fffe",
                                  "05 80000001",
                                  "06 fffffffe",
                                  "07 08 8000000000000001",
                                  "08 08 fffffffffffffffe",
                                  "09 08 0000000012345678",
                                  "0a 08 0000000000000000",
                                  "0b",
                                  "0c 8000000000000001",
                                  "0d fffffffffffffffe",
                                  "0e c0200000",
                                  "0f c004000000000000",
                                  "10 00000000 0000c000a000000000000000",
                                  "11",
                                  "12 00000000",
                                  "12 00000003 226109",
                                  "13 00000003 610062",
                                  "14 00000016 "
                                  "30313233343536373839303132333435363738393031",
                                  "13 00000017 "
                                  "3031323334353637383930313233343536373839303132",
                                  "15 00000002 ffff 0002",
                                  "19 00000001 08 ffffffffffffffff",
                                  "1d 00000001 00000000 00003fff8000000000000000",
                                  "1e",
                                  "1f 0002 0001 61 0001 62",
                                  "20 00 00000000",
                                  "20 01 00000001 640001 6b 0500000007",
                                  "21"};
    const char *const keys[] = {"00",
                                "24",
                                "64 0001 61",
                                "e4 0001 61",
                                "74 08 0000000000000001 0001 61",
                                "11 00000001",
                                "01",
                                "12 08 0000000000000005",
                                "62 0001 61",
                                "13 00000002 00000001",
                                "65 0001 61",
                                "f7 08 0000000000000001 0001 61",
                                "69 0001 61"};
    Bytes members;
    long count = 0;
    const auto add = [&](const Bytes &key, const Bytes &value) { members += key + value, ++count; };
    for (const char *value : values) {
        for (const char *key : keys) add(from_hex(key), from_hex(value));
        for (int length : {21, 22, 23, 300}) add("\x64" + big_endian(length, 2) + Bytes(length, 'k'), from_hex(value));
    }
    Table t = new_table();
    const Bytes wire = Bytes(1, '\0') + big_endian(count, 4) + members;
    ASSERT_EQ(import(t, wire), static_cast<int>(wire.size()));
    EXPECT_EQ(dump(t), wire);
    for (int at = 0; at < count; ++at) {
        Tq4_key key = nullptr;
        Tq4_value v = (*t)->At(t.get(), at, &key);
        String alone = new_string();
        (*key)->Dump(key, alone.get());
        (*v)->Dump(v, alone.get());
        EXPECT_EQ(members.substr(0, text_of(alone.get()).size()), text_of(alone.get())) << at;
        members.erase(0, text_of(alone.get()).size());
    }
    EXPECT_EQ(members, "");
}

// In docs/wire-formats.md.
TEST(WireFormats, TheWorkedExampleIsWhatIsWritten) {
    std::ifstream page(TQ4_WIRE_FORMATS);
    Bytes hex, line, word;
    while (std::getline(page, line) && line != "## An example") continue;
    while (std::getline(page, line) && !line.starts_with("## ")) {
        std::istringstream words(line.starts_with("    ") ? line : "");
        // Two hexadecimal digits a word, up to the words that explain them.
        while (words >> word && word.size() == 2 && word.find_first_not_of("0123456789abcdef") == word.npos)
            hex += word;
    }
    Value v = new_value();
    (*(*v)->InsertS(v.get(), "id"))->SetInt((*v)->InsertS(v.get(), "id"), 7);
    (*v)->SetSS(v.get(), "name", "Ada");
    (*(*v)->InsertS(v.get(), "sub"))->Init((*v)->InsertS(v.get(), "sub"), Tq4_value_Table);
    EXPECT_EQ(from_hex(hex.c_str()), dump(v)) << hex;
}

} // namespace
