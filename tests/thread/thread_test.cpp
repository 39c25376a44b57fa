// What a thread promises: its function runs once or not at all, a quit is never lost, and its end is known.
#include "support/heard.hpp"

namespace {

struct Thread : testing::Test {
    Heard heard;
    std::function<unsigned long()> work = [this] {
        while (running()) std::this_thread::yield();
        return 0ul;
    };
    std::atomic<int> runs = 0;
    Tq4_own<Tq4_thread> t = make("tester");

    static Tq4_own<Tq4_thread> make(const char *name) { return Tq4_make<Tq4_thread>(Tq4_thread_oitf, name); }
    static unsigned long run(void *test) {
        auto *self = static_cast<Thread *>(test);
        ++self->runs;
        return self->work();
    }
    unsigned long init() { return (*t)->Init(t.get(), run, this); }
    unsigned long resume() { return (*t)->Resume(t.get()); }
    void quit() { (*t)->NotifyQuit(t.get()); }
    bool running() { return (*t)->IsRunning(t.get()); }
    int stop() { return (*t)->WaitFor(t.get(), TQ4_ALL_ONES); }
    short kill(unsigned long code) { return (*t)->Kill(t.get(), code); }
    // The exit code, or "none" while there is none.
    std::string exit_code() {
        uint32_t code = 0;
        return (*t)->GetExitCode(t.get(), &code) ? std::to_string(code) : "none";
    }
    // Runs the function until it returns; the system has a priority to tell only of threads that have not ended.
    void run_to_end(std::function<unsigned long()> function) {
        work = std::move(function);
        EXPECT_EQ(init(), 1u);
        EXPECT_FALSE(running());
        EXPECT_EQ(resume(), 1u);
        while ((*t)->GetPriority(t.get()) != -1) std::this_thread::yield();
    }
};

TEST_F(Thread, RunsItsFirstFunctionOnceAndTellsHowItEnded) {
    EXPECT_EQ((*t)->Init(t.get(), nullptr, this), 0u);
    std::atomic<pid_t> id = 0;
    run_to_end([&id] { return id = gettid(), 0x1234567890abcdeful; });
    const auto other = +[](void *) { return 7ul; };
    EXPECT_EQ((*t)->Init(t.get(), other, nullptr), reinterpret_cast<unsigned long>(&run));
    EXPECT_EQ(exit_code(), "none");
    EXPECT_TRUE(running()) << "the flag is cleared by a quit, not by the end";
    EXPECT_EQ(resume(), 0u);
    stop();
    EXPECT_FALSE(running());
    EXPECT_EQ(exit_code(), std::to_string(0x90abcdef)) << "the low 32 bits of the result";
    EXPECT_EQ((*t)->GetExitCode(t.get(), nullptr) + resume(), 0u);
    EXPECT_EQ(runs, 1);
    char where[64];
    const auto handle = static_cast<unsigned>((*t)->GetHandle(t.get()));
    std::snprintf(where, sizeof where, "0 thead[%x:%d   tester] ", handle, id.load());
    EXPECT_EQ(heard.printed, (Texts{where + std::string("begin \n"), where + std::string("end \n")}));
}

TEST_F(Thread, QuitsBeforeTheStartAreNotLost) {
    const std::pair<std::function<void()>, const char *> quits[] = {
        {[this] { quit(); }, "0"}, {[this] { stop(); }, "0"}, {[this] { kill(9); }, "9"}};
    for (auto &[ask, code] : quits) {
        t = make("quitter");
        init();
        ask();
        resume();
        EXPECT_EQ(stop(), 0);
        EXPECT_FALSE(running());
        EXPECT_EQ(exit_code(), code);
    }
    EXPECT_EQ(runs, 0);
}

// The function loops until it sees the quit: a lost one would never end.
TEST_F(Thread, QuitsThatRaceWithTheStartAreNotLost) {
    for (int i = 0; i < 120; ++i) {
        t = make("racer");
        init();
        resume();
        for (int n = i % 30; n > 0; --n) std::this_thread::yield();
        quit();
        stop();
        EXPECT_FALSE(running());
    }
}

TEST_F(Thread, OnlyAsksItselfToQuit) {
    run_to_end([this] {
        EXPECT_EQ((*t)->GetCurrentId(t.get()), (*t)->GetId(t.get()));
        EXPECT_EQ(stop(), 0);
        EXPECT_FALSE(running());
        EXPECT_EQ(exit_code(), "none") << "it goes on";
        return 3ul;
    });
    stop();
    EXPECT_EQ(exit_code(), "3");
}

TEST_F(Thread, NothingIsSentToAThreadThatHasNotBegunOrHasEnded) {
    for (bool ended : {false, true}) {
        if (ended) run_to_end([] { return 7ul; });
        EXPECT_EQ((*t)->Suspend(t.get()) + resume(), 0u);
        EXPECT_EQ((*t)->SetPriority(t.get(), 1), 0);
        EXPECT_EQ((*t)->GetPriority(t.get()), -1);
        EXPECT_EQ(kill(5) + kill(6), 2);
        EXPECT_EQ(exit_code(), ended ? "5" : "0") << "the second comes too late, before Init even the first";
        EXPECT_EQ(stop(), 0);
    }
    EXPECT_EQ(runs, 1) << "a quit before Init is forgotten";
}

TEST_F(Thread, HasANameAndATime) {
    EXPECT_LE(static_cast<unsigned long>(std::time(nullptr)) - (*t)->LastActiveTime(t.get()), 60u);
    EXPECT_STREQ((*t)->Name(make(nullptr).get()), "anonymous");
    t = make(std::string(500, 'x').c_str());
    t.reset(static_cast<Tq4_thread>(Tq4_thread_oitf->Dup(t.get())));
    EXPECT_EQ((*t)->Name(t.get()), std::string(127, 'x'));
}

} // namespace
