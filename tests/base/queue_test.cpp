// What a queue promises: positions clamp to the last item, items keep their place while payloads move in the sort,
// payloads are destroyed once by their own deleters, and waiting readers miss nothing.
#include "tq4/queue.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cmath>
#include <random>
#include <thread>
#include <vector>

namespace {

constexpr unsigned long all_ones = TQ4_ALL_ONES;

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
    void use(short locked, short with_event) {
        Tq4_queue_oitf->Delete(q);
        q = make(locked, with_event);
    }
    Tq4_queue_item put(long n) { return (*q)->PutTail(q, new_item(n, count_destroyed)); }
    void fill(const std::vector<long> &numbers) {
        for (long n : numbers) put(n);
    }
    std::vector<long> content() {
        std::vector<long> seen;
        (*q)->each(
            q, [](void *p, void *out) { return static_cast<std::vector<long> *>(out)->push_back(number(p)), 0; },
            &seen);
        return seen;
    }
    void drop(Tq4_queue_item item) { Tq4_queue_item_oitf->Delete(item); }
    long take() {
        Tq4_queue_item item = (*q)->RemoveHead(q, all_ones);
        const long n = number_of(item);
        drop(item);
        return n;
    }
};

TEST_F(Queue, BehavesAsAVectorUnderRandomOperations) {
    std::mt19937 random(1);
    std::vector<long> model;
    const auto clamped = [&](unsigned long i) { return std::min<unsigned long>(i, model.size() - 1); };
    for (long step = 0; step < 20000; ++step) {
        unsigned long at = random() % 8 ? random() % (model.size() + 2) : all_ones;
        unsigned long place = std::min<unsigned long>(at, model.size());
        switch (random() % 6) {
        case 0:
        case 1:
            (*q)->InsertAt(q, new_item(step), at);
            model.insert(model.begin() + static_cast<long>(place), step);
            break;
        case 2: {
            Tq4_queue_item item = (*q)->RemoveAt(q, at, 0);
            ASSERT_EQ(number_of(item), model.empty() ? -1 : model[clamped(at)]);
            if (!model.empty()) model.erase(model.begin() + static_cast<long>(clamped(at)));
            if (item) drop(item);
            break;
        }
        case 3:
            ASSERT_EQ(number((*q)->PeekObj(q, at, 0)), model.empty() ? 0 : model[clamped(at)]);
            break;
        case 4: { // move one item to an end or next to another
            if (model.size() < 2) break;
            unsigned long from = random() % model.size(), to = random() % model.size();
            Tq4_queue_item item = (*q)->At(q, from, 0), other = (*q)->At(q, to, 0);
            if (item == other) break;
            long n = model[from];
            model.erase(model.begin() + static_cast<long>(from));
            auto beside = std::find(model.begin(), model.end(), number_of(other));
            if (random() % 2) {
                (*other)->AddAfter(other, item);
                model.insert(beside + 1, n);
            } else {
                (*other)->AddBefore(other, item);
                model.insert(beside, n);
            }
            break;
        }
        default:
            if (model.size() > 200) {
                (*q)->RemoveAll(q);
                model.clear();
            }
        }
        ASSERT_EQ((*q)->Count(q), model.size());
    }
    EXPECT_EQ(content(), model);
}

TEST_F(Queue, ItemsWalkMoveAndLeave) {
    fill({1, 2, 3});
    Tq4_queue_item two = (*q)->At(q, 1, 0);
    EXPECT_EQ((*two)->Queue(two), q);
    EXPECT_EQ(number_of((*two)->Next(two)), 3);
    EXPECT_EQ(number_of((*two)->Pre(two)), 1);
    (*two)->ToTail(two);
    EXPECT_EQ((*two)->Next(two), nullptr);
    EXPECT_EQ(content(), (std::vector<long>{1, 3, 2}));
    (*two)->ToHead(two);
    EXPECT_EQ((*two)->Pre(two), nullptr);
    EXPECT_EQ((*two)->AddAfter(two, two), two) << "next to itself it stays";
    EXPECT_EQ(content(), (std::vector<long>{2, 1, 3}));

    (*two)->Remove(two);
    EXPECT_EQ((*two)->Queue(two), nullptr);
    EXPECT_EQ((*two)->Next(two), nullptr);
    Tq4_queue_item one = (*q)->Head(q, 0);
    EXPECT_EQ((*two)->AddAfter(two, one), one) << "next to an unlinked item it stays";
    EXPECT_EQ(content(), (std::vector<long>{1, 3}));
    drop(two);
    EXPECT_EQ(destroyed, (std::vector<long>{2}));
}

TEST_F(Queue, AnItemMovesBetweenQueues) {
    fill({1, 2});
    Tq4_queue other = make(1, 1);
    (*other)->PutHead(other, (*q)->At(q, 0, 0));
    EXPECT_EQ((*q)->Count(q), 1u);
    EXPECT_EQ((*other)->Wait(other, 0), 1) << "insertion sets the event";
    EXPECT_EQ((*other)->Wait(other, 0), 0) << "which resets by itself";
    Tq4_queue_oitf->Delete(other);
    EXPECT_EQ(destroyed, (std::vector<long>{1}));
}

TEST_F(Queue, PayloadsAreDestroyedOnceByTheirOwnDeleters) {
    Tq4_queue_item item = put(1);
    EXPECT_EQ(number((*item)->Attach(item, payload(2), count_destroyed)), 1) << "the old one is given back";
    put(3);
    (*q)->RemoveAll(q);
    EXPECT_EQ(destroyed, (std::vector<long>{2, 3})) << "from the head on";
    EXPECT_EQ((*q)->Count(q), 0u);
}

TEST_F(Queue, VisitsStopWhenToldAndCountFromTheIndex) {
    fill({0, 1, 2, 3, 4});
    const auto range = [&](unsigned long index, int n) {
        std::vector<long> seen;
        (*q)->Range(
            q, index, n,
            [](void *p, void *out) -> int {
                static_cast<std::vector<long> *>(out)->push_back(number(p));
                return number(p) == 3;
            },
            &seen);
        return seen;
    };
    EXPECT_EQ(range(1, 2), (std::vector<long>{1, 2}));
    EXPECT_EQ(range(2, 9), (std::vector<long>{2, 3})) << "stopped by the visitor";
    EXPECT_EQ(range(5, 1), std::vector<long>{}) << "past the end there is nothing to visit";
    EXPECT_EQ(range(0, -1), std::vector<long>{});
}

TEST_F(Queue, NullIsAccepted) {
    Tq4_queue_item item = new_item(1);
    EXPECT_EQ((*q)->InsertAt(nullptr, item, 0), item);
    EXPECT_EQ((*q)->PutTail(q, nullptr), nullptr);
    EXPECT_EQ((*item)->AddBefore(nullptr, item), item);
    EXPECT_EQ((*q)->Count(nullptr), 0u);
    EXPECT_EQ((*q)->Head(q, 0), nullptr);
    EXPECT_EQ((*q)->Wait(q, 0), 0) << "no event";
    EXPECT_EQ((*q)->RemoveTail(q, 5), nullptr) << "without an event nobody waits";
    drop(item);
}

// ---- sorting

int ascending(void *a, void *b, void *comparisons) {
    if (comparisons) ++*static_cast<long *>(comparisons);
    return number(a) < number(b) ? -1 : number(a) > number(b);
}

// The payload at a place of n, for each shape of input.
const struct Shape {
    const char *name;
    long (*value)(long i, long n);
} shapes[] = {
    {"sorted", [](long i, long) { return i + 1; }},
    {"reversed", [](long i, long n) { return n - i; }},
    {"equal", [](long, long) { return 5l; }},
    {"organ pipe", [](long i, long n) { return std::min(i, n - i) + 1; }},
    {"few distinct", [](long i, long) { return i * 7919 % 31 % 7 + 1; }},
    {"scattered", [](long i, long) { return i * 2654435761 % 1000003 + 1; }},
};

std::vector<long> shaped(const Shape &shape, long n) {
    std::vector<long> v;
    for (long i = 0; i < n; ++i) v.push_back(shape.value(i, n));
    return v;
}

TEST_F(Queue, SortsEveryShapeWithoutQuadraticCost) {
    for (const Shape &shape : shapes)
        for (long n : {2, 3, 4, 5, 10, 100, 20000}) {
            std::vector<long> numbers = shaped(shape, n);
            (*q)->RemoveAll(q);
            for (long x : numbers) (*q)->PutTail(q, new_item(x));
            long comparisons = 0;
            (*q)->QSort(q, ascending, &comparisons);
            std::sort(numbers.begin(), numbers.end());
            ASSERT_EQ(content(), numbers) << shape.name << " " << n;
            EXPECT_LT(static_cast<double>(comparisons), 10.0 + 6.0 * static_cast<double>(n) * std::log2(n))
                << shape.name << n;
        }
}

// Builds, while it sorts, the input on which a quicksort does worst: a payload's rank is decided when it is compared.
struct Adversary {
    std::vector<long> rank;
    long decided = 0, candidate = 0;
    static constexpr long undecided = LONG_MAX;

    static int compare(void *a, void *b, void *param) {
        auto &self = *static_cast<Adversary *>(param);
        auto x = static_cast<std::size_t>(number(a)), y = static_cast<std::size_t>(number(b));
        if (self.rank[x] == undecided && self.rank[y] == undecided)
            self.rank[static_cast<long>(x) == self.candidate ? x : y] = self.decided++;
        if (self.rank[x] == undecided)
            self.candidate = number(a);
        else if (self.rank[y] == undecided)
            self.candidate = number(b);
        return self.rank[x] < self.rank[y] ? -1 : self.rank[x] > self.rank[y];
    }
};

TEST_F(Queue, AnAdversaryCannotMakeTheSortQuadratic) {
    const long n = 20000;
    Adversary adversary{std::vector<long>(n + 1, Adversary::undecided)};
    for (long i = 1; i <= n; ++i) (*q)->PutTail(q, new_item(i));
    (*q)->QSort(q, Adversary::compare, &adversary);
    std::vector<long> order = content();
    for (std::size_t i = 1; i < order.size(); ++i)
        ASSERT_LE(adversary.rank[static_cast<std::size_t>(order[i - 1])],
                  adversary.rank[static_cast<std::size_t>(order[i])]);
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
    const std::vector<long> numbers = shaped(shapes[5], 500);
    fill(numbers);
    (*q)->QSort(
        q, [](void *, void *, void *) { return 1; }, nullptr);
    EXPECT_EQ(content(), numbers) << "greater both ways round";
    (*q)->QSort(
        q, [](void *, void *, void *) { return INT_MIN; }, nullptr);
    EXPECT_EQ(content(), numbers);
    (*q)->QSort(
        q, [](void *a, void *b, void *) { return number(a) < number(b) ? -2 : 1; }, nullptr);
    EXPECT_EQ(content(), numbers) << "not exact opposites";
    std::mt19937 random(3);
    (*q)->QSort(
        q,
        [](void *a, void *b, void *dice) {
            if (number(a) + number(b) == 0) return 0;
            return static_cast<int>((*static_cast<std::mt19937 *>(dice))() % 3) - 1;
        },
        &random);
    std::vector<long> after = content();
    EXPECT_TRUE(std::is_permutation(after.begin(), after.end(), numbers.begin(), numbers.end()));
}

// ---- between threads

TEST_F(Queue, OneProducerOneConsumerLoseNothingAndKeepOrder) {
    use(1, 1);
    const long n = 20000;
    std::thread producer([&] {
        for (long i = 1; i <= n; ++i) (*q)->PutTail(q, new_item(i));
    });
    for (long i = 1; i <= n; ++i) EXPECT_EQ(take(), i);
    producer.join();
}

TEST_F(Queue, ManyReadersShareWhatManyWritersPut) {
    use(1, 1);
    const long each = 3000;
    std::atomic<long> sum = 0;
    std::vector<std::thread> threads;
    for (int reader = 0; reader < 3; ++reader)
        threads.emplace_back([&] {
            while (const long n = take()) sum += n;
        });
    for (int writer = 0; writer < 3; ++writer)
        threads.emplace_back([&] {
            for (long i = 1; i <= each; ++i) (*q)->PutTail(q, new_item(i));
        });
    for (std::size_t i = 3; i < 6; ++i) threads[i].join();
    for (int reader = 0; reader < 3; ++reader) (*q)->PutTail(q, new_item(0)); // the end for each reader
    for (std::size_t i = 0; i < 3; ++i) threads[i].join();
    EXPECT_EQ(sum, 3 * each * (each + 1) / 2);
    EXPECT_EQ((*q)->Count(q), 0u);
}

// A reader that only looks takes the event but not the item; the reader that removes must still get it.
TEST_F(Queue, AReaderThatPeeksPassesTheEventOn) {
    for (int round = 0; round < 200; ++round) {
        use(1, 1);
        std::thread peeker([&] { EXPECT_EQ(number((*q)->PeekObj(q, 0, all_ones)), 1); });
        std::thread second([&] { EXPECT_EQ(number_of((*q)->Head(q, all_ones)), 1); });
        (*q)->PutTail(q, new_item(1));
        peeker.join();
        second.join();
    }
}

TEST_F(Queue, OneItemMovedByManyThreadsStaysOneItem) {
    use(1, 0);
    fill({1, 2, 3});
    Tq4_queue_item moving = (*q)->At(q, 1, 0);
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 2000; ++i) {
                (*q)->PutTail(q, moving);
                (*moving)->ToHead(moving);
                EXPECT_EQ((*q)->Count(q), 3u);
            }
        });
    for (std::thread &thread : threads) thread.join();
    EXPECT_EQ(content().size(), 3u);
}

TEST_F(Queue, DeletersMayDeleteTheirNeighboursAndUseTheQueue) {
    use(1, 1);
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
    EXPECT_EQ((*q)->PeekObj(q, 0, all_ones), nullptr) << "the payload; does not wait: the item is there";
    (*q)->each(q, nullptr, nullptr);
}

TEST_F(Queue, AnEmptyQueueTimesOut) {
    use(1, 1);
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
