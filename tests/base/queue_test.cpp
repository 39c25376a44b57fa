// What a queue promises: positions clamp to the last item, items keep their place while payloads move in the sort,
// payloads are destroyed once by their own deleters, and waiting readers miss nothing.
#include "support/test.hpp"

namespace {

// Payloads are numbers in disguise: nothing to allocate, and order is visible.
void *payload(long n) { return reinterpret_cast<void *>(n); }
long number(void *p) { return reinterpret_cast<long>(p); }

Tq4_queue_item new_item(long n, Tq4_queue_deleter deleter = nullptr) {
    auto item = static_cast<Tq4_queue_item>(Tq4_queue_item_oitf->Create(nullptr));
    (*item)->Attach(item, payload(n), deleter);
    return item;
}
long number_of(Tq4_queue_item item) { return item ? number((*item)->GetAttach(item)) : -1; }

std::vector<long> destroyed; // by count_destroyed, in order
void count_destroyed(void *p) { destroyed.push_back(number(p)); }

struct Queue : testing::Test {
    Tq4_queue q = make(0, 0);

    Queue() { destroyed.clear(); }
    ~Queue() override { Tq4_queue_oitf->Delete(q); }

    static Tq4_queue make(short locked, short with_event) {
        Tq4_queue_CreateParams params{locked, with_event};
        return static_cast<Tq4_queue>(Tq4_queue_oitf->Create(&params));
    }
    void use_locked() {
        Tq4_queue_oitf->Delete(q);
        q = make(1, 1);
    }
    Tq4_queue_item put(long n) { return (*q)->PutTail(q, new_item(n, count_destroyed)); }
    void fill(const std::vector<long> &numbers) {
        for (long n : numbers) put(n);
    }
    static int collect(void *p, void *out) { // up to minus one
        static_cast<std::vector<long> *>(out)->push_back(number(p));
        return number(p) == -1;
    }
    std::vector<long> content() {
        std::vector<long> seen;
        (*q)->each(q, collect, &seen);
        return seen;
    }
    // The number of an item, which is deleted.
    long drop(Tq4_queue_item item) {
        const long n = number_of(item);
        Tq4_queue_item_oitf->Delete(item);
        return n;
    }
};

TEST_F(Queue, BehavesAsAVectorUnderRandomOperations) {
    std::mt19937 random(1);
    std::vector<long> model;
    long step = 0;
    unsigned long at = 0, i = 0; // a position, and that of the item there
    const auto insert = [&] {
        (*q)->InsertAt(q, new_item(step), at);
        model.insert(model.begin() + static_cast<long>(std::min(at, model.size())), step);
    };
    const auto remove = [&] {
        EXPECT_EQ(drop((*q)->RemoveAt(q, at, 0)), model.empty() ? -1 : model[i]);
        if (!model.empty()) model.erase(model.begin() + static_cast<long>(i));
    };
    const auto look = [&] {
        EXPECT_EQ(number((*q)->PeekObj(q, at, 0)), model.empty() ? 0 : model[i]);
        Tq4_queue_item item = (*q)->At(q, at, 0);
        if (!item) return;
        EXPECT_EQ(number_of((*item)->Pre(item)), i ? model[i - 1] : -1);
        EXPECT_EQ(number_of((*item)->Next(item)), i + 1 < model.size() ? model[i + 1] : -1);
    };
    const auto move = [&] { // one item to an end or next to another, which may be itself
        if (model.empty()) return;
        Tq4_queue_item item = (*q)->At(q, i, 0), other = (*q)->At(q, random() % model.size(), 0);
        const unsigned long way = random() % 4;
        if (way < 2)
            way == 0 ? (*item)->ToHead(item) : (*item)->ToTail(item);
        else
            way == 2 ? (*other)->AddAfter(other, item) : (*other)->AddBefore(other, item);
        if (way >= 2 && item == other) return;
        model.erase(model.begin() + static_cast<long>(i));
        const auto beside = std::find(model.begin(), model.end(), number_of(other));
        model.insert(way == 0 ? model.begin() : way == 1 ? model.end() : beside + (way == 2), number_of(item));
    };
    const auto clear = [&] {
        if (model.size() > 200) (*q)->RemoveAll(q), model.clear();
    };
    const std::function<void()> changes[] = {insert, insert, remove, look, move, clear};
    for (; step < 20000 && !HasFailure(); ++step) {
        at = random() % 8 ? random() % (model.size() + 2) : TQ4_ALL_ONES;
        i = std::min(at, model.size() - 1);
        changes[random() % std::size(changes)]();
        EXPECT_EQ((*q)->Count(q), model.size());
    }
    EXPECT_EQ(content(), model);
}

TEST_F(Queue, AnItemLeavesOneQueueAndMovesToAnother) {
    fill({1, 2, 3});
    Tq4_queue_item two = (*q)->At(q, 1, 0), one = (*q)->Head(q, 0);
    EXPECT_EQ((*two)->Queue(two), q);
    (*two)->Remove(two);
    EXPECT_TRUE(!(*two)->Queue(two) && !(*two)->Next(two));
    EXPECT_EQ((*two)->AddAfter(two, one), one) << "next to an unlinked item it stays";
    EXPECT_EQ(content(), (std::vector<long>{1, 3}));
    drop(two);
    Tq4_queue other = make(1, 1);
    (*other)->PutHead(other, one);
    EXPECT_EQ((*q)->Count(q), 1u);
    EXPECT_EQ((*other)->Wait(other, 0), 1) << "insertion sets the event";
    EXPECT_EQ((*other)->Wait(other, 0), 0) << "which resets by itself";
    Tq4_queue_oitf->Delete(other);
    EXPECT_EQ(destroyed, (std::vector<long>{2, 1}));
}

TEST_F(Queue, VisitsStopWhenToldAndCountFromTheIndex) {
    fill({0, 1, 2, -1, 4});
    const auto range = [&](unsigned long index, int n) {
        std::vector<long> seen;
        (*q)->Range(q, index, n, collect, &seen);
        return seen;
    };
    EXPECT_EQ(range(1, 2), (std::vector<long>{1, 2}));
    EXPECT_EQ(range(2, 9), (std::vector<long>{2, -1})) << "stopped by the visitor";
    EXPECT_EQ(range(5, 1), std::vector<long>{}) << "past the end there is nothing to visit";
    EXPECT_EQ(range(0, -1), std::vector<long>{});
}

// ---- sorting

int ascending(void *a, void *b, void *comparisons) {
    if (comparisons) ++*static_cast<long *>(comparisons);
    return number(a) < number(b) ? -1 : number(a) > number(b);
}

// The payload at a place of n, for each shape of input: sorted, reversed, equal, an organ pipe, few distinct,
// scattered.
long (*const shapes[])(long i, long n) = {
    [](long i, long) { return i + 1; },
    [](long i, long n) { return n - i; },
    [](long, long) { return 5l; },
    [](long i, long n) { return std::min(i, n - i) + 1; },
    [](long i, long) { return i * 7919 % 31 % 7 + 1; },
    [](long i, long) { return i * 2654435761 % 1000003 + 1; },
};

std::vector<long> shaped(std::size_t shape, long n) {
    std::vector<long> v;
    for (long i = 0; i < n; ++i) v.push_back(shapes[shape](i, n));
    return v;
}

TEST_F(Queue, SortsEveryShapeWithoutQuadraticCost) {
    for (std::size_t shape = 0; shape < std::size(shapes); ++shape)
        for (long n : {2, 3, 4, 5, 10, 100, 20000}) {
            std::vector<long> numbers = shaped(shape, n);
            (*q)->RemoveAll(q);
            for (long x : numbers) (*q)->PutTail(q, new_item(x));
            long comparisons = 0;
            (*q)->QSort(q, ascending, &comparisons);
            std::sort(numbers.begin(), numbers.end());
            ASSERT_EQ(content(), numbers) << shape << " " << n;
            EXPECT_LT(static_cast<double>(comparisons), 10.0 + 6.0 * static_cast<double>(n) * std::log2(n)) << shape;
        }
}

std::vector<std::pair<long, long>> swaps;

TEST_F(Queue, TheSortMovesPayloadsWithTheirDeletersAndNeverItems) {
    swaps.clear();
    Tq4_queue_item head = put(2);
    (*q)->PutTail(q, new_item(1));
    (*q)->SetOnSwap(q, [](void *a, void *b) { swaps.emplace_back(number(a), number(b)); });
    (*q)->QSort(q, ascending, nullptr);
    EXPECT_EQ((*q)->Head(q, 0), head);
    EXPECT_EQ(number_of(head), 1);
    EXPECT_EQ(swaps, (std::vector<std::pair<long, long>>{{1, 2}})) << "told in their new places";
    drop(head);
    EXPECT_TRUE(destroyed.empty()) << "1 came without a deleter";
    (*q)->RemoveAll(q);
    EXPECT_EQ(destroyed, (std::vector<long>{2}));
}

TEST_F(Queue, ComparatorsThatLieChangeNothingOrAtLeastEnd) {
    const std::vector<long> numbers = shaped(5, 500);
    fill(numbers);
    const Tq4_queue_obj_compare lies[] = {
        [](void *, void *, void *) { return 1; }, [](void *, void *, void *) { return INT_MIN; },
        [](void *a, void *b, void *) { return number(a) < number(b) ? -2 : 1; }, // not exact opposites
    };
    for (const auto lie : lies) {
        (*q)->QSort(q, lie, nullptr);
        EXPECT_EQ(content(), numbers);
    }
    std::mt19937 random(3);
    const auto dice = [](void *a, void *b, void *by) {
        return number(a) + number(b) == 0 ? 0 : static_cast<int>((*static_cast<std::mt19937 *>(by))() % 3) - 1;
    };
    (*q)->QSort(q, dice, &random);
    std::vector<long> after = content();
    EXPECT_TRUE(std::is_permutation(after.begin(), after.end(), numbers.begin(), numbers.end()));
}

// ---- between threads

// At the end each reader is let through by a Set: that of the test, or of the reader that left before.
TEST_F(Queue, ReadersShareWhatWritersPutInItsOrderAndAllEnd) {
    for (const int pairs : {1, 3}) {
        use_locked();
        const long each = 6000, expected = pairs * each * (each + 1) / 2;
        std::atomic<bool> running = true;
        std::atomic<long> sum = 0;
        std::vector<std::thread> threads;
        for (int pair = 0; pair < pairs; ++pair) {
            threads.emplace_back([&] {
                for (long last = 0; running;) {
                    const long n = drop((*q)->RemoveHead(q, TQ4_ALL_ONES));
                    if (n == -1) continue; // another reader was faster
                    EXPECT_TRUE(pairs > 1 || n == last + 1);
                    last = n, sum += n;
                }
                (*q)->Set(q);
            });
            threads.emplace_back([&] {
                for (long i = 1; i <= each; ++i) (*q)->PutTail(q, new_item(i));
            });
        }
        while (sum < expected) std::this_thread::yield();
        running = false;
        (*q)->Set(q);
        for (std::thread &thread : threads) thread.join();
        EXPECT_EQ(sum, expected);
        EXPECT_EQ((*q)->Count(q), 0u);
    }
}

// A reader that only looks takes the event but not the item; the reader that removes must still get it.
TEST_F(Queue, AReaderThatPeeksPassesTheEventOn) {
    for (int round = 0; round < 200; ++round) {
        use_locked();
        std::thread peeker([&] { EXPECT_EQ(number((*q)->PeekObj(q, 0, TQ4_ALL_ONES)), 1); });
        std::thread second([&] { EXPECT_EQ(number_of((*q)->Head(q, TQ4_ALL_ONES)), 1); });
        (*q)->PutTail(q, new_item(1));
        peeker.join();
        second.join();
    }
}

// The usual end of a consumer: without it only a kill would end the wait.
TEST_F(Queue, ASetEndsAReadersWaitAndIsNotLostBesideItems) {
    use_locked();
    for (const auto read : {(*q)->RemoveHead, (*q)->Head, (*q)->RemoveTail}) {
        Parallel reader([&] { return read(q, TQ4_ALL_ONES) == nullptr; });
        reader.await_sleep();
        EXPECT_FALSE(reader.done());
        (*q)->Set(q);
        EXPECT_EQ(reader.result(), 1);
    }
    (*q)->Set(q);
    EXPECT_EQ((*q)->PeekObj(q, 0, TQ4_ALL_ONES), nullptr) << "set before: it is let through at once";
    EXPECT_EQ((*q)->Wait(q, 0), 0) << "which took the event";
    put(1);
    (*q)->Set(q);
    EXPECT_EQ(drop((*q)->RemoveHead(q, TQ4_ALL_ONES)), 1);
    EXPECT_EQ((*q)->RemoveHead(q, TQ4_ALL_ONES), nullptr) << "the item did not use up the Set";
}

// What is taken without waiting leaves the event of its insertion behind: the next reader must not take it for a Set.
TEST_F(Queue, AReaderWaitsForTheNextItemWhateverWasTakenBefore) {
    use_locked();
    for (unsigned long first : {0ul, TQ4_ALL_ONES}) {
        put(1);
        EXPECT_EQ(drop((*q)->RemoveHead(q, first)), 1);
        Parallel reader([&] { return static_cast<int>(drop((*q)->RemoveHead(q, TQ4_ALL_ONES))); });
        reader.await_sleep();
        EXPECT_FALSE(reader.done());
        put(2);
        EXPECT_EQ(reader.result(), 2);
    }
}

TEST_F(Queue, DeletersMayDeleteTheirNeighboursAndUseTheQueue) {
    use_locked();
    static Tq4_queue_item neighbour;
    static Tq4_queue used;
    used = q;
    const auto busy = [](void *) {
        EXPECT_EQ((*used)->Count(used), 0u) << "all left in one step";
        (*neighbour)->ToHead(neighbour);
        Tq4_queue_item_oitf->Delete(neighbour);
        (*used)->PutTail(used, new_item(0));
    };
    (*q)->PutTail(q, new_item(1, busy));
    neighbour = put(2);
    put(3);
    (*q)->RemoveAll(q);
    EXPECT_EQ(destroyed, (std::vector<long>{2, 3}));
    EXPECT_EQ((*q)->Count(q), 1u) << "what came meanwhile stays";
    EXPECT_EQ((*q)->PeekObj(q, 0, TQ4_ALL_ONES), nullptr) << "the payload; does not wait: the item is there";
    (*q)->each(q, nullptr, nullptr);
}

TEST_F(Queue, AnEmptyQueueTimesOut) {
    use_locked();
    EXPECT_EQ((*q)->RemoveHead(q, 10), nullptr);
    put(1);
    (*q)->RemoveAll(q);
    EXPECT_EQ((*q)->Wait(q, 0), 0) << "emptying resets the event";
    (*q)->EventSync(q, 0);
    put(2);
    (*q)->EventSync(q, 1);
    EXPECT_EQ((*q)->Wait(q, 0), 0) << "a fresh event is unset, whatever the queue holds";
    (*q)->Set(q);
    EXPECT_EQ((*q)->Wait(q, 0), 1);
}

} // namespace
