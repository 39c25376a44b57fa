// GB18030 of three kinds of text beside the C library's iconv, opened once, into a block of room made once. Bytes are
// those of the input.
#include <benchmark/benchmark.h>

#include <iconv.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "base/charset/gb18030_kernels.hpp"

namespace {

constexpr std::size_t text_size = 256 * 1024;

// The ideographs of everyday use, the first level of GB2312, in an order of frequency that follows Zipf's law.
struct Writer {
    std::mt19937 random{1};
    std::vector<std::string> ideographs;
    std::discrete_distribution<std::size_t> frequency;
    std::string text;

    Writer() {
        for (int lead = 0xB0; lead <= 0xD7; ++lead)
            for (int trail = 0xA1; trail <= (lead == 0xD7 ? 0xF9 : 0xFE); ++trail)
                ideographs.push_back({static_cast<char>(lead), static_cast<char>(trail)});
        std::shuffle(ideographs.begin(), ideographs.end(), random);
        std::vector<double> weights;
        for (std::size_t rank = 1; rank <= ideographs.size(); ++rank)
            weights.push_back(1.0 / static_cast<double>(rank));
        frequency = {weights.begin(), weights.end()};
    }
    unsigned up_to(unsigned n) { return random() % n + 1; }
    void ideograph(unsigned count) {
        while (count--) text += ideographs[frequency(random)];
    }
    void latin(unsigned count) {
        while (count--) text += "etaoinshrdlu0123456789_./"[random() % 25];
    }
    template <class Sentence> std::string write(Sentence sentence) {
        while (text.size() < text_size) (this->*sentence)();
        return std::move(text);
    }
    // Clauses of 2 to 17 ideographs with full-width punctuation, a line feed about every fourth.
    void prose() {
        ideograph(1 + up_to(16));
        text += up_to(3) > 1 ? "\xA3\xAC" : "\xA1\xA3";
        if (up_to(4) == 1) text += '\n';
    }
    // A log line: date, time, and Chinese words with names, numbers and ASCII punctuation between them.
    void log_line() {
        text += "2024-05-17 08:31:44 ";
        for (unsigned words = up_to(6); words--;) {
            ideograph(1 + up_to(7));
            text += up_to(2) > 1 ? " = " : ", ";
            latin(up_to(9));
            text += ' ';
        }
        text += '\n';
    }
    void ascii() {
        latin(up_to(40));
        text += " \n"[up_to(3) == 1];
    }
};

std::string convert(iconv_t peer, const std::string &text) {
    std::string converted(text.size() * 4, '\0');
    char *in = const_cast<char *>(text.data()), *out = converted.data();
    std::size_t left = text.size(), room = converted.size();
    iconv(peer, &in, &left, &out, &room);
    converted.resize(left == 0 ? converted.size() - room : 0);
    return converted;
}

struct Direction {
    const char *name, *from, *to;
    Gb18030_conversion *Gb18030_kernel::*conversion;
};

constexpr Direction directions[] = {
    {"gb18030_to_utf8", "GB18030", "UTF-8", &Gb18030_kernel::gb18030_to_utf8},
    {"utf8_to_gb18030", "UTF-8", "GB18030", &Gb18030_kernel::utf8_to_gb18030},
    {"gb18030_to_units", "GB18030", "UTF-16LE", &Gb18030_kernel::gb18030_to_units},
    {"units_to_gb18030", "UTF-16LE", "GB18030", &Gb18030_kernel::units_to_gb18030},
};

void ours(benchmark::State &state, Gb18030_conversion *conversion, const std::string &in, const std::string &expected) {
    std::string out(in.size() * 2, '\0');
    Tq4_converted done = {0, 0};
    for (auto _ : state) {
        done = conversion({reinterpret_cast<const uint8_t *>(in.data()), in.size()},
                          {reinterpret_cast<uint8_t *>(out.data()), out.size()});
        benchmark::DoNotOptimize(out.data());
    }
    out.resize(done.produced);
    if (out != expected) state.SkipWithError("the conversion differs from the peer's");
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(in.size()));
}

void peer(benchmark::State &state, const Direction &direction, const std::string &in) {
    const iconv_t converter = iconv_open(direction.to, direction.from);
    std::string room(in.size() * 2, '\0');
    for (auto _ : state) {
        char *from = const_cast<char *>(in.data()), *to = room.data();
        std::size_t left = in.size(), free = room.size();
        if (iconv(converter, &from, &left, &to, &free) != 0) state.SkipWithError("iconv failed");
        benchmark::DoNotOptimize(room.data());
    }
    iconv_close(converter);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(in.size()));
}

std::string in_code(const char *code, const std::string &gb18030) {
    const iconv_t converter = iconv_open(code, "GB18030");
    std::string converted = convert(converter, gb18030);
    iconv_close(converter);
    return converted;
}

const bool registered = [] {
    const std::pair<const char *, std::string> texts[] = {
        {"chinese", Writer().write(&Writer::prose)},
        {"mixed", Writer().write(&Writer::log_line)},
        {"ascii", Writer().write(&Writer::ascii)},
    };
    for (const auto &[kind, text] : texts)
        for (const Direction &direction : directions) {
            const std::string in = in_code(direction.from, text), expected = in_code(direction.to, text);
            const std::string name = std::string(direction.name) + "/" + kind + "/";
            for (const Gb18030_kernel *kernel : gb18030_kernels())
                if (kernel->is_supported())
                    benchmark::RegisterBenchmark((name + kernel->name).c_str(),
                                                 [=, &direction](benchmark::State &state) {
                                                     ours(state, kernel->*direction.conversion, in, expected);
                                                 });
            benchmark::RegisterBenchmark((name + "iconv").c_str(),
                                         [=, &direction](benchmark::State &state) { peer(state, direction, in); });
        }
    return true;
}();

} // namespace
