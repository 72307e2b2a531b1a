#pragma once

#include "UpdaterMode.h"

namespace wupd {

// Answers from the scenario's [Library], [Check], [Download] and [Apply] rules. Downloads create
// the rule's file (with missing parent directories) whatever the result code.
class ScriptedMode : public UpdaterMode {
 public:
  explicit ScriptedMode(const standin::ScenarioFile& scenario) : scenario_(scenario) {}

  int checkConnection() override;
  CheckOutcome checkForUpdate(const std::string& url,
                              const std::string& currentVersion,
                              uint32_t timeout,
                              uint32_t retries) override;
  DownloadOutcome download(const std::string& url, uint32_t timeout, uint32_t retries) override;
  int apply(const std::string& packageFile, const std::string& destinationDir) override;

 private:
  const standin::ScenarioFile& scenario_;
};

}  // namespace wupd
