#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

#include "ZoTuningUtils.h"

namespace {

double Milliseconds(const timeval& time) {
  return static_cast<double>(time.tv_sec) * 1000.0 + static_cast<double>(time.tv_usec) / 1000.0;
}

TEST(TimingTest, StoresTheCurrentTime) {
  timeval before, after;
  gettimeofday(&before, nullptr);
  StartTime(255);
  const double now = now_ms();
  gettimeofday(&after, nullptr);
  EXPECT_LE(Milliseconds(before), Milliseconds(start_t[255]));
  EXPECT_LE(Milliseconds(start_t[255]), now);
  EXPECT_LE(now, Milliseconds(after));
  start_t[255] = {};
}

TEST(TimingTest, GetDateTimeGivesTheLocalTime) {
  GetDateTime(nullptr);
  setenv("TZ", "XST-05:30", 1);
  tzset();
  ZoTuningDateTime record = {};
  GetDateTime(&record);
  const time_t seconds = record.seconds;
  tm local;
  localtime_r(&seconds, &local);
  unsetenv("TZ");
  tzset();
  EXPECT_NEAR(static_cast<double>(seconds), static_cast<double>(time(nullptr)), 3600.0);
  EXPECT_THAT(record.microseconds, testing::AllOf(testing::Ge(0), testing::Lt(1000000)));
  EXPECT_THAT((std::vector<int>{record.second, record.minute, record.hour, record.day_of_month, record.month,
                                record.year, record.day_of_week, record.day_of_year, record.daylight_saving}),
              testing::ElementsAre(local.tm_sec, local.tm_min, local.tm_hour, local.tm_mday, local.tm_mon,
                                   local.tm_year, local.tm_wday, local.tm_yday, local.tm_isdst));
  EXPECT_EQ(record.utc_offset, 19800);
}

}  // namespace
