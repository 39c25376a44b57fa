// Dates agree with the calendar day by day; what is not a date follows the same arithmetic.
#include "base/date.hpp"
#include "support/test.hpp"

namespace {

using namespace std::chrono;

unsigned number(sys_days day) {
    const year_month_day date(day);
    return static_cast<unsigned>(static_cast<int>(date.year())) * 10000 + static_cast<unsigned>(date.month()) * 100 +
           static_cast<unsigned>(date.day());
}

TEST(Date, WalksTheCalendarBothWays) {
    const sys_days first = 1580y / 1 / 1, last = 2420y / 12 / 31;
    for (sys_days day = first; day < last; day += days(1)) {
        const unsigned today = number(day), tomorrow = number(day + days(1));
        ASSERT_EQ(Tq4_NextDate(today), tomorrow);
        ASSERT_EQ(Tq4_PreDate(tomorrow), today);
        ASSERT_EQ(Tq4_DateDiff(tomorrow, today), 1);
        ASSERT_EQ(Tq4_DateDiff(number(first), today), (first - day).count());
        const int week_day = Tq4_GetDayWeek(today), true_week_day = static_cast<int>(weekday(day).iso_encoding());
        ASSERT_TRUE(week_day == true_week_day || (week_day < 0 && week_day == true_week_day - 7)) << today;
    }
}

TEST(Date, StepsLookAtTheDayBeforeTheMonth) {
    constexpr unsigned cases[][3] = {
        {20240231, 20240301, 20240230}, {20240299, 20240301, 20240298}, {20241327, 20241328, 20241326},
        {20241330, 20241330, 20241329}, {20241301, 20241302, 20241301}, {20240001, 20240002, 20240001},
        {20240028, 20240028, 20240027}, {20240100, 20240101, 20231231}, {4294967295, 4294967295, 4294967294},
    };
    for (auto [date, next, previous] : cases)
        EXPECT_TRUE(Tq4_NextDate(date) == next && Tq4_PreDate(date) == previous) << date;
}

TEST(Date, WeekDaysKeepTheRemaindersSign) {
    EXPECT_EQ(Tq4_GetDayWeek(20000301), -4);
    EXPECT_EQ(Tq4_GetDayWeek(20010301), -3);
    EXPECT_EQ(Tq4_GetDayWeek(20000305), 7) << "of the sum -21";
    EXPECT_EQ(Tq4_GetDayWeek(20010101), 1) << "in the 13th month of 2000";
}

// Counted out by hand: whole years between, the rest of the earlier year, the days of the later one.
TEST(Date, NumbersThatAreNoDatesDifferByTheSameCount) {
    constexpr std::pair<std::pair<unsigned, unsigned>, int> cases[] = {
        {{20240199, 20240100}, 99},    {{20241545, 20231399}, 312}, {{20230000, 20240000}, -365},
        {{21000299, 19000001}, 73178}, {{20249999, 0}, 739716},     {{4294961231, 101}, 156870558}};
    for (auto [dates, days] : cases) EXPECT_EQ(Tq4_DateDiff(dates.first, dates.second), days) << dates.first;
}

} // namespace
