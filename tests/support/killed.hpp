// killed.hpp: what tests of threads that are killed have in common.
#pragma once

#include "support/test.hpp"

// Runs a test in a process of its own: a kill leaves behind what the killed function held.
template <class Test> void in_a_child(Test test) {
    GTEST_FLAG_SET(death_test_style, "threadsafe"); // the child is started anew
    EXPECT_EXIT(
        {
            alarm(120); // a child that hangs is not left behind
            test();
            std::exit(testing::Test::HasFailure());
        },
        testing::ExitedWithCode(0), "");
}

// Calls nothing, so that only a kill at any instruction ends it. It is called through a pointer that may change: who
// calls what cannot throw says so, and then no kill unwinds through the caller.
inline void (*volatile go_deaf)() = [] {
    for (;;) asm volatile("" ::: "memory");
};
