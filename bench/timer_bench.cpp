// A million timers beside libuv's: setting and clearing on the thread that has them, an idle tick, and how near to its
// schedule each fires.
#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <random>
#include <thread>
#include <vector>

#include "base/timer/wheel.hpp"
#include "own.hpp"
#include "tq4/debug.h"
#include "tq4/timer.h"

#ifdef HAVE_UV
#include <uv.h>
#endif

namespace {

constexpr unsigned live = 1000000;

void on_timer(Tq4_timer, Tq4_timer_callback *) {}

// What the threads print would stand between the results.
const bool quiet = (Tq4_debug_api->SetPrint([](int, const char *, va_list) {}), true);

// The same for both: up to ten minutes, as of connections that are watched, and up to five seconds, as of requests.
std::vector<unsigned long> random_intervals(unsigned long least, unsigned long most) {
    std::vector<unsigned long> ms(live);
    std::mt19937 random(1);
    for (unsigned long &one : ms) one = random() % (most - least) + least;
    return ms;
}
std::vector<unsigned long> intervals() { return random_intervals(5000, 600000); }
std::vector<unsigned long> request_intervals() { return random_intervals(50, 5000); }

// Runs work on the thread of a timer object's handler, where a service's own callbacks run.
void on_handler(Tq4_timer t, std::function<void()> work) {
    struct Work {
        std::function<void()> run;
        std::atomic<bool> done{false};
    } given{std::move(work)};
    (*t)->SetTimer(
        t, 10,
        [](Tq4_timer, Tq4_timer_callback *firing) {
            auto *w = static_cast<Work *>(firing->userdata);
            w->run();
            w->done = true;
            w->done.notify_one();
        },
        nullptr, &given, nullptr);
    given.done.wait(false);
}

// Runs work there with a million timers: their object, their intervals and the room for their ids.
template <class Work> void with_million(Work work) {
    const auto owner = Tq4_make<Tq4_timer>(Tq4_timer_oitf);
    const auto ms = intervals();
    std::vector<Tq4_id> ids(live);
    (*owner)->Start(owner.get(), "bench");
    on_handler(owner.get(), [&] { work(owner.get(), ms, ids); });
}

void set_all(Tq4_timer t, const std::vector<unsigned long> &ms, std::vector<Tq4_id> &ids) {
    for (unsigned i = 0; i < live; ++i) (*t)->SetTimer1(t, ms[i], on_timer, &ids[i]);
}

// A request's time-out: set, and cleared when the answer is there, while a million connections are watched.
void tq4_set_clear(benchmark::State &state) {
    with_million([&](Tq4_timer t, const auto &ms, auto &ids) {
        set_all(t, ms, ids);
        const auto requests = request_intervals();
        Tq4_id id;
        for (unsigned i = 0; auto _ : state) {
            (*t)->SetTimer1(t, requests[i++ % live], on_timer, &id);
            (*t)->ClearTimer(t, &id);
        }
    });
}
BENCHMARK(tq4_set_clear)->Name("timer_set_clear/tq4");

// A million are set, and then cleared in that order.
void tq4_fill_drain(benchmark::State &state) {
    with_million([&](Tq4_timer t, const auto &ms, auto &ids) {
        for (auto _ : state) {
            set_all(t, ms, ids);
            for (const Tq4_id &id : ids) (*t)->ClearTimer(t, &id);
        }
    });
    state.SetItemsProcessed(state.iterations() * live);
}
BENCHMARK(tq4_fill_drain)->Name("timer_fill_drain/tq4")->Unit(benchmark::kMillisecond)->Iterations(4);

// Each time one of the million is cleared, at random, and another one set.
void tq4_replace(benchmark::State &state) {
    with_million([&](Tq4_timer t, const auto &ms, auto &ids) {
        set_all(t, ms, ids);
        std::mt19937 random(2);
        for (unsigned i = 0; auto _ : state) {
            Tq4_id &id = ids[random() % live];
            (*t)->ClearTimer(t, &id);
            (*t)->SetTimer1(t, ms[i++ % live], on_timer, &id);
        }
    });
}
BENCHMARK(tq4_replace)->Name("timer_replace/tq4");

void tq4_wheel_set_clear(benchmark::State &state) {
    Tq4_timer_wheel wheel(nullptr, 1);
    const auto ms = intervals(), requests = request_intervals();
    Tq4_id id;
    for (const unsigned long one : ms) wheel.Set({one, 1, on_timer, nullptr, nullptr, nullptr}, &id);
    for (unsigned i = 0; auto _ : state) {
        wheel.Set({requests[i++ % live], 1, on_timer, nullptr, nullptr, nullptr}, &id);
        wheel.Clear(&id);
    }
}
BENCHMARK(tq4_wheel_set_clear)->Name("timer_set_clear/tq4_wheel");

// Ticks while a million timers wait that are not due.
void tq4_idle_tick(benchmark::State &state) {
    Tq4_timer_wheel wheel(nullptr, 1);
    Tq4_id id;
    for (unsigned i = 0; i < live; ++i)
        wheel.Set({(1ul << 30) * 10 + i * 1000ul, 1, on_timer, nullptr, nullptr, nullptr}, &id);
    for (auto _ : state) wheel.Tick(1);
}
BENCHMARK(tq4_idle_tick)->Name("timer_idle_tick/tq4");

// A million timers over ten seconds of real time: how late the latest is, in milliseconds after its schedule.
void tq4_fire_all(benchmark::State &state) {
    static std::atomic<unsigned> fired;
    static long worst, begin;
    static const auto now = [] {
        return std::chrono::duration_cast<std::chrono::microseconds>(
                   std::chrono::steady_clock::now().time_since_epoch())
            .count();
    };
    struct Plan {
        long due;
    };
    for (auto _ : state) {
        const auto owner = Tq4_make<Tq4_timer>(Tq4_timer_oitf);
        const Tq4_timer t = owner.get();
        std::vector<Plan> plans(live);
        fired = 0;
        worst = 0;
        (*t)->Start(t, "bench");
        on_handler(t, [&] {
            begin = now();
            std::mt19937 random(3);
            for (Plan &plan : plans) {
                const unsigned long ms = 3000 + random() % 7000;
                plan.due = static_cast<long>(ms);
                (*t)->SetTimer(
                    t, ms,
                    [](Tq4_timer, Tq4_timer_callback *firing) {
                        worst = std::max(worst, (now() - begin) / 1000 - static_cast<Plan *>(firing->userdata)->due);
                        ++fired;
                    },
                    nullptr, &plan, nullptr);
            }
        });
        while (fired < live) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    state.counters["latest_ms"] = static_cast<double>(worst);
}
BENCHMARK(tq4_fire_all)->Name("timer_fire_all/tq4")->Iterations(1)->UseRealTime()->Unit(benchmark::kSecond);

double processor_seconds() {
    rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

// What a started timer object costs that has nothing to do, in percent of a core.
void tq4_started(benchmark::State &state) {
    const auto owner = Tq4_make<Tq4_timer>(Tq4_timer_oitf);
    (*owner)->Start(owner.get(), "bench");
    const double before = processor_seconds();
    double seconds = 0;
    for (auto _ : state) {
        std::this_thread::sleep_for(std::chrono::seconds(5));
        seconds += 5;
    }
    state.counters["percent_of_a_core"] = (processor_seconds() - before) / seconds * 100;
}
BENCHMARK(tq4_started)->Name("timer_started/tq4")->Iterations(1)->UseRealTime()->Unit(benchmark::kSecond);

#ifdef HAVE_UV
void uv_on_timer(uv_timer_t *) {}

struct Loop {
    uv_loop_t loop;
    std::vector<uv_timer_t> timers{live + 1};

    explicit Loop(const std::vector<unsigned long> &ms) {
        uv_loop_init(&loop);
        for (uv_timer_t &timer : timers) uv_timer_init(&loop, &timer);
        for (unsigned i = 0; i < live; ++i) uv_timer_start(&timers[i], uv_on_timer, ms[i], 0);
    }
    ~Loop() {
        for (uv_timer_t &timer : timers) uv_close(reinterpret_cast<uv_handle_t *>(&timer), nullptr);
        uv_run(&loop, UV_RUN_DEFAULT);
        uv_loop_close(&loop);
    }
};

void uv_set_clear(benchmark::State &state) {
    const auto ms = intervals(), requests = request_intervals();
    Loop l(ms);
    for (unsigned i = 0; auto _ : state) {
        uv_timer_start(&l.timers[live], uv_on_timer, requests[i++ % live], 0);
        uv_timer_stop(&l.timers[live]);
    }
}
BENCHMARK(uv_set_clear)->Name("timer_set_clear/uv");

void uv_fill_drain(benchmark::State &state) {
    const auto ms = intervals();
    uv_loop_t loop;
    uv_loop_init(&loop);
    std::vector<uv_timer_t> timers(live);
    for (uv_timer_t &timer : timers) uv_timer_init(&loop, &timer);
    for (auto _ : state) {
        for (unsigned i = 0; i < live; ++i) uv_timer_start(&timers[i], uv_on_timer, ms[i], 0);
        for (uv_timer_t &timer : timers) uv_timer_stop(&timer);
    }
    state.SetItemsProcessed(state.iterations() * live);
}
BENCHMARK(uv_fill_drain)->Name("timer_fill_drain/uv")->Unit(benchmark::kMillisecond)->Iterations(4);

void uv_replace(benchmark::State &state) {
    const auto ms = intervals();
    Loop l(ms);
    std::mt19937 random(2);
    for (unsigned i = 0; auto _ : state) {
        uv_timer_t &timer = l.timers[random() % live];
        uv_timer_stop(&timer);
        uv_timer_start(&timer, uv_on_timer, ms[i++ % live], 0);
    }
}
BENCHMARK(uv_replace)->Name("timer_replace/uv");
#endif

} // namespace
