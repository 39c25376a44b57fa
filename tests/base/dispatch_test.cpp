// What a dispatcher promises: one order, one handler, every parameter freed once, every sender answered; also when it
// is stopped under load, by its own handler, or by a kill.
#include "support/test.hpp"

namespace {

void *word(long n) { return reinterpret_cast<void *>(n); }

std::atomic<long> freed; // by count_freed
void count_freed(void *) { ++freed; }

std::vector<std::string> logged;

// A dispatcher with a handler of the test's.
struct Dispatch : testing::Test {
    using Handler = std::function<long(Tq4_msg *)>;

    Tq4_dispatch d = static_cast<Tq4_dispatch>(Tq4_dispatch_oitf->Create(nullptr));
    Handler handler = [](Tq4_msg *m) { return m->submsg; };
    std::atomic<long> notified = 0;
    bool deleted = false;

    Dispatch() {
        freed = 0;
        logged.clear();
        quiet();
        Tq4_debug_api->SetLog([](int, const char *format, va_list args) { logged.push_back(formatted(format, args)); });
    }
    ~Dispatch() override {
        remove();
        Tq4_debug_api->SetLog(nullptr);
    }
    // Once and for all: a thread whose dispatcher was deleted by its handler tells of its end when it likes.
    static void quiet() {
        [[maybe_unused]] static const bool done = (Tq4_debug_api->SetPrint([](int, const char *, va_list) {}), true);
    }
    void remove() {
        if (!deleted) Tq4_dispatch_oitf->Delete(d);
        deleted = true;
    }

    static long handle(void *context, Tq4_msg *m) { return static_cast<Dispatch *>(context)->handler(m); }
    Tq4_thread start() { return (*d)->Start(d, this, handle, "test %d", 7); }
    // This thread serves.
    void start_here() {
        auto notify = +[](void *context) { ++static_cast<Dispatch *>(context)->notified; };
        (*d)->Start2(d, this, reinterpret_cast<unsigned long>(pthread_self()), notify, handle);
    }
    void stop() { (*d)->Stop(d); }
    int once(unsigned long ms = 0) { return (*d)->try_once(d, ms); }
    void drain() {
        while (once() == 1) continue;
    }
    long push(long n, Tq4_msg_free free_params = nullptr) {
        return (*d)->Push(d, nullptr, nullptr, 1, n, word(n), free_params);
    }
    long push_first(long n) { return (*d)->PushFirst(d, nullptr, nullptr, 1, n, word(n), nullptr); }
    long post(long n, Tq4_msg_free free_params = nullptr) {
        return (*d)->Post(d, nullptr, nullptr, 2, n, word(n), free_params);
    }
    long send(long n, Tq4_msg_free free_params = nullptr) {
        return (*d)->Send(d, nullptr, nullptr, 0, n, word(n), free_params);
    }
    // A sender beside the test, whose message waits when this returns.
    std::unique_ptr<Parallel> sender(long n) {
        auto sending = std::make_unique<Parallel>([=, this] { return static_cast<int>(send(n, count_freed)); });
        sending->await_sleep();
        return sending;
    }
};

// ---- one thread: order, limit and log, beside a model

TEST_F(Dispatch, HandlesInTheOrderOfAModelUnderRandomHandingOver) {
    struct Expected {
        Tq4_msg_type type;
        long n;
    };
    std::deque<Expected> model;
    std::mt19937 random(1);
    long handed = 0, accepted = 0, handled = 0;
    handler = [&](Tq4_msg *m) {
        ++handled;
        const Expected front = model.front();
        EXPECT_TRUE(m->type == front.type && m->submsg == front.n && m->params == word(front.n) && m->msg == 3);
        EXPECT_TRUE(m->sender->h == static_cast<uint32_t>(front.n) && m->receiver->h == 0 && m->receiver->l == 0);
        model.pop_front();
        return 0l;
    };
    start_here();
    const auto hand_over = [&] {
        const long n = ++handed;
        Tq4_id sender{static_cast<uint32_t>(n), 1};
        const bool first = random() % 8 == 0, posts = random() % 2;
        const bool fits = model.size() <= 4096;
        auto operation = posts ? (first ? (*d)->PostFirst : (*d)->Post) : first ? (*d)->PushFirst : (*d)->Push;
        EXPECT_EQ(operation(d, &sender, nullptr, 3, n, word(n), count_freed), !posts || fits);
        if (posts && !fits) return;
        ++accepted;
        const Expected message{posts ? Tq4_msg_type_post : Tq4_msg_type_push, n};
        first ? model.push_front(message) : model.push_back(message);
    };
    for (int phase = 0; phase < 40; ++phase) { // bursts in and out
        const unsigned long in = random() % 3 ? 50 : 3000, out = random() % 3 ? 50 : 3000;
        for (unsigned long i = 0; i < in; ++i) random() % 16 ? hand_over() : void(once());
        for (unsigned long i = 0; i < out; ++i) EXPECT_EQ(once(), !model.empty());
        for (int i = 0; i < 20; ++i) random() % 2 ? hand_over() : void(once());
    }
    drain();
    EXPECT_EQ(handled, accepted);
    EXPECT_EQ(notified, accepted);
    EXPECT_EQ(freed, handed);
}

TEST_F(Dispatch, APostIsRefusedWhenMoreThan4096Wait) {
    start_here();
    for (int i = 1; i <= 4097; ++i) EXPECT_EQ(post(i, count_freed), 1);
    EXPECT_EQ(post(1, count_freed), 0);
    EXPECT_EQ(freed, 1);
    EXPECT_EQ(notified, 4097) << "a refused one does not notify";
    EXPECT_EQ(push(1, count_freed), 1);
    EXPECT_EQ(once(), 1);
    EXPECT_EQ(post(1, count_freed), 0) << "the pushed one counts";
    EXPECT_EQ(once(), 1);
    EXPECT_EQ(post(1, count_freed), 1);
    drain();
    EXPECT_EQ(freed, 4101);
}

TEST_F(Dispatch, TellsWhenAMultipleOf4096Waits) {
    (*d)->Start2(d, this, 123, nullptr, handle);
    for (int i = 0; i < 5; ++i) push(i);
    once(); // takes what is there; the rest comes behind it
    for (int i = 0; i < 8190; ++i) push(i);
    for (int i = 0; i < 3; ++i) once();
    EXPECT_EQ(logged, (Texts{"123 busy queue=8192\n"}));
    push(1);
    once();
    EXPECT_EQ(logged.size(), 1u);
    drain();
    EXPECT_EQ(logged, (Texts{"123 busy queue=8192\n", "123 busy queue=4096\n"})) << "each once, and not at 0";
}

TEST_F(Dispatch, AHandlerMayKeepTheParameters) {
    handler = [](Tq4_msg *m) {
        if (m->submsg == 1) m->params = nullptr;
        return 0l;
    };
    start_here();
    push(1, count_freed);
    push(2, count_freed);
    (*d)->Push(d, nullptr, nullptr, 1, 3, nullptr, count_freed);
    drain();
    EXPECT_EQ(freed, 1);
    EXPECT_EQ((*d)->Post(nullptr, nullptr, nullptr, 1, 1, word(1), count_freed), 0);
    EXPECT_EQ(freed, 2) << "without a dispatcher they are freed too";
}

// ---- the owner's thread

TEST_F(Dispatch, TryOnceWaitsAsLongAsItIsTold) {
    push(1);
    EXPECT_EQ(once(), 0) << "nobody serves yet";
    start_here();
    EXPECT_EQ(notified, 1) << "something waits already";
    EXPECT_EQ(once(), 1);
    EXPECT_EQ(once(), 0);
    EXPECT_EQ(once(5), 0);
    Parallel later([this] { push(5); });
    EXPECT_EQ(once(TQ4_ALL_ONES), 1);
    EXPECT_EQ((*d)->IsSameThread(d), 1);
    stop();
    EXPECT_EQ(push(1), 1);
    EXPECT_EQ(once(), 1) << "a stop leaves it as it is";
}

TEST_F(Dispatch, ItsHandlerMayDeleteItOnTheOwnersThread) {
    handler = [this](Tq4_msg *) {
        Tq4_dispatch_oitf->Delete(d);
        deleted = true;
        EXPECT_EQ((*d)->IsSameThread(d), 0);
        EXPECT_EQ(send(1, count_freed), 0) << "still there, and stopped";
        return 0l;
    };
    start_here();
    push(1, count_freed);
    push(2, count_freed);
    EXPECT_EQ(once(), -1);
    EXPECT_EQ(freed, 3);
}

// ---- calls

TEST_F(Dispatch, ASendIsAnsweredAndMayBeAnsweredThroughTheIds) {
    handler = [](Tq4_msg *m) {
        if (m->sender) *m->sender = {7, 8};
        EXPECT_EQ(m->receiver, nullptr);
        return -m->submsg;
    };
    EXPECT_STREQ((*start())->Name(start()), "test 7") << "started twice it is the same thread";
    Tq4_id id{};
    EXPECT_EQ((*d)->Send(d, &id, nullptr, 0, 5, nullptr, nullptr), -5) << "negative, and it goes on";
    EXPECT_TRUE(id.h == 7 && id.l == 8);
    for (long i = 0; i < 3000; ++i) ASSERT_EQ((*d)->SendFirst(d, nullptr, nullptr, 0, i, word(1), count_freed), -i);
    stop();
    EXPECT_EQ(freed, 3000);
    EXPECT_EQ((*d)->IsSameThread(d), 0);
}

TEST_F(Dispatch, AHandlerSendsToItsOwnDispatcher) {
    handler = [this](Tq4_msg *m) {
        EXPECT_EQ((*d)->IsSameThread(d), 1);
        if (m->submsg == 100) { // answers early; the sender's ids are the message's own by then
            Tq4_id *const given = m->sender;
            Tq4_dispatch_Return(m, 5);
            EXPECT_TRUE(m->sender != given && m->sender->l == given->l && !m->receiver);
            Tq4_dispatch_Return(m, 6);
            return 7l;
        }
        Tq4_id id{0, 3};
        if (m->submsg == 0) return (*d)->Send(d, &id, nullptr, 0, 100, nullptr, nullptr);
        return send(m->submsg - 1, count_freed) + 1;
    };
    start();
    EXPECT_EQ(send(50), 55);
    stop();
    EXPECT_EQ(freed, 49) << "the innermost has none";
}

TEST_F(Dispatch, ReturnLetsTheSenderGoWhileTheHandlerGoesOn) {
    std::atomic<bool> answered = false, end = false;
    handler = [&](Tq4_msg *m) {
        Tq4_dispatch_Return(m, 42);
        while (!answered) std::this_thread::yield();
        EXPECT_TRUE(m->sender->l == 9 && m->receiver->l == 10) << "copies: the sender's are gone";
        end = true;
        return 1l;
    };
    start();
    {
        auto ids = std::make_unique<Tq4_id[]>(2);
        ids[0].l = 9;
        ids[1].l = 10;
        EXPECT_EQ((*d)->Send(d, &ids[0], &ids[1], 0, 0, nullptr, nullptr), 42);
    }
    answered = true;
    while (!end) std::this_thread::yield();
}

TEST_F(Dispatch, ManyThreadsHandOverAtOnce) {
    const int threads = 4;
    const long each = 4000;
    std::vector<long> last(threads);
    long handled = 0;
    handler = [&](Tq4_msg *m) {
        ++handled;
        if (m->type == Tq4_msg_type_send) return m->submsg;
        const auto thread = static_cast<std::size_t>(m->msg);
        EXPECT_EQ(m->submsg, last[thread] + 1) << "each thread's in its order";
        last[thread] = m->submsg;
        return 0l;
    };
    start();
    {
        std::vector<std::unique_ptr<Parallel>> producers;
        for (unsigned long thread = 0; thread < threads; ++thread)
            producers.push_back(std::make_unique<Parallel>([=, this] {
                for (long i = 1; i <= each; ++i) {
                    (*d)->Push(d, nullptr, nullptr, thread, i, word(i), count_freed);
                    if (i % 64 == 0) { EXPECT_EQ(send(i), i); }
                    if (i % 512 == 0) std::this_thread::sleep_for(std::chrono::microseconds(50));
                }
                EXPECT_EQ(send(1), 1);
            }));
    }
    EXPECT_EQ(handled, threads * (each + each / 64 + 1));
    stop();
    EXPECT_EQ(freed, threads * each);
}

// ---- stopping

TEST_F(Dispatch, ASendWaitsForTheFirstStartAndNotAfterAStop) {
    auto early = sender(3);
    push(1, count_freed);
    start();
    EXPECT_EQ(early->result(), 3);
    stop();
    EXPECT_EQ(send(4, count_freed), 0);
    EXPECT_EQ(once(), -1);
    push(5, count_freed);
    EXPECT_EQ(freed, 3);
    start();
    EXPECT_EQ(send(6), 6) << "behind the one that was queued meanwhile";
    stop();
    EXPECT_EQ(freed, 4);
    Tq4_dispatch_oitf->Reset(d);
    early = sender(8);
    Tq4_dispatch_oitf->Reset(d);
    EXPECT_EQ(early->result(), 0);
}

TEST_F(Dispatch, AStopSendsWaitingSendersHomeAndDropsTheRest) {
    std::atomic<bool> busy = false, go_on = false;
    long handled = 0;
    handler = [&](Tq4_msg *m) {
        ++handled;
        busy = true;
        while (!go_on) std::this_thread::yield();
        return m->submsg;
    };
    start();
    auto at_hand = std::make_unique<Parallel>([this] { return static_cast<int>(send(1, count_freed)); });
    while (!busy) std::this_thread::yield();
    std::vector<std::unique_ptr<Parallel>> waiting;
    for (int i = 0; i < 3; ++i) waiting.push_back(sender(2));
    for (int i = 0; i < 100; ++i) push(i + 1, count_freed);
    Parallel stopping([this] { stop(); });
    for (auto &one : waiting) EXPECT_EQ(one->result(), 0) << "at once, while the handler is busy";
    go_on = true;
    EXPECT_EQ(at_hand->result(), 1);
    while (!stopping.done()) std::this_thread::yield();
    EXPECT_EQ(handled, 1);
    EXPECT_EQ(freed, 104);
}

TEST_F(Dispatch, AStopUnderFullLoadNeitherHangsNorLeaks) {
    std::atomic<long> handed = 0;
    std::atomic<bool> over = false;
    handler = [](Tq4_msg *m) { return m->submsg; };
    std::vector<std::unique_ptr<Parallel>> producers;
    for (int thread = 0; thread < 3; ++thread)
        producers.push_back(std::make_unique<Parallel>([&, thread] {
            for (long i = 1; !over; ++i, ++handed) {
                if (thread == 0)
                    push(i, count_freed);
                else if (thread == 1)
                    post(i, count_freed);
                else {
                    const long answer = send(i, count_freed);
                    EXPECT_TRUE(answer == 0 || answer == i);
                }
                if (i % 100 == 0) std::this_thread::yield();
            }
        }));
    for (int round = 0; round < 30; ++round) {
        start();
        const long enough = handed + 300;
        while (handed < enough) std::this_thread::yield();
        stop();
    }
    over = true;
    producers.clear();
    remove();
    EXPECT_EQ(freed, handed);
}

TEST_F(Dispatch, ItsHandlerMayStopAndRestartIt) {
    handler = [this](Tq4_msg *m) {
        if (m->submsg == 3) return 3l;
        stop();
        EXPECT_EQ(send(1, count_freed), 0) << "stopped";
        if (m->submsg == 2) start();
        return m->submsg;
    };
    start();
    push(3, count_freed);
    EXPECT_EQ((*d)->SendFirst(d, nullptr, nullptr, 0, 1, nullptr, nullptr), 1) << "its answer still comes";
    EXPECT_EQ(send(1, count_freed), 0);
    start();
    EXPECT_EQ(send(2), 2);
    EXPECT_EQ(send(3), 3) << "served by the thread that the handler started";
    stop();
    EXPECT_EQ(freed, 4);
}

TEST_F(Dispatch, ItsHandlerMayDeleteIt) {
    handler = [this](Tq4_msg *m) {
        Tq4_dispatch_oitf->Delete(d);
        EXPECT_EQ(push(1, count_freed), 1) << "the handle is good until the handler returns";
        EXPECT_EQ((*d)->IsSameThread(d), 1);
        return m->submsg;
    };
    start();
    deleted = true;
    EXPECT_EQ(send(9), 9);
    while (freed < 1) std::this_thread::yield(); // the record goes with its thread
}

TEST_F(Dispatch, IsStartedAndDeletedInAnyHaste) {
    for (int round = 0; round < 50; ++round) {
        start();
        if (round % 2) stop();
        if (round % 3 == 0) push(1, count_freed);
        if (round % 5 == 0) start();
        EXPECT_EQ((*d)->IsSameThread(d), 0);
        remove();
        deleted = false;
        d = static_cast<Tq4_dispatch>(Tq4_dispatch_oitf->Create(nullptr));
    }
    EXPECT_EQ(freed, 17);
    EXPECT_EQ((*d)->Start(d, this, nullptr, "none"), nullptr);
}

// ---- kills, each in a process of its own

using DispatchDeathTest = Dispatch;

// Runs a test of a dispatcher in a process of its own.
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
void be_deaf() {
    for (;;) asm volatile("" ::: "memory");
}
void (*volatile deaf)() = be_deaf;

TEST_F(DispatchDeathTest, AKilledHandlersSenderIsAnsweredAndTheDispatcherGoesOn) {
    in_a_child([this] {
        std::atomic<bool> inside = false;
        handler = [&](Tq4_msg *m) {
            if (m->submsg == 2) return send(3, count_freed); // the call within is killed, and both are let go
            inside = true;
            if (m->submsg == 3) deaf();
            return m->submsg;
        };
        Tq4_thread thread = start();
        Parallel at_hand([&] { return static_cast<int>(send(2, count_freed)); });
        while (!inside) std::this_thread::yield();
        auto behind = sender(1);
        push(1, count_freed);
        (*thread)->Kill(thread, 1);
        EXPECT_EQ(at_hand.result(), 0);
        EXPECT_FALSE(behind->done()) << "until somebody stops it";
        stop();
        EXPECT_EQ(behind->result(), 0);
        EXPECT_EQ(freed, 4);
        start();
        EXPECT_EQ(send(1), 1);
        inside = false;
        Parallel again([&] { return static_cast<int>(send(3, count_freed)); });
        while (!inside) std::this_thread::yield();
        stop(); // waits two seconds, then kills
        EXPECT_EQ(again.result(), 0);
        EXPECT_EQ(freed, 5);
        remove();
    });
}

// Short handlers, so that most kills come between them: what a kill leaves behind is a dispatcher as it should be.
TEST_F(DispatchDeathTest, AKillStrikesOnlyInsideTheHandler) {
    in_a_child([this] {
        long handed = 0;
        auto brief = +[](void *, Tq4_msg *m) { return m->submsg; };
        for (int round = 0; round < 100; ++round) {
            Tq4_thread thread = (*d)->Start(d, nullptr, brief, "brief");
            for (int i = 0; i < 20; ++i, ++handed) push(1, count_freed);
            while (freed < handed - 10) std::this_thread::yield();
            Parallel killer([&] { (*thread)->Kill(thread, 1); });
            for (int i = 0; i < 50; ++i, ++handed) push(1, count_freed);
            while (!killer.done()) std::this_thread::yield();
            stop();
            ASSERT_EQ(freed, handed);
        }
        remove();
    });
}

// The sender is a thread of the library's that is killed while it waits: it ends with its call, and not before.
TEST_F(DispatchDeathTest, AKilledSenderEndsWithItsCall) {
    in_a_child([this] {
        static std::atomic<bool> came_back;
        auto work = +[](void *context) {
            static_cast<Dispatch *>(context)->send(1, count_freed);
            came_back = true;
            return 0ul;
        };
        auto thread = Tq4_make<Tq4_thread>(Tq4_thread_oitf, "sender");
        Tq4_thread t = thread.get();
        (*t)->Init(t, work, this);
        (*t)->Resume(t);
        while (once() == 0) { // until its message is there
            start_here();
            std::this_thread::yield();
            if (notified) break;
        }
        (*t)->Kill(t, 1);
        while (freed < 1) once();
        while ((*t)->GetPriority(t) != -1) std::this_thread::yield();
        EXPECT_FALSE(came_back);
        remove();
    });
}

} // namespace
