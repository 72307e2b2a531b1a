#include "webupdate/LibraryCheck.h"

#include <aclapi.h>

#include <vector>

#include "settings/TrustedPublishers.h"
#include "system/FileSignature.h"
#include "system/WriteAccess.h"

LibraryCheck::LibraryCheck(const std::string& directory,
                           const std::string& path,
                           bool elevated,
                           const TrustedPublishers& publishers) {
  if (!elevated && publishers.empty())
    return;
  file_.reset(CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                          FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!file_.valid()) {
    const DWORD error = GetLastError();
    if (error != ERROR_FILE_NOT_FOUND && error != ERROR_PATH_NOT_FOUND)
      refusal_ = "it cannot be held for the check: error " + std::to_string(error);
    return;  // A missing library is LoadLibrary's to report.
  }
  if (elevated)
    refusal_ = folderAndFileRefusal(directory);
  if (refusal_.empty() && !publishers.empty())
    checkSignature(path, publishers);
}

std::string LibraryCheck::whoElseCanChange(PSECURITY_DESCRIPTOR descriptor, PSID account) {
  return WriteAccess::whoElseCanWrite(descriptor, account, WriteAccess::kFileRights);
}

std::string LibraryCheck::folderAndFileRefusal(const std::string& directory) {
  // Held without sharing its deletion, the folder cannot be renamed or replaced meanwhile.
  folder_.reset(CreateFileA(directory.c_str(), FILE_READ_ATTRIBUTES | READ_CONTROL,
                            FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                            FILE_FLAG_BACKUP_SEMANTICS, nullptr));
  if (!folder_.valid())
    return "its folder cannot be held for the check: error " + std::to_string(GetLastError());
  const std::string folderWriter = WriteAccess::whoElseCanChangeFile(folder_.get());
  if (!folderWriter.empty())
    return "its folder can be changed by " + folderWriter;
  const std::string fileWriter = WriteAccess::whoElseCanChangeFile(file_.get());
  if (!fileWriter.empty())
    return "it can be changed by " + fileWriter;
  return std::string();
}

void LibraryCheck::checkSignature(const std::string& path, const TrustedPublishers& publishers) {
  const FileSignature signature = verifyFileSignature(file_.get(), path);
  if (signature.status == FileSignature::Status::kUnsigned) {
    signer_ = "not signed";  // No embedded signature: its folder is what vouches for it.
  } else if (signature.status != FileSignature::Status::kTrusted) {
    refusal_ = signature.reason + "; signer " + signerText(signature);
  } else if (!publishers.contains(signature.keyHash)) {
    refusal_ = "its signer is not a trusted publisher; signer " + signerText(signature);
  } else {
    signer_ = signerText(signature);
  }
}
