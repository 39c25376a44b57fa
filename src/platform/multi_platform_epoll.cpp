// multi_platform_epoll: see the header.
#include "platform/multi_platform_epoll.hpp"

#include <cerrno>

int MP_EPOLL_Create() { return epoll_create1(EPOLL_CLOEXEC); }

int MP_EPOLL_Watch(int instance, int descriptor, MP_EPOLL_Interest interest, uint64_t number) {
    epoll_event event{};
    event.events = interest;
    event.data.u64 = number;
    if (epoll_ctl(instance, EPOLL_CTL_ADD, descriptor, &event) == 0) return 1;
    return errno == EEXIST && epoll_ctl(instance, EPOLL_CTL_MOD, descriptor, &event) == 0;
}

void MP_EPOLL_Forget(int instance, int descriptor) {
    epoll_event unused{};
    epoll_ctl(instance, EPOLL_CTL_DEL, descriptor, &unused);
}

int MP_EPOLL_Wait(int instance, MP_EPOLL_event *events, int most, int ms) {
    const int ready = epoll_wait(instance, events, most, ms);
    return ready < 0 && errno == EINTR ? 0 : ready;
}
