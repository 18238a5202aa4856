#!/usr/bin/env bash
# The Wine bench that the Windows tests run on: a fresh prefix reporting Windows 10, one
# persistent wineserver and an Xvfb display. "stop" ends both by process id.
# Usage: bench.sh start|stop DIR
# HINTWICK_SCREEN sets the display's size (default 1280x800x24), e.g. 1920x1080x24 for the
# drawer bench's full-HD game.
set -u
action=$1
dir=$2
env_file=$dir/env

stop_bench() {
  # Ask the server to end its programs first: killed on its own, it can leave services.exe and
  # friends of the prefix running without it.
  if [ -f "$dir/wineserver.pid" ] && [ -f "$dir/env" ]; then
    (. "$dir/env" && timeout 20 wineserver -k) >/dev/null 2>&1
  fi
  [ -f "$dir/wineserver.pid" ] && kill "$(cat "$dir/wineserver.pid")" 2>/dev/null
  [ -f "$dir/xvfb.pid" ] && kill "$(cat "$dir/xvfb.pid")" 2>/dev/null
  rm -f "$dir/wineserver.pid" "$dir/xvfb.pid"
  return 0
}

start_bench() {
  stop_bench
  rm -rf "$dir"
  mkdir -p "$dir"
  if ! command -v wine >/dev/null || ! command -v Xvfb >/dev/null; then
    echo "HINTWICK_NO_WINE='wine or Xvfb is not installed; the Windows tests cannot run here'" >"$env_file"
    echo "bench: wine or Xvfb missing; Windows tests will be skipped"
    return 0
  fi
  # Xvfb takes the first free display itself and says which: two benches started at once (two
  # build trees, or two developers on one machine) used to pick the same free number, and the
  # one whose server lost ran its tests on the other's display until that one was stopped.
  Xvfb -displayfd 3 -screen 0 "${HINTWICK_SCREEN:-1280x800x24}" -nolisten tcp \
    3>"$dir/display" >"$dir/xvfb.log" 2>&1 &
  echo $! >"$dir/xvfb.pid"
  local display=""
  for _ in $(seq 1 100); do
    display=$(tr -d '\n' <"$dir/display" 2>/dev/null)
    [ -n "$display" ] && break
    sleep 0.1
  done
  [ -n "$display" ] || { echo "bench: Xvfb did not start"; cat "$dir/xvfb.log"; return 1; }

  export WINEPREFIX=$dir/prefix WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml=" DISPLAY=":$display"
  wineserver -p -f >"$dir/wineserver.log" 2>&1 &
  echo $! >"$dir/wineserver.pid"
  wineboot -i >"$dir/wineboot.log" 2>&1 || { echo "bench: wineboot failed"; cat "$dir/wineboot.log"; return 1; }
  # A new prefix reports Windows 6.1; the code paths that read the real version want 10.
  wine reg add 'HKCU\Software\Wine' /v Version /d win10 /f >>"$dir/wineboot.log" 2>&1
  # A test program that crashes gets its stack printed and ends. Wine's crash dialog would
  # instead wait for a click until ctest's time-out, and hold the display meanwhile.
  wine reg add 'HKCU\Software\Wine\WineDbg' /v ShowCrashDialog /t REG_DWORD /d 0 /f \
    >>"$dir/wineboot.log" 2>&1
  cat >"$env_file" <<ENV
export WINEPREFIX='$WINEPREFIX'
export WINEDEBUG='$WINEDEBUG'
export WINEDLLOVERRIDES='$WINEDLLOVERRIDES'
export DISPLAY='$DISPLAY'
ENV
  echo "bench: prefix $WINEPREFIX, display $DISPLAY, wineserver pid $(cat "$dir/wineserver.pid")"
}

case "$action" in
  start) start_bench ;;
  stop) stop_bench ;;
  *) echo "usage: bench.sh start|stop DIR" >&2; exit 2 ;;
esac
