#!/usr/bin/env python3
"""Omnira's container figures against `docker stats --no-stream`, in one run.

Starts a Docker daemon of its own (root, Debian's docker.io, private socket and data root,
no bridge, no iptables), imports an image made from busybox-static (nothing is pulled),
runs N idle containers, then alternates for several rounds:

  docker stats     one whole `docker stats --no-stream` run: CPU, memory, network and
                   block figures of every container (the engine waits for two readings)
  omnira containers  one whole `omnira containers --json` run: the same figures from two
                   readings a second apart, with ports and Compose labels
  omnira sample    one sample of the container sampler inside a probe (the engine's list
                   and every container's stats, all at once): what a running Omnira
                   spends every 10 s while something wants containers

and prints medians of wall and CPU time (the tool's own and the daemon's) as JSON.

Run as root from the repository after `cmake --preset release && cmake --build --preset release`.
"""
import argparse
import json
import os
import resource
import shutil
import statistics
import subprocess
import sys
import tempfile
import time


def children_cpu():
    r = resource.getrusage(resource.RUSAGE_CHILDREN)
    return r.ru_utime + r.ru_stime


def process_cpu(pid):
    with open(f"/proc/{pid}/stat") as f:
        fields = f.read().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def timed(cmd, env, daemon):
    cpu, engine, wall = children_cpu(), process_cpu(daemon), time.monotonic()
    subprocess.run(cmd, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, env=env, check=True)
    return time.monotonic() - wall, children_cpu() - cpu, process_cpu(daemon) - engine


def main():
    ap = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    ap.add_argument("--containers", type=int, default=20)
    ap.add_argument("--rounds", type=int, default=5)
    ap.add_argument("--build", default="build/release")
    args = ap.parse_args()
    omnira = os.path.join(args.build, "bin", "omnira")
    probe = os.path.join(args.build, "bin", "omnira_container_probe")
    for tool in (omnira, probe):
        if not os.access(tool, os.X_OK):
            sys.exit(f"{tool} is missing: build the release preset first.")
    if os.geteuid() != 0 or not shutil.which("dockerd") or not os.path.exists("/bin/busybox"):
        sys.exit("Run as root with docker.io and busybox-static installed.")

    root = tempfile.mkdtemp(prefix="omnira-docker-bench-")
    sock = os.path.join(root, "d.sock")
    env = dict(os.environ, DOCKER_HOST="unix://" + sock)
    log = open(os.path.join(root, "log"), "w")
    daemon = subprocess.Popen(["dockerd", "--host", "unix://" + sock, "--data-root", root + "/data",
                               "--exec-root", root + "/exec", "--pidfile", root + "/pid", "--bridge", "none",
                               "--iptables=false", "--ip6tables=false"], stdout=log, stderr=log)
    try:
        for _ in range(300):
            if subprocess.run(["docker", "version"], env=env, stdout=subprocess.DEVNULL,
                              stderr=subprocess.DEVNULL).returncode == 0:
                break
            time.sleep(0.1)
        image = os.path.join(root, "image")
        os.makedirs(image + "/bin")
        shutil.copy("/bin/busybox", image + "/bin/busybox")
        os.symlink("busybox", image + "/bin/sleep")
        subprocess.run(f"tar -C {image} -c . | docker import - omnira-bench:1", shell=True, env=env, check=True,
                       stdout=subprocess.DEVNULL)
        for i in range(args.containers):
            subprocess.run(["docker", "run", "-d", "--network", "none", "--name", f"bench-{i}",
                            "--label", "com.docker.compose.project=bench", "omnira-bench:1", "/bin/sleep", "86400"],
                           env=env, check=True, stdout=subprocess.DEVNULL)

        rows = {"docker stats": [], "omnira containers": []}
        for _ in range(args.rounds):
            rows["docker stats"].append(timed(["docker", "stats", "--no-stream"], env, daemon.pid))
            rows["omnira containers"].append(timed([omnira, "containers", "--json"], env, daemon.pid))
        out = subprocess.run([probe, sock, str(args.rounds)], env=env, check=True, stdout=subprocess.PIPE).stdout
        sample = json.loads(out)

        result = {"containers": args.containers, "rounds": args.rounds, "omnira sample": sample}
        for name, values in rows.items():
            result[name] = {
                "wall_ms": round(statistics.median(v[0] for v in values) * 1000, 1),
                "cpu_ms": round(statistics.median(v[1] for v in values) * 1000, 1),
                "daemon_cpu_ms": round(statistics.median(v[2] for v in values) * 1000, 1),
            }
        ds, oc = result["docker stats"], result["omnira containers"]
        result["ratio_wall"] = round(oc["wall_ms"] / ds["wall_ms"], 2)
        result["ratio_cpu"] = round(oc["cpu_ms"] / ds["cpu_ms"], 2) if ds["cpu_ms"] else None
        print(json.dumps(result, indent=2))
    finally:
        subprocess.run(f"docker rm -f $(docker ps -aq) >/dev/null 2>&1", shell=True, env=env)
        daemon.terminate()
        daemon.wait()
        log.close()
        shutil.rmtree(root, ignore_errors=True)


if __name__ == "__main__":
    main()
