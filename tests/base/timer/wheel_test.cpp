// What the wheel promises at each tick: beside a model that is a sorted list of when timers are due, over simulated
// days; and what functions of the user may do to the timers in the middle of a step.
#include "support/test.hpp"

#include "assert.hpp"
#include "base/timer/wheel.hpp"

namespace {

using Firing = std::function<void(Tq4_timer_callback *)>;

// Timers of a wheel whose callbacks are functions of the test.
struct Wheel : testing::Test {
    struct Data {
        Wheel *wheel;
        Firing on_fire;
        std::function<unsigned long(unsigned long, unsigned long)> next; // null: without delta
        std::function<void()> on_free;
    };
    Tq4_timer_wheel wheel{nullptr, 0x5A5A5A};
    long now = 0; // steps begun
    int freed = 0, living = 0;

    ~Wheel() override {
        wheel.ReleaseAll(Tq4_timer_wheel::From::outside);
        EXPECT_EQ(living, 0);
    }
    static void fire(Tq4_timer, Tq4_timer_callback *firing) {
        const auto *data = static_cast<Data *>(firing->userdata);
        if (data->on_fire) data->on_fire(firing);
    }
    static unsigned long next(const Tq4_id *, unsigned long times, unsigned long ms, void *data) {
        return static_cast<Data *>(data)->next(times, ms);
    }
    static void free_data(void *p) {
        const std::unique_ptr<Data> data(static_cast<Data *>(p));
        ++data->wheel->freed;
        --data->wheel->living;
        if (data->on_free) data->on_free();
    }
    Tq4_id set(Data given, unsigned long ms, unsigned long count = 1) {
        given.wheel = this;
        const bool with_delta = given.next != nullptr;
        Tq4_id id;
        EXPECT_TRUE(
            wheel.Set({ms, count, fire, with_delta ? next : nullptr, new Data(std::move(given)), free_data}, &id));
        ++living;
        return id;
    }
    Tq4_id set(unsigned long ms, Firing on_fire, unsigned long count = 1) {
        return set(Data{.on_fire = std::move(on_fire)}, ms, count);
    }
    void release_all() { wheel.ReleaseAll(Tq4_timer_wheel::From::function); }
    void step(long ticks = 1) {
        while (ticks--) ++now, wheel.Tick(1);
    }
    uint64_t watch(Tq4_id id) {
        uint64_t ms = ~0ull;
        return wheel.StopWatch(&id, false, &ms) ? ms : ~0ull;
    }
    // At which steps a timer fires.
    Firing note(std::vector<long> &steps) {
        return [&, this](Tq4_timer_callback *) { steps.push_back(now); };
    }
};

TEST_F(Wheel, FiresAndRepeatsAtTheTicksAsked) {
    const struct {
        unsigned long ms;
        long first, each; // steps
    } cases[] = {{0, 2, 1},        {9, 2, 1},
                 {10, 2, 1},       {15, 2, 2},
                 {19, 2, 2},       {20, 3, 2},
                 {94, 10, 9},      {95, 10, 10},
                 {100, 11, 10},    {10230, 1024, 1023},
                 {10240, 1024, 0}, {10250, 1026, 0},
                 {10480, 1049, 0}, {10485700, 1048571, 0}};
    for (const auto &[ms, first, each] : cases) {
        std::vector<long> fired;
        const long begin = now;
        set(ms, note(fired), each ? 3 : 1);
        step(first + 2 * each);
        std::vector<long> expected{begin + first};
        if (each) expected.insert(expected.end(), {begin + first + each, begin + first + 2 * each});
        EXPECT_EQ(fired, expected) << ms;
        wheel.TurnTo(0); // where nothing waits, so that the next counts from there
        EXPECT_EQ(wheel.Count(), 0u);
    }
}

// A timer's rules told plainly: when it is due, in steps.
struct Due {
    long at;
    unsigned long ms, count, fired = 0;
    uint64_t elapse;
};

// Random timers of up to days, set, reset and cleared inside and outside callbacks, for four simulated days a round.
TEST_F(Wheel, KeepsToASortedListOverSimulatedDays) {
    std::mt19937_64 random(1);
    std::map<uint64_t, Due> model; // by id
    std::multimap<long, uint64_t> sorted;
    const auto number = [](Tq4_id id) { return uint64_t{id.h} << 32 | id.l; };
    const auto interval = [&] { // of every level, the shorter ones more often
        const unsigned long most[] = {100, 5000, 100000, 10000000, 300000000};
        return random() % most[random() % 5];
    };
    const auto due = [&](uint64_t id, long ticks) {
        auto &entry = model.at(id);
        entry.at = now + ticks;
        sorted.emplace(entry.at, id);
    };
    const auto forget = [&](uint64_t id) {
        const auto [first, last] = sorted.equal_range(model.at(id).at);
        for (auto it = first; it != last; ++it)
            if (it->second == id) return void(sorted.erase(it));
        FAIL();
    };
    bool inside = false;
    unsigned long total = 0, sets = 0, clears = 0;
    std::function<void()> change;
    const Firing fired = [&](Tq4_timer_callback *firing) {
        const uint64_t id = number(*firing->timerid);
        ASSERT_TRUE(model.contains(id));
        Due &entry = model.at(id);
        ++total;
        ASSERT_LE(std::abs(entry.at - now), 1) << "one tick at most, where a rest on a higher level is 0";
        ASSERT_EQ(firing->repeat, ++entry.fired);
        ASSERT_EQ(firing->elapse, entry.elapse);
        ASSERT_EQ(firing->closed, entry.count && entry.fired >= entry.count);
        forget(id);
        if (firing->closed) {
            model.erase(id);
        } else {
            entry.elapse += entry.ms;
            const unsigned long rest = entry.ms < 10 ? entry.ms : entry.ms - 10;
            due(id, static_cast<long>(rest / 10 + (rest % 10 >= 5)) + 1);
        }
        if (firing->closed && random() % 4 == 0) { EXPECT_TRUE(wheel.Reset(firing->timerid, 50)) << "in vain"; }
        inside = true;
        if (random() % 4 == 0) change();
        inside = false;
    };
    change = [&] {
        const long outside = inside ? 0 : 1; // what is set in a callback counts from the slot at hand
        unsigned long ms = interval();
        const auto chosen =
            model.empty() ? model.end() : std::next(model.begin(), static_cast<long>(random() % model.size()));
        const unsigned kind = random() % (model.size() > 300 ? 5 : 3);
        if (kind < 2 || chosen == model.end()) {
            const unsigned long count = random() % 3 + (ms < 100000); // the longer ones also without end
            const uint64_t id = number(set(ms, fired, count));
            ms = std::max(ms, 10ul);
            ++sets;
            model[id] = {0, ms, count, 0, ms};
            return due(id, static_cast<long>(ms / 10) + outside);
        }
        const Tq4_id id{static_cast<uint32_t>(chosen->first >> 32), static_cast<uint32_t>(chosen->first)};
        forget(chosen->first);
        if (kind == 2) {
            const unsigned long count = chosen->second.count, again = count ? ms : ms + 100000;
            ASSERT_TRUE(wheel.Reset(&id, again));
            chosen->second = {0, again, count, 0, again};
            return due(chosen->first, static_cast<long>(again / 10) + outside);
        }
        uint64_t passed;
        ASSERT_TRUE(kind == 3 ? wheel.Clear(&id) : wheel.StopWatch(&id, true, &passed));
        ASSERT_TRUE(!wheel.Clear(&id) && !wheel.Reset(&id, 10) && watch(id) == ~0ull);
        ++clears;
        model.erase(chosen);
    };
    const long days = Tq4_checks ? 1 : 4;
    while (now < days * 8640000 && !HasFailure()) {
        step(static_cast<long>(random() % 400));
        change();
        ASSERT_TRUE(sorted.empty() || sorted.begin()->first >= now) << "missed";
        ASSERT_LE(model.size(), wheel.Count());
    }
    EXPECT_TRUE(total > 10000 && total == wheel.m_totalTriger && sets == wheel.m_totalSet);
    EXPECT_EQ(clears, wheel.m_totalCancel);
}

TEST_F(Wheel, StopWatchCountsTicksAcrossTheWrapsOfEveryLevel) {
    constexpr uint64_t turn = 1024, before = 3000;
    const std::pair<uint64_t, uint64_t> cases[] = {
        // a wrap that comes soon, and for how many ticks a timer is set
        {turn, 1000},
        {turn * turn, 1000},
        {turn * turn, 500000},
        {turn * turn * turn, 1000},
        {turn * turn * turn, 500000},
        {turn * turn * turn, 400000000},
        {turn * turn * turn * turn, 500000},
        {turn * turn * turn * turn, 400000000},
        {turn * turn * turn * turn, 3 * turn * turn * turn + 5 * turn * turn},
    };
    for (const auto &[wrap, ticks] : cases) {
        const uint64_t start = wrap * 5 - std::min(before, wrap / 2);
        wheel.TurnTo(start);
        const Tq4_id id = set(ticks * 10, nullptr);
        for (uint64_t passed = 0; passed < std::min(2 * before, ticks - 1); ++passed) {
            ASSERT_EQ(watch(id), passed * 10) << wrap << " " << ticks;
            if (ticks > turn && (start + passed + 1) % (turn * turn) == 0 && ticks < turn * turn) break; // moves down
            step();
        }
        uint64_t ms;
        EXPECT_TRUE(wheel.StopWatch(&id, true, &ms) && watch(id) == ~0ull);
    }
}

TEST_F(Wheel, TheHighestLevelKeepsItsOddShift) {
    constexpr uint64_t turn2 = 1 << 20, turn3 = 1 << 30;
    wheel.TurnTo(7 * turn3 - 100);
    std::vector<long> fired;
    set((turn3 + turn2 + 105) * 10, note(fired));
    step(100 + turn2 + 6);
    EXPECT_EQ(fired, (std::vector<long>{100 + turn2 + 6})) << "124 days early";

    // A slot before the current one, and timers that let it come by more than once.
    wheel.TurnTo(0);
    const Tq4_id masked = set(turn3 * 10, nullptr), patient = set(((uint64_t{2} << 40) + turn2) * 10, nullptr),
                 longest = set(~0ul, nullptr);
    wheel.TurnTo((uint64_t{1} << 40) - 1);
    EXPECT_EQ(watch(masked), ((uint64_t{1} << 40) - 1) * 10);
    step();
    EXPECT_EQ(watch(masked), ~0ull) << "had no rest";
    EXPECT_EQ(watch(longest), 0u) << "a whole turn of all levels is not seen";
    wheel.TurnTo(turn3 - 1);
    step();
    EXPECT_EQ(watch(patient), (uint64_t{1} << 40) * 10 + turn3 * 10) << "the first visit of two counts as a turn";
    wheel.TurnTo(turn3 - 1);
    step();
    EXPECT_EQ(watch(patient), 0u) << "placed again for the rest";
    EXPECT_EQ(freed, 2);
}

// --- Functions of the user in the middle of a step ---

TEST_F(Wheel, ATimerMayClearItselfAndKeepsItsDataUntilItsCallbackReturns) {
    for (const bool watches : {false, true})
        for (unsigned long count : {0ul, 1ul}) {
            freed = 0;
            int fired = 0;
            const Firing clear = [&](Tq4_timer_callback *firing) {
                ++fired;
                const Tq4_id id = *firing->timerid;
                uint64_t ms;
                EXPECT_TRUE(watches ? wheel.Reset(&id, 70) && wheel.StopWatch(&id, true, &ms) && ms == 0
                                    : wheel.Clear(&id));
                EXPECT_TRUE(freed == 0 && !wheel.Reset(&id, 10) && !wheel.Clear(&id) && watch(id) == ~0ull);
            };
            set(20, clear, count);
            step(100);
            EXPECT_TRUE(fired == 1 && freed == 1 && wheel.Count() == 0);
        }
}

TEST_F(Wheel, ADeltaFunctionGivesTheIntervalsAndTheEnd) {
    std::vector<long> fired;
    std::vector<std::pair<unsigned long, unsigned long>> asked;
    const auto next = [&](unsigned long times, unsigned long ms) -> unsigned long {
        asked.emplace_back(times, ms);
        const unsigned long intervals[] = {4, 9, 40, 0, TQ4_ALL_ONES};
        return intervals[times - 1];
    };
    uint64_t elapse = 0;
    const Firing on_fire = [&](Tq4_timer_callback *firing) {
        fired.push_back(now);
        elapse = firing->elapse;
    };
    set(Data{.on_fire = on_fire, .next = next}, 30, 0);
    step(100);
    EXPECT_EQ(fired, (std::vector<long>{4, 5, 7, 11, 12}));
    EXPECT_TRUE(elapse == 30 + 4 + 9 + 40 && asked.size() == 5 && asked[4] == std::pair(5ul, 30ul) && freed == 1);

    // It may also clear or reset its timer.
    Tq4_id id;
    fired.clear();
    const auto change = [&](unsigned long times, unsigned long) -> unsigned long {
        EXPECT_TRUE(fired.size() == 1 ? wheel.Reset(&id, 50) : wheel.Clear(&id)) << times;
        return 10;
    };
    id = set(Data{.on_fire = on_fire, .next = change}, 30, 0);
    const long begin = now;
    step(100);
    EXPECT_EQ(fired, (std::vector<long>{begin + 4, begin + 10}));
    EXPECT_TRUE(freed == 2 && wheel.Count() == 0);
}

TEST_F(Wheel, IsLeftAloneByAStepWhoseCallbackReleasedAll) {
    int fired = 0;
    const Firing release = [&](Tq4_timer_callback *) {
        ++fired;
        const int before = freed;
        release_all();
        EXPECT_EQ(freed, before + 2) << "but not its own";
        set(10, [&](Tq4_timer_callback *) { ++fired; }); // the next life
    };
    for (const unsigned long ms : {100ul, 10240ul, 1024 * 10240ul}) {
        fired = freed = 0;
        wheel.TurnTo(0);
        for (int i = 0; i < 3; ++i) set(ms, release, 0);
        step(static_cast<long>(ms / 10) + 1);
        EXPECT_TRUE(fired == 1 && freed == 3 && wheel.Count() == 1) << ms;
        step(2);
        EXPECT_TRUE(fired == 2 && freed == 4 && wheel.Count() == 0) << ms;
    }
    // From a delta function and from a free function, of which the latter comes last.
    set(Data{.next = [&](unsigned long, unsigned long) -> unsigned long { return release_all(), 10; }}, 10, 0);
    set(Data{.on_free = [&] { release_all(); }}, 10);
    set(10, nullptr, 0);
    step(3);
    EXPECT_TRUE(wheel.Count() == 0 && living == 0);
}

TEST_F(Wheel, MeetsRequestsAfterAnInterruptedTick) {
    int fired = 0;
    const Tq4_id first = set(
        10, [&](Tq4_timer_callback *) { ++fired, wheel.Interrupt(); }, 2);
    const Tq4_id second = set(10, [&](Tq4_timer_callback *) { ++fired; });
    step(3);
    EXPECT_EQ(fired, 1);
    EXPECT_TRUE(wheel.Reset(&first, 10) && wheel.Clear(&first) && wheel.Clear(&second));
    EXPECT_EQ(freed, 2);
}

TEST_F(Wheel, AFreeFunctionMaySetAndClear) {
    Tq4_id other = set(50, nullptr), inner{};
    int fired = 0;
    const Tq4_id id = set(Data{.on_free =
                                   [&] {
                                       EXPECT_TRUE(!wheel.Clear(&id) && wheel.Clear(&other));
                                       inner = set(20, [&](Tq4_timer_callback *) { ++fired; });
                                   }},
                          30);
    EXPECT_TRUE(wheel.Clear(&id));
    EXPECT_TRUE(watch(inner) == 0 && freed == 2);
    step(5);
    EXPECT_TRUE(fired == 1 && freed == 3);
}

} // namespace
