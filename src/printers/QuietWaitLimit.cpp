#include "printers/QuietWaitLimit.h"

#include <utility>

QuietWaitLimit QuietWaitLimit::after(ULONGLONG milliseconds) {
  QuietWaitLimit limit;
  limit.hasDeadline_ = true;
  limit.deadline_ = GetTickCount64() + milliseconds;
  return limit;
}

QuietWaitLimit QuietWaitLimit::whenAsked(std::function<bool()> giveUpNow) {
  QuietWaitLimit limit;
  limit.giveUpNow_ = std::move(giveUpNow);
  return limit;
}

bool QuietWaitLimit::reached() const {
  if (hasDeadline_ && GetTickCount64() >= deadline_)
    return true;
  return giveUpNow_ && giveUpNow_();
}

DWORD QuietWaitLimit::sleepBefore(DWORD interval) const {
  if (!hasDeadline_)
    return interval;
  const ULONGLONG now = GetTickCount64();
  const ULONGLONG left = deadline_ > now ? deadline_ - now : 0;
  return left < interval ? static_cast<DWORD>(left) : interval;
}
