// output.hpp: what the library has written, to standard output or error and into the files of a log.
#pragma once

#include "support/test.hpp"

// A descriptor, standard output if nothing else is said, is a pipe while this lives.
class Piped {
public:
    explicit Piped(int descriptor = 1) : m_descriptor(descriptor), m_before(fcntl(descriptor, F_DUPFD_CLOEXEC, 3)) {
        std::fflush(stdout);
        EXPECT_EQ(pipe2(m_ends, O_CLOEXEC), 0);
        dup2(m_ends[1], m_descriptor);
    }
    ~Piped() {
        dup2(m_before, m_descriptor);
        close_reader();
        close(m_before), close(m_ends[1]);
    }
    // What was written, at most a pipe's content; waits for the first of it.
    std::string read_some() {
        std::string text(1 << 16, 0);
        const ssize_t got = read(m_ends[0], text.data(), text.size());
        text.resize(got < 0 ? 0 : static_cast<std::size_t>(got));
        return text;
    }
    void close_reader() {
        if (m_ends[0] >= 0) close(std::exchange(m_ends[0], -1));
    }

private:
    int m_descriptor, m_before, m_ends[2];
};

// The files of a log, in the order of their names, and what one holds without the prefixes of its lines.
inline Texts log_files_in(const std::string &directory) {
    Texts found;
    for (auto &entry : fs::recursive_directory_iterator(directory))
        if (entry.path().extension() == ".log") found.push_back(entry.path());
    std::sort(found.begin(), found.end());
    return found;
}
inline Texts messages_in(const std::string &log_file) {
    std::ifstream in(log_file);
    Texts texts;
    for (std::string text; std::getline(in, text);) texts.push_back(text.erase(0, text.find("] ") + 2));
    return texts;
}
