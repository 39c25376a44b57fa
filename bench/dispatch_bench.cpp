// The dispatcher beside GLib's queue between threads and a bare condition variable: messages pushed to a handler, calls
// that wait for the answer, on free cores and on one, and what an idle one costs.
#include <benchmark/benchmark.h>

#include <atomic>
#include <pthread.h>
#include <sched.h>
#include <thread>
#include <unistd.h>

#include "tq4/debug.h"
#include "tq4/dispatch.h"

#ifdef HAVE_GLIB
#include <glib.h>
#endif

namespace {

constexpr long pushed = 200000; // messages a round

// The whole process on one core while it lives, or where it was.
class Cores {
    cpu_set_t m_before;

public:
    explicit Cores(bool one) {
        sched_getaffinity(0, sizeof m_before, &m_before);
        cpu_set_t first;
        CPU_ZERO(&first);
        CPU_SET(0, &first);
        if (one) sched_setaffinity(0, sizeof first, &first);
    }
    ~Cores() { sched_setaffinity(0, sizeof m_before, &m_before); }
};

// A dispatcher whose handler counts, and answers with the count.
struct Dispatcher {
    std::atomic<long> count = 0;
    Tq4_dispatch d = static_cast<Tq4_dispatch>(Tq4_dispatch_oitf->Create(nullptr));

    Dispatcher() {
        Tq4_debug_api->SetPrint([](int, const char *, va_list) {});
        Tq4_debug_api->SetLog([](int, const char *, va_list) {});
        auto handle = +[](void *context, Tq4_msg *message) {
            auto &n = static_cast<Dispatcher *>(context)->count;
            n.store(n.load(std::memory_order_relaxed) + message->submsg, std::memory_order_release);
            return n.load(std::memory_order_relaxed);
        };
        (*d)->Start(d, this, handle, "bench");
    }
    ~Dispatcher() { Tq4_dispatch_oitf->Delete(d); }
    void push() { (*d)->Push(d, nullptr, nullptr, 1, 1, nullptr, nullptr); }
    long call() { return (*d)->Send(d, nullptr, nullptr, 1, 1, nullptr, nullptr); }
    void await(long n) const {
        while (count.load(std::memory_order_acquire) < n) std::this_thread::yield();
    }
};

void push_tq4(benchmark::State &state) {
    Dispatcher dispatcher;
    for (auto _ : state) {
        const long end = dispatcher.count + pushed;
        for (long i = 0; i < pushed; ++i) dispatcher.push();
        dispatcher.await(end);
    }
    state.SetItemsProcessed(state.iterations() * pushed);
}
BENCHMARK(push_tq4)->Name("dispatch_push/tq4")->UseRealTime();

// From one thread to another and back; the other is asleep between calls, or about to be.
struct Mailbox {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t condition = PTHREAD_COND_INITIALIZER;
    bool full = false;
    void put() {
        pthread_mutex_lock(&mutex);
        full = true;
        pthread_cond_signal(&condition);
        pthread_mutex_unlock(&mutex);
    }
    void take() {
        pthread_mutex_lock(&mutex);
        while (!full) pthread_cond_wait(&condition, &mutex);
        full = false;
        pthread_mutex_unlock(&mutex);
    }
};

struct Condition_server {
    Mailbox request, answer;
    std::atomic<bool> over = false;
    std::thread thread{[this] {
        for (;;) {
            request.take();
            if (over) return;
            answer.put();
        }
    }};
    ~Condition_server() {
        over = true;
        request.put();
        thread.join();
    }
    void call() {
        request.put();
        answer.take();
    }
};

template <class Server> void send(benchmark::State &state) {
    const Cores cores(state.range(0) == 1);
    Server server;
    for (auto _ : state) server.call();
}
BENCHMARK(send<Dispatcher>)->Name("dispatch_send/tq4")->ArgName("cores")->Arg(1)->Arg(2)->UseRealTime();
BENCHMARK(send<Condition_server>)->Name("dispatch_send/pthread")->ArgName("cores")->Arg(1)->Arg(2)->UseRealTime();

// A tenth of a second in which nobody sends anything: the counter is the share of it that the processor was busy.
void idle(benchmark::State &state) {
    Dispatcher dispatcher;
    dispatcher.call();
    const clock_t before = clock();
    for (auto _ : state) usleep(100000);
    state.counters["busy"] =
        static_cast<double>(clock() - before) / CLOCKS_PER_SEC / (0.1 * static_cast<double>(state.iterations()));
}
BENCHMARK(idle)->Name("dispatch_idle/tq4")->UseRealTime()->Iterations(20);

#ifdef HAVE_GLIB
int something;

void push_glib(benchmark::State &state) {
    GAsyncQueue *q = g_async_queue_new();
    std::atomic<long> count = 0;
    std::thread consumer([&] {
        while (g_async_queue_pop(q) == &something) count.store(count.load(std::memory_order_relaxed) + 1);
    });
    for (auto _ : state) {
        const long end = count + pushed;
        for (long i = 0; i < pushed; ++i) g_async_queue_push(q, &something);
        while (count.load(std::memory_order_acquire) < end) std::this_thread::yield();
    }
    g_async_queue_push(q, &count);
    consumer.join();
    g_async_queue_unref(q);
    state.SetItemsProcessed(state.iterations() * pushed);
}
BENCHMARK(push_glib)->Name("dispatch_push/glib")->UseRealTime();

struct Glib_server {
    GAsyncQueue *request = g_async_queue_new(), *answer = g_async_queue_new();
    std::thread thread{[this] {
        while (g_async_queue_pop(request) == &something) g_async_queue_push(answer, &something);
    }};
    ~Glib_server() {
        g_async_queue_push(request, this);
        thread.join();
        g_async_queue_unref(request);
        g_async_queue_unref(answer);
    }
    void call() {
        g_async_queue_push(request, &something);
        benchmark::DoNotOptimize(g_async_queue_pop(answer));
    }
};
BENCHMARK(send<Glib_server>)->Name("dispatch_send/glib")->ArgName("cores")->Arg(1)->Arg(2)->UseRealTime();
#endif

} // namespace
