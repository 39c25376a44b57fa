// What one call of Import or Json_decode may hold: 64 times its input and a megabyte, whatever the bytes say. Counted
// are the blocks that the call leaves behind.
#include <malloc.h>

#include "base/kv/kv_fixture.hpp"
#include "sanitizers.hpp"
#include "support/heard.hpp"

#ifdef TQ4_ADDRESS_SANITIZER
extern "C" std::size_t __sanitizer_get_current_allocated_bytes();
#endif

namespace {

std::size_t held() {
#ifdef TQ4_ADDRESS_SANITIZER
    return __sanitizer_get_current_allocated_bytes();
#else
    const struct mallinfo2 now = mallinfo2();
    return now.uordblks + now.hblkhd;
#endif
}

std::size_t allowed(std::size_t input) { return 64 * input + (1 << 20); }

struct DecodeBudget : testing::Test, Heard {
    static Bytes repeated(const Bytes &part, std::size_t size) {
        Bytes all;
        while (all.size() < size) all += part;
        return all;
    }
    // A table of these entries as often as they fit the size.
    static Bytes table_of(const char *entry, std::size_t size) {
        const Bytes one = from_hex(entry), all = repeated(one, size);
        const std::size_t count = all.size() / one.size();
        Bytes header = from_hex("20 00");
        for (int shift = 24; shift >= 0; shift -= 8) header += static_cast<char>(count >> shift);
        return header + all;
    }
};

TEST_F(DecodeBudget, HoldsForEncodingsOfAnyKind) {
    const char *const entries[] = {"00 00",
                                   "00 01 00",
                                   "00 20 00 00000000",
                                   "00 20 00 00000001 00 00",
                                   "20 00",
                                   "00 13 00000000",
                                   "00 19 00000200 00",
                                   "00 19 00010000 00",

                                   "00 17 00000000",
                                   "00 17 00000006 000102030405060708090a0b0c0d0e0f1011121314151617",
                                   "00 1f 0000",
                                   "00 1f 0004 0000 0000 0000 0000",
                                   "00 1f 0001 0011 6162636465666768696a6b6c6d6e6f7071",
                                   "64 0017 6162636465666768696a6b6c6d6e6f7071727374757677 00"};
    for (const char *entry : entries) {
        for (const std::size_t size : {1000, 30000, 200000}) {
            const Bytes wire = table_of(entry, size);
            Value v = new_value();
            const std::size_t before = held();
            const int consumed = (*v)->Import(v.get(), wire.data(), static_cast<int>(wire.size()));
            EXPECT_LE(held() - before, allowed(wire.size())) << entry << " in " << size;
            const long checked = (*v)->Check(v.get(), wire.data(), static_cast<long>(wire.size()));
            const bool complete = dump(v) == wire;
            EXPECT_EQ(checked == static_cast<long>(wire.size()), complete) << entry << " in " << size;
            EXPECT_EQ(consumed, static_cast<int>(wire.size()));
            const bool zeros = entry == entries[6] || entry == entries[7];
            EXPECT_TRUE(complete || zeros || size > 1000) << entry;
        }
    }
}

TEST_F(DecodeBudget, HoldsForTextOfAnyKind) {
    // Elements that take less than that, and some that take more, of which there may be as many as the megabyte holds.
    struct {
        const char *element;
        bool any_number;
    } const documents[] = {
        {"0", true},
        {"[0.1]", true},
        {"[0,0,0,0,0,0]", true},
        {"[[1,2],[3,4]]", true},
        {"\"abc\"", true},
        {"[\"a\",\"b\",\"cdefghijklmnopqrstuvwxyz\"]", true},
        {"{\"x\":1,\"y\":2}", true},
        {"{\"a\":1,\"b\":2,\"c\":3}", true},
        {"[]", false},
        {"{}", false},
        {"\"\"", false},
        {"[\"\"]", false},
        {"[[]]", false},
        {"{\"\":0}", false},
        {"[[[[[[]]]]]]", false},
    };
    for (const auto &[element, any_number] : documents) {
        for (const std::size_t size : {1000, 30000, 200000}) {
            const Bytes text = "[" + repeated(Bytes(element) + ",", size) + element + "]";
            Value v = new_value();
            const std::size_t before = held();
            const int done = (*v)->Json_decode(v.get(), text.data(), static_cast<int>(text.size()));
            EXPECT_LE(held() - before, allowed(text.size())) << element << " in " << size;
            EXPECT_TRUE(done || (!any_number && size > 1000)) << element << " in " << size;
        }
    }
}

// What an array held before it starts again is freed, and counts no more.
TEST_F(DecodeBudget, IsGivenBackByArraysThatStartAgain) {
    const Bytes text = "[" + repeated("1,\"a\",[2],", 100000) + "\"last\"]";
    Value v = new_value();
    ASSERT_TRUE((*v)->Json_decode(v.get(), text.data(), static_cast<int>(text.size())));
    EXPECT_EQ(json(v), "[\"last\"]");
}

// What FromJson reads and Dump writes, Import takes whole as long as its memory is within the promise.
TEST_F(DecodeBudget, TakesWholeEncodingsWhoseMemoryIsWithinIt) {
    struct {
        const char *element;
        std::size_t size;
    } const documents[] = {
        {"1", 300000},      {"\"x\"", 300000},  {"{\"a\":1}", 300000}, {"[\"abc\",\"def\",\"ghi\"]", 300000},
        {"null", 150000},   {"[null]", 150000}, {"[\"a\"]", 20000},    {"[\"a\",\"b\"]", 20000},
        {"[{},1]", 150000},
    };
    for (const auto &[element, size] : documents) {
        const Bytes text = "[" + repeated(Bytes(element) + ",", size) + element + ",true]";
        const Value v = new_value(), copy = new_value();
        ASSERT_TRUE((*v)->FromJson(v.get(), text.data(), static_cast<long>(text.size()), nullptr));
        const Bytes wire = dump(v);
        EXPECT_EQ((*v)->Check(v.get(), wire.data(), static_cast<long>(wire.size())), static_cast<long>(wire.size()))
            << element;
        import(copy, wire);
        EXPECT_EQ(dump(copy), wire) << element;
    }
}

// What a table held before goes with its memory, whatever takes its place.
TEST_F(DecodeBudget, LeavesNothingOfWhatTheTableHeld) {
    const Table t = new_table(), one = new_table();
    (*one)->SetII(one.get(), 1, 1);
    const Bytes wire = dump(one);
    const auto fill = [&] {
        for (unsigned long n = 0; n < 50000; ++n) (*t)->SetII(t.get(), n, 1);
    };
    fill();
    (*t)->RemoveAll(t.get()); // the thread keeps a few small blocks from now on
    const std::size_t before = held();
    fill();
    import(t, wire);
    EXPECT_LE(held(), before + 10000);
    fill();
    Tq4_value_table_oitf->Copy(t.get(), one.get());
    EXPECT_LE(held(), before + 10000);
}

// The memory of a table that was there before grows ahead, which the next small text does not pay.
TEST_F(DecodeBudget, LetsATableGrowByOneMemberAtATime) {
    Value v = new_value();
    for (int n = 0; n < 45000; ++n) {
        const Bytes text = "{\"k" + std::to_string(n) + "\":1}";
        ASSERT_TRUE((*v)->Json_decode(v.get(), text.data(), static_cast<int>(text.size()))) << n;
    }
}

// A host that sees tables made has them made at once.
TEST_F(DecodeBudget, CountsEmptyTablesOfAHost) {
    const Tq4_cxx_support_ defaults = *Tq4_cxx_support;
    Tq4_cxx_support->set_new_table([]() -> void * { return Tq4_value_table_oitf->Create(nullptr); });
    for (const Bytes &text : {"[" + repeated("{},", 200000) + "{}]", "[" + repeated("[],", 200000) + "[]]"}) {
        Value v = new_value();
        const std::size_t before = held();
        (*v)->Json_decode(v.get(), text.data(), static_cast<int>(text.size()));
        EXPECT_LE(held() - before, allowed(text.size()));
    }
    const Bytes wire = table_of("00 20 00 00000000", 200000);
    Value v = new_value();
    const std::size_t before = held();
    import(v, wire);
    EXPECT_LE(held() - before, allowed(wire.size()));
    *Tq4_cxx_support = defaults;
}

} // namespace
