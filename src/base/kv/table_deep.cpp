// table_deep: what is done to a table with all the tables in it.
//
// Callers nest tables as deep as they like. So a function calls itself for a table in a table down to a fixed depth
// alone, which is nearly always enough and costs nothing. The tables below are put off, and done one after another when
// those above them are.
#include <vector>

#include "base/kv/limits.hpp"
#include "base/kv/table.hpp"

using Deep = Tq4_value_table_obj;

namespace {

Tq4_kv_pair *pair_of(Tq4_list_node *node) { return static_cast<Tq4_kv_pair *>(node); }

// The table that a value holds, which is the caller's from now on; null for none.
Tq4_value_table take_table(Tq4_value_obj &value) {
    Tq4_value_table table = value.made_table();
    if (!table) return nullptr;
    value.m_type = Tq4_value_Unknown;
    value.m_data = {};
    return table;
}

} // namespace

// ---- deleting

void Deep::DeleteEntries(Entries &entries) {
    std::vector<Tq4_value_table> put_off; // owned
    EndEntries(entries, put_off, 0);
    while (!put_off.empty()) {
        Tq4_value_table table = put_off.back();
        put_off.pop_back();
        EndTable(table, put_off, 0);
    }
}

void Deep::EndEntries(Entries &entries, std::vector<Tq4_value_table> &put_off, int depth) {
    const Tq4_list &list = entries.list;
    Tq4_kv_pair *following = list.m_count ? pair_of(list.first()) : nullptr;
    while (Tq4_kv_pair *pair = following) {
        following = pair->next == list.end() ? nullptr : pair_of(pair->next);
        if (following) Prefetch(following->value());
        if (Tq4_value_table inner = take_table(pair->value()))
            depth < Tq4_table_recursion_limit ? EndTable(inner, put_off, depth + 1) : put_off.push_back(inner);
        Delete_Tq4_kv_pair(pair);
    }
}

// The table is empty when the hook deletes it.
void Deep::EndTable(Tq4_value_table table, std::vector<Tq4_value_table> &put_off, int depth) {
    auto &record = Tq4_record_of<Deep>(table);
    Entries entries;
    record.Detach(entries);
    EndEntries(entries, put_off, depth);
    Tq4_cxx_support->delete_obj(table);
}

// ---- copying

// In no index yet. The tables in them are whole.
void Deep::CopyEntries(const Deep &source, Tq4_list &copies, Tq4_kv_pair::Room &room) {
    std::vector<Pair> put_off;
    CopyOwnEntries(source, copies, room, put_off, 0);
    while (!put_off.empty()) {
        const Pair next = put_off.back();
        put_off.pop_back();
        next.to->CopyAll(*next.from, put_off, 0);
    }
}

void Deep::CopyOwnEntries(const Deep &source, Tq4_list &copies, Tq4_kv_pair::Room &room, std::vector<Pair> &put_off,
                          int depth) {
    source.EachPair([&](const Tq4_kv_pair &pair) {
        Tq4_kv_pair *copy = Create_Tq4_kv_pair(room.Take());
        copies.Append(copy);
        copy->key().Copy(&pair.key());
        const auto *from = Tq4_record<const Deep>(pair.value().made_table());
        if (!from) {
            copy->value().Copy(&pair.value());
        } else if (Deep *to = copy->value().make_table()) {
            depth < Tq4_table_recursion_limit ? to->CopyAll(*from, put_off, depth + 1) : put_off.push_back({to, from});
        }
        return true;
    });
}

// This table is new.
void Deep::CopyAll(const Deep &source, std::vector<Pair> &put_off, int depth) {
    Tq4_list copies;
    CopyOwnEntries(source, copies, m_room, put_off, depth);
    AppendEntries(copies, source.m_case);
}

// ---- comparing

bool Deep::Equal(const Deep &other) const {
    std::vector<Alike> put_off;
    bool equal = EqualEntries(other, put_off, 0);
    while (equal && !put_off.empty()) {
        const Alike next = put_off.back();
        put_off.pop_back();
        equal = next.mine->EqualEntries(*next.theirs, put_off, 0);
    }
    return equal;
}

// As far as they do not hold tables that are put off.
bool Deep::EqualEntries(const Deep &other, std::vector<Alike> &put_off, int depth) const {
    if (Count() != other.Count()) return false;
    Tq4_list_node *theirs = other.m_list.first();
    bool equal = true;
    EachPair([&](const Tq4_kv_pair &mine) {
        const Tq4_kv_pair &pair = *pair_of(theirs);
        theirs = theirs->next;
        if (!mine.key().Equal(pair.key())) return equal = false;
        const Deep *a = mine.value().table_record(), *b = pair.value().table_record();
        if (!a || !b) return equal = mine.value().Equal(pair.value());
        if (depth < Tq4_table_recursion_limit) return equal = a->EqualEntries(*b, put_off, depth + 1);
        put_off.push_back({a, b});
        return true;
    });
    return equal;
}
