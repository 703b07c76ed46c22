#!/usr/bin/env bash
# Builds the libFuzzer targets of fuzz/ with clang (AddressSanitizer and
# UndefinedBehaviorSanitizer on) and runs each of them, one after another,
# for SECONDS seconds (default 20). Fails when a target finds a crash,
# undefined behaviour, a broken invariant, a leak, a hang or runs out of
# memory; the input that did it is kept under BUILD/artifacts/TARGET/.
#
#   bash scripts/fuzz.sh [SECONDS] [BUILD]     # BUILD defaults to build-fuzz
#
# Extra libFuzzer options can be given in FUZZ_OPTIONS (for example
# FUZZ_OPTIONS="-runs=10000000" with SECONDS 0 for a fixed number of runs);
# FUZZ_TARGETS="fuzz_feed fuzz_window_rules" runs only those targets.
# The committed seeds (fuzz/corpus/TARGET) are only read; what a run
# learns goes to BUILD/corpus/TARGET and is used again by the next run.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
seconds=${1:-20}
build=${2:-build-fuzz}
[[ "$seconds" =~ ^[0-9]+$ ]] || { echo "usage: $0 [seconds] [build folder]" >&2; exit 2; }

cxx=${FUZZ_CXX:-clang++}
if ! command -v "$cxx" >/dev/null; then
    echo "$cxx not found: the fuzz targets need clang with libFuzzer (apt-get install clang libclang-rt-14-dev)." >&2
    exit 1
fi

cmake -S fuzz -B "$build" -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$build" -j"${FUZZ_JOBS:-$(nproc)}"

# The symbolizer names the program's lines in a report; Debian keeps it
# in the versioned folder when the unversioned "llvm" package is absent.
if ! command -v llvm-symbolizer >/dev/null; then
    for candidate in /usr/lib/llvm-*/bin/llvm-symbolizer; do
        [[ -x "$candidate" ]] && export ASAN_SYMBOLIZER_PATH=$candidate
    done
fi
# Qt is the system's build, not instrumented: nothing of it is suppressed
# so far (see fuzz/README.md); a suppression would go into fuzz/lsan.supp.
# The freed-memory quarantine is kept at 32 MB (256 by default): the rules
# allocate a lot, and the larger one mostly costs page faults.
export ASAN_OPTIONS=${ASAN_OPTIONS:-halt_on_error=1:detect_leaks=1:quarantine_size_mb=32}
export LSAN_OPTIONS=${LSAN_OPTIONS:-suppressions=$root/fuzz/lsan.supp:print_suppressions=0}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-halt_on_error=1:print_stacktrace=1}

mapfile -t targets < "$build/targets.txt"
if [[ -n "${FUZZ_TARGETS:-}" ]]; then
    for wanted in $FUZZ_TARGETS; do
        printf '%s\n' "${targets[@]}" | grep -qx -- "$wanted" || { echo "no fuzz target $wanted" >&2; exit 2; }
    done
    read -r -a targets <<< "$FUZZ_TARGETS"
fi
failed=()
summary=()
for target in "${targets[@]}"; do
    [[ -n "$target" ]] || continue
    work="$build/corpus/$target"
    artifacts="$build/artifacts/$target/"
    log="$build/logs/$target.log"
    mkdir -p "$work" "$artifacts" "$(dirname "$log")"
    seeds=("$root/fuzz/corpus/$target")
    # The downloader's recorded output is the natural seed of its rules.
    [[ "$target" == fuzz_downloader_rules ]] && seeds+=("$root/tests/fixtures/recorded")
    echo "=== $target (${seconds}s)"
    limit=()
    [[ "$seconds" -gt 0 ]] && limit=(-max_total_time="$seconds")
    started=$SECONDS
    set +e
    # shellcheck disable=SC2086 # FUZZ_OPTIONS is a list of options
    "$build/$target" "${limit[@]}" -timeout=10 -print_final_stats=1 -artifact_prefix="$artifacts" \
        ${FUZZ_OPTIONS:-} "$work" "${seeds[@]}" > "$log" 2>&1
    status=$?
    set -e
    runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)
    rate=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log" | tail -1)
    took=$((SECONDS - started))
    if [[ $status -eq 0 ]]; then
        result=ok
    else
        result="FAILED (exit $status)"
        failed+=("$target")
        grep -E '^(==[0-9]+==ERROR|SUMMARY|.*runtime error|.*invariant broken|artifact_prefix|Test unit written)' "$log" |
            head -20 >&2 || true
    fi
    line="$target: ${runs:-?} runs, ${rate:-?} exec/s, ${took:-?} s: $result"
    echo "$line"
    summary+=("$line")
done

echo
printf '%s\n' "${summary[@]}"
if [[ ${#failed[@]} -gt 0 ]]; then
    echo "Fuzzing found problems in: ${failed[*]} (logs in $build/logs, inputs in $build/artifacts)" >&2
    exit 1
fi
echo "No target found a problem."
