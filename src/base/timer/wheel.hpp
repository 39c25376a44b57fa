// wheel.hpp: which timers are due at a tick. An engine without threads and clock: ticks in, callbacks out.
//
// Four levels of 1024 slots. A slot of level 0 is one tick; a slot of each higher level is a full turn of the level
// below. m_current[level] is the slot that comes next. A timer lies in a slot of the level that its distance asks for.
// When a higher level reaches that slot, the timer is placed again for the rest, ulDelta ticks, or fires at once when
// there is none. A tick touches one slot, and one more for each level that has turned; placing and taking out are
// constant.
//
// A step of the wheel has four parts, so that every function of the user meets the levels in agreement with each other:
//   1. the current slot of level 0 fires: it is still the current one, so that what is set there counts from it;
//   2. all levels move on, level 0 always, each other one when the one below has turned;
//   3. what has fired and repeats is placed again;
//   4. the slots that the higher levels have left fire or move down, lowest level first, each followed by step 3.
//
// A timer is in one list: a slot's, that of the timers due in this step, or that of the timers to be repeated. While
// its own function runs, it is in none. Functions may do everything with the wheel, also release it all. So a tick
// belongs to one m_life: when it comes back from a function to another life, it ends there and touches nothing.
//
// Level 3 keeps an odd shift: its slots are chosen by the ticks' bits from 20 on instead of 30. Timers of more than 124
// days fire at some time after the rest below 2^30 ticks, deliberately: schedules that were written down depend on it.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "base/pool.hpp"
#include "base/queue/list_node.hpp"
#include "own.hpp"
#include "tq4/timer.h"

// What a set asks for.
struct Tq4_timer_SetParams {
    unsigned long ms;
    unsigned long repeatCount; // 0: without end
    Tq4_timer_OnTimer f_triger;
    Tq4_timer_delta delta_ms; // or null
    void *cbdata;             // borrowed until it is set
    Tq4_timer_free del_cb;    // or null
};

struct Tq4_timer_item {
    Tq4_list_node m_pos; // first: a node of a list is the record that it starts
    Tq4_id m_id;
    unsigned long ulRealTimer; // the interval as set, in milliseconds
    unsigned long ulRepeat;    // how often to fire; 0: without end
    Tq4_timer_OnTimer m_OnTimer;
    Tq4_timer_delta m_delta;
    void *m_cbdata; // owned when there is del_cbdata
    Tq4_timer_free del_cbdata;
    uint64_t m_elapse;      // milliseconds of schedule so far
    uint16_t ulC;           // level 3: at which visit of the slot the timer leaves it (0 and 1: the first)
    uint16_t ulIndex;       // visits so far
    int8_t cQueue;          // level
    int16_t m_first[4];     // m_current of the levels up to it, when it was placed
    unsigned long ulDelta;  // ticks still to wait when the slot is reached
    unsigned long ulTriger; // how often it has fired
};

// A list of timers whose nodes leave it by themselves.
struct Tq4_timer_slot {
    Tq4_list_node head, tail;

    Tq4_timer_slot() { Tq4_list_node_AddNode(&head, &tail); }
    bool empty() const { return head.next == &tail; }
    void Append(Tq4_timer_item &item) { Tq4_list_node_AddNode(tail.prev, &item.m_pos); }
    // All of another slot's come behind these.
    void TakeAll(Tq4_timer_slot &other) {
        if (!other.empty()) Tq4_list_node_Splice(tail.prev, &other.head, &other.tail);
    }
    Tq4_timer_item *TakeFirst(); // null when there is none
};

class Tq4_timer_wheel {
public:
    static constexpr int levels = 4, level_bits = 10, slots = 1 << level_bits;
    static constexpr uint32_t most_timers = 0x1000000;
    static constexpr unsigned tick_ms = 10;

    unsigned long m_totalSet = 0, m_totalCancel = 0, m_totalTriger = 0;

    // owner is handed to the callbacks; mask scrambles the ids.
    Tq4_timer_wheel(Tq4_timer owner, uint64_t mask);
    ~Tq4_timer_wheel() { ReleaseAll(From::outside); }
    Tq4_timer_wheel(const Tq4_timer_wheel &) = delete;
    Tq4_timer_wheel &operator=(const Tq4_timer_wheel &) = delete;

    // The id is written before anything else happens; it may be null.
    bool Set(const Tq4_timer_SetParams &params, Tq4_id *id);
    // These are false when there is no such timer.
    bool Reset(const Tq4_id *id, unsigned long ms);
    bool Clear(const Tq4_id *id);
    bool StopWatch(const Tq4_id *id, bool clear, uint64_t *ms);
    // So many ticks pass, one at least.
    void Tick(long ticks);
    // For any thread: a tick that is under way ends after the timer at hand. Requests are still met; no tick fires
    // anything until ReleaseAll.
    void Interrupt() { m_interrupted = true; }
    // Ends all timers. In a function of the user, a timer's own data is freed when that returns.
    enum class From { outside, function };
    void ReleaseAll(From from);

    unsigned long Count() const { return m_pool.Counts(); }
    // Sets the current slots as they are after that many ticks, and leaves the timers where they are. For tests of what
    // takes longer than anybody lives.
    void TurnTo(uint64_t ticks);

private:
    // A function of the user that runs for a timer; on its stack.
    struct Calling {
        Tq4_timer_item *item;
        bool ended = false;                 // cleared meanwhile: it is not found any more
        void *left_data = nullptr;          // of a timer that was released meanwhile
        Tq4_timer_free free_left = nullptr; // or null
    };
    struct Spot {
        int level;
        unsigned slot;
        uint64_t delta;
        uint64_t turns; // of level 3
    };

    const Tq4_timer itf; // borrowed
    const Tq4_own<Tq4_pool> m_resource;
    Tq4_pool_obj &m_pool;                              // its record, for what happens at each request
    std::unique_ptr<Tq4_timer_slot[]> m_items[levels]; // made when first used
    int16_t m_current[levels] = {};
    Tq4_timer_slot m_due[levels]; // of this step
    Tq4_timer_slot m_repeat;
    Calling *m_calling = nullptr;    // borrowed; null: none runs
    std::atomic<unsigned> m_life{0}; // changes when the timers there are come to their end together
    std::atomic<bool> m_interrupted{false};

    bool GoesOn(unsigned life) const { return m_life == life && !m_interrupted.load(std::memory_order_relaxed); }
    // These are false when the life is over or the tick was interrupted; Call, and what calls once, only for the life.
    bool Step(unsigned life);
    bool WorkOff(int level, unsigned life);
    bool Fire(Tq4_timer_item &item, unsigned life);
    bool Repeat(unsigned life);
    bool Repeat(Tq4_timer_item &item, unsigned life);
    template <class Function> bool Call(Calling &calling, unsigned life, Function function);
    void TakeDue(int level);
    int TurnLevels();

    Tq4_timer_item *Find(const Tq4_id *id) const;
    void End(Tq4_timer_item &item);
    void Release(Tq4_timer_item &item);

    Spot SpotAhead(uint64_t ticks) const;
    void Place(Tq4_timer_item &item, uint64_t ticks);
    Tq4_timer_slot &SlotOf(int level, unsigned slot);
    uint64_t TicksSince(const Tq4_timer_item &item) const;
    void Check(const Tq4_timer_item &item) const;
};
