#!/usr/bin/env bash
# What the desktop costs: Omnira run three ways one after the other on a private X server
# with a tray (Xvfb + trayer) and private XDG folders, refreshing every second:
#   headless      no display at all (the service's cost)
#   tray          the status icon only, window closed (--tray-only)
#   window        the main window open on the Overview's live charts
#   window-closed the same run after the window was opened and closed again
# For each it prints the median resident memory (VmRSS; "own" is its anonymous part, what no
# other process can share), the proportional memory (Pss from smaps_rollup) and the CPU used
# over the run as a share of one core.
#
#   bench/desktop_cost.sh [build folder, default build/release or build/normal] [seconds per run, default 60]
set -euo pipefail

here=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-}
if [ -z "$build" ]; then
  build=$here/build/release
  [ -x "$build/bin/omnira-app" ] || build=$here/build/normal
fi
seconds=${2:-60}
app=$build/bin/omnira-app
[ -x "$app" ] || { echo "No $app: build it first." >&2; exit 1; }
for tool in Xvfb trayer xdotool; do
  command -v "$tool" >/dev/null || { echo "$tool is missing: run scripts/install-deps." >&2; exit 1; }
done

display=
for n in $(seq 150 199); do
  if [ ! -e "/tmp/.X$n-lock" ] && [ ! -e "/tmp/.X11-unix/X$n" ]; then display=$n; break; fi
done
[ -n "$display" ] || { echo "No free X display between :150 and :199." >&2; exit 1; }

work=$(mktemp -d)
pids=()
cleanup() {
  for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
  wait 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT INT TERM

Xvfb ":$display" -screen 0 1440x900x24 -nolisten tcp >/dev/null 2>&1 &
pids+=($!)
export DISPLAY=":$display"
for _ in $(seq 50); do [ -e "/tmp/.X11-unix/X$display" ] && break; sleep 0.1; done
sleep 0.5
trayer --edge top --align right --widthtype request --height 32 --SetDockType true >/dev/null 2>&1 &
pids+=($!)

unset DBUS_SESSION_BUS_ADDRESS WAYLAND_DISPLAY
export XDG_RUNTIME_DIR=$work/runtime XDG_CONFIG_HOME=$work/config XDG_DATA_HOME=$work/data \
  XDG_STATE_HOME=$work/state XDG_CACHE_HOME=$work/cache
mkdir -p "$XDG_RUNTIME_DIR" "$XDG_CONFIG_HOME/Omnira" && chmod 700 "$XDG_RUNTIME_DIR"
echo '{"refreshSeconds": 1}' >"$XDG_CONFIG_HOME/Omnira/settings.json"

hz=$(getconf CLK_TCK)
ticks() { awk '{print $14 + $15}' "/proc/$1/stat"; }
median() { sort -n | awk '{v[NR] = $1} END {print (NR % 2) ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2}'; }

# measure NAME PID: samples memory every second for $seconds and prints one line.
measure() {
  local name=$1 pid=$2 rss=() pss=() anon=() t0 t1 c0 c1
  c0=$(ticks "$pid"); t0=$(date +%s.%N)
  for _ in $(seq "$seconds"); do
    sleep 1
    rss+=("$(awk '/^VmRSS:/ {print $2}' "/proc/$pid/status")")
    pss+=("$(awk '/^Pss:/ {print $2}' "/proc/$pid/smaps_rollup")")
    anon+=("$(awk '/^RssAnon:/ {print $2}' "/proc/$pid/status")")
  done
  c1=$(ticks "$pid"); t1=$(date +%s.%N)
  printf '%-14s RSS %6.1f MB (own %5.1f MB)   PSS %6.1f MB   CPU %5.2f%% of a core\n' "$name" \
    "$(printf '%s\n' "${rss[@]}" | median | awk '{print $1 / 1024}')" \
    "$(printf '%s\n' "${anon[@]}" | median | awk '{print $1 / 1024}')" \
    "$(printf '%s\n' "${pss[@]}" | median | awk '{print $1 / 1024}')" \
    "$(awk -v a="$c0" -v b="$c1" -v s="$t0" -v e="$t1" -v hz="$hz" 'BEGIN {print 100 * (b - a) / hz / (e - s)}')"
}

# start ARGS...: starts the application, waits for its first tick, echoes its pid.
start() {
  "$app" "$@" </dev/null >>"$work/app.log" 2>&1 &
  local pid=$!
  for _ in $(seq 100); do [ -s "$XDG_DATA_HOME/Omnira/live.json" ] || [ -e "$XDG_DATA_HOME/Omnira/history.sqlite" ] && break; sleep 0.1; done
  sleep 5  # past start-up's first samples
  kill -0 "$pid" 2>/dev/null || { echo "omnira-app ended early:" >&2; cat "$work/app.log" >&2; exit 1; }
  echo "$pid"
}
# Started inside $(…), so not this shell's child: waited for by polling.
stop() {
  kill -TERM "$1"
  for _ in $(seq 100); do kill -0 "$1" 2>/dev/null || return 0; sleep 0.1; done
  echo "omnira-app $1 did not stop on SIGTERM." >&2; exit 1
}

echo "Omnira's desktop cost, $seconds s each, refresh 1 s, $(nproc) cores, load $(cut -d' ' -f1 /proc/loadavg)"
pid=$(start --headless); measure headless "$pid"; stop "$pid"
pid=$(start --tray-only); measure tray "$pid"; stop "$pid"
pid=$(start --open overview); measure window "$pid"
# Closed as a person would (Ctrl+W): the engine and window are released.
window=$(xdotool search --onlyvisible --name '^Omnira$' | head -n 1)
xdotool windowfocus --sync "$window" key ctrl+w
sleep 3
xdotool search --onlyvisible --name '^Omnira$' >/dev/null && { echo "The window did not close." >&2; exit 1; }
measure window-closed "$pid"; stop "$pid"
