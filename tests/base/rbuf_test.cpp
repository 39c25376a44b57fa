// What the read buffer promises: bytes come out in the order they went in, across wraps and growth; numbers have a
// byte order; the hook is asked when, and only when, nothing is left.
#include "base/rbuf.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <memory>
#include <random>
#include <string>

namespace {

using Rbuf_handle = std::unique_ptr<Tq4_rbuf, decltype(&Tq4_rbuf_Delete)>;

// The text that the hook hands out, a few bytes a call; then the final result, 0 or negative.
std::string pending;
long portion = 2;
int final_result = 0;

int give_pending(Tq4_rbuf *buffer) {
    EXPECT_EQ(Tq4_rbuf_data_size(buffer), 0) << "asked while data was left";
    if (pending.empty()) return final_result;
    long size;
    uint8_t *room = Tq4_rbuf_buffer(buffer, &size);
    long n = std::min({size, portion, static_cast<long>(pending.size())});
    std::copy_n(pending.begin(), n, room);
    pending.erase(0, static_cast<size_t>(n));
    return static_cast<int>(Tq4_rbuf_fill(buffer, n));
}

struct Rbuf : testing::Test {
    Tq4_rbuf *b = Tq4_rbuf_Create(0);
    ~Rbuf() override { Tq4_rbuf_Delete(b); }

    void feed(const std::string &text) {
        ASSERT_GE(Tq4_rbuf_space(b, static_cast<long>(text.size())), static_cast<long>(text.size()));
        for (size_t done = 0; done < text.size();) {
            long size;
            uint8_t *room = Tq4_rbuf_buffer(b, &size);
            auto n = std::min(static_cast<size_t>(size), text.size() - done);
            std::copy_n(text.begin() + static_cast<long>(done), n, room);
            Tq4_rbuf_fill(b, static_cast<long>(n));
            done += n;
        }
    }
    std::string take(unsigned long n) {
        std::string out(n, '\0');
        out.resize(static_cast<size_t>(std::max(0l, Tq4_rbuf_Read_data(b, out.data(), n))));
        return out;
    }
    void supply(const std::string &text, int at_the_end) {
        pending = text;
        final_result = at_the_end;
        b->get_ready = give_pending;
    }
    // Leaves `second` unread bytes wrapped behind `first` bytes that reach the end of a storage of 256.
    void wrap(long first, long second) {
        feed(std::string(static_cast<size_t>(256 - first), 'x'));
        Tq4_rbuf_skip(b, -1);
        for (long i = 0; i < first + second; ++i) feed(std::string(1, static_cast<char>('A' + i % 26)));
        ASSERT_EQ(b->m_cache1 - b->m_read, first);
        ASSERT_EQ(b->m_cache2 - b->m_data, second);
    }
};

std::string alphabet(long n) {
    std::string text;
    for (long i = 0; i < n; ++i) text += static_cast<char>('A' + i % 26);
    return text;
}

TEST_F(Rbuf, AnEmptyBufferGivesNothingAndKeepsItsCursor) {
    EXPECT_EQ(b->m_len, 256);
    uint8_t *cursor = b->m_read;
    int number = 77;
    unsigned char byte = 7;
    EXPECT_EQ(Tq4_rbuf_Read_int(b, &number), -1);
    EXPECT_EQ(number, 77);
    EXPECT_EQ(Tq4_rbuf_getch(b), -2);
    EXPECT_EQ(Tq4_rbuf_Read_uchar(b, &byte), -1);
    EXPECT_EQ(Tq4_rbuf_Read_data(b, &number, 4), -1);
    EXPECT_EQ(b->m_read, cursor);
}

TEST_F(Rbuf, NumbersAreNetworkOrderUnlessTheFlagIsOff) {
    short s;
    unsigned u;
    unsigned long l;
    feed("\x01\x02\x01\x02\x03\x04\x01\x02\x03\x04\x05\x06\x07\x08\x01\x02\x03\x04");
    EXPECT_EQ(Tq4_rbuf_Read_short(b, &s), 2);
    EXPECT_EQ(Tq4_rbuf_Read_uint(b, &u), 4);
    EXPECT_EQ(Tq4_rbuf_Read_ulong(b, &l), 8);
    EXPECT_EQ(s, 0x0102);
    EXPECT_EQ(u, 0x01020304u);
    EXPECT_EQ(l, 0x0102030405060708u);
    b->m_order_flag = 0;
    EXPECT_EQ(Tq4_rbuf_Read_uint(b, &u), 4);
    EXPECT_EQ(u, Tq4_host_order() ? 0x01020304u : 0x04030201u);
}

TEST_F(Rbuf, ADuplicateReadsNumbersInHostOrderAndACloneKeepsTheOrder) {
    feed("\x01\x02\x03\x04");
    Rbuf_handle duplicate{Tq4_rbuf_dup(b), Tq4_rbuf_Delete}, clone{Tq4_rbuf_Create(4000), Tq4_rbuf_Delete};
    Tq4_rbuf_Clone(clone.get(), b);
    unsigned u;
    EXPECT_EQ(Tq4_rbuf_Read_uint(duplicate.get(), &u), 4);
    EXPECT_EQ(u, Tq4_host_order() ? 0x01020304u : 0x04030201u);
    EXPECT_EQ(Tq4_rbuf_Read_uint(clone.get(), &u), 4);
    EXPECT_EQ(u, 0x01020304u);
    EXPECT_EQ(Tq4_rbuf_dup(nullptr), nullptr);
    Tq4_rbuf_Clone(nullptr, b);
    Tq4_rbuf_Delete(nullptr);
}

TEST_F(Rbuf, ACloneIntoALargerStorageKeepsTheOrderOfAWrappedRing) {
    wrap(20, 30);
    Rbuf_handle clone{Tq4_rbuf_Create(1000), Tq4_rbuf_Delete};
    Tq4_rbuf_Clone(clone.get(), b);
    std::swap(*b, *clone);
    feed("more");
    EXPECT_EQ(take(1000), alphabet(50) + "more");
}

TEST_F(Rbuf, GrowthJoinsTheSegmentsOrMovesTheFirstToTheNewEnd) {
    struct {
        long first, second, request, capacity;
        bool joined;
    } cases[] = {
        {20, 30, 207, 256 + 1024, true},    // the second segment fits behind the first
        {6, 250, 1, 256 + 1024, false},     // the second is longer than the request
        {100, 150, 7, 256 + 1024, false},   // the request is raised to the smaller segment
        {150, 100, 7, 256 + 1024, true},    // and then covers the second
        {100, 100, 2000, 256 + 2048, true}, // two steps
        {200, 0, 57, 256 + 1024, true},     // nothing wrapped: the pointers move
    };
    for (auto &c : cases) {
        Tq4_rbuf_Delete(b);
        b = Tq4_rbuf_Create(0);
        wrap(c.first, c.second);
        EXPECT_EQ(Tq4_rbuf_space(b, c.request), c.capacity - c.first - c.second);
        EXPECT_EQ(b->m_len, c.capacity);
        EXPECT_EQ(b->m_cache2 == b->m_data, c.joined) << c.first << " + " << c.second;
        EXPECT_EQ(b->m_cache1 == b->m_data + b->m_len, !c.joined);
        EXPECT_EQ(take(1000), alphabet(c.first + c.second));
    }
}

TEST_F(Rbuf, GrowsByWholePagesFromFourThousandAndNinetySixOn) {
    Tq4_rbuf_Init(b, 4096);
    EXPECT_EQ(Tq4_rbuf_space(b, 4097), 4096 + 8192);
    Tq4_rbuf_Init(b, 300);
    EXPECT_EQ(b->m_len, 4096 + 8192) << "a capacity that suffices changes nothing";
}

TEST_F(Rbuf, RoomThatCannotBeHadLeavesTheBufferAsItWas) {
    feed("kept");
    Tq4_rbuf before = *b;
    for (long n : {0x7fffffffl, 0x7fffffffl - 100, 0x80000000l, 0x7fffffffffffffffl})
        EXPECT_EQ(Tq4_rbuf_space(b, n), 0) << n;
    Tq4_rbuf_Init(b, 0x7fffffffffffffffl);
    EXPECT_EQ(memcmp(&before, b, sizeof before), 0);
    EXPECT_EQ(take(10), "kept");
}

TEST_F(Rbuf, FillRefusesMoreThanTheContiguousRoom) {
    long size;
    Tq4_rbuf_buffer(b, &size);
    EXPECT_EQ(size, 256);
    EXPECT_EQ(Tq4_rbuf_fill(b, 257), -1);
    EXPECT_EQ(Tq4_rbuf_fill(b, -1), -1);
    EXPECT_EQ(Tq4_rbuf_fill(b, 256), 256);
    EXPECT_EQ(Tq4_rbuf_fill(b, 1), -1);
}

TEST_F(Rbuf, TheHookRefillsUntilItGivesZeroOrAnError) {
    supply("hello", 0);
    EXPECT_EQ(take(4), "hell");
    EXPECT_EQ(take(4), "o");
    EXPECT_EQ(Tq4_rbuf_Read_data(b, nullptr, 1), 0);
    EXPECT_EQ(Tq4_rbuf_getch(b), -1);
    supply("ab", -5);
    EXPECT_EQ(take(3), "ab");
    char c;
    EXPECT_EQ(Tq4_rbuf_Read_data(b, &c, 1), -5);
    EXPECT_EQ(Tq4_rbuf_Read_char(b, &c), -5);
    EXPECT_EQ(Tq4_rbuf_getch(b), -6);
    supply("\x01\x02\x03\x04", 0);
    int number;
    EXPECT_EQ(Tq4_rbuf_Read_int(b, &number), 4) << "a number may come in pieces";
    EXPECT_EQ(number, 0x01020304);
}

TEST_F(Rbuf, AHookThatPromisesDataButAddsNoneEndsTheRead) {
    b->get_ready = [](Tq4_rbuf *) { return 1; };
    EXPECT_EQ(Tq4_rbuf_getch(b), -1);
    EXPECT_EQ(take(3), "");
}

TEST_F(Rbuf, AByteGoesBackUnlessNewerDataTookItsPlace) {
    EXPECT_EQ(Tq4_rbuf_ungetch(b, 'z'), 'z') << "an empty buffer takes a byte at the start of storage";
    EXPECT_EQ(Tq4_rbuf_UnRead(b, 'y'), 0) << "with data unread nothing lies before the start";
    EXPECT_EQ(take(2), "z");
    EXPECT_EQ(Tq4_rbuf_ungetch(b, 'q'), 'z') << "stepping back finds the byte that was read";
    Tq4_rbuf_Reset(b);
    wrap(10, 246);
    EXPECT_EQ(Tq4_rbuf_ungetch(b, '!'), 0) << "a full ring";
    EXPECT_EQ(Tq4_rbuf_getch(b), 'A');
    EXPECT_EQ(Tq4_rbuf_ungetch(b, 'A'), 'A');
    EXPECT_EQ(take(1000), alphabet(256));
}

TEST_F(Rbuf, SkipDiscardsAcrossBothSegments) {
    wrap(20, 30);
    EXPECT_EQ(Tq4_rbuf_skip(b, 25), 25);
    EXPECT_EQ(take(3), alphabet(28).substr(25));
    EXPECT_EQ(Tq4_rbuf_skip(b, -1), 22);
    EXPECT_EQ(Tq4_rbuf_skip(b, 5), 0);
    EXPECT_EQ(Tq4_rbuf_data_size(b), 0);
}

// Random producers and consumers against a queue of bytes.
struct Model : Rbuf {
    std::mt19937 random{20240607};
    std::deque<char> model;
    char next = 0;

    long below(long n) { return std::uniform_int_distribution<long>(0, n - 1)(random); }
    std::string front(long n) { return {model.begin(), model.begin() + std::min(n, static_cast<long>(model.size()))}; }
    void drop(size_t n) { model.erase(model.begin(), model.begin() + static_cast<long>(n)); }

    void produce() {
        if (below(200) == 0) Tq4_rbuf_space(b, below(5000));
        long size;
        uint8_t *room = Tq4_rbuf_buffer(b, &size);
        ASSERT_GT(size, 0);
        long n = below(2) ? std::min(size, below(60)) : below(size + 1);
        for (long i = 0; i < n; ++i) model.push_back(static_cast<char>(room[i] = static_cast<uint8_t>(next++)));
        ASSERT_EQ(Tq4_rbuf_fill(b, n), static_cast<long>(model.size()));
    }
    void read() {
        long n = below(400);
        std::string expected = front(n);
        ASSERT_EQ(take(static_cast<unsigned long>(n)), expected);
        drop(expected.size());
    }
    void skip() {
        long n = below(50) ? below(300) : -1;
        ASSERT_EQ(Tq4_rbuf_skip(b, n), static_cast<long>(n < 0 ? model.size() : front(n).size()));
        drop(n < 0 ? model.size() : front(n).size());
    }
    void getch_and_back() {
        int byte = Tq4_rbuf_getch(b);
        if (model.empty()) {
            ASSERT_LT(byte, 0);
            return;
        }
        ASSERT_EQ(byte, static_cast<uint8_t>(model.front()));
        if (below(2))
            ASSERT_EQ(Tq4_rbuf_ungetch(b, byte), byte);
        else
            model.pop_front();
    }
    void replace_by_copy() {
        Rbuf_handle copy{Tq4_rbuf_dup(b), Tq4_rbuf_Delete};
        if (below(2)) {
            copy.reset(Tq4_rbuf_Create(below(3 * b->m_len)));
            Tq4_rbuf_Clone(copy.get(), b);
        }
        std::swap(*b, *copy);
    }
};

TEST_F(Model, BytesComeOutAsTheyWentIn) {
    for (int step = 0; step < 60000 && !HasFatalFailure(); ++step) {
        long choice = below(100);
        if (choice < 48)
            produce();
        else if (choice < 80)
            read();
        else if (choice < 88)
            skip();
        else if (choice < 98)
            getch_and_back();
        else
            replace_by_copy();
        if (b->m_len > 60000) {
            Tq4_rbuf_Delete(b);
            b = Tq4_rbuf_Create(0);
            model.clear();
        }
        ASSERT_EQ(Tq4_rbuf_data_size(b), static_cast<long>(model.size()));
    }
}

} // namespace
