#!/usr/bin/env python3
"""What a running Omnira costs, next to `top -b -d 1` over the same time, in one run.

Two settings, each run headless for a fixed time against a temporary data and settings
folder, with `top -b -d 1` running beside it over the same seconds:

  nobody watching  the default cadence (system every 5 s, processes every 30 s)
  watching         "refreshSeconds" 1 with one viewer (`omnira run --watching`)

CPU share is the process's CPU time over the measured seconds (all threads, from
/proc/<pid>/task/*/schedstat, nanoseconds), after a warm-up that leaves out start-up.
Peak memory is VmHWM (peak resident set) at the end. Several rounds; medians printed.

Run from the repository after `cmake --preset release && cmake --build --preset release`:
  python3 bench/run_overhead.py [--seconds 120] [--rounds 3]
"""
import argparse
import json
import os
import signal
import statistics
import subprocess
import sys
import tempfile
import time


def cpu_seconds(pid):
    """CPU time of all threads of a process, in seconds (schedstat counts nanoseconds)."""
    total = 0
    try:
        for task in os.listdir(f"/proc/{pid}/task"):
            try:
                with open(f"/proc/{pid}/task/{task}/schedstat") as f:
                    total += int(f.read().split()[0])
            except (FileNotFoundError, ProcessLookupError):
                pass  # a thread that ended between the listing and the read
    except FileNotFoundError:
        return None
    return total / 1e9


def peak_kib(pid):
    with open(f"/proc/{pid}/status") as f:
        for line in f:
            if line.startswith("VmHWM:"):
                return int(line.split()[1])
    return None


def one_round(omnira, seconds, warmup, watching):
    with tempfile.TemporaryDirectory(prefix="omnira-overhead-") as home:
        os.makedirs(f"{home}/config/Omnira")
        with open(f"{home}/config/Omnira/settings.json", "w") as f:
            json.dump({"refreshSeconds": 1} if watching else {}, f)
        env = dict(os.environ, XDG_DATA_HOME=f"{home}/data", XDG_CONFIG_HOME=f"{home}/config", HOME=home)
        args = [omnira, "run", "--headless"] + (["--watching"] if watching else [])
        app = subprocess.Popen(args, env=env, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        top = subprocess.Popen(["top", "-b", "-d", "1"], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        try:
            time.sleep(warmup)
            a0, t0, w0 = cpu_seconds(app.pid), cpu_seconds(top.pid), time.monotonic()
            time.sleep(seconds)
            a1, t1, w1 = cpu_seconds(app.pid), cpu_seconds(top.pid), time.monotonic()
            peak = peak_kib(app.pid)
            if None in (a0, a1, t0, t1, peak):
                sys.exit("omnira or top ended before the measurement was over")
        finally:
            app.send_signal(signal.SIGTERM)
            top.terminate()
            code = app.wait(timeout=30)
            top.wait(timeout=10)
        if code != 0:
            sys.exit(f"omnira run exited with {code} on SIGTERM")
        wall = w1 - w0
        return {"omnira": (a1 - a0) / wall * 100, "top": (t1 - t0) / wall * 100, "peakMiB": peak / 1024}


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--omnira", default="build/release/bin/omnira")
    parser.add_argument("--seconds", type=float, default=120, help="measured seconds per round")
    parser.add_argument("--warmup", type=float, default=8, help="seconds left out after start")
    parser.add_argument("--rounds", type=int, default=3)
    args = parser.parse_args()

    print(f"{args.rounds} rounds of {args.seconds:.0f} s after {args.warmup:.0f} s of warm-up; "
          f"{sum(1 for p in os.listdir('/proc') if p.isdigit())} processes; {os.cpu_count()} cores")
    print(f"{'setting':<18}{'omnira % core':>15}{'top % core':>13}{'omnira/top':>12}{'peak MiB':>10}")
    for name, watching in (("nobody watching", False), ("watching, 1 s", True)):
        rounds = [one_round(args.omnira, args.seconds, args.warmup, watching) for _ in range(args.rounds)]
        omnira = statistics.median(r["omnira"] for r in rounds)
        top = statistics.median(r["top"] for r in rounds)
        peak = max(r["peakMiB"] for r in rounds)
        print(f"{name:<18}{omnira:>15.3f}{top:>13.3f}{omnira / top if top else float('nan'):>12.2f}{peak:>10.1f}")
        for r in rounds:
            print(f"{'':<18}{r['omnira']:>15.3f}{r['top']:>13.3f}{'':>12}{r['peakMiB']:>10.1f}")


if __name__ == "__main__":
    main()
