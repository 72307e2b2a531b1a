#pragma once

#include <string>
#include <vector>

// What the store, and the fleet's policy over it, say about this run beyond the settings every
// run reads: the update mode ("UpdateMode" in "Settings\Updater": 0 off, 1 automatic, the default
// and any value out of range, 2 check and report only), and the policy values that are ignored.
// Read once when the run starts, through Settings (so that policy wins), without writing a default:
// with neither a store value nor a policy every run is the automatic one. Nothing throws.
class RunConditions {
 public:
  enum class UpdateMode { kOff, kAutomatic, kReportOnly };

  static RunConditions read();

  UpdateMode updateMode() const { return mode_; }
  // Why this run checks and reports only (one line, for its log and verdict); empty when it may
  // download, pause and apply.
  std::string checkOnly() const;
  // The policy values that are ignored, one line each (Policy::problems()).
  const std::vector<std::string>& policyProblems() const { return policyProblems_; }

 private:
  UpdateMode mode_ = UpdateMode::kAutomatic;
  std::vector<std::string> policyProblems_;
};
