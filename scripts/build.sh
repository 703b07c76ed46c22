#!/usr/bin/env bash
# Configures and builds Vidorra 2 into build/ (the application folder is
# build/app). Extra arguments go to the CMake configure step.
set -euo pipefail
cd "$(dirname "$0")/.."
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo "$@"
cmake --build build -j"$(nproc)"
