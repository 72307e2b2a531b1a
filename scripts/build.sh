#!/usr/bin/env bash
# Configures and builds everything (program, tools, stand-ins, tests) in ./build.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
if [ ! -f build/build.ninja ]; then
  cmake --preset mingw >/dev/null
fi
cmake --build build
