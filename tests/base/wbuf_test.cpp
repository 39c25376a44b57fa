// What the write buffer promises: its capacity follows the described steps, numbers have a byte order, room that
// cannot be had changes nothing.
#include "base/wbuf.hpp"

#include <gtest/gtest.h>

#include <string>

#include "tq4/byte_order.h"

namespace {

struct Wbuf : testing::Test {
    Tq4_wbuf b;
    ~Wbuf() override { Tq4_wbuf_Release(&b); }

    void open(uint64_t size) {
        Tq4_wbuf_Init(&b, size);
        b.fflush = Tq4_wbuf_flush_nothing;
    }
    void cat(const std::string &text) { Tq4_wbuf_memcat(&b, text.data(), text.size()); }
    std::string text() const { return {reinterpret_cast<const char *>(b.m_data), Tq4_wbuf_size(&b)}; }
    bool consistent() const { return static_cast<uint64_t>(b.m_ptr - b.m_data) + b.m_cnt == b.m_len; }
};

TEST_F(Wbuf, CapacityGrowsByTheRequestRoundedUp) {
    struct {
        uint64_t capacity, request, grown;
    } cases[] = {
        {8, 1, 136}, {8, 128, 136}, {8, 129, 264}, {4000, 200, 4256}, {4095, 1, 4223}, {4096, 1, 8192}, {4096, 0, 4096},
    };
    for (auto &c : cases) {
        Tq4_wbuf w;
        Tq4_wbuf_Init(&w, c.capacity);
        EXPECT_EQ(Tq4_wbuf_extend(&w, c.request), &w);
        EXPECT_EQ(w.m_len, c.grown) << c.capacity << " + " << c.request;
        EXPECT_EQ(w.m_cnt, c.grown);
        Tq4_wbuf_Release(&w);
    }
}

TEST_F(Wbuf, RoomThatCannotBeHadChangesNothing) {
    open(100);
    cat("kept");
    Tq4_wbuf before = b;
    for (uint64_t n : {~uint64_t{0}, ~uint64_t{0} - 127, ~uint64_t{0} - 4096, uint64_t{1} << 62, uint64_t{1} << 47}) {
        EXPECT_EQ(Tq4_wbuf_extend(&b, n), nullptr) << n;
        EXPECT_EQ(Tq4_wbuf_space(&b, n), 96u) << n;
        Tq4_wbuf_memcat(&b, "x", n);
        Tq4_wbuf_Init(&b, n);
        EXPECT_EQ(memcmp(&before, &b, sizeof b), 0) << n;
    }
    EXPECT_EQ(text(), "kept");
}

} // namespace
