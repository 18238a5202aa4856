#!/usr/bin/env bash
# Many chat streams at once against the service on SQLite, each answered through a scripted
# model that hintwick-stream-bench serves itself on loopback and that starts every answer
# after the same fixed delay: the delay the service adds before each stream's first event
# (p50, p99), the failed streams, the server's resident memory idle and with every stream
# open, its CPU time, and its memory after 100,000 answers against after 1,000.
# The bench starts a fresh server for each figure with the flags below plus --model-url.
# Bounded in time; 127.0.0.1 only. Build the `server` preset first.
# Usage: server/bench/streams.sh [SERVER_EXE] [BENCH_FLAGS...]   (run from the repository root)
#   e.g. server/bench/streams.sh build/server/server/src/hintwick-server --counts 1000 --answers 0
# `hintwick-stream-bench` without arguments lists the bench's flags.
set -eu
exe=build/server/server/src/hintwick-server
if [ $# -gt 0 ] && [ "${1#--}" = "$1" ]; then exe=$1; shift; fi
bench=$(dirname "$exe")/../bench/hintwick-stream-bench
work=$(mktemp -d /tmp/hintwick-streams.XXXXXX)
trap 'rm -rf "$work"' EXIT

# Two descriptors a stream on each side (the player's connection and the model's), 10,000
# streams at a time.
ulimit -n 65536 2>/dev/null || ulimit -n "$(ulimit -Hn)"
[ "$(ulimit -n)" -ge 24000 ] || echo "warning: only $(ulimit -n) descriptors; 10,000 streams need about 21,000"

"$exe" --data "$work/data" pack import server/packs/hintwick_test_game.toml >/dev/null
if ! "$bench" --logs "$work" "$@" -- "$exe" --data "$work/data" --listen 127.0.0.1:0 \
    --answer-concurrency 20000 --rate-address 1000000 --rate-account 1000000 \
    --rate-refresh 1000000; then
  for log in "$work"/*.log; do echo "== $log"; grep -v 'POST /v1/chat' "$log" | tail -n 20; done
  exit 1
fi
