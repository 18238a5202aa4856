#!/usr/bin/env bash
# Runs every test: the Windows build under Wine, the portable code natively under
# AddressSanitizer and UBSan, the fuzz targets for a bounded time, and the service (server/)
# on SQLite and on a scratch PostgreSQL cluster.
set -u
cd "$(dirname "$0")/.."
scripts/deps.sh test || exit 1
jobs=$(nproc)
logs=build/test-logs
mkdir -p "$logs"

status=0
for preset in windows native server; do
  cmake --preset "$preset" >/dev/null &&
    cmake --build --preset "$preset" -j "$jobs" || { echo "build failed: $preset"; exit 1; }
done
for preset in windows native server; do
  ctest --preset "$preset" 2>&1 | tee "$logs/$preset.txt"
  [ "${PIPESTATUS[0]}" -eq 0 ] || status=1
done

# The shipped exe is linked by clang and lld (for its PDB), not by the compiler the suites use:
# README's build command makes it, and the tests of the exe itself run against it as well.
release=0
if scripts/build.sh >"$logs/release.txt" 2>&1; then
  bench=$PWD/build/release-bench
  tests/wine/bench.sh start "$bench" >>"$logs/release.txt" 2>&1
  for program in app/app_tests setup/installer_tests; do
    HINTWICK_EXE_UNIX=$PWD/dist/Hintwick.exe tests/wine/run-test.sh "$bench" \
      "build/windows/tests/$program.exe" >>"$logs/release.txt" 2>&1 || release=1
  done
  tests/wine/bench.sh stop "$bench"
else
  release=1
fi
echo "shipped exe (dist/Hintwick.exe): $([ $release -eq 0 ] && echo passed || echo FAILED; true)"
[ $release -eq 0 ] || { status=1; tail -n 40 "$logs/release.txt"; }

# One closing line for the three runs.
passed=0; failed=0
for preset in windows native server; do
  line=$(grep -E '[0-9]+% tests passed, [0-9]+ tests? failed out of [0-9]+' "$logs/$preset.txt" | tail -n 1)
  total=$(sed -E 's/.* out of ([0-9]+).*/\1/' <<<"$line")
  bad=$(sed -E 's/.* ([0-9]+) tests? failed.*/\1/' <<<"$line")
  passed=$((passed + ${total:-0} - ${bad:-0})); failed=$((failed + ${bad:-0}))
done
echo
echo "$passed passed, $failed failed (and the shipped exe's run above)"
exit $status
