#!/usr/bin/env bash
# Installs what is missing, builds, and runs the whole test suite. Window
# tests run offscreen; the ones that need a real X server get a virtual one.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
bash scripts/build.sh
cd build
xvfb-run -a -s "-screen 0 1440x900x24" ctest --output-on-failure -j2 --timeout 900
