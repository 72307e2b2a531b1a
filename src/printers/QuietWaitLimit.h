#pragma once

#include <windows.h>

#include <functional>

// When a wait for quiet printers gives up (PrinterSpoolerWrapper::pausePrinters() and
// drainPrinters()). The default never does: the wait lasts for as long as a printer stays busy.
//
// The wait asks reached() after every poll round that leaves a printer busy, before it sleeps,
// and gives up when it answers true; it sleeps sleepBefore(interval) milliseconds, so that the last
// poll of a deadline falls on the deadline. A limit is a value that the wait copies; it owns
// nothing but its callback, and is used from one thread.
class QuietWaitLimit {
 public:
  // No limit.
  QuietWaitLimit() = default;

  // Gives up once `milliseconds` have passed since this call, measured by GetTickCount64() (which
  // changes of the system clock do not move).
  static QuietWaitLimit after(ULONGLONG milliseconds);
  // Gives up the first time `giveUpNow` answers true (for example, once the apply window is about
  // to close). The callback runs on the waiting thread; an exception from it leaves the wait.
  static QuietWaitLimit whenAsked(std::function<bool()> giveUpNow);

  bool isSet() const { return hasDeadline_ || static_cast<bool>(giveUpNow_); }
  // Whether the wait must give up now.
  bool reached() const;
  // The sleep before the next poll: `interval`, shortened to the time left before the deadline.
  DWORD sleepBefore(DWORD interval) const;

 private:
  bool hasDeadline_ = false;
  ULONGLONG deadline_ = 0;
  std::function<bool()> giveUpNow_;
};
