// Maps and tables: what an operation costs in a large one beside a small one, and beside other hash tables.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <vector>

#include "tq4/tq4.h"

#ifdef HAVE_GLIB
#include <glib.h>
#endif
#ifdef HAVE_NLOHMANN
#include <nlohmann/json.hpp>
#endif

namespace {

constexpr std::size_t small = 1000, large = 1000000, middle = 100000;

// The texts lie side by side, so that what a look-up costs is the container's.
struct Key {
    char text[32];
    unsigned long number;
};

std::vector<Key> make_keys(std::size_t n) {
    std::vector<Key> keys(n);
    for (std::size_t i = 0; i < n; ++i) {
        keys[i].number = i * 2654435761u % 4294967291u;
        std::snprintf(keys[i].text, sizeof keys[i].text, "session.%lu", keys[i].number);
    }
    return keys;
}

const std::vector<Key> &keys_of(std::size_t n) {
    static const std::vector<Key> few = make_keys(small), some = make_keys(middle), many = make_keys(large);
    return n == small ? few : n == middle ? some : many;
}

// What the operations are done to, under one set of names.
struct Table {
    Tq4_value_table t = static_cast<Tq4_value_table>(Tq4_value_table_oitf->Create(nullptr));
    ~Table() { Tq4_value_table_oitf->Delete(t); }
    void Set(const Key &key, long n) { (*t)->SetSI(t, key.text, n); }
    bool Has(const Key &key) { return (*t)->ValueS(t, key.text) != nullptr; }
    void Remove(const Key &key) { (*t)->RemoveS(t, key.text); }
};

struct Map {
    Tq4_strmap m = static_cast<Tq4_strmap>(Tq4_strmap_oitf->Create(nullptr));
    ~Map() { Tq4_strmap_oitf->Delete(m); }
    void Set(const Key &key, long n) { (*m)->SetAtS(m, reinterpret_cast<void *>(n + 1), key.text); }
    bool Has(const Key &key) { return (*m)->LookupS(m, key.text) != nullptr; }
    void Remove(const Key &key) { (*m)->RemoveS(m, key.text); }
};

struct Short_map {
    Tq4_strmap2 m = static_cast<Tq4_strmap2>(Tq4_strmap2_oitf->Create(nullptr));
    ~Short_map() { Tq4_strmap2_oitf->Delete(m); }
    void Set(const Key &key, long n) { (*m)->SetAtS(m, reinterpret_cast<void *>(n + 1), key.text); }
    bool Has(const Key &key) { return (*m)->LookupS(m, key.text) != nullptr; }
    void Remove(const Key &key) { (*m)->RemoveS(m, key.text); }
};

struct Number_map {
    Tq4_intmap m = static_cast<Tq4_intmap>(Tq4_intmap_oitf->Create(nullptr));
    ~Number_map() { Tq4_intmap_oitf->Delete(m); }
    void Set(const Key &key, long n) { (*m)->SetAt1(m, reinterpret_cast<void *>(n + 1), key.number); }
    bool Has(const Key &key) { return (*m)->Lookup1(m, key.number) != nullptr; }
    void Remove(const Key &key) { (*m)->Remove1(m, key.number); }
};

// In another order than that of the keys: what is looked up next was not added next.
template <class Container> void fill(Container &container, std::size_t n) {
    constexpr std::size_t stride = 7919;
    for (std::size_t i = 0; i < n; ++i) container.Set(keys_of(n)[i * stride % n], static_cast<long>(i));
}

// One key after the other.
class Walk {
    const std::vector<Key> &m_keys;
    std::size_t m_at = 0;

public:
    explicit Walk(std::size_t n) : m_keys(keys_of(n)) {}
    const Key &next() {
        if (++m_at == m_keys.size()) m_at = 0;
        return m_keys[m_at];
    }
};

template <class Container> void look_up(benchmark::State &state) {
    const auto n = static_cast<std::size_t>(state.range(0));
    Container container;
    fill(container, n);
    Walk walk(n);
    for (auto _ : state)
        if (!container.Has(walk.next())) state.SkipWithError("not found");
}

// One entry leaves and comes back.
template <class Container> void replace(benchmark::State &state) {
    const auto n = static_cast<std::size_t>(state.range(0));
    Container container;
    fill(container, n);
    Walk walk(n);
    for (auto _ : state) {
        const Key &key = walk.next();
        container.Remove(key);
        container.Set(key, 1);
    }
}

#define BENCH(container, name)                                                                                         \
    BENCHMARK(look_up<container>)->Name("look_up/" name)->Arg(small)->Arg(middle)->Arg(large);                         \
    BENCHMARK(replace<container>)->Name("replace/" name)->Arg(small)->Arg(large);
BENCH(Table, "tq4_table")
BENCH(Map, "tq4_strmap")
BENCH(Short_map, "tq4_strmap2")
BENCH(Number_map, "tq4_intmap")

#ifdef HAVE_GLIB
struct Glib {
    GHashTable *t = g_hash_table_new_full(g_str_hash, g_str_equal, g_free, nullptr);
    ~Glib() { g_hash_table_destroy(t); }
    void Set(const Key &key, long n) { g_hash_table_insert(t, g_strdup(key.text), GSIZE_TO_POINTER(n + 1)); }
    bool Has(const Key &key) { return g_hash_table_lookup(t, key.text) != nullptr; }
    void Remove(const Key &key) { g_hash_table_remove(t, key.text); }
};
BENCH(Glib, "glib")
#endif

// A table of many entries, built, and asked for every hundredth.
constexpr std::size_t asked_every = 100;

void build_and_look_up(benchmark::State &state) {
    for (auto _ : state) {
        Table table;
        fill(table, middle);
        for (std::size_t i = 0; i < middle; i += asked_every)
            if (!table.Has(keys_of(middle)[i])) state.SkipWithError("not found");
    }
}
BENCHMARK(build_and_look_up)->Name("build_and_look_up/tq4")->Unit(benchmark::kMillisecond);

#ifdef HAVE_NLOHMANN
void nlohmann_build_and_look_up(benchmark::State &state) {
    for (auto _ : state) {
        nlohmann::ordered_json table = nlohmann::ordered_json::object();
        long n = 0;
        for (const Key &key : keys_of(middle)) table[key.text] = ++n;
        for (std::size_t i = 0; i < middle; i += asked_every)
            if (table.find(keys_of(middle)[i].text) == table.end()) state.SkipWithError("not found");
    }
}
BENCHMARK(nlohmann_build_and_look_up)
    ->Name("build_and_look_up/nlohmann")
    ->Unit(benchmark::kSecond)
    ->Iterations(1)
    ->Repetitions(1);
#endif

// By position from the first to the last; the time of one step.
void walk_by_position(benchmark::State &state) {
    const auto n = static_cast<std::size_t>(state.range(0));
    Table table;
    fill(table, n);
    int at = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize((*table.t)->At(table.t, at, nullptr));
        if (++at == state.range(0)) at = 0;
    }
}
BENCHMARK(walk_by_position)->Name("walk_by_position/tq4")->Arg(small)->Arg(large);

} // namespace
