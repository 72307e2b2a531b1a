#!/usr/bin/env bash
# Creates a scratch Wine prefix (without the Mono and Gecko offers) and waits until it is ready.
set -euo pipefail
prefix=$1
mkdir -p "$prefix"
lock="$prefix.lock"
exec 9>"$lock"
flock 9
if [ ! -f "$prefix/system.reg" ]; then
  WINEPREFIX="$prefix" WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml=" wineboot -i >/dev/null 2>&1
  WINEPREFIX="$prefix" wineserver -w
fi
