#!/usr/bin/env bash
# Runs one Windows test program on the bench made by bench.sh. Exit 77 tells ctest the test
# was skipped, with the reason printed: a Windows test never passes without having run.
# Usage: run-test.sh BENCH_DIR PROGRAM.exe [ARGS...]
set -u
bench=$1
shift
if [ ! -f "$bench/env" ]; then
  echo "SKIPPED: no Wine bench at $bench (run through ctest, which starts it)"
  exit 77
fi
. "$bench/env"
if [ -n "${HINTWICK_NO_WINE:-}" ]; then
  echo "SKIPPED: $HINTWICK_NO_WINE"
  exit 77
fi
# Tests against the real service read where it listens from the service fixture's file.
if [ -n "${HINTWICK_SERVICE_ENV:-}" ]; then
  [ -f "$HINTWICK_SERVICE_ENV" ] && . "$HINTWICK_SERVICE_ENV"
  if [ -z "${HINTWICK_SERVICE_URL:-}" ]; then
    echo "SKIPPED: ${HINTWICK_SERVICE_SKIP:-the service fixture did not run}"
    exit 77
  fi
fi
# Paths handed to Windows programs: Wine maps the Unix root to drive Z:.
to_windows_path() { printf 'Z:%s' "$(printf '%s' "$1" | tr / '\\')"; }
[ -n "${HINTWICK_EXE_UNIX:-}" ] && export HINTWICK_EXE="$(to_windows_path "$HINTWICK_EXE_UNIX")"
exec wine "$@"
