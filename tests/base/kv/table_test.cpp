// What a table promises: order of insertion, prints and encodings in order. What its index finds under any operations
// is compared with a model by a fuzz target.
#include "base/kv/kv_fixture.hpp"

namespace {

struct TableTest : testing::Test {
    Table t = new_table();

    static int add(Tq4_key key, Tq4_value value, void *out) {
        *static_cast<Bytes *>(out) += Bytes((*key)->GetS(key)) + "=" + std::to_string((*value)->GetLong(value)) + " ";
        return 0;
    }
    // "key=number" of every entry in order.
    static Bytes content(Tq4_value_table table) {
        Bytes text;
        (*table)->each(table, add, &text);
        return text;
    }
    void fill(std::initializer_list<const char *> keys) {
        long n = 0;
        for (const char *key : keys) (*t)->SetSI(t.get(), key, ++n);
    }
};

TEST_F(TableTest, TablesInsideKeepTheirContent) {
    fill({"a", "b"});
    Tq4_value_table inner = (*t)->InsertTableS(t.get(), "a");
    (*inner)->SetSI(inner, "x", 1);
    EXPECT_EQ((*t)->InsertTableS(t.get(), "a"), inner);
    EXPECT_EQ((*t)->TableS(t.get(), "a"), inner);
    EXPECT_EQ((*t)->TableS(t.get(), "b"), nullptr);
    EXPECT_EQ(content(inner), "x=1 ");
    Tq4_value_table_oitf->Copy(t.get(), inner); // which goes with what it replaces
    EXPECT_EQ(content(t.get()), "x=1 ");
    Tq4_value_table_oitf->Copy(t.get(), t.get());
    EXPECT_EQ(content(t.get()), "x=1 ");
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
    EXPECT_EQ(content(t.get()), "a=1 b=2 ");
    const auto remove_all = [](Tq4_key, Tq4_value, void *table) {
        const auto shown = static_cast<Tq4_value_table>(table);
        (*shown)->RemoveAll(shown);
        return 0;
    };
    (*t)->each(t.get(), remove_all, t.get());
    EXPECT_EQ(content(t.get()), "");
}

TEST_F(TableTest, TheKeysOfEntriesChangeInTheirPlaces) {
    fill({"a", "b", "c"});
    (*t)->ModifyKeyS(t.get(), 0, "x");
    (*t)->ModifyKeyI(t.get(), 1, 7);
    (*t)->ModifyKeyK(t.get(), 2, nullptr);
    EXPECT_EQ(dump(t), from_hex("00 00000003 66 0001 78 07 08 0000000000000001"
                                " 16 08 0000000000000007 07 08 0000000000000002 00 07 08 0000000000000003"));
    EXPECT_TRUE(!(*t)->ValueS(t.get(), "a") && !(*t)->ValueS(t.get(), "c"));
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

// Decoded empty tables are made when somebody asks for them. Until then they are read like others.
TEST_F(TableTest, EmptyTablesThatNobodyAskedForAreLikeOthers) {
    const Bytes wire = from_hex("20 00 00000002 640001 61 20 00 00000000 640001 62 20 00 00000000");
    const Value unmade = new_value(), made = new_value();
    import(unmade, wire);
    import(made, wire);
    for (const char *key : {"a", "b"}) {
        const Tq4_value inner = (*made)->ValueS(made.get(), key);
        EXPECT_NE((*inner)->GetValueTable(inner), nullptr);
    }
    const auto text = [](const Value &v, int pretty) {
        const String out = new_string();
        EXPECT_EQ((*v)->ToJson(v.get(), out.get(), pretty), 1);
        return text_of(out.get());
    };
    EXPECT_EQ(dump(unmade), wire);
    EXPECT_EQ(json(unmade), json(made));
    for (int flag : {0, 1}) {
        EXPECT_EQ(echoed(unmade, flag), echoed(made, flag));
        EXPECT_EQ(text(unmade, flag), text(made, flag));
    }
    EXPECT_TRUE(Tq4_object_Equal(unmade.get(), made.get()) && Tq4_object_Equal(made.get(), unmade.get()));
    const Value copy = Value(static_cast<Tq4_value>(Tq4_object_Dup(unmade.get())));
    EXPECT_EQ(dump(copy), wire);
    EXPECT_TRUE(Tq4_object_Equal(copy.get(), unmade.get()));
    const Tq4_value inner = (*copy)->ValueS(copy.get(), "a");
    (*inner)->SetSI(inner, "n", 1);
    EXPECT_FALSE(Tq4_object_Equal(copy.get(), unmade.get()) || Tq4_object_Equal(unmade.get(), copy.get()));
}

TEST_F(TableTest, AHostThatMakesNoTableStopsWhatIsDecoded) {
    const Tq4_cxx_support_ defaults = *Tq4_cxx_support;
    const Bytes wire = from_hex("20 00 00000001 61 08 0000000000000001 20 00 00000000");
    Value v = new_value();
    Tq4_cxx_support->set_new_table([]() -> void * { return nullptr; });
    for (const char *text : {"{\"a\":1}", "[[1],[2]]", "[1,{}]"}) {
        long at = 0;
        EXPECT_EQ((*v)->Json_decode(v.get(), text, -1), 0) << text;
        EXPECT_EQ((*v)->FromJson(v.get(), text, -1, &at), 0) << text;
    }
    import(v, wire);
    EXPECT_EQ((*v)->GetValueTable(v.get()), nullptr);
    EXPECT_EQ((*v)->SetSI(v.get(), "a", 1), nullptr);
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
    Tq4_key again = nullptr;
    EXPECT_EQ((*t)->At(t.get(), 0, &again), value) << "the handles are the entry's as before";
    EXPECT_TRUE(again == key && (*key)->GetType(key) == Tq4_key_type_Unvalid && !(*value)->GetString(value));
    (*t)->RemoveS(t.get(), name.c_str());
    EXPECT_EQ(content(t.get()), "b=1 ") << "the index knows it as before";
}

TEST_F(TableTest, IsCopiedComparedDumpedAndDeletedHoweverDeepTablesAreNested) {
    constexpr unsigned long levels = 50000, bytes_a_level = 10;
    Tq4_value_table inner = t.get();
    for (unsigned long i = 0; i < levels; ++i) inner = (*inner)->InsertTableS(inner, "t");
    (*inner)->SetSI(inner, "n", 1);
    Table copy = Table(static_cast<Tq4_value_table>(Tq4_object_Dup(t.get())));
    EXPECT_TRUE(Tq4_object_Equal(copy.get(), t.get()));
    EXPECT_EQ(dump(copy), dump(t));
    EXPECT_EQ(dump(t).size(), levels * bytes_a_level + from_hex("00 00000001 6400016E 07080000000000000001").size());
    (*inner)->SetSI(inner, "n", 2);
    EXPECT_FALSE(Tq4_object_Equal(copy.get(), t.get())) << "the innermost counts";
    (*t)->Append(t.get(), copy.get());
    EXPECT_EQ(dump(t).size(), 5 + 2 * (dump(copy).size() - 5));
    (*t)->RemoveAt(t.get(), 0);
    EXPECT_TRUE(Tq4_object_Equal(copy.get(), t.get()));
}

using Pieces = std::map<char, std::size_t>;
void count_piece(void *pieces, const char *format, ...) { ++(*static_cast<Pieces *>(pieces))[*format]; }

// On a stack with room for no call a level.
TEST_F(TableTest, IsPrintedHoweverDeepTablesAreNested) {
    constexpr std::size_t stack = 256 << 10, levels = 50000, indented_levels = 3000;
    const auto on_small_stack = [](auto work) {
        pthread_attr_t attributes;
        pthread_t thread;
        pthread_attr_init(&attributes);
        ASSERT_EQ(pthread_attr_setstacksize(&attributes, stack), 0);
        const auto run = [](void *given) -> void * { return (*static_cast<decltype(work) *>(given))(), nullptr; };
        ASSERT_EQ(pthread_create(&thread, &attributes, run, &work), 0);
        pthread_join(thread, nullptr);
        pthread_attr_destroy(&attributes);
    };
    Value v = new_value();
    const auto nest = [&](std::size_t n) {
        (*v)->Init(v.get(), Tq4_value_Table);
        Tq4_value_table inner = (*v)->GetValueTable(v.get());
        while (n--) inner = (*inner)->InsertTableS(inner, "t");
    };
    const auto repeated = [](const Bytes &text) {
        Bytes all;
        for (std::size_t i = 0; i < levels; ++i) all += text;
        return all;
    };
    on_small_stack([&] {
        nest(levels);
        const Bytes text = repeated("{\"t\":") + "{}" + repeated("}");
        EXPECT_EQ(json(v), text);
        EXPECT_EQ(echoed(v, 1), text);
        String out = new_string();
        EXPECT_EQ((*v)->ToJson(v.get(), out.get(), 0), 1);
        EXPECT_EQ(text_of(out.get()), text);

        nest(indented_levels);
        Pieces pieces;
        (*v)->Echo(v.get(), count_piece, &pieces, 0);
        const std::size_t n = indented_levels, tabs = 3 * n * (n + 1) / 2 + 2 * (n + 1);
        EXPECT_EQ(pieces, (Pieces{{'\n', 3 * n + 2}, {'\t', tabs}, {'{', n + 1}, {'}', n + 1}, {'"', n}, {':', n}}));
    });
}

TEST_F(TableTest, PrintsJsonShapedText) {
    EXPECT_EQ(echoed(t, 1), "{}");
    EXPECT_EQ(echoed(t, 0), "\n{\n}");
    fill({"a"});
    (*t)->SetSS(t.get(), "t", "x\"y");
    Tq4_value_table inner = (*t)->InsertTableS(t.get(), "in");
    (*inner)->SetSI(inner, "n", -1);
    EXPECT_EQ(echoed(t, 1), "{\"a\":1,\"t\":\"x\"y\",\"in\":{\"n\":-1}}");
    EXPECT_EQ(echoed(t, 0), "\n{\n\"a\":1,\n\"t\":\"x\"y\",\n\"in\":\n\t{\n\t\"n\":-1\n\t}\n}");
    (*t)->RemoveAll(t.get());
    Tq4_value element = (*t)->InsertAt(t.get(), 0);
    (*element)->SetInt(element, 5);
    element = (*t)->InsertAt(t.get(), 1);
    (*element)->SetSI(element, "k", 1);
    EXPECT_EQ(echoed(t, 1), "[5,{\"k\":1}]");
    EXPECT_EQ(echoed(t, 0), "\n[\n5,\n\t{\n\t\"k\":1\n\t}\n]");
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
    EXPECT_EQ(echoed(t, 1), "{\"1\":1,\"1099511627776\":1,\"3_4\":1,\"s_5\":1,\"s_6\":1,\"s_8\"::1}");
}

TEST(TableEncoding, EmptyTablesAreFiveBytesAndAResultOfZero) {
    Table t = new_table();
    String out = new_string();
    EXPECT_EQ((*t)->Dump(t.get(), out.get()), 0);
    EXPECT_EQ(text_of(out.get()), Bytes(5, '\0'));
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
