// threads.hpp: work beside the test, when it is asleep in the system, and signals that interrupt it.
#pragma once

#include <atomic>
#include <csignal>
#include <fstream>
#include <string>
#include <thread>
#include <type_traits>
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
