// UTF-8 to and from 16-bit units beside the C library's iconv. Bytes are those of the UTF-8 side.
#include <benchmark/benchmark.h>
#include <iconv.h>

#include <string>
#include <vector>

#include "base/charset/utf8_kernels.hpp"

namespace {

struct Sample {
    const char *name;
    const char *text;
};

const Sample samples[] = {
    {"ascii", "A runtime library for long-running network services keeps its promises for years, not for minutes. "},
    {"chinese", "长时间运行的网络服务，日志与控制台输出都使用中文；版本 1.0 于 2024 年发布，支持 UTF-8 与国标编码。"},
    {"russian", "Библиотека для сетевых служб, которые работают годами."},
};

std::string text_of(const Sample &sample) {
    std::string text;
    while (text.size() < 64 * 1024) text += sample.text;
    return text;
}

Tq4_bytes view(const std::string &text) { return {reinterpret_cast<const uint8_t *>(text.data()), text.size()}; }
Tq4_room room_of(std::vector<uint8_t> &block) { return {block.data(), block.size()}; }

std::vector<uint8_t> units_of(const std::string &text) {
    std::vector<uint8_t> units(text.size() * 2);
    units.resize(utf8_to_units(view(text), room_of(units)).produced);
    return units;
}

void count_bytes(benchmark::State &state, std::size_t size) {
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(size));
}

void to_units(benchmark::State &state, const Sample *sample, const Utf8_kernel *kernel) {
    const std::string text = text_of(*sample);
    std::vector<uint8_t> block(text.size() * 2);
    for (auto _ : state) {
        const Tq4_converted done = utf8_to_units_by(*kernel, view(text), room_of(block));
        if (done.consumed != text.size()) state.SkipWithError("stopped early");
        benchmark::DoNotOptimize(block.data());
    }
    count_bytes(state, text.size());
}

void from_units(benchmark::State &state, const Sample *sample, const Utf8_kernel *kernel) {
    const std::string text = text_of(*sample);
    const std::vector<uint8_t> units = units_of(text);
    std::vector<uint8_t> block(text.size());
    for (auto _ : state) {
        const Tq4_converted done = units_to_utf8_by(*kernel, {units.data(), units.size()}, room_of(block));
        if (done.produced != text.size()) state.SkipWithError("stopped early");
        benchmark::DoNotOptimize(block.data());
    }
    count_bytes(state, text.size());
}

void c_library(benchmark::State &state, const Sample *sample, bool from) {
    const std::string text = text_of(*sample);
    const std::vector<uint8_t> units = units_of(text);
    std::vector<char> block(text.size() * 2);
    iconv_t converter = from ? iconv_open("UTF-8", "UTF-16LE") : iconv_open("UTF-16LE", "UTF-8");
    for (auto _ : state) {
        auto *in = reinterpret_cast<char *>(const_cast<uint8_t *>(from ? units.data() : view(text).data));
        char *out = block.data();
        std::size_t in_left = from ? units.size() : text.size(), out_left = block.size();
        if (iconv(converter, &in, &in_left, &out, &out_left) != 0) state.SkipWithError("stopped early");
        benchmark::DoNotOptimize(block.data());
    }
    iconv_close(converter);
    count_bytes(state, text.size());
}

void columns(benchmark::State &state, const Sample *sample, const Utf8_kernel *kernel) {
    const std::string text = text_of(*sample);
    for (auto _ : state) benchmark::DoNotOptimize(utf8_columns_by(*kernel, view(text)));
    count_bytes(state, text.size());
}

const bool registered = [] {
    for (const Sample &sample : samples) {
        const std::string name = sample.name;
        for (const Utf8_kernel *kernel : utf8_kernels()) {
            if (!kernel->is_supported()) continue;
            const std::string by = name + "/" + kernel->name;
            benchmark::RegisterBenchmark(("utf8_to_units/" + by).c_str(), to_units, &sample, kernel);
            benchmark::RegisterBenchmark(("utf8_columns/" + by).c_str(), columns, &sample, kernel);
            benchmark::RegisterBenchmark(("units_to_utf8/" + by).c_str(), from_units, &sample, kernel);
        }
        benchmark::RegisterBenchmark(("utf8_to_units/" + name + "/iconv").c_str(), c_library, &sample, false);
        benchmark::RegisterBenchmark(("units_to_utf8/" + name + "/iconv").c_str(), c_library, &sample, true);
    }
    return true;
}();

} // namespace
