// service_story.hpp: owners of sockets that tell what happens to them, in a story that a test awaits.
#pragma once

#include <condition_variable>
#include <mutex>

#include "support/test.hpp"

using namespace std::chrono_literals;

// What happened, told by any thread and awaited by the test.
class Story {
    std::mutex m_mutex;
    std::condition_variable m_more;
    Texts m_told;

public:
    void tell(std::string what) {
        std::lock_guard guard(m_mutex);
        m_told.push_back(std::move(what));
        m_more.notify_all();
    }
    // Whether it is told so many times before the patience ends.
    bool comes(const std::string &what, long times, std::chrono::milliseconds patience) {
        std::unique_lock guard(m_mutex);
        return m_more.wait_for(guard, patience,
                               [&] { return std::count(m_told.begin(), m_told.end(), what) >= times; });
    }
    void await(const std::string &what, long times = 1) {
        if (!comes(what, times, 30s)) ADD_FAILURE() << what << " did not come, but:" << testing::PrintToString(take());
    }
    long count(const std::string &what) {
        std::lock_guard guard(m_mutex);
        return std::count(m_told.begin(), m_told.end(), what);
    }
    Texts take() {
        std::lock_guard guard(m_mutex);
        return std::exchange(m_told, {});
    }
};

// The owner of a socket: tells what happens to it, and does what a test wants done there.
struct Owner {
    Story &story;
    std::string name;
    std::function<void(const std::string &event, Tq4_socket_info *)> then = [](auto &, auto) {};
    std::function<int(Tq4_string *)> on_data = nullptr; // instead of telling the text
    int after_failure = -1, after_end = -1;
    Owner *child = nullptr; // of the connections a listener accepts; null refuses them
    Tq4_id last = {};       // the socket of the last event

    void tell(const std::string &event, Tq4_socket_info *info) {
        const auto act = then; // the test may set another one as soon as it has been told
        if (last.h != info->id.h || last.l != info->id.l) last = info->id;
        story.tell(name + " " + event);
        act(event, info);
    }
};

inline Owner &owner(Tq4_socket_info *info) { return *static_cast<Owner *>(info->user_obj); }
inline void freed(void *who) { static_cast<Owner *>(who)->story.tell(static_cast<Owner *>(who)->name + " freed"); }

inline const Tq4_socket_callback callbacks = {
    .OnDataOk =
        [](Tq4_socket, Tq4_socket_info *info, Tq4_string *data) {
            if (owner(info).on_data) return owner(info).on_data(data);
            owner(info).tell("got " + text_of(*data), info);
            return 0;
        },
    .OnConnectOk = [](Tq4_socket, Tq4_socket_info *info,
                      int master) { owner(info).tell("up " + std::to_string(master), info); },
    .OnConnectFaild =
        [](Tq4_socket, Tq4_socket_info *info, int error) {
            const int result = owner(info).after_failure;
            owner(info).tell(error == ECONNREFUSED ? "refused" : "failed " + std::to_string(error), info);
            return result;
        },
    .OnDisConnect =
        [](Tq4_socket, Tq4_socket_info *info, int master) {
            const int result = owner(info).after_end;
            owner(info).tell("down " + std::to_string(master), info);
            return result;
        },
    .OnSendQueueEmpty = [](Tq4_socket, Tq4_socket_info *info) { owner(info).tell("empty", info); },
    .OnSendQueueFull = [](Tq4_socket, Tq4_socket_info *info,
                          int full) { owner(info).tell("full " + std::to_string(full), info); },
};

inline const Tq4_listen_callback listening = {
    .OnListenResult = [](Tq4_socket, Tq4_socket_info *info,
                         int ok) { owner(info).tell("listens " + std::to_string(ok), info); },
    .OnAccept = [](Tq4_socket, Tq4_socket_info *info, Tq4_socket_info *child) -> const Tq4_socket_callback * {
        child->user_obj = owner(info).child;
        owner(info).tell("asked", info);
        if (!child->user_obj) return nullptr;
        child->del_userobj = freed;
        return &callbacks;
    },
    .OnChildClose =
        [](Tq4_socket, Tq4_socket_info *info, Tq4_socket_info *child) {
            owner(info).tell("lost " + owner(child).name, info);
            return 0;
        },
};

inline Tq4_socket_info info_of(Owner &who, Tq4_sockaddr local, Tq4_sockaddr remote) {
    Tq4_socket_info info{};
    info.local = local;
    info.remote = remote;
    info.user_obj = &who;
    info.del_userobj = freed;
    return info;
}
