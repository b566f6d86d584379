// OLE Automation dates with the Gregorian leap-year rule.
#include "reader/OleDate.h"

namespace ubrof {
namespace {

bool isLeapYear(int64_t year)
{
    return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

// Days from 1 January of year 1 (proleptic Gregorian) to the given date.
int64_t daysFromCivil(int64_t year, uint32_t month, uint32_t day)
{
    static const int cumulative[12] = {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334};
    const int64_t before = year - 1;
    int64_t days = before * 365 + before / 4 - before / 100 + before / 400;
    days += cumulative[month - 1] + day - 1;
    if (month > 2 && isLeapYear(year))
        ++days;
    return days;
}

} // namespace

bool toOleDate(uint32_t year, uint32_t month, uint32_t day, uint32_t hour, uint32_t minute,
               uint32_t second, double& date)
{
    static const uint32_t monthLength[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    if (year > 9999 || month < 1 || month > 12 || day == 0 || hour > 23 || minute > 59 || second > 59)
        return false;
    const uint32_t length = monthLength[month - 1] + (month == 2 && isLeapYear(year) ? 1 : 0);
    if (day > length)
        return false;
    const int64_t dayNumber = daysFromCivil(year, month, day) - daysFromCivil(1899, 12, 30);
    const double fraction = (hour * 3600.0 + minute * 60.0 + second) / 86400.0;
    date = dayNumber >= 0 ? double(dayNumber) + fraction : double(dayNumber) - fraction;
    return true;
}

} // namespace ubrof
