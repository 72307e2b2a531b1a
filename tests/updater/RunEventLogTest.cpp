#include <gtest/gtest.h>

#include <windows.h>

#include <iterator>

#include "support/TestSupport.h"
#include "system/UniqueHandle.h"
#include "updater/RunOutcome.h"

namespace {

const WORD kInformation = EVENTLOG_INFORMATION_TYPE;
const WORD kWarning = EVENTLOG_WARNING_TYPE;
const WORD kError = EVENTLOG_ERROR_TYPE;

// The vocabulary as fleets read it, written out here and not taken from the program: a word whose
// id or type changes breaks every query and report built on it.
const struct {
  RunOutcome outcome;
  const char* word;
  WORD id;
  WORD type;
} kVocabulary[] = {
    {RunOutcome::kUpToDate, "UpToDate", 1000, kInformation},
    {RunOutcome::kUpdated, "Updated", 1001, kInformation},
    {RunOutcome::kUpdateAvailable, "UpdateAvailable", 1002, kInformation},
    {RunOutcome::kOffline, "Offline", 2000, kWarning},
    {RunOutcome::kElevating, "Elevating", 2001, kWarning},
    {RunOutcome::kAnotherRunInProgress, "AnotherRunInProgress", 2002, kWarning},
    {RunOutcome::kUpdatedWithWarnings, "UpdatedWithWarnings", 2003, kWarning},
    {RunOutcome::kDisabledByPolicy, "DisabledByPolicy", 2004, kWarning},
    {RunOutcome::kDeferred, "Deferred", 2005, kWarning},
    {RunOutcome::kCheckFailed, "CheckFailed", 3000, kError},
    {RunOutcome::kLibraryMissing, "LibraryMissing", 3001, kError},
    {RunOutcome::kNotPermitted, "NotPermitted", 3002, kError},
    {RunOutcome::kElevationFailed, "ElevationFailed", 3003, kError},
    {RunOutcome::kDownloadFailed, "DownloadFailed", 3004, kError},
    {RunOutcome::kPauseFailed, "PauseFailed", 3005, kError},
    {RunOutcome::kApplyFailed, "ApplyFailed", 3006, kError},
    {RunOutcome::kResumeFailed, "ResumeFailed", 3007, kError},
    {RunOutcome::kLibraryIncompatible, "LibraryIncompatible", 3008, kError},
    {RunOutcome::kLockUnavailable, "LockUnavailable", 3009, kError},
    {RunOutcome::kPackageUntrusted, "PackageUntrusted", 3010, kError},
};

}  // namespace

// Every result word keeps its event id and type, and has its text in the message table compiled
// into cvupdater.exe (what the event viewer shows through the source's "EventMessageFile").
TEST(RunEventLog, EveryResultKeepsItsIdAndHasItsTextInTheProgramsMessageTable) {
  const ScopedModule program(
      LoadLibraryExA((testsupport::executableDirectory() + "cvupdater.exe").c_str(), nullptr,
                     LOAD_LIBRARY_AS_DATAFILE));
  ASSERT_TRUE(program.valid());
  ASSERT_EQ(static_cast<size_t>(RunOutcome::kPackageUntrusted) + 1, std::size(kVocabulary));
  for (const auto& [outcome, word, id, type] : kVocabulary) {
    EXPECT_STREQ(word, outcomeWord(outcome));
    EXPECT_EQ(id, outcomeEventId(outcome)) << word;
    EXPECT_EQ(type, outcomeEventType(outcome)) << word;
    DWORD_PTR strings[] = {
        reinterpret_cast<DWORD_PTR>(word), reinterpret_cast<DWORD_PTR>("1.0.0.1"),
        reinterpret_cast<DWORD_PTR>("2026.1"), reinterpret_cast<DWORD_PTR>("code 1")};
    char text[1024] = {};
    const DWORD length =
        FormatMessageA(FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_ARGUMENT_ARRAY, program.get(),
                       id, 0, text, sizeof text, reinterpret_cast<va_list*>(strings));
    ASSERT_NE(0u, length) << word << " has no text, error " << GetLastError();
    EXPECT_EQ("Orrery Updater run: " + std::string(word) + ".",
              std::string(text, strlen(word) + 21));
    EXPECT_NE(nullptr, strstr(text, "Software version: 1.0.0.1")) << text;
  }
}
