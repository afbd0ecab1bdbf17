/// @file
/// Local calendar time.
#pragma once

#include <cstdint>

#include "PluginSDK_export.h"

/// A moment of the wall clock in the local time zone.
struct UTLTime_CalendarTime {
  std::int32_t year;   ///< all four digits
  std::int32_t month;  ///< 1 to 12
  std::int32_t day;    ///< of the month, 1 to 31
  std::int32_t hour;   ///< 0 to 23
  std::int32_t min;    ///< 0 to 59
  std::int32_t sec;    ///< 0 to 60, 60 being a leap second
  std::int32_t msec;   ///< 0 to 999
  std::int32_t usec;   ///< 0 to 999999: the whole part below the second, the milliseconds included
};

/// Fills the record with the present time; does nothing for null. A moment that the C library cannot convert
/// gives a record of zeros. Safe for concurrent use.
PLUGINSDK_API void UTLTime_GetCalendarTimeLocal(UTLTime_CalendarTime* now);
