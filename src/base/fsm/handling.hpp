// handling.hpp: an item whose event is being handled, and the next event that its handlers have given it.
//
// It belongs to the machine, not to the call. A thread that is killed in a handler runs nothing of the call's end, and
// what the item and the machine refer to must still be there. An item that is reset or deleted in a handler abandons
// it; so the call learns that there is nothing left to move.
#pragma once

#include <string>
#include <utility>

#include "base/fsm/item.hpp"

struct Tq4_fsm_handling {
    Tq4_fsm_item_obj *m_item = nullptr; // borrowed; null when abandoned
    bool m_deferred = false;            // m_recursive waits
    Tq4_fsm_msg m_recursive{};
    std::string m_recursive_text; // of m_recursive
    std::string m_text;           // of the deferred event that is being handled

    void Begin(Tq4_fsm_item_obj &item) {
        m_item = &item;
        item.m_rflag = this;
    }
    void End() {
        if (m_item) m_item->m_rflag = nullptr;
        m_item = nullptr;
    }
    void Abandon() {
        m_item = nullptr;
        m_deferred = false;
    }

    // Keeps an event until the one at hand is over, in place of one that was kept before.
    [[gnu::noinline]] void Defer(const Tq4_fsm_msg &event) {
        m_recursive = event;
        if (event.sMsg) m_recursive_text = event.sMsg;
        m_deferred = true;
    }
    // The event that was kept becomes the one at hand; false when there is none.
    bool Take(Tq4_fsm_msg &event) {
        if (!m_deferred) return false;
        m_deferred = false;
        event = m_recursive;
        std::swap(m_text, m_recursive_text);
        if (event.sMsg) event.sMsg = m_text.c_str();
        return true;
    }
};
