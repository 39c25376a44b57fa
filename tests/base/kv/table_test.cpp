// What a table promises: order of insertion, an index that never leads to what is gone, prints and encodings in order.
#include "base/kv/kv_fixture.hpp"

#include <algorithm>
#include <map>
#include <random>
#include <vector>

namespace {

struct TableTest : testing::Test {
    Table t = new_table();

    unsigned long base(const char *key) { return (*t)->BaseS(t.get(), key); }
    unsigned long count() { return (*t)->Count(t.get()); }
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

TEST_F(TableTest, FindsOrCreatesInOrder) {
    fill({"a", "b"});
    EXPECT_EQ((*t)->SetSI(t.get(), "a", 9), (*t)->ValueS(t.get(), "a"));
    EXPECT_EQ(content(), "a=9 b=2");
    (*t)->SetII(t.get(), 7, 70);
    EXPECT_EQ((*t)->BaseI(t.get(), 7), 70u);
    Key key = new_key();
    (*key)->SetI(key.get(), 7, nullptr);
    EXPECT_EQ((*t)->ValueK(t.get(), key.get()), nullptr) << "another kind of key";
    (*(*t)->InsertK(t.get(), key.get()))->SetLong((*t)->ValueK(t.get(), key.get()), 71);
    EXPECT_EQ(content(), "a=9 b=2 -=70 -=71");
    Tq4_value_table inner = (*t)->InsertTableS(t.get(), "a");
    (*inner)->SetSI(inner, "x", 1);
    EXPECT_EQ((*t)->InsertTableS(t.get(), "a"), inner) << "its content stays";
    EXPECT_EQ((*t)->TableS(t.get(), "a"), inner);
    EXPECT_EQ((*t)->TableS(t.get(), "b"), nullptr);
    EXPECT_EQ((*t)->SetSS(t.get(), nullptr, "x"), nullptr);
    (*t)->RemoveS(t.get(), "b");
    (*t)->RemoveK(t.get(), key.get());
    EXPECT_EQ(count(), 2u);
    EXPECT_EQ(base("b"), 0u);
}

TEST_F(TableTest, PositionsClampAndEntriesChangeTheirKeys) {
    fill({"a", "b", "c"});
    EXPECT_EQ((*t)->At(t.get(), 99, nullptr), (*t)->ValueS(t.get(), "c"));
    EXPECT_EQ((*t)->At(t.get(), -1, nullptr), (*t)->ValueS(t.get(), "c"));
    (*t)->RemoveAt(t.get(), 99);
    EXPECT_EQ(content(), "a=1 b=2");
    (*t)->ModifyKeyS(t.get(), 0, "new");
    EXPECT_EQ(base("a"), 0u);
    EXPECT_EQ(base("new"), 0u) << "kind 6, which look-ups by text do not match";
    Key key = new_key();
    (*key)->SetLS(key.get(), 0, "new", 0);
    EXPECT_EQ((*t)->BaseK(t.get(), key.get()), 1u);
    (*t)->ModifyKeyI(t.get(), 1, 5);
    (*key)->SetLS(key.get(), 5, nullptr, 0);
    EXPECT_EQ((*t)->BaseK(t.get(), key.get()), 2u);
    (*key)->SetS(key.get(), "again", -1, 0);
    (*t)->ModifyKeyK(t.get(), 1, key.get());
    EXPECT_EQ(base("again"), 2u);
    (*t)->ModifyKeyK(t.get(), 1, nullptr);
    EXPECT_EQ(base("again"), 0u);
    EXPECT_EQ(content(), "new=1 -=2");
    (*(*t)->InsertAt(t.get(), 0))->SetLong((*t)->At(t.get(), 0, nullptr), 7);
    EXPECT_EQ(content(), "-=7 new=1 -=2");
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
    EXPECT_EQ((*new_table())->Next(t.get(), nullptr), nullptr);
}

TEST_F(TableTest, AppendingAddsEntriesAndTheNewerOneTakesTheIndex) {
    fill({"a", "b"});
    Table source = new_table();
    (*source)->SetSI(source.get(), "a", 10);
    EXPECT_EQ((*t)->Append(t.get(), source.get()), t.get());
    EXPECT_EQ(content(), "a=1 b=2 a=10");
    EXPECT_EQ(base("a"), 10u);
    (*t)->RemoveAt(t.get(), 2);
    EXPECT_EQ((*t)->ValueS(t.get(), "a"), nullptr) << "the older one is not in the index";
    (*t)->Append(t.get(), t.get());
    EXPECT_EQ(content(), "a=1 b=2 a=1 b=2") << "each once";
    Tq4_value_table inner = (*t)->InsertTableS(t.get(), "in");
    (*inner)->SetSI(inner, "deep", 5);
    Tq4_value_table_oitf->Copy(t.get(), inner);
    EXPECT_EQ(content(), "deep=5") << "a table that lies inside";
    Tq4_value_table_oitf->Copy(t.get(), t.get());
    EXPECT_EQ(count(), 1u);
    Tq4_value_table_oitf->Copy(t.get(), nullptr);
    EXPECT_EQ(count(), 0u) << "copying null empties";
}

TEST_F(TableTest, TheCaseFlagIsForKeysAndTheIndexHasItsOwn) {
    (*t)->CaseFlag(t.get(), 1);
    fill({"Abc"});
    EXPECT_EQ(base("abc"), 0u) << "the index does not know yet";
    Table copy = Table(static_cast<Tq4_value_table>(Tq4_object_Dup(t.get())));
    EXPECT_EQ((*copy)->BaseS(copy.get(), "aBC"), 1u);
    EXPECT_TRUE(Tq4_object_Equal(copy.get(), t.get()));
    Table empty = new_table();
    (*copy)->Append(copy.get(), empty.get());
    EXPECT_EQ(dump(copy)[0], 0) << "flags come also from an empty source";
}

// The list and the index as two plain containers, with keys of one kind and no case flags.
struct TableModel {
    struct Entry {
        Bytes key; // empty: none
        long value;
        int id;
    };
    std::vector<Entry> list;
    std::map<Bytes, int> index; // key to id
    int ids = 0;

    void add(const Bytes &key, long value) {
        list.push_back({key, value, ++ids});
        if (!key.empty()) index[key] = ids;
    }
    std::vector<Entry>::iterator at(std::size_t position) {
        return list.begin() + static_cast<long>(std::min(position, list.size() - 1));
    }
    std::vector<Entry>::iterator found(const Bytes &key) {
        const auto known = index.find(key);
        return std::find_if(list.begin(), list.end(),
                            [&](const Entry &e) { return known != index.end() && e.id == known->second; });
    }
    void remove(std::vector<Entry>::iterator entry) {
        index.erase(entry->key);
        list.erase(entry);
    }
    Bytes content() const {
        Bytes text;
        for (const Entry &e : list)
            text += (text.empty() ? "" : " ") + (e.key.empty() ? "-" : e.key) + "=" + std::to_string(e.value);
        return text;
    }
};

TEST_F(TableTest, DoesWhatAListAndAMapDo) {
    std::mt19937 random(5);
    TableModel model;
    Key key = new_key();
    for (int step = 0; step < 4000; ++step) {
        const Bytes name(1, static_cast<char>('a' + random() % 9));
        const std::size_t position = random() % 12;
        const int at = static_cast<int>(position);
        const auto entry = model.found(name);
        switch (random() % 6) {
        case 0:
            (*t)->SetSI(t.get(), name.c_str(), step);
            entry == model.list.end() ? model.add(name, step) : void(entry->value = step);
            break;
        case 1:
            (*t)->RemoveS(t.get(), name.c_str());
            if (entry != model.list.end()) model.remove(entry);
            break;
        case 2:
            (*t)->RemoveAt(t.get(), at);
            if (!model.list.empty()) model.remove(model.at(position));
            break;
        case 3:
            (*t)->InsertAt(t.get(), at);
            model.list.insert(model.list.begin() + static_cast<long>(std::min(position, model.list.size())),
                              {"", 0, 0});
            break;
        case 4:
            (*key)->SetS(key.get(), name.c_str(), -1, 0);
            (*t)->ModifyKeyK(t.get(), at, key.get());
            if (model.list.empty()) break;
            model.index.erase(model.at(position)->key);
            *model.at(position) = {name, model.at(position)->value, ++model.ids};
            model.index[name] = model.ids;
            break;
        default:
            if (model.list.size() > 20) break;
            (*t)->Append(t.get(), t.get());
            for (const auto &e : std::vector(model.list)) model.add(e.key, e.value);
        }
        ASSERT_EQ(content(), model.content()) << step;
        const auto now = model.found(name);
        const bool known = now != model.list.end();
        ASSERT_EQ((*t)->ValueS(t.get(), name.c_str()) != nullptr, known) << step;
        ASSERT_EQ(base(name.c_str()), known ? static_cast<unsigned long>(now->value) : 0u) << step;
    }
}

// Any sequence of operations, with mixed case flags, duplicates and re-keying: every look-up must lead to a live entry
// of the list (the sanitizers watch), and what it finds must have the key.
TEST_F(TableTest, NoSequenceLeavesTheIndexPointingAtWhatIsGone) {
    for (unsigned seed = 1; seed <= 30; ++seed) {
        std::mt19937 random(seed);
        const auto key_text = [&] {
            Bytes text(1, static_cast<char>('a' + random() % 6));
            if (random() % 2) text[0] ^= 0x20;
            return text;
        };
        Key key = new_key();
        for (int step = 0; step < 600; ++step) {
            const Bytes text = key_text();
            const int at = static_cast<int>(random() % (count() + 1));
            (*key)->SetS(key.get(), text.c_str(), -1, random() % 2);
            switch (random() % 12) {
            case 0:
                (*t)->SetSI(t.get(), text.c_str(), step);
                break;
            case 1:
                (*t)->InsertK(t.get(), key.get());
                break;
            case 2:
                (*t)->RemoveAt(t.get(), at);
                break;
            case 3:
                (*t)->RemoveS(t.get(), text.c_str());
                break;
            case 4:
                (*t)->RemoveK(t.get(), key.get());
                break;
            case 5:
                (*t)->ModifyKeyK(t.get(), at, random() % 4 ? key.get() : nullptr);
                break;
            case 6:
                (*t)->ModifyKeyS(t.get(), at, text.c_str());
                break;
            case 7:
                (*t)->CaseFlag(t.get(), random() % 2);
                break;
            case 8:
                if (count() < 40) (*t)->Append(t.get(), t.get());
                break;
            case 9:
                (*t)->First(t.get(), nullptr);
                break;
            case 10:
                (*t)->Next(t.get(), nullptr);
                break;
            default:
                (*t)->InsertAt(t.get(), at);
            }
            Tq4_value by_text = (*t)->ValueS(t.get(), text.c_str()), by_key = (*t)->ValueK(t.get(), key.get());
            for (Tq4_value found : {by_text, by_key}) {
                bool listed = !found;
                for (unsigned long i = 0; i < count() && !listed; ++i)
                    listed = (*t)->At(t.get(), static_cast<int>(i), nullptr) == found;
                ASSERT_TRUE(listed) << seed << " " << step;
            }
        }
        (*t)->RemoveAll(t.get());
    }
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

// An independent encoder over a plain model, and random nested content.
struct Node {
    std::vector<Bytes> keys; // of a table
    std::vector<Node> members;
    int leaf = 0; // 0: table, 1: int, 2: text
    int number = 0;
    Bytes text;
};
Bytes big_endian(unsigned long n, int width) {
    Bytes b;
    for (int i = width - 1; i >= 0; --i) b += static_cast<char>(n >> (8 * i));
    return b;
}
Bytes encoded(const Node &node) {
    if (node.leaf == 1) return "\x05" + big_endian(static_cast<unsigned>(node.number), 4);
    if (node.leaf == 2) return "\x13" + big_endian(node.text.size(), 4) + node.text;
    Bytes b = "\x20" + Bytes(1, '\0') + big_endian(node.members.size(), 4);
    for (std::size_t i = 0; i < node.keys.size(); ++i)
        b += "\x64" + big_endian(node.keys[i].size(), 2) + node.keys[i] + encoded(node.members[i]);
    return b;
}
Node random_node(std::mt19937 &random, int depth) {
    Node node;
    node.leaf = depth == 0 ? 1 + static_cast<int>(random() % 2) : static_cast<int>(random() % 3);
    node.number = static_cast<int>(random());
    node.text = Bytes(random() % 40, 't');
    for (unsigned i = random() % 8; node.leaf == 0 && i > 0; --i) {
        node.keys.push_back("k" + std::to_string(i) + Bytes(random() % 20, 'x'));
        node.members.push_back(random_node(random, depth - 1));
    }
    return node;
}
void build(const Node &node, Tq4_value value) {
    if (node.leaf == 1) return (*value)->SetInt(value, node.number);
    if (node.leaf == 2) return (*value)->SetString(value, node.text.data(), static_cast<int>(node.text.size()));
    (*value)->Init(value, Tq4_value_Table);
    for (std::size_t i = 0; i < node.keys.size(); ++i)
        build(node.members[i], (*value)->InsertS(value, node.keys[i].c_str()));
}

TEST(TableEncoding, IsWhatAnIndependentEncoderWrites) {
    std::mt19937 random(11);
    for (int round = 0; round < 300; ++round) {
        const Node node = random_node(random, 4);
        Value v = new_value(), back = new_value();
        build(node, v.get());
        const Bytes wire = encoded(node);
        ASSERT_EQ(dump(v), wire);
        ASSERT_EQ(import(back, wire), static_cast<int>(wire.size()));
        EXPECT_TRUE(Tq4_object_Equal(v.get(), back.get()));
    }
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
