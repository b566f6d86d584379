// Calendar dates as OLE Automation dates: days since 30 December 1899, time of day as the fraction.
#pragma once

#include <cstdint>

namespace ubrof {

/// False (and date untouched) for an impossible date or a year above 9999.
bool toOleDate(uint32_t year, uint32_t month, uint32_t day, uint32_t hour, uint32_t minute,
               uint32_t second, double& date);

} // namespace ubrof
