// table_model.hpp: what a table's index finds, told a second time and plainly, and random operations on both.
//
// The model is a list of entries and 17 chains of places that lead to them. A walk makes choices from any source, which
// has coin() and below(n), and compares the table with the model.
#pragma once

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include "own.hpp"
#include "tq4/value_table.h"

// A place has the bucket of the flags that counted when it was made, and a key of the index's flag.
struct Table_model {
    using Key = Tq4_own<Tq4_key>;
    struct Entry {
        Key key;
        long value;
        int id;
    };
    std::vector<Entry> list;
    std::vector<std::pair<Key, int>> chains[17]; // the newest last
    int flag = 0, nocase = 0, ids = 0;

    static Key copy_of(Tq4_key key) { return Key(static_cast<Tq4_key>(Tq4_key_oitf->Dup(key))); }
    static bool empty(const Key &key) { return (*key)->GetType(key.get()) == Tq4_key_type_Unvalid; }

    template <class Match> int *find(unsigned long hash, Match match) {
        auto &chain = chains[hash % 17];
        const auto at =
            std::find_if(chain.rbegin(), chain.rend(), [&](auto &place) { return match(place.first.get()); });
        return at == chain.rend() ? nullptr : &at->second;
    }
    int *by_key(Tq4_key key) {
        if ((*key)->GetType(key) == Tq4_key_type_Unvalid) return nullptr;
        return find((*key)->Hash(key, nocase), [&](Tq4_key other) { return Tq4_object_Equal(other, key); });
    }
    int *by_text(const char *text) {
        return find(Tq4_key_HashString(text, nocase), [&](Tq4_key key) { return (*key)->EqualS(key, text, nocase); });
    }
    int *by_number(unsigned long n) {
        return find(n, [&](Tq4_key key) { return (*key)->EqualL(key, n); });
    }
    void place(unsigned long hash, Tq4_key key, int id) {
        chains[hash % 17].emplace_back(copy_of(key), id);
        (*key)->SetNoCase(chains[hash % 17].back().first.get(), nocase); // deliberately not its own
    }
    void enter(const Entry &entry) {
        int *known = by_key(entry.key.get());
        if (known)
            *known = entry.id;
        else if (!empty(entry.key))
            place((*entry.key)->Hash(entry.key.get(), nocase), entry.key.get(), entry.id);
    }
    void erase_places(int id) {
        for (auto &chain : chains) std::erase_if(chain, [&](auto &place) { return place.second == id; });
    }
    void leave(const Entry &entry) {
        if (empty(entry.key)) return;
        if (const int *known = by_key(entry.key.get())) erase_places(*known);
        erase_places(entry.id);
    }
    void add(Tq4_key key, long value, bool by_its_key) {
        list.push_back({copy_of(key), value, ++ids});
        if (by_its_key) return enter(list.back());
        const bool text = (*key)->GetType(key) == Tq4_key_type_String;
        place(text ? Tq4_key_HashString((*key)->GetS(key), nocase) : (*key)->GetL(key), key, ids);
    }
    Entry *with(const int *id) {
        for (Entry &entry : list)
            if (id && entry.id == *id) return &entry;
        return nullptr;
    }
    void remove(const int *id) {
        const int gone = id ? *id : 0;
        erase_places(gone);
        std::erase_if(list, [&](const Entry &entry) { return entry.id == gone; });
    }
    Entry &at(std::size_t position) { return list[std::min(position, list.size() - 1)]; }
    void set_key(Entry &entry, Tq4_key key) {
        leave(entry);
        entry.key = copy_of(key);
        enter(entry);
    }
    void clear() {
        list.clear();
        for (auto &chain : chains) chain.clear();
    }
    long value(const int *id) {
        const Entry *entry = with(id);
        return entry ? entry->value : -1;
    }
};

// One walk. Larger ones have more letters to a text and more numbers.
template <class Choices> struct Table_walk {
    Choices &choices;
    const std::size_t largest;
    const unsigned long letters, numbers;
    const Tq4_own<Tq4_value_table> t = Tq4_make<Tq4_value_table>(Tq4_value_table_oitf);
    const Tq4_own<Tq4_key> key = Tq4_make<Tq4_key>(Tq4_key_oitf), folded = Tq4_make<Tq4_key>(Tq4_key_oitf);
    Table_model model = {};
    std::string text = {};
    std::size_t position = 0;
    long step = 0;

    bool coin() { return choices.coin(); }
    unsigned long below(unsigned long n) { return choices.below(n); }

    // One operation, and a look-up by each form of key.
    void Step() {
        ++step;
        choose();
        switch (below(14)) {
        case 0:
            return remove();
        case 1:
            return change_key();
        case 2:
            return below(largest / 8) == 0 ? append() : look_up();
        case 3:
            return below(largest / 8) == 0 ? fold() : look_up();
        case 4:
            return below(8 * largest) == 0 ? clear() : look_up();
        case 5:
            return below(largest) == 0 ? import() : look_up();
        case 6:
        case 7:
            return model.list.size() < largest ? insert() : remove();
        case 8:
        case 9:
            return model.list.size() < largest ? set() : remove();
        default:
            return look_up();
        }
    }
    // The whole list, in order.
    void Compare() {
        const auto shown = model.list.begin();
        Tq4_key seen = nullptr;
        long i = 0;
        for (Tq4_value value = (*t)->First(t.get(), &seen); value; value = (*t)->Next(t.get(), &seen), ++i)
            require(i < static_cast<long>(model.list.size()) && value_of(value) == shown[i].value &&
                    encoded(seen) == encoded(shown[i].key.get()));
        require(i == static_cast<long>(model.list.size()));
    }

private:
    static void require(bool condition) {
        if (!condition) std::abort();
    }
    static std::string encoded(Tq4_key key) {
        const auto out = Tq4_make<Tq4_string>(Tq4_string_oitf);
        (*key)->Dump(key, out.get());
        return {(*out)->c_str(out.get()), static_cast<std::size_t>((*out)->length(out.get()))};
    }
    static long value_of(Tq4_value value) { return value ? (*value)->GetLong(value) : -1; }

    // Letters in two cases; a key of any kind that an encoding can have, with or without a text.
    void choose() {
        text.assign(1 + below(letters), 'a');
        for (char &letter : text) letter = "aAbBcC"[below(6)];
        position = coin() ? below(largest) : coin() ? below(4) : TQ4_ALL_ONES;
        const unsigned kind = coin() ? 4u : static_cast<unsigned>(below(16));
        std::string code(1, static_cast<char>(kind | 0x10 | (coin() ? 0x80 : 0)));
        const bool halves = kind == 3, word = kind == 1;
        if (!halves && !word) code += '\x08';
        code += std::string(word ? 3 : 7, '\0') + static_cast<char>(below(numbers));
        if (halves) std::swap(code[4], code[8]), code[8] = static_cast<char>(below(numbers));
        if (kind == 4 || coin()) {
            code[0] = static_cast<char>(code[0] | 0x60);
            code += std::string(1, '\0') + static_cast<char>(text.size()) + text;
        }
        if (kind == 4) code[0] = static_cast<char>(code[0] & ~0x10), code.erase(1, 9);
        (*key)->Import(key.get(), code.data(), static_cast<int>(code.size()));
    }
    void look_up() {
        require(value_of((*t)->ValueS(t.get(), text.c_str())) == model.value(model.by_text(text.c_str())));
        require(value_of((*t)->ValueK(t.get(), key.get())) == model.value(model.by_key(key.get())));
        const unsigned long n = below(numbers);
        require(value_of((*t)->ValueI(t.get(), n)) == model.value(model.by_number(n)));
    }
    void set() {
        const unsigned long n = below(numbers);
        const bool by_text = coin();
        by_text ? (*t)->SetSI(t.get(), text.c_str(), step) : (*t)->SetII(t.get(), n, step);
        if (Table_model::Entry *known = model.with(by_text ? model.by_text(text.c_str()) : model.by_number(n))) {
            known->value = step;
            return;
        }
        by_text ? (*folded)->SetS(folded.get(), text.c_str(), -1, model.flag)
                : (*folded)->SetL(folded.get(), n, nullptr);
        model.add(folded.get(), step, false);
    }
    void remove() {
        if (coin()) {
            (*t)->RemoveAt(t.get(), static_cast<int>(position));
            if (model.list.empty()) return;
            const int id = model.at(position).id;
            model.leave(model.at(position));
            model.remove(&id);
        } else if (coin()) {
            (*t)->RemoveS(t.get(), text.c_str());
            model.remove(model.by_text(text.c_str()));
        } else {
            (*t)->RemoveK(t.get(), key.get());
            model.remove(model.by_key(key.get()));
        }
    }
    void change_key() {
        const int at = static_cast<int>(position);
        Tq4_key_oitf->Copy(folded.get(), key.get());
        (*folded)->SetNoCase(folded.get(), model.flag);
        const unsigned long form = below(4);
        if (form == 0)
            (*t)->ModifyKeyS(t.get(), at, text.c_str()), (*folded)->SetLS(folded.get(), 0, text.c_str(), model.flag);
        else if (form == 1)
            (*t)->ModifyKeyI(t.get(), at, position), (*folded)->SetLS(folded.get(), position, nullptr, model.flag);
        else if (form == 2)
            (*t)->ModifyKeyK(t.get(), at, nullptr), Tq4_key_oitf->Reset(folded.get());
        else
            (*t)->ModifyKeyK(t.get(), at, key.get());
        if (!model.list.empty()) model.set_key(model.at(position), folded.get());
    }
    void insert() {
        if (below(16) == 0) {
            Tq4_value value = (*t)->InsertAt(t.get(), static_cast<int>(position));
            (*value)->SetLong(value, step);
            const auto before = model.list.begin() + static_cast<long>(std::min(position, model.list.size()));
            model.list.insert(before, {Tq4_make<Tq4_key>(Tq4_key_oitf), step, ++model.ids});
        } else {
            Tq4_value value = (*t)->InsertK(t.get(), key.get());
            (*value)->SetLong(value, step);
            Table_model::Entry *known = model.with(model.by_key(key.get()));
            known ? void(known->value = step) : model.add(key.get(), step, true);
        }
    }
    void append() {
        if (coin()) { // nothing: the flags alone
            const auto empty = Tq4_make<Tq4_value_table>(Tq4_value_table_oitf);
            (*empty)->CaseFlag(empty.get(), model.flag = model.nocase = coin());
            (*t)->Append(t.get(), empty.get());
            return;
        }
        if (8 * model.list.size() > largest) return;
        (*t)->Append(t.get(), t.get());
        model.nocase = model.flag;
        const std::size_t count = model.list.size();
        for (std::size_t i = 0; i < count; ++i) model.add(model.list[i].key.get(), model.list[i].value, true);
    }
    void fold() { (*t)->CaseFlag(t.get(), model.flag = coin()); }
    void clear() {
        model.clear();
        if (coin()) return (*t)->RemoveAll(t.get());
        Tq4_value_table_oitf->Reset(t.get());
        model.flag = model.nocase = 0;
    }
    // What it encodes itself, under another flag.
    void import() {
        const auto out = Tq4_make<Tq4_string>(Tq4_string_oitf);
        (*t)->Dump(t.get(), out.get());
        std::string bytes((*out)->c_str(out.get()), static_cast<std::size_t>((*out)->length(out.get())));
        bytes[0] = coin();
        (*t)->Import(t.get(), bytes.data(), static_cast<int>(bytes.size()));
        Table_model former;
        std::swap(former.list, model.list);
        model.clear();
        model.flag = model.nocase = bytes[0];
        for (const Table_model::Entry &entry : former.list) model.add(entry.key.get(), entry.value, true);
    }
};
