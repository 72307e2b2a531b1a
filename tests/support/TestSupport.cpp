#include "support/TestSupport.h"

#include <aclapi.h>
#include <sddl.h>
#include <wincrypt.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "logging/Logger.h"
#include "settings/RegistryLink.h"
#include "settings/SettingsLogSwitches.h"
#include "updater/CommandLineParams.h"

namespace testsupport {

namespace {

// Deletes the open key and what is below it; a link as the link.
void deleteOpenTree(HKEY key) {
  if (!RegistryLink::isLink(key)) {
    for (const std::wstring& name : RegistryLink::childNames(key)) {
      ScopedKey child;
      if (RegistryLink::openChild(key, name, KEY_ALL_ACCESS, child) == ERROR_SUCCESS)
        deleteOpenTree(child.get());
    }
  }
  RegistryLink::deleteKey(key);
}

}  // namespace

bool keyExists(const std::string& path) {
  ScopedKey key;
  return RegOpenKeyExA(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_READ, key.receive()) ==
         ERROR_SUCCESS;
}

std::string registryValue(const std::string& path, const std::string& name) {
  char data[4096] = {};
  DWORD type = 0, size = sizeof(data) - 1;
  if (RegGetValueA(HKEY_LOCAL_MACHINE, path.c_str(), name.c_str(),
                   RRF_RT_REG_DWORD | RRF_RT_REG_SZ | RRF_RT_REG_MULTI_SZ, &type, data,
                   &size) != ERROR_SUCCESS)
    return "none";
  if (type == REG_MULTI_SZ)
    std::replace(data, data + (size > 2 ? size - 2 : 0), '\0', '\n');
  return type == REG_DWORD ? std::to_string(*reinterpret_cast<DWORD*>(data)) : data;
}

bool setValue(const std::string& path, const std::string& name, DWORD value) {
  return RegSetKeyValueA(HKEY_LOCAL_MACHINE, path.c_str(), name.c_str(), REG_DWORD, &value,
                         sizeof(value)) == ERROR_SUCCESS;
}

bool setValue(const std::string& path,
              const std::string& name,
              const std::string& value,
              DWORD type) {
  return RegSetKeyValueA(HKEY_LOCAL_MACHINE, path.c_str(), name.c_str(), type, value.c_str(),
                         static_cast<DWORD>(value.size() + 1)) == ERROR_SUCCESS;
}

void deleteKeyTree(const std::string& path) {
  ScopedKey key;
  if (RegistryLink::open(HKEY_LOCAL_MACHINE, path, KEY_ALL_ACCESS, key) == ERROR_SUCCESS)
    deleteOpenTree(key.get());
}

bool makeLink(const std::string& path, const std::string& target) {
  ScopedKey key;
  const std::wstring name(path.begin(), path.end());
  const std::wstring to = L"\\Registry\\Machine\\" + std::wstring(target.begin(), target.end());
  return RegCreateKeyExW(HKEY_LOCAL_MACHINE, name.c_str(), 0, nullptr,
                         REG_OPTION_CREATE_LINK | REG_OPTION_NON_VOLATILE,
                         KEY_ALL_ACCESS | KEY_CREATE_LINK, nullptr, key.receive(),
                         nullptr) == ERROR_SUCCESS &&
         RegSetValueExW(key.get(), L"SymbolicLinkValue", 0, REG_LINK,
                        reinterpret_cast<const BYTE*>(to.data()),
                        static_cast<DWORD>(to.size() * sizeof(wchar_t))) == ERROR_SUCCESS;
}

bool isLinkKey(const std::string& path) {
  ScopedKey key;
  return RegistryLink::open(HKEY_LOCAL_MACHINE, path, KEY_READ, key) == ERROR_SUCCESS &&
         RegistryLink::isLink(key.get());
}

ScopedStore::ScopedStore() {
  deleteKeyTree(familyPath());
  ScopedKey key;
  RegCreateKeyExA(HKEY_LOCAL_MACHINE, storeRoot().c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                  key.receive(), nullptr);
}

ScopedStore::~ScopedStore() {
  deleteKeyTree(familyPath());
}

void ScopedStore::set(const std::string& section, const std::string& name, DWORD value) {
  setValue(storeRoot() + section, name, value);
}

void ScopedStore::set(const std::string& section,
                      const std::string& name,
                      const std::string& value,
                      DWORD type) {
  setValue(storeRoot() + section, name, value, type);
}

void ScopedStore::remove(const std::string& section, const std::string& name) {
  RegDeleteKeyValueA(HKEY_LOCAL_MACHINE, (storeRoot() + section).c_str(), name.c_str());
}

std::string ScopedPolicy::root() {
  return "Software\\Policies\\" + familyPath().substr(std::string("Software\\").size()) +
         "\\QNV\\Local\\" + localId() + "\\";
}

ScopedPolicy::ScopedPolicy() {
  deleteKeyTree(root().substr(0, root().find("\\QNV\\")));
}

ScopedPolicy::~ScopedPolicy() {
  deleteKeyTree(root().substr(0, root().find("\\QNV\\")));
}

void ScopedPolicy::set(const std::string& section, const std::string& name, DWORD value) {
  setValue(root() + section, name, value);
}

void ScopedPolicy::set(const std::string& section,
                       const std::string& name,
                       const std::string& value,
                       DWORD type) {
  setValue(root() + section, name, value, type);
}

void ScopedPolicy::remove(const std::string& section, const std::string& name) {
  RegDeleteKeyValueA(HKEY_LOCAL_MACHINE, (root() + section).c_str(), name.c_str());
}

void stageUpdateRun(ScopedStore& store, const std::string& driver) {
  const std::string updater = "Settings\\Updater";
  store.set(updater, "WebUpdaterDllPath", executableDirectory());
  store.set(updater, "WebServerUrl", "http://svc/[package_code]");
  store.set(updater, "TandemOrreryVersionPackageCode", "cs");
  store.set(updater, "TandemCatalogVersionPackageCode", "cd");
  store.set(updater, "TandemOrreryDownloadPackageCode", "ds");
  store.set(updater, "TandemCatalogDownloadPackageCode", "dd");
  store.set(updater, "PrinterPollInterval", 1);
  store.set("Settings\\", "DriverName", driver);
}

void setCommandLine(const std::string& commandLine) {
  CommandLineParams::destroyInstance();
  CommandLineParams::createInstance(commandLine);
}

void restartLogger() {
  static const SettingsLogSwitches switches;
  Logger::destroyInstance();
  Logger::createInstance(switches);
}

LogCapture::LogCapture(DWORD allMask, bool headers, const std::map<std::string, DWORD>& switches)
    : path_(Logger::getLogFilePath()) {
  const std::string logger = storeRoot() + "Logger";
  setValue(logger, "startLog", 1);
  setValue(logger, "All", allMask);
  for (const char* component : {"Updater", "RulesEng", "QNV", "Catalog"})
    setValue(logger, component, 0);
  for (const char* header : {"Clocktime_In_Header", "Proc_Id_In_Header", "Thread_Id_In_Header"})
    setValue(logger, header, headers ? 1 : 0);
  for (const auto& [name, value] : switches)
    setValue(logger, name, value);
  restartLogger();
  start_ = readFile(path_).size();
}

LogCapture::~LogCapture() {
  deleteKeyTree(storeRoot() + "Logger");
  restartLogger();
}

std::vector<std::string> LogCapture::lines() const {
  const std::string content = readFile(path_);
  return splitLines(start_ < content.size() ? content.substr(static_cast<size_t>(start_)) : "");
}

std::vector<std::string> LogCapture::details(const std::string& functionName) const {
  std::vector<std::string> details;
  for (const std::string& line : lines()) {
    const std::string::size_type start = line.find_first_not_of(' ', 16);  // After the component.
    if (start != std::string::npos && line.compare(start, functionName.size(), functionName) == 0)
      details.push_back(line.substr(start + functionName.size()));
  }
  return details;
}

std::string sourcePath(const std::string& relative) {
  std::string folder = "Z:" TESTS_SOURCE_DIR "\\";
  std::replace(folder.begin(), folder.end(), '/', '\\');
  return folder + relative;
}

TempDir::TempDir() {
  char base[MAX_PATH] = {};
  GetTempPathA(MAX_PATH, base);
  static unsigned counter = 0;
  do {
    path_ = std::string(base) + "cvtest_" + std::to_string(GetCurrentProcessId()) + "_" +
            std::to_string(++counter);
  } while (!CreateDirectoryA(path_.c_str(), nullptr));
}

TempDir::~TempDir() {
  removeTree(path_);
}

void removeTree(const std::string& path) {
  std::error_code ignored;
  std::filesystem::remove_all(path, ignored);
}

bool writeFile(const std::string& path, const std::string& content) {
  std::ofstream file(path.c_str(), std::ios::binary | std::ios::trunc);
  file << content;
  file.close();
  WritePrivateProfileStringA(nullptr, nullptr, nullptr, path.c_str());
  return static_cast<bool>(file);
}

std::string readFile(const std::string& path) {
  std::ifstream file(path.c_str(), std::ios::binary);
  std::ostringstream content;
  content << file.rdbuf();
  return content.str();
}

std::vector<std::string> splitLines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line); lines.push_back(line)) {
    if (!line.empty() && line.back() == '\r')
      line.pop_back();
  }
  return lines;
}

Process::Process(const std::string& commandLine) {
  SECURITY_ATTRIBUTES inherit = {sizeof(inherit), nullptr, TRUE};
  const auto create = [&](const char* name) {
    return ScopedHandle(CreateFileA(output_.file(name).c_str(), FILE_APPEND_DATA,
                                    FILE_SHARE_READ | FILE_SHARE_WRITE, &inherit, CREATE_ALWAYS,
                                    FILE_ATTRIBUTE_NORMAL, nullptr));
  };
  const ScopedHandle output = create("output.txt"), errors = create("errors.txt");
  STARTUPINFOA startup = {};
  startup.cb = sizeof(startup);
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdOutput = output.get();
  startup.hStdError = errors.get();
  PROCESS_INFORMATION process = {};
  std::string line = commandLine;
  if (CreateProcessA(nullptr, &line[0], nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup,
                     &process)) {
    process_.reset(process.hProcess);
    const ScopedHandle thread(process.hThread);  // Not needed: closed at once.
  }
}

Process::~Process() {
  if (process_.valid() && !wait(0)) {
    TerminateProcess(process_.get(), 1);
    wait(5000);
  }
}

std::string Process::text(const char* file) const {
  std::string text = readFile(output_.file(file));
  text.erase(std::remove(text.begin(), text.end(), '\r'), text.end());
  return text;
}

bool Process::waitForOutput(const std::string& text, DWORD timeoutMs) const {
  for (const DWORD start = GetTickCount(); output().find(text) == std::string::npos; Sleep(10)) {
    if (GetTickCount() - start > timeoutMs)
      return false;
  }
  return true;
}

namespace {
std::string uniqueEventName() {
  static unsigned counter = 0;
  return "cvtest_letgo_" + std::to_string(GetCurrentProcessId()) + "_" + std::to_string(++counter);
}

// The helper under the name `copy` beside the tests; returns that name.
std::string helperCopy(const std::string& copy) {
  if (copy != "test_helper.exe")
    CopyFileA((executableDirectory() + "test_helper.exe").c_str(),
              (executableDirectory() + copy).c_str(), FALSE);
  return copy;
}
}  // namespace

MutexHolder::MutexHolder(const std::string& name, const std::string& mode, const std::string& copy)
    : event_(uniqueEventName()),
      program_(helperCopy(copy)),
      signal_(CreateEventA(nullptr, TRUE, FALSE, event_.c_str())),
      holder_(besideTests(copy, "mutex-hold " + name + " " + event_ + " " + mode)),
      holds_(holder_.waitForOutput("held", 20000)) {}

MutexHolder::~MutexHolder() {
  letGo();
  if (program_ != "test_helper.exe")
    DeleteFileA((executableDirectory() + program_).c_str());
}

void MutexHolder::letGo() {
  SetEvent(signal_.get());
  holder_.wait(20000);
}

std::string tryMutexElsewhere(const std::string& name) {
  const std::string output =
      runProcess(besideTests("test_helper.exe", "mutex-try " + name + " 50"));
  return output.substr(0, output.find('='));
}

std::string dacl(HANDLE object, SE_OBJECT_TYPE type) {
  PACL list = nullptr;
  ScopedLocal descriptor;
  if (object == nullptr ||
      GetSecurityInfo(object, type, DACL_SECURITY_INFORMATION, nullptr, nullptr, &list, nullptr,
                      descriptor.receive()) != ERROR_SUCCESS)
    return "none";
  return list == nullptr ? "null" : dacl(descriptor.get());
}

std::string dacl(PSECURITY_DESCRIPTOR descriptor) {
  char* text = nullptr;
  if (!ConvertSecurityDescriptorToStringSecurityDescriptorA(
          descriptor, SDDL_REVISION_1, DACL_SECURITY_INFORMATION, &text, nullptr))
    return "none";
  const ScopedLocal textBlock(text);
  return text;
}

std::string runProcess(const std::string& commandLine, DWORD* exitCode, std::string* errors) {
  Process process(commandLine);
  process.wait(120000);
  if (exitCode != nullptr)
    *exitCode = process.exitCode();
  if (errors == nullptr)
    return process.output() + process.errors();
  *errors = process.errors();
  return process.output();
}

std::string trustFixture(const std::string& name) {
  return executableDirectory() + "trust\\" + name;
}

std::string publisherHash(const std::string& signer) {
  const std::string text = readFile(trustFixture(signer + ".hash"));
  return text.substr(0, text.find_first_of("\r\n"));
}

std::string whyTestRootUntrusted() {
  const std::string pem = readFile(trustFixture("root.pem"));
  DWORD size = 0;
  if (!CryptStringToBinaryA(pem.c_str(), 0, CRYPT_STRING_BASE64HEADER, nullptr, &size, nullptr,
                            nullptr))
    return "the test root " + trustFixture("root.pem") + " cannot be read";
  std::vector<BYTE> der(size);
  CryptStringToBinaryA(pem.c_str(), 0, CRYPT_STRING_BASE64HEADER, der.data(), &size, nullptr,
                       nullptr);
  PCCERT_CONTEXT root = CertCreateCertificateContext(X509_ASN_ENCODING, der.data(), size);
  CERT_CHAIN_PARA parameters = {sizeof(parameters), {}};
  PCCERT_CHAIN_CONTEXT chain = nullptr;
  const bool built = root != nullptr && CertGetCertificateChain(nullptr, root, nullptr, nullptr,
                                                                &parameters, 0, nullptr, &chain);
  const DWORD errors = built ? chain->TrustStatus.dwErrorStatus : ~0ul;
  if (chain != nullptr)
    CertFreeCertificateChain(chain);
  if (root != nullptr)
    CertFreeCertificateContext(root);
  if ((errors & (CERT_TRUST_IS_UNTRUSTED_ROOT | CERT_TRUST_IS_PARTIAL_CHAIN)) == 0)
    return std::string();
  return "the test root is not trusted here (chain errors " + std::to_string(errors) +
         "): run the test through scripts/with-trusted-root.sh, as root where unshare -m works";
}

bool setKeySecurity(const std::string& path, const char* sddl) {
  ScopedKey key;
  ScopedLocal descriptor;
  PSID owner = nullptr;
  PACL dacl = nullptr;
  BOOL present = FALSE, defaulted = FALSE;
  const bool withOwner = sddl[0] == 'O';
  const SECURITY_INFORMATION what =
      DACL_SECURITY_INFORMATION | (withOwner ? OWNER_SECURITY_INFORMATION : 0);
  return RegOpenKeyExA(HKEY_LOCAL_MACHINE, path.c_str(), 0,
                       WRITE_DAC | (withOwner ? WRITE_OWNER : 0), key.receive()) == ERROR_SUCCESS &&
         ConvertStringSecurityDescriptorToSecurityDescriptorA(sddl, SDDL_REVISION_1,
                                                              descriptor.receive(), nullptr) &&
         GetSecurityDescriptorOwner(descriptor.get(), &owner, &defaulted) &&
         GetSecurityDescriptorDacl(descriptor.get(), &present, &dacl, &defaulted) &&
         SetSecurityInfo(key.get(), SE_REGISTRY_KEY, what, owner, nullptr, dacl, nullptr) ==
             ERROR_SUCCESS;
}

std::string executableDirectory() {
  char buffer[MAX_PATH] = {};
  GetModuleFileNameA(nullptr, buffer, MAX_PATH);
  const std::string path = buffer;
  return path.substr(0, path.rfind('\\') + 1);
}

std::string besideTests(const std::string& name, const std::string& arguments) {
  return "\"" + executableDirectory() + name + "\" " + arguments;
}

std::string runCopy(const std::string& source,
                    const std::string& copy,
                    const std::string& arguments,
                    const std::string& wineVersion,
                    DWORD* exitCode,
                    std::string* errors) {
  const std::string path = executableDirectory() + copy;
  const std::string versionKey = "Software\\Wine\\AppDefaults\\" + copy;
  CopyFileA((executableDirectory() + source).c_str(), path.c_str(), FALSE);
  if (!wineVersion.empty())
    RegSetKeyValueA(HKEY_CURRENT_USER, versionKey.c_str(), "Version", REG_SZ, wineVersion.c_str(),
                    static_cast<DWORD>(wineVersion.size() + 1));
  const std::string output = runProcess(besideTests(copy, arguments), exitCode, errors);
  RegDeleteKeyA(HKEY_CURRENT_USER, versionKey.c_str());
  DeleteFileA(path.c_str());
  return output;
}

std::string utcFromNow(long long seconds) {
  FILETIME time;
  GetSystemTimeAsFileTime(&time);
  ULARGE_INTEGER ticks = {{time.dwLowDateTime, time.dwHighDateTime}};
  ticks.QuadPart += static_cast<unsigned long long>(seconds * 10000000LL);
  time = {ticks.LowPart, ticks.HighPart};
  SYSTEMTIME parts;
  FileTimeToSystemTime(&time, &parts);
  char text[32];
  snprintf(text, sizeof text, "%04u-%02u-%02uT%02u:%02u:%02uZ", parts.wYear, parts.wMonth,
           parts.wDay, parts.wHour, parts.wMinute, parts.wSecond);
  return text;
}

std::map<std::string, std::string> facts(const std::string& output) {
  std::map<std::string, std::string> facts;
  for (const std::string& line : splitLines(output)) {
    const std::string::size_type equals = line.find('=');
    if (equals != std::string::npos)
      facts[line.substr(0, equals)] = line.substr(equals + 1);
  }
  return facts;
}

std::vector<std::string> StandInScenario::calls(const std::string& function) const {
  const std::string prefix = std::to_string(GetCurrentProcessId()) + separator_ + function;
  std::vector<std::string> calls;
  for (const std::string& line : splitLines(readFile(journal_))) {
    if (line.compare(0, prefix.size(), prefix) == 0 &&
        (function.empty() || line.size() == prefix.size() || line[prefix.size()] == ' '))
      calls.push_back(line.substr(prefix.size() - function.size()));
  }
  return calls;
}

void SpoolerScenario::write(const std::vector<PrinterScenario>& printers,
                            DWORD failDriverDirectory) {
  std::ostringstream text;
  text << "[Spooler]\r\nGeneration=" << ++generation_ << "\r\nPrinters=" << printers.size()
       << "\r\nJournal=" << journal_ << "\r\nFailDriverDirectory=" << failDriverDirectory << "\r\n";
  for (size_t i = 0; i < printers.size(); ++i) {
    const PrinterScenario& p = printers[i];
    // Quoted, so that blanks at either end survive the private-profile reader.
    text << "[Printer" << i << "]\r\nName=\"" << p.name << "\"\r\nDriver=\"" << p.driver
         << "\"\r\nAttributes=" << p.attributes << "\r\nStatus=" << p.status
         << "\r\nJobs=" << p.jobs << "\r\nDrainAfterPolls=" << p.drainAfterPolls
         << "\r\nFailOpen=" << p.failOpen << "\r\nFailGetPrinter=" << p.failGetPrinter
         << "\r\nFailPause=" << p.failPause << "\r\nFailResume=" << p.failResume
         << "\r\nFailClose=" << p.failClose << "\r\nBusyChance=" << p.busyChance
         << "\r\nAnswerWithoutData=" << p.answerWithoutData << "\r\n";
  }
  writeScenario(text.str());
}

std::vector<std::string> SpoolerScenario::names(const std::string& function,
                                                const std::string& filter) const {
  std::vector<std::string> names;
  for (const std::string& call : calls(function)) {
    if (call.find(filter) == std::string::npos)
      continue;
    const std::string::size_type start = call.find("name=") + 5;
    std::string::size_type end = call.find(" result=", start);
    for (const char* next : {" level=", " command=", " access="})
      end = std::min(end, call.find(next, start));
    names.push_back(call.substr(start, end - start));
  }
  return names;
}

void WebUpdaterScenario::write() {
  std::ostringstream text;
  text << "[Library]\r\nMode=scripted\r\nJournal=" << journal_ << "\r\nConnection=" << connection_
       << "\r\nGate=" << gate_ << "\r\n";
  const char* sections[] = {"Check", "Download", "Apply"};
  for (int i = 0; i < 3; ++i) {
    text << "[" << sections[i] << "]\r\n";
    for (const auto& [key, value] : rules_[i])
      text << key << "=" << value << "\r\n";
  }
  writeScenario(text.str());
}

}  // namespace testsupport
