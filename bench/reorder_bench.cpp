// The reorder buffer: what a packet costs that comes in order, one that comes a little out of order, and one that is
// sent and acknowledged; and the memory that a ring must touch anyway.
#include <benchmark/benchmark.h>

#include <utility>
#include <vector>

#include "tq4/reorder.h"

namespace {

int something;

Tq4_reorder make(int size) {
    auto b = static_cast<Tq4_reorder>(Tq4_reorder_oitf->Create(nullptr));
    (*b)->Init(
        b, size, [](void *) {}, 0);
    return b;
}

void in_order(benchmark::State &state) {
    Tq4_reorder b = make(static_cast<int>(state.range(0)));
    unsigned seq = 0, released;
    int empty;
    for (auto _ : state) {
        (*b)->CacheItem(b, seq++, &something, 1);
        benchmark::DoNotOptimize((*b)->GetItemWait(b, &released, 0, &empty));
    }
    Tq4_reorder_oitf->Delete(b);
}
BENCHMARK(in_order)->Name("reorder_in_order/tq4")->Arg(1024)->Arg(65536);

// As much behind the head as a window of packets in flight: the last one of each sixteen comes first.
void out_of_order(benchmark::State &state) {
    Tq4_reorder b = make(1024);
    (*b)->SetFirstSeq(b, 0);
    unsigned base = 0, released;
    int empty;
    for (auto _ : state) {
        for (unsigned i = 16; i--;) (*b)->CacheItem(b, base + i, &something, 1);
        for (int i = 0; i < 16; ++i) benchmark::DoNotOptimize((*b)->GetItemWait(b, &released, 0, &empty));
        base += 16;
    }
    state.SetItemsProcessed(state.iterations() * 16);
    Tq4_reorder_oitf->Delete(b);
}
BENCHMARK(out_of_order)->Name("reorder_out_of_order/tq4");

void send_and_ack(benchmark::State &state) {
    Tq4_reorder b = make(1024);
    unsigned seq = 0;
    for (auto _ : state) {
        for (int i = 0; i < 32; ++i) (*b)->SafeWait(b, &seq, &something);
        benchmark::DoNotOptimize((*b)->Ack(b, seq, nullptr, nullptr));
    }
    state.SetItemsProcessed(state.iterations() * 32);
    Tq4_reorder_oitf->Delete(b);
}
BENCHMARK(send_and_ack)->Name("reorder_send_and_ack/tq4");

// The least that a ring does: a number and a pointer stored, and loaded again.
void bare_ring(benchmark::State &state) {
    struct Slot {
        void *data;
        unsigned seq;
    };
    std::vector<Slot> ring(static_cast<std::size_t>(state.range(0)));
    unsigned seq = 0;
    for (auto _ : state) {
        Slot &slot = ring[seq % ring.size()];
        slot = {&something, seq++};
        benchmark::DoNotOptimize(&slot);
        benchmark::ClobberMemory();
        benchmark::DoNotOptimize(std::exchange(slot.data, nullptr));
    }
}
BENCHMARK(bare_ring)->Name("reorder_in_order/bare")->Arg(1024)->Arg(65536);

} // namespace
