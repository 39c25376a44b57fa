// Dates: written against the C library's calendar, read back against mktime, in several time zones.
#include "string_fixture.hpp"

namespace {

struct StringDate : StringFixture {
    const char *zone = std::getenv("TZ");
    std::string zone_before = zone ? zone : "";

    StringDate() { in_zone("UTC0"); }
    ~StringDate() override { zone ? in_zone(zone_before.c_str()) : void(unsetenv("TZ")), tzset(); }
    void in_zone(const char *rule) { setenv("TZ", rule, 1), tzset(); }

    std::string format(long time, const char *pattern) {
        (*s)->FormatDate(s, time, pattern);
        return text();
    }
    long parse(const char *text, const char *pattern) { return (*s)->ToTime((*s)->Strcpy(s, text), pattern); }
};

TEST_F(StringDate, WritesTimesOfDayAndCalendarTimes) {
    const std::tuple<long, const char *, const char *> cases[] = {
        {0, "YYYY-MM-DD hh:MI:SS yy KK", "1900-01-00 00:00:00 00 01"},
        {3723, "Mi mI MI mi Yy Dd d.h.k.m.s.y %d", "i I 02 02   ..... %"},
        {86400, "YYYYMMDD HHmiss", "19700102 000000"},
        {-1, "YYYYMMDD HHmiss", "19691231 235959"},
        {4102444800, "YYyy|YYYYY|YYYYYYYY|YYY", "0000|2100|21002100|00"},
        {253402300800, "Y-YYYY", "-10000"},
        {-62198755200, "YYYY YY", "-001 -1"},
        {LONG_MAX, "YYYY no calendar has that year", ""},
        {0, nullptr, ""}};
    for (auto &[time, pattern, result] : cases) EXPECT_EQ(format(time, pattern), result) << time;
    set("HH:mi");
    (*s)->Append_FormatDate(s, 3723, (*s)->c_str(s));
    EXPECT_EQ(text(), "HH:mi01:02") << "the pattern may lie in the string itself";
    EXPECT_EQ(format(3723, (*s)->c_str(s)), "01:0201:02");
}

TEST_F(StringDate, AgreesWithTheSystemsCalendarAndReadsBackWhatItWrote) {
    std::mt19937_64 random(11);
    // Rules, not names: the zone files need not be installed.
    for (const char *rule : {"UTC0", "CST-8", "CET-1CEST,M3.5.0,M10.5.0/3", "<-0930>9:30"}) {
        in_zone(rule);
        for (int i = 0; i < 2000; ++i) {
            time_t time = 86400 + static_cast<time_t>(random() % 250000000000);
            tm fields;
            char expected[64];
            strftime(expected, sizeof expected, "%Y-%m-%d %H:%M:%S %y", localtime_r(&time, &fields));
            ASSERT_EQ(format(time, "YYYY-MM-DD HH:mi:ss yy"), expected) << rule;
            fields.tm_isdst = -1;
            ASSERT_EQ((*s)->ToTime(s, "YYYY-MM-DD HH:MI:SS"), mktime(&fields)) << rule << expected;
        }
    }
}

TEST_F(StringDate, LeavesUnsetWhatTheTextDoesNotSay) {
    const long noon = parse("2024-05-06 12:00:00", "YYYY-MM-DD HH:mi:ss");
    const char *const same[][2] = {{"2024-05-06 12", "YYYY-MM-DD HH:mi:ss"},
                                   {"24-05-06 12", "yy-mm-dd hh"},
                                   {"2024x05y06z12", "YYYY-MM-DD HH"},
                                   {"2024-05-0612 and more", "YYYY-MM-DDyHH"},
                                   {"2024-05-06 12:5:00", "YYYY-MM-DD HH:mi:ss"},
                                   {"2024-05-06 12 00", "YYYY-MM-DD HH KK"}};
    for (auto &[text, pattern] : same) EXPECT_EQ(parse(text, pattern), noon) << text;
    EXPECT_EQ(parse("2024-05-06 12 04", "YYYY-MM-DD HH KK"), noon + 45 * 60);
    EXPECT_EQ(parse("", "YYYY-MM-DD"), parse("1899-12-31", "YYYY-MM-DD"));
}

TEST_F(StringDate, ThePeriodIsThatOfTheLastTokenInThePattern) {
    const std::pair<const char *, long> cases[] = {
        {"", 31536000},     {"YYYY", 31536000},  {"YYYYMM", 2592000}, {"yyyy-mm-dd", 86400}, {"YYYYMMDDHH", 3600},
        {"HHKK", 900},      {"HH:MI", 60},       {"HH:MI:SS", 1},     {"ssHH", 3600},        {"SSYYYY", 1},
        {"SSYY", 31536000}, {"D-H-M", 31536000}, {nullptr, 31536000}};
    for (auto &[pattern, period] : cases) EXPECT_EQ((*s)->GetTimePeriod(pattern), period) << pattern;
}

} // namespace
