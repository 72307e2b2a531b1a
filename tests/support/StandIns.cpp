#include "support/StandIns.h"

#include <sstream>

namespace testsupport {

namespace {

// The journal lines written by this process, with their "<pid> " (spooler) or "<pid> | "
// (web updater) prefix removed.
std::vector<std::string> ownLines(const std::string& journal, const std::string& separator) {
  const std::string prefix = std::to_string(GetCurrentProcessId()) + separator;
  std::vector<std::string> lines;
  for (const std::string& line : readLines(journal)) {
    if (line.compare(0, prefix.size(), prefix) == 0)
      lines.push_back(line.substr(prefix.size()));
  }
  return lines;
}

std::vector<std::string> startingWith(const std::vector<std::string>& lines,
                                      const std::string& function) {
  std::vector<std::string> selected;
  for (const std::string& line : lines) {
    if (line.compare(0, function.size(), function) == 0 &&
        (line.size() == function.size() || line[function.size()] == ' '))
      selected.push_back(line);
  }
  return selected;
}

}  // namespace

SpoolerScenario::SpoolerScenario()
    : path_(directory_.file("spooler.ini")), journal_(directory_.file("spooler-journal.txt")) {
  SetEnvironmentVariableA("SPOOLER_SCENARIO", path_.c_str());
  write();
}

SpoolerScenario::~SpoolerScenario() {
  SetEnvironmentVariableA("SPOOLER_SCENARIO", nullptr);
}

SpoolerScenario& SpoolerScenario::add(const StagedPrinter& printer) {
  printers_.push_back(printer);
  return *this;
}

SpoolerScenario& SpoolerScenario::clear() {
  printers_.clear();
  failEnum_ = 0;
  clearJournal();
  return *this;
}

SpoolerScenario& SpoolerScenario::failEnumeration(DWORD error) {
  failEnum_ = error;
  return *this;
}

void SpoolerScenario::write() {
  std::ostringstream text;
  text << "[Spooler]\r\nGeneration=" << GetCurrentProcessId() << "." << ++generation_
       << "\r\nPrinters=" << printers_.size() << "\r\nJournal=" << journal_
       << "\r\nFailEnum=" << failEnum_ << "\r\n";
  for (size_t i = 0; i < printers_.size(); ++i) {
    const StagedPrinter& p = printers_[i];
    // Quoted, so that blanks at either end survive the private-profile reader.
    text << "[Printer" << i << "]\r\nName=\"" << p.name << "\"\r\nDriver=\"" << p.driver
         << "\"\r\nPort=" << p.port << "\r\nAttributes=" << p.attributes
         << "\r\nStatus=" << p.status << "\r\nJobs=" << p.jobs << "\r\n";
    if (p.drainAfterPolls >= 0)
      text << "DrainAfterPolls=" << p.drainAfterPolls << "\r\n";
    text << "FailOpen=" << p.failOpen << "\r\nFailGetPrinter=" << p.failGetPrinter
         << "\r\nFailPause=" << p.failPause << "\r\nFailResume=" << p.failResume
         << "\r\nFailClose=" << p.failClose << "\r\n";
  }
  writeFile(path_, text.str());
  // The private-profile functions cache files; make sure the new text is read.
  WritePrivateProfileStringA(nullptr, nullptr, nullptr, path_.c_str());
}

std::vector<std::string> SpoolerScenario::calls() const {
  return ownLines(journal_, " ");
}

std::vector<std::string> SpoolerScenario::calls(const std::string& function) const {
  return startingWith(calls(), function);
}

void SpoolerScenario::clearJournal() {
  DeleteFileA(journal_.c_str());
}

WebUpdaterScenario::WebUpdaterScenario()
    : path_(directory_.file("webupdater.ini")),
      journal_(directory_.file("webupdater-journal.txt")) {
  SetEnvironmentVariableA("WUPD_SCENARIO", path_.c_str());
  write();
}

WebUpdaterScenario::~WebUpdaterScenario() {
  SetEnvironmentVariableA("WUPD_SCENARIO", nullptr);
}

WebUpdaterScenario& WebUpdaterScenario::clear() {
  connection_ = 1;
  checks_.clear();
  downloads_.clear();
  applies_.clear();
  clearJournal();
  return *this;
}

WebUpdaterScenario& WebUpdaterScenario::connection(int result) {
  connection_ = result;
  return *this;
}

WebUpdaterScenario& WebUpdaterScenario::check(const std::string& urlPart,
                                              const std::string& value) {
  checks_.emplace_back(urlPart, value);
  return *this;
}

WebUpdaterScenario& WebUpdaterScenario::download(const std::string& urlPart,
                                                 const std::string& value) {
  downloads_.emplace_back(urlPart, value);
  return *this;
}

WebUpdaterScenario& WebUpdaterScenario::apply(const std::string& packagePart, int code) {
  applies_.emplace_back(packagePart, code);
  return *this;
}

void WebUpdaterScenario::write() {
  std::ostringstream text;
  text << "[Library]\r\nMode=scripted\r\nJournal=" << journal_ << "\r\nConnection=" << connection_
       << "\r\n[Check]\r\n";
  for (const auto& rule : checks_)
    text << rule.first << "=" << rule.second << "\r\n";
  text << "[Download]\r\n";
  for (const auto& rule : downloads_)
    text << rule.first << "=" << rule.second << "\r\n";
  text << "[Apply]\r\n";
  for (const auto& rule : applies_)
    text << rule.first << "=" << rule.second << "\r\n";
  writeFile(path_, text.str());
  WritePrivateProfileStringA(nullptr, nullptr, nullptr, path_.c_str());
}

std::vector<std::string> WebUpdaterScenario::calls() const {
  return ownLines(journal_, " | ");
}

std::vector<std::string> WebUpdaterScenario::calls(const std::string& function) const {
  return startingWith(calls(), function);
}

void WebUpdaterScenario::clearJournal() {
  DeleteFileA(journal_.c_str());
}

}  // namespace testsupport
