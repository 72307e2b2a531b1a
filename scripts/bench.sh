#!/usr/bin/env bash
# Builds the benchmarks (bench/) and runs them under Wine in a scratch prefix inside the build tree
# (<build>/bench-prefix), then ends that prefix's processes: the log writer's (cvbench), whose
# ratios are against the system-call floor, and the trusted publishers' check of a 100 MB package
# against sha256sum of it (bench/package-verify.sh), each measured in its one run. BUILD_DIR
# chooses the build tree (default: build, configured with the "mingw" preset when missing).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
build=$(realpath -m "${BUILD_DIR:-build}")
if [ ! -f "$build/build.ninja" ]; then
  cmake -S . -B "$build" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/mingw-w64-x86_64.cmake" \
    -DCMAKE_BUILD_TYPE=Release >/dev/null
fi
cmake --build "$build" --target cvbench cvpkgbench
export WINEPREFIX="$build/bench-prefix" WINEDEBUG=-all
cmake/make-prefix.sh "$WINEPREFIX"
status=0
timeout 900 wine "$build/bin/cvbench.exe" || status=$?
# The trusted publishers' check of a 100 MB package against sha256sum (bench/package-verify.sh).
timeout 900 bench/package-verify.sh "$build" || status=$?
wineserver -k 2>/dev/null || true
exit $status
