#!/usr/bin/env bash
# Runs the README's test command while CPU hogs run beside it (one per core,
# plus one), as on a busy machine: the suite must pass all the same.
#   scripts/test-under-load.sh [runs]    (default 1; stops at the first failure)
set -euo pipefail
cd "$(dirname "$0")/.."
runs=${1:-1}

hogs=()
trap '[[ ${#hogs[@]} -eq 0 ]] || kill "${hogs[@]}" 2>/dev/null || true' EXIT
for _ in $(seq 0 "$(nproc)"); do
    (while :; do :; done) &
    hogs+=($!)
done
echo "${#hogs[@]} CPU hogs on $(nproc) cores"

for run in $(seq 1 "$runs"); do
    start=$SECONDS
    bash scripts/test.sh
    echo "Run $run of $runs under load passed in $((SECONDS - start)) s"
done
