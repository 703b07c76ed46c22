#!/bin/sh
# Builds and runs the benchmarks: the engine, the window, the feed, the
# screen recorder.
#
# Usage: bench/run-bench.sh BUILD_DIR [RUNS]
#   BUILD_DIR  an existing build folder of the project (its native messaging
#              host serves the feed benchmark); the benchmark is
#              built in BUILD_DIR/bench with the same build type, and its
#              media (about 200 MB, made once) is kept in BUILD_DIR/bench/media.
#   RUNS       paired runs per figure (at least 5, default 7).
# Prints every paired run, then per job the medians and their ratio
# (engine / direct). Exit code 0 when every ratio is at most 1.05.
set -eu

[ $# -ge 1 ] || { echo "usage: bench/run-bench.sh BUILD_DIR [RUNS]" >&2; exit 2; }
build=$(cd "$1" && pwd)
runs=${2:-7}
root=$(cd "$(dirname "$0")/.." && pwd)

type=RelWithDebInfo
if [ -f "$build/CMakeCache.txt" ]; then
    cached=$(sed -n 's/^CMAKE_BUILD_TYPE:[A-Z]*=//p' "$build/CMakeCache.txt")
    [ -n "$cached" ] && type=$cached
fi

cmake -S "$root/bench" -B "$build/bench" -DCMAKE_BUILD_TYPE="$type" >/dev/null
cmake --build "$build/bench" -- -j2 >/dev/null

media=$build/bench/media
if [ ! -f "$media/big.mp4" ] || [ ! -f "$media/watch.html" ]; then
    echo "making media in $media ..."
    sh "$root/tests/fixtures/make_media.sh" "$media" --big 200
fi

status=0
"$build/bench/app/bench_engine" --media "$media" --runs "$runs" || status=1
# The window's figures with the program's own copy of yt-dlp in use: a
# release zipapp made of the installed one.
/usr/bin/python3 "$root/tests/fixtures/make_zipapp.py" "$build/bench/yt-dlp" 2099.01.01
VIDORRA_BENCH_TOOL=$build/bench/yt-dlp QT_QPA_PLATFORM=offscreen \
    "$build/bench/app/bench_window" --media "$media" --runs "$runs" || status=1
QT_QPA_PLATFORM=offscreen "$build/bench/app/bench_feed" --host "$build/app/vidorra2-sniffer-host" || status=1
# The recorder grabs a real screen and records a sound server of its own.
QT_QPA_PLATFORM=xcb xvfb-run -a -s "-screen 0 1440x900x24" "$build/bench/app/bench_recorder" --runs "$runs" || status=1
# The same under Wayland, in the test desktop (sway, PipeWire, the portal).
cmake --build "$build" --target vidorra-session-reaper vidorra-shm-frames -- -j2 >/dev/null
sh "$root/scripts/wayland-session/wayland-run.sh" "$build/bench/app" "$build/bench/app/bench_recorder" \
    "$build/tests/vidorra-session-reaper" "$build/tests/libvidorra-shm-frames.so" --runs "$runs" || status=1
exit $status
