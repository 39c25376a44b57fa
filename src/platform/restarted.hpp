// restarted.hpp: system calls that a signal does not end.
#pragma once

#include <cerrno>

// The result of a system call, which is made again while a signal interrupts it.
template <class Call> auto MP_Restarted(Call call) {
    auto result = call();
    while (result < 0 && errno == EINTR) result = call();
    return result;
}
