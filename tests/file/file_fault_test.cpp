// Files and the log while the system fails: what says that it was done was done, what failed left things as they were,
// and a log loses lines, never parts of one.
#include "support/fault_sweep.hpp"

namespace {

const Tq4_file_api_ &api = *Tq4_file_api;
const std::string bytes(150000, 'b');

void write_file(const std::string &path, const std::string &text) { std::ofstream(path) << text; }

long entries(const std::string &directory) { return std::distance(fs::directory_iterator(directory), {}); }

TEST(FileFault, ACopyIsWholeOrNone) {
    for (const std::string before : {"", "old"}) {
        const auto failed = sweep_faults([&](Fault_round &round) {
            const Quick_dir dir;
            const std::string from = dir / "from", to = dir / "to";
            write_file(from, bytes);
            if (!before.empty()) write_file(to, before);
            const bool done = round([&] { return api.Copy(from.c_str(), to.c_str()); });
            EXPECT_TRUE(content(to) == (done ? bytes : before));
            EXPECT_TRUE(content(from) == bytes);
            EXPECT_TRUE(done || !round.is_harmless());
            EXPECT_LE(entries(dir.path()) - round.is("unlink"), 2);
        });
        for (const char *call : {"open", "read", "write", "fchmod", "close", "rename"})
            EXPECT_TRUE(failed.count(call)) << call;
    }
}

TEST(FileFault, ATreeIsRemovedExactlyWhenThatIsTold) {
    const auto failed = sweep_faults([&](Fault_round &round) {
        const Quick_dir dir;
        fs::create_directories(dir / "tree/a/b/c");
        fs::create_directories(dir / "tree/d");
        write_file(dir / "tree/a/b/file", "x");
        const bool done = round([&] { return api.RmDir((dir / "tree").c_str(), 1); });
        EXPECT_NE(fs::exists(dir / "tree"), done);
        EXPECT_TRUE(done || !round.is_harmless());
    });
    for (const char *call : {"open", "openat", "fdopendir", "unlinkat", "rmdir"})
        EXPECT_TRUE(failed.count(call)) << call;
}

TEST(FileFault, WhatAFileTakesItHolds) {
    const auto failed = sweep_faults([&](Fault_round &round) {
        const Quick_dir dir;
        const std::string path = dir / "new/file";
        const auto owned = Tq4_make<Tq4_file>(Tq4_file_oitf);
        const Tq4_file f = owned.get();
        const bool done = round([&] {
            const bool opened = (*f)->Open(f, path.c_str(), Tq4_file_write | Tq4_file_create);
            const bool written = (*f)->Write(f, bytes.data(), bytes.size()) == static_cast<long>(bytes.size());
            const bool synced = (*f)->Sync(f);
            return (*f)->Close(f) && opened && written && synced;
        });
        EXPECT_TRUE(!done || content(path) == bytes);
        EXPECT_TRUE(done || !round.is_harmless());
    });
    for (const char *call : {"open", "write", "fsync", "close"}) EXPECT_TRUE(failed.count(call)) << call;
}

// --- The log ---

struct LogFault : testing::Test {
    static constexpr time_t first_moment = 1800000000;
    static constexpr int lines = 6;

    // Every line in the files below a directory, in their order.
    static Texts all_lines(const std::string &directory) {
        Texts files, found;
        for (auto &entry : fs::recursive_directory_iterator(directory))
            if (entry.is_regular_file()) files.push_back(entry.path());
        std::sort(files.begin(), files.end());
        for (const std::string &file : files) {
            std::ifstream in(file);
            for (std::string line; std::getline(in, line);)
                found.push_back(in.eof() ? line + " without an end" : line.erase(0, line.find("] ") + 2));
        }
        return found;
    }
    static std::string message(int number) { return std::to_string(number) + " " + std::string(100, '.'); }
};

// Half of the lines are an hour later, so that two files are opened.
TEST_F(LogFault, LinesAreWholeAndInOrderAndTheLogGoesOn) {
    const auto failed = sweep_faults([&](Fault_round &round) {
        const Quick_dir dir;
        {
            const auto owned = Tq4_make<Tq4_log>(Tq4_log_oitf, "several threads");
            const Tq4_log log = owned.get();
            (*log)->Init(log, "svc", 0);
            (*log)->MainDir(log, dir.path().c_str());
            const auto write = [&](int number) {
                errno = ENOTTY;
                (*log)->Printf_t(log, first_moment + number / 3 * 3600, 0, "%s", message(number).c_str());
                EXPECT_EQ(errno, ENOTTY) << "the caller's";
            };
            round([&] {
                for (int number = 0; number < lines; ++number) write(number);
            });
            write(lines);
        }
        const Texts found = all_lines(dir.path());
        int next = 0;
        for (const std::string &line : found) {
            while (next <= lines && line != message(next)) ++next;
            EXPECT_LE(next++, lines) << "not one of the lines, or out of order: " << line;
        }
        EXPECT_TRUE(!found.empty() && found.back() == message(lines)) << "the line after the fault";
        EXPECT_TRUE(found.size() == lines + 1 || !round.is_harmless());
    });
    for (const char *call : {"mkdir", "open", "write", "close"}) EXPECT_TRUE(failed.count(call)) << call;
}

TEST_F(LogFault, ARelativeMainDirectoryIsResolvedOnce) {
    const Quick_dir dir;
    const fs::path before = fs::current_path();
    const auto owned = Tq4_make<Tq4_log>(Tq4_log_oitf, nullptr);
    const Tq4_log log = owned.get();
    fs::current_path(dir.path());
    (*log)->MainDir(log, "logs");
    fs::current_path(before);
    (*log)->Printf_t(log, first_moment, 0, "here");
    EXPECT_EQ(all_lines(dir / "logs"), Texts{"here"});
}

} // namespace
