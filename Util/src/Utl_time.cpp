#include "Utl_time.h"

#include <sys/time.h>

#include <ctime>

void UTLTime_GetCalendarTimeLocal(UTLTime_CalendarTime* now) {
  if (now == nullptr) {
    return;
  }
  *now = {};
  timeval clock{};
  gettimeofday(&clock, nullptr);
  std::tm local{};
  if (localtime_r(&clock.tv_sec, &local) == nullptr) {
    return;
  }
  now->year = local.tm_year + 1900;
  now->month = local.tm_mon + 1;
  now->day = local.tm_mday;
  now->hour = local.tm_hour;
  now->min = local.tm_min;
  now->sec = local.tm_sec;
  now->msec = static_cast<std::int32_t>(clock.tv_usec / 1000);
  now->usec = static_cast<std::int32_t>(clock.tv_usec);
}
