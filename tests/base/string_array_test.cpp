// What a string array promises: fields split by exact rules, strings that it owns, an inverted equality.
#include "support/test.hpp"

namespace {

constexpr unsigned long to_the_nul = TQ4_ALL_ONES;

std::string shown(Tq4_string s) { return s ? text_of(s) : "null"; }

struct StringArray : testing::Test {
    Tq4_own<Tq4_string_array> own = make({});
    Tq4_string_array a = own.get();

    static Tq4_own<Tq4_string_array> make(const Texts &texts) {
        auto array = Tq4_make<Tq4_string_array>(Tq4_string_array_oitf);
        for (const std::string &text : texts) (*array)->Add(array.get(), text.data(), text.size());
        return array;
    }
    static int collect(Tq4_string s, void *texts) { // up to one that says so
        static_cast<Texts *>(texts)->push_back(shown(s));
        return shown(s) == "stop";
    }
    Texts content() {
        Texts texts;
        (*a)->each(a, collect, &texts);
        return texts;
    }
    Texts split(const char *text, int collapse) {
        const unsigned long size = (*a)->Split(a, text, ',', collapse);
        EXPECT_EQ(size, (*a)->Size(a));
        return content();
    }
    Texts split_string(const std::string &text, int collapse) {
        const auto holder = make({text});
        const unsigned long size = (*a)->SplitString(a, (*holder)->Head(holder.get()), ',', collapse);
        EXPECT_EQ(size, (*a)->Size(a));
        return content();
    }
};

TEST_F(StringArray, SplitsByTheRulesOfEitherForm) {
    const struct {
        const char *text;
        int collapse;
        Texts split, split_string;
    } cases[] = {
        {"a,,b", 0, {"a", "", "b"}, {"a", "", "b"}},
        {"a,,b", 1, {"a", "b"}, {"a", "b"}},
        {"a,b,", 0, {"a", "b"}, {"a", "b", ""}},
        {"a,b,,", 1, {"a", "b"}, {"a", "b", ""}},
        {",a", 1, {"", "a"}, {"", "a"}},
        {",,,a", 1, {"", "a"}, {"", "a"}},
        {",", 0, {""}, {"", ""}},
        {"", 0, {}, {""}},
        {"plain", 0, {"plain"}, {"plain"}},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(split(c.text, c.collapse), c.split) << c.text;
        EXPECT_EQ(split_string(c.text, c.collapse), c.split_string) << c.text;
    }
    EXPECT_EQ(split_string(std::string("a\0b,c", 5), 0), (Texts{std::string("a\0b", 3), "c"})) << "NULs are bytes";
    EXPECT_EQ(split(nullptr, 0), Texts{});
    EXPECT_EQ(split("a,stop,b", 0), (Texts{"a", "stop"})) << "a visitor may stop";
}

TEST_F(StringArray, BehavesAsAVectorUnderRandomOperations) {
    std::mt19937 random(1);
    Texts model;
    std::string text;
    unsigned long at = 0, inside = 0, count = 0;
    const auto place = [&] { return model.begin() + static_cast<long>(inside); };
    const std::function<void()> operations[] = {
        [&] { (*a)->Insert(a, at, text.c_str(), to_the_nul), model.insert(place(), text); },
        [&] {
            (*a)->InsertArray(a, at, make({"p", "q"}).get()), model.insert(place(), {"p", "q"});
        },
        [&] { model.push_back(shown((*a)->Add(a, text.data(), text.size()))); },
        [&] {
            (*a)->Remove(a, at, count), model.erase(place(), place() + std::min<long>(count, model.end() - place()));
        },
        [&] { (*a)->RemoveTail(a), model.resize(std::max<size_t>(model.size(), 1) - 1); },
        [&] {
            EXPECT_EQ((*a)->Set(a, at, text.data(), text.size()) != nullptr, at < model.size());
            if (at < model.size()) model[at] = text;
        }};
    for (int step = 0; step < 5000; ++step) {
        text = std::to_string(step), at = random() % (model.size() + 2), count = random() % 3;
        inside = std::min<unsigned long>(at, model.size());
        operations[random() % std::size(operations)]();
        ASSERT_EQ((*a)->Size(a), model.size());
        ASSERT_EQ(shown((*a)->At(a, at)), at < model.size() ? model[at] : "null");
    }
    EXPECT_EQ(content(), model);
    EXPECT_EQ(shown((*a)->Head(a)) + shown((*a)->Tail(a)), model.front() + model.back());
}

TEST_F(StringArray, TakesCopiesAndPiecesOfItself) {
    (*a)->Add(a, "x,y", to_the_nul);
    (*a)->SplitString(a, (*a)->Head(a), ',', 0);
    EXPECT_EQ((*a)->Append(a, a), 4u);
    (*a)->InsertArray(a, 1, a);
    EXPECT_EQ(content(), (Texts{"x", "x", "y", "x", "y", "y", "x", "y"}));
    Tq4_string_array_oitf->Copy(a, a);
    EXPECT_EQ(shown((*a)->AddString(a, (*a)->At(a, 2))), "y");
    (*a)->Set(a, 0, "1,2", to_the_nul);
    (*a)->Split(a, (*(*a)->At(a, 0))->c_str((*a)->At(a, 0)), ',', 0);
    EXPECT_EQ(content(), (Texts{"1", "2"}));
}

TEST_F(StringArray, CopiesButComparesUpsideDown) {
    const auto x = make({"x"}), same = make({"x"}), other = make({"y"}), empty = make({});
    const auto equal = [](auto &p, auto &q) { return Tq4_string_array_oitf->Equal(p.get(), q.get()); };
    EXPECT_EQ(equal(x, x), 1);
    EXPECT_EQ(equal(x, same), 0) << "an equal pair makes them unequal, deliberately";
    EXPECT_EQ(equal(x, other), 1) << "no pair is equal";
    EXPECT_EQ(equal(x, empty), 0) << "sizes differ";
    EXPECT_EQ(Tq4_string_array_oitf->Equal(nullptr, nullptr), 1);
    EXPECT_EQ(Tq4_string_array_oitf->Equal(a, nullptr), 0);
    Tq4_string_array_oitf->Copy(a, nullptr);
    EXPECT_EQ(equal(own, empty), 1) << "both empty";
}

} // namespace
