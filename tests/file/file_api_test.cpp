// What the file interface promises about paths that are there, are missing, or are something else than expected.
#include "support/test.hpp"

namespace {

struct File_api : testing::Test {
    Temp_dir dir;
    const Tq4_file_api_ &api = *Tq4_file_api;

    std::string make(const std::string &name, const std::string &text = "") {
        std::ofstream(dir / name) << text;
        return dir / name;
    }
    int copy(const std::string &from, const std::string &to) {
        return api.Copy((dir / from).c_str(), (dir / to).c_str());
    }
    unsigned mode_of(const std::string &name) const {
        return static_cast<unsigned>(fs::status(dir / name).permissions());
    }
    // The names below the directory: what an operation must not leave behind.
    std::vector<std::string> names() const {
        std::vector<std::string> found;
        for (auto &entry : fs::recursive_directory_iterator(dir.path()))
            found.push_back(entry.path().lexically_relative(dir.path()));
        std::sort(found.begin(), found.end());
        return found;
    }
};

TEST_F(File_api, TellsWhatStandsAtAPath) {
    const std::string file = make("file", "12345"), link = dir / "link", broken = dir / "broken";
    fs::create_symlink(file, link);
    fs::create_symlink(dir / "nowhere", broken);
    for (auto &[path, exists, type, size] : {std::tuple(file, 1, Tq4_file_type_regular, 5l),
                                             {link, 1, Tq4_file_type_regular, 5l},
                                             {"/dev/null", 1, Tq4_file_type_none, 0l},
                                             {broken, 0, Tq4_file_type_none, -1l}})
        EXPECT_TRUE(api.Exist(path.c_str()) == exists && api.Type(path.c_str()) == type &&
                    api.Size(path.c_str()) == size)
            << path;
    EXPECT_EQ(api.Type(dir.path().c_str()), Tq4_file_type_directory);
}

TEST_F(File_api, CountsLinesAlsoAnUnendedLastOne) {
    const std::string many(200000, '\n');
    for (auto &[text, lines] :
         {std::pair<std::string, long>{"", 0}, {"\n", 1}, {"a\nb", 2}, {"a\nb\n", 2}, {many, 200000}})
        EXPECT_EQ(api.LineCount(make("text", text).c_str()), lines);
    EXPECT_EQ(api.LineCount(dir.path().c_str()), -1);
    EXPECT_EQ(api.LineCount("/dev/zero"), -1) << "it has no end";
}

TEST_F(File_api, CopiesContentAndModeOverAnExistingFile) {
    const std::string bytes = std::string(100000, 'a') + std::string(100000, '\0') + "end";
    chmod(make("from", bytes).c_str(), 06751);
    make("to", "old");
    EXPECT_EQ(copy("from", "to"), 1);
    EXPECT_EQ(content(dir / "to"), bytes);
    EXPECT_EQ(mode_of("to"), 0751u) << "a copy does not run as its owner";
    EXPECT_EQ(copy("from", "from"), 1);
    EXPECT_EQ(content(dir / "from"), bytes) << "a copy onto itself loses nothing";
    const std::string longest(255, 'n'); // nothing beside it could have its name and more
    for (int times = 0; times < 2; ++times) EXPECT_EQ(copy("from", longest), 1);
    EXPECT_EQ(names(), (Texts{"from", longest, "to"}));
}

TEST_F(File_api, RefusesToCopyOverAnythingButAFile) {
    make("from", "x");
    make("target", "kept");
    fs::create_symlink(dir / "target", dir / "link");
    fs::create_directory(dir / "directory");
    for (const char *to : {"link", "directory", "missing/to"}) EXPECT_EQ(copy("from", to), 0) << to;
    EXPECT_EQ(api.Copy((dir / "from").c_str(), "/dev/null"), 0);
    EXPECT_EQ(copy("directory", "to") + copy("missing", "to"), 0);
    EXPECT_EQ(content(dir / "target"), "kept");
    EXPECT_EQ(names(), (Texts{"directory", "from", "link", "target"}));
}

TEST_F(File_api, RenamesOverAFileAndAcrossFileSystems) {
    make("file", "content");
    make("old");
    EXPECT_EQ(api.Rename((dir / "file").c_str(), (dir / "old").c_str()), 1);
    EXPECT_EQ(api.Rename((dir / "missing").c_str(), (dir / "old").c_str()), 0);
    EXPECT_EQ(content(dir / "old"), "content");
    std::string elsewhere = "/dev/shm/tq4_test_XXXXXX"; // another file system on most machines
    if (!mkdtemp(elsewhere.data())) GTEST_SKIP() << "no other directory to write to";
    EXPECT_EQ(api.Rename((dir / "old").c_str(), (elsewhere + "/moved").c_str()), 1);
    EXPECT_EQ(api.Size((elsewhere + "/moved").c_str()), 7);
    EXPECT_EQ(names(), Texts{});
    fs::remove_all(elsewhere);
}

TEST_F(File_api, MakesDirectoriesWithTheOnesAbove) {
    const std::string deep = "a/" + std::string(200, 'x') + "/" + std::string(200, 'y') + "/z";
    EXPECT_EQ(api.MkDir((dir / deep).c_str(), 0700), 1);
    EXPECT_EQ(api.MkDir((dir / deep).c_str(), 0700), 1) << "it is there already";
    EXPECT_EQ(mode_of(deep), 0700u);
    EXPECT_EQ(api.MkDir((dir / "b/c/").c_str(), 0500), 1);
    EXPECT_EQ(mode_of("b"), 0700u);
    make("file");
    EXPECT_EQ(api.MkDir((dir / "file").c_str(), 0700) + api.MkDir((dir / "file/x").c_str(), 0700), 0);
}

TEST_F(File_api, RemovesATreeWithoutFollowingItsLinks) {
    Temp_dir outside;
    std::ofstream(outside / "precious") << "x";
    std::string deep = "tree";
    for (int i = 0; i < 100; ++i) deep += "/d";
    fs::create_directories(dir / deep);
    make("tree/file");
    fs::create_directory_symlink(outside.path(), dir / "tree/link");
    fs::create_directory_symlink(outside.path(), dir / "link");
    EXPECT_EQ(api.RmDir((dir / "tree").c_str(), 0), 0) << "not empty";
    EXPECT_EQ(api.RmDir((dir / "link/").c_str(), 1), 0);
    EXPECT_EQ(api.RmDir((dir / "tree/").c_str(), 1), 1);
    EXPECT_EQ(names(), Texts{"link"});
    EXPECT_EQ(api.Delete((dir / "link").c_str()), 1);
    EXPECT_EQ(api.Delete(outside.path().c_str()), 0) << "a directory";
    EXPECT_TRUE(fs::exists(outside / "precious"));
}

} // namespace
