// Base64 of 64 KiB beside GLib, each with a block of its own for the result. Bytes are those of the binary side.
#include <benchmark/benchmark.h>

#include <memory>
#include <random>
#include <string>
#include <vector>

#include "base/charset/base64.hpp"
#include "base/charset/base64_kernels.hpp"

#ifdef HAVE_GLIB
#include <glib.h>
#endif

namespace {

constexpr std::size_t size = 64 * 1024;

const std::vector<uint8_t> &sample() {
    static const std::vector<uint8_t> bytes = [] {
        std::mt19937 random(1);
        std::vector<uint8_t> filled(size);
        for (uint8_t &byte : filled) byte = static_cast<uint8_t>(random());
        return filled;
    }();
    return bytes;
}

// The sample's encoding with a line feed after every width characters; none for 0.
std::string sample_text(std::size_t width) {
    std::string text(base64_encoded_size(size), '\0');
    base64_encode({sample().data(), size}, reinterpret_cast<uint8_t *>(text.data()));
    std::erase(text, '\n');
    for (std::size_t at = width; width && at < text.size(); at += width + 1) text.insert(at, 1, '\n');
    return text;
}

void count_bytes(benchmark::State &state) {
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(size));
}

void encode(benchmark::State &state, const Base64_kernel *kernel) {
    for (auto _ : state) {
        std::unique_ptr<uint8_t[]> room(new uint8_t[base64_encoded_size(size)]);
        base64_encode_by(*kernel, {sample().data(), size}, room.get());
        benchmark::DoNotOptimize(room.get());
    }
    count_bytes(state);
}

void decode(benchmark::State &state, const Base64_kernel *kernel, std::size_t width) {
    const std::string text = sample_text(width);
    const Tq4_bytes in = {reinterpret_cast<const uint8_t *>(text.data()), text.size()};
    for (auto _ : state) {
        std::unique_ptr<uint8_t[]> room(new uint8_t[base64_decoded_max(in.size)]);
        if (base64_decode_by(*kernel, in, room.get()) != size) state.SkipWithError("wrong size");
        benchmark::DoNotOptimize(room.get());
    }
    count_bytes(state);
}

#ifdef HAVE_GLIB
void glib_encode(benchmark::State &state) {
    for (auto _ : state) {
        gchar *text = g_base64_encode(sample().data(), size);
        benchmark::DoNotOptimize(text);
        g_free(text);
    }
    count_bytes(state);
}

void glib_decode(benchmark::State &state, std::size_t width) {
    const std::string text = sample_text(width);
    for (auto _ : state) {
        gsize written = 0;
        guchar *bytes = g_base64_decode(text.c_str(), &written);
        if (written != size) state.SkipWithError("wrong size");
        benchmark::DoNotOptimize(bytes);
        g_free(bytes);
    }
    count_bytes(state);
}
#endif

const bool registered = [] {
    const std::pair<const char *, std::size_t> layouts[] = {{"one_line", 0}, {"lines_of_80", 80}, {"lines_of_76", 76}};
    for (const Base64_kernel *kernel : base64_kernels()) {
        if (!kernel->is_supported()) continue;
        const std::string name = kernel->name;
        benchmark::RegisterBenchmark(("base64_encode/" + name).c_str(), encode, kernel);
        for (auto [layout, width] : layouts)
            benchmark::RegisterBenchmark(("base64_decode/" + name + "/" + layout).c_str(), decode, kernel, width);
    }
#ifdef HAVE_GLIB
    benchmark::RegisterBenchmark("base64_encode/glib", glib_encode);
    for (auto [layout, width] : layouts)
        benchmark::RegisterBenchmark(("base64_decode/glib/" + std::string(layout)).c_str(), glib_decode, width);
#endif
    return true;
}();

} // namespace
