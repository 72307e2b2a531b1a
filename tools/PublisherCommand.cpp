#include "PublisherCommand.h"

#include <windows.h>

#include <cstdio>

#include "settings/TrustedPublishers.h"
#include "system/FileSignature.h"
#include "system/UniqueHandle.h"
#include "updater/ProcessScope.h"

namespace {

const char kUsage[] =
    "Usage: cvupsettings /publisher FILE\n"
    "Prints who signed FILE: the subject, the issuer, the SHA-256 of the signer's public key (the\n"
    "value TrustedPublishers lists), whether its chain is trusted here and whether this machine\n"
    "lists it. Exits 0 when FILE is signed, 1 when it is not (or cannot be read).\n";

int show(const std::string& path) {
  const ScopedHandle file(CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                      OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!file.valid()) {
    fprintf(stderr, "Cannot read '%s': error %lu\n", path.c_str(), GetLastError());
    return 1;
  }
  const FileSignature signature = verifyFileSignature(file.get(), path);
  const bool signedAsItIs = !signature.keyHash.empty() &&
                            signature.status != FileSignature::Status::kUnsigned &&
                            signature.status != FileSignature::Status::kBadDigest;
  printf("File: %s\n", path.c_str());
  printf("Signed: %s\n", signedAsItIs ? "yes" : ("no: " + signature.reason).c_str());
  if (!signature.keyHash.empty()) {
    printf("Subject: %s\n", signature.subject.c_str());
    printf("Issuer: %s\n", signature.issuer.c_str());
    printf("Key SHA-256: %s\n", signature.keyHash.c_str());
    printf("Chain: %s\n", signature.status == FileSignature::Status::kTrusted
                              ? "trusted here"
                              : ("not trusted here: " + signature.reason).c_str());
    printf("Trusted publisher on this machine: %s\n",
           TrustedPublishers().contains(signature.keyHash) ? "yes" : "no");
  }
  if (!signedAsItIs)
    fprintf(stderr, "'%s' is not signed as it is: %s\n", path.c_str(), signature.reason.c_str());
  return signedAsItIs ? 0 : 1;
}

}  // namespace

bool PublisherCommand::isAskedFor(const std::vector<std::string>& arguments) {
  return !arguments.empty() && arguments[0] == "/publisher";
}

int PublisherCommand::run(const std::vector<std::string>& arguments) {
  if (arguments.size() != 2 || arguments[1].empty()) {
    fputs(kUsage, stderr);
    return 2;
  }
  const ProcessScope process;
  if (!process.started()) {
    fprintf(stderr, "Could not start: out of memory while setting up the log\n");
    return 3;
  }
  const int result = show(arguments[1]);
  fflush(stdout);
  return result;
}
