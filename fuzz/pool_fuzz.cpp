// Ids from strangers: any bits of h and l, beside a plain map of what is lent. Nothing but what is lent is found or
// given back, and no look-up makes a payload.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdlib>
#include <map>

#include "own.hpp"
#include "tq4/pool.h"

namespace {

void require(bool holds) {
    if (!holds) abort();
}

long payloads = 0;

struct Lent {
    uint32_t l;
    void *payload;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzedDataProvider in(data, size);
    const Tq4_pool_CreateParams params{.max_res = in.ConsumeIntegralInRange(0u, 70000u),
                                       .Create = [](void *) -> void * { return ++payloads, std::malloc(1); },
                                       .Delete = [](void *payload) { --payloads, std::free(payload); },
                                       .Reset = [](void *, unsigned long) {},
                                       .mask = in.ConsumeIntegral<uint64_t>()};
    const auto p = Tq4_make<Tq4_pool>(Tq4_pool_oitf, &params);
    std::map<unsigned, Lent> lent; // by slot
    for (int step = 0; in.remaining_bytes() && step < 300; ++step) {
        Tq4_id id{in.ConsumeIntegral<uint32_t>(), in.ConsumeIntegral<uint32_t>()};
        if (in.ConsumeBool() && !lent.empty()) id.l = lent.begin()->second.l;
        const unsigned slot = (*p)->ToIndex(p.get(), &id);
        const auto there = lent.find(slot);
        const bool known = there != lent.end() && there->second.l == id.l;
        const long before = payloads;
        require((*p)->Peek(p.get(), &id) == (known ? there->second.payload : nullptr));
        require((*p)->PeekAt(p.get(), slot) == (there != lent.end() ? there->second.payload : nullptr));
        (*p)->PeekAt(p.get(), id.h);
        require(payloads == before);
        void *payload = nullptr;
        switch (in.ConsumeIntegralInRange(0, 3)) {
        case 0:
            require((*p)->Recycle(p.get(), &id) == known);
            if (known) lent.erase(there);
            break;
        case 1:
            payload = (*p)->AllocBy(p.get(), nullptr, &id);
            require((payload != nullptr) == (id.l && slot < params.max_res && there == lent.end()));
            if (payload) lent[slot] = {id.l, payload};
            break;
        case 2:
            payload = (*p)->AllocAt(p.get(), id.h, nullptr, &id);
            if (payload) lent[(*p)->ToIndex(p.get(), &id)] = {id.l, payload};
            break;
        default:
            payload = (*p)->Alloc(p.get(), nullptr, &id);
            require((payload != nullptr) == (lent.size() < params.max_res));
            if (payload) require(lent.insert({(*p)->ToIndex(p.get(), &id), {id.l, payload}}).second);
        }
        require((*p)->Counts(p.get()) == lent.size());
    }
    return 0;
}
