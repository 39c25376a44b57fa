// Which file a log line goes to: hours, quarters, days, sizes and restarts, on a clock and files made up here.
#include "file/log_choice.hpp"

#include <gtest/gtest.h>

#include <map>

namespace {

constexpr uint64_t Full = Tq4_log_choice::Default_size_limit;

std::tm at(const char *text) {
    std::tm t{};
    EXPECT_NE(strptime(text, "%Y-%m-%d %H:%M", &t), nullptr) << text;
    return t;
}

// A log over a directory tree in memory: every line is ten bytes.
struct Choice : testing::Test {
    std::map<std::string, uint64_t> files;
    Tq4_log_choice choice;
    std::string open_path; // empty: none
    bool writable = true;

    Choice() { restart(); }
    void restart() {
        choice = {};
        choice.m_pre = "svc";
        choice.m_maindir = "main";
        open_path.clear();
    }
    // Writes a line at a time and gives the file's name within its day; "lost" when no file could be opened.
    std::string line(const char *time) {
        std::tm t = at(time);
        if (choice.Due(t)) {
            open_path = choice.Next(t, [this](const char *path) { return size(path); });
            if (writable)
                choice.Opened(files.insert({open_path, 0}).first->second);
            else
                choice.Closed(), open_path.clear();
        }
        if (open_path.empty()) return "lost";
        files[open_path] += 10;
        choice.m_filesize += 10;
        return open_path.substr(open_path.rfind('/') + 1);
    }
    uint64_t size(const std::string &path) const { return files.count(path) ? files.at(path) : 0; }
    void fill() { choice.m_filesize = files[open_path] = Full; }
    // What a timer does between lines.
    bool check(const char *time) {
        if (!choice.Due(at(time))) return false;
        choice.Closed();
        open_path.clear();
        return true;
    }
};

TEST_F(Choice, TheFirstLineOpensAFileInItsDaysDirectory) {
    EXPECT_EQ(line("2026-11-15 14:37"), "svc_2026-11-15 14-3[001].log");
    EXPECT_EQ(choice.m_filedir, "main/logfiles-2026/11/2026-11-15");
    EXPECT_EQ(choice.m_filename, "svc_2026-11-15 14-3[001].log");
}

// Each story is a row of lines; "fill" fills the open file, "restart" is a new log over the same files.
struct Story {
    const char *name;
    std::vector<std::pair<const char *, const char *>> steps; // time or event, and the file expected
};

struct Stories : Choice, testing::WithParamInterface<Story> {};

TEST_P(Stories, ChooseTheFile) {
    for (auto &[time, expected] : GetParam().steps) {
        if (std::string(time) == "fill")
            fill();
        else if (std::string(time) == "restart")
            restart();
        else
            EXPECT_EQ(line(time), expected) << "at " << time;
    }
}

const Story stories[] = {
    {"quarters_of_an_hour_share_a_file_until_it_is_full",
     {{"2026-11-15 14:00", "svc_2026-11-15 14-1[001].log"},
      {"2026-11-15 14:15", "svc_2026-11-15 14-1[001].log"},
      {"2026-11-15 14:59", "svc_2026-11-15 14-1[001].log"}}},
    {"an_hour_begins_a_file_though_the_old_one_has_room",
     {{"2026-11-15 14:59", "svc_2026-11-15 14-4[001].log"}, {"2026-11-15 15:00", "svc_2026-11-15 15-1[001].log"}}},
    {"full_in_the_same_quarter_counts_on",
     {{"2026-11-15 14:37", "svc_2026-11-15 14-3[001].log"},
      {"fill", ""},
      {"2026-11-15 14:37", "svc_2026-11-15 14-3[002].log"},
      {"fill", ""},
      {"2026-11-15 14:44", "svc_2026-11-15 14-3[003].log"}}},
    {"full_in_another_quarter_starts_at_one",
     {{"2026-11-15 14:00", "svc_2026-11-15 14-1[001].log"},
      {"fill", ""},
      {"2026-11-15 14:01", "svc_2026-11-15 14-1[002].log"},
      {"fill", ""},
      {"2026-11-15 14:45", "svc_2026-11-15 14-4[001].log"}}},
    {"the_quarter_is_compared_with_the_stamp_not_with_the_last_line",
     {{"2026-11-15 14:00", "svc_2026-11-15 14-1[001].log"},
      {"2026-11-15 14:20", "svc_2026-11-15 14-1[001].log"},
      {"fill", ""},
      {"2026-11-15 14:20", "svc_2026-11-15 14-2[001].log"},
      {"fill", ""},
      {"2026-11-15 14:29", "svc_2026-11-15 14-2[002].log"}}},
    {"midnight_month_and_year",
     {{"2026-12-31 23:59", "svc_2026-12-31 23-4[001].log"}, {"2027-01-01 00:00", "svc_2027-01-01 00-1[001].log"}}},
    {"the_same_hour_of_another_day",
     {{"2026-11-15 14:00", "svc_2026-11-15 14-1[001].log"},
      {"2026-11-16 14:00", "svc_2026-11-16 14-1[001].log"},
      {"2026-12-16 14:00", "svc_2026-12-16 14-1[001].log"},
      {"2027-12-16 14:00", "svc_2027-12-16 14-1[001].log"}}},
    {"a_late_line_goes_back_to_its_own_hour_and_the_next_returns",
     {{"2026-11-15 14:59", "svc_2026-11-15 14-4[001].log"},
      {"2026-11-15 15:00", "svc_2026-11-15 15-1[001].log"},
      {"2026-11-15 14:59", "svc_2026-11-15 14-4[001].log"},
      {"2026-11-15 15:00", "svc_2026-11-15 15-1[001].log"}}},
    {"a_restart_continues_the_first_file_with_room",
     {{"2026-11-15 14:00", "svc_2026-11-15 14-1[001].log"},
      {"fill", ""},
      {"2026-11-15 14:00", "svc_2026-11-15 14-1[002].log"},
      {"restart", ""},
      {"2026-11-15 14:01", "svc_2026-11-15 14-1[002].log"},
      {"fill", ""},
      {"restart", ""},
      {"2026-11-15 14:02", "svc_2026-11-15 14-1[003].log"}}},
};

INSTANTIATE_TEST_SUITE_P(, Stories, testing::ValuesIn(stories),
                         [](auto &story) { return std::string(story.param.name); });

TEST_F(Choice, TheIndexWidensBeyondThreeDigits) {
    line("2026-11-15 14:00");
    choice.m_index = 1000;
    fill();
    EXPECT_EQ(line("2026-11-15 14:00"), "svc_2026-11-15 14-1[1000].log");
}

TEST_F(Choice, AFileThatCannotBeOpenedIsTriedAgainAtEachLine) {
    writable = false;
    EXPECT_EQ(line("2026-11-15 14:00"), "lost");
    EXPECT_EQ(line("2026-11-15 14:00"), "lost");
    writable = true;
    EXPECT_EQ(line("2026-11-15 14:00"), "svc_2026-11-15 14-1[003].log") << "every attempt has taken a number";
}

TEST_F(Choice, ALimitThatRisesMeanwhileDoesNotKeepTheFileClosed) {
    writable = false;
    line("2026-11-15 14:00");
    choice.m_sizeLimit *= 2;
    writable = true;
    EXPECT_EQ(line("2026-11-15 14:00"), "svc_2026-11-15 14-1[002].log");
}

TEST_F(Choice, TheTimerClosesAtANewHourAndTheNextLineOpensTheFirstFile) {
    line("2026-11-15 14:10");
    EXPECT_FALSE(check("2026-11-15 14:59"));
    EXPECT_TRUE(check("2026-11-15 15:00"));
    EXPECT_EQ(choice.m_filename, "");
    EXPECT_EQ(line("2026-11-15 15:01"), "svc_2026-11-15 15-1[001].log");
}

TEST_F(Choice, TheTimerPreparesTheDirectoryOfANewDay) {
    line("2026-11-15 14:10");
    EXPECT_TRUE(check("2026-11-16 00:00"));
    EXPECT_EQ(choice.m_filedir, "main/logfiles-2026/11/2026-11-16");
    EXPECT_TRUE(check("2026-11-16 00:00")) << "no file is open, so the question stays open";
    EXPECT_EQ(line("2026-11-16 00:01"), "svc_2026-11-16 00-1[001].log");
}

TEST_F(Choice, AMainDirectoryIsTakenAtTheNextDate) {
    line("2026-11-15 14:10");
    choice.m_maindir = "/elsewhere";
    line("2026-11-15 15:10");
    EXPECT_EQ(choice.m_filedir, "main/logfiles-2026/11/2026-11-15");
    line("2026-11-16 15:10");
    EXPECT_EQ(choice.m_filedir, "/elsewhere/logfiles-2026/11/2026-11-16");
}

TEST_F(Choice, ABorrowedDirectoryTextOutlivesMidnight) {
    line("2026-11-15 23:59");
    const char *borrowed = choice.m_filedir.c_str();
    for (int i = 0; i < 3; i++) {
        line("2026-11-16 00:00");
        line("2026-11-15 23:59");
    }
    line("2026-11-16 00:00");
    EXPECT_STREQ(borrowed, "main/logfiles-2026/11/2026-11-15");
}

} // namespace
