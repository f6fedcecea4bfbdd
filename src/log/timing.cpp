// The exported timing helpers: StartTime, EndTime, now_ms, GetDateTime and the timing slots. Tested by
// tests/log/timing_test.cpp.

#include <sys/time.h>

#include <cstdio>
#include <ctime>

#include "ZoTuningUtils.h"
#include "log/debug_file.h"

timeval start_t[256] = {};
timeval end_t[256] = {};

void StartTime(int slot) { gettimeofday(&start_t[slot], nullptr); }

void EndTime(const char* file, int line, const char* function, int slot) {
  timeval& start = start_t[slot];
  timeval& end = end_t[slot];
  gettimeofday(&end, nullptr);
  const long long cost_us = (static_cast<long long>(end.tv_sec) - start.tv_sec) * 1000000 + end.tv_usec - start.tv_usec;
  char text[256];
  // The microseconds have no leading zeros; this form is kept.
  (void)std::snprintf(text, sizeof(text), "[TimeDiff] %s:%d: %s Start: %ld.%ld -> %ld.%ld, Cost: %llu us", file, line,
                      function, static_cast<long>(start.tv_sec), static_cast<long>(start.tv_usec),
                      static_cast<long>(end.tv_sec), static_cast<long>(end.tv_usec),
                      static_cast<unsigned long long>(cost_us));
  ZO_TUNING::internal::WriteLoggerText(ZO_TUNING::internal::kLevelTime, text);
  start = {};
  end = {};
}

double now_ms() {
  timeval now = {};
  gettimeofday(&now, nullptr);
  return static_cast<double>(now.tv_sec) * 1000.0 + static_cast<double>(now.tv_usec) / 1000.0;
}

void GetDateTime(ZoTuningDateTime* record) {
  if (record == nullptr) return;
  timeval now = {};
  tm local = {};
  if (gettimeofday(&now, nullptr) != 0) return;
  tzset();
  if (localtime_r(&now.tv_sec, &local) == nullptr) return;
  record->seconds = static_cast<int32_t>(now.tv_sec);
  record->microseconds = static_cast<int32_t>(now.tv_usec);
  record->second = local.tm_sec;
  record->minute = local.tm_min;
  record->hour = local.tm_hour;
  record->day_of_month = local.tm_mday;
  record->month = local.tm_mon;
  record->year = local.tm_year;
  record->day_of_week = local.tm_wday;
  record->day_of_year = local.tm_yday;
  record->daylight_saving = local.tm_isdst;
  record->utc_offset = local.tm_gmtoff;
}
