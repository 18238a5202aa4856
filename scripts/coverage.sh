#!/usr/bin/env bash
# Line coverage of src/ by the Wine test run, from an instrumented MinGW build.
set -eu
cd "$(dirname "$0")/.."
scripts/deps.sh test
cmake --preset windows-coverage >/dev/null
cmake --build --preset windows-coverage -j "$(nproc)"
find build/windows-coverage -name '*.gcda' -delete
ctest --preset windows-coverage || true
gcovr --root . --filter 'src/' --gcov-executable x86_64-w64-mingw32-gcov-posix \
  --print-summary --txt build/windows-coverage/coverage.txt build/windows-coverage
echo "report: build/windows-coverage/coverage.txt"
