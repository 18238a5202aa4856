#!/usr/bin/env bash
# The service under load on loopback, with wrk on the same cores: GET /v1/memory over 64
# kept-alive connections (requests/s, p50 and p99), sign-ins/s (which Argon2id bounds on
# purpose) and the server's resident memory at idle and under load. Once on SQLite, once on a
# scratch PostgreSQL cluster. Bounded in time; 127.0.0.1 only.
# Usage: server/bench/load.sh [SERVER_EXE] [SECONDS]   (run from the repository root)
set -eu
exe=${1:-build/server/server/src/hintwick-server}
seconds=${2:-10}
work=$(mktemp -d /tmp/hintwick-load.XXXXXX)
chmod 755 "$work"
server_pid=""
cleanup() {
  [ -n "$server_pid" ] && kill "$server_pid" 2>/dev/null && wait "$server_pid" 2>/dev/null
  scripts/pg-cluster.sh stop "$work/pg" >/dev/null 2>&1 || true
  rm -rf "$work"
}
trap cleanup EXIT

rss_mib() { awk '/VmRSS/ { printf "%.1f MiB", $2 / 1024 }' "/proc/$1/status"; }
hwm_mib() { awk '/VmHWM/ { printf "%.1f MiB", $2 / 1024 }' "/proc/$1/status"; }

start_server() {  # DATABASE_URL (empty: SQLite)
  local log=$work/server.log
  "$exe" --data "$work/data" --database "$1" --listen 127.0.0.1:0 \
    --rate-address 1000000 --rate-account 1000000 --rate-refresh 1000000 >"$log" 2>/dev/null &
  server_pid=$!
  for _ in $(seq 1 100); do
    url=$(grep -oE 'http://127\.0\.0\.1:[0-9]+' "$log" | head -n 1) && [ -n "$url" ] && return 0
    sleep 0.1
  done
  echo "server did not start"; exit 1
}

signed_in_token() {
  curl -s -X POST "$url/v1/auth/register" -H 'Content-Type: application/json' \
    -d '{"email":"bench@example.org","password":"bench-password-1","device_label":"bench"}' |
    sed -E 's/.*"access_token":"([^"]+)".*/\1/'
}

wrk_line() {  # prints "N req/s, p50 X, p99 Y"
  awk '/Requests\/sec/ { rps = $2 } /^ +50%/ { p50 = $2 } /^ +99%/ { p99 = $2 }
       END { printf "%s req/s, p50 %s, p99 %s", rps, p50, p99 }'
}

measure() {  # NAME DATABASE_URL
  start_server "$2"
  local token
  token=$(signed_in_token)
  curl -s -o /dev/null -X PATCH "$url/v1/memory/hintwick_test_game" -H "Authorization: Bearer $token" \
    -d '{"stage":"The Lighthouse","stage_ordinal":2}'
  sleep 1
  echo "$1: idle RSS $(rss_mib "$server_pid")"
  echo "  GET /v1/memory, 64 connections, ${seconds}s: $(wrk -t1 -c64 -d"${seconds}s" --latency \
    -H "Authorization: Bearer $token" "$url/v1/memory/hintwick_test_game" | wrk_line)"
  echo "  RSS after: $(rss_mib "$server_pid") (peak $(hwm_mib "$server_pid"))"
  cat >"$work/login.lua" <<'LUA'
wrk.method = "POST"
wrk.body = '{"email":"bench@example.org","password":"bench-password-1","device_label":"bench"}'
wrk.headers["Content-Type"] = "application/json"
LUA
  echo "  POST /v1/auth/login, 8 connections, ${seconds}s: $(wrk -t1 -c8 -d"${seconds}s" --latency \
    -s "$work/login.lua" "$url/v1/auth/login" | wrk_line)"
  echo "  RSS after sign-ins: $(rss_mib "$server_pid") (peak $(hwm_mib "$server_pid"))"
  kill "$server_pid"; wait "$server_pid" 2>/dev/null || true; server_pid=""
}

measure "SQLite" ""
scripts/pg-cluster.sh start "$work/pg" >/dev/null
. "$work/pg/env"
if [ -n "${HINTWICK_TEST_POSTGRES_URL:-}" ]; then
  measure "PostgreSQL" "$HINTWICK_TEST_POSTGRES_URL"
else
  echo "PostgreSQL: skipped (${HINTWICK_TEST_POSTGRES_SKIP:-})"
fi
