// Log lines of about a hundred bytes, each handed to the system before the call returns, from one thread and from two:
// beside spdlog's rotating file sink that is flushed at each line. Both begin a new file at 2 MiB.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "tq4/log.h"

#ifdef HAVE_SPDLOG
#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/spdlog.h>
#endif

namespace {

constexpr int File_size = 2097152;

// The files of one run, in a directory of their own.
struct Directory {
    std::string path = std::filesystem::temp_directory_path() / "tq4_log_bench_XXXXXX";
    Directory() { mkdtemp(path.data()); }
    ~Directory() { std::filesystem::remove_all(path); }
};

struct Log : Directory {
    Tq4_log log;
    explicit Log(const char *for_threads) : log(static_cast<Tq4_log>(Tq4_log_oitf->Create(for_threads))) {
        (*log)->Init(log, "bench", 0);
        (*log)->MainDir(log, path.c_str());
        (*log)->SizeLimit(log, File_size);
    }
    ~Log() { Tq4_log_oitf->Delete(log); }
    void line(int thread, long number) {
        (*log)->Printf(log, 0, "session %d of user %s sent message %ld, %u bytes", thread, "zhang", number, 1472u);
    }
};

#ifdef HAVE_SPDLOG
struct Spdlog : Directory {
    spdlog::logger logger{"bench",
                          std::make_shared<spdlog::sinks::rotating_file_sink_mt>(path + "/log", File_size, 100)};
    explicit Spdlog(const char *) {
        logger.set_pattern("[%Y-%m-%d %H:%M:%S %e %t] %v");
        logger.flush_on(spdlog::level::trace);
    }
    void line(int thread, long number) {
        logger.info("session {} of user {} sent message {}, {} bytes", thread, "zhang", number, 1472u);
    }
};
#endif

template <class Subject> void lines(benchmark::State &state) {
    static Subject *subject; // of all threads of a run, which start and end their loops together
    if (state.thread_index() == 0) subject = new Subject("for several threads");
    long number = 0;
    for (auto _ : state) subject->line(state.thread_index(), number++);
    if (state.thread_index() == 0) delete subject;
}

BENCHMARK(lines<Log>)->Name("log_line/tq4")->ThreadRange(1, 8)->UseRealTime();
#ifdef HAVE_SPDLOG
BENCHMARK(lines<Spdlog>)->Name("log_line/spdlog")->ThreadRange(1, 8)->UseRealTime();
#endif

} // namespace
