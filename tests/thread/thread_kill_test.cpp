// What remains when a thread is killed, ends itself, deletes itself or is stopped by a signal. Each case runs in a
// process of its own, which must end by itself; leaks and accesses to freed memory are the sanitizers' to find there.
#include "support/killed.hpp"
#include "thread/cancel.hpp"

namespace {

// A thread in a child process, and what its function and the test tell each other.
struct Victim {
    std::function<unsigned long(Victim &)> work;
    std::atomic<pid_t> id = 0;
    std::atomic<bool> returned = false, removed = false;
    Tq4_own<Tq4_event> e = Tq4_make<Tq4_event>(Tq4_event_oitf);
    Tq4_thread t = static_cast<Tq4_thread>(Tq4_thread_oitf->Create("victim"));

    explicit Victim(std::function<unsigned long(Victim &)> function) : work(std::move(function)) {
        Tq4_debug_api->SetPrint([](int, const char *, va_list) {});
        auto run = +[](void *victim) {
            auto *self = static_cast<Victim *>(victim);
            self->id = gettid();
            const unsigned long result = self->work(*self);
            self->returned = true;
            return result;
        };
        (*t)->Init(t, run, this);
    }
    ~Victim() {
        if (!removed) remove();
    }
    void start() {
        (*t)->Resume(t);
        while (id == 0) std::this_thread::yield();
    }
    bool running() { return (*t)->IsRunning(t); }
    int wait() { return (*e)->Wait(e.get(), TQ4_ALL_ONES); }
    void set() { (*e)->Set(e.get()); }
    void stop(unsigned long ms) { (*t)->WaitFor(t, ms); }
    void kill(unsigned long code) { (*t)->Kill(t, code); }
    void remove() {
        removed = true;
        Tq4_thread_oitf->Delete(t);
    }
    // Waits until the kernel knows no such thread, and tells whether the function had returned.
    bool await_end() const {
        while (thread_state(id) != 'X') std::this_thread::yield();
        return returned;
    }
    bool exit_code_is(uint32_t expected) {
        uint32_t code = ~expected;
        return (*t)->GetExitCode(t, &code) == 1 && code == expected;
    }
};

unsigned long deaf(Victim &) { return go_deaf(), 0ul; }

// Starts a thread that does the work, and tests it there.
void in_a_child(unsigned long (*work)(Victim &), const std::function<void(Victim &)> &test) {
    ::in_a_child([&] {
        signal(SIGQUIT, SIG_DFL);                     // which whoever runs the tests may have ignored
        auto victim = std::make_unique<Victim>(work); // on the heap: a dead pointer on the stack would hide a leak
        victim->start();
        test(*victim);
    });
}

TEST(ThreadDeathTest, AFunctionThatDoesNotListenIsKilled) {
    void (*const ends[])(Victim &) = {
        [](Victim &v) {
            v.stop(20);
            EXPECT_TRUE(v.exit_code_is(0));
        },
        [](Victim &v) { v.remove(); },
        [](Victim &v) {
            v.kill(0x100000007);
            v.kill(8);
            EXPECT_TRUE(v.exit_code_is(7)); // at once, and the first code counts
            EXPECT_FALSE(v.running());
        },
    };
    for (const auto end : ends) in_a_child(deaf, [=](Victim &v) { end(v), v.await_end(); });
}

TEST(ThreadDeathTest, AKilledWaiterLeavesTheEventUsable) {
    in_a_child([](Victim &v) { return v.wait() + 0ul; },
               [](Victim &v) {
                   await_asleep(v.id);
                   v.kill(1);
                   v.await_end();
                   v.set();
                   EXPECT_EQ(v.wait(), 1);
               });
}

// While it holds a kill off, even twice, a thread goes on; then it obeys, whichever way it was asked.
TEST(ThreadDeathTest, AKillWaitsWhileItIsHeldOff) {
    static void (*ask)(Victim &);
    for (void (*const way)(Victim &) : {+[](Victim &v) { v.kill(1); }, +[](Victim &) { raise(SIGQUIT); }}) {
#ifdef TQ4_THREAD_SANITIZER
        if (ask) break; // that signal is not for this sanitizer
#endif
        ask = way;
        const auto work = [](Victim &v) {
            const int before = Tq4_hold_off_kill(), within = Tq4_hold_off_kill();
            ask(v);
            Tq4_admit_kill(within);
            v.set();
            Tq4_admit_kill(before);
            return 0ul;
        };
        in_a_child(work, [](Victim &v) {
            EXPECT_EQ(v.wait(), 1);
            EXPECT_FALSE(v.await_end());
        });
    }
}

TEST(ThreadDeathTest, AThreadMayEndItselfInItsFunction) {
    in_a_child([](Victim &v) { return v.kill(6), 0ul; },
               [](Victim &v) {
                   EXPECT_FALSE(v.await_end());
                   EXPECT_TRUE(v.exit_code_is(6));
               });
    in_a_child([](Victim &) -> unsigned long { pthread_exit(nullptr); },
               [](Victim &v) {
                   v.stop(TQ4_ALL_ONES);
                   EXPECT_TRUE(v.exit_code_is(0));
               });
}

TEST(ThreadDeathTest, AThreadThatDeletesItselfStaysUsableUntilItsFunctionReturns) {
    in_a_child(
        [](Victim &v) {
            EXPECT_TRUE(v.running());
            v.remove();
            EXPECT_FALSE(v.running());
            EXPECT_TRUE(std::string((*v.t)->Name(v.t)) == "victim");
            return 0ul;
        },
        [](Victim &v) { EXPECT_TRUE(v.await_end()); });
}

// Neither the quit nor the kill reaches it: Delete goes away, and the record goes with the thread.
TEST(ThreadDeathTest, DeleteLeavesTheRecordToAThreadThatEvenAKillDoesNotEnd) {
    in_a_child(
        [](Victim &v) {
            pthread_setcanceltype(PTHREAD_CANCEL_DEFERRED, nullptr);
            pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
            v.wait();
            EXPECT_FALSE(v.running());
            return 0ul;
        },
        [](Victim &v) {
            v.kill(1);
            v.remove();
            v.set();
            EXPECT_TRUE(v.await_end());
        });
}

TEST(ThreadDeathTest, AQuitSignalEndsTheThreadItArrivesOn) {
#ifdef TQ4_THREAD_SANITIZER
    GTEST_SKIP() << "ending a thread from a signal handler is in itself what that sanitizer reports";
#endif
    in_a_child(
        [](Victim &) -> unsigned long {
            for (;;) pause();
        },
        [](Victim &v) {
            pthread_kill((*v.t)->GetHandle(v.t), SIGQUIT);
            v.await_end();
            v.stop(TQ4_ALL_ONES);
        });
}

// The stop signal stops the whole process: the test lets it go on and tells it so, since the signal takes its time.
TEST(ThreadDeathTest, SuspendStopsTheProcessUntilItIsContinued) {
    int told[2];
    ASSERT_EQ(pipe2(told, O_CLOEXEC), 0);
    const pid_t child = fork();
    if (child == 0) {
        Victim v([](Victim &self) {
            while (self.running()) std::this_thread::yield();
            return 2ul;
        });
        EXPECT_EQ((*v.t)->Suspend(v.t), 0); // not started
        v.start();
        EXPECT_EQ((*v.t)->Suspend(v.t), 1);
        char byte;
        EXPECT_EQ(read(told[0], &byte, 1), 1);
        EXPECT_EQ((*v.t)->Suspend(v.t), 0);
        v.stop(TQ4_ALL_ONES); // continues it first
        EXPECT_TRUE(v.exit_code_is(2));
        std::_Exit(testing::Test::HasFailure());
    }
    int status = 0;
    waitpid(child, &status, WUNTRACED);
    EXPECT_TRUE(WIFSTOPPED(status) && WSTOPSIG(status) == SIGSTOP) << status;
    kill(child, SIGCONT);
    EXPECT_EQ(write(told[1], "", 1), 1);
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    close(told[0]);
    close(told[1]);
}

} // namespace
