#!/usr/bin/env bash
# Runs one preset's whole suite again and again, stopping at the first failure: the way to show
# that a suite passes every time, not just once. Each run's log is kept; a failed one is printed.
# Usage: scripts/test-repeat.sh [RUNS] [PRESET]   (defaults: 20 windows; build the preset first)
set -u
cd "$(dirname "$0")/.."
runs=${1:-20}
preset=${2:-windows}
logs=build/test-logs/repeat-$preset
mkdir -p "$logs"
for run in $(seq 1 "$runs"); do
  if ! ctest --preset "$preset" >"$logs/run-$run.txt" 2>&1; then
    grep -E 'Failure|FAILED|\*\*\*' "$logs/run-$run.txt" | head -n 40
    echo "run $run of $runs failed (log: $logs/run-$run.txt); $((run - 1)) passed in a row before it"
    exit 1
  fi
  echo "run $run of $runs passed ($(grep -oE 'Total Test time \(real\) = +[0-9.]+ sec' "$logs/run-$run.txt" | grep -oE '[0-9.]+ sec'))"
done
echo "$runs passed in a row"
