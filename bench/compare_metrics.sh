#!/bin/sh
# Omnira's /metrics beside Debian's prometheus-node-exporter on this machine: both run side
# by side, each is scraped every INTERVAL seconds for SCRAPES scrapes, and the script prints
# each one's scrape latency (p50, p99), the size of one scrape, and the CPU each process used
# over the run (from /proc/PID/stat). Prometheus scrapes every 15 s by default; a shorter
# interval measures the same thing sooner.
#
#   bench/compare_metrics.sh [path/to/omnira] [scrapes] [interval]
set -eu

here=$(cd "$(dirname "$0")/.." && pwd)
omnira=${1:-$here/build/normal/bin/omnira}
scrapes=${2:-60}
interval=${3:-1}
exporter=/usr/bin/prometheus-node-exporter
[ -x "$omnira" ] || { echo "No omnira at $omnira; build it first." >&2; exit 1; }
[ -x "$exporter" ] || { echo "No $exporter; install it with: sudo apt-get install prometheus-node-exporter" >&2; exit 1; }
command -v curl >/dev/null || { echo "curl is needed." >&2; exit 1; }

work=$(mktemp -d)
omnira_port=19464
exporter_port=19100
mkdir -p "$work/config/Omnira" "$work/home"
printf '{"metricsEnabled": true, "metricsAddress": "127.0.0.1:%s"}\n' "$omnira_port" >"$work/config/Omnira/settings.json"

HOME=$work/home XDG_CONFIG_HOME=$work/config XDG_DATA_HOME=$work/data "$omnira" run --headless >"$work/omnira.log" 2>&1 &
omnira_shell=$!
"$exporter" --web.listen-address=127.0.0.1:$exporter_port >"$work/exporter.log" 2>&1 &
exporter_pid=$!
cleanup() {
  kill "$omnira_shell" "$exporter_pid" 2>/dev/null || true
  wait 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT INT TERM

# Both answer before the run starts; Omnira after its first tick.
for port in $omnira_port $exporter_port; do
  i=0
  until curl -sf -o /dev/null "http://127.0.0.1:$port/metrics"; do
    i=$((i + 1)); [ "$i" -lt 150 ] || { echo "Nothing answers on port $port." >&2; cat "$work"/*.log >&2; exit 1; }
    sleep 0.2
  done
done
# `omnira run` starts the application as its child; the CPU is the application's.
omnira_pid=$(pgrep -P "$omnira_shell" | head -n 1)
[ -n "$omnira_pid" ] || omnira_pid=$omnira_shell

ticks() { awk '{print $14 + $15}' "/proc/$1/stat"; }
hz=$(getconf CLK_TCK)
o0=$(ticks "$omnira_pid"); e0=$(ticks "$exporter_pid"); t0=$(date +%s.%N)
i=0
while [ "$i" -lt "$scrapes" ]; do
  curl -s -o /dev/null -w '%{time_total}\n' "http://127.0.0.1:$omnira_port/metrics" >>"$work/omnira.times"
  curl -s -o /dev/null -w '%{time_total}\n' "http://127.0.0.1:$exporter_port/metrics" >>"$work/exporter.times"
  i=$((i + 1))
  sleep "$interval"
done
o1=$(ticks "$omnira_pid"); e1=$(ticks "$exporter_pid"); t1=$(date +%s.%N)

report() {  # name, times file, port, cpu ticks
  sort -n "$2" | awk -v name="$1" -v bytes="$(curl -s "http://127.0.0.1:$3/metrics" | wc -c)" \
    -v cpu="$4" -v hz="$hz" -v secs="$(echo "$t1 - $t0" | bc)" '
    { t[NR] = $1 }
    END {
      p50 = t[int((NR - 1) * 0.50) + 1]; p99 = t[int((NR - 1) * 0.99) + 1]
      printf "%-14s p50 %7.2f ms  p99 %7.2f ms  scrape %7d bytes  CPU %6.2f s over %.0f s (%.2f%%)\n",
             name, p50 * 1000, p99 * 1000, bytes, cpu / hz, secs, 100 * cpu / hz / secs
    }'
}
echo "$scrapes scrapes, one every $interval s, on $(nproc) cores"
report omnira "$work/omnira.times" $omnira_port $((o1 - o0))
report node_exporter "$work/exporter.times" $exporter_port $((e1 - e0))
