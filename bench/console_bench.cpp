// How long a service takes to its first prompt, and a shell to the prompt of the daemon it attaches to, beside a bare
// process that writes a prompt: all on pipes, and on a terminal, where the line editor is loaded.
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <optional>
#include <pty.h>
#include <string>
#include <string_view>
#include <sys/wait.h>
#include <unistd.h>

#include <benchmark/benchmark.h>

namespace {

namespace fs = std::filesystem;

// A copy of the service in a directory of its own, where its control socket lies too.
struct Home {
    std::string directory = fs::temp_directory_path() / "tq4_bench_XXXXXX", program;

    Home() {
        if (!mkdtemp(directory.data())) std::abort();
        program = directory + "/service";
        fs::copy_file(TQ4_BENCH_SERVICE, program);
    }
    ~Home() {
        std::error_code ignored;
        fs::remove_all(directory, ignored);
    }
};

class Process {
public:
    Process(const std::string &program, const char *option, bool on_terminal) {
        signal(SIGPIPE, SIG_IGN); // the bare one is gone when it is told to quit
        int to[2] = {-1, -1}, from[2] = {-1, -1};
        if (!on_terminal && (pipe2(to, O_CLOEXEC) != 0 || pipe2(from, O_CLOEXEC) != 0)) std::abort();
        m_pid = on_terminal ? forkpty(&m_in, nullptr, nullptr, nullptr) : fork();
        if (m_pid == 0) {
            signal(SIGPIPE, SIG_DFL);
            if (!on_terminal) dup2(to[0], 0), dup2(from[1], 1);
            execl(program.c_str(), program.c_str(), option, nullptr);
            _exit(127);
        }
        if (on_terminal) {
            m_out = m_in;
            return;
        }
        close(to[0]), close(from[1]);
        m_in = from[0], m_out = to[1];
    }
    ~Process() {
        send("q\n");
        char bytes[4096];
        while (read(m_in, bytes, sizeof bytes) > 0) continue;
        if (m_out != m_in) close(m_out);
        close(m_in);
        waitpid(m_pid, nullptr, 0);
    }
    void send(std::string_view text) const {
        if (write(m_out, text.data(), text.size()) < 0) return; // it has ended already
    }
    // Whether the prompt ("> ") has come.
    bool expect_prompt() const {
        char bytes[4096], before = 0;
        for (ssize_t size; (size = read(m_in, bytes, sizeof bytes)) > 0;)
            for (ssize_t i = 0; i < size; before = bytes[i++])
                if (before == '>' && bytes[i] == ' ') return true;
        return false;
    }

private:
    pid_t m_pid;
    int m_in = -1, m_out = -1; // owned; the same on a terminal
};

void to_prompt(benchmark::State &state, const Home &home, const char *option, bool on_terminal) {
    for (auto _ : state) {
        std::optional<Process> process(std::in_place, home.program, option, on_terminal);
        if (!process->expect_prompt()) state.SkipWithError("no prompt");
        state.PauseTiming();
        process.reset();
        state.ResumeTiming();
    }
}

void start_to_prompt(benchmark::State &state, const char *option, bool on_terminal) {
    const Home home;
    to_prompt(state, home, option, on_terminal);
}

// The shell asks when the daemon has welcomed it.
void attach_to_prompt(benchmark::State &state, bool on_terminal) {
    const Home home;
    if (std::system((home.program + " -start").c_str()) != 0) state.SkipWithError("no daemon");
    to_prompt(state, home, nullptr, on_terminal);
    if (std::system((home.program + " -stop >/dev/null").c_str()) == -1) state.SkipWithError("no end");
}

BENCHMARK_CAPTURE(start_to_prompt, bare, "--bare", false)->UseRealTime();
BENCHMARK_CAPTURE(start_to_prompt, tq4, nullptr, false)->UseRealTime();
BENCHMARK_CAPTURE(start_to_prompt, tq4_terminal, nullptr, true)->UseRealTime();
BENCHMARK_CAPTURE(attach_to_prompt, tq4, false)->UseRealTime();
BENCHMARK_CAPTURE(attach_to_prompt, tq4_terminal, true)->UseRealTime();

} // namespace
