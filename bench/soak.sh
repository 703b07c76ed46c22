#!/bin/sh
# The soak: 200 downloads through the engine from 127.0.0.1 (half of them
# with the sound extracted), then 200 reports added to the sniffed list and
# removed. Prints memory and open files after the 20th and the 200th step
# of each half and the children left; not part of the test suite.
#
# Usage: bench/soak.sh BUILD_DIR
set -eu
[ $# -eq 1 ] || { echo "usage: bench/soak.sh BUILD_DIR" >&2; exit 2; }
build=$(cd "$1" && pwd)
root=$(cd "$(dirname "$0")/.." && pwd)
cmake -S "$root/bench" -B "$build/bench" >/dev/null
cmake --build "$build/bench" --target bench_soak -- -j2 >/dev/null
media=$build/bench/soak-media
[ -f "$media/clip.mp4" ] || sh "$root/tests/fixtures/make_media.sh" "$media"
QT_QPA_PLATFORM=offscreen "$build/bench/app/bench_soak" --media "$media"
