#!/usr/bin/env bash
# Starts hintwick-server on SQLite in build/service-data with nothing to configure, building it
# first (an up-to-date build takes a moment). It prints the base URL to put in the program's
# config.json. Arguments go to the server (--listen 0.0.0.0:8080, --help, or an operator
# command such as: game add mygame "My Game"). Ctrl+C or SIGTERM stops it.
set -eu
cd "$(dirname "$0")/.."
if [ ! -f build/server/CMakeCache.txt ]; then
  scripts/deps.sh build
  cmake --preset server >/dev/null
fi
cmake --build --preset server --target hintwick-server -j 2 >/dev/null
exec build/server/server/src/hintwick-server --data "${HINTWICK_DATA:-build/service-data}" "$@"
