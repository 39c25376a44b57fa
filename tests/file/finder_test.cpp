// What a finder promises: the names that a pattern means, at every depth, in the same order each time.
#include "file/name_pattern.hpp"
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
    long find(const std::string &path, int flags) { return (*f)->Find(f, path.c_str(), flags); }
};

TEST_F(Finder, FindsTheNamesThatMatchInTheOrderOfTheirPaths) {
    constexpr int files = Tq4_finder_files, directories = Tq4_finder_directories, recursive = Tq4_finder_recursive;
    const std::tuple<const char *, int, Texts> cases[] = {
        {"*.log", files, {"a.log", "broken.log", "z.log"}},
        {"b/[0-9]*", 0, {"b/10.log", "b/2.log"}},
        {"*", directories, {"a.d", "b"}},
        {"b", 0, {"b/.hidden", "b/10.log", "b/2.log", "b/deep", "b/loop"}}, // all of a directory
        {"nothing*", 0, {}},
        {"*.log", files | recursive, {"a.log", "b/10.log", "b/2.log", "b/deep/er/x.log", "broken.log", "z.log"}},
        {"", directories | recursive, {"a.d", "b", "b/deep", "b/deep/er", "b/loop"}}, // but not through links
    };
    for (const auto &[path, flags, expected] : cases) {
        EXPECT_EQ(find(dir / path, flags), static_cast<long>(expected.size())) << path;
        Texts found;
        const Tq4_finder_visitor add = [](const char *visited, void *names) {
            static_cast<Texts *>(names)->push_back(visited);
            return 0;
        };
        (*f)->each(f, add, &found);
        for (std::string &text : found) text.erase(0, dir.path().size() + 1);
        EXPECT_EQ(found, expected);
    }
    const fs::path before = fs::current_path();
    fs::current_path(dir.path());
    EXPECT_EQ(find("no?e", 0), 1);
    EXPECT_STREQ((*f)->Path(f, 0), "./note");
    fs::current_path(before);
    EXPECT_EQ(find("/pro[c]", 0), 1);
    EXPECT_STREQ((*f)->Path(f, 0), "/proc");
}

TEST_F(Finder, TellsNameSizeAndTypeOfWhatItHasFound) {
    find(dir / "b/*", 0);
    EXPECT_STREQ((*f)->Name(f, 1), "10.log");
    EXPECT_EQ((*f)->Size(f, 1), 8u);
    EXPECT_EQ((*f)->Type(f, 1), Tq4_file_type_regular);
    EXPECT_EQ((*f)->Type(f, 4), Tq4_file_type_directory) << "a link is what it leads to";
    EXPECT_EQ((*f)->Path(f, 5), nullptr);
    EXPECT_EQ((*f)->Size(f, 5) + (*f)->Type(f, 5), 0u);
    const std::string missing = dir / "missing/*"; // is not an empty one
    for (const char *path : {missing.c_str(), (const char *)nullptr}) {
        EXPECT_EQ((*f)->Find(f, path, 0), -1);
        EXPECT_EQ((*f)->Count(f), 0u);
    }
}

// Makes so many directories in one another, below the one given, and in the last the file "last" of four bytes.
void make_deep(const std::string &directory, int levels) {
    int at = open(directory.c_str(), O_PATH | O_CLOEXEC);
    while (levels-- > 0) {
        mkdirat(at, "down", 0700);
        close(std::exchange(at, openat(at, "down", O_PATH | O_CLOEXEC)));
    }
    const int file = openat(at, "last", O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    EXPECT_EQ(::write(file, "last", 4), 4);
    close(file);
    close(at);
}

TEST_F(Finder, ATreeMayBeDeeperThanAnyPathIsLong) {
    make_deep(dir.path(), 3000);
    ASSERT_EQ(find(dir / "last", Tq4_finder_files | Tq4_finder_recursive), 1);
    EXPECT_EQ(std::strlen((*f)->Path(f, 0)), dir.path().size() + 3000 * std::strlen("/down") + 5);
    EXPECT_EQ((*f)->Size(f, 0), 4u);
    sweep_faults({"openat", "readdir", "fstatat"}, [&](Fault_round &round) {
        const long some = round([&] { return find(dir / "b/*.log", Tq4_finder_recursive); });
        EXPECT_TRUE(some == 3 || !round.is_harmless());
        EXPECT_TRUE(some == static_cast<long>((*f)->Count(f)) || (some == -1 && (*f)->Count(f) == 0));
    });
    EXPECT_EQ(Tq4_file_api->RmDir(dir.path().c_str(), 1), 1);
    EXPECT_FALSE(fs::exists(dir.path()));
}

} // namespace
