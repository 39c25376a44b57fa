// test.hpp: what every test starts from: GoogleTest, the library's interface, owned handles, the standard library, the
// calls of the system that tests are made of, fresh directories and work beside the test.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <deque>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <netinet/in.h>
#include <random>
#include <sstream>
#include <string>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <tuple>
#include <unistd.h>
#include <vector>

#include "own.hpp"
#include "tq4/tq4.h"

namespace fs = std::filesystem;
using Texts = std::vector<std::string>;

inline std::string text_of(Tq4_string s) { return {(*s)->c_str(s), static_cast<std::size_t>((*s)->length(s))}; }

inline std::string formatted(const char *format, va_list args) {
    char text[256];
    std::vsnprintf(text, sizeof text, format, args);
    return text;
}

// --- A fresh directory, removed with everything in it, and what a file holds ---

inline std::string content(const std::filesystem::path &path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator(file), {}};
}

class Temp_dir {
public:
    explicit Temp_dir(const std::filesystem::path &in = std::filesystem::temp_directory_path()) {
        std::string name = in / "tq4_test_XXXXXX";
        m_path = mkdtemp(name.data());
    }
    ~Temp_dir() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    Temp_dir(const Temp_dir &) = delete;
    Temp_dir &operator=(const Temp_dir &) = delete;

    const std::string &path() const { return m_path; }
    std::string operator/(const std::string &name) const { return m_path + "/" + name; }

private:
    std::string m_path;
};

// --- Work beside the test, when it is asleep in the system, and signals that interrupt it ---

// The state letter that the kernel gives a thread of this process: 'S' is asleep, waiting for something.
inline char thread_state(pid_t thread) {
    std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/stat");
    std::string line;
    std::getline(file, line);
    const std::size_t name_end = line.rfind(')');
    return name_end == std::string::npos ? 'X' : line[name_end + 2];
}

inline void await_asleep(const std::atomic<pid_t> &thread) {
    while (thread == 0 || thread_state(thread) != 'S') std::this_thread::yield();
}

// Returns when the thread sleeps in a wait that may be timed, as for a condition, and not for a mutex on the way to it.
// The kernel tells what was asked of it: the number of the call and its arguments, here a futex's word and the
// operation, which is the result.
inline unsigned long await_timed_sleep(const std::atomic<pid_t> &thread) {
    constexpr unsigned long operation_bits = 15, wait_until = 9;
    for (;; std::this_thread::yield()) {
        std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/syscall");
        unsigned long call = 0, word = 0, operation = 0;
        file >> call >> std::hex >> word >> operation;
        if (call == SYS_futex && (operation & operation_bits) == wait_until) return operation;
    }
}

// Runs something beside the test; joined when it goes.
class Parallel {
public:
    template <class Work> explicit Parallel(Work work)
        : m_thread([this, work = std::move(work)] {
              m_kernel_id = gettid();
              if constexpr (std::is_void_v<decltype(work())>)
                  work();
              else
                  m_result = work();
              m_done = true;
          }) {}
    ~Parallel() {
        if (m_thread.joinable()) m_thread.join();
    }

    bool done() const { return m_done; }
    int result() {
        m_thread.join();
        return m_result;
    }
    // Returns when the call is asleep in the system, or over.
    void await_sleep() const {
        while (!m_done && (m_kernel_id == 0 || thread_state(m_kernel_id) != 'S')) std::this_thread::yield();
    }
    void await_timed_sleep() const { ::await_timed_sleep(m_kernel_id); }
    // Lets signals interrupt the sleeping call; the system restarts nothing by itself.
    void interrupt() {
        static std::atomic<int> handled;
        struct sigaction action {
        }, before;
        action.sa_handler = [](int) { ++handled; };
        sigaction(SIGUSR1, &action, &before);
        for (int round = 0; round < 3; ++round) {
            await_sleep();
            if (m_done) break;
            const int count = handled;
            pthread_kill(m_thread.native_handle(), SIGUSR1);
            while (handled == count) std::this_thread::yield();
        }
        await_sleep();
        sigaction(SIGUSR1, &before, nullptr);
    }

private:
    std::atomic<pid_t> m_kernel_id = 0;
    std::atomic<bool> m_done = false;
    int m_result = 0;
    std::thread m_thread; // last: it uses the others
};
