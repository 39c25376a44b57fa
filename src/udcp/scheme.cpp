// scheme: the tunings, and how the intervals of a handshake grow.
#include "udcp/scheme.hpp"

#include <algorithm>
#include <iterator>

namespace {

constexpr Tq4_udcp_timer_value timers[] = {
    {Tq4_udcp_delta_ms2, 200, 200, 2000, 200, 60, 20},
    {Tq4_udcp_delta_ms2, 200, 200, 4000, 200, 60, 20},
    {Tq4_udcp_delta_ms1, 500, 300, 15000, 500, 800, 200},
};
constexpr Tq4_udcp_queue_scheme windows[] = {
    {768, 1024, 128, 128},
    {256, 512, 32, 32},
    {384, 512, 64, 64},
};
constexpr Tq4_udcp_scheme schemes[] = {
    {0, &timers[0], &windows[0]},
    {1, &timers[1], &windows[1]},
    {2, &timers[2], &windows[2]},
};

} // namespace

unsigned long Tq4_udcp_delta_ms1(const Tq4_id *, unsigned long n, unsigned long base, void *) { return base * n; }

unsigned long Tq4_udcp_delta_ms2(const Tq4_id *, unsigned long n, unsigned long base, void *) {
    return n > 3 ? base * 8 : base << n;
}

const Tq4_udcp_scheme &Tq4_udcp_scheme_of(unsigned index) {
    return schemes[std::min<unsigned>(index, std::size(schemes) - 1)];
}
