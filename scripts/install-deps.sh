#!/usr/bin/env bash
# Installs the Debian packages the build and the tests need (and any named as arguments), once:
# apt-get update runs only when something is missing. wine gives /usr/bin/wine and wineboot;
# wine64 alone does not. cppcheck and clang-tidy are among the tests; wixl builds the MSI, faketime
# fixes its times, msitools (msibuild, msiinfo) sets and reads its tables, osslsigncode signs the
# release and the tests' packages, openssl makes the tests' throwaway certificates, mount binds
# the tests' root into Wine's bundle (scripts/with-trusted-root.sh); binutils-mingw-w64-x86-64
# has windmc, which compiles the program's event message table.
set -euo pipefail
packages=(g++-mingw-w64-x86-64-posix binutils-mingw-w64-x86-64 mingw-w64-tools wine wine64 googletest
          cmake ninja-build python3 cppcheck clang-tidy wixl faketime msitools osslsigncode openssl
          mount "$@")
missing=()
for package in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed" ||
    missing+=("$package")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "Installing: ${missing[*]}"
  sudo_cmd=()
  [ "$(id -u)" -eq 0 ] || sudo_cmd=(sudo)
  "${sudo_cmd[@]}" apt-get update -qq
  # Another install on the machine holds the lock for a while: wait for it rather than fail.
  DEBIAN_FRONTEND=noninteractive "${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends \
    -o DPkg::Lock::Timeout=600 "${missing[@]}" >/dev/null
fi
