#include "updater/DownloadRecord.h"

#include <windows.h>

#include <cstdio>

#include "logging/FunctionTrace.h"
#include "settings/PathHelpers.h"
#include "system/ExportLookup.h"
#include "system/UniqueHandle.h"

namespace {

const char kRecordValue[] = "PendingDownloads";
const char kOwner[] = "DownloadRecord";
// Between a folder's identity and a path in an entry of the note; no path holds it.
const char kSeparator = '|';

std::string folderOf(const std::string& path) {
  const std::string::size_type slash = path.rfind('\\');
  return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

// A handle that looks at the file or folder itself, never at what a link at its end points to.
ScopedHandle openItself(const std::string& path, DWORD access, DWORD share) {
  return ScopedHandle(CreateFileA(path.c_str(), access, share, nullptr, OPEN_EXISTING,
                                  FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT,
                                  nullptr));
}

// Volume serial and file index, "VVVVVVVV-IIIIIIIIIIIIIIII"; empty when they cannot be read.
std::string identityOf(HANDLE handle) {
  BY_HANDLE_FILE_INFORMATION info;
  if (!GetFileInformationByHandle(handle, &info))
    return std::string();
  char text[32] = {};
  static_cast<void>(snprintf(text, sizeof(text), "%08lX-%08lX%08lX", info.dwVolumeSerialNumber,
                             info.nFileIndexHigh, info.nFileIndexLow));
  return text;
}

// A drive letter, a colon, and plain folder and file names below it: no "." or "..", no stream
// (a further colon), no other separator or wildcard.
bool isPlainLocalPath(const std::string& path) {
  if (!isFullyQualifiedPath(path) || path[1] != ':' ||
      path.find_first_of("/:*?\"<>|", 2) != std::string::npos || path.back() == '\\')
    return false;
  for (std::string::size_type start = 3; start <= path.size();) {
    std::string::size_type end = path.find('\\', start);
    if (end == std::string::npos)
      end = path.size();
    const std::string name = path.substr(start, end - start);
    if (name.empty() || name == "." || name == "..")
      return false;
    start = end + 1;
  }
  return true;
}

// Whether some folder on the way to `path`, or `path` itself, is a link (any reparse point) now.
bool hasLinkOnTheWay(const std::string& path) {
  for (std::string::size_type end = path.find('\\', 3);; end = path.find('\\', end + 1)) {
    const DWORD attributes = GetFileAttributesA(path.substr(0, end).c_str());
    if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0)
      return true;
    if (end == std::string::npos)
      return false;
  }
}

// Deletes the file behind `file`, through the handle where the system allows (Vista and later),
// so that nothing can swap the file between the checks and the deletion.
bool deleteOpenFile(ScopedHandle& file, const std::string& path) {
  auto setInformation = LOOKUP_EXPORT(GetModuleHandleA("kernel32.dll"), SetFileInformationByHandle);
  if (setInformation != nullptr) {
    FILE_DISPOSITION_INFO disposition = {TRUE};
    return setInformation(file.get(), FileDispositionInfo, &disposition, sizeof(disposition)) !=
           FALSE;
  }
  file.close();
  return DeleteFileA(path.c_str()) != FALSE;
}

// What became of one entry of a note whose run is gone: done with (deleted, gone already, or
// refused) or kept for a later run.
enum class Outcome { kDone, kKept };

Outcome deleteNoted(const std::string& entry, FunctionTrace& trace) {
  const std::string::size_type separator = entry.find(kSeparator);
  const std::string identity = entry.substr(0, separator == std::string::npos ? 0 : separator);
  const std::string path = entry.substr(separator == std::string::npos ? 0 : separator + 1);
  const auto refuse = [&path](const char* reason) {
    BasicLogger::getInstance().write(kLogUpdater, LOG_ALWAYS,
                                     "DownloadRecord: not deleting '" + path + "': " + reason);
    return Outcome::kDone;
  };
  if (!isPlainLocalPath(path))
    return refuse("not a full path of a file");
  if (hasLinkOnTheWay(path))
    return refuse("a link in its path");
  // Held without sharing its deletion, the folder cannot be moved or replaced meanwhile.
  const ScopedHandle folder(
      openItself(folderOf(path), FILE_READ_ATTRIBUTES, FILE_SHARE_READ | FILE_SHARE_WRITE));
  if (!folder.valid() && GetFileAttributesA(path.c_str()) == INVALID_FILE_ATTRIBUTES)
    return Outcome::kDone;  // Gone already, with its folder.
  if (identity.empty() || identityOf(folder.get()) != identity)
    return refuse("not in the folder its run downloaded into");
  ScopedHandle file(openItself(path, DELETE | FILE_READ_ATTRIBUTES,
                               FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE));
  DWORD error = GetLastError();
  if (!file.valid() && (error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND))
    return Outcome::kDone;
  BY_HANDLE_FILE_INFORMATION info;
  if (file.valid() && GetFileInformationByHandle(file.get(), &info)) {
    if ((info.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0)
      return refuse("a folder");
    if ((info.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0)
      return refuse("a link");
    if (info.nNumberOfLinks != 1)
      return refuse("a file with other links");
    if (deleteOpenFile(file, path)) {
      trace.detail([&] { return "Deleted '" + path + "', left behind by a run that ended"; });
      return Outcome::kDone;
    }
  }
  error = GetLastError();
  trace.detail([&] {
    return LogText("Could not delete '") + path + "', GetLastError()=" + decimal(error) +
           "; it stays recorded for a later run";
  });
  return Outcome::kKept;
}

}  // namespace

DownloadRecord::DownloadRecord() : record_(kRecordValue, kOwner) {}

bool DownloadRecord::add(const std::string& path) {
  const ScopedHandle folder(openItself(folderOf(path), FILE_READ_ATTRIBUTES,
                                       FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE));
  entries_.push_back(identityOf(folder.get()) + kSeparator + path);
  if (record_.hold())
    record_.write(entries_);
  return !record_.heldElsewhere();
}

void DownloadRecord::remove(const std::string& path) {
  entries_.remove_if([&path](const std::string& entry) {
    return entry.compare(entry.find(kSeparator) + 1, std::string::npos, path) == 0;
  });
  if (entries_.empty())
    record_.release();
  else if (record_.isHeld())
    record_.write(entries_);
}

bool DownloadRecord::recoverAbandonedDownloads() {
  // The common case, nothing recorded, reads one value and writes nothing, not even a log line.
  RunRecord record(kRecordValue, kOwner);
  const std::list<std::string> entries = record.read();
  if (entries.empty() || !record.takeOver())
    return false;  // Nothing to do, or its run is still working and will delete them itself.
  FunctionTrace trace =
      FunctionTrace::open(kLogUpdater, "DownloadRecord::recoverAbandonedDownloads() ");
  std::list<std::string> kept;
  for (const std::string& entry : entries) {
    if (deleteNoted(entry, trace) == Outcome::kKept)
      kept.push_back(entry);
  }
  if (kept.empty())
    record.release();
  else
    record.write(kept);
  return trace.returning(kept.empty());
}
