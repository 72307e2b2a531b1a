#!/usr/bin/env bash
# Builds the log writer benchmark (bench/) and runs it under Wine in a scratch prefix inside the
# build tree (<build>/bench-prefix), then ends that prefix's processes. It prints ratios against
# the system-call floor measured in the same run. BUILD_DIR chooses the build tree (default:
# build, configured with the "mingw" preset when missing).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
build=$(realpath -m "${BUILD_DIR:-build}")
if [ ! -f "$build/build.ninja" ]; then
  cmake -S . -B "$build" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/mingw-w64-x86_64.cmake" \
    -DCMAKE_BUILD_TYPE=Release >/dev/null
fi
cmake --build "$build" --target cvbench
export WINEPREFIX="$build/bench-prefix" WINEDEBUG=-all
cmake/make-prefix.sh "$WINEPREFIX"
status=0
timeout 900 wine "$build/bin/cvbench.exe" || status=$?
wineserver -k 2>/dev/null || true
exit $status
