// What a reorder buffer promises at either end of a connection, beside a model; what it logs; and the numbers that
// strangers may send.
#include "base/reorder_model.hpp"
#include "support/heard.hpp"

namespace {

struct Reorder : testing::Test, Heard {
    Tq4_own<Tq4_reorder> owned = Tq4_make<Tq4_reorder>(Tq4_reorder_oitf);
    Tq4_reorder b = owned.get();

    void init(int size, int max_wait = 0) { (*b)->Init(b, size, ignore, max_wait); }
    static void ignore(void *) {}
    static void *data(long n) { return reinterpret_cast<void *>(n); }
    int cache(unsigned seq, int mode = 1) { return (*b)->CacheItem(b, seq, data(seq + 1l), mode); }
    // The number of the packet released, or -1.
    long get(int wait = 0) {
        unsigned seq = 0;
        int empty = 0;
        (*b)->GetItemWait(b, &seq, wait, &empty);
        return empty ? -1 : long{seq};
    }
};

void complain(const std::string &what) { ADD_FAILURE() << what; }

// Numbers near the head, at the edges of the window, and anywhere.
unsigned some_number(std::mt19937 &random, const Reorder_model &model) {
    switch (random() % 8) {
    case 0:
        return static_cast<unsigned>(random());
    case 1:
        return model.head() + model.size() + static_cast<unsigned>(random() % 3) - 1;
    case 2:
        return model.head() - static_cast<unsigned>(random() % 3);
    case 3:
        return model.head() + static_cast<unsigned>(random() % (3 * model.size()));
    default:
        return model.head() + static_cast<unsigned>(random() % std::min(model.size(), 4u));
    }
}

TEST_F(Reorder, BehavesAsAModelAtBothEndsAcrossTheWrap) {
    std::mt19937 random(1);
    for (int round = 0; round < 300 && !HasFailure(); ++round) {
        const int sizes[] = {0, 1, 2, 3, 5, 8, 64, 70000};
        Reorder_model model(sizes[random() % (round % 50 ? 7 : 8)], static_cast<int>(random() % 12) - 2, complain);
        const unsigned start =
            random() % 2 ? 0u - static_cast<unsigned>(random() % 40) : static_cast<unsigned>(random());
        if (random() % 2)
            model.set_first(start);
        else
            model.cache(start, 0);
        const unsigned bias = static_cast<unsigned>(random() % 3); // which end it is more of
        for (int step = 0; step < 200 && !HasFailure(); ++step) {
            const unsigned way = static_cast<unsigned>(random() % 16) + 8 * bias;
            if (step % 50 == 0) model.limit(static_cast<int>(random() % 12) - 2);
            if (way < 10)
                model.cache(some_number(random, model), static_cast<int>(random() % 3) - 1);
            else if (way < 16)
                model.get(static_cast<int>(random() % 4) - 1);
            else if (way < 17)
                model.append();
            else if (way < 25)
                model.send();
            else
                model.ack(some_number(random, model));
            model.compare();
        }
    }
}

TEST_F(Reorder, LogsWhatItDrops) {
    init(2);
    EXPECT_EQ(cache(4294967295u), 1);
    EXPECT_EQ(cache(0), 2);
    EXPECT_EQ(logged, (Texts{"0 Tq4_reorder_itf_CacheItem 队列满,obj->m_size=2\n"}));
    logged.clear();
    EXPECT_EQ(cache(1, 1), -1);
    EXPECT_EQ(cache(1, 0), -1);
    EXPECT_EQ((*b)->CacheItem(b, 0, nullptr, 0), 0);
    EXPECT_EQ(cache(2, -1), 1) << "stored behind a gap";
    EXPECT_EQ(get(), -1);
    EXPECT_EQ(logged,
              (Texts{"0 Tq4_reorder_CacheItem 数据包超过范围，直接丢弃 1\n",
                     "0 Tq4_reorder_CacheItem 数据包 seq 超过范围，返回失败\n", "0 Tq4_reorder_CacheItem 缓冲区满\n",
                     "0 主动丢弃数据包 4294967295,eseq = 4294967295,seq = 2,end_pos=3\n",
                     "0 主动丢弃数据包 0,eseq = 0,seq = 2,end_pos=2\n"}));
    EXPECT_EQ(printed, (Texts{"0 Tq4_reorder_CacheItem 数据包 seq 超过范围，返回失败\n"}));
    EXPECT_EQ(cache(1), 2);
    logged.clear();
    EXPECT_EQ((*b)->Ack(b, 3, nullptr, nullptr), -4);
    EXPECT_EQ(get(), 1);
    EXPECT_EQ((*b)->Ack(b, 3, nullptr, nullptr), -5);
    EXPECT_EQ(logged, (Texts{"0 Tq4_reorder_Ack seq=1, ACK seq=3,超过范围了01",
                             "0 Tq4_reorder_Ack seq=2, ACK seq=3,超过范围了02"}));
}

TEST_F(Reorder, HoldsNothingBeforeInitAndIsFreshAfterReset) {
    EXPECT_TRUE((*b)->IsEmpty(b) && (*b)->IsFull(b));
    for (const int mode : {1, 0, -1}) EXPECT_EQ(cache(5, mode), -1);
    EXPECT_TRUE(!(*b)->SafeCache(b, 5, data(1)) && !(*b)->SafeWait(b, nullptr, data(1)) &&
                !(*b)->Ack(b, 5, nullptr, nullptr) && !(*b)->PeekData(b, 5) && get() == -1);
    (*b)->Init(b, 4, nullptr, 1); // the default delete function
    unsigned seq = 1;
    EXPECT_TRUE((*b)->SafeWait(b, &seq, std::malloc(8)) && seq == 0);
    auto twin = Tq4_own<Tq4_reorder>(static_cast<Tq4_reorder>(Tq4_reorder_oitf->Dup(b)));
    Tq4_reorder t = twin.get();
    EXPECT_TRUE((*t)->IsEmpty(t) && !(*t)->IsFull(t) && (*t)->SafeCache(t, 3, std::malloc(8)));
    EXPECT_TRUE(!(*t)->SafeCache(t, 3, data(1)) && !(*t)->SafeCache(t, 7, data(1))) << "as large as the first";
    std::free((*t)->SafeGet(t, &seq));
    EXPECT_EQ(seq, 3u);
    Tq4_reorder_oitf->Reset(b);
    EXPECT_TRUE((*b)->IsFull(b));
}

// It sees what is left, in whatever order that is.
TEST_F(Reorder, ItsDeleteFunctionMayLook) {
    static Tq4_reorder looked_at;
    static long seen;
    looked_at = b;
    seen = 0;
    static constexpr auto count = [](unsigned, void *, void *) { return ++seen, 0; };
    (*b)->Init(
        b, 4,
        [](void *) {
            (*looked_at)->each(looked_at, count, nullptr), (*looked_at)->each_nok(looked_at, count, nullptr);
        },
        0);
    for (const unsigned seq : {0u, 1u, 3u}) cache(seq);
    Tq4_reorder_oitf->Reset(b);
    EXPECT_EQ(seen, 2 + 1);
}

// The largest window and the farthest jumps: no walk by distance, no room outside of the ring.
TEST_F(Reorder, AnyNumberIsCheap) {
    init(65536);
    cache(0);
    std::mt19937 random(2);
    for (int i = 0; i < 20000; ++i) {
        const auto seq = static_cast<unsigned>(random());
        EXPECT_LE(cache(seq, -1), 1);
        (*b)->PeekData(b, seq - 1);
        (*b)->Ack(b, static_cast<unsigned>(random()), nullptr, nullptr);
        logged.clear();
    }
}

} // namespace
