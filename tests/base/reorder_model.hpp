// reorder_model.hpp: a reorder buffer told a second time, without a ring: a map from positions that never wrap to what
// is held there. Drives a buffer beside it and compares all that both show after each operation.
#pragma once

#include <algorithm>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "own.hpp"
#include "tq4/reorder.h"

class Reorder_model {
public:
    using Position = uint64_t;
    struct Slot {
        void *data;
    };
    using Shown = std::vector<std::pair<unsigned, void *>>;

    // The first packet's number is where positions begin; complaints are told once.
    Reorder_model(int size, int max_wait, void (*complain)(const std::string &what))
        : m_complain(complain), m_size(static_cast<unsigned>(std::clamp(size, 1, 65536))),
          m_highest(std::clamp(max_wait, 0, std::max(static_cast<int>(m_size) - 2, 0))) {
        owner = this;
        (*b)->Init(b, size, free_data, max_wait);
    }
    ~Reorder_model() {
        owned.reset();
        expect(m_freed == m_handed, "all data is freed or given back in the end");
        owner = nullptr;
    }

    // --- One operation on both ---

    void cache(unsigned seq, int mode) {
        void *data = fresh();
        if (!m_first) set_first(seq, false);
        const int result = (*b)->CacheItem(b, seq, data, mode);
        expect(result == expected_of_cache(seq, data, mode), "CacheItem " + std::to_string(seq));
        if (result <= 0) free_data(data); // it stayed ours
    }
    void limit(int highest) {
        (*b)->SetMaxwait(b, highest);
        m_highest = std::clamp(highest, 0, std::max(static_cast<int>(m_size) - 2, 0));
        m_hold_back = std::min(m_hold_back, m_highest);
    }
    void append() {
        const bool fits = ready() < m_size;
        expect((*b)->CacheItem(b, 17, nullptr, 0) == fits, "a slot without data");
        if (fits) m_held[m_head + ready()] = {nullptr};
    }
    void get(int wait) {
        unsigned seq = 0;
        int empty = -1;
        void *data = (*b)->GetItemWait(b, &seq, wait, &empty);
        const bool enough = ready() && (wait <= 0 || static_cast<int>(ready()) >= std::max(wait, m_hold_back));
        expect(seq == number(m_head) && empty == !enough, "GetItemWait");
        expect(data == (enough ? m_held[m_head].data : nullptr), "its data");
        if (enough) m_held.erase(m_head++);
        if (data) free_data(data);
    }
    void send() {
        unsigned seq = 0;
        void *data = fresh();
        const bool fits = ready() < m_size;
        const Position next = m_head + ready();
        expect((*b)->SafeWait(b, &seq, data) == fits && (!fits || seq == number(next)), "SafeWait");
        if (fits)
            m_held[next] = {data};
        else
            free_data(data);
    }
    void ack(unsigned seq) {
        const uint32_t distance = seq - number(m_head);
        const int expected = !ready()              ? 0
                             : distance >> 31      ? -3
                             : distance >= m_size  ? -4
                             : distance >= ready() ? -5
                                                   : static_cast<int>(distance) + 1;
        Shown shown, held(expected > 0 ? distance + 1 : 0);
        expect((*b)->Ack(b, seq, keep_odd, &shown) == expected, "Ack " + std::to_string(seq));
        for (auto &one : held) {
            one = {number(m_head), m_held[m_head].data};
            m_held.erase(m_head++);
        }
        expect(shown == held, "what Ack shows");
        for (const auto &[number, data] : shown)
            if (number % 2 && data) free_data(data);
    }
    void set_first(unsigned seq, bool on_both = true) { // while nothing is held
        if (on_both) (*b)->SetFirstSeq(b, seq);
        m_first = true;
        m_base = seq - static_cast<uint32_t>(m_head);
    }

    // --- What both show ---

    void compare() {
        expect((*b)->GetNok(b) == number(m_head), "GetNok");
        expect((*b)->GetSendSeq(b) == number(m_head + ready()) && (*b)->GetNck(b) == (*b)->GetSendSeq(b), "GetSendSeq");
        expect((*b)->IsEmpty(b) == !ready() && (*b)->IsFull(b) == (ready() == m_size), "IsEmpty, IsFull");
        for (const unsigned distance : {0u, 1u, ready(), m_size - 1, m_size, ~0u}) {
            const auto held = m_held.find(m_head + distance);
            void *expected = distance < m_size && ready() && held != m_held.end() ? held->second.data : nullptr;
            expect((*b)->PeekData(b, number(m_head) + distance) == expected, "PeekData");
        }
        Shown all, in_order, expected;
        (*b)->each(b, show, &all);
        (*b)->each_nok(b, show, &in_order);
        for (const auto &[position, slot] : m_held) expected.emplace_back(number(position), slot.data);
        expect(all == expected, "each");
        expected.resize(ready());
        expect(in_order == expected, "each_nok");
    }
    unsigned head() const { return number(m_head); }
    unsigned size() const { return m_size; }
    bool holds_nothing() const { return m_held.empty(); }

private:
    inline static Reorder_model *owner = nullptr; // for the delete function, which has no context

    void (*const m_complain)(const std::string &);
    Tq4_own<Tq4_reorder> owned = Tq4_make<Tq4_reorder>(Tq4_reorder_oitf);
    const Tq4_reorder b = owned.get();
    const unsigned m_size;
    int m_highest;
    int m_hold_back = 0;
    bool m_first = false;
    uint32_t m_base = 0; // the number of position 0
    Position m_head = 0;
    std::map<Position, Slot> m_held;
    std::set<void *> m_alive;
    long m_handed = 0, m_freed = 0;

    void expect(bool holds, const std::string &what) const {
        if (!holds) m_complain(what);
    }
    unsigned number(Position position) const { return m_base + static_cast<uint32_t>(position); }
    unsigned ready() const {
        unsigned n = 0;
        for (auto held = m_held.find(m_head); held != m_held.end() && held->first == m_head + n; ++held) ++n;
        return n;
    }
    void *fresh() {
        void *data = reinterpret_cast<void *>(++m_handed);
        m_alive.insert(data);
        return data;
    }
    static void free_data(void *data) {
        owner->expect(owner->m_alive.erase(data) == 1, "data is freed once");
        ++owner->m_freed;
    }
    static int show(unsigned seq, void *data, void *shown) {
        static_cast<Shown *>(shown)->emplace_back(seq, data);
        return 0;
    }
    static int keep_odd(unsigned seq, void *data, void *shown) {
        show(seq, data, shown);
        return seq % 2 != 0;
    }

    int expected_of_cache(unsigned seq, void *data, int mode) {
        const uint32_t ahead = seq - number(m_head);
        if (ahead >> 31) {
            m_hold_back = std::min(m_hold_back + 1, m_highest);
            return 0;
        }
        const Position position = m_head + ahead;
        if (ahead >= m_size) {
            if (mode >= 0) return -1;
            while (position - m_head >= m_size && ready()) m_held.erase(m_head++);
            if (position - m_head >= m_size) {
                m_held.clear();
                m_head = position;
            }
        }
        const auto held = m_held.find(position);
        if (held != m_held.end()) {
            if (held->second.data) return -100;
            held->second.data = data;
            return 1;
        }
        const bool closes = position == m_head + ready();
        m_held[position] = {data};
        return closes ? static_cast<int>(ready()) : 1;
    }
};
