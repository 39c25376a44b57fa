// process.hpp: programs and sockets to talk with. Nothing waits without end: what does not come in time fails the test.
#pragma once

#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <string>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

// Whether the descriptor has input, or its end, before patience is over.
inline bool await_input(int descriptor) {
    pollfd watched{descriptor, POLLIN, 0};
    return poll(&watched, 1, 60000) > 0;
}

inline sockaddr_un local_address(const std::string &path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    return address;
}

// A side of a conversation.
class Channel {
public:
    Channel() = default;
    virtual ~Channel() { hang_up(); }
    Channel(const Channel &) = delete;
    Channel &operator=(const Channel &) = delete;

    void send(const std::string &text) {
        EXPECT_EQ(write(m_out, text.data(), text.size()), static_cast<ssize_t>(text.size())) << std::strerror(errno);
    }
    // Reads until the text has come, and returns everything up to its end.
    std::string expect(const std::string &text) {
        std::size_t at;
        while ((at = m_said.find(text)) == std::string::npos)
            if (!read_some()) {
                ADD_FAILURE() << "\"" << text << "\" did not come, but: " << m_said;
                return std::exchange(m_said, {});
            }
        std::string rest = m_said.substr(at + text.size());
        m_said.resize(at + text.size());
        return std::exchange(m_said, rest);
    }
    // Reads to the end.
    std::string rest() {
        while (read_some()) continue;
        return std::exchange(m_said, {});
    }
    void end_input() { close_one(m_out); }
    void hang_up() {
        if (m_in != m_out) close_one(m_in);
        close_one(m_out);
        m_in = -1;
    }

protected:
    int m_in = -1, m_out = -1; // owned; may be the same

private:
    std::string m_said;

    static void close_one(int &descriptor) {
        if (descriptor >= 0) close(std::exchange(descriptor, -1));
    }
    bool read_some() {
        char bytes[65536];
        const ssize_t size = await_input(m_in) ? read(m_in, bytes, sizeof bytes) : -1;
        if (size > 0) m_said.append(bytes, static_cast<std::size_t>(size));
        return size > 0;
    }
};

// A local stream socket.
class Client : public Channel {
public:
    explicit Client(const std::string &path) {
        const sockaddr_un address = local_address(path);
        m_in = m_out = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        EXPECT_EQ(connect(m_in, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    }
};

// Waits for the end of a child, or of a process that became one: its exit code, or minus the signal that ended it.
inline int wait_for(pid_t pid) {
    const int descriptor = static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
    const bool ended = await_input(descriptor);
    EXPECT_TRUE(ended) << "process " << pid << " does not end";
    if (!ended) kill(pid, SIGKILL);
    close(descriptor);
    int status = 0;
    if (waitpid(pid, &status, 0) != pid) return -1000;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

// A program with its descriptors 0 to 2 on pipes, the same with 0 closed, or on a terminal of its own.
class Process : public Channel {
public:
    enum Console { Pipes, No_input, Terminal };

    Process(std::vector<std::string> command, std::vector<std::string> environment, Console console) {
        int to[2], from[2], terminal = -1;
        EXPECT_EQ(pipe2(to, O_CLOEXEC) | pipe2(from, O_CLOEXEC), 0);
        m_pid = console == Terminal ? forkpty(&terminal, nullptr, nullptr, nullptr) : fork();
        if (m_pid == 0) {
            if (console != Terminal) dup2(to[0], 0), dup2(from[1], 1), dup2(from[1], 2);
            if (console == No_input) close(0);
            std::vector<char *> arguments;
            for (std::string &argument : command) arguments.push_back(argument.data());
            arguments.push_back(nullptr);
            for (std::string &setting : environment) putenv(setting.data());
            execv(arguments[0], arguments.data());
            _exit(127);
        }
        close(to[0]), close(from[1]);
        m_in = from[0], m_out = to[1];
        if (console != Terminal) return;
        hang_up();
        m_in = m_out = terminal;
        fcntl(terminal, F_SETFD, FD_CLOEXEC);
    }
    ~Process() override {
        if (m_pid > 0) wait();
    }
    pid_t pid() const { return m_pid; }
    int wait() { return wait_for(std::exchange(m_pid, -1)); }

private:
    pid_t m_pid;
};
