#include "updater/PackageTrust.h"

#include <aclapi.h>
#include <sddl.h>
#include <shlobj.h>

#include "logging/FunctionTrace.h"
#include "settings/Settings.h"
#include "settings/SettingsKeys.h"
#include "system/FileSignature.h"
#include "system/Localize.h"
#include "system/WriteAccess.h"
#include "updater/DownloadRecord.h"

namespace {

// SYSTEM and the administrators alone, for the folder and what is made in it; nothing inherited.
const char kPrivateFolder[] = "D:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)";
const int kCommonAppData = 0x23;  // CSIDL_COMMON_APPDATA
const DWORD kCopyBlock = 1 << 20;

std::string error(DWORD code) {
  return "error " + std::to_string(code);
}

void logAlways(const std::string& text) {
  BasicLogger::getInstance().write(kLogUpdater, LOG_ALWAYS, "PackageTrust: " + text);
}

// Copies `from` into the new file `to`; "" or why not.
std::string copyFile(const std::string& from, const std::string& to) {
  const ScopedHandle source(CreateFileA(from.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                        OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
  if (!source.valid())
    return "it cannot be read: " + error(GetLastError());
  // A new file in the verified folder: it takes that folder's DACL, never the download's.
  const ScopedHandle target(CreateFileA(to.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                        FILE_ATTRIBUTE_NORMAL | FILE_FLAG_SEQUENTIAL_SCAN,
                                        nullptr));
  if (!target.valid())
    return "its copy '" + to + "' cannot be made: " + error(GetLastError());
  std::vector<char> block(kCopyBlock);
  for (;;) {
    DWORD read = 0;
    if (!ReadFile(source.get(), block.data(), kCopyBlock, &read, nullptr))
      return "it cannot be read: " + error(GetLastError());
    if (read == 0)
      return std::string();
    DWORD written = 0;
    if (!WriteFile(target.get(), block.data(), read, &written, nullptr) || written != read)
      return "its copy '" + to + "' cannot be written: " + error(GetLastError());
  }
}

}  // namespace

PackageTrust::PackageTrust(DownloadRecord& downloads) : downloads_(downloads) {
  for (const std::string& problem : publishers_.problems())
    logAlways(problem);
}

std::string PackageTrust::folderPath() {
  char folder[MAX_PATH] = {};
  if (!SHGetSpecialFolderPathA(nullptr, folder, kCommonAppData, FALSE))
    return std::string();
  return std::string(folder) + "\\" + Localize::getInstance()->getLocalId() + "Verified";
}

std::string PackageTrust::holdFolder(const std::string& path) {
  ScopedLocal descriptor;
  if (!ConvertStringSecurityDescriptorToSecurityDescriptorA(kPrivateFolder, SDDL_REVISION_1,
                                                            descriptor.receive(), nullptr))
    return "the folder '" + path + "' cannot be made: " + error(GetLastError());
  SECURITY_ATTRIBUTES attributes = {sizeof(attributes), descriptor.get(), FALSE};
  if (!CreateDirectoryA(path.c_str(), &attributes) && GetLastError() != ERROR_ALREADY_EXISTS)
    return "the folder '" + path + "' cannot be made: " + error(GetLastError());
  // Whatever made it, the folder is used only as the rule allows; held without sharing its
  // deletion, it cannot be renamed or replaced while a package in it is held.
  ScopedHandle folder(CreateFileA(
      path.c_str(), FILE_READ_ATTRIBUTES | READ_CONTROL, FILE_SHARE_READ | FILE_SHARE_WRITE,
      nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
  BY_HANDLE_FILE_INFORMATION info;
  if (!folder.valid() || !GetFileInformationByHandle(folder.get(), &info))
    return "the folder '" + path + "' cannot be held: " + error(GetLastError());
  if ((info.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0 ||
      (info.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0)
    return "'" + path + "' is not a folder of its own (a file or a link)";
  const std::string other = WriteAccess::whoElseCanChangeFile(folder.get());
  if (!other.empty())
    return "the folder '" + path + "' can be changed by " + other;
  folders_.push_back(std::move(folder));
  return std::string();
}

std::string PackageTrust::copyAndVerify(const char* kind,
                                        const std::string& download,
                                        std::string& copy,
                                        ScopedHandle& held,
                                        std::string& signer) {
  const std::string root = folderPath();
  if (root.empty())
    return "the folder for verified packages is unknown";
  const std::string folder = root + "\\" + kind;
  for (const std::string& path : {root, folder}) {
    std::string why = holdFolder(path);
    if (!why.empty())
      return why;
  }
  // The download's own name: the library may tell the kind of package by it.
  const std::string::size_type slash = download.rfind('\\');
  const std::string name = slash == std::string::npos ? download : download.substr(slash + 1);
  if (name.empty())
    return "it has no file name";
  if (!downloads_.addBeforeMaking(folder + "\\" + name))
    return "its copy cannot be recorded";
  copy = folder + "\\" + name;
  DeleteFileA(copy.c_str());  // A copy that a killed run left, which the recovery could not take.
  std::string why = copyFile(download, copy);
  if (!why.empty())
    return why;
  held.reset(CreateFileA(copy.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                         FILE_ATTRIBUTE_NORMAL | FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
  if (!held.valid()) {
    const DWORD code = GetLastError();
    return code == ERROR_SHARING_VIOLATION ? "its copy is held open by another process"
                                           : "its copy cannot be opened: " + error(code);
  }
  const FileSignature signature = verifyFileSignature(held.get(), copy);
  if (signature.status != FileSignature::Status::kTrusted)
    return signature.reason + "; signer " + signerText(signature);
  if (!publishers_.contains(signature.keyHash))
    return "its signer is not a trusted publisher; signer " + signerText(signature);
  signer = signerText(signature);
  return std::string();
}

std::string PackageTrust::admit(bool software, std::string& path) {
  FunctionTrace trace = FunctionTrace::open(kLogUpdater, "PackageTrust::admit() ");
  const char* kind = software ? "software" : "catalog";
  const std::string download = path;
  std::string copy, signer;
  ScopedHandle held;
  std::string why = copyAndVerify(kind, download, copy, held, signer);
  if (why.empty()) {
    trace.detail([&] {
      return std::string("The ") + kind + " package '" + download + "' is signed by " + signer +
             ", a trusted publisher; the library is given its verified copy '" + copy + "'";
    });
    admitted_.push_back(Admitted{download, copy, std::move(held)});
    path = copy;
    return why;
  }
  logAlways(std::string("the ") + kind + " package '" + download + "' is not applied: " + why);
  held.close();
  if (!copy.empty())
    downloads_.deleteFile(copy);
  downloads_.deleteFile(download);
  path.clear();
  return why;
}

void PackageTrust::release() {
  for (Admitted& package : admitted_)
    package.held.close();
  folders_.clear();
}

void PackageTrust::cleanUpDownloads(FunctionTrace& trace) {
  if (admitted_.empty())
    return;
  unsigned long keep = 0;
  Settings().getOrCreateDwordValue(SettingsKeys::kUpdaterSection,
                                   SettingsKeys::kDoNotDeleteDownloadedFiles, keep, 0, 0);
  for (const Admitted& package : admitted_) {
    if (keep != 0) {
      trace.detail([&] { return "NOT deleting the download '" + package.download + "'"; });
      downloads_.remove(package.download);
    } else {
      trace.detail([&] { return "Deleting the download '" + package.download + "'"; });
      downloads_.deleteFile(package.download);
    }
  }
  admitted_.clear();
}
