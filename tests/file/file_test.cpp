// What a file promises beyond its stream: opening and closing, the position across both directions, size and
// truncation, and that it holds what it has taken.
#include "support/fault_sweep.hpp"

namespace {

struct File : testing::Test {
    Temp_dir dir;
    Tq4_own<Tq4_file> owned = Tq4_make<Tq4_file>(Tq4_file_oitf);
    Tq4_file f = owned.get();

    bool open(int mode) { return (*f)->Open(f, (dir / "new/dir/file").c_str(), mode); }
    bool fresh() { return open(Tq4_file_read | Tq4_file_write | Tq4_file_create | Tq4_file_truncate); }
    long write(const char *text) { return (*f)->Write(f, text, TQ4_ALL_ONES); }
    std::string line() {
        const char *text = (*f)->ReadLine(f, 1, 0);
        return text ? text : "<none>";
    }
    long seek(long offset, Tq4_file_whence whence = Tq4_file_begin) { return (*f)->Seek(f, offset, whence); }
    long tell() { return (*f)->Tell(f); }
    long size() { return (*f)->Size(f); }
};

TEST_F(File, OpensAsTheModeSaysAndRefusesEverythingWhileClosed) {
    EXPECT_EQ(write("x") + (*f)->Flush(f) + (*f)->Sync(f) + (*f)->Truncate(f, 0) + (*f)->Open(f, nullptr, 0), 0);
    EXPECT_EQ(tell() + seek(0) + size(), -3);
    EXPECT_FALSE(open(Tq4_file_read));
    EXPECT_TRUE(open(Tq4_file_write | Tq4_file_create));
    EXPECT_EQ(write("abc"), 3);
    EXPECT_EQ(line(), "<none>") << "not opened for reading";
    EXPECT_FALSE(open(Tq4_file_write | Tq4_file_create | Tq4_file_exclusive));
    EXPECT_FALSE((*f)->IsOpen(f));
    EXPECT_TRUE(open(Tq4_file_write | Tq4_file_append));
    EXPECT_EQ((*f)->Printf(f, "%s", "def"), 3);
    EXPECT_TRUE(open(0));
    EXPECT_EQ(line(), "abcdef");
    write("x");
    EXPECT_FALSE((*f)->Close(f)) << "not opened for writing, so the byte is lost";
    EXPECT_FALSE((*f)->Close(f));
    EXPECT_EQ((*f)->Name(f), dir / "new/dir/file");
}

TEST_F(File, ThePositionIsTheCallersWhateverIsBuffered) {
    fresh();
    write("0123456789\nsecond\n");
    EXPECT_EQ(tell(), 18);
    seek(3);
    EXPECT_EQ((*f)->ReadChar(f), '3');
    EXPECT_EQ(seek(2, Tq4_file_current), 6);
    EXPECT_EQ(line(), "6789");
    EXPECT_EQ(write("S"), 1);
    EXPECT_EQ(tell(), 12);
    EXPECT_EQ(seek(-7, Tq4_file_end), 11);
    EXPECT_EQ(line(), "Second");
    EXPECT_EQ(seek(-1) + seek(LONG_MIN, Tq4_file_current), -2);
    EXPECT_EQ(tell(), 18) << "a refused seek moves nothing";
}

TEST_F(File, SizeCountsWhatIsBufferedAndTruncateCutsWhatWasReadAhead) {
    fresh();
    write("one\ntwo\nthree\n");
    EXPECT_EQ(size(), 14);
    seek(0);
    EXPECT_EQ(line(), "one");
    EXPECT_TRUE((*f)->Truncate(f, 8));
    EXPECT_EQ(line(), "two");
    EXPECT_EQ(line(), "<none>");
    EXPECT_TRUE((*f)->Truncate(f, 20) && (*f)->Sync(f));
    EXPECT_EQ(size(), 20);
    EXPECT_FALSE((*f)->Truncate(f, TQ4_ALL_ONES));
}

TEST_F(File, WhatItTakesItHolds) {
    const std::string bytes(150000, 'b');
    sweep_faults({"open", "write", "fsync", "close"}, [&](Fault_round &round) {
        const Quick_dir quick;
        const std::string path = quick / "new/file";
        const bool done = round.done([&] {
            const bool opened = (*f)->Open(f, path.c_str(), Tq4_file_write | Tq4_file_create);
            const bool written = (*f)->Write(f, bytes.data(), bytes.size()) == static_cast<long>(bytes.size());
            const bool synced = (*f)->Sync(f);
            return (*f)->Close(f) && opened && written && synced;
        });
        EXPECT_TRUE(!done || content(path) == bytes);
    });
}

} // namespace
