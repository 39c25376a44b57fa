// Events and locks beside what they are made of: a condition variable with its mutex and flag, a recursive mutex.
#include <benchmark/benchmark.h>

#include <atomic>
#include <pthread.h>
#include <sys/resource.h>
#include <thread>

#include "tq4/event.h"
#include "tq4/lock.h"

namespace {

constexpr Tq4_event_CreateParams automatic{.bManualReset = 0, .bInitialState = 0};

struct Event {
    Tq4_event e = static_cast<Tq4_event>(Tq4_event_oitf->Create(&automatic));
    ~Event() { Tq4_event_oitf->Delete(e); }
    void set() { (*e)->Set(e); }
    void wait() { (*e)->Wait(e, TQ4_ALL_ONES); }
    bool wait(unsigned long ms) { return (*e)->Wait(e, ms); }
};

// The least that does the work of an automatic event.
struct Condition {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t condition = PTHREAD_COND_INITIALIZER;
    bool flag = false;
    void set() {
        pthread_mutex_lock(&mutex);
        flag = true;
        pthread_cond_signal(&condition);
        pthread_mutex_unlock(&mutex);
    }
    void wait() {
        pthread_mutex_lock(&mutex);
        while (!flag) pthread_cond_wait(&condition, &mutex);
        flag = false;
        pthread_mutex_unlock(&mutex);
    }
};

// From one thread to another, asleep, and back.
template <class Signal> void round_trip(benchmark::State &state) {
    Signal there, back;
    std::atomic<bool> over = false;
    std::thread other([&] {
        for (;;) {
            there.wait();
            if (over) return;
            back.set();
        }
    });
    for (auto _ : state) {
        there.set();
        back.wait();
    }
    over = true;
    there.set();
    other.join();
}
BENCHMARK(round_trip<Event>)->Name("event_round_trip/tq4")->UseRealTime();
BENCHMARK(round_trip<Condition>)->Name("event_round_trip/pthread")->UseRealTime();

// Nobody else there: set and taken at once.
template <class Signal> void set_and_take(benchmark::State &state) {
    Signal signal;
    for (auto _ : state) {
        signal.set();
        signal.wait();
    }
}
BENCHMARK(set_and_take<Event>)->Name("event_alone/tq4");
BENCHMARK(set_and_take<Condition>)->Name("event_alone/pthread");

struct Lock {
    Tq4_lock l = static_cast<Tq4_lock>(Tq4_lock_oitf->Create(nullptr));
    ~Lock() { Tq4_lock_oitf->Delete(l); }
    void lock() { (*l)->Lock(l); }
    void unlock() { (*l)->Unlock(l); }
};

struct Recursive_mutex {
    pthread_mutex_t mutex;
    Recursive_mutex() {
        pthread_mutexattr_t attributes;
        pthread_mutexattr_init(&attributes);
        pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
        pthread_mutex_init(&mutex, &attributes);
    }
    ~Recursive_mutex() { pthread_mutex_destroy(&mutex); }
    void lock() { pthread_mutex_lock(&mutex); }
    void unlock() { pthread_mutex_unlock(&mutex); }
};

template <class Mutex> void lock_pair(benchmark::State &state) {
    Mutex mutex;
    for (auto _ : state) {
        mutex.lock();
        mutex.unlock();
    }
}
BENCHMARK(lock_pair<Lock>)->Name("lock_pair/tq4");
BENCHMARK(lock_pair<Recursive_mutex>)->Name("lock_pair/pthread");

double busy_seconds() {
    rusage usage;
    getrusage(RUSAGE_THREAD, &usage);
    auto seconds = [](timeval time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

// A wait of a tenth of a second for nothing: the counter is the share of it that the processor was busy.
void idle_wait(benchmark::State &state) {
    Event event;
    const double before = busy_seconds();
    for (auto _ : state) benchmark::DoNotOptimize(event.wait(100));
    state.counters["busy"] = (busy_seconds() - before) / (0.1 * static_cast<double>(state.iterations()));
}
BENCHMARK(idle_wait)->Name("event_idle_wait/tq4")->UseRealTime();

} // namespace
