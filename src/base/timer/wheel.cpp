// wheel: placing timers, and what is due at each step.
#include "base/timer/wheel.hpp"

#include <algorithm>
#include <utility>

#include "assert.hpp"
#include "thread/cancel.hpp"

namespace {

constexpr uint64_t ticks_of(int level) { return uint64_t{1} << (Tq4_timer_wheel::level_bits * level); } // of one slot
constexpr unsigned masked(uint64_t slot) { return slot % Tq4_timer_wheel::slots; }

// The step in which a timer fires has passed already when it is placed again, so its 10 ms are taken off.
uint64_t ticks_to_repeat(unsigned long interval) {
    const unsigned long ms = interval <= 9 ? interval : interval - 10;
    return ms / Tq4_timer_wheel::tick_ms + (ms % Tq4_timer_wheel::tick_ms >= 5);
}

// Runs a function of the user; there a kill may strike.
template <class Function> void outside(Function function) {
    Tq4_open_kill_gate();
    function();
    Tq4_shut_kill_gate();
}

} // namespace

Tq4_timer_item *Tq4_timer_slot::TakeFirst() {
    if (empty()) return nullptr;
    Tq4_list_node *node = head.next;
    Tq4_list_node_Remove(node);
    return reinterpret_cast<Tq4_timer_item *>(node);
}

// --- Timers ---

static void unlink_item(void *item, unsigned long) {
    Tq4_list_node_Remove(&static_cast<Tq4_timer_item *>(item)->m_pos);
}

static Tq4_own<Tq4_pool> new_pool(uint64_t mask) {
    const Tq4_pool_CreateParams params{.max_res = Tq4_timer_wheel::most_timers,
                                       .Create = [](void *) -> void * { return new Tq4_timer_item(); },
                                       .Delete = [](void *item) { delete static_cast<Tq4_timer_item *>(item); },
                                       .Reset = unlink_item,
                                       .mask = mask};
    return Tq4_make<Tq4_pool>(Tq4_pool_oitf, &params);
}

Tq4_timer_wheel::Tq4_timer_wheel(Tq4_timer owner, uint64_t mask)
    : itf(owner), m_resource(new_pool(mask)), m_pool(Tq4_record_of<Tq4_pool_obj>(m_resource.get())) {}

bool Tq4_timer_wheel::Set(const Tq4_timer_SetParams &params, Tq4_id *id) {
    if (!params.f_triger) return false;
    Tq4_id own;
    auto *item = static_cast<Tq4_timer_item *>(m_pool.Alloc(nullptr, &own));
    if (!item) return false;
    if (id) *id = own;
    item->m_id = own;
    item->ulRealTimer = std::max<unsigned long>(params.ms, tick_ms);
    item->ulRepeat = params.repeatCount;
    item->m_OnTimer = params.f_triger;
    item->m_delta = params.delta_ms;
    item->m_cbdata = params.cbdata;
    item->del_cbdata = params.del_cb;
    item->m_elapse = item->ulRealTimer;
    item->ulTriger = 0;
    Place(*item, item->ulRealTimer / tick_ms);
    ++m_totalSet;
    return true;
}

bool Tq4_timer_wheel::Reset(const Tq4_id *id, unsigned long ms) {
    Tq4_timer_item *item = Find(id);
    if (!item) return false;
    item->ulRealTimer = ms;
    item->m_elapse = ms;
    item->ulTriger = 0;
    Place(*item, ms / tick_ms);
    return true;
}

bool Tq4_timer_wheel::Clear(const Tq4_id *id) {
    Tq4_timer_item *item = Find(id);
    if (item) End(*item);
    return item != nullptr;
}

bool Tq4_timer_wheel::StopWatch(const Tq4_id *id, bool clear, uint64_t *ms) {
    Tq4_timer_item *item = Find(id);
    if (!item) return false;
    *ms = TicksSince(*item) * tick_ms;
    if (clear) End(*item);
    return true;
}

// What was cleared in its own callback is not found any more, though it is there until the callback returns.
Tq4_timer_item *Tq4_timer_wheel::Find(const Tq4_id *id) const {
    auto *item = static_cast<Tq4_timer_item *>(m_pool.Peek(id));
    return m_calling && m_calling->ended && m_calling->item == item ? nullptr : item;
}

void Tq4_timer_wheel::End(Tq4_timer_item &item) {
    ++m_totalCancel;
    if (!m_calling || m_calling->item != &item) return Release(item);
    Tq4_list_node_Remove(&item.m_pos);
    m_calling->ended = true;
}

// The record is the pool's before the user's function runs, and nothing is touched after it.
void Tq4_timer_wheel::Release(Tq4_timer_item &item) {
    const Tq4_id id = item.m_id;
    void *const data = item.m_cbdata;
    const Tq4_timer_free free_data = item.del_cbdata;
    m_pool.Recycle(&id);
    if (free_data) outside([=] { free_data(data); });
}

// From outside, the stack of a function that was killed is gone.
void Tq4_timer_wheel::ReleaseAll(From from) {
    ++m_life;
    m_interrupted = false;
    if (Calling *calling = std::exchange(m_calling, nullptr); calling && from == From::function) {
        calling->left_data = calling->item->m_cbdata;
        calling->free_left = std::exchange(calling->item->del_cbdata, nullptr);
    }
    const auto take_first = [](void *item, void *first) {
        *static_cast<void **>(first) = item;
        return 1;
    };
    for (unsigned long count = Count(); count; --count) { // no more than there are: their functions may set others
        void *first = nullptr;
        m_pool.each(take_first, &first);
        if (!first) return;
        Release(*static_cast<Tq4_timer_item *>(first));
    }
}

// --- Placing ---

// v counts from when all levels below the one at hand turned together.
Tq4_timer_wheel::Spot Tq4_timer_wheel::SpotAhead(uint64_t ticks) const {
    if (ticks < slots) return {0, masked(m_current[0] + ticks), 0, 0};
    uint64_t v = ticks;
    for (int level = 1; level < 3; ++level) {
        const uint64_t each = ticks_of(level);
        v += m_current[level - 1] * ticks_of(level - 1);
        if (v < each * slots) return {level, masked(v / each - 1 + m_current[level]), v % each, 0};
    }
    v += m_current[2] * ticks_of(2);
    const uint64_t odd_each = ticks_of(2); // deliberately not ticks_of(3)
    return {3, masked(v / odd_each - 1 + m_current[3]), v % ticks_of(3), v / ticks_of(4)};
}

void Tq4_timer_wheel::Place(Tq4_timer_item &item, uint64_t ticks) {
    const Spot spot = SpotAhead(ticks);
    item.cQueue = static_cast<int8_t>(spot.level);
    item.ulC = static_cast<uint16_t>(std::min<uint64_t>(spot.turns, UINT16_MAX));
    item.ulIndex = 0;
    item.ulDelta = spot.delta;
    std::copy_n(m_current, spot.level + 1, item.m_first);
    Tq4_list_node_Remove(&item.m_pos);
    SlotOf(spot.level, spot.slot).Append(item);
    Check(item);
}

Tq4_timer_slot &Tq4_timer_wheel::SlotOf(int level, unsigned slot) {
    auto &made = m_items[level];
    if (!made) made = std::make_unique<Tq4_timer_slot[]>(slots);
    return made[slot];
}

// A level that has turned since shows a negative difference, and the turn as one slot more of the level above; the
// highest one has none above.
uint64_t Tq4_timer_wheel::TicksSince(const Tq4_timer_item &item) const {
    int64_t ticks = 0;
    for (int level = 0; level <= item.cQueue; ++level)
        ticks += (m_current[level] - item.m_first[level]) * static_cast<int64_t>(ticks_of(level));
    if (item.cQueue == 3) ticks += item.ulIndex * static_cast<int64_t>(ticks_of(4));
    if (ticks < 0) ticks += static_cast<int64_t>(ticks_of(item.cQueue + 1));
    return static_cast<uint64_t>(ticks);
}

void Tq4_timer_wheel::TurnTo(uint64_t ticks) {
    for (int level = 0; level < levels; ++level)
        m_current[level] = static_cast<int16_t>(masked(ticks / ticks_of(level)));
}

// --- Steps ---

void Tq4_timer_wheel::Tick(long ticks) {
    const unsigned life = m_life;
    do {
        if (!Step(life)) return;
    } while (--ticks > 0);
}

bool Tq4_timer_wheel::Step(unsigned life) {
    TakeDue(0);
    if (!WorkOff(0, life)) return false;
    const int turned = TurnLevels();
    if (!Repeat(life)) return false;
    for (int level = 1; level < turned; ++level)
        if (!WorkOff(level, life) || !Repeat(life)) return false;
    return true;
}

void Tq4_timer_wheel::TakeDue(int level) {
    if (m_items[level]) m_due[level].TakeAll(m_items[level][m_current[level]]);
}

// How many levels have moved on. What a callback has set for the slot of level 0 that it ran in fires at the next tick.
int Tq4_timer_wheel::TurnLevels() {
    const int16_t left = m_current[0];
    int level = 0;
    for (bool turned = true; turned && level < levels; ++level) {
        if (level > 0) TakeDue(level);
        m_current[level] = static_cast<int16_t>(masked(m_current[level] + 1));
        turned = m_current[level] == 0;
    }
    if (m_items[0]) m_items[0][m_current[0]].TakeAll(m_items[0][left]);
    return level;
}

bool Tq4_timer_wheel::WorkOff(int level, unsigned life) {
    while (GoesOn(life)) {
        Tq4_timer_item *item = m_due[level].TakeFirst();
        if (!item) return true;
        if (level == 3 && ++item->ulIndex < item->ulC)
            SlotOf(3, masked(m_current[3] - 1)).Append(*item);
        else if (item->ulDelta)
            Place(*item, item->ulDelta);
        else if (!Fire(*item, life))
            return false;
    }
    return false;
}

bool Tq4_timer_wheel::Fire(Tq4_timer_item &item, unsigned life) {
    ++item.ulTriger;
    ++m_totalTriger;
    const bool last = item.ulRepeat != 0 && item.ulTriger >= item.ulRepeat;
    Tq4_timer_callback firing{&item.m_id, item.ulTriger, item.m_elapse, last, item.m_cbdata};
    Calling calling{&item};
    if (!Call(calling, life, [&] { item.m_OnTimer(itf, &firing); })) return false;
    if (last || calling.ended)
        Release(item);
    else if (!Tq4_list_node_linked(&item.m_pos)) // else it was reset
        m_repeat.Append(item);
    return true;
}

bool Tq4_timer_wheel::Repeat(unsigned life) {
    while (GoesOn(life)) {
        Tq4_timer_item *item = m_repeat.TakeFirst();
        if (!item) return true;
        if (!Repeat(*item, life)) return false;
    }
    return false;
}

bool Tq4_timer_wheel::Repeat(Tq4_timer_item &item, unsigned life) {
    unsigned long interval = item.ulRealTimer;
    bool ended = false;
    if (item.m_delta) {
        const auto ask = [&] { interval = item.m_delta(&item.m_id, item.ulTriger, item.ulRealTimer, item.m_cbdata); };
        Calling calling{&item};
        if (!Call(calling, life, ask)) return false;
        ended = calling.ended || interval == TQ4_ALL_ONES;
    }
    if (ended) {
        Release(item);
    } else if (!Tq4_list_node_linked(&item.m_pos)) { // else it was reset
        item.m_elapse += interval;
        Place(item, ticks_to_repeat(interval));
    }
    return true;
}

// Calls a function of the user for a timer.
template <class Function> bool Tq4_timer_wheel::Call(Calling &calling, unsigned life, Function function) {
    m_calling = &calling;
    outside(function);
    if (m_life == life) {
        m_calling = nullptr;
        return true;
    }
    if (calling.free_left) outside([&] { calling.free_left(calling.left_data); });
    return false;
}

void Tq4_timer_wheel::Check(const Tq4_timer_item &item) const {
    if (!Tq4_checks) return;
    TQ4_CHECK(Tq4_list_node_linked(&item.m_pos) && item.m_pos.next->prev == &item.m_pos &&
              item.m_pos.prev->next == &item.m_pos);
    TQ4_CHECK(item.cQueue >= 0 && item.cQueue < levels && item.ulDelta < ticks_of(item.cQueue));
    TQ4_CHECK(m_pool.Peek(&item.m_id) == &item);
    TQ4_CHECK(item.m_OnTimer &&
              (!item.ulRepeat || item.ulTriger < item.ulRepeat || (m_calling && m_calling->item == &item)));
    for (const int16_t current : m_current) TQ4_CHECK(current >= 0 && current < slots);
}
