// Conversions as the string offers them: they append, count what they appended, stop where they must, grow as they go,
// and may read the string itself. What each character converts to is tested with the character sets.
#include "string_fixture.hpp"

namespace {

const std::string utf8 = "a\xe4\xb8\xad", units = {'a', 0, '\x2d', '\x4e'}, gb18030 = "a\xd6\xd0"; // U+0061 U+4E2D
const std::string beyond = "\xf0\x9f\x98\x80", beyond_gb18030 = "\x94\x39\xfc\x36";                // U+1F600

struct StringConvert : StringFixture {
    static const uint16_t *as_units(const char *bytes) { return reinterpret_cast<const uint16_t *>(bytes); }

    template <class From> void check(long (*slot)(Tq4_string, const From *, unsigned long), const std::string &from,
                                     const std::string &to, long result) {
        std::string all, converted;
        for (long times = 0; times < 5000; ++times, all += from, converted += to) {
            if (times > 2 && times % 1000) continue;
            set(all);
            EXPECT_EQ(slot(s, reinterpret_cast<const From *>(all.data()), all.size()), result * times);
            slot(s, reinterpret_cast<const From *>((*s)->c_str(s)), all.size());
            EXPECT_EQ(text(), all + converted + converted) << "also from the string itself";
        }
    }
};

TEST_F(StringConvert, EveryDirectionAppendsAndCountsWhatItAppended) {
    check((*s)->utf8_2_unicode, utf8, units, 2);
    check((*s)->unicode_2_utf8, units, utf8, 4);
    check((*s)->utf8_2_gb18030, utf8, gb18030, 3);
    check((*s)->gb18030_2_utf8, gb18030, utf8, 4);
    check((*s)->unicode_2_gb18030, units, gb18030, 3);
    check((*s)->gb18030_2_unicode, gb18030, units, 4);
}

TEST_F(StringConvert, KeepsWhatCameBeforeTheFirstCharacterThatHasNoCounterpart) {
    EXPECT_EQ((*s)->utf8_2_gb18030(s, "ab\xc0\x80zz", TQ4_ALL_ONES), 2);
    EXPECT_EQ((*s)->gb18030_2_utf8(s, "cd\xff\xffzz", TQ4_ALL_ONES), 2);
    EXPECT_EQ((*s)->utf8_2_unicode(s, "\xe4\xb8", 2), 0) << "cut short";
    EXPECT_EQ((*s)->utf8_2_gb18030(s, beyond.data(), TQ4_ALL_ONES), 4);
    EXPECT_EQ(text(), "abcd" + beyond_gb18030);
    EXPECT_EQ((*s)->utf8_2_unicode(s, (utf8 + beyond + utf8).data(), TQ4_ALL_ONES), 2);
    EXPECT_EQ((*s)->gb18030_2_unicode(s, beyond_gb18030.data(), 4), 0);
    const std::string ended = units + std::string("\0\0\0x\0", 5);
    EXPECT_EQ((*s)->unicode_2_utf8(s, as_units(ended.data()), TQ4_ALL_ONES), 4) << "up to a unit of zero";
    EXPECT_EQ((*s)->unicode_2_utf8(s, as_units(ended.data()), 3), 1) << "an odd last byte is ignored";
}

TEST_F(StringConvert, OneCharacterIsAppendedOrOnlyMeasured) {
    for (auto &[bytes, result] : {std::pair{"a", 1}, {"\xe4\xb8\xad", 3}, {"\xe4\xb8", -3}, {"", 0}})
        for (Tq4_string string : {s, Tq4_string()})
            EXPECT_EQ((*s)->utf8_2_unicode_onece(string, bytes, TQ4_ALL_ONES), result) << bytes;
    EXPECT_EQ((*s)->utf8_2_unicode_onece(s, beyond.data(), 4), -4);
    EXPECT_EQ((*s)->utf8_2_unicode_onece(nullptr, beyond.data(), 4), 4);
    EXPECT_EQ(text(), units);
}

TEST_F(StringConvert, Base64AppendsAndGivesTheWholeText) {
    set("=>");
    EXPECT_STREQ((*s)->Base64Encode(s, "hello", TQ4_ALL_ONES), "=>aGVsbG8=");
    EXPECT_STREQ((*s)->Base64Decode(s, "IHdv\r\ncmxk-IHdv", TQ4_ALL_ONES), "=>aGVsbG8= world");
    set(std::string(60, 0)); // and from the string itself
    EXPECT_EQ(std::string((*s)->Base64Encode(s, (*s)->c_str(s), 60) + 60), std::string(80, 'A') + "\n");
    (*s)->Base64Decode(s, (*s)->c_str(s) + 60, TQ4_ALL_ONES);
    EXPECT_EQ(text().substr(60 + 81), std::string(60, 0));
}

TEST_F(StringConvert, WhatIsScrambledComesBack) {
    for (unsigned long n : {1ul, 7ul, 8ul, 9ul, 69ul, 4000ul}) {
        const std::string plain(n, 'p');
        set(plain);
        const auto scrambled = static_cast<unsigned long>((*s)->enc(s, (*s)->c_str(s), n, "key")) - n;
        EXPECT_EQ(scrambled, (n + 7) / 8 * 8 + (n % 8 != 0));
        const std::string hidden = text().substr(n);
        set("key");
        EXPECT_EQ((*s)->dec(s, hidden.data(), scrambled, (*s)->c_str(s)), static_cast<long>(3 + n)) << "its own key";
        EXPECT_EQ(text(), "key" + plain);
    }
    set("kept");
    EXPECT_EQ((*s)->dec(s, "12345678\xff", 9, "key") + (*s)->dec(s, "\x07", 1, "key"), 8);
    EXPECT_EQ(text(), "kept") << "a false padding count takes nothing that was there before";
}

} // namespace
