// Pools beside hash maps by id: looking up at random among 65,536 that are lent, lending and giving back.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <random>
#include <vector>

#include "own.hpp"
#include "tq4/pool.h"

#ifdef HAVE_ABSL
#include <absl/container/flat_hash_map.h>
#endif

namespace {

constexpr unsigned live = 65536;
char something;

Tq4_own<Tq4_pool> new_pool() {
    const Tq4_pool_CreateParams params{.max_res = 2 * live,
                                       .Create = [](void *) -> void * { return &something; },
                                       .Delete = [](void *) {},
                                       .Reset = [](void *, unsigned long) {},
                                       .mask = 0x1234567};
    return Tq4_make<Tq4_pool>(Tq4_pool_oitf, &params);
}

std::vector<Tq4_id> filled(Tq4_pool p) {
    std::vector<Tq4_id> ids(live);
    for (Tq4_id &id : ids) (*p)->Alloc(p, nullptr, &id);
    std::shuffle(ids.begin(), ids.end(), std::mt19937(1));
    return ids;
}

void tq4_peek(benchmark::State &state) {
    const auto owner = new_pool();
    const Tq4_pool p = owner.get();
    const std::vector<Tq4_id> ids = filled(p);
    for (unsigned i = 0; auto _ : state) benchmark::DoNotOptimize((*p)->Peek(p, &ids[i++ % live]));
}
BENCHMARK(tq4_peek)->Name("pool_peek/tq4");

// Given back at random, as connections end.
void tq4_lend(benchmark::State &state) {
    const auto owner = new_pool();
    const Tq4_pool p = owner.get();
    std::vector<Tq4_id> ids = filled(p);
    for (unsigned i = 0; auto _ : state) {
        Tq4_id &id = ids[i++ % live];
        (*p)->Recycle(p, &id);
        benchmark::DoNotOptimize((*p)->Alloc(p, nullptr, &id));
    }
}
BENCHMARK(tq4_lend)->Name("pool_lend/tq4");

// A map's key: the id as it is, or packed into one number.
struct Key {
    uint32_t h, l;
    explicit Key(Tq4_id id) : h(id.h), l(id.l) {}
    bool operator==(const Key &) const = default;
    template <class State> friend State AbslHashValue(State state, const Key &key) {
        return State::combine(std::move(state), key.h, key.l);
    }
};
struct Packed {
    uint64_t number;
    explicit Packed(Tq4_id id) : number(uint64_t{id.h} << 32 | id.l) {}
    bool operator==(const Packed &) const = default;
    template <class State> friend State AbslHashValue(State state, const Packed &key) {
        return State::combine(std::move(state), key.number);
    }
};

template <class Map> void map_peek(benchmark::State &state) {
    const auto owner = new_pool();
    const std::vector<Tq4_id> ids = filled(owner.get());
    Map map;
    for (Tq4_id id : ids) map[typename Map::key_type(id)] = &something;
    for (unsigned i = 0; auto _ : state) {
        const auto found = map.find(typename Map::key_type(ids[i++ % live]));
        benchmark::DoNotOptimize(found == map.end() ? nullptr : found->second);
    }
}

template <class Map> void map_lend(benchmark::State &state) {
    const auto owner = new_pool();
    std::vector<Tq4_id> ids = filled(owner.get());
    Map map;
    for (Tq4_id id : ids) map[typename Map::key_type(id)] = &something;
    for (unsigned i = 0; auto _ : state) {
        Tq4_id &id = ids[i++ % live];
        map.erase(typename Map::key_type(id));
        ++id.l;
        map[typename Map::key_type(id)] = &something;
    }
}

#ifdef HAVE_ABSL
BENCHMARK(map_peek<absl::flat_hash_map<Key, void *>>)->Name("pool_peek/absl");
BENCHMARK(map_peek<absl::flat_hash_map<Packed, void *>>)->Name("pool_peek/absl_packed");
BENCHMARK(map_lend<absl::flat_hash_map<Key, void *>>)->Name("pool_lend/absl");
#endif

} // namespace
