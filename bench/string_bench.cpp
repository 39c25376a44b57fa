// The string object beside GObject (making and unmaking an object), std::string and GString (lengthening a text).
#include <benchmark/benchmark.h>

#include <cstring>
#include <string>

#include "tq4/string.h"

#ifdef HAVE_GLIB
#include <glib-object.h>
#endif

namespace {

const char text[] = "a log line of about forty-eight bytes, like this\n";
constexpr unsigned long text_size = sizeof text - 1;
constexpr int appended = 1000;
constexpr int inserted = 200;

Tq4_string make() { return static_cast<Tq4_string>(Tq4_string_oitf->Create(nullptr)); }

void create_here(benchmark::State &state) {
    for (auto _ : state) {
        Tq4_string s = make();
        benchmark::DoNotOptimize(s);
        Tq4_string_oitf->Delete(s);
    }
}
BENCHMARK(create_here)->Name("string_create/tq4");

// A string made, filled by pieces, and released: the growing is part of the work.
template <class Fill> void fill_here(benchmark::State &state, Fill fill) {
    for (auto _ : state) {
        Tq4_string s = make();
        fill(s);
        benchmark::DoNotOptimize((*s)->c_str(s));
        Tq4_string_oitf->Delete(s);
    }
}
BENCHMARK_CAPTURE(fill_here, append, [](Tq4_string s) {
    for (int i = 0; i < appended; ++i) (*s)->Memcat(s, text, text_size);
})->Name("string_append/tq4");
BENCHMARK_CAPTURE(fill_here, bytes, [](Tq4_string s) {
    for (int i = 0; i < appended; ++i) (*s)->addch(s, static_cast<char>(i));
})->Name("string_add_byte/tq4");
BENCHMARK_CAPTURE(fill_here, insert, [](Tq4_string s) {
    for (int i = 0; i < inserted; ++i) (*s)->insert_str(s, 10, text, text_size);
})->Name("string_insert/tq4");

template <class Fill> void fill_std(benchmark::State &state, Fill fill) {
    for (auto _ : state) {
        std::string s;
        fill(s);
        benchmark::DoNotOptimize(s.c_str());
    }
}
BENCHMARK_CAPTURE(fill_std, append, [](std::string &s) {
    for (int i = 0; i < appended; ++i) s.append(text, text_size);
})->Name("string_append/std");
BENCHMARK_CAPTURE(fill_std, bytes, [](std::string &s) {
    for (int i = 0; i < appended; ++i) s.push_back(static_cast<char>(i));
})->Name("string_add_byte/std");
BENCHMARK_CAPTURE(fill_std, insert, [](std::string &s) {
    for (int i = 0; i < inserted; ++i) s.insert(std::min<size_t>(10, s.size()), text, text_size);
})->Name("string_insert/std");

#ifdef HAVE_GLIB
void create_glib(benchmark::State &state) {
    for (auto _ : state) {
        gpointer object = g_object_new(G_TYPE_OBJECT, nullptr);
        benchmark::DoNotOptimize(object);
        g_object_unref(object);
    }
}
BENCHMARK(create_glib)->Name("string_create/glib");

template <class Fill> void fill_glib(benchmark::State &state, Fill fill) {
    for (auto _ : state) {
        GString *s = g_string_new(nullptr);
        fill(s);
        benchmark::DoNotOptimize(s->str);
        g_string_free(s, TRUE);
    }
}
BENCHMARK_CAPTURE(fill_glib, append, [](GString *s) {
    for (int i = 0; i < appended; ++i) g_string_append_len(s, text, text_size);
})->Name("string_append/glib");
BENCHMARK_CAPTURE(fill_glib, bytes, [](GString *s) {
    for (int i = 0; i < appended; ++i) g_string_append_c(s, static_cast<char>(i));
})->Name("string_add_byte/glib");
BENCHMARK_CAPTURE(fill_glib, insert, [](GString *s) {
    for (int i = 0; i < inserted; ++i)
        g_string_insert_len(s, std::min<gssize>(10, static_cast<gssize>(s->len)), text, text_size);
})->Name("string_insert/glib");
#endif

} // namespace
