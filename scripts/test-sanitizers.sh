#!/usr/bin/env bash
# Builds Vidorra 2 with AddressSanitizer and UndefinedBehaviorSanitizer in a
# second build folder (build-asan) and runs the whole test suite there: a
# memory error, a leak or undefined behaviour fails the run. Leaks that are
# Qt's or the system's own one-time allocations are listed in tests/lsan.supp.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
sanitizers="-fsanitize=address,undefined"
cmake -S . -B build-asan -DCMAKE_BUILD_TYPE=Debug \
    -DCMAKE_CXX_FLAGS="$sanitizers -fno-omit-frame-pointer -fno-sanitize-recover=undefined" \
    -DCMAKE_EXE_LINKER_FLAGS="$sanitizers"
cmake --build build-asan -j"$(nproc)"
export ASAN_OPTIONS=halt_on_error=1:detect_leaks=1
# The slow unwinder sees through Qt's frames, so the suppressions can name
# the exact place of a library's allocation.
export LSAN_OPTIONS=suppressions=$PWD/tests/lsan.supp:fast_unwind_on_malloc=0:print_suppressions=0
export UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1
cd build-asan
xvfb-run -a -s "-screen 0 1440x900x24" ctest --output-on-failure -j2 --timeout 900
