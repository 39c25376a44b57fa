// Which file a log line goes to: hours, quarters, days, sizes and restarts, on a clock and files made up here.
#include "file/log_choice.hpp"
#include "support/test.hpp"

namespace {

constexpr uint64_t Full = Tq4_log_choice::Default_size_limit;

const std::string today = "2026-11-15T";

// "14:37" is today's.
std::tm at(const std::string &text) {
    std::tm t{};
    EXPECT_NE(strptime((text.size() == 5 ? today + text : text).c_str(), "%Y-%m-%dT%H:%M", &t), nullptr) << text;
    return t;
}

// A log over a directory tree in memory; every line is ten bytes.
struct Choice : testing::Test {
    std::map<std::string, uint64_t> files;
    Tq4_log_choice choice;
    std::string open_path;              // empty: none
    bool writable = true, away = false; // away: the open file is not at its path any more

    Choice() { restart(); }
    void restart() {
        choice = {};
        choice.m_pre = "svc";
        choice.m_maindir = "main";
        open_path.clear();
    }
    void open(const std::string &path) {
        open_path = writable ? path : "";
        writable ? choice.Opened(files[path]) : choice.Closed();
        away = false;
    }
    void look() {
        if (away) choice.m_moved = true;
        choice.Seen(files[open_path]);
    }
    // Writes a line and gives its file, "2026-11-16T14-3[001]" or today "14-3[001]"; "lost" when none could be opened,
    // "away" when it went to a file that has been moved.
    std::string line(const std::string &time) {
        std::tm t = at(time);
        const bool look_due = choice.Look_due(static_cast<uint64_t>(timegm(&t)) * 1000);
        if (look_due && !open_path.empty()) look();
        if (choice.Due(t))
            open(choice.Next(t, [this](const char *path) { return files.count(path) ? files[path] : 0; }));
        else if (choice.m_moved)
            open(choice.Path());
        if (open_path.empty()) return "lost";
        if (away) return "away";
        files[open_path] += 10;
        choice.m_filesize += 10;
        std::string name = open_path.substr(open_path.rfind("/svc_") + 5);
        name[name.find(' ')] = 'T';
        name.resize(name.size() - 4);
        return name.starts_with(today) ? name.substr(today.size()) : name;
    }
    // What a timer does between lines.
    std::string check(const std::string &time) {
        if (!choice.Due(at(time))) return "kept";
        choice.Closed();
        open_path.clear();
        return "closed";
    }
    // Runs a script: a time writes a line, "check:" before it makes it a timer's; other words are events.
    std::string run(const char *script) {
        std::istringstream words(script);
        std::string all;
        for (std::string word; words >> word;) {
            if (word == "fill")
                choice.m_filesize = files[open_path] = Full;
            else if (word == "others-fill")
                files[open_path] = Full;
            else if (word == "move")
                away = true;
            else if (word == "restart")
                restart();
            else if (word == "lock" || word == "unlock")
                writable = word == "unlock";
            else if (word == "raise")
                choice.m_sizeLimit *= 2;
            else
                all += (word.starts_with("check:") ? check(word.substr(6)) : line(word)) + ' ';
        }
        return all;
    }
};

TEST_F(Choice, FollowsTheClockAndTheSizes) {
    const std::tuple<const char *, const char *, const char *> stories[] = {
        {"quarters share a file until it is full", "14:00 14:15 14:59", "14-1[001] 14-1[001] 14-1[001] "},
        {"an hour begins a file though the old one has room", "14:59 15:00", "14-4[001] 15-1[001] "},
        {"full in the same quarter counts on", "14:37 fill 14:37 fill 14:44", "14-3[001] 14-3[002] 14-3[003] "},
        {"full in another quarter starts at one", "14:00 fill 14:01 fill 14:45", "14-1[001] 14-1[002] 14-4[001] "},
        {"the quarter is the stamp's, not the last line's", "14:00 14:20 fill 14:20 fill 14:29",
         "14-1[001] 14-1[001] 14-2[001] 14-2[002] "},
        {"midnight, month and year", "2026-12-31T23:59 2027-01-01T00:00 2028-01-01T00:00",
         "2026-12-31T23-4[001] 2027-01-01T00-1[001] 2028-01-01T00-1[001] "},
        {"a late line goes back to its own hour", "14:59 15:00 14:59 15:00",
         "14-4[001] 15-1[001] 14-4[001] 15-1[001] "},
        {"a restart continues the first file with room", "14:00 fill 14:00 restart 14:01 fill restart 14:02",
         "14-1[001] 14-1[002] 14-1[002] 14-1[003] "},
        {"a file that cannot be opened is tried again, and every attempt takes a number",
         "lock 14:00 14:00 unlock 14:00", "lost lost 14-1[003] "},
        {"a limit that rises meanwhile does not keep the file closed", "lock 14:00 raise unlock 14:00",
         "lost 14-1[002] "},
        {"the timer closes at a new hour, and the next line opens", "14:10 check:14:59 check:15:00 15:01",
         "14-1[001] kept closed 15-1[001] "},
        {"while no file is open the timer's question stays open",
         "check:2026-11-16T00:00 check:2026-11-16T00:00 2026-11-16T00:01", "closed closed 2026-11-16T00-1[001] "},
        {"a file that was moved is followed by one of its name at the next look", "14:37 move 14:37 14:38",
         "14-3[001] away 14-3[001] "},
        {"also by a clock that was set back", "14:37 move 14:10 14:10", "14-3[001] 14-3[001] 14-3[001] "},
        {"but not when its hour is over", "14:59 move 15:00", "14-4[001] 15-1[001] "},
        {"what others write counts at the next look", "14:37 others-fill 14:37 14:38",
         "14-3[001] 14-3[001] 14-3[002] "},
    };
    for (const auto &[what, script, expected] : stories) {
        files.clear();
        restart();
        EXPECT_EQ(run(script), expected) << what;
    }
}

TEST_F(Choice, TheSizeIsAskedRarelyUntilOthersAreSeenToWrite) {
    const auto write = [&](int lines) {
        int asked = 0;
        while (lines-- > 0) {
            if (choice.Size_due()) ++asked, choice.Seen(files[open_path]);
            line("14:37");
        }
        return asked;
    };
    EXPECT_EQ(write(7000), 1) << "once in 65536 bytes";
    files[open_path] += 10; // by others
    EXPECT_GT(write(7000), 100) << "from the next time on always";
    files[open_path] = Full;
    EXPECT_EQ(write(2), 1) << "and of the next file rarely again";
    EXPECT_EQ(open_path.substr(open_path.size() - 9), "[002].log");
}

TEST_F(Choice, NamesAndDirectoriesHaveTheirForm) {
    line("14:37");
    EXPECT_EQ(open_path, "main/logfiles-2026/11/2026-11-15/svc_2026-11-15 14-3[001].log");
    choice.m_index = 1000;
    EXPECT_EQ(run("fill 14:37"), "14-3[1000] ");
    choice.m_maindir = "/elsewhere";
    line("15:10");
    EXPECT_EQ(choice.m_filedir, "main/logfiles-2026/11/2026-11-15") << "a main directory counts from the next date";
    line("2026-11-16T15:10");
    EXPECT_EQ(choice.m_filedir, "/elsewhere/logfiles-2026/11/2026-11-16");
}

TEST_F(Choice, ABorrowedDirectoryTextOutlivesMidnight) {
    line("23:59");
    const char *borrowed = choice.m_filedir.c_str();
    run("2026-11-16T00:00 23:59 2026-11-16T00:00 23:59 2026-11-16T00:00");
    EXPECT_STREQ(borrowed, "main/logfiles-2026/11/2026-11-15");
}

} // namespace
