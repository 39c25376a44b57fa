// threads.hpp: watching another thread, so that tests wait for what it does instead of assuming how long it takes.
#pragma once

#include <atomic>
#include <csignal>
#include <cstdio>
#include <functional>
#include <thread>
#include <unistd.h>

// One call that waits, on a thread of its own.
class Waiting_call {
public:
    explicit Waiting_call(std::function<int()> call)
        : m_thread([this, call = std::move(call)] {
              m_kernel_id = gettid();
              m_result = call();
              m_done = true;
          }) {}
    ~Waiting_call() {
        if (m_thread.joinable()) m_thread.join();
    }

    bool done() const { return m_done; }
    int result() {
        m_thread.join();
        return m_result;
    }
    // Returns when the call sleeps in the system, or is over.
    void await_sleep() const {
        while (!m_done && !(m_kernel_id && state() == 'S')) std::this_thread::yield();
    }
    // Lets a signal interrupt the sleeping call a few times; system calls are not restarted behind its back.
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
    char state() const {
        char path[64], state = 0;
        std::snprintf(path, sizeof path, "/proc/self/task/%d/stat", m_kernel_id.load());
        if (FILE *stat = std::fopen(path, "r")) {
            if (std::fscanf(stat, "%*d (%*[^)]) %c", &state) != 1) state = 0;
            std::fclose(stat);
        }
        return state;
    }

    std::atomic<int> m_kernel_id = 0;
    std::atomic<bool> m_done = false;
    int m_result = 0;
    std::thread m_thread; // last: it uses the others
};
