#!/usr/bin/env bash
# Builds the benchmarks (bench/) and runs them under Wine in a scratch prefix inside the build
# tree (<build>/bench-prefix), then ends that prefix's processes: the log writer's (ratios against
# the system-call floor), the printers' quiet wait (counts and times, with the stand-in spooler)
# and the trusted publishers' check of a 100 MB package against sha256sum of it
# (bench/package-verify.sh), each measured in its own run. `scripts/bench.sh log`, `printers` or
# `packages` runs one of them. BUILD_DIR chooses the build tree (default: build, configured with
# the "mingw" preset when missing).
set -euo pipefail
cd "$(dirname "$0")/.."
which=${1:-all}
case $which in all|log|printers|packages) ;; *) echo "usage: $0 [all|log|printers|packages]" >&2; exit 2 ;; esac
scripts/install-deps.sh
build=$(realpath -m "${BUILD_DIR:-build}")
if [ ! -f "$build/build.ninja" ]; then
  cmake -S . -B "$build" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/mingw-w64-x86_64.cmake" \
    -DCMAKE_BUILD_TYPE=Release >/dev/null
fi
cmake --build "$build" --target cvbench cvprnbench cvpkgbench
export WINEPREFIX="$build/bench-prefix" WINEDEBUG=-all
cmake/make-prefix.sh "$WINEPREFIX"
status=0
if [ "$which" = all ] || [ "$which" = log ]; then
  timeout 900 wine "$build/bin/cvbench.exe" || status=$?
fi
if { [ "$which" = all ] || [ "$which" = printers ]; } && [ $status -eq 0 ]; then
  WINEDLLOVERRIDES=winspool.drv=n timeout 900 wine "$build/bin/cvprnbench.exe" || status=$?
fi
if { [ "$which" = all ] || [ "$which" = packages ]; } && [ $status -eq 0 ]; then
  timeout 900 bench/package-verify.sh "$build" || status=$?
fi
wineserver -k 2>/dev/null || true
exit $status
