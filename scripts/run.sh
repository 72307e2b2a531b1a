#!/usr/bin/env bash
# The main job: builds the program and its release MSI and ZIP, then installs the MSI into a
# scratch Wine prefix with msiexec and does one complete update run against a local update service,
# with a summary (demo/demo.py). Extra arguments go to demo.py (--port N).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/build.sh >/dev/null
cmake --build build --target package >/dev/null
exec python3 demo/demo.py --build-dir build "$@"
