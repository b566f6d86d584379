// OLE Automation dates with the Gregorian leap-year rule.
#include "reader/OleDate.h"

#include <cmath>

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

// The date of a day counted from 1 January of year 1, the inverse of daysFromCivil: by 400-year
// eras of 146,097 days, then the year in the era counted from 1 March, so that the leap day
// comes last.
void civilFromDays(int64_t days, CivilTime& time)
{
    const int64_t fromMarch = days + 306; // 1 March of year 0 is day -306
    const int64_t era = fromMarch / 146097;
    const int64_t dayOfEra = fromMarch - era * 146097;
    const int64_t yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const int64_t monthFromMarch = (5 * dayOfYear + 2) / 153;
    time.day = static_cast<uint32_t>(dayOfYear - (153 * monthFromMarch + 2) / 5 + 1);
    time.month = static_cast<uint32_t>(monthFromMarch < 10 ? monthFromMarch + 3 : monthFromMarch - 9);
    time.year = static_cast<uint32_t>(era * 400 + yearOfEra + (time.month <= 2 ? 1 : 0));
}

} // namespace

bool fromOleDate(double date, CivilTime& time)
{
    // 1 January of year 1 and 1 January of year 10000, counted from 30 December 1899.
    constexpr double kFirst = -693593.0, kPastLast = 2958466.0;
    if (!(date > kFirst - 1.0 && date < kPastLast))
        return false;
    // A date before 1899 counts its days down and its time of day up: -1.25 is 29 December, 06:00.
    const double whole = std::trunc(date);
    int64_t dayNumber = static_cast<int64_t>(whole);
    int64_t seconds = std::llround(std::fabs(date - whole) * 86400.0);
    if (seconds == 86400) {
        ++dayNumber;
        seconds = 0;
    }
    const int64_t days = dayNumber + daysFromCivil(1899, 12, 30);
    if (days < 0 || dayNumber >= kPastLast)
        return false;
    CivilTime result;
    civilFromDays(days, result);
    result.hour = static_cast<uint32_t>(seconds / 3600);
    result.minute = static_cast<uint32_t>(seconds / 60 % 60);
    result.second = static_cast<uint32_t>(seconds % 60);
    time = result;
    return true;
}

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
