// keyed_hash: the key, drawn once a process.
//
// Threads that come together draw each for themselves and keep, word by word, what was there first: no lock, so that a
// forked child never waits for a thread that it does not have. No word is 0, and the multipliers are odd.
#include "base/key/keyed_hash.hpp"

#include <initializer_list>

#include "platform/multi_platform_system.hpp"

constinit Tq4_hash_key Tq4_process_hash_key = {};

void Tq4_draw_hash_key() {
#ifdef FUZZING_BUILD_MODE_UNSAFE_FOR_PRODUCTION
    uint64_t drawn = 0x9E3779B97F4A7C15;
    const auto draw = [&] { drawn *= 0xD1342543DE82EF95; };
#else
    uint64_t drawn = reinterpret_cast<uint64_t>(&drawn); // where the kernel has no random numbers, that of the stack
    const auto draw = [&] { MP_GetRandom(&drawn, sizeof drawn); };
#endif
    for (auto word : {&Tq4_hash_key::start, &Tq4_hash_key::number, &Tq4_hash_key::text}) {
        auto &known = Tq4_process_hash_key.*word;
        if (known.load(std::memory_order_relaxed)) continue;
        draw();
        uint64_t nothing = 0;
        known.compare_exchange_strong(nothing, drawn | 1, std::memory_order_relaxed);
    }
}

uint64_t Tq4_keyed_folded_text(uint64_t hash, Tq4_bytes text) { return Tq4_keyed_text<true>(hash, text); }
