#pragma once

#include <windows.h>

#include <cstdint>

// The apply window: the local days and hours in which an update may be applied, and the arithmetic
// that the update run needs around it. Pure: no I/O, no clock, no host time zone. The current time
// is given in UTC, and the machine's time zone as a TIME_ZONE_INFORMATION (as
// GetTimeZoneInformation() fills it), so that any zone can be computed on any machine.
//
// A window opens `start` minutes after local midnight (ApplyWindowStart, 0-1439) on each day of
// `days` (ApplyWindowDays: Sunday = 1, Monday = 2, ... Saturday = 64) and closes `duration`
// minutes later by the wall clock (ApplyWindowDuration, 1-1440); it may cross midnight, and
// belongs to the day it opens on. Daylight-saving changes follow the wall clock: a start or end
// that falls in the spring gap is the first valid minute after it (a window entirely inside the
// gap is empty that day), and one that falls in the autumn's repeated hour is its first
// occurrence. So a 01:00-04:00 window lasts two hours on the spring day and four on the autumn
// day in a zone that changes at 02:00/03:00. Windows that follow each other without a gap (a
// duration of 1440 on consecutive days) count as one.
//
// The zone's rules are those of TIME_ZONE_INFORMATION: UTC = local time + Bias + StandardBias, or
// + DaylightBias between DaylightDate and StandardDate; a rule date with wYear = 0 is "the wDay-th
// (5 = last) wDayOfWeek of wMonth" at that local time, one with a year applies in that year only;
// wMonth = 0 in either date means no daylight saving.
//
// Values out of range are taken as the nearest valid value, and a day mask with no day as every
// day; settingsAdjusted() says so. A reserve that does not fit (not less than the duration) is
// taken as half the duration; reserveAdjusted() says so. Both exist so that the caller can log
// one line. Immutable once made; safe to share across threads.
class ApplyWindow {
 public:
  static constexpr DWORD kEveryDay = 0x7F;
  static constexpr DWORD kDefaultReserveMinutes = 15;

  ApplyWindow(DWORD startMinute,
              DWORD durationMinutes,
              DWORD days,
              DWORD reserveMinutes,
              const TIME_ZONE_INFORMATION& zone);

  // Whether `utcNow` lies in a window (from its first minute, up to but not including its end).
  bool contains(const SYSTEMTIME& utcNow) const;
  // Whole minutes from `utcNow` to the end of the window it lies in (rounded down); 0 outside.
  DWORD minutesLeft(const SYSTEMTIME& utcNow) const;
  // Whether a wait that precedes the apply must give up now: outside a window, or with no more than
  // the reserve left in it.
  bool mustGiveUp(const SYSTEMTIME& utcNow) const;
  // The first window opening after `utcNow` (strictly), in UTC: the value of NextApplyWindow.
  SYSTEMTIME nextStart(const SYSTEMTIME& utcNow) const;

  DWORD reserveMinutes() const { return reserveMinutes_; }
  bool reserveAdjusted() const { return reserveAdjusted_; }
  bool settingsAdjusted() const { return settingsAdjusted_; }

 private:
  struct Span {
    int64_t begin;
    int64_t end;
  };

  // The window of local day `day` (days since 1 January 1970), in UTC seconds since then; false
  // when `day` is not a day of the mask.
  bool windowOf(int64_t day, Span* span) const;
  // The window (joined with those that follow it without a gap) that `now` lies in.
  bool current(int64_t now, Span* span) const;
  int64_t toUtc(int64_t local) const;
  int64_t toLocal(int64_t utc) const;
  int64_t offsetAt(int64_t utc) const;
  // The UTC seconds at which daylight time begins and ends in local year `year`; false without
  // daylight saving that year.
  bool daylightSpan(int64_t year, Span* span) const;

  DWORD start_;
  DWORD duration_;
  DWORD days_;
  DWORD reserveMinutes_;
  bool reserveAdjusted_ = false;
  bool settingsAdjusted_ = false;
  TIME_ZONE_INFORMATION zone_;
};

// The update check's period: CheckPeriodMinutes, whose default is 1440 and whose minimum is 60 (a
// smaller value is taken as 60).
inline constexpr DWORD kDefaultCheckPeriodMinutes = 1440;
inline constexpr DWORD kMinimumCheckPeriodMinutes = 60;
DWORD effectiveCheckPeriod(DWORD periodMinutes);

// Whether the update check is due at `utcNow`, the last one having been made at `lastCheckUtc`
// (a zeroed SYSTEMTIME when there was none: due). The period is shortened by up to 5 %, by
// `spread` (a random value from 0 up to 1, drawn by the caller; taken between those bounds), so
// that a fleet started at the same minute spreads its checks out. A last check later than `utcNow`
// (a clock set back) makes the check due.
bool isCheckDue(const SYSTEMTIME& utcNow,
                const SYSTEMTIME& lastCheckUtc,
                DWORD periodMinutes,
                double spread);
