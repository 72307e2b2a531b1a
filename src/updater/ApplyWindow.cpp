#include "updater/ApplyWindow.h"

#include <algorithm>

// Times are counted in seconds since 1 January 1970 and days since then, in UTC or in local wall
// time as each name says; the calendar is the proleptic Gregorian one of SYSTEMTIME.
namespace {

const int64_t kDay = 86400;
const int kLookAheadDays = 8;  // Every day of the week, and one more.

int64_t floorDiv(int64_t value, int64_t divisor) {
  return value / divisor - (value % divisor < 0 ? 1 : 0);
}

// Days since 1970-01-01 of a date (after H. Hinnant's days_from_civil).
int64_t daysFromCivil(int64_t year, int64_t month, int64_t day) {
  year -= month <= 2 ? 1 : 0;
  const int64_t era = floorDiv(year, 400);
  const int64_t yearOfEra = year - era * 400;
  const int64_t dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
  const int64_t dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
  return era * 146097 + dayOfEra - 719468;
}

// The date of a day count: its inverse.
void civilFromDays(int64_t days, int64_t* year, int64_t* month, int64_t* day) {
  days += 719468;
  const int64_t era = floorDiv(days, 146097);
  const int64_t dayOfEra = days - era * 146097;
  const int64_t yearOfEra =
      (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
  const int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
  const int64_t shiftedMonth = (5 * dayOfYear + 2) / 153;
  *day = dayOfYear - (153 * shiftedMonth + 2) / 5 + 1;
  *month = shiftedMonth < 10 ? shiftedMonth + 3 : shiftedMonth - 9;
  *year = yearOfEra + era * 400 + (*month <= 2 ? 1 : 0);
}

// 0 = Sunday ... 6 = Saturday; 1970-01-01 was a Thursday.
int weekday(int64_t days) {
  return static_cast<int>(days + 4 - floorDiv(days + 4, 7) * 7);
}

int64_t yearOf(int64_t seconds) {
  int64_t year = 0, month = 0, day = 0;
  civilFromDays(floorDiv(seconds, kDay), &year, &month, &day);
  return year;
}

int64_t secondsOfDay(const SYSTEMTIME& time) {
  return int64_t{time.wHour} * 3600 + int64_t{time.wMinute} * 60 + time.wSecond;
}

int64_t toSeconds(const SYSTEMTIME& time) {
  return daysFromCivil(time.wYear, time.wMonth, time.wDay) * kDay + secondsOfDay(time);
}

SYSTEMTIME toSystemTime(int64_t seconds) {
  const int64_t days = floorDiv(seconds, kDay);
  const int64_t rest = seconds - days * kDay;
  int64_t year = 0, month = 0, day = 0;
  civilFromDays(days, &year, &month, &day);
  SYSTEMTIME time = {};
  time.wYear = static_cast<WORD>(year);
  time.wMonth = static_cast<WORD>(month);
  time.wDayOfWeek = static_cast<WORD>(weekday(days));
  time.wDay = static_cast<WORD>(day);
  time.wHour = static_cast<WORD>(rest / 3600);
  time.wMinute = static_cast<WORD>(rest % 3600 / 60);
  time.wSecond = static_cast<WORD>(rest % 60);
  return time;
}

// The local time, in the clock time that precedes the change, at which a TIME_ZONE_INFORMATION
// rule date falls in `year`; false when it does not fall in that year.
bool ruleTime(const SYSTEMTIME& rule, int64_t year, int64_t* local) {
  if (rule.wMonth < 1 || rule.wMonth > 12)
    return false;
  int64_t day = 0;
  if (rule.wYear != 0) {
    if (rule.wYear != year)
      return false;
    day = daysFromCivil(year, rule.wMonth, rule.wDay);
  } else {
    const int64_t first = daysFromCivil(year, rule.wMonth, 1);
    const int64_t next = daysFromCivil(rule.wMonth == 12 ? year + 1 : year,
                                       rule.wMonth == 12 ? 1 : rule.wMonth + 1, 1);
    const int64_t week = std::min<int64_t>(std::max<int64_t>(rule.wDay, 1), 5);
    day = first + (rule.wDayOfWeek % 7 - weekday(first) + 7) % 7 + (week - 1) * 7;
    while (day >= next)
      day -= 7;  // Week 5 is the last such day of the month.
  }
  // Rules such as 23:59:59.999 mean the next midnight.
  *local = day * kDay + secondsOfDay(rule) + (rule.wMilliseconds > 0 ? 1 : 0);
  return true;
}

}  // namespace

ApplyWindow::ApplyWindow(DWORD startMinute,
                         DWORD durationMinutes,
                         DWORD days,
                         DWORD reserveMinutes,
                         const TIME_ZONE_INFORMATION& zone)
    : start_(std::min<DWORD>(startMinute, 1439)),
      duration_(std::min<DWORD>(std::max<DWORD>(durationMinutes, 1), 1440)),
      days_((days & kEveryDay) != 0 ? days & kEveryDay : kEveryDay),
      reserveMinutes_(reserveMinutes),
      zone_(zone) {
  settingsAdjusted_ = start_ != startMinute || duration_ != durationMinutes || days_ != days;
  if (reserveMinutes_ >= duration_) {
    reserveMinutes_ = duration_ / 2;
    reserveAdjusted_ = true;
  }
}

bool ApplyWindow::contains(const SYSTEMTIME& utcNow) const {
  Span span = {};
  return current(toSeconds(utcNow), &span);
}

DWORD ApplyWindow::minutesLeft(const SYSTEMTIME& utcNow) const {
  const int64_t now = toSeconds(utcNow);
  Span span = {};
  return current(now, &span) ? static_cast<DWORD>((span.end - now) / 60) : 0;
}

bool ApplyWindow::mustGiveUp(const SYSTEMTIME& utcNow) const {
  const int64_t now = toSeconds(utcNow);
  Span span = {};
  return !current(now, &span) || span.end - now <= static_cast<int64_t>(reserveMinutes_) * 60;
}

SYSTEMTIME ApplyWindow::nextStart(const SYSTEMTIME& utcNow) const {
  const int64_t now = toSeconds(utcNow);
  const int64_t today = floorDiv(toLocal(now), kDay);
  Span span = {};
  for (int64_t day = today - 1; day <= today + kLookAheadDays; ++day) {
    if (windowOf(day, &span) && span.begin > now)
      return toSystemTime(span.begin);
  }
  return toSystemTime(span.begin);  // Not reached: the mask holds a day of every week.
}

bool ApplyWindow::windowOf(int64_t day, Span* span) const {
  if ((days_ & (1u << weekday(day))) == 0)
    return false;
  const int64_t opens = day * kDay + static_cast<int64_t>(start_) * 60;
  span->begin = toUtc(opens);
  span->end = toUtc(opens + static_cast<int64_t>(duration_) * 60);
  return true;
}

bool ApplyWindow::current(int64_t now, Span* span) const {
  const int64_t today = floorDiv(toLocal(now), kDay);
  for (int64_t day = today - 1; day <= today + 1; ++day) {
    if (!windowOf(day, span) || now < span->begin || now >= span->end)
      continue;
    Span next = {};
    for (int64_t later = day + 1; later <= day + kLookAheadDays; ++later) {
      if (!windowOf(later, &next) || next.begin > span->end)
        break;
      span->end = std::max(span->end, next.end);
    }
    return true;
  }
  return false;
}

int64_t ApplyWindow::offsetAt(int64_t utc) const {
  const int64_t standard = (zone_.Bias + zone_.StandardBias) * 60LL;
  const int64_t daylight = (zone_.Bias + zone_.DaylightBias) * 60LL;
  Span span = {};
  if (!daylightSpan(yearOf(utc - standard), &span))
    return standard;
  // In the southern hemisphere daylight time spans the turn of the year.
  const bool inDaylight = span.begin < span.end ? utc >= span.begin && utc < span.end
                                                : utc >= span.begin || utc < span.end;
  return inDaylight ? daylight : standard;
}

int64_t ApplyWindow::toLocal(int64_t utc) const {
  return utc - offsetAt(utc);
}

int64_t ApplyWindow::toUtc(int64_t local) const {
  const int64_t standard = local + (zone_.Bias + zone_.StandardBias) * 60LL;
  const int64_t daylight = local + (zone_.Bias + zone_.DaylightBias) * 60LL;
  const bool standardValid = toLocal(standard) == local;
  const bool daylightValid = toLocal(daylight) == local;
  if (standardValid && daylightValid)
    return std::min(standard, daylight);  // The repeated hour: its first occurrence.
  if (standardValid || daylightValid)
    return standardValid ? standard : daylight;
  // The gap: the change itself, whose local time is the first valid one after `local`.
  const int64_t low = std::min(standard, daylight), high = std::max(standard, daylight);
  const int64_t year = yearOf(local);
  Span span = {};
  for (int64_t y = year - 1; y <= year + 1; ++y) {
    if (!daylightSpan(y, &span))
      continue;
    for (const int64_t change : {span.begin, span.end}) {
      if (change >= low && change <= high)
        return change;
    }
  }
  return high;  // Not reached: a time in no gap is valid.
}

bool ApplyWindow::daylightSpan(int64_t year, Span* span) const {
  if (zone_.StandardDate.wMonth == 0 || zone_.DaylightDate.wMonth == 0)
    return false;
  int64_t begins = 0, ends = 0;
  if (!ruleTime(zone_.DaylightDate, year, &begins) || !ruleTime(zone_.StandardDate, year, &ends))
    return false;
  // Daylight time begins at a standard-time reading of the clock and ends at a daylight one.
  span->begin = begins + (zone_.Bias + zone_.StandardBias) * 60LL;
  span->end = ends + (zone_.Bias + zone_.DaylightBias) * 60LL;
  return true;
}

DWORD effectiveCheckPeriod(DWORD periodMinutes) {
  return std::max(periodMinutes, kMinimumCheckPeriodMinutes);
}

bool isCheckDue(const SYSTEMTIME& utcNow,
                const SYSTEMTIME& lastCheckUtc,
                DWORD periodMinutes,
                double spread) {
  if (lastCheckUtc.wYear == 0)
    return true;
  const int64_t elapsed = toSeconds(utcNow) - toSeconds(lastCheckUtc);
  if (elapsed < 0)
    return true;
  const double fraction = spread > 0 ? std::min(spread, 1.0) : 0.0;  // NaN reads as 0.
  const double period = effectiveCheckPeriod(periodMinutes) * 60.0 * (1.0 - 0.05 * fraction);
  return static_cast<double>(elapsed) >= period;
}
