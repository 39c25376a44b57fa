// brief_lock: looking again before sleeping; with one processor nobody could let go meanwhile.
#include "thread/brief_lock.hpp"

void Tq4_brief_lock::Wait() {
    constexpr int looks = 50; // two microseconds: the longest step under such a lock copies a message
    if (!MP_THREAD_IsAlone())
        for (int i = 0; i < looks; ++i) {
            if (MP_THREAD_mutex_take(&m_mutex)) return;
            MP_THREAD_Pause();
        }
    MP_THREAD_mutex_lock(&m_mutex);
}
