// parallel.hpp: a second thread in a test, and when it is asleep.
#pragma once

#include <atomic>
#include <fstream>
#include <string>
#include <thread>
#include <unistd.h>
#include <utility>

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

// Runs something beside the test; joined when it goes.
class Parallel {
    std::atomic<pid_t> m_id = 0;
    std::thread m_thread;

public:
    template <class Work> explicit Parallel(Work work)
        : m_thread([this, work = std::move(work)] {
              m_id = gettid();
              work();
          }) {}
    ~Parallel() { m_thread.join(); }

    void AwaitAsleep() const { await_asleep(m_id); }
};
