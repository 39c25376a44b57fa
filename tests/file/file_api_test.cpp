// What the file interface promises about paths that are there, are missing, or are something else than expected, and
// what it leaves behind when the system fails.
#include "support/fault_sweep.hpp"

namespace {

const Tq4_file_api_ &api = *Tq4_file_api;

struct File_api : testing::Test {
    Temp_dir dir;

    static void write(const std::string &path, const std::string &text) { std::ofstream(path) << text; }
    std::string make(const std::string &name, const std::string &text = "") {
        write(dir / name, text);
        return dir / name;
    }
    int copy(const std::string &from, const std::string &to) {
        return api.Copy((dir / from).c_str(), (dir / to).c_str());
    }
    unsigned mode_of(const std::string &name) const {
        return static_cast<unsigned>(fs::status(dir / name).permissions());
    }
    // The names in a directory: what an operation must not leave behind.
    Texts names() const { return names_in(dir.path()); }
    static Texts names_in(const std::string &directory) {
        Texts found;
        for (auto &entry : fs::directory_iterator(directory)) found.push_back(entry.path().filename());
        std::sort(found.begin(), found.end());
        return found;
    }
};

TEST_F(File_api, TellsWhatStandsAtAPathAndHowManyLines) {
    const std::string file = make("file", "12345"), link = dir / "link", broken = dir / "broken";
    const std::string lines = make("lines", std::string(200000, '\n')), open = make("open", "a\nb");
    fs::create_symlink(file, link);
    fs::create_symlink(dir / "nowhere", broken);
    for (auto &[path, exists, type, size, line_count] : {std::tuple(file, 1, Tq4_file_type_regular, 5l, 1l),
                                                         {link, 1, Tq4_file_type_regular, 5l, 1l},
                                                         {lines, 1, Tq4_file_type_regular, 200000l, 200000l},
                                                         {open, 1, Tq4_file_type_regular, 3l, 2l},
                                                         {make("empty"), 1, Tq4_file_type_regular, 0l, 0l},
                                                         {"/dev/zero", 1, Tq4_file_type_none, 0l, -1l}, // it has no end
                                                         {broken, 0, Tq4_file_type_none, -1l, -1l}}) {
        EXPECT_EQ(std::tuple(api.Exist(path.c_str()), api.Type(path.c_str())), std::tuple(exists, type)) << path;
        EXPECT_EQ(std::pair(api.Size(path.c_str()), api.LineCount(path.c_str())), std::pair(size, line_count)) << path;
    }
    EXPECT_EQ(api.Type(dir.path().c_str()), Tq4_file_type_directory);
    EXPECT_EQ(api.LineCount(dir.path().c_str()), -1);
}

TEST_F(File_api, ACopyIsWholeOrNone) {
    const std::string bytes = std::string(100000, 'a') + std::string(100000, '\0') + "end";
    for (const std::string before : {"", "old"}) {
        sweep_faults({"open", "read", "write", "fchmod", "close", "rename"}, [&](Fault_round &round) {
            const Quick_dir quick;
            const std::string from = quick / "from", to = quick / "to";
            write(from, bytes);
            if (!before.empty()) write(to, before);
            const bool done = round.done([&] { return api.Copy(from.c_str(), to.c_str()); });
            EXPECT_TRUE(content(to) == (done ? bytes : before) && content(from) == bytes);
            EXPECT_LE(names_in(quick.path()).size() - round.is("unlink"), 2u);
        });
    }
    chmod(make("from", bytes).c_str(), 06751);
    const std::string longest(255, 'n'); // nothing beside it could have its name and more
    for (const std::string &to : {std::string("to"), std::string("from"), longest, longest}) {
        EXPECT_EQ(copy("from", to), 1);
        EXPECT_TRUE(content(dir / to) == bytes) << to;
        EXPECT_EQ(mode_of(to), 0751u) << "a copy does not run as its owner";
    }
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
    const std::string file = make("file", "content"), old = make("old");
    EXPECT_EQ(api.Rename(file.c_str(), old.c_str()), 1);
    EXPECT_EQ(api.Rename(file.c_str(), old.c_str()), 0);
    EXPECT_EQ(content(old), "content");
    const Quick_dir elsewhere; // another file system on most machines
    EXPECT_EQ(api.Rename(old.c_str(), (elsewhere / "moved").c_str()), 1);
    EXPECT_EQ(content(elsewhere / "moved"), "content");
    EXPECT_EQ(names(), Texts{});
}

TEST_F(File_api, MakesDirectoriesWithTheOnesAbove) {
    const std::string deep = "a/" + std::string(200, 'x') + "/" + std::string(200, 'y') + "/z";
    for (int times = 0; times < 2; ++times) EXPECT_EQ(api.MkDir((dir / deep).c_str(), 0700), 1);
    EXPECT_EQ(mode_of(deep), 0700u);
    EXPECT_EQ(api.MkDir((dir / "b/c/").c_str(), 0500), 1);
    EXPECT_EQ(mode_of("b"), 0700u);
    make("file");
    EXPECT_EQ(api.MkDir((dir / "file").c_str(), 0700) + api.MkDir((dir / "file/x").c_str(), 0700), 0);
}

TEST_F(File_api, RemovesATreeWithoutFollowingItsLinks) {
    Temp_dir outside;
    write(outside / "precious", "x");
    fs::create_directories(dir / "tree/d/d");
    make("tree/file");
    fs::create_directory_symlink(outside.path(), dir / "tree/link");
    fs::create_directory_symlink(outside.path(), dir / "link");
    EXPECT_EQ(api.RmDir((dir / "tree").c_str(), 0), 0) << "not empty";
    for (const char *refused : {"link/", "tree/.", "tree/d/../"})
        EXPECT_EQ(api.RmDir((dir / refused).c_str(), 1), 0) << refused;
    EXPECT_TRUE(fs::exists(dir / "tree/d/d"));
    EXPECT_EQ(api.RmDir((dir / "tree/").c_str(), 1), 1);
    EXPECT_EQ(names(), Texts{"link"});
    EXPECT_EQ(api.Delete((dir / "link").c_str()), 1);
    EXPECT_EQ(api.Delete(outside.path().c_str()), 0) << "a directory";
    EXPECT_TRUE(fs::exists(outside / "precious"));

    sweep_faults({"open", "openat", "fdopendir", "unlinkat", "rmdir"}, [](Fault_round &round) {
        const Quick_dir quick;
        fs::create_directories(quick / "tree/a/b/c");
        fs::create_directories(quick / "tree/d");
        write(quick / "tree/a/b/file", "x");
        const bool done = round.done([&] { return api.RmDir((quick / "tree").c_str(), 1); });
        EXPECT_NE(fs::exists(quick / "tree"), done);
    });
}

} // namespace
