#!/usr/bin/env bash
# Runs every test: the Windows build under Wine, the portable code natively under
# AddressSanitizer and UBSan, and the fuzz targets for a bounded time.
set -u
cd "$(dirname "$0")/.."
scripts/deps.sh test || exit 1
jobs=$(nproc)
logs=build/test-logs
mkdir -p "$logs"

status=0
for preset in windows native; do
  cmake --preset "$preset" >/dev/null &&
    cmake --build --preset "$preset" -j "$jobs" || { echo "build failed: $preset"; exit 1; }
done
for preset in windows native; do
  ctest --preset "$preset" 2>&1 | tee "$logs/$preset.txt"
  [ "${PIPESTATUS[0]}" -eq 0 ] || status=1
done

# One closing line for both runs.
passed=0; failed=0
for preset in windows native; do
  line=$(grep -E '[0-9]+% tests passed, [0-9]+ tests? failed out of [0-9]+' "$logs/$preset.txt" | tail -n 1)
  total=$(sed -E 's/.* out of ([0-9]+).*/\1/' <<<"$line")
  bad=$(sed -E 's/.* ([0-9]+) tests? failed.*/\1/' <<<"$line")
  passed=$((passed + ${total:-0} - ${bad:-0})); failed=$((failed + ${bad:-0}))
done
echo
echo "$passed passed, $failed failed"
exit $status
