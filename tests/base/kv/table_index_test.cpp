// What a table's index finds, beside a model of it: keys of every kind, cases and case flags mixed at will, sizes on
// both sides of where the index begins.
#include "base/kv/table_model.hpp"
#include "support/test.hpp"

namespace {

struct Choices {
    std::mt19937_64 random;

    bool coin() { return random() >> 63; }
    unsigned long below(unsigned long n) { return random() % n; }
};

void walk(unsigned long seed, std::size_t largest, unsigned long letters, unsigned long numbers, long steps) {
    Choices choices{std::mt19937_64(seed)};
    Table_walk<Choices> walk{choices, largest, letters, numbers};
    while (walk.step < steps) {
        walk.Step();
        if (walk.step % 100 == 0) walk.Compare();
    }
}

TEST(TableIndex, FindsWhatAWalkAlongItsChainsWouldMeet) {
    for (unsigned long seed = 1; seed <= 4; ++seed) {
        walk(seed, 12, 1, 3, 5000);
        walk(seed, 100, 2, 20, 10000);
        walk(seed, 400, 4, 200, 10000);
    }
}

} // namespace
