#!/usr/bin/env bash
# Runs a Windows executable under Wine in the build tree's scratch prefix.
# The prefix lives in $WINE_BUILD_DIR/wineprefix (default: the current directory's build tree),
# is created on first use, and never touches ~/.wine.
set -euo pipefail
build_dir=${WINE_BUILD_DIR:-$(pwd)}
export WINEPREFIX=${WINEPREFIX:-$build_dir/wineprefix}
export WINEDEBUG=${WINEDEBUG:--all}
if [ ! -f "$WINEPREFIX/system.reg" ]; then
  "$(dirname "$0")/make-prefix.sh" "$WINEPREFIX"
fi
exec wine "$@"
