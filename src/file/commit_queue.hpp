// commit_queue.hpp: threads that want to write at the same moment, of which one writes for all.
//
// A thread enters with its work in an entry on its own stack. The thread that finds the queue empty leads: it does its
// own work, then that of the entries behind it, as many as it likes, and leaves. Leaving makes the first entry that was
// not done the next leader and sends the threads whose work was done home. So work is done in the order of entering,
// one leader at a time, and every thread leaves after its work was done.
//
// The queue is one word, the last entry; each entry points at the one behind it. A waiting thread spins briefly, since
// a leader is mostly done within a microsecond or two, then sleeps on its own entry. A leader whose predecessor had
// company waits a moment for company too. Otherwise threads that write all the time would take turns, each with a write
// of its own, instead of sharing one.
#pragma once

#include <atomic>

class Tq4_commit_queue {
public:
    struct Entry {
        std::atomic<Entry *> behind{nullptr}; // borrowed; written once, by the thread that enters next
        std::atomic<int> state{0};            // a State
    };

    // Enters, and waits until the entry is done or leads. True: it leads, and the caller must call Leave.
    bool Enter(Entry *entry);

    // For the leader: the entry behind one of its group; null when nobody has entered there yet.
    static Entry *Behind(const Entry *entry) { return entry->behind.load(std::memory_order_acquire); }

    // Ends the lead of `first`, which has done the work of all entries from itself to `last`.
    void Leave(Entry *first, Entry *last);

    // In a child process, where the threads of the queue do not exist.
    void Forget_all();

private:
    enum State { Waiting, Leading, Done };

    std::atomic<Entry *> m_last{nullptr}; // borrowed; null: nobody leads
    int m_company = 1;                    // the leader's alone: how many it may hope to write for, itself included

    static void Wake(Entry *entry, State state);
    void Await_company(const Entry *first) const;
    Entry *Successor(Entry *last);
};
