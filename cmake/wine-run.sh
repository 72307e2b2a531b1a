#!/usr/bin/env bash
# Runs a Windows executable under Wine in the build tree's scratch prefix.
# The prefix lives in $WINE_BUILD_DIR/wineprefix (default: the current directory's build tree),
# is created on first use, and never touches ~/.wine.
#
# A GoogleTest program that dies in the middle of its run (an unhandled page fault, say) can still
# leave wine with exit code 0, so its run has passed only when it got as far as its summary
# ("[  PASSED  ]"); its exit code tells the rest.
set -euo pipefail
build_dir=${WINE_BUILD_DIR:-$(pwd)}
export WINEPREFIX=${WINEPREFIX:-$build_dir/wineprefix}
export WINEDEBUG=${WINEDEBUG:--all}
if [ ! -f "$WINEPREFIX/system.reg" ]; then
  "$(dirname "$0")/make-prefix.sh" "$WINEPREFIX"
fi
output=$(mktemp)
trap 'rm -f "$output"' EXIT
set +e
wine "$@" | tee "$output"
status=${PIPESTATUS[0]}
set -e
if [ "$status" -eq 0 ] && grep -q '^\[==========\] Running' "$output" &&
   ! grep -q '^\[  PASSED  \]' "$output"; then
  echo "wine-run.sh: the test program ended before its summary" >&2
  status=1
fi
exit "$status"
