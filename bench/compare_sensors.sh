#!/bin/sh
# One sensor tick read the plain way, for comparison with the sensorTick benchmark: a
# shell loop that cats every temperature, fan and power input, zone temp and throttle
# counter of a fixture machine. Prints microseconds per tick for each tree, then runs the
# benchmark on the same trees when its binary is given or found.
#
#   bench/compare_sensors.sh [path/to/omnira_bench] [ticks]
set -eu

here=$(cd "$(dirname "$0")/.." && pwd)
bench=${1:-$here/build/release/bench/omnira_bench}
ticks=${2:-200}

tick() {
  for f in "$1"/class/hwmon/hwmon*/*_input "$1"/class/hwmon/hwmon*/device/*_input \
           "$1"/class/hwmon/hwmon*/power*_average "$1"/class/thermal/thermal_zone*/temp \
           "$1"/devices/system/cpu/cpu*/thermal_throttle/*_count \
           "$1"/devices/system/cpu/cpu*/thermal_throttle/*_total_time_ms; do
    if [ -e "$f" ]; then cat "$f" >/dev/null; fi
  done
}

for tree in sys-thinkpad sys-ryzen; do
  root=$here/tests/fixtures/$tree
  tick "$root"  # warm the page cache
  start=$(date +%s%N)
  i=0
  while [ "$i" -lt "$ticks" ]; do
    tick "$root"
    i=$((i + 1))
  done
  end=$(date +%s%N)
  echo "$tree: shell loop with cat: $(( (end - start) / ticks / 1000 )) us per tick ($ticks ticks)"
done

if [ -x "$bench" ]; then
  "$bench" --benchmark_filter='sensorTick'
else
  echo "no benchmark binary at $bench (build the release preset, or pass its path)"
fi
