#include "updater/UpdateRunFixture.h"

#include "printers/DeviceEnumerator.h"
#include "updater/CommandLineParams.h"
#include "updater/UpdatesController.h"

const char UpdateRunFixture::kDriver[] = "Corvane Inkjet Driver";
const char UpdateRunFixture::kDataDirectory[] =
    "C:\\ProgramData\\Corvane Inkjet Driver\\Job Status";
std::vector<UpdateRunFixture::Relaunch> UpdateRunFixture::relaunches_;
INT_PTR UpdateRunFixture::shellResult_ = 42;

namespace {

HINSTANCE WINAPI
fakeShellExecute(HWND, LPCSTR verb, LPCSTR file, LPCSTR parameters, LPCSTR directory, INT show) {
  UpdateRunFixture::Relaunch relaunch;
  relaunch.verb = verb != nullptr ? verb : "";
  relaunch.file = file != nullptr ? file : "";
  relaunch.parameters = parameters != nullptr ? parameters : "";
  relaunch.directoryNull = directory == nullptr;
  relaunch.show = show;
  UpdateRunFixture::relaunches_.push_back(relaunch);
  return reinterpret_cast<HINSTANCE>(UpdateRunFixture::shellResult_);
}

std::string field(const std::string& line, const std::string& name) {
  const std::string::size_type start = line.find(name + "=");
  if (start == std::string::npos)
    return std::string();
  const std::string::size_type end = line.find(" | ", start);
  return line.substr(start + name.size() + 1,
                     end == std::string::npos ? std::string::npos : end - start - name.size() - 1);
}

}  // namespace

void UpdateRunFixture::SetUp() {
  const std::string updater = "Settings\\Updater";
  store_.setString(updater, "WebUpdaterDllPath", testsupport::executableDirectory());
  store_.setString(updater, "WebServerUrl", "http://svc/[package_code]");
  store_.setString(updater, "TandemOrreryVersionPackageCode", "SWVER");
  store_.setString(updater, "TandemCatalogVersionPackageCode", "DATAVER");
  store_.setString(updater, "TandemOrreryDownloadPackageCode", "SWPKG");
  store_.setString(updater, "TandemCatalogDownloadPackageCode", "DATAPKG");
  store_.setDword(updater, "PrinterPollInterval", 1);
  store_.setString("Settings\\", "DriverName", kDriver);
  store_.setString("Settings\\", "DllPath", files_.path());
  store_.setString("Settings\\", "DataPath", files_.path());
  testsupport::writeFile(files_.file("cvctProg.ver"), "<PackageVersion>1.0</PackageVersion>");
  testsupport::writeFile(files_.file("orData.ver"), "<PackageVersion>2026.1</PackageVersion>");
  relaunches_.clear();
  shellResult_ = 42;
  UpdatesController::setShellExecuteFunction(&fakeShellExecute);
  setCommandLine("");
}

void UpdateRunFixture::TearDown() {
  UpdatesController::setShellExecuteFunction(nullptr);
  DeviceEnumerator::destroy();
  setCommandLine("");
  testsupport::removeTree("C:\\ProgramData\\Corvane Inkjet Driver");
}

void UpdateRunFixture::setCommandLine(const std::string& commandLine) {
  CommandLineParams::destroyInstance();
  CommandLineParams::createInstance(commandLine);
}

std::vector<std::string> UpdateRunFixture::libraryCalls() const {
  std::vector<std::string> tokens;
  for (const std::string& call : library_.calls()) {
    const std::string url = field(call, "url");
    const std::string package = field(call, "package");
    if (call.compare(0, 18, "UpdCheckForUpdateA") == 0)
      tokens.push_back(url.find("SWVER") != std::string::npos ? "check software" : "check data");
    else if (call.compare(0, 20, "UpdDownloadUpdateExA") == 0)
      tokens.push_back(url.find("SWPKG") != std::string::npos ? "download software"
                                                              : "download data");
    else if (call.compare(0, 15, "UpdApplyUpdateA") == 0)
      tokens.push_back(package.find("sw.pkg") != std::string::npos ? "apply software"
                                                                   : "apply data");
  }
  return tokens;
}

std::vector<std::string> UpdateRunFixture::printerCommands() const {
  std::vector<std::string> commands;
  for (const std::string& call : spooler_.calls("SetPrinterA")) {
    const std::string::size_type name = call.find("name=") + 5;
    const std::string::size_type command = call.find(" command=");
    const bool pause = call.compare(command, 11, " command=1 ") == 0;
    if (call.find("result=1") != std::string::npos)
      commands.push_back((pause ? "pause " : "resume ") + call.substr(name, command - name));
  }
  return commands;
}

std::vector<std::string> UpdateRunFixture::detailLines(const testsupport::LogCapture& log,
                                                       const std::string& functionName) {
  std::vector<std::string> lines;
  for (const std::string& text : log.texts()) {
    const std::string::size_type start = text.find_first_not_of(' ');
    if (start == std::string::npos || text.compare(start, functionName.size(), functionName) != 0)
      continue;
    lines.push_back(text.substr(start + functionName.size()));
  }
  return lines;
}

DWORD UpdateRunFixture::flag(const char* name) {
  DWORD value = 0xDEAD;
  store_.getDword("Settings\\Updater", name, value);
  return value;
}
