// What the write buffer promises: its capacity follows the described steps, its hooks are asked when they should be,
// numbers have a byte order, and room that cannot be had changes nothing.
#include "base/wbuf.hpp"
#include "sanitizers.hpp"
#include "support/test.hpp"

namespace {

using Owned = std::unique_ptr<Tq4_wbuf, decltype(&Tq4_wbuf_Delete)>;

int hook_calls;
int hook_result;

int counting_hook(Tq4_wbuf *) { return ++hook_calls, hook_result; }

struct Wbuf : testing::Test {
    Tq4_wbuf b;
    Wbuf() { hook_calls = hook_result = 0; }
    ~Wbuf() override { Tq4_wbuf_Release(&b); }

    void open(uint64_t size) { Tq4_wbuf_Init(&b, size), b.fflush = Tq4_wbuf_flush_nothing; }
    std::string text() const { return {reinterpret_cast<const char *>(b.m_data), Tq4_wbuf_size(&b)}; }
};

TEST_F(Wbuf, CapacityGrowsByTheRequestRoundedUp) {
    constexpr uint64_t cases[][3] = {{0, 1, 136},     {8, 129, 264},   {4000, 200, 4256},
                                     {4095, 1, 4223}, {4096, 1, 8192}, {4096, 0, 4096}};
    for (auto [capacity, request, grown] : cases) {
        Owned w{Tq4_wbuf_Create(capacity), Tq4_wbuf_Delete};
        EXPECT_EQ(Tq4_wbuf_extend(w.get(), request), w.get());
        EXPECT_TRUE(w->m_len == grown && w->m_cnt == grown) << capacity << " + " << request;
    }
}

#if defined(TQ4_ADDRESS_SANITIZER) || defined(TQ4_THREAD_SANITIZER)
constexpr uint64_t refused = uint64_t{1} << 62; // their allocators abort on what others refuse
#else
constexpr uint64_t refused = Tq4_wbuf_ceiling - 8192;
#endif

TEST_F(Wbuf, RoomThatCannotBeHadChangesNothing) {
    open(100);
    Tq4_wbuf_memcat(&b, "kept", 4);
    Tq4_wbuf before = b;
    for (uint64_t n : {~uint64_t{0}, ~uint64_t{0} - 127, ~uint64_t{0} - 4096, uint64_t{1} << 62, refused}) {
        EXPECT_EQ(Tq4_wbuf_extend(&b, n), nullptr) << n;
        Tq4_wbuf_memcat(&b, "x", n);
        Tq4_wbuf_Init(&b, n);
        Tq4_wbuf_Init(&b, 100); // which it has already
        EXPECT_EQ(memcmp(&before, &b, sizeof b), 0) << n;
    }
    EXPECT_EQ(text(), "kept");
}

TEST_F(Wbuf, SpaceAsksTheFlushHookOfABufferThatHoldsData) {
    open(0);
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
    open(0);
    b.put_ready = counting_hook;
    hook_result = -7;
    EXPECT_EQ(Tq4_wbuf_Write(&b, "0123456789", ~uint64_t{0}), -7);
    EXPECT_EQ(text(), "01234567");
    EXPECT_EQ(Tq4_wbuf_putch(&b, 'x'), -8);
    EXPECT_EQ(Tq4_wbuf_Write_int(&b, 1), -1);
    hook_result = 1;
    EXPECT_EQ(Tq4_wbuf_putch(&b, 'x'), -1) << "room that is promised but not made";
    EXPECT_EQ(Tq4_wbuf_Write(&b, "x", 1), 0);
    EXPECT_EQ(Tq4_wbuf_Write(&b, nullptr, 5), -100);
}

TEST_F(Wbuf, NumbersAreNetworkOrderUnlessTheFlagIsOff) {
    open(0);
    EXPECT_EQ(Tq4_wbuf_Write_int(&b, 0x01020304) + Tq4_wbuf_Write_ldouble(&b, 1.0L), 20) << "part of it after growing";
    b.m_order_flag = 0;
    EXPECT_EQ(Tq4_wbuf_Write_ushort(&b, 0x4142), 2);
    EXPECT_EQ(text(),
              std::string("\1\2\3\4\0\0\0\0\0\0\x3F\xFF\x80\0\0\0\0\0\0\0", 20) + (Tq4_host_order() ? "AB" : "BA"));
}

TEST_F(Wbuf, CopiesHaveTheContentTheOrderAndPutReadyButNotTheFlushHook) {
    open(300);
    memcpy(b.m_ptr, "content\0", 8);
    EXPECT_EQ(Tq4_wbuf_skip(&b, ~uint64_t{0}), 7u) << "commits up to the NUL";
    b.m_order_flag = 0;
    b.put_ready = counting_hook;
    const Owned copy{Tq4_wbuf_Dup(&b), Tq4_wbuf_Delete};
    EXPECT_EQ(memcmp(copy->m_data, "content", 7), 0);
    EXPECT_TRUE(copy->m_len == 300 && copy->m_cnt == 293 && copy->m_order_flag == 0);
    EXPECT_TRUE(copy->put_ready == counting_hook && copy->fflush == nullptr);
}

} // namespace
