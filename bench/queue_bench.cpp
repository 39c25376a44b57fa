// Queues beside GLib's and the standard list: put and take, a producer and a consumer, sorting.
#include <benchmark/benchmark.h>

#include <list>
#include <random>
#include <thread>
#include <vector>

#include "tq4/queue.h"

#ifdef HAVE_GLIB
#include <glib.h>
#endif

namespace {

Tq4_queue make(short locked, short with_event) {
    Tq4_queue_CreateParams params{locked, with_event};
    return static_cast<Tq4_queue>(Tq4_queue_oitf->Create(&params));
}

void put(Tq4_queue q, void *payload) {
    auto item = static_cast<Tq4_queue_item>(Tq4_queue_item_oitf->Create(nullptr));
    (*item)->Attach(item, payload, nullptr);
    (*q)->PutTail(q, item);
}

void *take(Tq4_queue q, unsigned long wait) {
    Tq4_queue_item item = (*q)->RemoveHead(q, wait);
    void *payload = (*item)->GetAttach(item);
    Tq4_queue_item_oitf->Delete(item);
    return payload;
}

int something;

void tq4_put_take(benchmark::State &state) {
    Tq4_queue q = make(0, 0);
    for (int i = 0; i < 16; ++i) put(q, &something);
    for (auto _ : state) {
        put(q, &something);
        benchmark::DoNotOptimize(take(q, 0));
    }
    Tq4_queue_oitf->Delete(q);
}
BENCHMARK(tq4_put_take)->Name("put_take/tq4");

constexpr int handed_over = 200000; // items a round between two threads

void tq4_hand_over(benchmark::State &state) {
    Tq4_queue q = make(1, 1);
    for (auto _ : state) {
        std::thread producer([&] {
            for (int i = 0; i < handed_over; ++i) put(q, &something);
        });
        for (int i = 0; i < handed_over; ++i) benchmark::DoNotOptimize(take(q, TQ4_ALL_ONES));
        producer.join();
    }
    state.SetItemsProcessed(state.iterations() * handed_over);
    Tq4_queue_oitf->Delete(q);
}
BENCHMARK(tq4_hand_over)->Name("hand_over/tq4")->UseRealTime();

std::vector<long> numbers() {
    std::vector<long> v(100000);
    std::mt19937 random(1);
    for (long &x : v) x = static_cast<long>(random() % 1000000) + 1;
    return v;
}

void tq4_sort(benchmark::State &state) {
    const std::vector<long> unsorted = numbers();
    for (auto _ : state) {
        state.PauseTiming();
        Tq4_queue q = make(0, 0);
        for (long x : unsorted) put(q, reinterpret_cast<void *>(x));
        state.ResumeTiming();
        (*q)->QSort(
            q,
            [](void *a, void *b, void *) {
                auto x = reinterpret_cast<long>(a), y = reinterpret_cast<long>(b);
                return x < y ? -1 : x > y;
            },
            nullptr);
        state.PauseTiming();
        Tq4_queue_oitf->Delete(q);
        state.ResumeTiming();
    }
}
BENCHMARK(tq4_sort)->Name("sort/tq4")->Unit(benchmark::kMillisecond);

void std_sort(benchmark::State &state) {
    const std::vector<long> unsorted = numbers();
    for (auto _ : state) {
        state.PauseTiming();
        std::list<long> list(unsorted.begin(), unsorted.end());
        state.ResumeTiming();
        list.sort();
        state.PauseTiming();
        list.clear();
        state.ResumeTiming();
    }
}
BENCHMARK(std_sort)->Name("sort/std_list")->Unit(benchmark::kMillisecond);

#ifdef HAVE_GLIB
void glib_put_take(benchmark::State &state) {
    GQueue *q = g_queue_new();
    for (int i = 0; i < 16; ++i) g_queue_push_tail(q, &something);
    for (auto _ : state) {
        g_queue_push_tail(q, &something);
        benchmark::DoNotOptimize(g_queue_pop_head(q));
    }
    g_queue_free(q);
}
BENCHMARK(glib_put_take)->Name("put_take/glib");

void glib_hand_over(benchmark::State &state) {
    GAsyncQueue *q = g_async_queue_new();
    for (auto _ : state) {
        std::thread producer([&] {
            for (int i = 0; i < handed_over; ++i) g_async_queue_push(q, &something);
        });
        for (int i = 0; i < handed_over; ++i) benchmark::DoNotOptimize(g_async_queue_pop(q));
        producer.join();
    }
    state.SetItemsProcessed(state.iterations() * handed_over);
    g_async_queue_unref(q);
}
BENCHMARK(glib_hand_over)->Name("hand_over/glib")->UseRealTime();
#endif

} // namespace
