// A reorder buffer under any sequence of operations with any numbers, beside a model.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdio>
#include <cstdlib>

#include "../tests/base/reorder_model.hpp"
#include "tq4/debug.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Tq4_debug_api->SetLog([](int, const char *, va_list) {});
    Tq4_debug_api->SetPrint([](int, const char *, va_list) {});
    FuzzedDataProvider input(data, size);
    Reorder_model model(input.ConsumeIntegralInRange(-1, 80), input.ConsumeIntegralInRange(-1, 90),
                        [](const auto &what) {
                            std::fprintf(stderr, "differs: %s\n", what.c_str());
                            std::abort();
                        });
    model.set_first(input.ConsumeIntegral<unsigned>());
    while (input.remaining_bytes()) {
        const auto operation = input.ConsumeIntegral<uint8_t>();
        const bool anywhere = operation & 128;
        const unsigned seq =
            anywhere ? input.ConsumeIntegral<unsigned>() : model.head() + input.ConsumeIntegral<int8_t>();
        switch (operation % 8) {
        case 0:
        case 1:
        case 2:
            model.cache(seq, operation % 8 - 1);
            break;
        case 3:
            model.get(static_cast<int>(seq % 8) - 1);
            break;
        case 4:
            model.append();
            break;
        case 5:
            model.send();
            break;
        case 6:
            model.ack(seq);
            break;
        default:
            if (model.holds_nothing()) model.set_first(seq);
        }
        model.compare();
    }
    return 0;
}
