// Calendar dates as OLE Automation dates: days since 30 December 1899, time of day as the fraction.
#pragma once

#include <cstdint>

namespace ubrof {

/// False (and date untouched) for an impossible date or a year above 9999.
bool toOleDate(uint32_t year, uint32_t month, uint32_t day, uint32_t hour, uint32_t minute,
               uint32_t second, double& date);

/// A date and time of day as a calendar shows them.
struct CivilTime {
    uint32_t year = 0, month = 0, day = 0;
    uint32_t hour = 0, minute = 0, second = 0;
};

/// The calendar date and time of an OLE date, to the nearest second; false (and time untouched)
/// for a value that is not a number or lies outside the years 1 to 9999.
bool fromOleDate(double date, CivilTime& time);

} // namespace ubrof
