// What the timer service promises its callers: firings on one thread, data freed once however a timer ends, and
// starting, stopping and deleting at any moment, from anywhere. When timers fire is the wheel's (wheel_test).
#include "support/heard.hpp"
#include "support/killed.hpp"

namespace {

// Of what threads print when they begin and end.
long lines_with(const char *text) {
    const std::lock_guard guard(Heard::lock);
    return std::count_if(Heard::printed.begin(), Heard::printed.end(),
                         [&](const std::string &line) { return line.find(text) != std::string::npos; });
}

template <class Condition> void await(Condition holds) {
    while (!holds()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

struct Timer : testing::Test, Heard {
    using Firing = std::function<void(Tq4_timer_callback *)>;
    struct Data {
        Timer *test;
        Firing on_fire;
    };
    Tq4_own<Tq4_timer> owner = Tq4_make<Tq4_timer>(Tq4_timer_oitf);
    Tq4_timer t = owner.get();
    std::atomic<int> fired = 0, given = 0, freed = 0;

    ~Timer() override {
        owner.reset();
        EXPECT_EQ(given, freed);
        await([] { return lines_with("] begin") == lines_with("] end"); }); // also of what was stopped in a callback
    }
    int start() { return (*t)->Start(t, "test"); }
    int stop() { return (*t)->Stop(t); }
    void *data(Firing on_fire) {
        ++given;
        return new Data{this, std::move(on_fire)};
    }
    static void fire(Tq4_timer, Tq4_timer_callback *firing) {
        const auto *d = static_cast<Data *>(firing->userdata);
        if (d->on_fire) d->on_fire(firing);
        ++d->test->fired;
    }
    static void free_data(void *p) {
        const std::unique_ptr<Data> d(static_cast<Data *>(p));
        ++d->test->freed;
    }
    Tq4_id set(unsigned long ms, Firing on_fire = nullptr, unsigned long count = 1) {
        Tq4_id id{};
        void *const d = data(std::move(on_fire));
        if ((*t)->SetRepeatTimer(t, count, ms, fire, &id, d, free_data) == 0) free_data(d);
        return id;
    }
    // Runs on the handler's thread, and waits for it.
    void inside(std::function<void()> work) {
        const int before = fired;
        set(10, [&](Tq4_timer_callback *) { work(); });
        await([&] { return fired > before; });
    }
};

TEST_F(Timer, FiresOnOneThreadAndFreesTheDataOnce) {
    EXPECT_TRUE(start() == 1 && start() == 1);
    std::atomic<pid_t> thread = 0;
    std::vector<std::pair<unsigned long, int>> told;
    const Tq4_id id = set(
        20,
        [&](Tq4_timer_callback *firing) {
            EXPECT_TRUE(thread == 0 || thread == gettid());
            thread = gettid();
            EXPECT_EQ(firing->elapse, 20 * firing->repeat);
            told.emplace_back(firing->repeat, firing->closed);
        },
        3);
    EXPECT_NE(id.l, 0u);
    await([&] { return freed == 1; });
    EXPECT_EQ(told, (std::vector<std::pair<unsigned long, int>>{{1, 0}, {2, 0}, {3, 1}}));
    EXPECT_NE(thread, gettid());
    EXPECT_TRUE(stop() == 1 && stop() == 1);
    EXPECT_TRUE(lines_with(" Tq4_timer_handler] begin") == 1 && lines_with(" Tq4_TimerTickThread(test)] begin") == 1);
    EXPECT_TRUE(lines_with(" Tq4_timer_handler] end") == 1 && lines_with(" Tq4_TimerTickThread(test)] end") == 1);
}

TEST_F(Timer, HasShortFormsOfEachWayToSet) {
    start();
    static std::atomic<int> sum, frees;
    sum = frees = 0;
    const auto add = [](Tq4_timer, Tq4_timer_callback *firing) { sum += firing->userdata ? 100 : 1; };
    const auto again = [](const Tq4_id *, unsigned long, unsigned long, void *) { return 10ul; };
    const auto count = [](void *) { ++frees; };
    Tq4_id ids[6];
    const Tq4_timer_ &f = **t;
    const int results[] = {f.SetTimer0(t, 10, add),
                           f.SetTimer1(t, 10, add, &ids[0]),
                           f.SetTimer2(t, 10, add, &ids[1], &ids, count),
                           f.SetRepeatTimer0(t, 2, 10, add),
                           f.SetRepeatTimer1(t, 2, 10, add, &ids[2]),
                           f.SetRepeatTimer2(t, 2, 10, add, &ids[3], &ids, count),
                           f.SetRepeatTimerDelta0(t, 2, 10, add, again),
                           f.SetRepeatTimerDelta1(t, 2, 10, add, again, &ids[4]),
                           f.SetRepeatTimerDelta2(t, 2, 10, add, again, &ids[5], &ids, count),
                           f.SetTimer(t, 10, add, nullptr, nullptr, count),
                           f.SetRepeatTimerDelta(t, 1, 10, add, nullptr, nullptr, &ids, nullptr)};
    for (const int result : results) EXPECT_EQ(result, 1);
    await([&] { return sum == 10 + 1 + 600 && frees == 4; });
    for (const Tq4_id &id : ids) EXPECT_NE(id.l, 0u);
    EXPECT_EQ(f.SetTimer(t, 10, nullptr, &ids[0], nullptr, count), 0);
}

TEST_F(Timer, ResetsWatchesAndClearsByIdAndTellsOfUnknownOnes) {
    start();
    const Tq4_id id = set(3600000);
    await([&] { return (*t)->StopWatch(t, &id, 0) >= 30; });
    EXPECT_EQ((*t)->ResetTimer(t, &id, 3600000), 1);
    EXPECT_LT((*t)->StopWatch(t, &id, 0), 3600000u);
    await([&] { return (*t)->StopWatch(t, &id, 0) >= 20; });
    EXPECT_GE((*t)->StopWatch(t, &id, 1), 20u);
    EXPECT_EQ(freed, 1);
    const Tq4_id other = set(3600000);
    EXPECT_EQ((*t)->ClearTimer(t, &other), 1);
    await([&] { return freed == 2; });
    EXPECT_TRUE(logged.empty());

    const Tq4_timer_ &f = **t;
    EXPECT_TRUE(!f.Start(nullptr, "") && !f.Stop(nullptr) && !f.SetTimer0(nullptr, 10, fire) &&
                !f.ClearTimer(nullptr, &id) && !f.ResetTimer(nullptr, &id, 10) && !f.StopWatch(nullptr, &id, 1));
    const Tq4_id foreign{0x12, 0xABCDEF01};
    EXPECT_TRUE((*t)->ClearTimer(t, &foreign) == 1 && (*t)->ResetTimer(t, &foreign, 10) == 0 &&
                (*t)->StopWatch(t, &foreign, 1) == 0 && (*t)->ResetTimer(t, nullptr, 10) == 0);
    EXPECT_EQ(logged, (Texts{"-1 ClearTimer Error: [0x00000012:0xabcdef01] not found",
                             "-1 !!ResetTimer Error: [0x00000012:0xabcdef01] not found",
                             "-1 !!StopWatch Error: [0x00000012:0xabcdef01] not found",
                             "-1 !!ResetTimer Error: [0x00000000:0x00000000] not found"}));
}

TEST_F(Timer, InACallbackRequestsTakeEffectAtOnce) {
    start();
    inside([&] {
        const Tq4_id id = set(50), kept = set(3600000);
        EXPECT_TRUE((*t)->StopWatch(t, &id, 0) == 0 && (*t)->ClearTimer(t, &id) == 1);
        EXPECT_TRUE(freed == 0 + 1 && (*t)->ResetTimer(t, &id, 10) == 0 && (*t)->ResetTimer(t, &kept, 20) == 1);
    });
    await([&] { return freed == 3; });
    EXPECT_EQ(fired, 2);
}

TEST_F(Timer, WaitsForTheFirstStartAndRefusesAfterAStop) {
    {
        Parallel early([&] { set(10); });
        early.await_sleep();
        EXPECT_FALSE(early.done());
        start();
    }
    await([&] { return freed == 1; });
    set(3600000);
    stop();
    EXPECT_EQ(freed, 2) << "by Stop";
    const Tq4_id late = set(10);
    EXPECT_TRUE(late.l == 0 && (*t)->StopWatch(t, &late, 0) == 0 && (*t)->ResetTimer(t, &late, 10) == 0);
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ(start(), 1);
        const int before = fired;
        set(10);
        set(3600000);
        await([&] { return fired > before; });
        Tq4_timer_oitf->Reset(t);
        EXPECT_EQ(given, freed);
    }
}

// The thread that ticks prints that it begins, and goes on when the other one has ended.
TEST_F(Timer, MayBeStoppedBeforeItsTicksBegin) {
    Tq4_debug_api->SetPrint([](int, const char *format, va_list args) {
        const std::string line = formatted(format, args);
        note(printed, line);
        if (line.find("TickThread(test)] begin") == std::string::npos) return;
        await([] { return lines_with("_handler] end") == 1; });
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    });
    start();
    await([] { return lines_with("] begin") == 2; });
    EXPECT_EQ(stop(), 1);
    EXPECT_EQ(lines_with("] end"), 2);
}

TEST_F(Timer, MayBeStoppedStartedAndDeletedInACallback) {
    start();
    set(3600000);
    inside([&] {
        EXPECT_TRUE(stop() == 1 && freed == 1) << "its own data when it returns";
        EXPECT_EQ(set(10).l, 0u);
    });
    EXPECT_EQ(start(), 1);
    inside([&] { EXPECT_TRUE(stop() == 1 && start() == 1); });
    inside([&] {});
    EXPECT_EQ(stop(), 1);
    start();
    const Tq4_timer deleted = owner.release();
    set(3600000);
    inside([&] {
        Tq4_timer_oitf->Delete(deleted);
        EXPECT_EQ((*deleted)->SetTimer0(deleted, 10, fire), 0) << "the handle is good until the callback returns";
    });
    await([&] { return freed == given; });
}

TEST_F(Timer, MayBeStoppedStartedAndDeletedByAFreeFunction) {
    start();
    static std::atomic<int> ended;
    ended = 0;
    const auto nothing = [](Tq4_timer, Tq4_timer_callback *) {};
    const auto restart = [](void *timer) {
        const auto self = static_cast<Tq4_timer>(timer);
        (*self)->Stop(self);
        ended = (*self)->Start(self, nullptr);
    };
    (*t)->SetTimer(t, 10, nothing, nullptr, t, restart);
    set(3600000);
    await([&] { return ended == 1; });
    EXPECT_EQ(freed, 1);
    inside([&] {});
    const auto remove = [](void *timer) {
        const auto self = static_cast<Tq4_timer>(timer);
        Tq4_timer_oitf->Delete(self);
        ended += (*self)->Start(self, nullptr) == 0;
    };
    (*t)->SetTimer(t, 3600000, nothing, nullptr, owner.release(), remove);
    set(3600000);
    stop();
    EXPECT_EQ(ended, 2) << "deleted by what a stop frees";
    EXPECT_EQ(given, freed);
}

using TimerDeathTest = Timer;

// In a callback that does not return, and in a stop whose free function does not.
TEST_F(TimerDeathTest, StaysUsableAfterAKill) {
    in_a_child([this] {
        static std::atomic<bool> there;
        start();
        set(3600000);
        set(10, [&](Tq4_timer_callback *) { there = true, go_deaf(); });
        await([&] { return there.load(); });
        EXPECT_TRUE(stop() == 1 && freed == 2);
        EXPECT_EQ(start(), 1);
        inside([&] {});
        there = false;
        (*t)->SetTimer(t, 3600000, fire, nullptr, nullptr, [](void *) { there = true, go_deaf(); });
        set(3600000);
        const auto stopping = Tq4_make<Tq4_thread>(Tq4_thread_oitf, "stopping");
        const Tq4_thread thread = stopping.get();
        (*thread)->Init(
            thread, [](void *timer) { return static_cast<unsigned long>(static_cast<Timer *>(timer)->stop()); }, this);
        (*thread)->Resume(thread);
        await([&] { return there.load(); });
        (*thread)->Kill(thread, 1);
        await([&] { return freed == given && (*thread)->GetPriority(thread) == -1; });
        EXPECT_EQ(start(), 1);
        inside([&] {});
        owner.reset();
    });
}

TEST_F(Timer, StopsUnderFullLoadFromManyThreadsWithoutLosingData) {
    for (int round = 0; round < 3; ++round) {
        start();
        std::atomic<bool> over = false;
        {
            std::deque<Parallel> users;
            for (unsigned seed = 0; seed < 4; ++seed)
                users.emplace_back([&, seed] {
                    std::mt19937 random(seed);
                    while (!over) {
                        const Tq4_id id = set(random() % 40, nullptr, random() % 3);
                        if (random() % 3 == 0) (*t)->ResetTimer(t, &id, random() % 100);
                        if (random() % 3 == 0) (*t)->StopWatch(t, &id, random() % 2);
                        if (random() % 2) (*t)->ClearTimer(t, &id);
                    }
                });
            const int before = fired;
            await([&] { return fired > before + 200; });
            stop();
            over = true;
        }
        EXPECT_EQ(given, freed);
    }
}

TEST_F(Timer, CallbackDataOwnsItsTable) {
    Tq4_timer_callback_data *record = Create_Tq4_timer_callback_data();
    EXPECT_TRUE(record->id.h == 0 && record->id.l == 0 && !record->owner && !record->t);
    record->t = static_cast<Tq4_value_table>(Tq4_value_table_oitf->Create(nullptr));
    (*record->t)->SetSI(record->t, "tries", 3);
    Delete_Tq4_timer_callback_data(record);
    Delete_Tq4_timer_callback_data(Create_Tq4_timer_callback_data());
    Delete_Tq4_timer_callback_data(nullptr);
}

} // namespace
