// Settings beside GLib's key file: loading 10,000 keys with comments, and looking one up by its section and key.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <malloc.h>
#include <string>

#include "own.hpp"
#include "tq4/config.h"

#ifdef HAVE_GLIB
#include <glib.h>
#endif

namespace {

constexpr int Sections = 100, Keys = 100; // in each

// What one load frees stays with the process for the next, of either side: otherwise it depends on what else lies in
// the heap whether a load is charged with the system's zeroing of every page anew.
const int kept = mallopt(M_TRIM_THRESHOLD, 1 << 28) && mallopt(M_MMAP_THRESHOLD, 1 << 25);

// The text both read: every key has a comment of its own.
struct File {
    std::string directory = std::filesystem::temp_directory_path() / "tq4_config_bench_XXXXXX", path;
    File() {
        mkdtemp(directory.data());
        path = directory + "/settings.ini";
        std::FILE *file = std::fopen(path.c_str(), "w");
        for (int section = 0; section < Sections; ++section) {
            std::fprintf(file, "# settings of node %d\n[node_%d]\n", section, section);
            for (int key = 0; key < Keys; ++key)
                std::fprintf(file, "# how long to wait for answer %d, in ms\ntimeout_%d = %d\n", key, key, key * 37);
            std::fprintf(file, "\n");
        }
        std::fclose(file);
    }
    ~File() { std::filesystem::remove_all(directory); }
};
const File &file() {
    static const File made;
    return made;
}

Tq4_own<Tq4_config> load() {
    auto config = Tq4_make<Tq4_config>(Tq4_config_oitf);
    if ((*config)->Read(config.get(), file().path.c_str()) != 1) std::abort();
    return config;
}

void tq4_load(benchmark::State &state) {
    for (auto _ : state) load();
}
BENCHMARK(tq4_load)->Name("config_load/tq4");

// One look-up: from a path to the value's text.
void tq4_look_up(benchmark::State &state) {
    auto config = load();
    const Tq4_config s = config.get();
    for (auto _ : state) {
        (*s)->SetSection(s, "node_57");
        benchmark::DoNotOptimize((*s)->ReadString(s, "timeout_42", nullptr));
    }
}
BENCHMARK(tq4_look_up)->Name("config_look_up/tq4");

// The same three sections deep, with an index; GLib has no nested sections.
void tq4_look_up_deep(benchmark::State &state) {
    auto config = Tq4_make<Tq4_config>(Tq4_config_oitf);
    const Tq4_config s = config.get();
    for (const char *name : {"server", "server"}) (*s)->AddSection(s, name);
    (*s)->ToChildSection(s, "server", 1);
    (*s)->AddSection(s, "tls");
    (*s)->ToChildSection(s, "tls", 0);
    (*s)->AddSection(s, "certificate");
    (*s)->ToChildSection(s, "certificate", 0);
    for (const char *key : {"file", "key", "chain", "verify"}) (*s)->WriteString(s, key, "yes");
    for (auto _ : state) {
        (*s)->SetSection(s, "server[1].tls.certificate");
        benchmark::DoNotOptimize((*s)->ReadString(s, "verify", nullptr));
    }
}
BENCHMARK(tq4_look_up_deep)->Name("config_look_up_deep/tq4");

#ifdef HAVE_GLIB
GKeyFile *glib_load() {
    GKeyFile *loaded = g_key_file_new();
    if (!g_key_file_load_from_file(loaded, file().path.c_str(), G_KEY_FILE_KEEP_COMMENTS, nullptr)) std::abort();
    return loaded;
}

void glib_load_and_free(benchmark::State &state) {
    for (auto _ : state) g_key_file_free(glib_load());
}
BENCHMARK(glib_load_and_free)->Name("config_load/glib");

void glib_look_up(benchmark::State &state) {
    GKeyFile *loaded = glib_load();
    for (auto _ : state) {
        char *text = g_key_file_get_value(loaded, "node_57", "timeout_42", nullptr);
        benchmark::DoNotOptimize(text);
        g_free(text);
    }
    g_key_file_free(loaded);
}
BENCHMARK(glib_look_up)->Name("config_look_up/glib");
#endif

} // namespace
