// What a log promises: every line whole and in order, in the file of its time, from any number of threads, and a
// service that goes on when the disk does not.
#include "file/log_line.hpp"
#include "support/fault_sweep.hpp"
#include "support/output.hpp"

namespace {

const time_t moment = [] { // 2026-11-15 14:37:08 local time
    std::tm t{.tm_sec = 8, .tm_min = 37, .tm_hour = 14, .tm_mday = 15, .tm_mon = 10, .tm_year = 126, .tm_isdst = -1};
    return mktime(&t);
}();

struct Log : testing::Test {
    Temp_dir dir;
    Tq4_own<Tq4_log> owned;
    Tq4_log log;
    const std::string day = dir / "logfiles-2026/11/2026-11-15/";
    const std::string first = day + "svc_2026-11-15 14-3[001].log", second = day + "svc_2026-11-15 14-3[002].log";

    Log() { create("several threads"); }
    void create(const void *for_threads) {
        owned = Tq4_make<Tq4_log>(Tq4_log_oitf, for_threads);
        log = owned.get();
        (*log)->Init(log, "svc", 0);
        (*log)->MainDir(log, dir.path().c_str());
    }
    void line(const char *text, time_t at = moment) { (*log)->Printf_t(log, at, 0, "%s", text); }
    Texts files() const { return log_files_in(dir.path()); }
    std::string everything() const {
        std::string all;
        for (const std::string &path : files()) all += content(path);
        return all;
    }
};

TEST_F(Log, ALineIsAPrefixAndAMessageThatEndsInOneLineFeed) {
    for (const char *text : {"none", "one\n", "two\n\n", ""}) line(text);
    (*log)->Printf_t(log, moment, 0, nullptr);
    EXPECT_EQ(messages_in(first), (Texts{"none", "one", "two", "", "", ""}));
    char end[32];
    std::snprintf(end, sizeof end, " %04x] none\n", gettid());
    const std::string all = everything();
    EXPECT_EQ(all.substr(0, 21), "[2026-11-15 14:37:08 ");
    EXPECT_EQ(all.substr(21, 3).find_first_not_of("0123456789"), std::string::npos) << "milliseconds";
    EXPECT_EQ(all.substr(24, std::strlen(end)), end);
    line("the last year", 67768036191676799 - 300 * 86400);
    EXPECT_EQ(content(dir / files().back().substr(dir.path().size() + 1)).substr(0, 12), "[2147485547-");
}

TEST_F(Log, TheCurrentTimeIsTheOneOfPrintfWriteAndCheckFile) {
    (*log)->HexLog(log, 3, "x", 1, "above the level");
    (*log)->Level(log, 2);
    (*log)->CheckFile(log);
    EXPECT_TRUE(fs::is_directory((*log)->DirInfo(log))) << "made before any line";
    EXPECT_EQ(files(), Texts{});
    const time_t before = time(nullptr);
    (*log)->Printf(log, 2, "now");
    (*log)->Write(log, "as it is");
    (*log)->CheckFile(log);
    (*log)->Write(log, ", and on\n");
    const std::string all = everything();
    std::tm t{.tm_isdst = -1};
    strptime(all.c_str(), "[%Y-%m-%d %H:%M:%S", &t);
    EXPECT_GE(mktime(&t), before);
    EXPECT_EQ(all.substr(all.find("] ")), "] now\nas it is, and on\n");
}

TEST_F(Log, AFullFileIsFollowedByTheNextAndARestartContinuesTheLast) {
    (*log)->SizeLimit(log, 1000);
    const std::string long_line(300000, 'x');
    for (int i = 0; i < 5; ++i) line(long_line.c_str());
    EXPECT_EQ(messages_in(first), Texts(4, long_line)) << "the limit was 1048576, the last line went over it whole";
    create(nullptr);
    line("continued");
    EXPECT_EQ(messages_in(first).size(), 4u + 1) << "by a log with the limit of 2097152";
    create(nullptr);
    (*log)->SizeLimit(log, 1000);
    line("continued");
    EXPECT_EQ(messages_in(second), (Texts{long_line, "continued"}));
}

TEST_F(Log, DataFollowsItsTitleInLinesOfSixteenBytes) {
    (*log)->HexLog(log, 0, "0123456789ABCDEF\n\xff~", 19, "%d bytes", 19);
    (*log)->HexLog(log, 0, nullptr, 5, "none");
    (*log)->HexLog(log, 0, "\x1f", TQ4_ALL_ONES, "text");
    for (const char *part : {"] 19 bytes\n"
                             "00000000: 30 31 32 33 34 35 36 37 38 39 41 42 43 44 45 46 0123456789ABCDEF\n"
                             "00000010: 0A FF 7E                                        ..~\n[",
                             "] none\n[", "] text\n00000000: 1F                                              .\n"})
        EXPECT_NE(everything().find(part), std::string::npos) << part << "in\n" << everything();
}

// --- Threads ---

// Lines are numbered: they come back whole, none lost, each thread's in order, from files that rotate by size. One
// thread is an hour ahead: though they share their writes, each line is in a file of its own hour.
TEST_F(Log, LinesOfManyThreadsAreWholeAndInOrder) {
    constexpr int threads = 8, lines = 4000;
    (*log)->SizeLimit(log, 1);
    const std::string filling(100, '.');
    std::vector<std::thread> running;
    for (int t = 0; t < threads; ++t)
        running.emplace_back([&, t] {
            for (int i = 0; i < lines; ++i) {
                (*log)->Printf_t(log, moment + (t == 0) * 3600 + i / 1000, 0, "%d %d %s", t, i, filling.c_str());
                if (i % 1000 == 0) (*log)->FFlush(log), (*log)->Init(log, "svc", t), (*log)->DirInfo(log);
            }
        });
    for (std::thread &thread : running) thread.join();
    EXPECT_GT(files().size(), 3u);
    int next[threads] = {};
    for (const std::string &path : files())
        for (const std::string &text : messages_in(path)) {
            int thread = -1, number = -1, end = 0;
            ASSERT_EQ(std::sscanf(text.c_str(), "%d %d %n", &thread, &number, &end), 2) << text;
            ASSERT_EQ(text.substr(static_cast<std::size_t>(end)), filling);
            ASSERT_EQ(number, next[thread]++) << "of thread " << thread;
            ASSERT_NE(path.find(thread == 0 ? "-15 15-" : "-15 14-"), path.npos) << path;
        }
    for (int count : next) EXPECT_EQ(count, lines);
}

TEST_F(Log, AThreadThatIsKilledLeavesTheLogUsable) {
    for (int round = 0; round < 20; ++round) {
        std::atomic<int> written = 0;
        std::thread victim([&] {
            for (;; pthread_testcancel()) // a bounded number of lines, which stay in one file
                if (written < 500) line("line"), ++written;
        });
        while (written < 3) std::this_thread::yield();
        pthread_cancel(victim.native_handle());
        line("line");
        victim.join();
    }
    const Texts all = messages_in(first);
    EXPECT_EQ(std::count(all.begin(), all.end(), "line"), static_cast<long>(all.size()));
}

// Threads hold the log's lock, or stand in its queue, when a process is forked. What holds them is not in the child.
TEST_F(Log, AChildOfAProcessWhoseThreadsLogCanLog) {
    constexpr int children = 100;
    std::atomic<bool> over = false;
    std::vector<std::thread> running;
    for (int t = 0; t < 3; ++t)
        running.emplace_back([&] {
            while (!over) line("parent");
        });
    const auto ask_calendar = [](std::time_t now) {
        std::tm fields;
        Tq4_system_api->localtime(&now, &fields);
    };
    running.emplace_back([&] {
        while (!over) ask_calendar(0);
    });
    int failed = 0;
    for (int i = 0; i < children; ++i) {
        const pid_t child = fork();
        if (child == 0) {
            alarm(60);
            line("child"), line("child");
            ask_calendar(0);
            _exit(0);
        }
        int status = -1;
        waitpid(child, &status, 0);
        failed += status != 0;
    }
    over = true;
    for (std::thread &thread : running) thread.join();
    EXPECT_EQ(failed, 0);
    std::map<std::string, int> count;
    for (const std::string &path : files())
        for (const std::string &text : messages_in(path)) ++count[text];
    EXPECT_EQ(count["child"], 2 * children);
    count.erase(""); // a child that opened the file in the middle of a write, for want of a processor
    EXPECT_EQ(count.size(), 2u) << "nothing but whole lines of parent and child";
}

// Both take back what a full disk cuts off, from where they themselves have written.
TEST_F(Log, AChildHasAPositionOfItsOwnInTheFile) {
    line("parent");
    int descriptor = 3;
    std::error_code not_open;
    while (!fs::equivalent("/proc/self/fd/" + std::to_string(descriptor), first, not_open)) ++descriptor;
    const off_t position = lseek(descriptor, 0, SEEK_CUR);
    const pid_t child = fork();
    if (child == 0) {
        line("child");
        _exit(0);
    }
    waitpid(child, nullptr, 0);
    EXPECT_EQ(messages_in(first), (Texts{"parent", "child"}));
    EXPECT_EQ(lseek(descriptor, 0, SEEK_CUR), position);
}

// --- What others do to the files ---

TEST_F(Log, ALineNeverContinuesWhatAKilledProcessLeftHalfWritten) {
    fs::create_directories(day);
    std::ofstream(first) << "[a prefix] torn";
    line("whole");
    create(nullptr);
    line("continued");
    EXPECT_EQ(messages_in(first), (Texts{"torn", "whole", "continued"}));
}

TEST_F(Log, AFileThatIsMovedOrRemovedIsMadeAnewWithinASecond) {
    line("old");
    for (const char *how : {"moved", "removed"}) {
        fs::rename(first, dir / how);
        fs::remove_all(dir / "removed"), fs::remove(dir / "logfiles-2026/11/2026-11-15");
        while (!fs::exists(first)) line("on its way"), std::this_thread::sleep_for(std::chrono::milliseconds(1));
        line(how);
        EXPECT_EQ(messages_in(first).back(), how);
    }
    EXPECT_EQ(messages_in(dir / "moved").at(0), "old");
}

TEST_F(Log, CheckFileSeesAtOnceThatAFileHasGone) {
    (*log)->Printf(log, 0, "old");
    const std::string path = files().at(0);
    (*log)->CheckFile(log);
    (*log)->Printf(log, 0, "still");
    fs::rename(path, dir / "moved");
    (*log)->CheckFile(log);
    EXPECT_EQ(content(path), "") << "it is there before the next line";
    (*log)->Printf(log, 0, "new");
    EXPECT_EQ(messages_in(dir / "moved"), (Texts{"old", "still"}));
    EXPECT_EQ(messages_in(path), Texts{"new"});
}

TEST_F(Log, SeveralLogsOnOneFileKeepItsLimitTogether) {
    constexpr unsigned long limit = 1048576;
    const Tq4_own<Tq4_log> other(static_cast<Tq4_log>(Tq4_log_oitf->Dup(log)));
    for (Tq4_log each : {log, other.get()}) (*each)->SizeLimit(each, limit);
    const std::string text(1000, 'x');
    for (int i = 0; i < 3000; ++i) {
        line(text.c_str());
        (*other)->Printf_t(other.get(), moment, 0, "%s", text.c_str());
    }
    EXPECT_EQ(files().size(), 6u);
    for (const std::string &path : files()) EXPECT_LT(fs::file_size(path), limit + 2 * 1100) << path;
}

// --- Faults ---

TEST_F(Log, ALogThatCannotBeWrittenSaysSoOnceAndGoesOn) {
    Piped errors(2);
    std::ofstream(dir / "logfiles-2026") << "a file in the way";
    for (int i = 0; i < 5; ++i) line("lost");
    EXPECT_EQ(errors.read_some(), "日志文件" + first + "无法写入：Not a directory\n");
    fs::remove(dir / "logfiles-2026");
    fs::create_directories(day);
    const std::string full = day + "svc_2026-11-15 14-3[006].log";
    fs::create_symlink("/dev/full", full);
    for (int i = 0; i < 1000; ++i) line("lost");
    EXPECT_EQ(errors.read_some(), "日志文件" + full + "无法写入：No space left on device\n");
    EXPECT_EQ(files(), Texts{full}) << "it is kept, and tried again";
    fs::remove(full);
    (*log)->CheckFile(log);
    line("written", moment + 3600);
    EXPECT_EQ(messages_in(files().back()), Texts{"written"});
}

// Under every fault each line is whole, or lost, and the log goes on. The second half of the lines is an hour later, so
// that two files are opened.
TEST_F(Log, LosesWholeLinesAlone) {
    constexpr int lines = 6;
    const auto message = [](int number) { return std::to_string(number) + " " + std::string(100, '.'); };
    sweep_faults({"mkdir", "open", "write", "close"}, [&](Fault_round &round) {
        const Quick_dir quick;
        create("several threads");
        (*log)->MainDir(log, quick.path().c_str());
        const auto write = [&](int number) {
            errno = ENOTTY;
            line(message(number).c_str(), moment + std::min(number, lines - 1) / 3 * 3600);
            EXPECT_EQ(errno, ENOTTY) << "the caller's";
        };
        round([&] {
            for (int number = 0; number < lines; ++number) write(number);
        });
        write(lines);
        owned.reset();
        Texts found;
        for (const std::string &path : log_files_in(quick.path())) {
            for (std::string &text : messages_in(path)) found.push_back(std::move(text));
            EXPECT_TRUE(fs::file_size(path) == 0 || content(path).back() == '\n');
        }
        int next = 0;
        for (const std::string &text : found) {
            while (next <= lines && text != message(next)) ++next;
            EXPECT_LE(next++, lines) << "not one of the lines, or out of order: " << text;
        }
        EXPECT_TRUE(!found.empty() && found.back() == message(lines)) << "the line after the fault";
        EXPECT_TRUE(found.size() == lines + 1 || !round.is_harmless());
    });
}

TEST_F(Log, ACopyWritesTheSameFiles) {
    const fs::path before = fs::current_path();
    fs::current_path(dir.path());
    (*log)->MainDir(log, "logs");
    fs::current_path(before);
    const Tq4_own<Tq4_log> copy(static_cast<Tq4_log>(Tq4_log_oitf->Dup(log)));
    EXPECT_TRUE(Tq4_log_oitf->Equal(log, copy.get()));
    (*copy)->Printf_t(copy.get(), moment, 0, "by the copy");
    EXPECT_EQ(files().at(0).find(dir / "logs"), 0u) << "a relative directory was resolved at once";
    EXPECT_EQ(messages_in(files().at(0)), Texts{"by the copy"});
    Tq4_log_oitf->Reset(log);
    EXPECT_FALSE(Tq4_log_oitf->Equal(log, copy.get()));
}

TEST(LogLine, ThePrefixIsThatOfItsFormat) {
    for (auto [year, milliseconds, thread] : {std::tuple{0, 0u, 0xabcde}, {9999, 999u, 0x7fffffff}, {26, 7u, 0x1a}}) {
        Tq4_wbuf out;
        uint8_t room[256];
        Tq4_wbuf_InitFixed(&out, room, sizeof room);
        Tq4_log_prefix prefix;
        prefix.Set({.tm_sec = 1, .tm_min = 2, .tm_hour = 3, .tm_mday = 4, .tm_mon = 5, .tm_year = year - 1900});
        prefix.Append(&out, milliseconds, thread);
        char expected[64];
        std::snprintf(expected, sizeof expected, "[%4d-06-04 03:02:01 %03u %04x] ", year, milliseconds, thread);
        EXPECT_EQ(std::string(reinterpret_cast<char *>(room), Tq4_wbuf_size(&out)), expected);
    }
}

} // namespace
