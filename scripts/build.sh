#!/usr/bin/env bash
# Builds dist/Hintwick.exe on a Debian 12 machine, installing the toolchain if needed.
set -eu
cd "$(dirname "$0")/.."
scripts/deps.sh build
cmake --preset windows >/dev/null
cmake --build --preset windows --target Hintwick -j "$(nproc)"
mkdir -p dist
cp build/windows/src/app/Hintwick.exe dist/Hintwick.exe
echo "built dist/Hintwick.exe"
