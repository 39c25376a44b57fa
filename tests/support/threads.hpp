// threads.hpp: a call that waits on a thread of its own, and signals that interrupt it.
#pragma once

#include <csignal>
#include <functional>

#include "thread/parallel.hpp"

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
