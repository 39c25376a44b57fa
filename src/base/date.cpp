// date: arithmetic of Gregorian dates written as the number yyyymmdd.
//
// Steps by one day look only at the date's own month. A difference is that of two day numbers, each the days of all
// years before the date's year plus its day of the year, so it takes the same time however far apart the dates are.
// Every unsigned number splits into a year, a month of 0 to 99 and a day of 0 to 99; none reaches outside the table.
#include "base/date.hpp"

namespace {

constexpr unsigned month_lengths[2][12] = {
    {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31},
    {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31},
};

constexpr bool is_leap(unsigned year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

struct Calendar_date {
    unsigned year, month, day;

    explicit Calendar_date(unsigned date) : year(date / 10000), month(date / 100 % 100), day(date % 100) {}

    unsigned number() const { return year * 10000 + month * 100 + day; }
    bool has_month() const { return month >= 1 && month <= 12; }
    unsigned month_length() const { return month_lengths[is_leap(year)][month - 1]; }

    // The days from the start of the year 0 to this date.
    long day_number() const {
        const long leap_years = year == 0 ? 0 : (year - 1) / 4 - (year - 1) / 100 + (year - 1) / 400 + 1;
        long days = 365L * year + leap_years + day;
        for (unsigned before = 1; before < month && before <= 12; ++before)
            days += month_lengths[is_leap(year)][before - 1];
        return days;
    }
};

} // namespace

unsigned Tq4_NextDate(unsigned date) {
    Calendar_date next(date);
    if (next.day < 28) return date + 1;
    if (!next.has_month()) return date;
    if (next.day < next.month_length()) return date + 1;
    next.day = 1;
    if (++next.month > 12) {
        next.month = 1;
        ++next.year;
    }
    return next.number();
}

unsigned Tq4_PreDate(unsigned date) {
    Calendar_date previous(date);
    if (previous.day >= 2) return date - 1;
    if (!previous.has_month()) return date;
    if (--previous.month == 0) {
        previous.month = 12;
        --previous.year;
    }
    previous.day = previous.month_length();
    return previous.number();
}

int Tq4_GetDayWeek(unsigned date) {
    const Calendar_date given(date);
    const bool counts_to_year_before = given.month < 3;
    const int year = static_cast<int>(given.year) - counts_to_year_before;
    const int month = static_cast<int>(given.month) + (counts_to_year_before ? 12 : 0);
    const int century = year / 100, rest = year % 100;
    const int day = static_cast<int>(given.day);
    const int sum = day + century / 4 - 2 * century + rest + rest / 4 + 26 * (month + 1) / 10 - 1;
    const int remainder = sum % 7; // negative remainders are deliberate; callers get them as they are
    return remainder == 0 ? 7 : remainder;
}

int Tq4_DateDiff(unsigned a, unsigned b) {
    return static_cast<int>(Calendar_date(a).day_number() - Calendar_date(b).day_number());
}
