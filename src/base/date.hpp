// date.hpp: arithmetic of Gregorian dates written as the number yyyymmdd (20240229).
//
// Any number is accepted: what is not a date gives some number by the same arithmetic, as each function says.
#pragma once

// The day after. A day of the month below 28 gives date + 1, whatever the month; else a month outside 1 to 12 gives
// the date unchanged, and a day at or beyond the month's end the first of the next month.
unsigned Tq4_NextDate(unsigned date);

// The day before. A day of 2 or more gives date - 1, whatever the month; else a month outside 1 to 12 gives the date
// unchanged, and day 1 or 0 the last of the month before.
unsigned Tq4_PreDate(unsigned date);

// The day of the week, 1 (Monday) to 7. Where the formula's remainder is negative it is returned as it is: the day
// minus 7 (20000301, a Wednesday, gives -4).
int Tq4_GetDayWeek(unsigned date);

// The days from b to a, negative when a is earlier. A month beyond 12 counts as twelve whole months.
int Tq4_DateDiff(unsigned a, unsigned b);
