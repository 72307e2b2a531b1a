#include "support/TestSupport.h"

#include <shellapi.h>

#include <fstream>
#include <sstream>

#include "logging/Logger.h"
#include "settings/RegistryKey.h"
#include "updater/Localize.h"

namespace testsupport {

namespace {

const size_t kComponentColumn = 16;  // 15 characters and a blank.

HKEY openOrCreate(const std::string& path) {
  HKEY key = nullptr;
  RegCreateKeyExA(HKEY_LOCAL_MACHINE, path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key,
                  nullptr);
  return key;
}

std::string keyPath(const std::string& section) {
  return storeRoot() + section;
}

}  // namespace

std::string storeRoot() {
  return Localize::getInstance()->getRegistryPath(0);
}

void deleteKeyTree(const std::string& path) {
  RegDeleteTreeA(HKEY_LOCAL_MACHINE, path.c_str());
  RegDeleteKeyA(HKEY_LOCAL_MACHINE, path.c_str());
}

ScopedStore::ScopedStore() {
  deleteKeyTree(Localize::getInstance()->getProductFamilyRegistryPath());
  RegCloseKey(openOrCreate(storeRoot()));
}

ScopedStore::~ScopedStore() {
  deleteKeyTree(Localize::getInstance()->getProductFamilyRegistryPath());
}

void ScopedStore::setDword(const std::string& section, const std::string& name, DWORD value) {
  HKEY key = openOrCreate(keyPath(section));
  RegSetValueExA(key, name.c_str(), 0, REG_DWORD, reinterpret_cast<const BYTE*>(&value),
                 sizeof(value));
  RegCloseKey(key);
}

void ScopedStore::setString(const std::string& section,
                            const std::string& name,
                            const std::string& value) {
  HKEY key = openOrCreate(keyPath(section));
  RegSetValueExA(key, name.c_str(), 0, REG_SZ, reinterpret_cast<const BYTE*>(value.c_str()),
                 static_cast<DWORD>(value.size() + 1));
  RegCloseKey(key);
}

bool ScopedStore::getDword(const std::string& section, const std::string& name, DWORD& value) {
  DWORD size = sizeof(value);
  DWORD type = 0;
  return RegGetValueA(HKEY_LOCAL_MACHINE, keyPath(section).c_str(), name.c_str(), RRF_RT_ANY, &type,
                      &value, &size) == ERROR_SUCCESS &&
         type == REG_DWORD;
}

bool ScopedStore::getString(const std::string& section,
                            const std::string& name,
                            std::string& value) {
  char buffer[4096] = {};
  DWORD size = sizeof(buffer) - 1;
  DWORD type = 0;
  if (RegGetValueA(HKEY_LOCAL_MACHINE, keyPath(section).c_str(), name.c_str(),
                   RRF_RT_ANY | RRF_NOEXPAND, &type, buffer, &size) != ERROR_SUCCESS ||
      (type != REG_SZ && type != REG_EXPAND_SZ))
    return false;
  value = buffer;
  return true;
}

void restartLogger() {
  Logger::destroyInstance();
  Logger::createInstance();
}

LogCapture::LogCapture(DWORD allMask, bool headers) : path_(Logger::getLogFilePath()) {
  HKEY key = openOrCreate(storeRoot() + "Logger");
  const auto set = [key](const char* name, DWORD value) {
    RegSetValueExA(key, name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&value), sizeof(value));
  };
  set("startLog", 1);
  set("All", allMask);
  set("Updater", 0);
  set("RulesEng", 0);
  set("QNV", 0);
  set("Catalog", 0);
  set("Clocktime_In_Header", headers ? 1 : 0);
  set("Proc_Id_In_Header", headers ? 1 : 0);
  set("Thread_Id_In_Header", headers ? 1 : 0);
  RegCloseKey(key);
  restartLogger();
  WIN32_FILE_ATTRIBUTE_DATA data;
  if (GetFileAttributesExA(path_.c_str(), GetFileExInfoStandard, &data))
    start_ = (static_cast<uint64_t>(data.nFileSizeHigh) << 32) | data.nFileSizeLow;
  next_ = start_;
}

std::string LogCapture::readFrom(uint64_t offset) const {
  std::ifstream file(path_.c_str(), std::ios::binary);
  file.seekg(0, std::ios::end);
  const std::streamoff end = file.tellg();
  if (end <= static_cast<std::streamoff>(offset))
    return std::string();
  std::string text(static_cast<size_t>(end - static_cast<std::streamoff>(offset)), '\0');
  file.seekg(static_cast<std::streamoff>(offset));
  file.read(&text[0], static_cast<std::streamsize>(text.size()));
  return text;
}

std::string LogCapture::next() {
  std::string text = readFrom(next_);
  next_ += text.size();
  return text;
}

LogCapture::~LogCapture() {
  deleteKeyTree(storeRoot() + "Logger");
  restartLogger();
}

std::vector<std::string> LogCapture::lines() const {
  std::vector<std::string> result;
  const std::string content = readFrom(start_);
  std::string::size_type position = 0;
  while (position < content.size()) {
    const std::string::size_type end = content.find("\r\n", position);
    if (end == std::string::npos) {
      result.push_back(content.substr(position));
      break;
    }
    result.push_back(content.substr(position, end - position));
    position = end + 2;
  }
  return result;
}

std::vector<std::string> LogCapture::texts() const {
  std::vector<std::string> result;
  for (const std::string& line : lines())
    result.push_back(line.size() > kComponentColumn ? line.substr(kComponentColumn) : "");
  return result;
}

bool LogCapture::contains(const std::string& text) const {
  for (const std::string& line : texts()) {
    const std::string::size_type start = line.find_first_not_of(' ');
    if (start != std::string::npos && line.compare(start, std::string::npos, text) == 0)
      return true;
  }
  return false;
}

TempDir::TempDir() {
  char base[MAX_PATH] = {};
  GetTempPathA(MAX_PATH, base);
  static unsigned counter = 0;
  for (;;) {
    path_ = std::string(base) + "cvtest_" + std::to_string(GetCurrentProcessId()) + "_" +
            std::to_string(++counter);
    if (CreateDirectoryA(path_.c_str(), nullptr))
      break;
  }
}

TempDir::~TempDir() {
  removeTree(path_);
}

void removeTree(const std::string& path) {
  // SHFileOperation needs a double-null-terminated list.
  std::string from = path;
  from.push_back('\0');
  SHFILEOPSTRUCTA operation = {};
  operation.wFunc = FO_DELETE;
  operation.pFrom = from.c_str();
  operation.fFlags = FOF_NO_UI;
  SHFileOperationA(&operation);
}

bool writeFile(const std::string& path, const std::string& content) {
  std::ofstream file(path.c_str(), std::ios::binary | std::ios::trunc);
  file << content;
  return static_cast<bool>(file);
}

std::string readFile(const std::string& path) {
  std::ifstream file(path.c_str(), std::ios::binary);
  std::ostringstream content;
  content << file.rdbuf();
  return content.str();
}

bool fileExists(const std::string& path) {
  return GetFileAttributesA(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

std::vector<std::string> readLines(const std::string& path) {
  std::vector<std::string> lines;
  std::ifstream file(path.c_str(), std::ios::binary);
  std::string line;
  while (std::getline(file, line)) {
    if (!line.empty() && line.back() == '\r')
      line.pop_back();
    lines.push_back(line);
  }
  return lines;
}

ProcessResult runProcess(const std::string& commandLine, DWORD timeoutMs) {
  ProcessResult result;
  BackgroundProcess process(commandLine);
  result.started = process.started();
  if (!result.started)
    return result;
  result.timedOut = !process.wait(timeoutMs);
  process.stop();
  result.exitCode = process.exitCode();
  result.output = process.output();
  return result;
}

BackgroundProcess::BackgroundProcess(const std::string& commandLine) {
  InitializeCriticalSection(&lock_);
  SECURITY_ATTRIBUTES inherit = {sizeof(inherit), nullptr, TRUE};
  HANDLE writePipe = nullptr;
  if (!CreatePipe(&pipe_, &writePipe, &inherit, 0))
    return;
  SetHandleInformation(pipe_, HANDLE_FLAG_INHERIT, 0);
  STARTUPINFOA startup = {};
  startup.cb = sizeof(startup);
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdOutput = writePipe;
  startup.hStdError = writePipe;
  PROCESS_INFORMATION process = {};
  std::string line = commandLine;
  if (CreateProcessA(nullptr, &line[0], nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup,
                     &process)) {
    process_ = process.hProcess;
    CloseHandle(process.hThread);
    reader_ = CreateThread(nullptr, 0, &BackgroundProcess::readOutput, this, 0, nullptr);
  }
  CloseHandle(writePipe);
}

void BackgroundProcess::stop() {
  if (process_ != nullptr && WaitForSingleObject(process_, 0) == WAIT_TIMEOUT) {
    TerminateProcess(process_, 1);
    WaitForSingleObject(process_, 5000);
  }
  if (reader_ != nullptr) {
    WaitForSingleObject(reader_, 5000);
    CloseHandle(reader_);
    reader_ = nullptr;
  }
}

BackgroundProcess::~BackgroundProcess() {
  stop();
  if (pipe_ != nullptr)
    CloseHandle(pipe_);
  if (process_ != nullptr)
    CloseHandle(process_);
  DeleteCriticalSection(&lock_);
}

DWORD WINAPI BackgroundProcess::readOutput(void* parameter) {
  auto* self = static_cast<BackgroundProcess*>(parameter);
  char buffer[4096];
  DWORD read = 0;
  while (ReadFile(self->pipe_, buffer, sizeof(buffer), &read, nullptr) && read > 0) {
    EnterCriticalSection(&self->lock_);
    self->output_.append(buffer, read);
    LeaveCriticalSection(&self->lock_);
  }
  return 0;
}

bool BackgroundProcess::waitForOutput(const std::string& text, DWORD timeoutMs) {
  const DWORD start = GetTickCount();
  while (output().find(text) == std::string::npos) {
    if (GetTickCount() - start > timeoutMs)
      return false;
    Sleep(10);
  }
  return true;
}

bool BackgroundProcess::wait(DWORD timeoutMs) {
  return process_ != nullptr && WaitForSingleObject(process_, timeoutMs) == WAIT_OBJECT_0;
}

DWORD BackgroundProcess::exitCode() const {
  DWORD code = 0;
  GetExitCodeProcess(process_, &code);
  return code;
}

std::string BackgroundProcess::output() const {
  EnterCriticalSection(&lock_);
  std::string copy = output_;
  LeaveCriticalSection(&lock_);
  return copy;
}

std::string executableDirectory() {
  char buffer[MAX_PATH] = {};
  GetModuleFileNameA(nullptr, buffer, MAX_PATH);
  std::string path = buffer;
  return path.substr(0, path.rfind('\\') + 1);
}

bool copyBeside(const std::string& source, const std::string& target) {
  const std::string directory = executableDirectory();
  return CopyFileA((directory + source).c_str(), (directory + target).c_str(), FALSE) != FALSE;
}

std::map<std::string, std::string> runHelperCopy(const std::string& exeName,
                                                 const std::string& arguments,
                                                 const std::string& wineVersion) {
  std::map<std::string, std::string> facts;
  if (!copyBeside("test_helper.exe", exeName))
    return facts;
  if (!wineVersion.empty())
    setWineVersion(exeName, wineVersion);
  const ProcessResult result =
      runProcess("\"" + executableDirectory() + exeName + "\" " + arguments);
  if (!wineVersion.empty())
    setWineVersion(exeName, "");
  DeleteFileA((executableDirectory() + exeName).c_str());
  std::istringstream lines(result.output);
  std::string line;
  while (std::getline(lines, line)) {
    if (!line.empty() && line.back() == '\r')
      line.pop_back();
    const std::string::size_type equals = line.find('=');
    if (equals != std::string::npos)
      facts[line.substr(0, equals)] = line.substr(equals + 1);
  }
  return facts;
}

void setWineVersion(const std::string& exeName, const std::string& version) {
  const std::string path = "Software\\Wine\\AppDefaults\\" + exeName;
  if (version.empty()) {
    RegDeleteKeyA(HKEY_CURRENT_USER, path.c_str());
    return;
  }
  HKEY key = nullptr;
  RegCreateKeyExA(HKEY_CURRENT_USER, path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key,
                  nullptr);
  RegSetValueExA(key, "Version", 0, REG_SZ, reinterpret_cast<const BYTE*>(version.c_str()),
                 static_cast<DWORD>(version.size() + 1));
  RegCloseKey(key);
}

}  // namespace testsupport
