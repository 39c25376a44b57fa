// What a table promises: order of insertion, an index that never leads to what is gone, prints and encodings in order.
#include "base/kv/kv_fixture.hpp"

#include <algorithm>
#include <functional>
#include <random>
#include <set>
#include <vector>

namespace {

struct TableTest : testing::Test {
    Table t = new_table();

    // "key=number" of every entry in order.
    static Bytes content(Tq4_value_table table) {
        Bytes text;
        (*table)->each(
            table,
            [](Tq4_key key, Tq4_value value, void *out) {
                auto &to = *static_cast<Bytes *>(out);
                const char *name = (*key)->GetS(key);
                to +=
                    (to.empty() ? "" : " ") + Bytes(name ? name : "-") + "=" + std::to_string((*value)->GetLong(value));
                return 0;
            },
            &text);
        return text;
    }
    Bytes content() { return content(t.get()); }
    void fill(std::initializer_list<const char *> keys) {
        long n = 0;
        for (const char *key : keys) (*t)->SetSI(t.get(), key, ++n);
    }
    Bytes echo(int compact) {
        String out = new_string();
        (*t)->Echo(t.get(), append_to, out.get(), compact);
        return text_of(out.get());
    }
};

TEST_F(TableTest, TablesInsideKeepTheirContent) {
    fill({"a", "b"});
    Tq4_value_table inner = (*t)->InsertTableS(t.get(), "a");
    (*inner)->SetSI(inner, "x", 1);
    EXPECT_EQ((*t)->InsertTableS(t.get(), "a"), inner);
    EXPECT_EQ((*t)->TableS(t.get(), "a"), inner);
    EXPECT_EQ((*t)->TableS(t.get(), "b"), nullptr);
    EXPECT_EQ(content(inner), "x=1");
    Tq4_value_table_oitf->Copy(t.get(), inner); // which goes with what it replaces
    EXPECT_EQ(content(), "x=1");
    Tq4_value_table_oitf->Copy(t.get(), t.get());
    EXPECT_EQ(content(), "x=1");
    Tq4_value_table_oitf->Copy(t.get(), nullptr);
    EXPECT_EQ((*t)->Count(t.get()), 0u) << "copying null empties";
    EXPECT_EQ((*t)->SetSS(t.get(), nullptr, "x"), nullptr);
}

TEST_F(TableTest, TheCursorMovesOnWhenItsEntryGoes) {
    fill({"a", "b", "c"});
    Tq4_key key = nullptr;
    (*t)->First(t.get(), &key);
    (*t)->RemoveS(t.get(), "a");
    EXPECT_EQ((*(*t)->Next(t.get(), &key))->GetLong((*t)->ValueS(t.get(), "b")), 2) << "no entry is skipped";
    EXPECT_STREQ((*key)->GetS(key), "b");
    (*t)->Next(t.get(), nullptr);
    (*t)->RemoveAt(t.get(), 1);
    EXPECT_EQ((*t)->Next(t.get(), &key), nullptr);
    EXPECT_EQ(key, nullptr);
    EXPECT_EQ((*new_table())->Next(new_table().get(), nullptr), nullptr);
}

TEST_F(TableTest, VisitorsMayRemoveWhatTheyHaveNotSeenYet) {
    fill({"a", "b"});
    (*t)->Append(t.get(), t.get());
    const auto remove_shown = [](Tq4_key key, Tq4_value, void *table) {
        const auto shown = static_cast<Tq4_value_table>(table);
        (*shown)->RemoveK(shown, key); // the newer entry of that key
        return 0;
    };
    (*t)->each(t.get(), remove_shown, t.get());
    EXPECT_EQ(content(), "a=1 b=2");
    const auto remove_all = [](Tq4_key, Tq4_value, void *table) {
        const auto shown = static_cast<Tq4_value_table>(table);
        (*shown)->RemoveAll(shown);
        return 0;
    };
    (*t)->each(t.get(), remove_all, t.get());
    EXPECT_EQ(content(), "");
}

TEST_F(TableTest, CopiesKnowTheCaseFlagAlsoFromEmptySources) {
    (*t)->CaseFlag(t.get(), 1);
    fill({"Abc"});
    Table copy = Table(static_cast<Tq4_value_table>(Tq4_object_Dup(t.get()))), empty = new_table();
    EXPECT_EQ((*copy)->BaseS(copy.get(), "aBC"), 1u);
    EXPECT_TRUE(Tq4_object_Equal(copy.get(), t.get()));
    EXPECT_EQ((*copy)->Append(copy.get(), empty.get()), copy.get());
    EXPECT_EQ(dump(copy)[0], 0);
}

// The table told plainly: a list of entries, and 17 chains of places that lead to them, the newest first. Case flags
// are mixed at will: a place has the bucket of the flags that counted when it was made, and a key of the index's flag.
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

struct TableWalk : TableTest {
    TableModel model;
    Key key = new_key(), folded = new_key();
    std::mt19937 random;

    bool coin() { return random() % 2; }
    void choose_key(const Bytes &text) {
        const bool nocase = coin();
        const unsigned long kind = random() % 4, number = random();
        if (kind == 0) return (*key)->SetLS(key.get(), number % 2, coin() ? text.c_str() : nullptr, nocase);
        if (kind == 1) return (*key)->SetL(key.get(), number % 4, nullptr);
        (*key)->SetS(key.get(), text.c_str(), -1, nocase);
    }
    void set(const Bytes &text, int step) {
        const unsigned long n = static_cast<unsigned long>(step) % 4;
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
    void remove(const Bytes &text, std::size_t position) {
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
    void change_key(std::size_t position, const Bytes &text) {
        const int at = static_cast<int>(position);
        Tq4_key_oitf->Copy(folded.get(), key.get());
        (*folded)->SetNoCase(folded.get(), model.flag);
        const unsigned long form = random() % 4;
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
    void insert(std::size_t position, int step) {
        if (coin()) {
            (*(*t)->InsertAt(t.get(), static_cast<int>(position)))
                ->SetLong((*t)->At(t.get(), static_cast<int>(position), nullptr), step);
            const auto before = model.list.begin() + static_cast<long>(std::min(position, model.list.size()));
            model.list.insert(before, {new_key(), step, ++model.ids});
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
    Bytes told() {
        Bytes text;
        for (const auto &entry : model.list) text += dump(entry.key) + std::to_string(entry.value) + " ";
        return text;
    }
    Bytes seen() {
        Bytes text;
        Tq4_key shown = nullptr;
        for (Tq4_value value = (*t)->First(t.get(), &shown); value; value = (*t)->Next(t.get(), &shown))
            text += dump(TableModel::copy_of(shown)) + std::to_string((*value)->GetLong(value)) + " ";
        return text;
    }
    static long value_of(Tq4_value value) { return value ? (*value)->GetLong(value) : -1; }
};

TEST_F(TableWalk, DoesWhatAListAndChainsDo) {
    for (unsigned seed = 1; seed <= 20; ++seed, Tq4_value_table_oitf->Reset(t.get()), model = {}) {
        random.seed(seed);
        for (int step = 0; step < 600; ++step) {
            Bytes text(1 + random() % 2, "aAbBcC"[random() % 6]);
            text[0] = "aAbBcC"[random() % 6];
            const std::size_t position = coin() ? random() % 12 : coin() ? random() % 4 : TQ4_ALL_ONES;
            choose_key(text);
            const std::function<void()> changes[] = {
                [&] { set(text, step); },
                [&] { remove(text, position); },
                [&] { change_key(position, text); },
                [&] { append(); },
                [&] { (*t)->CaseFlag(t.get(), model.flag = coin()); },
                [&] { insert(position, step); },
                [&] { insert(position, step); },
            };
            changes[random() % std::size(changes)]();
            ASSERT_EQ(seen(), told()) << seed << " " << step;
            ASSERT_EQ(value_of((*t)->ValueS(t.get(), text.c_str())), model.value(model.by_text(text.c_str())))
                << seed << " " << step;
            ASSERT_EQ(value_of((*t)->ValueK(t.get(), key.get())), model.value(model.by_key(key.get())))
                << seed << " " << step;
            ASSERT_EQ(value_of((*t)->ValueI(t.get(), position % 4)), model.value(model.by_number(position % 4)));
        }
    }
}

// A host that substitutes its own objects sees each one that is nested made and deleted once, and gets those it made.
std::set<const void *> *hosted = nullptr;

template <const Tq4_object_itf *const *module> void *make_hosted() {
    void *handle = (*module)->Create(nullptr);
    hosted->insert(handle);
    return handle;
}
void delete_hosted(void *handle) {
    if (!handle) return;
    EXPECT_EQ(hosted->erase(handle), 1u);
    Tq4_module_delete()(handle);
}

TEST_F(TableTest, AHostMakesAndDeletesWhatIsNested) {
    const Tq4_cxx_support_ defaults = *Tq4_cxx_support;
    std::set<const void *> made;
    hosted = &made;
    Tq4_cxx_support->set_delete(delete_hosted);
    Tq4_cxx_support->set_new_key(make_hosted<&Tq4_key_oitf>);
    Tq4_cxx_support->set_new_value(make_hosted<&Tq4_value_oitf>);
    Tq4_cxx_support->set_new_string(make_hosted<&Tq4_string_oitf>);
    Tq4_cxx_support->set_new_table(make_hosted<&Tq4_value_table_oitf>);
    Tq4_cxx_support->set_new_array(make_hosted<&Tq4_string_array_oitf>);
    {
        Table own = new_table(), back = new_table();
        const Tq4_value text = (*own)->SetSS(own.get(), "text", "x");
        const Tq4_value_table inner = (*own)->InsertTableS(own.get(), "inner");
        (*inner)->SetII(inner, 5, 5);
        const Tq4_value list = (*own)->InsertS(own.get(), "list");
        EXPECT_EQ((*list)->Json_decode(list, "[\"a\"]", -1), 1);
        Tq4_key key = nullptr;
        (*own)->First(own.get(), &key);
        const void *const given[] = {text, inner, list, key, (*text)->GetString(text), (*list)->GetStringArray(list)};
        for (const void *object : given) EXPECT_TRUE(made.contains(object));
        const Bytes wire = dump(own);
        EXPECT_EQ(import(back, wire), static_cast<int>(wire.size()));
        (*back)->Append(back.get(), own.get());
        EXPECT_TRUE(made.contains((*back)->At(back.get(), 0, &key)));
        (*back)->RemoveS(back.get(), "text");
    }
    EXPECT_TRUE(made.empty());
    *Tq4_cxx_support = defaults;
}

TEST_F(TableTest, HandlesDeletedByMistakeLeaveAnEmptyKeyAndValue) {
    const Bytes name(30, 'n');
    Tq4_value value = (*t)->SetSS(t.get(), name.c_str(), name.c_str());
    fill({"b"});
    Tq4_key key = nullptr;
    (*t)->First(t.get(), &key);
    Tq4_key_oitf->Delete(key);
    Tq4_value_oitf->Delete(value);
    EXPECT_EQ(dump(t), from_hex("00 00000002 00 00 64000162 07080000000000000001"));
    (*t)->RemoveS(t.get(), name.c_str());
    EXPECT_EQ(content(), "b=1") << "the index knows it as before";
}

TEST_F(TableTest, PrintsJsonShapedText) {
    EXPECT_EQ(echo(1), "{}");
    EXPECT_EQ(echo(0), "\n{\n}");
    fill({"a"});
    (*t)->SetSS(t.get(), "t", "x\"y");
    Tq4_value_table inner = (*t)->InsertTableS(t.get(), "in");
    (*inner)->SetSI(inner, "n", -1);
    EXPECT_EQ(echo(1), "{\"a\":1,\"t\":\"x\"y\",\"in\":{\"n\":-1}}");
    EXPECT_EQ(echo(0), "\n{\n\"a\":1,\n\"t\":\"x\"y\",\n\"in\":\n\t{\n\t\"n\":-1\n\t}\n}");
    (*t)->RemoveAll(t.get());
    Tq4_value element = (*t)->InsertAt(t.get(), 0);
    (*element)->SetInt(element, 5);
    element = (*t)->InsertAt(t.get(), 1);
    (*element)->SetSI(element, "k", 1);
    EXPECT_EQ(echo(1), "[5,{\"k\":1}]");
    EXPECT_EQ(echo(0), "\n[\n5,\n\t{\n\t\"k\":1\n\t}\n]");
}

TEST_F(TableTest, PrintsEveryKindOfKey) {
    Key key = new_key();
    const auto add = [&] { (*(*t)->InsertK(t.get(), key.get()))->SetInt((*t)->ValueK(t.get(), key.get()), 1); };
    (*key)->SetI(key.get(), 1, nullptr), add();
    (*key)->SetL(key.get(), 1ul << 40, nullptr), add();
    (*key)->SetII(key.get(), 3, 4, nullptr), add();
    (*key)->SetIS(key.get(), 5, "s", 0), add();
    (*key)->SetLS(key.get(), (1ul << 32) + 6, "s", 0), add();
    (*key)->SetIIS(key.get(), 7, 8, "s", 0), add();
    EXPECT_EQ(echo(1), "{\"1\":1,\"1099511627776\":1,\"3_4\":1,\"s_5\":1,\"s_6\":1,\"s_8\"::1}");
    EXPECT_EQ(json(decoded("{}")), "{}");
}

TEST(TableEncoding, EmptyTablesAreFiveBytesAndAResultOfZero) {
    Table t = new_table();
    String out = new_string();
    EXPECT_EQ((*t)->Dump(t.get(), out.get()), 0);
    EXPECT_EQ(text_of(out.get()), Bytes(5, '\0'));
    EXPECT_EQ(import(t, Bytes(4, '\0')), 0);
    EXPECT_EQ((*t)->Import(t.get(), "12345678", -4), 0);
    (*t)->SetSI(t.get(), "a", 1);
    EXPECT_EQ(import(t, from_hex("01 00000009")), 5) << "fewer entries than announced";
    EXPECT_EQ((*t)->Count(t.get()), 0u);
    EXPECT_EQ(dump(t)[0], 1) << "the case flag came along";

    const Bytes wire = from_hex("00 00000001 6400026162 0500000007");
    Tq4_value blob = (*t)->InsertS(t.get(), "blob");
    (*blob)->SetString(blob, wire.data(), static_cast<int>(wire.size()));
    unsigned long n = 0;
    const char *own = (*t)->BytesS(t.get(), "blob", &n);
    EXPECT_EQ((*t)->Import(t.get(), own, static_cast<int>(n)), static_cast<int>(wire.size()));
    EXPECT_EQ((*t)->BaseS(t.get(), "ab"), 7u) << "from the bytes of one of its own values";
    EXPECT_EQ((*t)->Count(t.get()), 1u);
}

} // namespace
