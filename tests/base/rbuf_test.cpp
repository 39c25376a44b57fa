// What the read buffer promises: bytes come out in the order they went in, across wraps and growth; numbers have a
// byte order; the hook is asked when, and only when, nothing is left.
#include "base/rbuf.hpp"
#include "support/test.hpp"

namespace {

using Owned = std::unique_ptr<Tq4_rbuf, decltype(&Tq4_rbuf_Delete)>;

// The text that the hook hands out, two bytes a call; then its last result, 0 or negative.
std::string pending;
int last_result;

void produce(Tq4_rbuf *b, const std::string &text) {
    for (size_t done = 0; done < text.size();) {
        long size;
        uint8_t *room = Tq4_rbuf_buffer(b, &size);
        size_t n = std::min(static_cast<size_t>(size), text.size() - done);
        std::copy_n(text.begin() + static_cast<long>(done), n, room);
        EXPECT_EQ(Tq4_rbuf_fill(b, size + 1), -1) << "more than the contiguous room";
        Tq4_rbuf_fill(b, static_cast<long>(n));
        done += n;
    }
}

int give_pending(Tq4_rbuf *b) {
    EXPECT_EQ(Tq4_rbuf_data_size(b), 0) << "asked while data was left";
    if (pending.empty()) return last_result;
    produce(b, pending.substr(0, 2));
    pending.erase(0, 2);
    return 1;
}

struct Rbuf : testing::Test {
    Owned owned{Tq4_rbuf_Create(0), Tq4_rbuf_Delete};
    Tq4_rbuf *b = owned.get();

    std::string take(unsigned long n) {
        std::string out(n, '\0');
        out.resize(static_cast<size_t>(std::max(0l, Tq4_rbuf_Read_data(b, out.data(), n))));
        return out;
    }
    void supply(const std::string &text, int at_the_end) {
        pending = text;
        last_result = at_the_end;
        b->get_ready = give_pending;
    }
};

TEST_F(Rbuf, RoomThatCannotBeHadLeavesTheBufferAsItWas) {
    produce(b, "kept");
    Tq4_rbuf before = *b;
    for (long n : {0x7fffffffl, 0x7fffffffl - 100, 0x80000000l, 0x7fffffffffffffffl})
        EXPECT_EQ(Tq4_rbuf_space(b, n), 0);
    Tq4_rbuf_Init(b, 0x7fffffffffffffffl);
    Tq4_rbuf_Init(b, 256); // is there already
    EXPECT_EQ(memcmp(&before, b, sizeof before), 0);
}

TEST_F(Rbuf, TheHookRefillsUntilItGivesZeroOrAnError) {
    int number = 77;
    EXPECT_EQ(Tq4_rbuf_Read_int(b, &number), -1);
    EXPECT_EQ(Tq4_rbuf_getch(b), -2) << "without a hook";
    supply("hello", 0);
    EXPECT_EQ(take(9), "hello");
    EXPECT_EQ(Tq4_rbuf_getch(b), -1);
    supply("ab", -5);
    EXPECT_EQ(take(3), "ab");
    EXPECT_EQ(Tq4_rbuf_Read_data(b, &number, 1), -5);
    EXPECT_EQ(Tq4_rbuf_getch(b), -6);
    EXPECT_EQ(number, 77);
    supply("\x01\x02\x03\x04", 0);
    EXPECT_EQ(Tq4_rbuf_Read_int(b, &number), 4) << "a number may come in pieces";
    EXPECT_EQ(number, 0x01020304);
    produce(b, "\x01\x02\x03\x04");
    EXPECT_EQ(Tq4_rbuf_Read_int(Owned(Tq4_rbuf_dup(b), Tq4_rbuf_Delete).get(), &number), 4);
    EXPECT_EQ(number, Tq4_host_order() ? 0x01020304 : 0x04030201) << "a duplicate reads host order";
    Tq4_rbuf_skip(b, -1);
    b->get_ready = [](Tq4_rbuf *) { return 1; };
    EXPECT_EQ(Tq4_rbuf_getch(b), -1) << "data promised but not added";
}

// Random producers and consumers against a queue of bytes.
struct Rbuf_model : Rbuf {
    std::mt19937 random{20240607};
    std::deque<char> model;
    char next = 0;

    long below(long n) { return static_cast<long>(random() % static_cast<unsigned long>(n)); }
    std::string drop(long n) {
        std::string front(model.begin(), model.begin() + std::min(n, static_cast<long>(model.size())));
        model.erase(model.begin(), model.begin() + static_cast<long>(front.size()));
        return front;
    }
    void fill() {
        if (below(200) == 0) Tq4_rbuf_space(b, below(5000));
        long size;
        uint8_t *room = Tq4_rbuf_buffer(b, &size);
        long n = below(2) ? std::min(size, below(60)) : below(size + 1);
        for (long i = 0; i < n; ++i) model.push_back(static_cast<char>(room[i] = static_cast<uint8_t>(next++)));
        ASSERT_EQ(Tq4_rbuf_fill(b, n), static_cast<long>(model.size()));
    }
    void read() {
        long n = below(400);
        ASSERT_EQ(take(static_cast<unsigned long>(n)), drop(n));
    }
    void skip() {
        long n = below(30) ? below(300) : -1;
        ASSERT_EQ(Tq4_rbuf_skip(b, n), static_cast<long>(drop(n < 0 ? 1 << 20 : n).size()));
    }
    void getch_and_perhaps_back() {
        int byte = Tq4_rbuf_getch(b);
        ASSERT_EQ(byte, model.empty() ? -2 : static_cast<uint8_t>(model.front()));
        const bool back = byte >= 0 && below(2);
        ASSERT_TRUE(back ? Tq4_rbuf_ungetch(b, byte) == byte : drop(1).size() < 2);
    }
    void replace_by_copy() {
        Owned copy{below(2) ? Tq4_rbuf_dup(b) : Tq4_rbuf_Create(below(3 * b->m_len)), Tq4_rbuf_Delete};
        Tq4_rbuf_Clone(copy.get(), b);
        std::swap(*b, *copy);
    }
    void start_over() { Tq4_rbuf_Release(b), Tq4_rbuf_Init(b, 0), model.clear(); }
};

TEST_F(Rbuf_model, BytesComeOutAsTheyWentIn) {
    using M = Rbuf_model;
    void (M::*steps[])() = {&M::fill, &M::fill, &M::fill, &M::read, &M::read, &M::skip, &M::getch_and_perhaps_back};
    for (int i = 0; i < 60000 && !HasFatalFailure(); ++i) {
        (this->*steps[below(std::size(steps))])();
        if (i % 100 == 0) replace_by_copy();
        if (b->m_len >= 60000) start_over();
        ASSERT_EQ(Tq4_rbuf_data_size(b), static_cast<long>(model.size()));
    }
}

} // namespace
