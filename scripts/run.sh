#!/usr/bin/env bash
# The main job: builds the program and its release ZIP, then installs the ZIP into a scratch Wine
# prefix and does one complete update run against a local update service, with a summary
# (demo/demo.py). Extra arguments go to demo.py (--port N).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/build.sh >/dev/null
cmake --build build --target package >/dev/null
exec python3 demo/demo.py --build-dir build "$@"
