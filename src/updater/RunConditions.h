#pragma once

#include <windows.h>

#include <optional>
#include <string>
#include <vector>

#include "printers/QuietWaitLimit.h"
#include "updater/ApplyWindow.h"

// What the store, and the fleet's policy over it, say about this run beyond the settings every
// run reads, all in "Settings\Updater":
//   UpdateMode          0 off, 1 automatic (the default, and any other value), 2 check and report
//                       only;
//   ApplyWindowStart, ApplyWindowDuration, ApplyWindowDays, ApplyWindowReserve
//                       the apply window (ApplyWindow), when both the start and the duration are
//                       set: outside it the run only checks and reports (it is deferred), and
//                       inside it the quiet-wait gives up when no more than the reserve is left;
//   QuietWaitMode       0 wait until all printers are quiet at once (the default), 1 drain;
//   CheckPeriodMinutes  how often a scheduled start checks (default 1440, at least 60).
// Read once when the run starts, through Settings (so that policy wins), without writing a
// default: with none of them set, every run is the automatic one with the one-round wait. The
// window is judged by the clock and time zone given to read(). Nothing throws.
class RunConditions {
 public:
  enum class UpdateMode { kOff, kAutomatic, kReportOnly };

  // The automatic run, without a window.
  RunConditions() = default;

  // The machine's own clock and time zone.
  static RunConditions read();
  static RunConditions read(const SYSTEMTIME& utcNow, const TIME_ZONE_INFORMATION& zone);

  UpdateMode updateMode() const { return mode_; }
  // Why this run checks and reports only (one line, for its log and verdict): the update mode, or
  // the time outside the apply window; empty when it may download, pause and apply.
  std::string checkOnly() const;
  // Whether it checks only because it is outside the apply window.
  bool isDeferred() const;
  // The next window's start after now, in the status's UTC format; empty without a window.
  std::string nextApplyWindow() const;
  // The limit of the quiet-wait: none, or (inside a window) the moment at which no more than the
  // reserve is left of it, judged by the clock at each poll.
  QuietWaitLimit quietWaitLimit() const;
  bool drains() const { return drain_; }

  // Whether a scheduled start goes on: inside the window when one is set, and the last completed
  // check (`lastCheck`, in the status's format; empty when there was none) older than the check
  // period, shortened by up to 5 % by `spread` (0 up to 1). `why` says why not.
  bool isDue(const std::string& lastCheck, double spread, std::string& why) const;

  // Lines for the run's log and event: the policy values that are ignored (Policy::problems()),
  // and a window setting that was taken otherwise than given.
  const std::vector<std::string>& notes() const { return notes_; }

 private:
  UpdateMode mode_ = UpdateMode::kAutomatic;
  bool drain_ = false;
  DWORD checkPeriod_ = kDefaultCheckPeriodMinutes;
  std::optional<ApplyWindow> window_;
  SYSTEMTIME now_ = {};
  std::vector<std::string> notes_;
};
