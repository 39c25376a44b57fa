// brief_lock: looking again before sleeping; with one processor nobody could let go meanwhile.
#include "thread/brief_lock.hpp"

#include "platform/spin.hpp"

void Tq4_brief_lock::Wait() {
    using namespace std::chrono_literals;
    constexpr auto longest_step = 2us; // copies a message
    if (!MP_THREAD_Spin(longest_step, 1, [this] { return MP_THREAD_mutex_take(&m_mutex); }))
        MP_THREAD_mutex_lock(&m_mutex);
}
