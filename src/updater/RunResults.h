#pragma once

#include <list>
#include <string>

#include "updater/RunOutcome.h"
#include "webupdate/WebUpdaterAdapter.h"

// What each step of one update run did, as the step itself reports it: facts, not a verdict. The
// steps fill it in as they go (UpdatesController, and the run around it for what happens before
// the controller and after it); judge() alone turns it into the run's verdict. A step that did not
// run keeps its "not run" value.
struct RunResults {
  // How a step that can only succeed or fail went.
  enum class Step { kNotRun, kDone, kFailed };

  // The vendor library: loaded, not loaded (`libraryError`: LoadLibrary's error, or
  // `libraryRefusal`: why it was not loaded although it was there), or loaded without an export
  // the run needs (`missingExport` names it).
  enum class Library { kLoaded, kMissing, kIncompatible };
  Library library = Library::kLoaded;
  long libraryError = 0;
  std::string libraryRefusal;
  std::string missingExport;

  // The library's connection check, and its code.
  Step connection = Step::kNotRun;
  long connectionCode = 0;

  // Update mode 0 (off): the run ended before it loaded the library.
  bool disabled = false;
  // Why the run only checked and reported (RunConditions::checkOnly()); empty for a run that may
  // download, pause and apply. `deferred`: because it was outside the apply window, whose next
  // opening (UTC) is `nextApplyWindow` (empty without a window).
  std::string checkOnly;
  bool deferred = false;
  std::string nextApplyWindow;

  // An update check: asked or not, the answer, the library's code, and the version it named.
  struct Check {
    bool asked = false;
    UpdateCheckResult answer = UPDATE_NOT_AVAILABLE;
    long code = 0;
    std::string newVersion;
  };
  Check software;
  Check catalog;

  // The install decision: install here, relaunch elevated, or not permitted (`notPermitted` says
  // why, one line).
  enum class Decision { kNone, kInstall, kElevate, kNotPermitted };
  Decision decision = Decision::kNone;
  std::string notPermitted;

  // The relaunch with "-UAC": kDone once the child was started; `elevationValue` is what the
  // shell returned.
  Step elevation = Step::kNotRun;
  long elevationValue = 0;

  // A download: its result, the library's code, and, when its record's lock could not be had,
  // why (then the download was deleted again).
  struct Download {
    Step result = Step::kNotRun;
    long code = 0;
    std::string lockFailure;
  };
  Download softwareDownload;
  Download catalogDownload;

  // A download checked against the trusted publishers (only while a list is in force): kDone when
  // it was admitted, kFailed when it was refused and deleted (`refusal`: why, with its signer).
  struct Trust {
    Step result = Step::kNotRun;
    std::string refusal;
  };
  Trust softwareTrust;
  Trust catalogTrust;

  // The printers' pause, and, when the pause record's lock could not be had, why; the printers
  // still busy when the wait gave up because the apply window was about to close.
  Step pause = Step::kNotRun;
  std::string pauseLockFailure;
  std::list<std::string> stillBusy;

  // An apply: its result and, for a failure, what failed (one line, "code 0", "folder not made,
  // error 3", ...).
  struct Apply {
    Step result = Step::kNotRun;
    std::string failure;
  };
  Apply softwareApply;
  Apply catalogApply;

  Step resume = Step::kNotRun;

  // The text of an exception that ended the run early; empty when none did.
  std::string exception;
};

// The run's verdict from its results. The first step that failed, in the run's order, decides the
// word (a package refused by the trusted publishers' check comes after the downloads and before
// the pause); a run that applied something keeps what it applied whatever came after. Warnings
// (offline, a relaunch, an update applied while a check failed) are neither success nor failure. A
// run that checked reports what is available ("AvailableSoftwareVersion",
// "AvailableCatalogVersion": the version the check named, empty when none) among the verdict's
// values, and a deferred one the next window ("NextApplyWindow").
RunVerdict judge(const RunResults& results);
