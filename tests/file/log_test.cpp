// What a log promises: every line whole and in order, in the file of its time, from any number of threads, and a
// service that goes on when the disk does not.
#include "tq4/log.h"

#include <gtest/gtest.h>

#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "file/log_line.hpp"
#include "own.hpp"
#include "support/temp_dir.hpp"
#include "tq4/finder.h"

namespace {

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

// 2026-11-15 14:37:08 local time, and the day's directory and files of that quarter.
const time_t moment = [] {
    std::tm t{.tm_sec = 8, .tm_min = 37, .tm_hour = 14, .tm_mday = 15, .tm_mon = 10, .tm_year = 126, .tm_isdst = -1};
    return mktime(&t);
}();
const std::string day = "/logfiles-2026/11/2026-11-15";

struct Log : testing::Test {
    Temp_dir dir;
    Tq4_own<Tq4_log> owned;
    Tq4_log log;

    Log() { create("several threads"); }
    void create(const void *for_threads) {
        owned.reset(static_cast<Tq4_log>(Tq4_log_oitf->Create(for_threads)));
        log = owned.get();
        (*log)->Init(log, "svc", 0);
        (*log)->MainDir(log, dir.path().c_str());
    }
    void line(const char *text, time_t at = moment) { (*log)->Printf_t(log, at, 0, "%s", text); }
    std::string first() const { return file(1); }
    std::string file(int index) const {
        char name[64];
        std::snprintf(name, sizeof name, "/svc_2026-11-15 14-3[%03d].log", index);
        return dir.path() + day + name;
    }
    static std::string content(const std::string &path) {
        std::ifstream in(path);
        return {std::istreambuf_iterator<char>(in), {}};
    }
    static Lines lines_of(const std::string &path) {
        std::ifstream in(path);
        Lines lines;
        for (std::string text; std::getline(in, text);) lines.push_back(text);
        return lines;
    }
    // The messages of a file, without their prefixes.
    static Lines messages(const std::string &path) {
        Lines texts = lines_of(path);
        for (std::string &text : texts) text.erase(0, text.find("] ") + 2);
        return texts;
    }
    // All log files, in the order of their names.
    Lines files() const {
        auto finder = Tq4_make<Tq4_finder>(Tq4_finder_oitf);
        (*finder)->Find(finder.get(), (dir / "*.log").c_str(), Tq4_finder_files | Tq4_finder_recursive);
        Lines found;
        for (unsigned long i = 0; i < (*finder)->Count(finder.get()); ++i)
            found.push_back((*finder)->Path(finder.get(), i));
        return found;
    }
};

TEST_F(Log, ALineBearsItsTimeTheMillisecondsAndTheThread) {
    line("hello");
    const std::string text = content(first());
    char expected[64];
    std::snprintf(expected, sizeof expected, "[2026-11-15 14:37:08 %%3d %04x] hello\n", gettid());
    EXPECT_EQ(text.substr(0, 21), "[2026-11-15 14:37:08 ");
    EXPECT_TRUE(isdigit(text[21]) && isdigit(text[22]) && isdigit(text[23])) << text;
    EXPECT_EQ(text.substr(24), std::string(expected + 24));
    EXPECT_EQ((*log)->DirInfo(log), dir.path() + day);
}

TEST_F(Log, AMessageEndsInOneLineFeed) {
    for (const char *text : {"none", "one\n", "two\n\n", ""}) line(text);
    (*log)->Printf_t(log, moment, 0, nullptr);
    EXPECT_EQ(messages(first()), (Lines{"none", "one", "two", "", "", ""}));
}

TEST_F(Log, MessagesAboveTheLevelOpenNoFile) {
    (*log)->Printf(log, 1, "dropped");
    (*log)->HexLog(log, 1, "x", 1, "dropped");
    EXPECT_EQ(files(), Lines{});
    (*log)->Level(log, 5);
    (*log)->Printf_t(log, moment, 5, "%s %d", "written", 5);
    EXPECT_EQ(messages(first()), Lines{"written 5"});
}

TEST_F(Log, TheCurrentTimeIsTheOneOfPrintfWriteAndCheckFile) {
    (*log)->CheckFile(log);
    EXPECT_TRUE(fs::is_directory((*log)->DirInfo(log))) << "made before any line";
    EXPECT_EQ(files(), Lines{});
    const time_t before = time(nullptr);
    (*log)->Printf(log, 0, "now");
    (*log)->Write(log, "as it is");
    (*log)->CheckFile(log);
    (*log)->Write(log, ", and on\n");
    (*log)->Write(log, nullptr);
    std::string text;
    for (const std::string &path : files()) text += content(path);
    std::tm t{};
    strptime(text.c_str(), "[%Y-%m-%d %H:%M:%S", &t);
    t.tm_isdst = -1;
    EXPECT_LE(before, mktime(&t));
    EXPECT_LE(mktime(&t), time(nullptr));
    EXPECT_EQ(text.substr(text.find("] ")), "] now\nas it is, and on\n");
}

TEST_F(Log, AFullFileIsFollowedByTheNextAndARestartContinuesTheLast) {
    (*log)->SizeLimit(log, 1000);
    const std::string long_line(300000, 'x');
    for (int i = 0; i < 5; ++i) line(long_line.c_str());
    EXPECT_EQ(files(), (Lines{file(1), file(2)}));
    EXPECT_EQ(messages(file(1)), Lines(4, long_line)) << "the limit was 1048576, the last line went over it whole";
    create(nullptr);
    (*log)->SizeLimit(log, 1000);
    line("continued");
    EXPECT_EQ(messages(file(2)), (Lines{long_line, "continued"}));
}

TEST_F(Log, DataFollowsItsTitleInLinesOfSixteenBytes) {
    (*log)->HexLog(log, 0, "0123456789ABCDEF\n\xff~", 19, "%d bytes", 19);
    (*log)->HexLog(log, 0, nullptr, 5, "none");
    (*log)->HexLog(log, 0, "\x1f", TQ4_ALL_ONES, "text");
    std::string text;
    for (const std::string &path : files()) text += content(path);
    for (const char *part : {"] 19 bytes\n"
                             "00000000: 30 31 32 33 34 35 36 37 38 39 41 42 43 44 45 46 0123456789ABCDEF\n"
                             "00000010: 0A FF 7E                                        ..~\n[",
                             "] none\n[", "] text\n00000000: 1F                                              .\n"})
        EXPECT_NE(text.find(part), std::string::npos) << part << "in\n" << text;
}

TEST(LogLine, ThePrefixIsThatOfItsFormat) {
    Tq4_wbuf out;
    Tq4_wbuf_Init(&out, 256);
    out.fflush = Tq4_wbuf_flush_nothing;
    for (auto [year, milliseconds, thread] :
         {std::tuple{126, 7u, 0x1a}, {-1900, 0u, 0xabcde}, {8099, 999u, 0x7fffffff}}) {
        const std::tm t{.tm_sec = 1, .tm_min = 2, .tm_hour = 3, .tm_mday = 4, .tm_mon = 5, .tm_year = year};
        Tq4_log_prefix prefix;
        prefix.Set(t);
        Tq4_wbuf_Reset(&out);
        prefix.Append(&out, milliseconds, thread);
        char expected[64];
        std::snprintf(expected, sizeof expected, "[%4d-%02d-%02d %02d:%02d:%02d %03d %04x] ", year + 1900, 6, 4, 3, 2,
                      1, milliseconds, thread);
        EXPECT_EQ(std::string(reinterpret_cast<char *>(out.m_data), Tq4_wbuf_size(&out)), expected);
    }
    Tq4_wbuf_Release(&out);
}

// --- Threads ---

// Every thread counts its lines; they come back whole, none lost, each thread's in order, whichever file they are in.
TEST_F(Log, LinesOfManyThreadsAreWholeAndInOrder) {
    constexpr int threads = 8, lines = 4000;
    (*log)->SizeLimit(log, 1);
    const std::string filling(100, '.');
    std::vector<std::thread> running;
    for (int t = 0; t < threads; ++t)
        running.emplace_back([&, t] {
            for (int i = 0; i < lines; ++i) {
                (*log)->Printf_t(log, moment + i / 1000, 0, "%d %d %s", t, i, filling.c_str());
                if (i % 1000 == 0) (*log)->FFlush(log), (*log)->Init(log, "svc", t), (*log)->DirInfo(log);
            }
        });
    for (std::thread &thread : running) thread.join();
    EXPECT_GT(files().size(), 3u);
    int next[threads] = {};
    for (const std::string &path : files())
        for (const std::string &text : messages(path)) {
            int thread = -1, number = -1, end = 0;
            ASSERT_EQ(std::sscanf(text.c_str(), "%d %d %n", &thread, &number, &end), 2) << text;
            ASSERT_EQ(text.substr(end), filling);
            ASSERT_EQ(number, next[thread]++) << "of thread " << thread;
        }
    for (int count : next) EXPECT_EQ(count, lines);
}

// Hours alternate from line to line: though threads share their writes, each line is in the file of its own hour.
TEST_F(Log, EachLineOfAGroupChoosesItsOwnFile) {
    std::vector<std::thread> running;
    for (int t = 0; t < 4; ++t)
        running.emplace_back([&, t] {
            for (int i = 0; i < 300; ++i) line(t % 2 ? "odd" : "even", moment + t % 2 * 3600);
        });
    for (std::thread &thread : running) thread.join();
    EXPECT_EQ(messages(first()), Lines(600, "even"));
    EXPECT_EQ(messages(dir.path() + day + "/svc_2026-11-15 15-3[001].log"), Lines(600, "odd"));
}

TEST_F(Log, AThreadThatIsKilledLeavesTheLogUsable) {
    for (int round = 0; round < 20; ++round) {
        std::atomic<int> written = 0;
        std::thread victim([&] {
            pthread_setcanceltype(PTHREAD_CANCEL_DEFERRED, nullptr);
            for (;; ++written) line("line"), pthread_testcancel();
        });
        while (written < 3) std::this_thread::yield();
        pthread_cancel(victim.native_handle());
        line("line");
        victim.join();
    }
    line("last");
    const Lines all = messages(first());
    EXPECT_EQ(all.back(), "last");
    EXPECT_EQ(std::count(all.begin(), all.end() - 1, "line"), static_cast<long>(all.size() - 1));
}

// --- Faults ---

TEST_F(Log, AnUnwritableDirectoryLosesLinesUntilItCanBeWritten) {
    (*log)->MainDir(log, (dir / "main").c_str());
    std::ofstream(dir / "main") << "a file in the way";
    for (int i = 0; i < 3; ++i) line("lost");
    fs::remove(dir / "main");
    line("written");
    ASSERT_EQ(files().size(), 1u);
    EXPECT_EQ(messages(files()[0]), Lines{"written"});
}

TEST_F(Log, AFullDiskLosesLinesUntilThereIsRoom) {
    fs::create_directories(dir.path() + day);
    fs::create_symlink("/dev/full", first());
    for (int i = 0; i < 1000; ++i) line("lost");
    EXPECT_EQ(files(), Lines{first()}) << "the file is kept, and tried again";
    fs::remove(first());
    line("later", moment + 3600);
    EXPECT_EQ(messages(files()[0]), Lines{"later"});
}

// In a child, which lowers its own limit on the size of files: what does not fit is lost, and what was cut off in the
// middle is taken back.
TEST_F(Log, ALineThatWasCutOffIsTakenBack) {
    constexpr rlim_t limit = 1000;
    const pid_t child = fork();
    if (child == 0) {
        signal(SIGXFSZ, SIG_IGN);
        const rlimit low{limit, RLIM_INFINITY}, high{RLIM_INFINITY, RLIM_INFINITY};
        setrlimit(RLIMIT_FSIZE, &low);
        for (int i = 0; i < 50; ++i) line("before: some forty bytes with its prefix");
        setrlimit(RLIMIT_FSIZE, &high);
        line("after");
        _exit(0);
    }
    int status;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    const Lines all = lines_of(first());
    ASSERT_GT(all.size(), 5u);
    const std::string before = all[0].substr(30);
    for (unsigned long i = 0; i + 1 < all.size(); ++i) EXPECT_EQ(all[i].substr(30), before);
    EXPECT_EQ(messages(first()).back(), "after");
    EXPECT_GT((all.size() - 1) * (all[0].size() + 1), limit - 100) << "as many as fit";
}

TEST_F(Log, DescriptorsAreNotInherited) {
    line("open");
    for (auto &entry : fs::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        if (fs::read_symlink(entry.path(), gone) != first()) continue;
        EXPECT_TRUE(fcntl(std::stoi(entry.path().filename()), F_GETFD) & FD_CLOEXEC);
    }
}

// --- As an object ---

TEST_F(Log, CopiesCarryTheSettingsAndResetForgetsThem) {
    (*log)->SizeLimit(log, 3000000);
    Tq4_own<Tq4_log> copy(static_cast<Tq4_log>(Tq4_log_oitf->Dup(log)));
    EXPECT_TRUE(Tq4_log_oitf->Equal(log, copy.get()));
    (*copy)->Printf_t(copy.get(), moment, 0, "by the copy");
    EXPECT_EQ(messages(first()), Lines{"by the copy"});
    Tq4_log_oitf->Reset(log);
    EXPECT_FALSE(Tq4_log_oitf->Equal(log, copy.get()));
    auto fresh = Tq4_make<Tq4_log>(Tq4_log_oitf);
    EXPECT_TRUE(Tq4_log_oitf->Equal(log, fresh.get()));
}

TEST_F(Log, ItPreservesTheCallersErrorNumberAndIgnoresNull) {
    (*log)->MainDir(log, "/proc/cannot/be/written");
    errno = EAGAIN;
    line("lost");
    EXPECT_EQ(errno, EAGAIN);
    (*log)->Printf(nullptr, 0, "x");
    (*log)->Write(nullptr, "x");
    EXPECT_EQ((*log)->DirInfo(nullptr), nullptr);
}

} // namespace
