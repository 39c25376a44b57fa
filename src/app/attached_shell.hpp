// attached_shell.hpp: the shell that a daemon serves: its connection is descriptors 0 to 2.
#pragma once

#include <cstdint>

#include "platform/multi_platform_output.hpp"
#include "platform/multi_platform_pthread.hpp"

// When the shell is cut off, without input and output of its own: somebody waits because the connection is full, and it
// does not get room for too long.
class Tq4_shell_patience {
public:
    // What was found at a time, in milliseconds; true when the shell's time is over. At the end there is less of it.
    bool Over(uint64_t now, MP_Output_Backlog found, bool ending);

private:
    bool m_waiting = false;
    uint64_t m_since = 0;
};

// Prints of the frame end a stuck connection themselves. They do not see what the C library, a program of another
// language or a child process writes. So a thread looks after the connection as long as the shell is attached.
class Tq4_attached_shell {
public:
    // Takes the connection over.
    explicit Tq4_attached_shell(int connection);
    // What the C library holds still goes to this shell. Then the shell meets the end, whoever else has its connection,
    // and descriptors 0 to 2 are on the null device.
    ~Tq4_attached_shell();
    Tq4_attached_shell(const Tq4_attached_shell &) = delete;
    Tq4_attached_shell &operator=(const Tq4_attached_shell &) = delete;

    // How long a print may wait for the shell to read, in milliseconds.
    static constexpr long Print_wait = 1000;

private:
    static void *Watch(void *shell);

    const int m_connection;              // owned
    MP_THREAD_Semaphore m_leave, m_left; // asks the thread to end; tells that it has
    bool m_watched;                      // constant: there is a thread
};
