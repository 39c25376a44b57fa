// send_queue: the texts that wait to be sent on one connection, oldest first, and the marks of its pressure.
//
// An engine: it counts and keeps, and tells its owner what to say and what to write. Texts are counted as units,
// whatever their length. More than Full units is told once, until fewer than Drained wait; more than Most are refused.
#pragma once

#include <cstddef>

#include "own.hpp"
#include "platform/multi_platform_socket.hpp"
#include "tq4/string.h"

class Tq4_send_queue {
public:
    static constexpr unsigned long Full = 2048;
    static constexpr unsigned long Most = 2560;
    static constexpr unsigned long Drained = 1024;
    static constexpr std::size_t Most_blocks = 64;           // of one write
    static constexpr std::size_t Most_bytes = 64ul * 1024ul; // a write stops behind the block that reaches this

    Tq4_send_queue() = default;
    ~Tq4_send_queue() { Clear(); }
    Tq4_send_queue(const Tq4_send_queue &) = delete;
    Tq4_send_queue &operator=(const Tq4_send_queue &) = delete;

    unsigned long count() const { return m_count; }
    // True when fullness is to be told now: it counts as told.
    bool BecomesFull();
    bool Refuses() const { return m_count > Most; }
    void Append(Tq4_hooked<Tq4_string> text);

    // The blocks to write next; returns how many. What was written of them is then taken out, whole units as they end,
    // empty ones too.
    std::size_t Blocks(MP_SOCK_Block (&blocks)[Most_blocks]) const;
    void Written(std::size_t bytes);
    // True when it is to be told that fewer wait again: it counts as told.
    bool HasDrained();
    // Drops all, and the mark.
    void Clear();

private:
    struct Tq4_tcp_data {
        Tq4_hooked<Tq4_string> data;
        std::size_t offset; // bytes already written
        Tq4_tcp_data *next;
    };
    Tq4_tcp_data *m_head = nullptr; // owned, as are those behind it
    Tq4_tcp_data *m_tail = nullptr; // the last one
    unsigned long m_count = 0;
    bool m_full_notify = false; // fullness was told

    void DropHead();
    void Check() const;
};
