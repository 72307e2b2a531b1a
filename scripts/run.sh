#!/usr/bin/env bash
# The main job: builds the program, then one complete update run under Wine against a local
# update service, with a summary (demo/demo.py). Extra arguments go to demo.py (--port N).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/build.sh >/dev/null
exec python3 demo/demo.py --build-dir build "$@"
