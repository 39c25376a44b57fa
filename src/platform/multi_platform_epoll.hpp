// multi_platform_epoll: waiting for many descriptors at once.
//
// An instance is a descriptor of its own, close-on-exec, and may itself be watched by another one. Each watched
// descriptor carries a number of the caller's, which comes back with what happened to it.
#pragma once

#include <cstdint>
#include <sys/epoll.h>

using MP_EPOLL_event = epoll_event; // {events, data.u64}

// Owned by the caller; -1 on failure.
int MP_EPOLL_Create();
// What to watch a descriptor for: readable or writable for as long as that holds, or the end of a connect, told once.
enum MP_EPOLL_Interest : uint32_t {
    MP_EPOLL_Readable = EPOLLIN,
    MP_EPOLL_Writable = EPOLLOUT,
    MP_EPOLL_Connected = EPOLLOUT | EPOLLET | EPOLLONESHOT,
};
// Watches a descriptor, or changes the interest in one that is watched already. 1/0.
int MP_EPOLL_Watch(int instance, int descriptor, MP_EPOLL_Interest interest, uint64_t number);
// Watches it no more; nothing happens when it is not watched.
void MP_EPOLL_Forget(int instance, int descriptor);
// Waits until something happens, at most ms milliseconds, 0 not at all. Returns how many of the events it filled in, 0
// on time-out and when a signal came, -1 on failure.
int MP_EPOLL_Wait(int instance, MP_EPOLL_event *events, int most, int ms);
