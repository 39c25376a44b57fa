// Random operations on a table, with keys of every kind and case flags that are mixed at will, beside a model that
// tells plainly what is found: which entry, and in which order all stand.
#include <fuzzer/FuzzedDataProvider.h>

#include "../tests/base/kv/table_model.hpp"

namespace {

struct Choices {
    FuzzedDataProvider in;

    bool coin() { return in.ConsumeBool(); }
    unsigned long below(unsigned long n) { return in.ConsumeIntegralInRange(0ul, n - 1); }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Choices choices{{data, size}};
    if (size == 0) return 0;
    const bool large = choices.coin(); // beyond where the index begins
    Table_walk<Choices> walk{choices, large ? 120u : 12u, large ? 4u : 2u, large ? 40u : 4u};
    while (choices.in.remaining_bytes() && walk.step < 2000) {
        walk.Step();
        if (!large || walk.step % 64 == 0) walk.Compare();
    }
    walk.Compare();
    return 0;
}
