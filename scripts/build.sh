#!/usr/bin/env bash
# Builds dist/Hintwick.exe on a Debian 12 machine, installing the toolchain if needed.
# The exe ships without debug information; dist/symbols/Hintwick.pdb comes from the same link
# and is what turns a player's crash dump into named functions (README: Crash dumps).
# It also builds the service, build/server/server/src/hintwick-server (README: The service).
set -eu
cd "$(dirname "$0")/.."
scripts/deps.sh build
cmake --preset windows-release >/dev/null
cmake --build --preset windows-release --target Hintwick -j "$(nproc)"
mkdir -p dist/symbols
# llvm-strip rather than GNU strip: the latter also flags the image as stripped of debug
# information, and Wine's dbghelp then looks for a .dbg file instead of the PDB.
llvm-strip --strip-debug -o dist/Hintwick.exe build/windows-release/src/app/Hintwick.exe
cp build/windows-release/src/app/Hintwick.pdb dist/symbols/Hintwick.pdb
echo "built dist/Hintwick.exe (symbols in dist/symbols/Hintwick.pdb)"
cmake --preset server >/dev/null
cmake --build --preset server --target hintwick-server -j "$(nproc)"
echo "built build/server/server/src/hintwick-server"
