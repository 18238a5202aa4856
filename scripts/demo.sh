#!/usr/bin/env bash
# The whole system on Linux, for a newcomer: the service on a scratch SQLite with the stand-in
# game's knowledge pack, and the program's application object under Wine and Xvfb over the
# stand-in game, with the tests' stand-ins for window capture. A new account asks a question the
# pack holds back, says where it is in the game, and asks again; then a reset starts it over.
# What the drawer showed and the conversation's words are left in build/demo.
set -eu
cd "$(dirname "$0")/.."
scripts/deps.sh test
cmake --preset server >/dev/null
cmake --build --preset server --target hintwick-server -j "$(nproc)"
cmake --preset windows >/dev/null
cmake --build --preset windows --target app_service_tests -j "$(nproc)"
# ctest brings up what the scenario needs and takes it down again: the Wine bench on its own
# X display, and the service on a free loopback port.
rm -f build/windows/tests/app/demo_*
ctest --test-dir build/windows -R '^app_service_tests$' --output-on-failure
mkdir -p build/demo
cp build/windows/tests/app/demo_drawer.png build/demo/drawer.png
cp build/windows/tests/app/demo_transcript.txt build/demo/transcript.txt
echo
cat build/demo/transcript.txt
echo "The drawer after the last answer: build/demo/drawer.png; the words above: build/demo/transcript.txt"
