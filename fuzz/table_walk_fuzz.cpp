// Random operations on a table, with keys that differ in case and case flags that are mixed at will, beside a model
// that tells plainly what is found: which entry, and in which order all stand.
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <vector>

#include "kv_model.hpp"

namespace {

using Key = Tq4_own<Tq4_key>;
using Table = Tq4_own<Tq4_value_table>;

// A list of entries, and 17 chains of places that lead to them, the newest last. A place has the bucket of the flags
// that counted when it was made, and a key of the index's flag.
struct TableModel {
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
    long value(const int *id) {
        const Entry *entry = with(id);
        return entry ? entry->value : -1;
    }
};

// One walk; each byte of the input is a choice.
struct Walk {
    FuzzedDataProvider &in;
    const Table t = Tq4_make<Tq4_value_table>(Tq4_value_table_oitf);
    TableModel model;
    const Key key = Tq4_make<Tq4_key>(Tq4_key_oitf), folded = Tq4_make<Tq4_key>(Tq4_key_oitf);
    std::string text;
    std::size_t position = 0;
    long step = 0;

    bool coin() { return in.ConsumeBool(); }
    unsigned long below(unsigned long n) { return in.ConsumeIntegralInRange(0ul, n - 1); }

    void choose() {
        text.assign(1 + below(2), "aAbBcC"[below(6)]);
        text[0] = "aAbBcC"[below(6)];
        position = coin() ? below(12) : coin() ? below(4) : TQ4_ALL_ONES;
        const bool nocase = coin();
        const unsigned long kind = below(4), number = below(4);
        if (kind == 0)
            (*key)->SetLS(key.get(), number % 2, coin() ? text.c_str() : nullptr, nocase);
        else if (kind == 1)
            (*key)->SetL(key.get(), number, nullptr);
        else
            (*key)->SetS(key.get(), text.c_str(), -1, nocase);
    }
    void set() {
        const unsigned long n = below(4);
        const bool by_text = coin();
        by_text ? (*t)->SetSI(t.get(), text.c_str(), step) : (*t)->SetII(t.get(), n, step);
        if (TableModel::Entry *known = model.with(by_text ? model.by_text(text.c_str()) : model.by_number(n))) {
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
        if (coin()) {
            Tq4_value value = (*t)->InsertAt(t.get(), static_cast<int>(position));
            (*value)->SetLong(value, step);
            const auto before = model.list.begin() + static_cast<long>(std::min(position, model.list.size()));
            model.list.insert(before, {Tq4_make<Tq4_key>(Tq4_key_oitf), step, ++model.ids});
        } else {
            Tq4_value value = (*t)->InsertK(t.get(), key.get());
            (*value)->SetLong(value, step);
            TableModel::Entry *known = model.with(model.by_key(key.get()));
            known ? void(known->value = step) : model.add(key.get(), step, true);
        }
    }
    void append() {
        if (model.list.size() > 20) return;
        (*t)->Append(t.get(), t.get());
        model.nocase = model.flag;
        const std::size_t count = model.list.size();
        for (std::size_t i = 0; i < count; ++i) model.add(model.list[i].key.get(), model.list[i].value, true);
    }
    void fold() { (*t)->CaseFlag(t.get(), model.flag = coin()); }

    static long value_of(Tq4_value value) { return value ? (*value)->GetLong(value) : -1; }
    void compare() {
        const auto shown = model.list.begin();
        Tq4_key seen = nullptr;
        long i = 0;
        for (Tq4_value value = (*t)->First(t.get(), &seen); value; value = (*t)->Next(t.get(), &seen), ++i)
            require(i < static_cast<long>(model.list.size()) && value_of(value) == shown[i].value &&
                    dump_of(TableModel::copy_of(seen)) == dump_of(shown[i].key));
        require(i == static_cast<long>(model.list.size()));
        require(value_of((*t)->ValueS(t.get(), text.c_str())) == model.value(model.by_text(text.c_str())));
        require(value_of((*t)->ValueK(t.get(), key.get())) == model.value(model.by_key(key.get())));
        require(value_of((*t)->ValueI(t.get(), position % 4)) == model.value(model.by_number(position % 4)));
    }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzedDataProvider in(data, size);
    Walk walk{in};
    using Change = void (Walk::*)();
    for (; in.remaining_bytes() && walk.step < 600; ++walk.step) {
        walk.choose();
        (walk.*in.PickValueInArray<Change>({&Walk::set, &Walk::remove, &Walk::change_key, &Walk::append, &Walk::fold,
                                            &Walk::insert, &Walk::insert}))();
        walk.compare();
    }
    return 0;
}
