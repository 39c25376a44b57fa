// What a dispatcher promises: one order, one handler, every parameter freed once, every sender answered; also when it
// is stopped under load, by its own handler, or by a kill.
#include "support/faults.hpp"
#include "support/killed.hpp"
#include "support/test.hpp"

namespace {

void *word(long n) { return reinterpret_cast<void *>(n); }

std::atomic<long> freed; // by count_freed
void count_freed(void *) { ++freed; }

std::vector<std::string> logged;

// A dispatcher with a handler of the test's.
struct Dispatch : testing::Test {
    using Handler = std::function<long(Tq4_msg *)>;

    Tq4_dispatch d = nullptr;
    Handler handler = [](Tq4_msg *m) { return m->submsg; };
    std::atomic<long> notified = 0;

    Dispatch() {
        make();
        freed = 0;
        logged.clear();
        quiet();
        Tq4_debug_api->SetLog([](int, const char *format, va_list args) { logged.push_back(formatted(format, args)); });
    }
    ~Dispatch() override {
        Tq4_dispatch_oitf->Delete(d);
        Tq4_debug_api->SetLog(nullptr);
    }
    // Once and for all: a thread whose dispatcher was deleted by its handler tells of its end when it likes.
    static void quiet() {
        [[maybe_unused]] static const bool done = (Tq4_debug_api->SetPrint([](int, const char *, va_list) {}), true);
    }
    void make() { d = static_cast<Tq4_dispatch>(Tq4_dispatch_oitf->Create(nullptr)); }
    // Once for each that was made; the handle may be good for longer.
    void remove() { Tq4_dispatch_oitf->Delete(std::exchange(d, nullptr)); }

    static long handle(void *context, Tq4_msg *m) { return static_cast<Dispatch *>(context)->handler(m); }
    Tq4_thread start() { return (*d)->Start(d, this, handle, "test %d", 7); }
    // This thread serves.
    void start_here() {
        auto notify = +[](void *context) { ++static_cast<Dispatch *>(context)->notified; };
        (*d)->Start2(d, this, reinterpret_cast<unsigned long>(pthread_self()), notify, handle);
    }
    void stop() { (*d)->Stop(d); }
    int once(unsigned long ms = 0) { return (*d)->try_once(d, ms); }
    long push(long n, Tq4_msg_free free_params = nullptr) {
        return (*d)->Push(d, nullptr, nullptr, 1, n, word(n), free_params);
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

// ---- one thread

// Order, limit, log and parameters beside a model, also where the handler hands over and takes.
TEST_F(Dispatch, KeepsToAModelUnderRandomHandingOver) {
    struct Expected {
        Tq4_msg_type type;
        long n;
    };
    std::deque<Expected> model;
    std::mt19937 random(1);
    long handed = 0, accepted = 0, handled = 0, depth = 0;
    Texts told;
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
    const auto take = [&] {
        const bool some = !model.empty();
        if (model.size() > 1 && (model.size() - 1) % 4096 == 0)
            told.push_back("7 busy queue=" + std::to_string(model.size() - 1) + "\n");
        EXPECT_EQ(once(), some);
    };
    handler = [&](Tq4_msg *m) {
        ++handled;
        const Expected front = model.front();
        EXPECT_TRUE(m->type == front.type && m->submsg == front.n && m->params == word(front.n) && m->msg == 3);
        EXPECT_TRUE(m->sender->h == static_cast<uint32_t>(front.n) && m->receiver->h == 0 && m->receiver->l == 0);
        model.pop_front();
        if (++depth < 4 && random() % 64 == 0)
            for (auto i = random() % 200; i--;) random() % 2 ? hand_over() : take();
        --depth;
        return 0l;
    };
    const auto notify = +[](void *context) { ++static_cast<Dispatch *>(context)->notified; };
    (*d)->Start2(d, this, 7, notify, handle);
    {
        const Armed_fault armed({"pthread_create", EAGAIN, Fault_manner::once}, 1);
        EXPECT_EQ(start(), nullptr) << "and changes nothing";
    }
    for (int phase = 0; phase < 60; ++phase) { // bursts in and out
        for (auto in = random() % 6000; in--;) random() % 16 ? hand_over() : take();
        for (auto out = random() % 6000; out--;) take();
    }
    while (!model.empty()) take();
    EXPECT_TRUE(handled == accepted && notified == accepted && freed == handed);
    EXPECT_TRUE(handed > accepted && !told.empty()) << "the limits were met";
    EXPECT_EQ(logged, told);
}

TEST_F(Dispatch, TryOnceWaitsAsLongAsItIsToldAndTheHandlerMayKeepTheParameters) {
    handler = [](Tq4_msg *m) {
        if (m->submsg == 2) m->params = nullptr;
        return 0l;
    };
    push(1, count_freed);
    EXPECT_EQ(once(), 0) << "nobody serves yet";
    start_here();
    EXPECT_EQ(notified, 1) << "something waits already";
    EXPECT_TRUE(once() == 1 && once() == 0 && once(5) == 0);
    Parallel later([this] { push(2, count_freed); });
    EXPECT_EQ(once(TQ4_ALL_ONES), 1);
    EXPECT_EQ((*d)->IsSameThread(d), 1);
    stop();
    (*d)->Push(d, nullptr, nullptr, 1, 3, nullptr, count_freed);
    EXPECT_EQ(once(1ul << 60), 1) << "a stop leaves it as it is";
    EXPECT_EQ(freed, 1);
    EXPECT_EQ((*d)->Post(nullptr, nullptr, nullptr, 1, 1, word(1), count_freed), 0);
    EXPECT_EQ(freed, 2) << "without a dispatcher they are freed too";
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
    std::atomic<bool> answered = false;
    handler = [&](Tq4_msg *m) {
        Tq4_dispatch_Return(m, 42);
        while (!answered) std::this_thread::yield();
        EXPECT_TRUE(m->sender->l == 9 && m->receiver->l == 10) << "copies: the sender's are gone";
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
    stop();
}

// ---- stopping

TEST_F(Dispatch, ASendWaitsForTheFirstStartAndNotAfterAStop) {
    auto early = sender(3);
    push(1, count_freed);
    start();
    EXPECT_EQ(early->result(), 3);
    stop();
    EXPECT_TRUE(send(4, count_freed) == 0 && once() == -1);
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
    Parallel at_hand([this] { return static_cast<int>(send(1, count_freed)); });
    while (!busy) std::this_thread::yield();
    std::vector<std::unique_ptr<Parallel>> waiting;
    for (int i = 0; i < 3; ++i) waiting.push_back(sender(2));
    for (int i = 0; i < 100; ++i) push(i + 1, count_freed);
    Parallel stopping([this] { stop(); });
    for (auto &one : waiting) EXPECT_EQ(one->result(), 0) << "at once, while the handler is busy";
    go_on = true;
    EXPECT_EQ(at_hand.result(), 1);
    while (!stopping.done()) std::this_thread::yield();
    EXPECT_TRUE(handled == 1 && freed == 104);
}

// First without stops: everything is handled, each thread's in its order.
TEST_F(Dispatch, ManyThreadsHandOverAtOnceAndAStopNeitherHangsNorLeaks) {
    std::atomic<long> handed = 0, handled = 0;
    std::atomic<bool> over = false, dropping = false;
    long last[3] = {};
    handler = [&](Tq4_msg *m) {
        ++handled;
        const long expected = ++last[m->msg];
        EXPECT_TRUE(dropping ? m->submsg >= expected : m->submsg == expected);
        return last[m->msg] = m->submsg;
    };
    std::deque<Parallel> producers;
    start();
    for (unsigned long thread = 0; thread < 3; ++thread)
        producers.emplace_back([&, thread] {
            for (long i = 1; !over; ++i) {
                const auto operation = thread == 0 ? (*d)->Push : thread == 1 ? (*d)->Post : (*d)->Send;
                const bool full = !dropping && handed > handled + 4000; // else a Post may be refused
                if (full && i--) continue;
                ++handed;
                const long answer = operation(d, nullptr, nullptr, thread, i, word(i), count_freed);
                EXPECT_TRUE(thread != 2 || answer == i || (dropping && answer == 0));
                if (i % 100 == 0) std::this_thread::yield();
                if (i % 512 == 0) std::this_thread::sleep_for(std::chrono::microseconds(50));
            }
        });
    while (handled < 20000) std::this_thread::yield();
    dropping = true;
    for (int round = 0; round < 30; ++round) {
        stop();
        start();
        const long enough = handed + 300;
        while (handed < enough) std::this_thread::yield();
    }
    over = true;
    producers.clear();
    remove();
    EXPECT_EQ(freed, handed);
}

TEST_F(Dispatch, ItsHandlerMayStopRestartAndDeleteIt) {
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
    for (const bool here : {false, true}) {
        freed = 0;
        handler = [&, dispatch = d](Tq4_msg *m) {
            remove();
            EXPECT_EQ((*dispatch)->Push(dispatch, nullptr, nullptr, 1, 1, word(1), count_freed), 1)
                << "the handle is good until the handler returns";
            EXPECT_EQ((*dispatch)->IsSameThread(dispatch), !here);
            return m->submsg;
        };
        const Tq4_dispatch dispatch = d;
        here ? start_here() : void(start());
        push(2, count_freed);
        EXPECT_TRUE(!here || (*dispatch)->try_once(dispatch, 0) == -1);
        while (freed < 2) std::this_thread::yield(); // the record goes with its thread
        make();
    }
}

// As the free function of what a stop drops, or in the handler that a waiting message meets before Start has returned.
TEST_F(Dispatch, IsDeletedAndRestartedInAnyHaste) {
    static Dispatch *test;
    static bool deletes;
    test = this;
    const auto free_function = [](void *) {
        ++freed;
        deletes ? test->remove() : void(test->start());
    };
    for (int round = 0; round < 50; ++round) {
        start();
        if (round % 2) stop();
        if (round % 3 == 0) push(1, count_freed);
        if (round % 5 == 0) start();
        EXPECT_EQ((*d)->IsSameThread(d), 0);
        remove();
        make();
    }
    EXPECT_EQ(freed, 17);
    for (deletes = false;; deletes = true) {
        const Tq4_thread thread = start();
        std::atomic<bool> busy = false;
        handler = [&](Tq4_msg *m) {
            busy = true;
            while (m->submsg == 1 && (*thread)->IsRunning(thread)) std::this_thread::yield(); // until it is stopped
            return m->submsg;
        };
        push(1);
        while (!busy) std::this_thread::yield();
        push(2, free_function);
        push(3, count_freed);
        stop();
        if (deletes) break;
        EXPECT_EQ(send(5), 5) << "started again";
    }
    EXPECT_EQ(freed, 21);
    handler = [&](Tq4_msg *) { return Tq4_dispatch_oitf->Delete(d), 0l; };
    for (long round = 1; round < 500; ++round) {
        make();
        push(1, count_freed);
        start();
        while (freed < 21 + round) std::this_thread::yield();
    }
    make();
    EXPECT_EQ((*d)->Start(d, this, nullptr, "none"), nullptr);
}

// ---- kills, each in a process of its own

using DispatchDeathTest = Dispatch;

TEST_F(DispatchDeathTest, AKilledHandlersSenderIsAnsweredAndTheDispatcherGoesOn) {
    in_a_child([this] {
        std::atomic<bool> inside = false;
        handler = [&](Tq4_msg *m) {
            if (m->submsg == 2) return send(3, count_freed); // the call within is killed, and both are let go
            inside = true;
            if (m->submsg == 3) go_deaf();
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
        for (int round = 0; round < 20; ++round) {
            Tq4_thread thread = start();
            (*thread)->Kill(thread, 1); // before it has begun, mostly
            stop();
        }
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
        start_here();
        (*t)->Resume(t);
        while (!notified) std::this_thread::yield(); // until its message is there
        (*t)->Kill(t, 1);
        while (freed < 1) once();
        while ((*t)->GetPriority(t) != -1) std::this_thread::yield();
        EXPECT_FALSE(came_back);
        remove();
    });
}

} // namespace
