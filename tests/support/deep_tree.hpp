// deep_tree.hpp: a tree that is deeper than a path may be long.
#pragma once

#include "support/test.hpp"

constexpr const char *deep_name = "/down";

// Makes so many directories in one another, below the one given, and in the last the file "last" of four bytes.
inline void make_deep(const std::string &directory, int levels) {
    int at = open(directory.c_str(), O_PATH | O_CLOEXEC);
    for (int i = 0; i < levels; ++i) {
        mkdirat(at, deep_name + 1, 0700);
        const int below = openat(at, deep_name + 1, O_PATH | O_CLOEXEC);
        close(at);
        at = below;
    }
    const int file = openat(at, "last", O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    EXPECT_EQ(write(file, "last", 4), 4);
    close(file);
    close(at);
}
