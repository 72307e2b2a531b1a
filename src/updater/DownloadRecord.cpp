#include "updater/DownloadRecord.h"

#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "logging/FunctionTrace.h"
#include "settings/PathHelpers.h"
#include "settings/Settings.h"
#include "settings/SettingsKeys.h"
#include "system/CurrentProcess.h"
#include "system/ExportLookup.h"
#include "system/UniqueHandle.h"

namespace {

const char kRecordValue[] = "PendingDownloads";
const char kOwner[] = "DownloadRecord";
// Between the fields of an entry of the note (the folder's identity, the failed attempts to
// delete the file, its path); no path holds it.
const char kSeparator = '|';
// Runs that try to delete a noted file before its entry is dropped.
const unsigned long kMaxAttempts = 3;

using Entry = DownloadRecord::Entry;

Entry parseEntry(const std::string& text) {
  const std::string::size_type first = text.find(kSeparator);
  const std::string::size_type second =
      first == std::string::npos ? first : text.find(kSeparator, first + 1);
  // An entry this program did not write has no identity, so nothing it names is deleted.
  if (second == std::string::npos)
    return Entry{std::string(), 0, text};
  return Entry{text.substr(0, first),
               strtoul(text.substr(first + 1, second - first - 1).c_str(), nullptr, 10),
               text.substr(second + 1)};
}

std::string entryText(const Entry& entry) {
  return entry.identity + kSeparator + std::to_string(entry.attempts) + kSeparator + entry.path;
}

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

// Whether `file` is the program's executable, its log or its settings file.
bool isProgramFile(HANDLE file) {
  const std::string identity = identityOf(file);
  const std::string directory = CurrentProcess::getInstance()->getDirectory();
  for (const std::string& own :
       {CurrentProcess::getInstance()->getPath(), BasicLogger::getInstance().getLogFilePath(),
        directory + Settings::getMarkerFilePath()}) {
    const ScopedHandle handle(openItself(own, FILE_READ_ATTRIBUTES,
                                         FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE));
    if (!identity.empty() && handle.valid() && identityOf(handle.get()) == identity)
      return true;
  }
  return false;
}

bool isProgramFile(const std::string& path) {
  const ScopedHandle file(openItself(path, FILE_READ_ATTRIBUTES,
                                     FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE));
  return file.valid() && isProgramFile(file.get());
}

// Why the library's `path` is not noted, or null when it names a regular file in a fully
// qualified local folder that is not the program's own.
const char* unfitForTheNote(const std::string& path) {
  if (!isPlainLocalPath(path))
    return "not a full local path of a file";
  const ScopedHandle file(openItself(path, FILE_READ_ATTRIBUTES,
                                     FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE));
  BY_HANDLE_FILE_INFORMATION info;
  if (!file.valid() || !GetFileInformationByHandle(file.get(), &info))
    return "no file there";
  if ((info.dwFileAttributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT)) != 0 ||
      GetFileType(file.get()) != FILE_TYPE_DISK)
    return "not a regular file";
  return isProgramFile(file.get()) ? "a file of the program's own" : nullptr;
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

// What the checked deletion of a noted download did.
enum class Deletion { kDeleted, kGone, kRefused, kFailed };

// Deletes the noted file `entry.path` only while it is what its run downloaded: a plain local path
// with no link on the way, in the folder noted (held meanwhile, so that it cannot be swapped), a
// regular file with no other link that is not the program's own, deleted through its handle. A
// refusal is logged with its reason; on kFailed, `error` says why.
Deletion deleteChecked(const Entry& entry, DWORD& error) {
  const std::string& path = entry.path;
  const auto refuse = [&path](const char* reason) {
    BasicLogger::getInstance().write(kLogUpdater, LOG_ALWAYS,
                                     "DownloadRecord: not deleting '" + path + "': " + reason);
    return Deletion::kRefused;
  };
  if (!isPlainLocalPath(path))
    return refuse("not a full path of a file");
  if (hasLinkOnTheWay(path))
    return refuse("a link in its path");
  // Held without sharing its deletion, the folder cannot be moved or replaced meanwhile.
  const ScopedHandle folder(
      openItself(folderOf(path), FILE_READ_ATTRIBUTES, FILE_SHARE_READ | FILE_SHARE_WRITE));
  if (!folder.valid() && GetFileAttributesA(path.c_str()) == INVALID_FILE_ATTRIBUTES)
    return Deletion::kGone;  // With its folder.
  if (entry.identity.empty() || identityOf(folder.get()) != entry.identity)
    return refuse("not in the folder its run downloaded into");
  ScopedHandle file(openItself(path, DELETE | FILE_READ_ATTRIBUTES,
                               FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE));
  error = GetLastError();
  if (!file.valid() && (error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND))
    return Deletion::kGone;
  BY_HANDLE_FILE_INFORMATION info;
  if (file.valid() && GetFileInformationByHandle(file.get(), &info)) {
    if ((info.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0)
      return refuse("a folder");
    if ((info.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0)
      return refuse("a link");
    if (info.nNumberOfLinks != 1)
      return refuse("a file with other links");
    if (GetFileType(file.get()) != FILE_TYPE_DISK || isProgramFile(file.get()))
      return refuse("a file of the program's own");
    if (deleteOpenFile(file, path))
      return Deletion::kDeleted;
  }
  error = GetLastError();
  return Deletion::kFailed;
}

void traceGone(FunctionTrace& trace, const std::string& path) {
  trace.detail([&] { return "'" + path + "' is gone already; it leaves the record"; });
}

// An entry of a note whose run is gone: true when it is done with (deleted, gone already, or
// refused), false when it stays for a later run.
bool deleteNoted(const Entry& entry, FunctionTrace& trace) {
  DWORD error = 0;
  switch (deleteChecked(entry, error)) {
    case Deletion::kDeleted:
      trace.detail([&] { return "Deleted '" + entry.path + "', left behind by a run that ended"; });
      return true;
    case Deletion::kGone:
      traceGone(trace, entry.path);
      return true;
    case Deletion::kRefused:
      return true;
    case Deletion::kFailed:
      break;
  }
  trace.detail([&] {
    return LogText("Could not delete '") + entry.path + "', GetLastError()=" + decimal(error) +
           "; it stays recorded for a later run";
  });
  return false;
}

}  // namespace

DownloadRecord::DownloadRecord() : record_(kRecordValue, kOwner) {}

bool DownloadRecord::add(const std::string& path) {
  if (const char* reason = unfitForTheNote(path)) {
    FunctionTrace trace = FunctionTrace::open(kLogUpdater, "DownloadRecord::add() ");
    trace.detail([&] { return "'" + path + "' is not recorded: " + reason; });
    return true;  // Nothing to note, and nothing that keeps the run from going on.
  }
  const ScopedHandle folder(openItself(folderOf(path), FILE_READ_ATTRIBUTES,
                                       FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE));
  return note(identityOf(folder.get()), path);
}

bool DownloadRecord::addBeforeMaking(const std::string& path) {
  const ScopedHandle folder(openItself(folderOf(path), FILE_READ_ATTRIBUTES,
                                       FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE));
  const std::string identity = identityOf(folder.get());
  return isPlainLocalPath(path) && !identity.empty() && note(identity, path);
}

bool DownloadRecord::note(const std::string& identity, const std::string& path) {
  entries_.push_back(Entry{identity, 0, path});
  if (!record_.hold())
    return false;
  writeEntries();
  return true;
}

void DownloadRecord::remove(const std::string& path) {
  entries_.remove_if([&path](const Entry& entry) { return entry.path == path; });
  if (entries_.empty())
    record_.release();
  else if (record_.isHeld())
    writeEntries();
}

bool DownloadRecord::deleteFile(const std::string& path) {
  // A noted download passes the checks of a dead run's: the folder the library downloaded into may
  // be one that users can change, and this run may be SYSTEM's.
  const auto noted = std::find_if(entries_.begin(), entries_.end(),
                                  [&path](const Entry& entry) { return entry.path == path; });
  if (noted != entries_.end()) {
    DWORD error = 0;
    const Deletion deletion = deleteChecked(*noted, error);
    if (deletion == Deletion::kGone) {
      FunctionTrace trace = FunctionTrace::open(kLogUpdater, "DownloadRecord::deleteFile() ");
      traceGone(trace, path);
    }
    if (deletion != Deletion::kFailed)
      remove(path);
    return deletion == Deletion::kDeleted;
  }
  // Not noted: the library named no file that could be noted when it had downloaded it. Whatever is
  // there now passes the same checks, against its folder as it is now; nothing there, nothing said.
  if (path.empty() || GetFileAttributesA(path.c_str()) == INVALID_FILE_ATTRIBUTES)
    return false;
  if (isProgramFile(path)) {
    BasicLogger::getInstance().write(
        kLogUpdater, LOG_ALWAYS,
        "DownloadRecord: not deleting '" + path + "': a file of the program's own");
    return false;
  }
  const ScopedHandle folder(openItself(folderOf(path), FILE_READ_ATTRIBUTES,
                                       FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE));
  DWORD error = 0;
  return deleteChecked(Entry{identityOf(folder.get()), 0, path}, error) == Deletion::kDeleted;
}

void DownloadRecord::writeEntries() {
  std::list<std::string> texts;
  for (const Entry& entry : entries_)
    texts.push_back(entryText(entry));
  record_.write(texts);
}

void DownloadRecord::cleanUp(const std::string& softwarePath,
                             const std::string& dataPath,
                             FunctionTrace& trace) {
  unsigned long keep = 0;
  Settings().getOrCreateDwordValue(SettingsKeys::kUpdaterSection,
                                   SettingsKeys::kDoNotDeleteDownloadedFiles, keep, 0, 0);
  if (keep != 0) {
    trace.detail(
        [&] { return "NOT deleting files : '" + softwarePath + "' and '" + dataPath + "'"; });
    remove(softwarePath);
    remove(dataPath);
    return;
  }
  if (!softwarePath.empty()) {
    trace.detail([&] { return "Attempting to deleting file : " + softwarePath; });
    deleteFile(softwarePath);
  }
  // The data path is deleted without an emptiness check and without a word on the result;
  // deliberate.
  trace.detail([&] { return "Attempting to deleting file : " + dataPath; });
  deleteFile(dataPath);
}

bool DownloadRecord::recoverAbandonedDownloads() {
  // The common case, nothing recorded, reads one value and writes nothing, not even a log line.
  RunRecord record(kRecordValue, kOwner);
  std::list<std::string> untrusted;
  const std::list<std::string> entries = record.read(&untrusted);
  if ((entries.empty() && untrusted.empty()) || !record.takeOver())
    return false;  // Nothing to do, or its run is still working and will delete them itself.
  FunctionTrace trace =
      FunctionTrace::open(kLogUpdater, "DownloadRecord::recoverAbandonedDownloads() ");
  for (const std::string& entry : untrusted) {
    BasicLogger::getInstance().write(kLogUpdater, LOG_ALWAYS,
                                     "DownloadRecord: not deleting '" + parseEntry(entry).path +
                                         "': the record's key is writable by users");
  }
  std::list<std::string> kept;
  for (const std::string& text : entries) {
    Entry entry = parseEntry(text);
    if (deleteNoted(entry, trace))
      continue;
    if (++entry.attempts >= kMaxAttempts) {
      BasicLogger::getInstance().write(kLogUpdater, LOG_ALWAYS,
                                       "DownloadRecord: dropping '" + entry.path +
                                           "' from the record: it could not be deleted in " +
                                           std::to_string(kMaxAttempts) + " runs");
      continue;
    }
    kept.push_back(entryText(entry));
  }
  if (kept.empty())
    record.release();
  else
    record.write(kept);
  return trace.returning(kept.empty());
}
