#!/usr/bin/env bash
# The main job: builds the program and runs one update run under Wine in a scratch prefix.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/build.sh
export WINEPREFIX="$PWD/build/demo-prefix" WINEDEBUG=-all
cmake/make-prefix.sh "$WINEPREFIX"
set +e
timeout 120 wine build/bin/cvupdater.exe
code=$?
set -e
wineserver -k 2>/dev/null || true
echo "cvupdater.exe exited with code $code"
exit $code
