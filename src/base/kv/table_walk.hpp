// table_walk.hpp: the way through a table and all the tables in it, entry by entry.
//
// Callers nest tables as deep as they like, so nothing here calls itself: where the walk stands in the tables around
// the innermost one is kept on a stack. Its first levels lie in the walk itself, and most walks take no memory.
//
// Documents are larger than the caches near the processor. When a table is entered, what follows comes near: the first
// entries of the table behind it, and the record of the table behind that one.
#pragma once

#include <vector>

#include "assert.hpp"
#include "base/kv/table.hpp"

class Tq4_table_walk {
    struct Place {
        const Tq4_list_node *last; // borrowed: the entry given last, or what stands before the first
        bool array;
    };
    static constexpr std::size_t few = 8;

    Place m_at; // in the innermost table
    std::size_t m_depth = 0;
    Place m_outer[few];          // in the tables around it, outermost first
    std::vector<Place> m_deeper; // in those that find no place there

public:
    explicit Tq4_table_walk(const Tq4_value_table_obj &outermost) { Begin(outermost); }

    // Of the innermost table: whether its first entry has no key; whether an entry was given; and whether all were.
    bool array() const { return m_at.array; }
    bool begun() const { return m_at.last->prev != nullptr; }
    bool done() const { return is_end(m_at.last->next); }

    // The next entry of the innermost table; null at its end.
    const Tq4_kv_pair *Next() {
        const Tq4_list_node *next = m_at.last->next;
        if (is_end(next)) return nullptr;
        m_at.last = next;
        return &PairAt(next);
    }
    // Gives entries as Next does, to take(entry), up to the first that is not taken.
    template <class Take> void NextWhile(Take take) {
        const Tq4_list_node *last = m_at.last;
        for (const Tq4_list_node *next = last->next; !is_end(next) && take(PairAt(next)); next = next->next)
            last = next;
        m_at.last = last;
    }

    // The table that a value holds; null for none, and for an empty one that is not made yet: nothing is in it.
    static const Tq4_value_table_obj *TableIn(const Tq4_value_obj &v) {
        return Tq4_record<const Tq4_value_table_obj>(v.made_table());
    }
    // The table that the last entry holds becomes the innermost.
    void Enter(const Tq4_value_table_obj &table) {
        TQ4_CHECK(begun() && TableIn(PairAt(m_at.last).value()) == &table);
        Prefetch();
        if (m_depth < few)
            Copy(m_outer[m_depth], m_at);
        else
            m_deeper.push_back(m_at);
        ++m_depth;
        Begin(table);
    }
    // Goes on behind the innermost table. False when it is the outermost.
    bool Leave() {
        if (m_depth == 0) return false;
        if (--m_depth < few) {
            Copy(m_at, m_outer[m_depth]);
        } else {
            m_at = m_deeper.back();
            m_deeper.pop_back();
        }
        return true;
    }

private:
    static bool is_end(const Tq4_list_node *node) { return !node->next; }
    static const Tq4_kv_pair &PairAt(const Tq4_list_node *node) { return static_cast<const Tq4_kv_pair &>(*node); }

    // Field by field: a move of both at once would wait until the writes of each have left the processor.
    static void Copy(Place &to, const Place &from) {
        to.last = from.last;
        to.array = from.array;
    }
    void Begin(const Tq4_value_table_obj &table) {
        const Tq4_list_node *first = table.m_list.first();
        m_at.last = &table.m_list.m_head;
        m_at.array = !is_end(first) && PairAt(first).key().m_type == Tq4_key_type_Unvalid;
    }

    void Prefetch() const {
        const Tq4_list_node *next = m_at.last->next;
        if (is_end(next)) return;
        if (const Tq4_value_table_obj *table = TableIn(PairAt(next).value()))
            Tq4_value_table_obj::PrefetchLines<Tq4_value_table_obj::prefetched>(table->m_list.first());
        if (is_end(next->next)) return;
        // The object and the head of the list. The record is not asked where it lies: it may be far.
        constexpr std::size_t head = sizeof(Tq4_object) + offsetof(Tq4_value_table_obj, m_list);
        if (Tq4_value_table table = PairAt(next->next).value().made_table())
            Tq4_value_table_obj::PrefetchLines<head + 64>(table);
    }
};
