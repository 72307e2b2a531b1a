#include <gtest/gtest.h>

#include <windows.h>

#include <cstdio>
#include <string>

#include "updater/ApplyWindow.h"

namespace {

SYSTEMTIME at(const char* text) {  // "2024-06-17 22:30"
  SYSTEMTIME time = {};
  unsigned year = 0, month = 0, day = 0, hour = 0, minute = 0;
  sscanf(text, "%u-%u-%u %u:%u", &year, &month, &day, &hour, &minute);
  time.wYear = static_cast<WORD>(year);
  time.wMonth = static_cast<WORD>(month);
  time.wDay = static_cast<WORD>(day);
  time.wHour = static_cast<WORD>(hour);
  time.wMinute = static_cast<WORD>(minute);
  return time;
}

std::string text(const SYSTEMTIME& time) {
  char buffer[32];
  snprintf(buffer, sizeof(buffer), "%04u-%02u-%02u %02u:%02u", time.wYear, time.wMonth, time.wDay,
           time.wHour, time.wMinute);
  return buffer;
}

// A rule date: the `week`-th (5 = last) Sunday of `month` at `hour`:00 local time.
SYSTEMTIME sunday(WORD month, WORD week, WORD hour) {
  SYSTEMTIME rule = {};
  rule.wMonth = month;
  rule.wDay = week;
  rule.wHour = hour;
  return rule;
}

TIME_ZONE_INFORMATION zone(LONG bias, SYSTEMTIME toStandard, SYSTEMTIME toDaylight) {
  TIME_ZONE_INFORMATION zone = {};
  zone.Bias = bias;
  zone.StandardDate = toStandard;
  zone.DaylightDate = toDaylight;
  zone.DaylightBias = toDaylight.wMonth != 0 ? -60 : 0;
  return zone;
}

const TIME_ZONE_INFORMATION kUtc = zone(0, {}, {});
// US Eastern: from the second Sunday of March 02:00 to the first Sunday of November 02:00.
const TIME_ZONE_INFORMATION kUs = zone(300, sunday(11, 1, 2), sunday(3, 2, 2));
// Central European: from the last Sunday of March 02:00 to the last Sunday of October 03:00.
const TIME_ZONE_INFORMATION kCet = zone(-60, sunday(10, 5, 3), sunday(3, 5, 2));

const DWORD kMonday = 2, kSunday = 1, kAll = ApplyWindow::kEveryDay;

struct Row {
  const char* what;
  const TIME_ZONE_INFORMATION* zone;
  DWORD start, duration, days;
  const char* now;    // UTC
  DWORD minutesLeft;  // 0: outside
  bool giveUp;        // With the default reserve of 15 minutes.
  const char* next;   // UTC
};

// 2024-06-17 is a Monday; 2024-03-10 and 2024-11-03 the US changes, 2024-03-31 and 2024-10-27
// the European ones.
const Row kRows[] = {
    {"before", &kUtc, 1320, 180, kAll, "2024-06-17 21:59", 0, true, "2024-06-17 22:00"},
    {"first minute", &kUtc, 1320, 180, kAll, "2024-06-17 22:00", 180, false, "2024-06-18 22:00"},
    {"after midnight", &kUtc, 1320, 180, kAll, "2024-06-18 00:30", 30, false, "2024-06-18 22:00"},
    {"more than the reserve", &kUtc, 1320, 180, kAll, "2024-06-18 00:44", 16, false,
     "2024-06-18 22:00"},
    {"the reserve", &kUtc, 1320, 180, kAll, "2024-06-18 00:45", 15, true, "2024-06-18 22:00"},
    {"last minute", &kUtc, 1320, 180, kAll, "2024-06-18 00:59", 1, true, "2024-06-18 22:00"},
    {"its end", &kUtc, 1320, 180, kAll, "2024-06-18 01:00", 0, true, "2024-06-18 22:00"},
    {"Monday's, on Tuesday", &kUtc, 1320, 180, kMonday, "2024-06-18 00:30", 30, false,
     "2024-06-24 22:00"},
    {"not on Tuesday", &kUtc, 1320, 180, kMonday, "2024-06-18 22:30", 0, true, "2024-06-24 22:00"},
    {"Sunday is bit 1", &kUtc, 1320, 180, kSunday, "2024-06-16 22:30", 150, false,
     "2024-06-23 22:00"},
    {"a whole day, every day", &kUtc, 0, 1440, kAll, "2024-06-17 23:59", 11521, false,
     "2024-06-18 00:00"},
    {"a whole Monday", &kUtc, 0, 1440, kMonday, "2024-06-17 23:59", 1, true, "2024-06-24 00:00"},
    {"local time", &kUs, 1320, 180, kAll, "2024-06-18 02:30", 150, false, "2024-06-19 02:00"},
    {"US spring, before", &kUs, 150, 60, kAll, "2024-03-10 06:59", 0, true, "2024-03-10 07:00"},
    {"US spring, the start in the gap", &kUs, 150, 60, kAll, "2024-03-10 07:00", 30, false,
     "2024-03-11 06:30"},
    {"US autumn, first 01:30", &kUs, 90, 60, kAll, "2024-11-03 05:30", 120, false,
     "2024-11-04 06:30"},
    {"US autumn, second 01:45", &kUs, 90, 60, kAll, "2024-11-03 06:45", 45, false,
     "2024-11-04 06:30"},
    {"US autumn, before", &kUs, 90, 60, kAll, "2024-11-03 05:29", 0, true, "2024-11-03 05:30"},
    {"CET spring, before", &kCet, 120, 120, kAll, "2024-03-31 00:59", 0, true, "2024-03-31 01:00"},
    {"CET spring, the start in the gap", &kCet, 120, 120, kAll, "2024-03-31 01:00", 60, false,
     "2024-04-01 00:00"},
    {"CET autumn, first 02:30", &kCet, 150, 60, kAll, "2024-10-27 00:30", 120, false,
     "2024-10-28 01:30"},
    {"CET autumn, second 02:30", &kCet, 150, 60, kAll, "2024-10-27 01:30", 60, false,
     "2024-10-28 01:30"},
    {"CET autumn, the day before", &kCet, 150, 60, kAll, "2024-10-26 23:00", 0, true,
     "2024-10-27 00:30"},
};

}  // namespace

// Inside or not, the minutes left, whether the quiet wait must give up (15 minutes' reserve) and
// the next window's start, over windows that cross midnight, day masks, a whole day, and the
// daylight-saving changes of two zones.
TEST(ApplyWindowTest, AnswersFollowTheLocalWallClock) {
  for (const Row& row : kRows) {
    const ApplyWindow window(row.start, row.duration, row.days, ApplyWindow::kDefaultReserveMinutes,
                             *row.zone);
    const SYSTEMTIME now = at(row.now);
    EXPECT_EQ(row.minutesLeft > 0, window.contains(now)) << row.what;
    EXPECT_EQ(row.minutesLeft, window.minutesLeft(now)) << row.what;
    EXPECT_EQ(row.giveUp, window.mustGiveUp(now)) << row.what;
    EXPECT_EQ(row.next, text(window.nextStart(now))) << row.what;
  }
}

// A reserve that does not fit is half the duration, and says so; out-of-range settings are taken
// as the nearest valid ones, a day mask without a day as every day.
TEST(ApplyWindowTest, SettingsThatDoNotFitAreAdjustedAndSaySo) {
  const struct {
    DWORD start, duration, days, reserve;
    DWORD reserveTaken;
    bool reserveAdjusted, settingsAdjusted;
  } rows[] = {
      {60, 20, kMonday, 19, 19, false, false},  {60, 20, kMonday, 20, 10, true, false},
      {60, 21, kMonday, 30, 10, true, false},   {1439, 1440, 0x7F, 15, 15, false, false},
      {1440, 30, kMonday, 15, 15, false, true}, {60, 0, kMonday, 15, 0, true, true},
      {60, 1441, kMonday, 15, 15, false, true}, {60, 30, 0x80, 15, 15, false, true},
  };
  for (const auto& row : rows) {
    const ApplyWindow window(row.start, row.duration, row.days, row.reserve, kUtc);
    EXPECT_EQ(row.reserveTaken, window.reserveMinutes()) << row.duration << " " << row.reserve;
    EXPECT_EQ(row.reserveAdjusted, window.reserveAdjusted()) << row.duration << " " << row.reserve;
    EXPECT_EQ(row.settingsAdjusted, window.settingsAdjusted()) << row.start << " " << row.days;
  }
  // 24:00 is taken as 23:59, and no day as every day.
  EXPECT_TRUE(ApplyWindow(1440, 30, 0, 15, kUtc).contains(at("2024-06-19 23:59")));
}

// The check is due once the period has passed since the last one, up to 5 % sooner by the random
// spread; never checked, or checked "later" than now (a clock set back): due at once.
TEST(ApplyWindowTest, TheCheckIsDueOnceItsPeriodHasPassed) {
  const struct {
    const char* last;
    const char* now;
    DWORD period;
    double spread;
    bool due;
  } rows[] = {
      {"2024-06-17 00:00", "2024-06-17 23:59", 1440, 0, false},
      {"2024-06-17 00:00", "2024-06-18 00:00", 1440, 0, true},
      {"2024-06-17 00:00", "2024-06-17 23:23", 1440, 0.5, false},
      {"2024-06-17 00:00", "2024-06-17 23:24", 1440, 0.5, true},
      {"2024-06-17 00:00", "2024-06-17 22:48", 1440, 1.7, true},
      {"2024-06-17 00:00", "2024-06-17 22:47", 1440, 1.7, false},
      {"2024-06-17 00:00", "2024-06-17 00:59", 30, 0, false},
      {"2024-06-17 00:00", "2024-06-17 01:00", 30, 0, true},
      {"", "2024-06-17 00:00", 1440, 0, true},
      {"2024-06-18 00:00", "2024-06-17 00:00", 1440, 0, true},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(row.due, isCheckDue(at(row.now), at(row.last), row.period, row.spread))
        << row.last << " " << row.now << " " << row.period << " " << row.spread;
  }
}
