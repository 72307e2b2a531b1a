#include "printers/PauseRecord.h"

#include "logging/FunctionTrace.h"
#include "printers/PrinterSpoolerWrapper.h"

namespace {
const char kRecordValue[] = "PausedPrinters";
const char kOwner[] = "PauseRecord";
}  // namespace

PauseRecord::PauseRecord() : record_(kRecordValue, kOwner) {}

bool PauseRecord::hold(const std::list<std::string>& names) {
  if (!record_.hold())
    return false;
  record_.write(names);
  return true;
}

void PauseRecord::release() {
  record_.release();
}

std::list<std::string> PauseRecord::recordedPrinters() {
  return RunRecord(kRecordValue, kOwner).read();
}

bool PauseRecord::recoverAbandonedPause(PrinterSpoolerWrapper& spooler) {
  // The common case, nothing recorded, reads one value and writes nothing, not even a log line.
  RunRecord record(kRecordValue, kOwner);
  const std::list<std::string> names = record.read();
  if (names.empty() || !record.takeOver())
    return false;  // Nothing to do, or its run is still installing and will resume them itself.
  FunctionTrace trace = FunctionTrace::open(kLogUpdater, "PauseRecord::recoverAbandonedPause() ");
  trace.detail([&] {
    LogText text("A run that paused printers ended before resuming them:");
    for (const std::string& name : names)
      text += " '" + name + "'";
    return text;
  });
  const bool resumed = spooler.resumePausedPrinters(names);
  if (resumed)
    record.release();
  else
    trace.detail("Not every printer could be resumed; the record is kept for the next run.");
  return trace.returning(resumed);
}
