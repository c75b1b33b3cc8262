#!/usr/bin/env python3
"""CPU time of Omnira's process tick against one `top -b` refresh, in one run.

Both read the same processes at the same moment: the script optionally starts N idle
extra processes, then alternates the two tools for several rounds and prints medians.

  top refresh   = (CPU of `top -b -n K+1`  -  CPU of `top -b -n 1`) / K
                  (what one more refresh costs, without top's start-up)
  top -n 1      = CPU of one whole `top -b -n 1` run, start-up included
  omnira tick   = one process sample plus grouping, measured inside the probe over K ticks
  omnira snapshot = CPU of one whole `omnira snapshot --json` run (two samples, grouping,
                  desktop-entry scan and start-up)
  top -n 2 -d 1 = CPU of one whole `top -b -n 2 -d 1` run: what a person runs to get one
                  refresh with rates, the like of one snapshot (both wait a second)

Run from the repository after `cmake --preset release && cmake --build --preset release`.
"""
import argparse
import json
import os
import resource
import signal
import statistics
import subprocess
import sys


def children_cpu():
    r = resource.getrusage(resource.RUSAGE_CHILDREN)
    return r.ru_utime + r.ru_stime


def cpu_of(cmd, env=None):
    before = children_cpu()
    out = subprocess.run(cmd, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, env=env, check=True).stdout
    return children_cpu() - before, out


def count_processes():
    return sum(1 for name in os.listdir("/proc") if name.isdigit())


def main():
    ap = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    ap.add_argument("--extra", type=int, default=0, help="idle processes to start for the run")
    ap.add_argument("--rounds", type=int, default=7)
    ap.add_argument("--refreshes", type=int, default=10, help="K: refreshes or ticks per measurement")
    ap.add_argument("--build", default="build/release", help="build folder with the probe and omnira")
    args = ap.parse_args()

    probe = os.path.join(args.build, "bin", "omnira_sampling_probe")
    omnira = os.path.join(args.build, "bin", "omnira")
    for tool in (probe, omnira):
        if not os.access(tool, os.X_OK):
            sys.exit(f"{tool} is missing: build the release preset first.")

    sleepers = [subprocess.Popen(["sleep", "86400"]) for _ in range(args.extra)]
    try:
        env = dict(os.environ, COLUMNS="200", LINES="5000")
        k = args.refreshes
        rows = {"top_refresh": [], "top_once": [], "top_twice": [], "omnira_tick": [], "omnira_snapshot": []}
        processes = []
        for _ in range(args.rounds):
            once, _ = cpu_of(["top", "-b", "-n", "1"], env)
            many, _ = cpu_of(["top", "-b", "-d", "0.05", "-n", str(k + 1)], env)
            rows["top_once"].append(once)
            rows["top_refresh"].append(max(many - once, 0.0) / k)
            _, out = cpu_of([probe, str(k)])
            report = json.loads(out)
            rows["omnira_tick"].append(report["tick_cpu_seconds"])
            processes.append(report["processes"])
            snap, _ = cpu_of([omnira, "snapshot", "--json"])
            rows["omnira_snapshot"].append(snap)
            twice, _ = cpu_of(["top", "-b", "-n", "2", "-d", "1"], env)
            rows["top_twice"].append(twice)
    finally:
        for p in sleepers:
            p.send_signal(signal.SIGKILL)
        for p in sleepers:
            p.wait()

    med = {key: statistics.median(values) * 1000 for key, values in rows.items()}
    n = int(statistics.median(processes))
    print(f"processes: {n} (extra idle: {args.extra}), rounds: {args.rounds}, refreshes/ticks per round: {k}")
    print(f"  top -b, one refresh       {med['top_refresh']:8.2f} ms CPU  ({med['top_refresh'] * 1000 / n:5.1f} µs/process)")
    print(f"  top -b -n 1, whole run    {med['top_once']:8.2f} ms CPU")
    print(f"  omnira tick (sample+group){med['omnira_tick']:8.2f} ms CPU  ({med['omnira_tick'] * 1000 / n:5.1f} µs/process)")
    print(f"  top -b -n 2 -d 1, whole   {med['top_twice']:8.2f} ms CPU")
    print(f"  omnira snapshot, whole run{med['omnira_snapshot']:8.2f} ms CPU")
    if med["top_refresh"] > 0:
        print(f"  ratio tick / top refresh  {med['omnira_tick'] / med['top_refresh']:8.2f}  (target <= 1.0, aim 0.5)")
    if med["top_once"] > 0:
        print(f"  ratio snapshot / top -n 1 {med['omnira_snapshot'] / med['top_once']:8.2f}")
    if med["top_twice"] > 0:
        print(f"  ratio snapshot / top -n 2 {med['omnira_snapshot'] / med['top_twice']:8.2f}  (target <= 1.0)")


if __name__ == "__main__":
    main()
