// Settings while the system fails: a save says that it failed exactly when it did, and what it leaves is the old file
// or the new one, whole, and nothing beside it.
#include "support/fault_sweep.hpp"

namespace {

const std::string old_text = "k = 1\n" + std::string(300, '#') + "\n", old_file = old_text;

struct ConfigFault : testing::Test {
    Tq4_own<Tq4_config> owned = Tq4_make<Tq4_config>(Tq4_config_oitf);
    Tq4_config s = owned.get();
    std::string saved = "k = 2\nlong = " + std::string(1000, 'v') + "\n";

    ConfigFault() {
        (*s)->WriteInt(s, "k", 2, 0);
        (*s)->WriteString(s, "long", std::string(1000, 'v').c_str());
    }
    static void write(const std::string &path, const std::string &text) { std::ofstream(path) << text; }
    bool save(Fault_round &round, const std::string &path) {
        return round([&] { return (*s)->Dump(s, path.c_str()); });
    }
    // How many entries a directory has, without the one that a failing removal could not take away.
    static long entries(const Fault_round &round, const std::string &directory) {
        const long found = std::distance(fs::directory_iterator(directory), {});
        return found - (round.happened() && round.is("unlink"));
    }
};

TEST_F(ConfigFault, ASaveLeavesTheOldFileOrTheNewOne) {
    const auto failed = sweep_faults([&](Fault_round &round) {
        const Quick_dir dir;
        const std::string file = dir / "settings.ini";
        write(file, old_file);
        chmod(file.c_str(), 0604);
        const bool done = save(round, file);
        EXPECT_EQ(content(file), done ? saved : old_file);
        EXPECT_TRUE(done || !round.is_harmless());
        EXPECT_EQ(fs::status(file).permissions(), fs::perms{0604});
        EXPECT_LE(entries(round, dir.path()), 1);
    });
    for (const char *call : {"open", "fstatat", "write", "fsync", "rename", "close"})
        EXPECT_TRUE(failed.count(call)) << call;
}

TEST_F(ConfigFault, AFirstSaveLeavesTheWholeFileOrNone) {
    const auto failed = sweep_faults([&](Fault_round &round) {
        const Quick_dir dir;
        const std::string file = dir / "new/settings.ini";
        const bool done = save(round, file);
        EXPECT_EQ(fs::exists(file), done);
        EXPECT_EQ(content(file), done ? saved : "");
        EXPECT_TRUE(done || !round.is_harmless());
        if (fs::exists(dir / "new")) { EXPECT_LE(entries(round, dir / "new"), done); }
    });
    for (const char *call : {"mkdir", "open", "write", "fsync", "rename"}) EXPECT_TRUE(failed.count(call)) << call;
}

// Of a link to a file, and of one to a file that is to be made.
TEST_F(ConfigFault, ASaveThroughALinkNeverReplacesTheLink) {
    for (const bool exists : {true, false})
        sweep_faults([&](Fault_round &round) {
            const Quick_dir dir, elsewhere;
            const std::string link = dir / "link", file = elsewhere / "settings.ini";
            fs::create_symlink(file, link);
            if (exists) write(file, old_file);
            const bool done = save(round, link);
            EXPECT_TRUE(fs::is_symlink(link));
            EXPECT_EQ(content(file), done ? saved : exists ? old_file : "");
            EXPECT_TRUE(done || !round.is_harmless());
            EXPECT_LE(entries(round, elsewhere.path()), 1);
        });
}

// In a directory of others the file is written where it is. A device that has taken half of it and then no byte
// more does not take the old ones back either; that alone is not judged.
TEST_F(ConfigFault, ASaveInPlaceChangesNothingWhenItCannotWriteAll) {
    const uid_t user = geteuid();
    for (const std::string &before : {old_file, old_file + std::string(5000, '#') + "\n"}) {
        const auto failed = sweep_faults([&](Fault_round &round) {
            const Quick_dir dir;
            const std::string file = dir / "settings.ini";
            write(file, before);
            chmod(file.c_str(), 0666);
            chmod(dir.path().c_str(), 0555);
            EXPECT_EQ(seteuid(user ? user : 65534), 0); // nothing is refused to root
            const bool done = save(round, file);
            EXPECT_EQ(seteuid(user), 0);
            chmod(dir.path().c_str(), 0755);
            if (done || !round.leaves_half()) { EXPECT_EQ(content(file), done ? saved : before); }
            EXPECT_TRUE(done || !round.is_harmless());
        });
        for (const char *call : {"read", "write", "fsync"}) EXPECT_TRUE(failed.count(call)) << call;
    }
}

TEST_F(ConfigFault, AFileThatCannotBeReadToItsEndLeavesTheTree) {
    const Quick_dir dir;
    const std::string file = dir / "settings.ini";
    write(file, old_file + std::string(200000, '#') + "\nlast = 1\n");
    sweep_faults([&](Fault_round &round) {
        const auto made = Tq4_make<Tq4_config>(Tq4_config_oitf);
        const Tq4_config c = made.get();
        (*c)->WriteInt(c, "old", 1, 0);
        const int result = round([&] { return (*c)->Read(c, file.c_str()); });
        EXPECT_TRUE(result == 1 || !round.is_harmless());
        EXPECT_STREQ((*c)->ReadString(c, result == 1 ? "last" : "old", "none"), "1");
    });
}

} // namespace
