#!/usr/bin/env bash
# Builds the benchmarks (bench/) and runs them under Wine in a scratch prefix inside the build
# tree (<build>/bench-prefix), then ends that prefix's processes: the log writer's (ratios against
# the system-call floor) and the printers' quiet wait (counts and times, with the stand-in
# spooler), each measured in its own run. `scripts/bench.sh log` or `scripts/bench.sh printers`
# runs one of them. BUILD_DIR chooses the build tree (default: build, configured with the "mingw"
# preset when missing).
set -euo pipefail
cd "$(dirname "$0")/.."
which=${1:-all}
case $which in all|log|printers) ;; *) echo "usage: $0 [all|log|printers]" >&2; exit 2 ;; esac
scripts/install-deps.sh
build=$(realpath -m "${BUILD_DIR:-build}")
if [ ! -f "$build/build.ninja" ]; then
  cmake -S . -B "$build" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/mingw-w64-x86_64.cmake" \
    -DCMAKE_BUILD_TYPE=Release >/dev/null
fi
cmake --build "$build" --target cvbench cvprnbench
export WINEPREFIX="$build/bench-prefix" WINEDEBUG=-all
cmake/make-prefix.sh "$WINEPREFIX"
status=0
if [ "$which" != printers ]; then
  timeout 900 wine "$build/bin/cvbench.exe" || status=$?
fi
if [ "$which" != log ] && [ $status -eq 0 ]; then
  WINEDLLOVERRIDES=winspool.drv=n timeout 900 wine "$build/bin/cvprnbench.exe" || status=$?
fi
wineserver -k 2>/dev/null || true
exit $status
