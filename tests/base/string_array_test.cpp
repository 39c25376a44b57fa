// What a string array promises: fields split by exact rules, strings that it owns, an inverted equality.
#include "tq4/string_array.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "tq4/cxx_support.h"

namespace {

using Texts = std::vector<std::string>;
constexpr unsigned long to_the_nul = TQ4_ALL_ONES;

std::string text_of(Tq4_string s) {
    return s ? std::string((*s)->c_str(s), static_cast<std::size_t>((*s)->length(s))) : "null";
}

struct StringArray : testing::Test {
    Tq4_string_array a = make({});

    ~StringArray() override { Tq4_string_array_oitf->Delete(a); }

    static Tq4_string_array make(const Texts &texts) {
        auto array = static_cast<Tq4_string_array>(Tq4_string_array_oitf->Create(nullptr));
        for (const std::string &text : texts) (*array)->Add(array, text.data(), text.size());
        return array;
    }
    static Texts content(Tq4_string_array array) {
        Texts texts;
        (*array)->each(
            array, [](Tq4_string s, void *out) { return static_cast<Texts *>(out)->push_back(text_of(s)), 0; }, &texts);
        return texts;
    }
    Texts content() { return content(a); }
    Texts split(const char *text, int collapse) {
        const unsigned long size = (*a)->Split(a, text, ',', collapse);
        EXPECT_EQ(size, (*a)->Size(a));
        return content();
    }
    Texts split_string(const std::string &text, int collapse) {
        auto s = static_cast<Tq4_string>(Tq4_string_oitf->Create(nullptr));
        (*s)->Memcpy(s, text.data(), text.size());
        const unsigned long size = (*a)->SplitString(a, s, ',', collapse);
        EXPECT_EQ(size, (*a)->Size(a));
        Tq4_string_oitf->Delete(s);
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
}

TEST_F(StringArray, SplitsOneOfItsOwnStrings) {
    (*a)->Add(a, "x,y,z", to_the_nul);
    (*a)->SplitString(a, (*a)->Head(a), ',', 0);
    EXPECT_EQ(content(), (Texts{"x", "y", "z"}));
    (*a)->Set(a, 0, "1,2", to_the_nul);
    (*a)->Split(a, (*(*a)->At(a, 0))->c_str((*a)->At(a, 0)), ',', 0);
    EXPECT_EQ(content(), (Texts{"1", "2"}));
}

TEST_F(StringArray, BehavesAsAVectorUnderRandomOperations) {
    std::mt19937 random(1);
    Texts model;
    for (int step = 0; step < 5000; ++step) {
        const std::string text = std::to_string(step);
        const unsigned long at = random() % (model.size() + 2), count = random() % 3;
        const auto place = model.begin() + static_cast<long>(std::min<unsigned long>(at, model.size()));
        switch (random() % 7) {
        case 0:
            (*a)->Insert(a, at, text.c_str(), to_the_nul), model.insert(place, text);
            break;
        case 1:
            EXPECT_EQ(text_of((*a)->Add(a, text.data(), text.size())), text);
            model.push_back(text);
            break;
        case 2: {
            Tq4_string_array other = make({"p", "q"});
            (*a)->InsertArray(a, at, other);
            model.insert(place, {"p", "q"});
            Tq4_string_array_oitf->Delete(other);
            break;
        }
        case 3:
            (*a)->Remove(a, at, count);
            model.erase(place, place + std::min<long>(static_cast<long>(count), model.end() - place));
            break;
        case 4:
            (*a)->RemoveTail(a);
            if (!model.empty()) model.pop_back();
            break;
        case 5:
            EXPECT_EQ((*a)->Set(a, at, text.data(), text.size()) != nullptr, at < model.size());
            if (at < model.size()) model[at] = text;
            break;
        default:
            ASSERT_EQ(text_of((*a)->At(a, at)), at < model.size() ? model[at] : "null");
        }
        ASSERT_EQ((*a)->Size(a), model.size());
    }
    EXPECT_EQ(content(), model);
    EXPECT_EQ(text_of((*a)->Head(a)), model.front());
    EXPECT_EQ(text_of((*a)->Tail(a)), model.back());
}

TEST_F(StringArray, TakesCopiesOfItself) {
    (*a)->Add(a, "x", to_the_nul);
    (*a)->Add(a, "y", to_the_nul);
    EXPECT_EQ((*a)->Append(a, a), 4u);
    (*a)->InsertArray(a, 1, a);
    EXPECT_EQ(content(), (Texts{"x", "x", "y", "x", "y", "y", "x", "y"}));
    Tq4_string_array_oitf->Copy(a, a);
    EXPECT_EQ((*a)->Size(a), 8u);
    EXPECT_EQ(text_of((*a)->AddString(a, (*a)->At(a, 2))), "y");
}

TEST_F(StringArray, CopiesButComparesUpsideDown) {
    Tq4_string_array x = make({"x"}), same = make({"x"}), other = make({"y"});
    const auto equal = [](const void *p, const void *q) { return Tq4_string_array_oitf->Equal(p, q); };
    EXPECT_EQ(equal(x, x), 1);
    EXPECT_EQ(equal(x, same), 0) << "an equal pair makes them unequal, deliberately";
    EXPECT_EQ(equal(x, other), 1) << "no pair is equal";
    EXPECT_EQ(equal(x, a), 0) << "sizes differ";
    EXPECT_EQ(equal(nullptr, nullptr), 1);
    EXPECT_EQ(equal(x, nullptr), 0);
    auto copy = static_cast<Tq4_string_array>(Tq4_object_Dup(other));
    EXPECT_EQ(content(copy), Texts{"y"});
    Tq4_string_array_oitf->Copy(copy, nullptr);
    EXPECT_EQ(equal(copy, a), 1) << "both empty";
    for (Tq4_string_array array : {x, same, other, copy}) Tq4_string_array_oitf->Delete(array);
}

TEST_F(StringArray, MakesItsStringsThroughTheHooks) {
    static int made, deleted;
    made = deleted = 0;
    const Tq4_cxx_support_ saved = *Tq4_cxx_support;
    Tq4_cxx_support->set_new_string([]() -> void * { return ++made, Tq4_string_oitf->Create(nullptr); });
    Tq4_cxx_support->set_delete([](void *s) { ++deleted, Tq4_string_oitf->Delete(s); });
    (*a)->Add(a, "x", to_the_nul);
    (*a)->RemoveAll(a);
    *Tq4_cxx_support = saved;
    EXPECT_EQ(made, 1);
    EXPECT_EQ(deleted, 1);
}

TEST_F(StringArray, VisitsUntilToldToStop) {
    split("a,b,c", 0);
    int visits = 0;
    (*a)->each(
        a, [](Tq4_string, void *n) { return int{++*static_cast<int *>(n) == 2}; }, &visits);
    EXPECT_EQ(visits, 2);
}

} // namespace
