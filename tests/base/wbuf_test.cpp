// What the write buffer promises: its capacity follows the described steps, its hooks are asked when they should be,
// numbers have a byte order, and room that cannot be had changes nothing.
#include "base/wbuf.hpp"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "tq4/byte_order.h"

namespace {

int hook_calls;
int hook_result;

int counting_hook(Tq4_wbuf *) {
    ++hook_calls;
    return hook_result;
}

struct Wbuf : testing::Test {
    Tq4_wbuf b;
    Wbuf() { hook_calls = hook_result = 0; }
    ~Wbuf() override { Tq4_wbuf_Release(&b); }

    void open(uint64_t size) {
        Tq4_wbuf_Init(&b, size);
        b.fflush = Tq4_wbuf_flush_nothing;
    }
    void cat(const std::string &text) { Tq4_wbuf_memcat(&b, text.data(), text.size()); }
    std::string text() const { return {reinterpret_cast<const char *>(b.m_data), Tq4_wbuf_size(&b)}; }
};

TEST_F(Wbuf, CapacityGrowsByTheRequestRoundedUp) {
    struct {
        uint64_t capacity, request, grown;
    } cases[] = {
        {0, 1, 136}, {8, 128, 136}, {8, 129, 264}, {4000, 200, 4256}, {4095, 1, 4223}, {4096, 1, 8192}, {4096, 0, 4096},
    };
    for (auto &c : cases) {
        std::unique_ptr<Tq4_wbuf, decltype(&Tq4_wbuf_Delete)> w{Tq4_wbuf_Create(c.capacity), Tq4_wbuf_Delete};
        EXPECT_EQ(w->m_len, std::max<uint64_t>(c.capacity, 8));
        EXPECT_EQ(Tq4_wbuf_extend(w.get(), c.request), w.get());
        EXPECT_EQ(w->m_len, c.grown) << c.capacity << " + " << c.request;
        EXPECT_EQ(w->m_cnt, c.grown);
    }
}

TEST_F(Wbuf, AppendingReallocatesRarelyAndKeepsEveryByte) {
    open(0);
    std::string expected;
    int moves = 0;
    for (int i = 0; i < 30000; ++i) {
        uint64_t room = b.m_room;
        std::string piece = std::to_string(i);
        i % 2 ? cat(piece) : void(Tq4_wbuf_Write(&b, piece.data(), piece.size()));
        expected += piece;
        moves += b.m_room != room;
        ASSERT_EQ(static_cast<uint64_t>(b.m_ptr - b.m_data) + b.m_cnt, b.m_len);
    }
    EXPECT_EQ(text(), expected);
    EXPECT_LE(moves, 20) << "the storage at least doubles";
}

TEST_F(Wbuf, RoomThatCannotBeHadChangesNothing) {
    open(100);
    cat("kept");
    Tq4_wbuf before = b;
    for (uint64_t n :
         {~uint64_t{0}, ~uint64_t{0} - 127, ~uint64_t{0} - 4096, uint64_t{1} << 62, Tq4_wbuf_ceiling + 1}) {
        EXPECT_EQ(Tq4_wbuf_extend(&b, n), nullptr) << n;
        EXPECT_EQ(Tq4_wbuf_space(&b, n), 96u) << n;
        Tq4_wbuf_memcat(&b, "x", n);
        Tq4_wbuf_Init(&b, n);
        EXPECT_EQ(memcmp(&before, &b, sizeof b), 0) << n;
    }
    EXPECT_EQ(text(), "kept");
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) // whose allocators abort instead
TEST_F(Wbuf, AnAllocationThatFailsChangesNothing) {
    open(100);
    cat("kept");
    Tq4_wbuf before = b;
    EXPECT_EQ(Tq4_wbuf_extend(&b, Tq4_wbuf_ceiling - 4096), nullptr);
    EXPECT_EQ(memcmp(&before, &b, sizeof b), 0);
}
#endif

TEST_F(Wbuf, InitWithACapacityThatSufficesChangesNothing) {
    open(64);
    cat("kept");
    Tq4_wbuf_Init(&b, 64);
    EXPECT_EQ(text(), "kept");
    Tq4_wbuf_Init(&b, 65);
    EXPECT_EQ(text(), "");
    EXPECT_EQ(b.m_len, 65u);
    EXPECT_EQ(b.m_data[0], 0);
}

TEST_F(Wbuf, BorrowedStorageIsLeftWhenItIsTooSmall) {
    char storage[16];
    Tq4_wbuf_InitFixed(&b, storage, sizeof storage);
    b.fflush = Tq4_wbuf_flush_nothing;
    cat("0123456789abcdef");
    EXPECT_EQ(static_cast<void *>(b.m_data), storage);
    cat("!");
    EXPECT_NE(static_cast<void *>(b.m_data), storage);
    EXPECT_EQ(b.m_len, 16u + 128u);
    EXPECT_EQ(text(), "0123456789abcdef!");
}

TEST_F(Wbuf, SpaceAsksTheFlushHookOfABufferThatHoldsData) {
    open(8);
    b.fflush = counting_hook;
    EXPECT_EQ(Tq4_wbuf_space(&b, 20), 8u + 128u);
    EXPECT_EQ(hook_calls, 0) << "an empty buffer has nothing to flush";
    Tq4_wbuf_putch(&b, 'x');
    EXPECT_EQ(Tq4_wbuf_space(&b, 1000), 135u) << "the hook refuses";
    Tq4_wbuf_memcat(&b, "ab", 2);
    EXPECT_EQ(hook_calls, 2) << "asked even when there is room enough";
    EXPECT_EQ(text(), "xab");
    hook_result = 1;
    EXPECT_GE(Tq4_wbuf_space(&b, 1000), 1000u);
    b.fflush = nullptr;
    EXPECT_LT(Tq4_wbuf_space(&b, 1 << 20), 1u << 20) << "without a hook no room can be made";
}

TEST_F(Wbuf, PutReadyDecidesWhatHappensWhenTheBufferIsFull) {
    open(8);
    b.put_ready = counting_hook;
    hook_result = -7;
    EXPECT_EQ(Tq4_wbuf_Write(&b, "0123456789", 10), -7);
    EXPECT_EQ(text(), "01234567");
    EXPECT_EQ(Tq4_wbuf_putch(&b, 'x'), -8);
    EXPECT_EQ(Tq4_wbuf_Write_char(&b, 'x'), -8);
    EXPECT_EQ(Tq4_wbuf_Write_int(&b, 1), -1);
    hook_result = 1;
    EXPECT_EQ(Tq4_wbuf_putch(&b, 'x'), -1) << "room that is promised but not made";
    EXPECT_EQ(Tq4_wbuf_Write(&b, "x", 1), 0);
    EXPECT_EQ(Tq4_wbuf_Write(&b, nullptr, 5), -100);
    Tq4_wbuf_Reset(&b);
    EXPECT_EQ(Tq4_wbuf_Write(&b, "to the NUL", ~uint64_t{0}), 0);
    EXPECT_EQ(text(), "to the N");
}

TEST_F(Wbuf, NumbersAreNetworkOrderUnlessTheFlagIsOff) {
    open(0);
    EXPECT_EQ(Tq4_wbuf_Write_int(&b, 0x01020304), 4);
    b.m_order_flag = 0;
    EXPECT_EQ(Tq4_wbuf_Write_int(&b, 0x01020304), 4);
    EXPECT_EQ(text(), std::string("\1\2\3\4") + (Tq4_host_order() ? "\1\2\3\4" : "\4\3\2\1"));
    b.m_order_flag = 1;
    Tq4_wbuf_Reset(&b);
    EXPECT_EQ(Tq4_wbuf_Write_ushort(&b, 0x4142), 2);
    EXPECT_EQ(Tq4_wbuf_Write_double(&b, 1.0), 8) << "part of it comes after growing";
    EXPECT_EQ(Tq4_wbuf_Write_ldouble(&b, 1.0L), 16);
    EXPECT_EQ(Tq4_wbuf_Write_char(&b, '\xFF'), 1);
    EXPECT_EQ(text(), std::string("AB\x3F\xF0\0\0\0\0\0\0"
                                  "\0\0\0\0\0\0\x3F\xFF\x80\0\0\0\0\0\0\0\xFF",
                                  27));
}

TEST_F(Wbuf, SkipCommitsUpToTheRoomOrTheNul) {
    open(8);
    memcpy(b.m_ptr, "abc\0defg", 8);
    EXPECT_EQ(Tq4_wbuf_skip(&b, ~uint64_t{0}), 3u);
    EXPECT_EQ(Tq4_wbuf_skip(&b, 1), 1u);
    EXPECT_EQ(Tq4_wbuf_skip(&b, ~uint64_t{0}), 4u) << "no NUL before the end of the room";
    EXPECT_EQ(Tq4_wbuf_skip(&b, 5), 0u);
}

TEST_F(Wbuf, CopiesHaveTheContentTheOrderAndPutReadyButNotTheFlushHook) {
    open(300);
    cat("content");
    b.m_order_flag = 0;
    b.put_ready = counting_hook;
    std::unique_ptr<Tq4_wbuf, decltype(&Tq4_wbuf_Delete)> copy{Tq4_wbuf_Dup(&b), Tq4_wbuf_Delete};
    EXPECT_EQ(copy->m_len, 300u);
    EXPECT_EQ(memcmp(copy->m_data, "content", 7), 0);
    EXPECT_EQ(copy->m_order_flag, 0);
    EXPECT_EQ(copy->put_ready, counting_hook);
    EXPECT_EQ(copy->fflush, nullptr);
    Tq4_wbuf_Init(copy.get(), 500);
    Tq4_wbuf_Copy(copy.get(), &b);
    EXPECT_EQ(copy->m_len, 500u);
    EXPECT_EQ(copy->m_cnt, 493u);
    Tq4_wbuf_Copy(nullptr, &b);
    Tq4_wbuf_Copy(&b, nullptr);
    EXPECT_EQ(Tq4_wbuf_Dup(nullptr), nullptr);
    Tq4_wbuf_Delete(nullptr);
}

TEST_F(Wbuf, ItsOwnBytesCanBeAppendedWhileItMoves) {
    open(8);
    cat("seed");
    for (int i = 0; i < 6; ++i) Tq4_wbuf_memcat(&b, b.m_data, Tq4_wbuf_size(&b));
    EXPECT_EQ(Tq4_wbuf_Write(&b, b.m_data + 1, 255), 255);
    std::string expected;
    for (int i = 0; i < 64; ++i) expected += "seed";
    EXPECT_EQ(text(), expected + expected.substr(1));
}

TEST(ByteOrder, TheExchangeReversesOnALittleEndianHost) {
    char out[5];
    EXPECT_EQ(host_net_exchange("12345", out, 5), 5u);
    EXPECT_EQ(std::string(out, 5), Tq4_host_order() ? "12345" : "54321");
    EXPECT_EQ(host_net_exchange(nullptr, out, 5), 0u);
}

} // namespace
