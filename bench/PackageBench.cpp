// Benchmark of the trusted publishers' check of a package (PackageTrust::admit(): the copy into
// the verified folder, its note, the hold, WinVerifyTrust's digest and the signer's chain), one
// round per process, so that bench/package-verify.sh can alternate it with `sha256sum` of the same
// file and compare their medians:
//
//   cvpkgbench FILE HASH     admits FILE, a package signed by the key whose SHA-256 is HASH (set
//                            as this program's policy list), and prints "admit_ms=<ms>"; the copy
//                            is deleted again and FILE kept
#include <windows.h>

#include <cstdio>
#include <string>

#include "settings/Policy.h"
#include "system/Localize.h"
#include "system/UniqueHandle.h"
#include "updater/DownloadRecord.h"
#include "updater/PackageTrust.h"
#include "updater/ProcessScope.h"

namespace {

double now() {
  LARGE_INTEGER frequency, counter;
  QueryPerformanceFrequency(&frequency);
  QueryPerformanceCounter(&counter);
  return static_cast<double>(counter.QuadPart) / static_cast<double>(frequency.QuadPart);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    fprintf(stderr, "usage: cvpkgbench FILE HASH\n");
    return 2;
  }
  const ProcessScope process;
  if (!process.started())
    return 3;
  const std::string policy = Policy().keyPath() + "Settings\\Updater";
  RegSetKeyValueA(HKEY_LOCAL_MACHINE, policy.c_str(), "TrustedPublishers", REG_SZ, argv[2],
                  static_cast<DWORD>(strlen(argv[2]) + 1));
  DownloadRecord downloads;
  std::string path = argv[1];
  downloads.add(path);
  double seconds = 0;
  std::string refusal;
  {
    PackageTrust trust(downloads);
    const double start = now();
    refusal = trust.admit(false, path);
    seconds = now() - start;
    trust.release();
  }
  if (!refusal.empty()) {
    fprintf(stderr, "cvpkgbench: refused: %s\n", refusal.c_str());
    return 1;
  }
  downloads.deleteFile(path);  // The copy.
  downloads.remove(argv[1]);
  printf("admit_ms=%.1f\n", seconds * 1000);
  return 0;
}
