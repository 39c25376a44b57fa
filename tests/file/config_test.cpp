// Settings: how a file is read, what stands in a tree afterwards, and that writing it loses nothing.
#include <cfloat>

#include "support/fault_sweep.hpp"

namespace {

struct Config : testing::Test {
    Temp_dir directory;
    std::string file = directory / "settings.ini";
    Tq4_own<Tq4_config> own = Tq4_make<Tq4_config>(Tq4_config_oitf);
    Tq4_config s = own.get();

    void read(const std::string &text) {
        std::ofstream(file) << text;
        EXPECT_EQ((*s)->Read(s, file.c_str()), 1);
    }
    std::string dumped() {
        unlink(file.c_str()); // replacing waits for the disk
        EXPECT_EQ((*s)->Dump(s, file.c_str()), 1);
        return content(file);
    }
    // What is written, after checking that it stays the same when it is read and written again, and a copy is equal.
    std::string stable_dump() {
        const std::string first = dumped();
        const Tq4_own<Tq4_config> copy(static_cast<Tq4_config>(Tq4_config_oitf->Dup(s)));
        EXPECT_EQ((*s)->Read(s, file.c_str()), 1);
        EXPECT_TRUE(Tq4_object_Equal(copy.get(), s));
        EXPECT_EQ(dumped(), first);
        return first;
    }
    std::string value(const char *path, const char *key) {
        if (!(*s)->SetSection(s, path)) return "no section";
        const char *text = (*s)->ReadString(s, key, nullptr);
        return text ? text : "no key";
    }
    Texts keys() {
        Texts found;
        for (const char *key = (*s)->GetFirstKey(s); key; key = (*s)->GetNextKey(s)) found.push_back(key);
        return found;
    }
    Texts children() {
        Texts found;
        for (unsigned long i = 0; const char *name = (*s)->GetChildSectionName(s, i); ++i) found.push_back(name);
        return found;
    }
    void set(const char *key, const char *text) { EXPECT_EQ((*s)->WriteString(s, key, text), 1) << key; }
};

TEST_F(Config, ARichFileIsWrittenAsItWasUnderstood) {
    read("\xEF\xBB\xBF  // the first comment\r\n\nname=relay\n"
         "url = \"http://host/\"  the // way in\n"
         "\tport = 0x1f90 // hexadecimal\nhalf = \"open // and commented\n"
         "empty =\nname = again\n"
         "; about the server\n/* several\n   lines\n\nend */ [ server ] // suffix\n"
         "[broken\n<broken\nno assignment\n= no key\nhost = a = b\n"
         "<tls> nested\nfile = /etc/key\n</any name> # behind a tag\nretries = 3\n"
         "[other]\n</other>\nat root = yes\n"
         "[server]\nhost = second\n# the last comment\n");
    EXPECT_EQ(stable_dump(), "// the first comment\nname = relay\n"
                             "url = \"http://host/\" \tthe // way in\n"
                             "port = 0x1f90 \t// hexadecimal\nhalf = \"open \t// and commented\n"
                             "empty = \nat root = yes\n\nname = again\n"
                             "; about the server\n/* several\nlines\n\nend */\n[server] // suffix\n"
                             "[broken\n<broken\nno assignment\n= no key\nhost = a = b\n"
                             "# behind a tag\nretries = 3\n<tls> nested\nfile = /etc/key\n</tls>\n\n"
                             "[server]\nhost = second\n\n[other]\n# the last comment\n");
    EXPECT_EQ(value("", "url"), "http://host/");
    EXPECT_EQ(value("", "half"), "\"open");
    EXPECT_EQ(value("", "name"), "relay") << "the first of two";
    EXPECT_EQ(value("server[1]", "host"), "second");
    EXPECT_EQ(value("server.tls", "file"), "/etc/key");
    EXPECT_STREQ((*s)->FileName(s), file.c_str());
}

TEST_F(Config, APathLeadsFromTheRootAsFarAsItGoes) {
    read("[srv]\n<a>\n<b>\n</b>\n</a>\n[srv]\n<a>\nk=1\n[<srv[x]>]\n[]\nk=2\n<srv[x]>\n[dot.ted]\n");
    const std::tuple<const char *, bool, const char *> cases[] = {
        {"srv.a.b", true, "srv.a.b"},   {"srv[0]", true, "srv[0]"},
        {"srv[1].a", true, "srv[1].a"}, {"srv[01].a[0]", true, "srv[01].a[0]"},
        {"srv[2]", false, ""},          {"srv[99999999999999999999]", false, ""},
        {"srv[-1]", false, ""},         {"srv[1].a.b", false, "srv[1].a"},
        {"srv[1", false, ""},           {"srv[]", false, ""},
        {"srv.", false, "srv"},         {".srv[x]", true, ".srv[x]"},
        {"dot.ted", false, ""},         {"", true, ""},
    };
    for (const auto &[asked, found, reached] : cases) {
        (*s)->SetSection(s, "srv.a");
        const char *path = (*s)->SetSection(s, "%s", asked);
        EXPECT_STREQ(path, found ? asked : nullptr);
        EXPECT_STREQ((*s)->GetSection(s), reached) << asked;
    }
    (*s)->SetSection(s, "srv.a");
    EXPECT_STREQ((*s)->SetSection(s, nullptr), "");
    EXPECT_STREQ((*s)->SetSection(s, "%s[%d].%c", "srv", 1, 'a'), "srv[1].a");
    EXPECT_STREQ((*s)->SetSection(s, (*s)->GetSection(s)), "srv[1].a") << "its own text";
    EXPECT_EQ(keys(), Texts{"k"});
}

TEST_F(Config, TheCursorMovesUpAndDown) {
    read("[srv]\n<in>\n<in>\n</in>\n</in>\n<in>\nk=1\n[x.y]\nk=2\n[]\n<in>\n");
    EXPECT_EQ(children(), (Texts{"srv", "x.y", ""}));
    EXPECT_STREQ((*s)->ToChildSection(s, "srv", 0), "srv");
    EXPECT_EQ((*s)->GetChildSectionCount(s, "in") + 10 * (*s)->GetChildSectionCount(s, "no"), 2);
    EXPECT_STREQ((*s)->ToChildSection(s, "in", 1), "srv.in[1]");
    EXPECT_EQ((*s)->GetKVCount(s), 1);
    EXPECT_EQ((*s)->ToChildSection(s, "in", TQ4_ALL_ONES), nullptr);
    (*s)->ToParentSection(s);
    EXPECT_STREQ((*s)->GetSection(s), "srv");
    for (int ups = 0; ups < 2; ++ups) (*s)->ToParentSection(s);
    EXPECT_STREQ((*s)->ToChildSection(s, "x.y", 0), "x.y") << "a dot is no hindrance here";
    (*s)->ToTopSection(s);
    EXPECT_STREQ((*s)->ToChildSection(s, "", 0), "");
    EXPECT_STREQ((*s)->ToChildSection(s, "in", 0), "in") << "the part without a name is not seen";
}

TEST_F(Config, SectionsAreAddedAndRemovedWithAllThatIsInThem) {
    read("[a]\nk=0\n<in>\n</in>\n[a]\nk=1\n[a]\nk=2\n[b]\n");
    (*s)->RemoveSection(s);
    EXPECT_EQ(children(), (Texts{"a", "b"})) << "the root stays";
    (*s)->RemoveChildSection(s, "a", 0);
    EXPECT_EQ(value("a", "k"), "1") << "the head of a chain goes";
    (*s)->ToTopSection(s);
    (*s)->AddSection(s, "a");
    EXPECT_STREQ((*s)->SetSection(s, "a[2]"), "a[2]");
    set("k", "3");
    (*s)->AddSection(s, "in");
    (*s)->SetSection(s, "a[1]");
    (*s)->RemoveSection(s);
    EXPECT_STREQ((*s)->GetSection(s), "");
    EXPECT_EQ(value("a[1]", "k"), "3");
    (*s)->RemoveKey(s, "k");
    (*s)->RemoveKey(s, "k");
    (*s)->RemoveChildSection(s, "in", 1);
    EXPECT_EQ(stable_dump(), "[a]\nk = 1\n\n[a]\n<in>\n</in>\n\n[b]\n");
}

TEST_F(Config, KeysAreIteratedWhileTheyAreRemoved) {
    for (int i = 0; i < 100; ++i) set(("k" + std::to_string(i)).c_str(), "");
    int seen = 0;
    for (const char *key = (*s)->GetFirstKey(s); key; key = (*s)->GetNextKey(s))
        if (++seen % 2) (*s)->RemoveKey(s, std::string(key).c_str());
    EXPECT_EQ(seen, 100) << "none is passed over";
    EXPECT_EQ((*s)->GetKVCount(s), 50);
    EXPECT_EQ(value("", "k99") + value("", "k98"), "no key");
}

TEST_F(Config, TextsAreReadAsNumbersAndCharacters) {
    const std::tuple<const char *, long, int, double> cases[] = {{"12", 12, '1', 12},
                                                                 {"010", 16, '0', 10},
                                                                 {"0x1f", 31, 31, 0x1f},
                                                                 {"-0x10", 0, '-', -16},
                                                                 {"\\n", 0, '\n', 0},
                                                                 {"\\space", 0, ' ', 0},
                                                                 {"0xffffffffffffffffff", -1, -1, 0x1p72},
                                                                 {"\"  010", 0, '"', 0}};
    for (const auto &[text, as_number, as_character, as_real] : cases) {
        set("k", text);
        char c = 'x';
        long number = 5;
        short narrow = 5;
        double real = 5;
        EXPECT_EQ((*s)->ReadChar(s, "k", &c) + (*s)->ReadLong(s, "k", &number), 2);
        EXPECT_EQ((*s)->ReadShort(s, "k", &narrow) + (*s)->ReadDouble(s, "k", &real), 2);
        EXPECT_EQ(c, as_character) << text;
        EXPECT_EQ(number, as_number) << text;
        EXPECT_EQ(narrow, static_cast<short>(as_number)) << text;
        EXPECT_DOUBLE_EQ(real, as_real) << text;
    }
    int untouched = 5;
    EXPECT_EQ((*s)->ReadInt(s, "missing", &untouched) + (*s)->ReadInt(s, nullptr, &untouched), 0);
    EXPECT_EQ(untouched, 5);
    EXPECT_STREQ((*s)->ReadString(s, "missing", "instead"), "instead");
}

// What writing a value stores, and that reading gives it back.
template <class T> std::string stored(Tq4_config s, int written, int (*read)(Tq4_config, const char *, T *),
                                      std::type_identity_t<T> expected) {
    T value{};
    EXPECT_EQ(written, 1);
    EXPECT_EQ(read(s, "k", &value), 1);
    EXPECT_EQ(value, expected);
    return (*s)->ReadString(s, "k", "");
}
#define TQ4_STORED(Name, value, ...)                                                                                   \
    stored(s, (*s)->Write##Name(s, "k", value __VA_OPT__(, ) __VA_ARGS__), (*s)->Read##Name, value)

TEST_F(Config, NumbersAndCharactersAreWrittenAsTheyAreReadBack) {
    EXPECT_EQ(TQ4_STORED(Short, short{-1}, 1), "0xffffffff");
    EXPECT_EQ(TQ4_STORED(Long, LONG_MIN, 0), "-9223372036854775808");
    EXPECT_EQ(TQ4_STORED(UChar, (unsigned char)200, 1), "0xc8");
    (*s)->WriteULong(s, "k", 0xabc12345678UL, 1);
    EXPECT_EQ(value("", "k"), "0x12345678") << "the low half";
    EXPECT_EQ(TQ4_STORED(Float, 0.5f), "0.500000");
    EXPECT_EQ(TQ4_STORED(Double, -DBL_MAX).size(), 317u);
    const std::map<char, std::string> special = {{' ', "\\space"}, {'\t', "\\t"}, {'\n', "\\n"}, {'\r', "\\r"},
                                                 {'\\', "\\\\"},   {0, "0x0"},    {127, "0x7f"}, {-1, "0xff"}};
    for (int code = CHAR_MIN; code <= CHAR_MAX; ++code) {
        const char c = static_cast<char>(code);
        const std::string text = TQ4_STORED(Char, c);
        const bool plain = c > ' ' && c < 127 && c != '\\';
        EXPECT_EQ(text, special.count(c) ? special.at(c) : plain ? std::string(1, c) : text);
        EXPECT_TRUE(plain || text.size() > 1) << code;
    }
}

TEST_F(Config, BytesArriveWithANulOverTheLast) {
    set("k", "hello");
    set("none", "");
    for (unsigned long size : {0ul, 1ul, 3ul, 5ul, 9ul}) {
        char room[10] = "xxxxxxxxx";
        const unsigned long copied = std::min(size, 5ul);
        EXPECT_EQ((*s)->ReadBytes(s, "k", room, size), 1);
        EXPECT_EQ(std::string(room, 9),
                  (copied ? std::string("hello", copied - 1) + '\0' : "") + std::string(9 - copied, 'x'));
        EXPECT_EQ((*s)->ReadBytes(s, "none", room, size), 1);
        EXPECT_EQ((*s)->ReadBytes(s, "missing", room, size), 0);
    }
}

TEST_F(Config, NoTextWrittenIsLost) {
    read("quoted = \"a\" // said\nplain = v // say \"x\"\n");
    const Texts texts = {"",        " ",     " padded\t", "a // b", "\"",           "\"x\"", "say \"x\" // y",
                         "a=b;#[<", "/* */", "\r",        "\\n",    "\xE4\xB8\xAD", "//",    std::string(2000, 'v')};
    for (const std::string &text : texts) {
        for (const char *key : {"quoted", "plain", "new"}) set(key, text.c_str());
        stable_dump();
        for (const char *key : {"quoted", "plain", "new"}) EXPECT_EQ(value("", key), text) << key;
    }
    const Tq4_own<Tq4_config> before(static_cast<Tq4_config>(Tq4_config_oitf->Dup(s)));
    EXPECT_EQ((*s)->WriteString(s, "plain", (*s)->ReadString(s, "plain", "")), 1) << "its own text";
    EXPECT_TRUE(Tq4_config_oitf->Equal(s, before.get()));
    set("one more", "");
    EXPECT_FALSE(Tq4_config_oitf->Equal(s, before.get()));
    EXPECT_EQ(value("", "plain"), texts.back());
    for (const std::string &text : {std::string("two\nlines"), std::string(2048, 'v')})
        EXPECT_EQ((*s)->WriteString(s, "plain", text.c_str()), 0) << "a file could not hold it";
    for (const char *key : {"", "a=b", " a", "a\n", "// a", "/*a", ";a", "#a", "[a", "<a"})
        EXPECT_EQ((*s)->WriteInt(s, key, 1, 0), 0) << key;
    for (const char *name : {"a\nb", " a", "[>]"}) (*s)->AddSection(s, name);
    EXPECT_EQ(children(), Texts());
}

// Files whose parts would mean something else where they are written, if they were written as they are.
TEST_F(Config, OddFilesKeepTheirMeaning) {
    const std::string k2046(2046, 'k'), x2041(2041, 'x');
    const std::pair<std::string, std::string> cases[] = {
        {"<x>\nk=1\nk=2\n</x>\nj=5\n", "// k=2\nj = 5\n\n[x]\nk = 1\n"},
        {"[b]\nk=1\nk=2\n[a]\n[b]\n", "[b]\nk = 1\n\n[b]\n\n// k=2\n[a]\n"},
        {"[a]\n<b>\nk=1\nk=2\n", "[a]\n<b>\nk = 1\n</b>\n// k=2\n"},
        {"[x]\nk=1\n<a]b> s\nk=2\n</>\n</>\n<c]d>\nk=3\n[y]\n",
         "[x]\nk = 1\n<a]b> s\nk = 2\n</a]b>\n</x>\n\n<c]d>\nk = 3\n</c]d>\n\n[y]\n"},
        {"k=" + k2046 + "\n", "k=" + k2046 + "\n"},
        {"k=" + x2041 + "/ //c\n", "k=" + x2041 + "/ //c\n"},
        {"[" + k2046 + "]\n<" + k2046 + ">\n", "[" + k2046 + "]\n<" + k2046 + ">\n</" + k2046.substr(1) + ">\n"},
        {"\n\xEF\xBB\xBFk=1\n", "\n\xEF\xBB\xBFk = 1\n"},
        {"/*/ k=1\n*/ j=2 /*\n", "/*/ k=1\n*/\nj = 2 /*\n"},
        {"a=1\n/* open\nb=2\n", "a = 1\n/* open\nb=2\n"},
        {"a=b//c\nd=//e\n", "a = b \t//c\nd =  \t//e\n"},
        {"k=1\n" + std::string(2049, 'x') + "\nj=2\n" + std::string(300000, 'y') + "=1\ni=3", "k = 1\nj = 2\ni = 3\n"},
        {std::string("a\0b = c\0d\n", 10), std::string("a\0b = c\0d\n", 10)},
        {"</a>\n</b>\n>\n]\nk=1\n", ">\n]\nk = 1\n"},
    };
    for (const auto &[text, expected] : cases) {
        read(text);
        EXPECT_EQ(stable_dump(), expected);
    }
    (*s)->RemoveKey(s, "k");
    EXPECT_EQ(stable_dump(), "");
    read("k=1\nk=2\nj=3\n");
    (*s)->RemoveKey(s, "k");
    EXPECT_EQ(stable_dump(), "// k=2\nj = 3\n") << "a removed key does not come back";
}

TEST_F(Config, DepthAndNumberAreBoundedByMemoryAlone) {
    std::string text;
    for (int i = 0; i < 100000; ++i) text += "<d>\n";
    read(text);
    EXPECT_EQ(stable_dump().substr(0, 12), "[d]\n<d>\n<d>\n");
    (*s)->SetSection(s, "d.d");
    (*s)->RemoveSection(s);
    EXPECT_EQ(stable_dump(), "[d]\n");
    text.clear();
    for (int i = 0; i < 100000; ++i) text += "key " + std::to_string(i) + " = " + std::to_string(i) + "\n[a]\n</>\n";
    read(text);
    EXPECT_EQ((*s)->GetKVCount(s), 100000);
    EXPECT_EQ((*s)->GetChildSectionCount(s, "a"), 100000);
    EXPECT_EQ(value("", "key 77777"), "77777");
}

// --- Files, also while the system fails: a save says that it failed exactly when it did, and what it leaves is the old
// file or the new one, whole, and nothing beside it.

const std::string old_file = "k = 1\n" + std::string(300, '#') + "\n";

struct ConfigFile : Config {
    std::string saved = "k = 2\nlong = " + std::string(1000, 'v') + "\n";

    ConfigFile() {
        set("k", "2");
        set("long", std::string(1000, 'v').c_str());
    }
    static void write(const std::string &path, const std::string &text) { std::ofstream(path) << text; }
    bool save(const std::string &path) { return (*s)->Dump(s, path.c_str()); }
    // The same when nothing may be made beside the file. (Nothing is refused to root.)
    bool save_refused(const std::string &path) {
        const uid_t user = geteuid();
        EXPECT_EQ(seteuid(user ? user : 65534), 0);
        const bool done = save(path);
        EXPECT_EQ(seteuid(user), 0);
        return done;
    }
    // How many entries a directory has, without the one that a failing removal could not take away.
    static long entries(const Fault_round &round, const std::string &in) {
        return std::distance(fs::directory_iterator(in), {}) - (round.happened() && round.is("unlink"));
    }
};

TEST_F(ConfigFile, ASaveLeavesTheOldFileOrTheNewOne) {
    sweep_faults({"open", "fstatat", "write", "fsync", "rename", "close"}, [&](Fault_round &round) {
        const Quick_dir dir;
        write(dir / "file", old_file);
        chmod((dir / "file").c_str(), 0604);
        const bool done = round.done([&] { return save(dir / "file"); });
        EXPECT_EQ(content(dir / "file"), done ? saved : old_file);
        EXPECT_EQ(fs::status(dir / "file").permissions(), fs::perms{0604});
        EXPECT_LE(entries(round, dir.path()), 1);
    });
    write(file, old_file);
    const uid_t owner = geteuid() ? geteuid() : 65534; // root alone may give it away
    EXPECT_EQ(chown(file.c_str(), owner, static_cast<gid_t>(-1)), 0);
    std::ifstream open_before(file);
    EXPECT_TRUE(save(file));
    std::string old;
    std::getline(open_before, old);
    EXPECT_EQ(old, "k = 1") << "who reads meanwhile has the old file";
    struct stat status;
    EXPECT_TRUE(stat(file.c_str(), &status) == 0 && status.st_uid == owner);
}

TEST_F(ConfigFile, AFirstSaveLeavesTheWholeFileOrNone) {
    const mode_t mask = umask(0);
    sweep_faults({"mkdir", "open", "write", "fsync", "rename"}, [&](Fault_round &round) {
        const Quick_dir dir;
        const bool done = round.done([&] { return save(dir / "new/file"); });
        EXPECT_EQ(content(dir / "new/file"), done ? saved : "");
        EXPECT_EQ(fs::status(dir / "new/file").permissions(), done ? fs::perms{0660} : fs::perms::unknown);
        if (fs::exists(dir / "new")) { EXPECT_LE(entries(round, dir / "new"), done); }
    });
    umask(mask);
    EXPECT_FALSE(save(directory.path()) || (*s)->Dump(s, nullptr));
}

// Of a link to a file, and of one to a file that is to be made.
TEST_F(ConfigFile, ASaveThroughALinkNeverReplacesTheLink) {
    for (const bool exists : {true, false})
        sweep_faults({"readlink", "realpath", "open", "rename"}, [&](Fault_round &round) {
            const Quick_dir dir, elsewhere;
            const std::string link = dir / "link", there = elsewhere / "settings.ini";
            fs::create_symlink(there, link);
            if (exists) write(there, old_file);
            const bool done = round.done([&] { return save(link); });
            EXPECT_TRUE(fs::is_symlink(link));
            EXPECT_EQ(content(there), done ? saved : exists ? old_file : "");
            EXPECT_LE(entries(round, elsewhere.path()), 1);
        });
}

// In a directory of others the file is written where it is. A device that has taken half of it and then no byte more
// does not take the old ones back either; that alone is not judged.
TEST_F(ConfigFile, ASaveInPlaceChangesNothingWhenItCannotWriteAll) {
    for (const std::string &before : {old_file, old_file + std::string(5000, '#') + "\n"})
        sweep_faults({"read", "write", "fsync"}, [&](Fault_round &round) {
            const Quick_dir dir;
            write(dir / "file", before);
            chmod((dir / "file").c_str(), 0666);
            chmod(dir.path().c_str(), 0555);
            const bool done = round.done([&] { return save_refused(dir / "file"); });
            EXPECT_FALSE(save_refused(dir / "new"));
            chmod(dir.path().c_str(), 0777);
            if (done || !round.leaves_half()) { EXPECT_EQ(content(dir / "file"), done ? saved : before); }
            chmod((dir / "file").c_str(), 0444);
            EXPECT_FALSE(save_refused(dir / "file")) << "a file for reading is not replaced either";
        });
}

TEST_F(ConfigFile, AFileThatCannotBeReadToItsEndLeavesTheTree) {
    const std::string missing = directory / "missing";
    read("[a]\nk=1\n");
    for (const char *path : {missing.c_str(), directory.path().c_str(), (const char *)nullptr}) {
        (*s)->SetSection(s, "a");
        EXPECT_EQ((*s)->Read(s, path), -1);
        EXPECT_STREQ((*s)->GetSection(s), "");
        EXPECT_STREQ((*s)->FileName(s), file.c_str());
        EXPECT_EQ(value("a", "k"), "1");
    }
    EXPECT_EQ((*s)->Read(s, (*s)->FileName(s)), 1) << "its own text";
    const Quick_dir dir;
    write(dir / "file", old_file + std::string(200000, '#') + "\nlast = 1\n");
    sweep_faults({"open", "read"}, [&](Fault_round &round) {
        Tq4_config_oitf->Reset(s);
        set("old", "1");
        const bool done = round.done([&] { return (*s)->Read(s, (dir / "file").c_str()) == 1; });
        EXPECT_EQ(value("", done ? "last" : "old"), "1");
    });
}

} // namespace
