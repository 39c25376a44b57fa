// What a finder promises: the names that a pattern means, at every depth, in the same order each time.
#include "file/name_pattern.hpp"
#include "support/deep_tree.hpp"
#include "support/fault_sweep.hpp"

namespace {

TEST(NamePattern, Matches) {
    const std::tuple<const char *, Texts, Texts> cases[] = {
        {"", {""}, {"a"}},
        {"abc", {"abc"}, {"abcd", "ab", "Abc"}},
        {"a*c", {"ac", "abbc"}, {"abcb", "bc"}},
        {"*a*b*c", {"xaybzc", "abc"}, {"acb"}},
        {"**ab", {"aab", "ab"}, {"aba"}},
        {"*.*", {"no dot", ".log", ""}, {}},
        {"*.**", {"a.b"}, {"no dot"}},
        {"a?c", {"abc", "a泉c", "a\377c"}, {"ac", "abbc"}},
        {"[a-c泉-湖]x", {"bx", "流x"}, {"dx", "x", "a"}},
        {"[!a-c]", {"d", "泉"}, {"b", ""}},
        {"[]-]", {"]", "-"}, {"[", "a"}},
        {"[*[]x", {"*x", "[x"}, {"ax"}},
        {"[ab", {"[ab"}, {"a"}},
    };
    for (const auto &[pattern, matches, others] : cases) {
        for (auto &name : matches) EXPECT_TRUE(Tq4_name_matches(pattern, name)) << pattern << " on " << name;
        for (auto &name : others) EXPECT_FALSE(Tq4_name_matches(pattern, name)) << pattern << " on " << name;
    }
    std::string stars; // takes no exponential time
    for (int i = 0; i < 60; ++i) stars += "*a";
    EXPECT_FALSE(Tq4_name_matches(stars + "b", std::string(255, 'a')));
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
    // What was found, in order, by the finder's visits.
    Texts find(const std::string &path, int flags) {
        const long count = (*f)->Find(f, (dir / path).c_str(), flags);
        Texts found;
        const Tq4_finder_visitor add = [](const char *visited, void *names) {
            static_cast<Texts *>(names)->push_back(visited);
            return 0;
        };
        (*f)->each(f, add, &found);
        EXPECT_EQ(static_cast<long>(found.size()), count);
        for (std::string &text : found) text.erase(0, dir.path().size() + 1);
        return found;
    }
};

TEST_F(Finder, MatchesNamesInOneDirectory) {
    EXPECT_EQ(find("*.log", Tq4_finder_files), (Texts{"a.log", "broken.log", "z.log"}));
    EXPECT_EQ(find("b/[0-9]*", 0), (Texts{"b/10.log", "b/2.log"}));
    EXPECT_EQ(find("*", Tq4_finder_directories), (Texts{"a.d", "b"}));
    EXPECT_EQ(find("b", 0), (Texts{"b/.hidden", "b/10.log", "b/2.log", "b/deep", "b/loop"})) << "all of a directory";
    EXPECT_EQ(find("nothing*", 0), Texts{});
}

TEST_F(Finder, GoesIntoDirectoriesBelowButNotThroughLinks) {
    const Texts logs{"a.log", "b/10.log", "b/2.log", "b/deep/er/x.log", "broken.log", "z.log"};
    EXPECT_EQ(find("*.log", Tq4_finder_files | Tq4_finder_recursive), logs);
    EXPECT_EQ(find("", Tq4_finder_directories | Tq4_finder_recursive),
              (Texts{"a.d", "b", "b/deep", "b/deep/er", "b/loop"}));
}

TEST_F(Finder, TellsNameSizeAndType) {
    find("b/*", 0);
    EXPECT_STREQ((*f)->Name(f, 1), "10.log");
    EXPECT_EQ((*f)->Size(f, 1), 8u);
    EXPECT_EQ((*f)->Type(f, 1), Tq4_file_type_regular);
    EXPECT_EQ((*f)->Type(f, 4), Tq4_file_type_directory) << "a link is what it leads to";
    EXPECT_EQ((*f)->Path(f, 5), nullptr);
    EXPECT_EQ((*f)->Size(f, 5) + (*f)->Type(f, 5), 0u);
}

TEST_F(Finder, ADirectoryThatCannotBeReadIsNotAnEmptyOne) {
    find("*", 0);
    for (const std::string &path : {dir / "missing/*", std::string()}) {
        EXPECT_EQ((*f)->Find(f, path.empty() ? nullptr : path.c_str(), 0), -1);
        EXPECT_EQ((*f)->Count(f), 0u);
    }
}

TEST_F(Finder, ATreeMayBeDeeperThanAnyPathIsLong) {
    make_deep(dir.path(), 3000);
    const long found = (*f)->Find(f, (dir / "last").c_str(), Tq4_finder_files | Tq4_finder_recursive);
    ASSERT_EQ(found, 1);
    EXPECT_EQ(std::strlen((*f)->Path(f, 0)), dir.path().size() + 3000 * std::strlen(deep_name) + 5);
    EXPECT_EQ((*f)->Size(f, 0), 4u);
    const auto failed = sweep_faults([&](Fault_round &round) {
        const long some = round([&] { return (*f)->Find(f, (dir / "b/*.log").c_str(), Tq4_finder_recursive); });
        EXPECT_TRUE(some == 3 || !round.is_harmless());
        EXPECT_TRUE(some == static_cast<long>((*f)->Count(f)) || (some == -1 && (*f)->Count(f) == 0));
    });
    for (const char *call : {"openat", "readdir", "fstatat"}) EXPECT_TRUE(failed.count(call)) << call;
    EXPECT_EQ(Tq4_file_api->RmDir(dir.path().c_str(), 1), 1);
    EXPECT_FALSE(fs::exists(dir.path()));
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

} // namespace
