// Dates agree with the calendar day by day; what is not a date follows the same arithmetic.
#include "base/date.hpp"

#include <chrono>
#include <random>

#include <gtest/gtest.h>

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
    const struct {
        unsigned date, next, previous;
    } cases[] = {
        {20240231, 20240301, 20240230}, {20240299, 20240301, 20240298}, {20241327, 20241328, 20241326},
        {20241330, 20241330, 20241329}, {20241301, 20241302, 20241301}, {20240001, 20240002, 20240001},
        {20240028, 20240028, 20240027}, {20240100, 20240101, 20231231}, {4294967295, 4294967295, 4294967294},
    };
    for (const auto &[date, next, previous] : cases) {
        EXPECT_EQ(Tq4_NextDate(date), next);
        EXPECT_EQ(Tq4_PreDate(date), previous);
    }
}

TEST(Date, WeekDaysKeepTheRemaindersSign) {
    EXPECT_EQ(Tq4_GetDayWeek(20000301), -4);
    EXPECT_EQ(Tq4_GetDayWeek(20010301), -3);
    EXPECT_EQ(Tq4_GetDayWeek(20000305), 7) << "of the sum -21";
    EXPECT_EQ(Tq4_GetDayWeek(20010101), 1) << "in the 13th month of 2000";
}

// The difference counted out: whole years between, the rest of the earlier year, the days of the later one.
int counted_difference(unsigned a, unsigned b) {
    if (a < b) return -counted_difference(b, a);
    auto leap = [](unsigned number) { return year(static_cast<int>(number)).is_leap(); };
    auto day_of_year = [&](unsigned date) {
        int days = static_cast<int>(date % 100);
        for (unsigned month = 1; month < date / 100 % 100 && month <= 12; ++month)
            days += month == 2 ? 28 + leap(date / 10000) : 30 + (month % 2 == (month < 8));
        return days;
    };
    if (a / 10000 == b / 10000) return day_of_year(a) - day_of_year(b);
    int days = 365 + leap(b / 10000) - day_of_year(b) + day_of_year(a);
    for (unsigned between = b / 10000 + 1; between < a / 10000; ++between) days += 365 + leap(between);
    return days;
}

TEST(Date, NumbersThatAreNoDatesDifferByTheSameCount) {
    std::mt19937 random(20240229);
    std::uniform_int_distribution<unsigned> number(0, 29999999);
    for (int i = 0; i < 20000; ++i) {
        const unsigned a = number(random), b = number(random);
        ASSERT_EQ(Tq4_DateDiff(a, b), counted_difference(a, b)) << a << " " << b;
    }
    EXPECT_EQ(Tq4_DateDiff(4294961231u, 101u), 156870558) << "the last day an unsigned number holds";
}

} // namespace
