#!/usr/bin/env bash
# A scratch PostgreSQL 15 cluster for the service's tests: initdb as an unprivileged user
# (postgres when run as root), listening on a Unix socket and nowhere else. The cluster itself
# lives in a fresh folder under /tmp that DIR/cluster names: a checkout under a private home
# folder is out of the postgres user's reach, and a deep one makes too long a socket path.
#   start DIR       (re)creates the cluster and writes DIR/env, which exports
#                   HINTWICK_TEST_POSTGRES_URL, or HINTWICK_TEST_POSTGRES_SKIP with the reason
#                   when PostgreSQL is not installed here
#   stop DIR        ends the postmaster by its process id (also after failed tests)
#   run DIR CMD...  runs CMD with DIR/env's variables
set -u
action=${1:-}
dir=${2:-}
bin=${HINTWICK_POSTGRES_BIN:-/usr/lib/postgresql/15/bin}
env_file=$dir/env
cluster=$(cat "$dir/cluster" 2>/dev/null)
data=$cluster/data

as_owner() {
  if [ "$(id -u)" -eq 0 ]; then runuser -u postgres -- "$@"; else "$@"; fi
}

skip() {
  echo "export HINTWICK_TEST_POSTGRES_SKIP='$1'" >"$env_file"
  echo "pg-cluster: $1; the PostgreSQL tests will report themselves skipped"
  exit 0
}

# The postmaster's id, only while that process still is the postmaster of this data folder.
postmaster_pid() {
  local pid
  [ -n "$cluster" ] && [ -f "$data/postmaster.pid" ] || return 1
  pid=$(head -n 1 "$data/postmaster.pid")
  [ -n "$pid" ] && tr '\0' ' ' <"/proc/$pid/cmdline" 2>/dev/null | grep -qF -- "$data" || return 1
  echo "$pid"
}

stop_cluster() {
  local pid
  pid=$(postmaster_pid) || return 0
  kill -INT "$pid"  # fast shutdown: sessions a failed test left open are ended, not awaited
  for _ in $(seq 100); do kill -0 "$pid" 2>/dev/null || return 0; sleep 0.1; done
  echo "pg-cluster: postmaster $pid ignored a fast shutdown; quitting it"
  kill -QUIT "$pid"
}

remove_cluster() {
  stop_cluster
  case "$cluster" in /tmp/hintwick-pg.*) rm -rf "$cluster" ;; esac
  rm -f "$dir/cluster"
}

start_cluster() {
  remove_cluster
  rm -rf "$dir"
  mkdir -p "$dir"
  [ -x "$bin/initdb" ] || skip "PostgreSQL 15 is not installed ($bin/initdb is missing)"
  if [ "$(id -u)" -eq 0 ]; then
    id postgres >/dev/null 2>&1 || skip "there is no postgres user to run the cluster as"
  fi
  cluster=$(mktemp -d /tmp/hintwick-pg.XXXXXX) && data=$cluster/data
  echo "$cluster" >"$dir/cluster"
  [ "$(id -u)" -eq 0 ] && chown postgres "$cluster"
  as_owner "$bin/initdb" -D "$data" -U postgres -A trust -E UTF8 --no-locale --no-sync \
    >"$dir/initdb.log" 2>&1 || { echo "pg-cluster: initdb failed"; cat "$dir/initdb.log"; exit 1; }
  # No TCP at all; durability is worth nothing to a cluster thrown away after the tests.
  cat >>"$data/postgresql.conf" <<CONF
listen_addresses = ''
unix_socket_directories = '$cluster'
fsync = off
synchronous_commit = off
full_page_writes = off
CONF
  as_owner "$bin/pg_ctl" -D "$data" -l "$cluster/server.log" -w -t 60 start >/dev/null ||
    { echo "pg-cluster: the server did not start"; cat "$cluster/server.log"; exit 1; }
  echo "export HINTWICK_TEST_POSTGRES_URL='postgresql:///postgres?host=$cluster&user=postgres'" \
    >"$env_file"
  echo "pg-cluster: postmaster $(postmaster_pid) on $cluster"
}

case "$action" in
  start) start_cluster ;;
  stop) remove_cluster ;;
  run) shift 2; . "$env_file" && exec "$@" ;;
  *) echo "usage: pg-cluster.sh start|stop|run DIR [CMD...]" >&2; exit 2 ;;
esac
