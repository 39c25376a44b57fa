// What a finder promises: the names that a pattern means, at every depth, in the same order each time.
#include "tq4/finder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "file/name_pattern.hpp"
#include "own.hpp"
#include "support/temp_dir.hpp"

namespace {

namespace fs = std::filesystem;
using Names = std::vector<std::string>;

TEST(NamePattern, Matches) {
    struct {
        const char *pattern, *name;
        bool matches;
    } const cases[] = {
        {"", "", true},
        {"", "a", false},
        {"*", "", true},
        {"abc", "abc", true},
        {"abc", "abcd", false},
        {"a*c", "abbc", true},
        {"a*c", "abcb", false},
        {"*.log", ".log", true},
        {"*.*", "no dot", true},
        {"*.**", "no dot", false},
        {"a?c", "abc", true},
        {"a?c", "ac", false},
        {"?", "泉", true},
        {"??", "泉", false},
        {"?", "\xff", true},
        {"[泉-湖]", "流", true},
        {"[!泉]", "流", true},
        {"[a-c]x", "bx", true},
        {"[a-c]x", "dx", false},
        {"[!a-c]", "d", true},
        {"[^a-c]", "b", false},
        {"[]]", "]", true},
        {"[!]]", "]", false},
        {"[a-]", "-", true},
        {"[", "[", true},
        {"[ab", "[ab", true},
        {"[ab", "a", false},
        {"[*]", "*", true},
        {"[*]", "x", false},
        {"*[0-9]*", "ab7", true},
        {"*a*b*c", "xaybzc", true},
        {"A", "a", false},
        {"**a**", "bab", true},
        {"*ab", "aab", true},
        {"[[]x", "[x", true},
        {"a*", "b", false},
    };
    for (auto &c : cases) EXPECT_EQ(Tq4_name_matches(c.pattern, c.name), c.matches) << c.pattern << " on " << c.name;
}

TEST(NamePattern, ManyStarsTakeNoExponentialTime) {
    std::string pattern;
    for (int i = 0; i < 60; ++i) pattern += "*a";
    EXPECT_FALSE(Tq4_name_matches(pattern + "b", std::string(255, 'a')));
}

struct Finder : testing::Test {
    Temp_dir dir;
    Tq4_own<Tq4_finder> owned = Tq4_make<Tq4_finder>(Tq4_finder_oitf);
    Tq4_finder f = owned.get();

    Finder() {
        for (const char *d : {"b", "b/deep", "b/deep/er", "a.d"}) fs::create_directory(dir / d);
        for (const char *file : {"z.log", "a.log", "b/2.log", "b/10.log", "b/deep/er/x.log", "b/.hidden", "note"})
            std::ofstream(dir / file) << file;
        fs::create_directory_symlink("..", dir / "b/loop");
        fs::create_symlink("nowhere", dir / "broken.log");
    }
    Names find(const std::string &path, int flags) {
        const long count = (*f)->Find(f, (dir / path).c_str(), flags);
        EXPECT_EQ(count, static_cast<long>((*f)->Count(f)));
        Names found;
        for (unsigned long i = 0; i < (*f)->Count(f); ++i)
            found.push_back(std::string((*f)->Path(f, i)).substr(dir.path().size() + 1));
        return found;
    }
};

TEST_F(Finder, MatchesNamesInOneDirectory) {
    EXPECT_EQ(find("*.log", Tq4_finder_files), (Names{"a.log", "broken.log", "z.log"}));
    EXPECT_EQ(find("b/[0-9]*", 0), (Names{"b/10.log", "b/2.log"}));
    EXPECT_EQ(find("*", Tq4_finder_directories), (Names{"a.d", "b"}));
    EXPECT_EQ(find("b", 0), (Names{"b/.hidden", "b/10.log", "b/2.log", "b/deep", "b/loop"})) << "all of a directory";
    EXPECT_EQ(find("nothing*", 0), Names{});
}

TEST_F(Finder, GoesIntoDirectoriesBelowButNotThroughLinks) {
    const Names logs{"a.log", "b/10.log", "b/2.log", "b/deep/er/x.log", "broken.log", "z.log"};
    EXPECT_EQ(find("*.log", Tq4_finder_files | Tq4_finder_recursive), logs);
    EXPECT_EQ(find("", Tq4_finder_directories | Tq4_finder_recursive),
              (Names{"a.d", "b", "b/deep", "b/deep/er", "b/loop"}));
}

TEST_F(Finder, TellsNameSizeAndType) {
    find("b/*", 0);
    EXPECT_STREQ((*f)->Name(f, 1), "10.log");
    EXPECT_EQ((*f)->Size(f, 1), 8u);
    EXPECT_EQ((*f)->Type(f, 1), Tq4_file_type_regular);
    EXPECT_EQ((*f)->Type(f, 4), Tq4_file_type_directory) << "a link is what it leads to";
    EXPECT_EQ((*f)->Path(f, 5), nullptr);
    EXPECT_EQ((*f)->Name(f, TQ4_ALL_ONES), nullptr);
    EXPECT_EQ((*f)->Size(f, 5) + (*f)->Type(f, 5), 0u);
}

TEST_F(Finder, VisitsUntilAVisitorHasSeenEnough) {
    find("*", 0);
    Names seen;
    const Tq4_finder_visitor two = [](const char *path, void *param) {
        auto &names = *static_cast<Names *>(param);
        names.push_back(path);
        return names.size() == 2 ? 7 : 0;
    };
    EXPECT_EQ((*f)->each(f, two, &seen), 7);
    EXPECT_EQ(seen, (Names{dir / "a.d", dir / "a.log"}));
}

TEST_F(Finder, APatternAloneLooksInTheCurrentDirectory) {
    const fs::path before = fs::current_path();
    fs::current_path(dir.path());
    EXPECT_EQ((*f)->Find(f, "no?e", 0), 1);
    EXPECT_STREQ((*f)->Path(f, 0), "./note");
    fs::current_path(before);
    EXPECT_EQ((*f)->Find(f, "/pro[c]", 0), 1);
    EXPECT_STREQ((*f)->Path(f, 0), "/proc");
}

TEST_F(Finder, ADirectoryThatCannotBeReadIsNotAnEmptyOne) {
    find("*", 0);
    EXPECT_EQ((*f)->Find(f, (dir / "missing/*").c_str(), 0), -1);
    EXPECT_EQ((*f)->Find(f, nullptr, 0), -1);
    EXPECT_EQ((*f)->Count(f), 0u);
    EXPECT_EQ((*f)->Find(nullptr, "x", 0), 0);
}

TEST_F(Finder, ADuplicateHasFoundTheSame) {
    find("*", 0);
    Tq4_own<Tq4_finder> copy(static_cast<Tq4_finder>(Tq4_finder_oitf->Dup(f)));
    EXPECT_TRUE(Tq4_finder_oitf->Equal(f, copy.get()));
    (*f)->Find(f, (dir / "*.log").c_str(), 0);
    EXPECT_FALSE(Tq4_finder_oitf->Equal(f, copy.get()));
    EXPECT_EQ((*copy)->Count(copy.get()), 6u);
}

} // namespace
