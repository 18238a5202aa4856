#!/usr/bin/env bash
# The real service for the Windows tests that talk to it: hintwick-server on SQLite in a scratch
# folder, on a free loopback port, with the stand-in game's knowledge pack imported and access
# tokens that expire after two seconds, so a test sees a refresh without waiting an hour.
# "start" writes DIR/env with HINTWICK_SERVICE_URL (or HINTWICK_SERVICE_SKIP with the reason);
# "stop" ends the server by process id.
# Usage: service.sh start DIR SERVER_EXE | stop DIR
set -u
action=$1
dir=$2

stop_service() {
  [ -f "$dir/server.pid" ] && kill "$(cat "$dir/server.pid")" 2>/dev/null
  rm -f "$dir/server.pid"
  return 0
}

start_service() {
  local exe=$1
  stop_service
  rm -rf "$dir"
  mkdir -p "$dir"
  if [ ! -x "$exe" ]; then
    echo "export HINTWICK_SERVICE_SKIP='no hintwick-server at $exe (build the server preset first)'" >"$dir/env"
    echo "service: $exe missing; the tests against the service will be skipped"
    return 0
  fi
  local flags=(--data "$dir/data" --access-ttl 2)
  local pack
  pack=$(dirname "$0")/../../server/packs/hintwick_test_game.toml
  "$exe" "${flags[@]}" pack import "$pack" \
    >"$dir/admin.log" 2>&1 || { echo "service: importing the pack failed"; cat "$dir/admin.log"; return 1; }
  "$exe" "${flags[@]}" --listen 127.0.0.1:0 >"$dir/server.log" 2>&1 &
  echo $! >"$dir/server.pid"
  local url=""
  for _ in $(seq 1 100); do
    url=$(grep -oE 'listening on http://[0-9.]+:[0-9]+' "$dir/server.log" | head -n 1 | cut -d' ' -f3)
    [ -n "$url" ] && break
    kill -0 "$(cat "$dir/server.pid")" 2>/dev/null || break
    sleep 0.1
  done
  if [ -z "$url" ]; then
    echo "service: did not start"; cat "$dir/server.log"; stop_service; return 1
  fi
  echo "export HINTWICK_SERVICE_URL='$url'" >"$dir/env"
  echo "service: $url, pid $(cat "$dir/server.pid")"
}

case "$action" in
  start) start_service "$3" ;;
  stop) stop_service ;;
  *) echo "usage: service.sh start DIR SERVER_EXE | stop DIR" >&2; exit 2 ;;
esac
