#!/usr/bin/env python3
"""Daily token totals of `omnira tokens` against ccusage on the same logs, with the time and
peak memory of both.

  python3 bench/usage/generate_logs.py --out /tmp/logs --size-mb 200 --timezone Europe/Berlin
  python3 bench/usage/compare_ccusage.py --logs /tmp/logs --omnira build/release/bin/omnira

ccusage (the npm package; it reads Claude Code and Codex logs alike, `ccusage claude daily`
and `ccusage codex daily`; the older separate package @ccusage/codex is deprecated) is
installed into a temporary folder for the run and removed afterwards; it is never part of
the repository. Both tools read only the generated logs: HOME, XDG folders, CLAUDE_CONFIG_DIR
and CODEX_HOME point into temporary or generated folders, ccusage runs with --offline and
--timezone, Omnira with TZ set to the same zone.

What the script expects from `omnira tokens --json --days N` (N days ending today, in the
local calendar; models keyed by the name the log writes, e.g. "claude-sonnet-4-5-20250929",
not a shortened display name; Codex input is input less its cached part, which is cacheRead):

  {"tools": [{"tool": "claude",
              "days": [{"day": "YYYY-MM-DD",
                        "models": {"<model>": {"input": 0, "output": 0,
                                               "cacheRead": 0, "cacheWrite": 0}}}]},
             {"tool": "codex", "days": [...]}]}

Other keys are ignored; days and models with no tokens may be left out.

The comparison goes day by day and model by model over the N days. Where the figures differ,
the report names the tool, day, model and fields, and, when the logs came with expected.json
from generate_logs.py, whether the difference is exactly the output that the early, partial
lines of streamed replies leave out (what a reader that keeps the first line it sees
undercounts). ccusage 20 keeps a reply's most complete line, as Omnira does, so on its
figures both should match to the token; with --duplicates exact logs they must.

Time and peak memory come from /usr/bin/time -v. ccusage is timed as its native binary (the
npm wrapper only starts it) when the platform package is installed, else through the wrapper.
--ccusage-only runs ccusage against expected.json alone (before the command exists).
Exit status: 0 when every compared figure matches, 1 otherwise.
"""
import argparse
import datetime as dt
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
from zoneinfo import ZoneInfo

FIELDS = ("input", "output", "cacheRead", "cacheWrite")
TOOLS = ("claude", "codex")


def log(*parts):
    print(*parts, file=sys.stderr, flush=True)


def install_ccusage(folder, version):
    log(f"installing ccusage@{version} into {folder}")
    subprocess.run(["npm", "install", "--no-audit", "--no-fund", "--no-save", "--loglevel=error", "--prefix",
                    folder, f"ccusage@{version}"], check=True, stdout=subprocess.DEVNULL)
    native = os.path.join(folder, "node_modules", "@ccusage", "ccusage-linux-x64", "bin", "ccusage")
    wrapper = os.path.join(folder, "node_modules", ".bin", "ccusage")
    if os.path.isfile(native):
        os.chmod(native, 0o755)  # the tarball leaves it unexecutable; the wrapper does the same
        return native, "native"
    if os.access(wrapper, os.X_OK):
        return wrapper, "npm wrapper"
    sys.exit("ccusage was not installed; see npm's output above.")


def timed(cmd, env):
    """Runs cmd under /usr/bin/time -v; returns (stdout, seconds, peak kB)."""
    with tempfile.NamedTemporaryFile("r", suffix=".time") as report:
        proc = subprocess.run(["/usr/bin/time", "-v", "-o", report.name] + cmd, env=env, stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, text=True)
        text = report.read()
    if proc.returncode != 0:
        sys.exit(f"{' '.join(cmd)} failed ({proc.returncode}):\n{proc.stderr[-2000:]}")
    wall = re.search(r"Elapsed \(wall clock\) time \(h:mm:ss or m:ss\): (?:(\d+):)?(\d+):([\d.]+)", text)
    seconds = (int(wall.group(1) or 0) * 3600 + int(wall.group(2)) * 60 + float(wall.group(3))) if wall else float("nan")
    peak = re.search(r"Maximum resident set size \(kbytes\): (\d+)", text)
    return proc.stdout, seconds, int(peak.group(1)) if peak else 0


def add(table, tool, day, model, usage):
    if not any(usage[f] for f in FIELDS):
        return
    slot = table.setdefault(tool, {}).setdefault(day, {}).setdefault(model, dict.fromkeys(FIELDS, 0))
    for f in FIELDS:
        slot[f] += usage[f]


def from_ccusage(tool, text):
    data = json.loads(text)
    table = {}
    for day in data.get("daily", []):
        date = day["date"]
        if tool == "claude":
            for m in day.get("modelBreakdowns", []):
                add(table, tool, date, m["modelName"], {"input": m["inputTokens"], "output": m["outputTokens"],
                                                        "cacheRead": m["cacheReadTokens"],
                                                        "cacheWrite": m["cacheCreationTokens"]})
        else:
            for name, m in day.get("models", {}).items():
                # ccusage's Codex input is already net of the cached part, as Omnira's is.
                add(table, tool, date, name, {"input": m["inputTokens"], "output": m["outputTokens"],
                                              "cacheRead": m["cacheReadTokens"],
                                              "cacheWrite": m.get("cacheCreationTokens", 0)})
    return table.get(tool, {})


def from_omnira(text):
    data = json.loads(text)
    table = {}
    for entry in data.get("tools", []):
        for day in entry.get("days", []):
            for model, u in day.get("models", {}).items():
                add(table, entry["tool"], day["day"], model, {f: int(u.get(f, 0)) for f in FIELDS})
    return table


def from_expected(expected, key):
    table = {}
    for tool in TOOLS:
        section = expected.get(tool, {}).get(key) or expected.get(tool, {}).get("counted", {})
        for day, models in section.items():
            for model, u in models.items():
                add(table, tool, day, model, u)
    return table


def within(table, days):
    return {day: models for day, models in table.items() if day in days}


def compare(name_a, a, name_b, b, days, partial=None):
    """Prints each day and model where a and b differ; returns the number of differing figures."""
    differing = 0
    for day in sorted(days):
        models = sorted(set(a.get(day, {})) | set(b.get(day, {})))
        for model in models:
            ua = a.get(day, {}).get(model, dict.fromkeys(FIELDS, 0))
            ub = b.get(day, {}).get(model, dict.fromkeys(FIELDS, 0))
            fields = [f for f in FIELDS if ua[f] != ub[f]]
            if not fields:
                continue
            differing += len(fields)
            parts = [f"{f} {name_a} {ua[f]} {name_b} {ub[f]} ({ub[f] - ua[f]:+d})" for f in fields]
            note = ""
            if partial is not None:
                lost = partial.get(day, {}).get(model)
                if lost and fields == ["output"] and ua["output"] - ub["output"] in (lost, -lost):
                    note = "  = exactly the output of streamed replies' partial first lines"
            print(f"  {day} {model}: " + "; ".join(parts) + note)
    return differing


def totals(table, days):
    sums = dict.fromkeys(FIELDS, 0)
    for day in days:
        for u in table.get(day, {}).values():
            for f in FIELDS:
                sums[f] += u[f]
    return sums


def size_of(folder):
    total = 0
    for root, _, files in os.walk(folder):
        total += sum(os.path.getsize(os.path.join(root, f)) for f in files if f.endswith(".jsonl"))
    return total


def main():
    ap = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    ap.add_argument("--logs", required=True, help="folder written by generate_logs.py (claude/, codex/)")
    ap.add_argument("--omnira", default="build/release/bin/omnira", help="the omnira command")
    ap.add_argument("--days", type=int, default=10, help="days back, today included")
    ap.add_argument("--timezone", help="IANA zone (default: the one in expected.json, else UTC)")
    ap.add_argument("--ccusage-version", default="20.0.24",
                    help="ccusage version; one whose native linux-x64 build is on the registry")
    ap.add_argument("--ccusage-only", action="store_true", help="run ccusage and check it against expected.json")
    args = ap.parse_args()

    expected_path = os.path.join(args.logs, "expected.json")
    expected = json.load(open(expected_path)) if os.path.exists(expected_path) else None
    zone = args.timezone or (expected or {}).get("timezone") or "UTC"
    today = dt.datetime.now(ZoneInfo(zone)).date()
    days = {(today - dt.timedelta(days=i)).isoformat() for i in range(args.days)}
    since = min(days).replace("-", "")
    logs = os.path.abspath(args.logs)
    megabytes = {tool: size_of(os.path.join(logs, tool)) / 1e6 for tool in TOOLS}

    work = tempfile.mkdtemp(prefix="omnira-ccusage-")
    try:
        home = os.path.join(work, "home")
        os.makedirs(home)
        env = dict(os.environ, HOME=home, XDG_CONFIG_HOME=os.path.join(home, ".config"),
                   XDG_DATA_HOME=os.path.join(home, ".local", "share"), XDG_CACHE_HOME=os.path.join(home, ".cache"),
                   CLAUDE_CONFIG_DIR=os.path.join(logs, "claude"), CODEX_HOME=os.path.join(logs, "codex"),
                   TZ=zone, NO_COLOR="1")
        ccusage, how = install_ccusage(os.path.join(work, "ccusage"), args.ccusage_version)

        runs = {}
        ccusage_tables = {}
        for tool in TOOLS:
            cmd = [ccusage, tool, "daily", "--json", "--offline", "--timezone", zone, "--since", since]
            if tool == "claude":
                cmd.append("--breakdown")
            out, seconds, peak = timed(cmd, env)
            ccusage_tables[tool] = within(from_ccusage(tool, out), days)
            runs[f"ccusage {tool}"] = (seconds, peak, megabytes[tool])

        omnira_tables = None
        if not args.ccusage_only:
            omnira = os.path.abspath(args.omnira)
            out, seconds, peak = timed([omnira, "tokens", "--json", "--days", str(args.days)], env)
            omnira_tables = {tool: within(t, days) for tool, t in from_omnira(out).items()}
            runs["omnira (both tools)"] = (seconds, peak, megabytes["claude"] + megabytes["codex"])
            # A second run finds its cache: what a refresh with nothing new costs from the command line.
            out2, seconds2, peak2 = timed([omnira, "tokens", "--json", "--days", str(args.days)], env)
            runs["omnira again (cache)"] = (seconds2, peak2, megabytes["claude"] + megabytes["codex"])
            if from_omnira(out2) != from_omnira(out):
                print("omnira: the second run's figures differ from the first's")
    finally:
        shutil.rmtree(work, ignore_errors=True)

    counted = from_expected(expected, "counted") if expected else {}
    partial = {}
    if expected:
        first = from_expected(expected, "firstLine")
        for day, models in counted.get("claude", {}).items():
            for model, u in models.items():
                f = first.get("claude", {}).get(day, {}).get(model, dict.fromkeys(FIELDS, 0))
                if u["output"] != f["output"]:
                    partial.setdefault(day, {})[model] = u["output"] - f["output"]

    print(f"days {min(days)} to {max(days)} in {zone}; logs {megabytes['claude']:.1f} MB Claude Code, "
          f"{megabytes['codex']:.1f} MB Codex; ccusage {args.ccusage_version} ({how})")
    differing = 0
    for tool in TOOLS:
        print(f"\n{tool}")
        # (name, figures, name, figures, whether a difference fails the run)
        pairs = []
        if omnira_tables is not None:
            pairs.append(("omnira", omnira_tables.get(tool, {}), "ccusage", ccusage_tables[tool], True))
        if expected:
            pairs.append(("expected", within(counted.get(tool, {}), days), "ccusage", ccusage_tables[tool],
                          omnira_tables is None))
            if omnira_tables is not None:
                pairs.append(("expected", within(counted.get(tool, {}), days), "omnira",
                              omnira_tables.get(tool, {}), True))
        for name_a, a, name_b, b, counts in pairs:
            n = compare(name_a, a, name_b, b, days, partial if tool == "claude" else None)
            if counts:
                differing += n
            ta, tb = totals(a, days), totals(b, days)
            summary = " ".join(f"{f} {ta[f]}" for f in FIELDS)
            verdict = "same, day by day and model by model" if n == 0 else f"{n} figures differ"
            print(f"  {name_a} vs {name_b}: {verdict}; {name_a} totals: {summary}")

    print(f"\n{'run':<24}{'seconds':>10}{'peak MB':>10}{'MB/s':>10}")
    for name, (seconds, peak, mb) in runs.items():
        print(f"{name:<24}{seconds:>10.2f}{peak / 1024:>10.1f}{mb / seconds if seconds else 0:>10.0f}")
    if omnira_tables is not None:
        cc_seconds = runs["ccusage claude"][0] + runs["ccusage codex"][0]
        cc_peak = max(runs["ccusage claude"][1], runs["ccusage codex"][1])
        om_seconds, om_peak, _ = runs["omnira (both tools)"]
        print(f"omnira against ccusage: {cc_seconds / om_seconds:.2f}x the speed, "
              f"{om_peak / cc_peak:.2f}x the peak memory")
    return 1 if differing else 0


if __name__ == "__main__":
    sys.exit(main())
