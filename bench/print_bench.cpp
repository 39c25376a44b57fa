// The printf engine into a warm buffer beside snprintf, and the growth of a write buffer beside std::string.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <cstdarg>
#include <cstdio>
#include <string>

#include "base/print.hpp"

namespace {

struct Buffer {
    Tq4_wbuf b;
    explicit Buffer(uint64_t size) {
        Tq4_wbuf_Init(&b, size);
        b.fflush = Tq4_wbuf_flush_nothing;
    }
    ~Buffer() { Tq4_wbuf_Release(&b); }

    void print(const char *format, ...) {
        va_list args;
        va_start(args, format);
        Tq4_wbuf_print(&b, format, args);
        va_end(args);
    }
};

// The same call for both, with an int in the arguments that changes from line to line.
template <class Call> void engine(benchmark::State &state, Call call) {
    Buffer buffer(1024);
    int i = 0;
    for (auto _ : state) {
        Tq4_wbuf_Reset(&buffer.b);
        call([&](auto... args) { buffer.print(args...); }, i++);
        benchmark::DoNotOptimize(buffer.b.m_data);
        benchmark::ClobberMemory();
    }
}

template <class Call> void c_library(benchmark::State &state, Call call) {
    char text[1024];
    int i = 0;
    for (auto _ : state) {
        call([&](auto... args) { snprintf(text, sizeof text, args...); }, i++);
        benchmark::DoNotOptimize(text);
        benchmark::ClobberMemory();
    }
}

const auto log_prefix = [](auto print, int i) {
    print("[%4d-%02d-%02d %02d:%02d:%02d %03d %04x] ", 2024, 1 + i % 12, 1 + i % 28, i % 24, i % 60, 59 - i % 60,
          i % 1000, i & 0xffff);
};
const auto int_text_double = [](auto print, int i) { print("%d %s %f", i, "some text", i * 0.37); };
const auto doubles = [](auto print, int i) { print("%e %g %.17g", i * 0.37, i * 1e10, i * 0.1); };
const auto texts = [](auto print, int) {
    print("connection %s from %-20s closed: %s\n", "alpha", "10.0.0.1:4000", "timeout");
};

#define PAIR(name)                                                                                                     \
    BENCHMARK_CAPTURE(engine, name, name)->Name("print_" #name "/tq4");                                                \
    BENCHMARK_CAPTURE(c_library, name, name)->Name("print_" #name "/snprintf")
PAIR(log_prefix);
PAIR(int_text_double);
PAIR(doubles);
PAIR(texts);

// A million bytes, `piece` bytes at a time, into a new buffer. The allocator keeps its memory: else the figures are
// those of page faults, which strike one side or the other as sizes happen to fall.
constexpr int64_t total = 1000000;
const int kept = mallopt(M_TRIM_THRESHOLD, 1 << 30) & mallopt(M_MMAP_THRESHOLD, 1 << 30);

void wbuf_append(benchmark::State &state) {
    std::string piece(static_cast<size_t>(state.range(0)), 'x');
    if (!kept) state.SkipWithError("mallopt refused");
    for (auto _ : state) {
        Buffer buffer(16);
        for (int64_t done = 0; done < total; done += state.range(0))
            Tq4_wbuf_memcat(&buffer.b, piece.data(), piece.size());
        benchmark::DoNotOptimize(buffer.b.m_data);
    }
    state.SetBytesProcessed(state.iterations() * total);
}

void std_string_append(benchmark::State &state) {
    std::string piece(static_cast<size_t>(state.range(0)), 'x');
    for (auto _ : state) {
        std::string text;
        for (int64_t done = 0; done < total; done += state.range(0)) text.append(piece);
        benchmark::DoNotOptimize(text.data());
    }
    state.SetBytesProcessed(state.iterations() * total);
}

void wbuf_putch(benchmark::State &state) {
    for (auto _ : state) {
        Buffer buffer(16);
        for (int64_t i = 0; i < total; ++i) Tq4_wbuf_putch(&buffer.b, static_cast<int>(i));
        benchmark::DoNotOptimize(buffer.b.m_data);
    }
    state.SetBytesProcessed(state.iterations() * total);
}

void std_string_push_back(benchmark::State &state) {
    for (auto _ : state) {
        std::string text;
        for (int64_t i = 0; i < total; ++i) text.push_back(static_cast<char>(i));
        benchmark::DoNotOptimize(text.data());
    }
    state.SetBytesProcessed(state.iterations() * total);
}

BENCHMARK(wbuf_append)->Name("append/tq4")->Arg(3)->Arg(24)->Arg(200);
BENCHMARK(std_string_append)->Name("append/std_string")->Arg(3)->Arg(24)->Arg(200);
BENCHMARK(wbuf_putch)->Name("putch/tq4");
BENCHMARK(std_string_push_back)->Name("putch/std_string");

} // namespace
