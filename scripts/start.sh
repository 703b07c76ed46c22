#!/usr/bin/env bash
# Installs what is missing, builds, and starts Vidorra 2.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
bash scripts/build.sh
if [[ -z "${DISPLAY:-}" && -z "${WAYLAND_DISPLAY:-}" ]]; then
    echo "No display found: starting Vidorra 2 on a virtual X server (screenshots: tools/screenshots.sh)." >&2
    exec xvfb-run -a -s "-screen 0 1440x900x24" build/app/vidorra2
fi
exec build/app/vidorra2
