// fork.hpp: objects that a child process can go on using, though it was forked while other threads used them.
//
// A child has only the thread that forked. What another thread held stays held there, and what it had half done stays
// half done. So each fork waits until every member is at rest: it takes their locks, gives them free again in the
// parent, and lets them make new ones in the child.
#pragma once

enum class Tq4_fork_moment { before, in_parent, in_child };

class Tq4_fork_member {
public:
    using At_fork = void (*)(void *owner, Tq4_fork_moment moment);

    // At each fork, at_fork runs on the thread that forks. It must bring the owner to rest without waiting for more
    // than the end of what is going on, and must not make or end members.
    Tq4_fork_member(void *owner, At_fork at_fork);
    ~Tq4_fork_member();
    Tq4_fork_member(const Tq4_fork_member &) = delete;
    Tq4_fork_member &operator=(const Tq4_fork_member &) = delete;

private:
    friend void Tq4_fork_tell_all(Tq4_fork_moment moment);

    void *const m_owner; // borrowed
    const At_fork m_at_fork;
    Tq4_fork_member *m_next, **m_link; // in the list of all, under its lock: the next one, and what leads here
};

// While it lives, no fork begins: for what the members' functions read.
class Tq4_no_fork {
    const int m_before;

public:
    Tq4_no_fork();
    ~Tq4_no_fork();
    Tq4_no_fork(const Tq4_no_fork &) = delete;
    Tq4_no_fork &operator=(const Tq4_no_fork &) = delete;
};
