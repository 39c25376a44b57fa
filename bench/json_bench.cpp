// JSON text of a real file, the languages of ISO 639-3, decoded and encoded beside other libraries' documents.
#include <benchmark/benchmark.h>

#include <fstream>
#include <sstream>
#include <string>

#include "tq4/tq4.h"

#ifdef HAVE_JANSSON
#include <jansson.h>
#endif
#ifdef HAVE_RAPIDJSON
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#endif

namespace {

const std::string &text() {
    static const std::string whole = [] {
        std::ifstream file("/usr/share/iso-codes/json/iso_639-3.json", std::ios::binary);
        std::ostringstream content;
        content << file.rdbuf();
        return std::move(content).str();
    }();
    return whole;
}

// Without the file there is nothing to measure.
bool missing(benchmark::State &state) {
    if (text().empty()) state.SkipWithError("package iso-codes is absent");
    return text().empty();
}

struct Value {
    Tq4_value v = static_cast<Tq4_value>(Tq4_value_oitf->Create(nullptr));
    ~Value() { Tq4_value_oitf->Delete(v); }
    int Decode() { return (*v)->Json_decode(v, text().data(), static_cast<int>(text().size())); }
};

void tq4_decode(benchmark::State &state) {
    if (missing(state)) return;
    for (auto _ : state) {
        Value value;
        if (!value.Decode()) state.SkipWithError("not decoded");
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text().size()));
}
BENCHMARK(tq4_decode)->Name("json_decode/tq4");

void tq4_encode(benchmark::State &state) {
    if (missing(state)) return;
    Value value;
    value.Decode();
    auto out = static_cast<Tq4_string>(Tq4_string_oitf->Create(nullptr));
    for (auto _ : state) {
        (*out)->truncate(out, 0);
        benchmark::DoNotOptimize((*value.v)->Json_encode(value.v, out));
    }
    state.SetBytesProcessed(state.iterations() * (*out)->length(out));
    Tq4_string_oitf->Delete(out);
}
BENCHMARK(tq4_encode)->Name("json_encode/tq4");

void tq4_from_json(benchmark::State &state) {
    if (missing(state)) return;
    for (auto _ : state) {
        Value value;
        if (!(*value.v)->FromJson(value.v, text().data(), static_cast<long>(text().size()), nullptr))
            state.SkipWithError("not read");
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text().size()));
}
BENCHMARK(tq4_from_json)->Name("json_read/tq4");

void tq4_to_json(benchmark::State &state) {
    if (missing(state)) return;
    Value value;
    value.Decode();
    auto out = static_cast<Tq4_string>(Tq4_string_oitf->Create(nullptr));
    for (auto _ : state) {
        (*out)->truncate(out, 0);
        benchmark::DoNotOptimize((*value.v)->ToJson(value.v, out, 0));
    }
    state.SetBytesProcessed(state.iterations() * (*out)->length(out));
    Tq4_string_oitf->Delete(out);
}
BENCHMARK(tq4_to_json)->Name("json_write/tq4");

#ifdef HAVE_JANSSON
void jansson_decode(benchmark::State &state) {
    if (missing(state)) return;
    for (auto _ : state) {
        json_t *value = json_loadb(text().data(), text().size(), 0, nullptr);
        if (!value) state.SkipWithError("not decoded");
        json_decref(value);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text().size()));
}
BENCHMARK(jansson_decode)->Name("json_decode/jansson");
#endif

#ifdef HAVE_RAPIDJSON
void rapidjson_decode(benchmark::State &state) {
    if (missing(state)) return;
    for (auto _ : state) {
        rapidjson::Document document;
        document.Parse(text().data(), text().size());
        if (document.HasParseError()) state.SkipWithError("not decoded");
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text().size()));
}
BENCHMARK(rapidjson_decode)->Name("json_decode/rapidjson");

void rapidjson_encode(benchmark::State &state) {
    if (missing(state)) return;
    rapidjson::Document document;
    document.Parse(text().data(), text().size());
    rapidjson::StringBuffer out;
    for (auto _ : state) {
        out.Clear();
        rapidjson::Writer<rapidjson::StringBuffer> writer(out);
        document.Accept(writer);
        benchmark::DoNotOptimize(out.GetString());
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(out.GetSize()));
}
BENCHMARK(rapidjson_encode)->Name("json_encode/rapidjson");
#endif

} // namespace
