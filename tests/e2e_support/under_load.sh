#!/usr/bin/env bash
# The end-to-end suites, RUNS times each in a row, while HOGS busy loops
# compete for the CPUs: their timing must not depend on the machine's load.
# usage: tests/e2e_support/under_load.sh [RUNS=20] [HOGS=2]   (after make build)
set -euo pipefail
cd "$(dirname "$0")/../.."
runs=${1:-20}
hogs=${2:-2}
pids=()
stop_hogs() { [ ${#pids[@]} -eq 0 ] || kill "${pids[@]}" 2>/dev/null || true; }
trap stop_hogs EXIT
for _ in $(seq "$hogs"); do
    bash -c 'while :; do :; done' &
    pids+=($!)
done
ctest --test-dir build -L e2e --repeat until-fail:"$runs" --output-on-failure --timeout 600
