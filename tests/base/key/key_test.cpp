// What a key promises: hashes that peers compute too, equality by kind, exact bytes on the wire.
#include "base/kv/kv_fixture.hpp"

namespace {

struct KeyTest : testing::Test {
    Key k = new_key(), other = new_key();

    unsigned long hash(int nocase = 0) { return (*k)->Hash(k.get(), nocase); }
    bool equal() { return Tq4_object_Equal(k.get(), other.get()) != 0; }
};

TEST_F(KeyTest, HashesAsPeersDo) {
    EXPECT_EQ(Tq4_key_HashString(nullptr, 0), 0u);
    EXPECT_EQ(Tq4_key_HashString("AB", 1), 3299u);
    EXPECT_EQ(Tq4_key_HashLS(7, "ab", 0), 3299u * 33 + 7);
    unsigned long h = 0;
    const char *text = "a longer text, with \xff\x80 bytes in it";
    for (const char *p = text; *p; ++p)
        h = h * 33 + static_cast<unsigned long>(static_cast<long>(static_cast<signed char>(*p)));
    EXPECT_EQ(Tq4_key_HashString(text, 0), h);

    (*k)->SetII(k.get(), 0xf0000000u, 1, nullptr);
    EXPECT_EQ(hash(), 0xf00000001ul) << "shifted in 64 bits";
    (*k)->SetIS(k.get(), 5, "ab", 0);
    EXPECT_EQ(hash(), 3299u * 33 + 5);
    (*k)->SetIIS(k.get(), 2, 3, "AB", 1);
    EXPECT_EQ(hash(), (3299u * 33 + 2) * 33 + 3);
    (*k)->SetS(k.get(), "a\0b", 3, 0);
    EXPECT_EQ(hash(), 97u * 33 * 33 + 98) << "the whole string counts";
}

TEST_F(KeyTest, EqualityIsByKind) {
    const struct {
        bool equal;
        void (*set)(Tq4_key, Tq4_key);
    } cases[] = {
        {false, [](Tq4_key a, Tq4_key b) { (*a)->SetI(a, 7, nullptr), (*b)->SetL(b, 7, nullptr); }},
        {true, [](Tq4_key a, Tq4_key b) { (*a)->SetI(a, 7, nullptr), (*b)->SetI(b, 7, "a label does not count"); }},
        {false, [](Tq4_key a, Tq4_key b) { (*a)->SetS(a, "Abc", -1, 0), (*b)->SetS(b, "aBC", -1, 0); }},
        {true, [](Tq4_key a, Tq4_key b) { (*a)->SetS(a, "Abc", -1, 0), (*b)->SetS(b, "aBC", -1, 1); }},
        {false, [](Tq4_key a, Tq4_key b) { (*a)->SetS(a, "a\0x", 3, 0), (*b)->SetS(b, "a\0y", 3, 0); }},
        {false, [](Tq4_key a, Tq4_key b) { (*a)->SetLS(a, 1, nullptr, 0), (*b)->SetLS(b, 1, "", 0); }},
    };
    for (const auto &each : cases) {
        each.set(k.get(), other.get());
        EXPECT_EQ(Tq4_object_Equal(k.get(), other.get()), each.equal) << &each - cases;
    }
    (*k)->SetS(k.get(), "Abc", -1, 1);
    EXPECT_TRUE((*k)->EqualS(k.get(), "aBC", 0) && !(*k)->EqualS(k.get(), nullptr, 0));
    EXPECT_FALSE((*k)->EqualLS(k.get(), 0, "abc", 1)) << "another kind";
    (*k)->SetII(k.get(), 3, 4, nullptr);
    EXPECT_TRUE((*k)->EqualII(k.get(), 3, 4));
    EXPECT_EQ((*k)->GetL(k.get()), (4ul << 32) + 3) << "h is the low half in memory";
}

TEST_F(KeyTest, EncodesToTheByteAndBack) {
    const std::tuple<const char *, void (*)(Tq4_key)> cases[] = {
        {"00", [](Tq4_key) {}},
        {"01", [](Tq4_key x) { (*x)->SetI(x, 0, nullptr); }},
        {"11 00000005", [](Tq4_key x) { (*x)->SetI(x, 5, nullptr); }},
        {"12 08 0000000000000005", [](Tq4_key x) { (*x)->SetL(x, 5, nullptr); }},
        {"13 00000002 00000001", [](Tq4_key x) { (*x)->SetII(x, 1, 2, nullptr); }},
        {"64 0002 6162", [](Tq4_key x) { (*x)->SetS(x, "ab", -1, 0); }},
        {"a4", [](Tq4_key x) { (*x)->SetS(x, "", 0, 1); }},
        {"75 08 0000000700000000 0001 78", [](Tq4_key x) { (*x)->SetIS(x, 7, "x", 0); }},
        {"f6 08 0000000000000009 0001 78", [](Tq4_key x) { (*x)->SetLS(x, 9, "x", 1); }},
        {"77 08 0000000200000001 0001 78", [](Tq4_key x) { (*x)->SetIIS(x, 1, 2, "x", 0); }},
        {"71 00000005 0001 4c", [](Tq4_key x) { (*x)->SetI(x, 5, "L"); }},
    };
    for (const auto &[hex, set] : cases) {
        Key key = new_key(), back = new_key();
        set(key.get());
        const Bytes bytes = from_hex(hex);
        EXPECT_EQ(dump(key), bytes) << hex;
        EXPECT_EQ(import(back, bytes + "rest"), static_cast<int>(bytes.size())) << hex;
        EXPECT_EQ(dump(back), bytes) << hex;
    }
}

TEST_F(KeyTest, ReadsWhatOtherPeersWrite) {
    EXPECT_EQ(import(k, from_hex("12 03 000005")), 2) << "an odd width takes its own byte only";
    EXPECT_EQ(import(k, from_hex("12 04 00000005")), 6);
    EXPECT_TRUE((*k)->EqualL(k.get(), 5));
    EXPECT_EQ(import(k, from_hex("1b 08 0000000000000001")), 10) << "a kind from the future";
    EXPECT_EQ((*k)->GetType(k.get()), 11);
    EXPECT_EQ(hash(), 0u);
    EXPECT_EQ(import(other, from_hex("1b 08 0000000000000002")), 10);
    EXPECT_FALSE(equal());
    EXPECT_EQ((*k)->Import(k.get(), nullptr, 5), 0);
    EXPECT_EQ((*k)->Import(k.get(), "x", -3), -3);
}

TEST_F(KeyTest, EnciphersWithItsNumberAndText) {
    const Bytes secret = "fourteen bytes";
    String out = new_string(), back = new_string(), by_text = new_string();
    (*k)->SetIS(k.get(), 0x01020304, "pw", 0);
    EXPECT_EQ((*k)->enc(k.get(), secret.data(), secret.size(), out.get()), 17);
    const Bytes hidden = text_of(out.get());
    EXPECT_EQ(hidden.back(), 2);
    EXPECT_EQ((*k)->dec(k.get(), hidden.data(), hidden.size(), back.get()), 14);
    EXPECT_EQ(text_of(back.get()), secret);
    (*by_text)->enc(by_text.get(), secret.data(), secret.size(), "\1\2\3\4pw");
    EXPECT_EQ(text_of(by_text.get()), hidden) << "four bytes in network order, then the text";
}

TEST_F(KeyTest, TakesItsOwnTextAndNoLengthBeyondAllMemory) {
    (*k)->SetS(k.get(), "text", -1, 1);
    (*k)->SetLS(k.get(), 4, (*k)->GetS(k.get()), 0);
    EXPECT_STREQ((*k)->GetS(k.get()), "text");
    (*k)->SetS(k.get(), "x", -2, 0);
    EXPECT_STREQ((*k)->GetS(k.get()), "");
}

} // namespace
