#!/usr/bin/env bash
# The test command: installs what is missing, builds, and runs every test under Wine in the
# build tree's own prefix (build/wineprefix). Extra arguments go to ctest.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/build.sh
export WINEPREFIX="$PWD/build/wineprefix"
status=0
ctest --test-dir build --output-on-failure "$@" || status=$?
# End whatever the tests left running in their own prefix, and nothing else.
wineserver -k 2>/dev/null || true
exit $status
